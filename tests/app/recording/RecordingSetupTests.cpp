// The stored recording choices and the checks before a recording starts.

#include "app/recording/RecordingPreferences.h"
#include "app/recording/RecordingSetup.h"
#include "project/document/TimelineCodecs.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

class RecordingPreferencesTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory;
    std::filesystem::path file() const { return directory.path() / "settings.json"; }
    // Read back from the file, as the next run of the program does.
    UserDefaults reopened() const { return UserDefaults(file()); }
};

TEST_F(RecordingPreferencesTest, OnlyTheOfferedCountdownsAreKept) {
    const std::vector<std::pair<json::Json, std::int64_t>> stored{{4, 3},  {0, 0},   {5, 5},
                                                                  {-3, 3}, {"5", 3}, {3.5, 3}};
    for (const auto& [value, expected] : stored) {
        UserDefaults defaults(file());
        defaults.set("recording.countdownSeconds", value);
        EXPECT_EQ(RecordingLaunchPreferences::load(reopened()).countdownSeconds, expected) << value.dump();
    }
}

TEST_F(RecordingPreferencesTest, AStoredFalseStaysFalseAndUnwrittenSwitchesTakeTheirDefaults) {
    {
        UserDefaults defaults(file());
        defaults.set("recording.capturesSystemAudio", false);
        defaults.set("recording.playsCountdownSound", false);
        defaults.set("recording.capturesWebcam", true);
    }
    const RecordingSetupPreferences setup = RecordingSetupPreferences::load(reopened());
    EXPECT_FALSE(setup.options.capturesSystemAudio);
    EXPECT_TRUE(setup.options.capturesMicrophone);
    EXPECT_TRUE(setup.options.capturesWebcam);
    EXPECT_TRUE(setup.options.capturesMenuBar);
    EXPECT_FALSE(RecordingLaunchPreferences::load(reopened()).playsCountdownSound);
}

TEST_F(RecordingPreferencesTest, WhatIsSavedLoadsBackAndAnAbsentDeviceRemovesItsKey) {
    RecordingSetupPreferences setup;
    setup.options.capturesMicrophone = false;
    setup.options.capturesWebcam = true;
    setup.options.microphoneDeviceID = "alsa_input.usb";
    setup.options.webcamDeviceID = "/dev/video2";
    setup.options.framesPerSecond = 30;
    setup.webcamOverlay.diameter = 0.3;
    setup.webcamOverlay.isMirrored = false;
    setup.webcamPanelCenter = PointValue{0.25, 0.75};
    const RecordingLaunchPreferences launch{5, false};
    {
        UserDefaults defaults(file());
        setup.save(defaults);
        launch.save(defaults);
    }
    EXPECT_EQ(RecordingSetupPreferences::load(reopened()), setup);
    EXPECT_EQ(RecordingLaunchPreferences::load(reopened()), launch);

    setup.options.microphoneDeviceID.reset();
    setup.webcamPanelCenter.reset();
    {
        UserDefaults defaults(file());
        setup.save(defaults);
    }
    EXPECT_FALSE(reopened().contains("recording.microphoneDeviceID"));
    EXPECT_FALSE(reopened().contains("recording.webcamPanelCenter"));
    EXPECT_EQ(RecordingSetupPreferences::load(reopened()), setup);
}

TEST_F(RecordingPreferencesTest, AStoredOverlayAndPanelAreBroughtIntoTheSetupsLimits) {
    json::Json overlay = json::Codec<WebcamOverlay>::encode(WebcamOverlay::defaultValue());
    overlay["isVisible"] = false;
    overlay["center"] = json::Json{{"x", 0.9}, {"y", 0.1}};
    overlay["diameter"] = 0.5;
    overlay["isMirrored"] = false;
    overlay["cornerRadius"] = 3;
    overlay["borderWidthAt1080p"] = 40;
    overlay["showsShadow"] = false;
    {
        UserDefaults defaults(file());
        defaults.set("recording.webcamOverlay", overlay);
        defaults.set("recording.webcamPanelCenter", json::Json{{"x", 1.5}, {"y", -0.2}});
    }
    const RecordingSetupPreferences loaded = RecordingSetupPreferences::load(reopened());
    EXPECT_TRUE(loaded.webcamOverlay.isVisible);
    EXPECT_EQ(loaded.webcamOverlay.center, WebcamOverlay::newRecording().center);
    EXPECT_EQ(loaded.webcamOverlay.diameter, 0.36);
    EXPECT_EQ(loaded.webcamOverlay.cornerRadius, 1);
    EXPECT_EQ(loaded.webcamOverlay.borderWidthAt1080p, 20);
    EXPECT_FALSE(loaded.webcamOverlay.isMirrored);
    EXPECT_FALSE(loaded.webcamOverlay.showsShadow);
    EXPECT_EQ(loaded.webcamPanelCenter, (PointValue{1, 0}));

    WebcamOverlay tiny = WebcamOverlay::defaultValue();
    tiny.diameter = 0.05;
    tiny.cornerRadius = std::numeric_limits<double>::quiet_NaN();
    tiny.borderWidthAt1080p = std::numeric_limits<double>::infinity();
    const WebcamOverlay normalized = RecordingSetupPreferences::normalized(tiny);
    EXPECT_EQ(normalized.diameter, 0.12);
    EXPECT_EQ(normalized.cornerRadius, 0.6);
    EXPECT_EQ(normalized.borderWidthAt1080p, 10);
}

// A setup that may record: a display, every permission, both devices listed.
RecordingSetupState readySetup() {
    RecordingSetupState setup;
    setup.selectedSource = CaptureSourceDescriptor{};
    setup.permissions = PermissionSnapshot::granted();
    setup.options.capturesMicrophone = true;
    setup.options.microphoneDeviceID = "mic";
    setup.options.capturesWebcam = true;
    setup.options.webcamDeviceID = "cam";
    setup.microphoneDevices = {{"mic", "Microphone", true}};
    setup.webcamDevices = {{"cam", "Camera", false}};
    setup.webcamPreviewIsRunning = true;
    return setup;
}

TEST(RecordingSetupValidation, EachCheckInTurnAndTheFirstFailureWins) {
    ASSERT_EQ(RecordingSetupValidation::firstProblem(readySetup()), std::nullopt);

    // Each step breaks one more thing of the setup; the newest breakage is
    // the one reported only while nothing earlier is broken, so the steps
    // undo in reverse: step i leaves checks 1..i-1 passing.
    struct Step {
        std::function<void(RecordingSetupState&)> breakIt;
        std::string message;
    };
    const std::vector<Step> steps{
        {[](auto& s) { s.selectedSource.reset(); }, "请选择有效的录制来源或重新框选Area。"},
        {[](auto& s) { s.permissions.screenRecording = false; }, "需要录屏权限才能开始。"},
        {[](auto& s) { s.permissions.inputMonitoring = false; }, "需要输入监听权限才能记录虚拟光标。"},
        {[](auto& s) { s.permissions.microphone = false; }, "需要麦克风权限才能使用当前设置。"},
        {[](auto& s) { s.microphoneDevices.clear(); }, "所选麦克风已不可用，请重新选择。"},
        {[](auto& s) { s.permissions.camera = false; }, "需要摄像头权限才能使用画中画。"},
        {[](auto& s) { s.webcamDevices.clear(); }, "所选摄像头已不可用，请重新选择。"},
        {[](auto& s) { s.webcamPreviewIsRunning = false; }, "摄像头尚未准备完成，请稍候重试。"},
    };
    for (std::size_t broken = 0; broken < steps.size(); ++broken) {
        RecordingSetupState setup = readySetup();
        for (std::size_t step = broken; step < steps.size(); ++step) {
            steps[step].breakIt(setup);
        }
        EXPECT_EQ(RecordingSetupValidation::firstProblem(setup), steps[broken].message) << broken;
    }
}

TEST(RecordingSetupValidation, ADeviceSourceNeedsTheCameraAndSwitchedOffInputsAreNotChecked) {
    RecordingSetupState setup = readySetup();
    setup.selectedSource = CaptureSourceDescriptor::device("phone", "iPhone", PixelSize(1170, 2532));
    setup.permissions = {};
    EXPECT_EQ(RecordingSetupValidation::firstProblem(setup), "需要摄像头权限才能读取 USB iPhone/iPad 屏幕。");

    setup.permissions.camera = true;
    setup.options.capturesMicrophone = false;
    setup.options.capturesWebcam = false;
    // No screen or input permission, no microphone permission, a device that
    // is gone: none of it matters for a phone's screen without inputs.
    setup.microphoneDevices.clear();
    EXPECT_EQ(RecordingSetupValidation::firstProblem(setup), std::nullopt);

    // Without a chosen microphone the system's default is used: nothing to miss.
    setup = readySetup();
    setup.options.microphoneDeviceID.reset();
    setup.microphoneDevices.clear();
    EXPECT_EQ(RecordingSetupValidation::firstProblem(setup), std::nullopt);
}

} // namespace
} // namespace rilo
