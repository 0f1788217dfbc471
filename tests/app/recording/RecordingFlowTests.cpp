// The recording flow on a real X server (Xvfb) with a sound server of the
// test's own: from the setup's start through the countdown to a finished,
// cancelled, discarded or failed recording.

#include "app/recording/RecordingFlow.h"
#include "capture/pulse/PulseAudioTestFixture.h"
#include "capture/x11/X11CaptureContent.h"
#include "media/MediaProbe.h"
#include "project/document/DeviceFrameCatalog.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "support/BackgroundProcess.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"
#include "support/XvfbServer.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using Kind = RecordingPhase::Kind;

class RecordingFlowTest : public testing::PulseAudioTest {
protected:
    std::unique_ptr<testing::XvfbServer> desktop;
    std::shared_ptr<x11::X11Connection> connection;
    testing::TemporaryDirectory library;
    std::optional<ProjectStore> store;
    ManualRunLoop loop;
    PulseAudioDeviceService sound;
    std::unique_ptr<RecordingFlow> flow;

    // What the flow told the application.
    std::vector<RecordingPhase> phases;
    int setupActivations = 0;
    int previewRestarts = 0;
    int sourcePreviewStops = 0;
    std::vector<ProjectSnapshot> shownResults;

    void SetUp() override {
        PulseAudioTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        if (!testing::XvfbServer::isAvailable()) {
            GTEST_SKIP() << "Xvfb and xdotool are not installed";
        }
        desktop = std::make_unique<testing::XvfbServer>(1280, 720);
        connection = std::make_shared<x11::X11Connection>(desktop->display());
        store.emplace(library.path(), DeviceFrameCatalog::bundled);
        RecordingFlow::Handlers handlers;
        handlers.changed = [this] {
            // The phases the flow went through from its first idle.
            if ((phases.empty() ? RecordingPhase::idle() : phases.back()) != flow->phase()) {
                phases.push_back(flow->phase());
            }
        };
        handlers.showResult = [this](const ProjectSnapshot& snapshot, const DiagnosticReport&) {
            shownResults.push_back(snapshot);
        };
        handlers.activateRecordingSetup = [this] { ++setupActivations; };
        handlers.restartRecordingSetupPreviews = [this] { ++previewRestarts; };
        handlers.stopSourcePreview = [this] { ++sourcePreviewStops; };
        flow = std::make_unique<RecordingFlow>(
            RecordingFlow::Services{loop, *store, connection, sound, testing::buildDirectory() / "sounds"},
            std::move(handlers));
    }

    void TearDown() override {
        flow.reset();
        PulseAudioTest::TearDown();
    }

    // The primary display with the system audio and the test server's microphone.
    RecordingFlow::StartRequest request(int countdownSeconds) const {
        RecordingFlow::StartRequest start;
        start.setup.selectedSource = x11::X11CaptureContent(connection).displays().front();
        start.setup.permissions = PermissionSnapshot::granted();
        start.setup.options.capturesSystemAudio = true;
        start.setup.options.capturesMicrophone = true;
        start.setup.options.framesPerSecond = 30;
        start.setup.microphoneDevices = sound.microphones();
        start.launch = {countdownSeconds, true};
        return start;
    }

    bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 15s) {
        return loop.runUntil(condition, limit);
    }
    bool runUntilPhase(Kind kind) {
        return runUntil([&] { return flow->phase().kind == kind; });
    }
    void recordFor(ProjectTime elapsed) {
        ASSERT_TRUE(runUntil([&] { return flow->recordingLiveStatus().elapsed >= elapsed; }));
    }

    std::vector<std::filesystem::path> packages() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(library.path())) {
            found.push_back(entry.path());
        }
        return found;
    }
    static ProjectManifest manifestOf(const std::filesystem::path& package) {
        return json::decodeDocument<ProjectManifest>(readFileBytes(package / "manifest.json"));
    }
};

TEST_F(RecordingFlowTest, CountsDownRecordsAndHandsOnAFinishedProjectWhoseMediaPlays) {
    flow->startRecording(request(3));
    EXPECT_EQ(flow->phase(), RecordingPhase::validating());
    EXPECT_EQ(sourcePreviewStops, 1);
    ASSERT_TRUE(runUntilPhase(Kind::recording));
    EXPECT_EQ(phases,
              (std::vector<RecordingPhase>{RecordingPhase::validating(), RecordingPhase::countingDown(3),
                                           RecordingPhase::countingDown(2), RecordingPhase::countingDown(1),
                                           RecordingPhase::countingDown(0), RecordingPhase::preparing(),
                                           RecordingPhase::recording()}));
    recordFor(ProjectTime{1'000'000'000});

    // A second start while one runs is refused, and the recording goes on.
    flow->startRecording(request(0));
    EXPECT_EQ(flow->recordingSetupMessage(), "当前录制设置尚未准备完成。");
    EXPECT_EQ(flow->phase(), RecordingPhase::recording());

    flow->toggleRecordingPause();
    EXPECT_EQ(flow->recordingLiveStatus().transportState, RecordingTransportState::paused);
    flow->toggleRecordingPause();
    ASSERT_TRUE(runUntil(
        [&] { return flow->recordingLiveStatus().transportState == RecordingTransportState::recording; }));
    recordFor(ProjectTime{2'000'000'000});

    flow->stopRecording();
    EXPECT_EQ(flow->phase(), RecordingPhase::finalizing());
    EXPECT_EQ(flow->recordingLiveStatus().transportState, RecordingTransportState::stopping);
    ASSERT_TRUE(runUntil([&] { return !shownResults.empty(); }, 30s));
    EXPECT_EQ(flow->phase(), RecordingPhase::idle());
    EXPECT_FALSE(flow->hasSession());
    EXPECT_TRUE(flow->diagnostics().empty()) << flow->diagnostics().front();

    const ProjectSnapshot& result = shownResults.front();
    const std::vector<RecentProject> listed = store->recentProjects();
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].packageURL, result.packageURL);
    EXPECT_EQ(result.manifest.state, ProjectState::completed);
    EXPECT_EQ(result.manifest.metrics.pauseCount, 1);
    const MediaFileInfo media = probeMediaFile(result.mediaURL());
    EXPECT_TRUE(media.hasVideoTrack());
    EXPECT_EQ(media.tracks.size(), 3U); // screen, system audio, microphone
    EXPECT_GE(media.duration.seconds(), 1.9);
    EXPECT_NEAR(media.duration.seconds(), result.manifest.duration.seconds(), 0.1);
}

TEST_F(RecordingFlowTest, ACancelledCountdownReturnsQuietlyAndLeavesNothing) {
    flow->startRecording(request(3));
    ASSERT_TRUE(runUntil([&] { return flow->phase() == RecordingPhase::countingDown(2); }));
    flow->cancelRecordingCountdown();
    EXPECT_EQ(flow->phase(), RecordingPhase::idle());
    EXPECT_EQ(flow->recordingSetupMessage(), std::nullopt);
    EXPECT_EQ(setupActivations, 1);
    EXPECT_EQ(previewRestarts, 1);

    // The ticks that were due never come.
    const std::size_t seen = phases.size();
    loop.runUntil([] { return false; }, 2500ms);
    EXPECT_EQ(phases.size(), seen);
    EXPECT_TRUE(packages().empty());
}

TEST_F(RecordingFlowTest, SetupProblemsBecomeMessagesAndLeaveNothingBehind) {
    RecordingFlow::StartRequest noSource = request(0);
    noSource.setup.selectedSource.reset();
    flow->startRecording(noSource);
    EXPECT_EQ(flow->recordingSetupMessage(), "请选择有效的录制来源或重新框选Area。");
    EXPECT_EQ(setupActivations, 1);
    EXPECT_TRUE(phases.empty());

    // Offered by the setup but gone from the sound server.
    RecordingFlow::StartRequest goneMicrophone = request(0);
    goneMicrophone.setup.options.microphoneDeviceID = "unplugged";
    goneMicrophone.setup.microphoneDevices.push_back({"unplugged", "USB", false});
    flow->startRecording(goneMicrophone);
    EXPECT_EQ(flow->recordingSetupMessage(), "所选麦克风已不可用，请重新选择。");
    EXPECT_EQ(flow->phase(), RecordingPhase::idle());
    EXPECT_EQ(sourcePreviewStops, 0);

    // The camera went during the countdown: the start fails when it is opened.
    RecordingFlow::StartRequest goneCamera = request(0);
    goneCamera.setup.options.capturesWebcam = true;
    goneCamera.setup.options.webcamDeviceID = "/dev/video-unplugged";
    goneCamera.setup.webcamDevices = {{"/dev/video-unplugged", "Camera", false}};
    goneCamera.setup.webcamPreviewIsRunning = true;
    flow->startRecording(goneCamera);
    ASSERT_TRUE(runUntil([&] { return flow->phase().kind == Kind::idle; }));
    EXPECT_EQ(flow->recordingSetupMessage(), "摄像头“/dev/video-unplugged”当前不可用。");
    EXPECT_EQ(setupActivations, 2);
    EXPECT_EQ(previewRestarts, 1);
    EXPECT_EQ(phases.back(), RecordingPhase::idle());
    EXPECT_TRUE(packages().empty());
}

TEST_F(RecordingFlowTest, OnlyTheFirstOfStopAndFailureTakesEffect) {
    flow->startRecording(request(0));
    ASSERT_TRUE(runUntilPhase(Kind::recording));
    recordFor(ProjectTime{500'000'000});
    flow->stopRecording();
    flow->handleRecordingPresentationFailure("无法取得 Rilo 主窗口，已停止录制。");
    flow->discardRecording();
    flow->stopRecording();
    ASSERT_TRUE(runUntil([&] { return !shownResults.empty(); }, 30s));
    loop.runUntil([] { return false; }, 300ms);
    EXPECT_EQ(shownResults.size(), 1U);
    EXPECT_EQ(flow->phase(), RecordingPhase::idle());
    EXPECT_EQ(store->recentProjects().size(), 1U);

    // Now the failure first: the stop finds the gate closed.
    flow->startRecording(request(0));
    ASSERT_TRUE(runUntilPhase(Kind::recording));
    recordFor(ProjectTime{500'000'000});
    const std::string reason = "无法确定录制控制台所在屏幕，已停止录制。";
    flow->handleRecordingPresentationFailure(reason);
    EXPECT_EQ(flow->phase(), RecordingPhase::failed(reason));
    flow->stopRecording();
    loop.runUntil([] { return false; }, 500ms);
    EXPECT_EQ(flow->phase(), RecordingPhase::failed(reason));
    EXPECT_EQ(shownResults.size(), 1U);
    EXPECT_EQ(store->recentProjects().size(), 1U);
    std::vector<std::filesystem::path> failed;
    for (const auto& package : packages()) {
        if (package.extension() == ".tmp") {
            failed.push_back(package);
        }
    }
    ASSERT_EQ(failed.size(), 1U);
    const ProjectManifest manifest = manifestOf(failed[0]);
    EXPECT_EQ(manifest.state, ProjectState::failed);
}

TEST_F(RecordingFlowTest, ARecordingWhoseWindowVanishesFailsAndTheFlowRecordsAgain) {
    const std::map<std::string, std::string> display{{"DISPLAY", desktop->display()}};
    testing::BackgroundProcess window(testing::programOnPath("xmessage"),
                                      {"-geometry", "400x300+200+150", "-name", "rilo-recorded", "A"},
                                      display);
    const std::string found = desktop->xdotool({"search", "--sync", "--classname", "rilo-recorded"});
    const auto windowID = static_cast<std::uint32_t>(std::stoul(found.substr(0, found.find('\n'))));

    RecordingFlow::StartRequest start = request(0);
    start.setup.selectedSource =
        x11::X11CaptureContent(connection).window(windowID, static_cast<std::int32_t>(getpid()));
    flow->startRecording(start);
    ASSERT_TRUE(runUntilPhase(Kind::recording));
    recordFor(ProjectTime{700'000'000});
    window.signal(SIGKILL);
    window.wait();

    ASSERT_TRUE(runUntilPhase(Kind::failed));
    EXPECT_EQ(flow->phase().failureMessage, "所选录制源已不可用，请刷新后重试。");
    EXPECT_EQ(phases[phases.size() - 2], RecordingPhase::finalizing());
    EXPECT_FALSE(flow->hasSession());
    const std::vector<std::filesystem::path> kept = packages();
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(manifestOf(kept[0]).state, ProjectState::failed);

    flow->dismissFailure();
    flow->startRecording(request(0));
    ASSERT_TRUE(runUntilPhase(Kind::recording));
    recordFor(ProjectTime{500'000'000});
    flow->stopRecording();
    ASSERT_TRUE(runUntil([&] { return !shownResults.empty(); }, 30s));
    EXPECT_EQ(store->recentProjects().size(), 1U);
}

} // namespace
} // namespace rilo
