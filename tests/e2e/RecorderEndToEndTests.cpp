// The headless recorder on a real X server (Xvfb) with xdotool driving the
// mouse: what a recording leaves behind, what the command line then reads of
// it, a recorder killed mid-way, and the failures that must leave nothing.

#include "media/FFmpegMediaAssetInspector.h"
#include "project/store/ChunkStore.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "support/BackgroundProcess.h"
#include "support/CliLibraryTest.h"
#include "support/PulseAudioTestServer.h"
#include "support/TestPaths.h"
#include "support/XvfbServer.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

namespace rilo {
namespace {

using json::Json;
using namespace std::chrono_literals;

constexpr double frameSeconds = 1.0 / 60;

class RecorderEndToEnd : public testing::CliTest {
protected:
    std::unique_ptr<testing::XvfbServer> desktop;

    void SetUp() override {
        if (!testing::XvfbServer::isAvailable()) {
            GTEST_SKIP() << "Xvfb and xdotool are not installed";
        }
        desktop = std::make_unique<testing::XvfbServer>(1920, 1080);
    }

    std::map<std::string, std::string> environment() const {
        return {{"XDG_DATA_HOME", dataHome.path().string()}, {"DISPLAY", desktop->display()}};
    }

    std::unique_ptr<testing::BackgroundProcess>
    startRecorder(const std::vector<std::string>& arguments) const {
        return std::make_unique<testing::BackgroundProcess>(testing::buildDirectory() / "rilo-record",
                                                            arguments, environment());
    }

    testing::ProcessResult record(const std::vector<std::string>& arguments) const {
        return startRecorder(arguments)->wait();
    }

    // The unfinished package, once its first frame is written.
    std::filesystem::path waitUntilRecording() const {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (std::chrono::steady_clock::now() < deadline) {
            if (std::filesystem::exists(library)) {
                for (const auto& entry : std::filesystem::directory_iterator(library)) {
                    if (entry.path().string().ends_with(".rilo.tmp") &&
                        std::filesystem::exists(entry.path() / "media/recording.mov")) {
                        return entry.path();
                    }
                }
            }
            std::this_thread::sleep_for(20ms);
        }
        ADD_FAILURE() << "the recorder never wrote a frame";
        return {};
    }

    std::vector<std::filesystem::path> packages() const {
        std::vector<std::filesystem::path> found;
        if (std::filesystem::exists(library)) {
            for (const auto& entry : std::filesystem::directory_iterator(library)) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    static std::int64_t videoPackets(const std::filesystem::path& movie) {
        const testing::ProcessResult result = testing::runProcess(
            "/usr/bin/ffprobe", {"-v", "error", "-select_streams", "v:0", "-count_packets", "-show_entries",
                                 "stream=nb_read_packets", "-of", "csv=p=0", movie.string()});
        return std::stoll(result.standardOutput);
    }
};

TEST_F(RecorderEndToEnd, RecordsTheDesktopWithTheMouseIntoAFinishedProject) {
    auto recorder = startRecorder({"--seconds", "8", "--fps", "60"});
    waitUntilRecording();
    // One xdotool run, so that the spacing of the clicks is its own sleeps.
    // (click waits after itself; a press and a release do not).
    desktop->xdotool({"mousemove", "400", "300",       "sleep", "0.3",     "mousedown", "1", "mouseup", "1",
                      "sleep",     "1.2", "mousemove", "1200",  "700",     "mousedown", "1", "mouseup", "1",
                      "sleep",     "0.8", "mousedown", "1",     "mouseup", "1"});
    const testing::ProcessResult result = recorder->wait();
    ASSERT_EQ(result.exitCode, 0) << result.standardError;
    const Json answer = json::parse(result.standardOutput);
    const std::string id = answer["projectID"];
    const std::filesystem::path package = answer["packagePath"].get<std::string>();
    EXPECT_EQ(package, library / (id + ".rilo"));

    const Json listed = succeed({"list"});
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0]["id"], id);

    // The clicks where and when the driver made them.
    const Json described = succeed({"describe", id});
    const std::vector<std::int64_t> clicks = described["clickMilliseconds"];
    ASSERT_EQ(clicks.size(), 3U);
    EXPECT_NEAR(clicks[1] - clicks[0], 1200, 2 * 1000 * frameSeconds + 15);
    EXPECT_NEAR(clicks[2] - clicks[1], 800, 2 * 1000 * frameSeconds + 15);
    EXPECT_FALSE(described["zooms"].empty());

    const std::vector<MouseEvent> events = ChunkStore<MouseEvent>::readAll(package / "events");
    const auto movedTo = [&](double x, double y) {
        return std::any_of(events.begin(), events.end(), [&](const MouseEvent& event) {
            return event.phase == MousePhase::moved && event.globalPoint == PointValue{x, y} &&
                   std::abs(event.normalizedPoint.x - x / 1920) < 1e-9 &&
                   std::abs(event.normalizedPoint.y - y / 1080) < 1e-9 && event.isInsideSource == true;
        });
    };
    EXPECT_TRUE(movedTo(400, 300));
    EXPECT_TRUE(movedTo(1200, 700));

    // The media agrees with the manifest, and every tick is a frame or a drop.
    const ProjectManifest manifest =
        json::decodeDocument<ProjectManifest>(readFileBytes(package / "manifest.json"));
    const double manifestSeconds = manifest.duration.seconds();
    EXPECT_NEAR(manifestSeconds, 8, 0.2);
    const MediaAssetSummary media = FFmpegMediaAssetInspector().inspect(package / "media/recording.mov");
    EXPECT_NEAR(media.duration.seconds(), manifestSeconds, 2 * frameSeconds);
    EXPECT_EQ(videoPackets(package / "media/recording.mov"), manifest.metrics.videoFrames);
    EXPECT_NEAR(manifest.metrics.videoFrames + manifest.metrics.droppedVideoFrames, manifestSeconds * 60, 3);
    EXPECT_EQ(manifest.metrics.mouseEvents, static_cast<std::int64_t>(events.size()));
    EXPECT_EQ(manifest.metrics.writerStatus, "completed");

    const std::filesystem::path movie = dataHome / "take.mp4";
    succeed({"export", id, "--preset", "compact", "--out", movie.string()});
    EXPECT_GT(std::filesystem::file_size(movie), 0U);
}

TEST_F(RecorderEndToEnd, AKilledRecorderLeavesAPackageThatRecoveryOpens) {
    auto recorder = startRecorder({});
    const std::filesystem::path unfinished = waitUntilRecording();
    std::this_thread::sleep_for(3s);
    recorder->signal(SIGKILL);
    EXPECT_EQ(recorder->wait().exitCode, 128 + SIGKILL);

    ProjectStore store(library, DeviceFrameCatalog::bundled);
    const FFmpegMediaAssetInspector inspector;
    const std::vector<ProjectPackage> recoverable = store.recoverableProjects(inspector);
    ASSERT_EQ(recoverable.size(), 1U);
    EXPECT_EQ(recoverable[0].rootURL, unfinished);
    // Up to the last whole fragment, about a second at most before the kill.
    const ProjectTime duration = inspector.inspect(unfinished / "media/recording.mov").duration;
    EXPECT_GT(duration.seconds(), 1.5);
    EXPECT_LT(duration.seconds(), 3.5);

    store.markRecovered(recoverable[0], duration);
    ASSERT_EQ(store.recentProjects().size(), 1U);
    const Json described = succeed({"describe", store.recentProjects()[0].packageURL.stem().string()});
    EXPECT_EQ(described["state"], "recovered");
}

TEST_F(RecorderEndToEnd, AWindowIsRecordedUncoveredAndItsVanishingKeepsTheTakeForRecovery) {
    const std::map<std::string, std::string> display{{"DISPLAY", desktop->display()}};
    testing::BackgroundProcess window(
        testing::programOnPath("xmessage"),
        {"-geometry", "400x300+200+150", "-bg", "blue", "-name", "rilo-recorded", "A"}, display);
    const std::string windowID = desktop->xdotool({"search", "--sync", "--classname", "rilo-recorded"});
    // A red window over the middle of the recorded one.
    const testing::BackgroundProcess cover(
        testing::programOnPath("xmessage"),
        {"-geometry", "200x100+300+200", "-bg", "red", "-name", "rilo-cover", "B"}, display);
    desktop->xdotool({"search", "--sync", "--classname", "rilo-cover"});
    auto recorder = startRecorder({"--window", windowID.substr(0, windowID.find('\n')), "--fps", "30"});
    const std::filesystem::path unfinished = waitUntilRecording();
    std::this_thread::sleep_for(1500ms);
    window.signal(SIGKILL);
    window.wait();

    const testing::ProcessResult result = recorder->wait();
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(json::parse(result.standardError)["message"], "所选录制源已不可用，请刷新后重试。");
    const ProjectManifest manifest =
        json::decodeDocument<ProjectManifest>(readFileBytes(unfinished / "manifest.json"));
    EXPECT_EQ(manifest.state, ProjectState::failed);
    EXPECT_EQ(manifest.encodedPixelSize, PixelSize(400, 300));
    EXPECT_EQ(ProjectStore(library, DeviceFrameCatalog::bundled)
                  .recoverableProjects(FFmpegMediaAssetInspector())
                  .size(),
              1U);

    // Where the red window lay over it, the recording shows the blue one.
    const testing::ProcessResult picture = testing::runProcess(
        "/usr/bin/ffmpeg", {"-v", "error", "-ss", "0.5", "-i", (unfinished / "media/recording.mov").string(),
                            "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    ASSERT_EQ(picture.standardOutput.size(), 400U * 300 * 3);
    const auto* covered =
        reinterpret_cast<const std::uint8_t*>(picture.standardOutput.data()) + (100 * 400 + 200) * 3;
    EXPECT_LT(covered[0], 60);
    EXPECT_GT(covered[2], 180);
}

TEST_F(RecorderEndToEnd, WhatCannotBeRecordedIsRefusedBeforeAnyPackageIsMade) {
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string message;
    };
    const std::vector<Case> cases{
        {{"--display", ":4242", "--seconds", "1"}, 5, "无法连接显示“:4242”，请确认图形会话正在运行。"},
        {{"--webcam", "/dev/video-missing", "--seconds", "1"}, 5, "摄像头“/dev/video-missing”当前不可用。"},
        {{"--window", "12345", "--seconds", "1"}, 5, "所选录制源已不可用，请刷新后重试。"},
        {{"--fps", "24"}, 1, "参数无效：--fps 24"},
        {{"--area", "0,0,800"}, 1, "参数无效：--area 0,0,800"},
        {{"--seconds"}, 1, "缺少参数：--seconds"},
    };
    for (const Case& refused : cases) {
        const testing::ProcessResult result = record(refused.arguments);
        EXPECT_EQ(result.exitCode, refused.exitCode) << refused.arguments[0];
        EXPECT_EQ(result.standardOutput, "");
        EXPECT_EQ(json::parse(result.standardError)["message"], refused.message);
    }
    EXPECT_TRUE(packages().empty());
}

// With a sound server of the test's own: a tone plays into its output, and
// its default source is a sine.
class RecorderWithSoundEndToEnd : public RecorderEndToEnd {
protected:
    std::optional<testing::PulseAudioTestServer> sound;

    void SetUp() override {
        RecorderEndToEnd::SetUp();
        const std::optional<std::filesystem::path> daemon = testing::PulseAudioTestServer::daemonProgram();
        if (IsSkipped() || !daemon) {
            GTEST_SKIP() << "pulseaudio is not installed";
        }
        sound.emplace(*daemon);
    }

    std::map<std::string, std::string> environment() const {
        std::map<std::string, std::string> variables = RecorderEndToEnd::environment();
        variables["PULSE_SERVER"] = sound->address();
        return variables;
    }

    // The root mean square of one sound track from `fromSeconds` on.
    static double level(const std::filesystem::path& movie, int track, double fromSeconds) {
        const testing::ProcessResult decoded = testing::runProcess(
            "/usr/bin/ffmpeg", {"-v", "error", "-ss", std::to_string(fromSeconds), "-i", movie.string(),
                                "-map", "0:" + std::to_string(track), "-ac", "1", "-f", "f32le", "-"});
        EXPECT_EQ(decoded.exitCode, 0) << decoded.standardError;
        const auto* samples = reinterpret_cast<const float*>(decoded.standardOutput.data());
        const std::size_t count = decoded.standardOutput.size() / sizeof(float);
        double sum = 0;
        for (std::size_t i = 0; i < count; ++i) {
            sum += double(samples[i]) * samples[i];
        }
        return count == 0 ? 0 : std::sqrt(sum / double(count));
    }
};

TEST_F(RecorderWithSoundEndToEnd, EveryInputGetsItsOwnTrackAndTheToneIsInTheSystemAudio) {
    sound->control({"load-module", "module-sine", "sink=rilo_null", "frequency=440"});
    const testing::ProcessResult result =
        testing::BackgroundProcess(testing::buildDirectory() / "rilo-record",
                                   {"--seconds", "4", "--fps", "30", "--system-audio", "--microphone",
                                    "default", "--webcam", "pattern"},
                                   environment())
            .wait();
    ASSERT_EQ(result.exitCode, 0) << result.standardError;
    const std::filesystem::path package =
        json::parse(result.standardOutput)["packagePath"].get<std::string>();
    const std::filesystem::path movie = package / "media/recording.mov";

    const ProjectManifest manifest =
        json::decodeDocument<ProjectManifest>(readFileBytes(package / "manifest.json"));
    EXPECT_EQ(manifest.media.tracks, (std::vector<MediaTrack>{{MediaTrackKind::screen, 0},
                                                              {MediaTrackKind::systemAudio, 2},
                                                              {MediaTrackKind::microphone, 3}}));
    ASSERT_TRUE(manifest.webcam);
    EXPECT_EQ(manifest.webcam->pixelSize, PixelSize(1280, 720));
    EXPECT_GT(manifest.metrics.systemAudioSamples, 0);
    EXPECT_GT(manifest.metrics.microphoneSamples, 0);
    EXPECT_GT(manifest.metrics.webcamFrames.value_or(0), 60);

    const Json streams = json::parse(testing::runProcess("/usr/bin/ffprobe", {"-v", "error", "-show_streams",
                                                                              "-of", "json", movie.string()})
                                         .standardOutput)["streams"];
    ASSERT_EQ(streams.size(), 4U);
    EXPECT_EQ(streams[1]["width"], 1280);
    EXPECT_EQ(streams[2]["codec_name"], "aac");
    // The tone, and the sine of the default source: loud; the idle output
    // needs a moment before it plays, so the end of the take is measured.
    EXPECT_GT(level(movie, 2, 2.5), 0.05);
    EXPECT_GT(level(movie, 3, 2.5), 0.05);

    const DiagnosticReport report =
        json::decodeDocument<DiagnosticReport>(readFileBytes(package / "diagnostics/report.json"));
    EXPECT_EQ(report.systemAudioOutputDevice, "Rilo Test Output");
    EXPECT_TRUE(report.microphoneDevice.has_value());
    EXPECT_EQ(report.writerStatus, "completed");
    EXPECT_EQ(succeed({"describe", manifest.id.string()})["tracks"]["webcam"], true);
}

TEST_F(RecorderWithSoundEndToEnd, AMissingMicrophoneIsRefusedBeforeAnyPackageIsMade) {
    const testing::ProcessResult result =
        testing::BackgroundProcess(testing::buildDirectory() / "rilo-record",
                                   {"--seconds", "1", "--microphone", "unplugged"}, environment())
            .wait();
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(json::parse(result.standardError)["message"], "所选麦克风已不可用，请重新选择。");
    EXPECT_TRUE(packages().empty());
}

} // namespace
} // namespace rilo
