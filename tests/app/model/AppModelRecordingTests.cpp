// The application model recording a real X server (Xvfb) with a sound server
// of the test's own: after start-up, a recording through the model becomes the
// open project, which is edited and exported; a recording that fails leaves
// its message until it is dismissed.

#include "app/model/AppModelFixture.h"
#include "capture/x11/X11CaptureContent.h"
#include "media/MediaProbe.h"
#include "project/engine/TimelineMapper.h"
#include "support/BackgroundProcess.h"
#include "support/PulseAudioTestServer.h"
#include "support/XvfbServer.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <unistd.h>
#include <vector>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using Kind = AppModelPhase::Kind;

class AppModelRecordingTest : public testing::AppModelTest {
protected:
    std::optional<testing::PulseAudioTestServer> soundServer;
    std::optional<std::string> previousSoundServer;
    std::unique_ptr<testing::XvfbServer> xvfb;
    // The phases the model went through, from the idle it was in.
    std::vector<AppModelPhase> phases;

    void SetUp() override {
        const std::optional<std::filesystem::path> pulseaudio =
            testing::PulseAudioTestServer::daemonProgram();
        if (!pulseaudio) {
            GTEST_SKIP() << "pulseaudio is not installed";
        }
        if (!testing::XvfbServer::isAvailable()) {
            GTEST_SKIP() << "Xvfb and xdotool are not installed";
        }
        if (const char* previous = std::getenv("PULSE_SERVER")) {
            previousSoundServer = previous;
        }
        soundServer.emplace(*pulseaudio);
        ::setenv("PULSE_SERVER", soundServer->address().c_str(), 1);
        xvfb = std::make_unique<testing::XvfbServer>(1280, 720);
        desktop = std::make_shared<x11::X11Connection>(xvfb->display());
    }

    void TearDown() override {
        AppModelTest::TearDown();
        if (previousSoundServer) {
            ::setenv("PULSE_SERVER", previousSoundServer->c_str(), 1);
        } else {
            ::unsetenv("PULSE_SERVER");
        }
        soundServer.reset();
    }

    void observePhases() {
        phases = {model->phase()};
        model->setObserver([this] {
            if (phases.back() != model->phase()) {
                phases.push_back(model->phase());
            }
        });
    }

    CaptureSourceDescriptor primaryDisplay() const {
        return x11::X11CaptureContent(desktop).displays().front();
    }

    bool reachesPhase(Kind kind) {
        return waitFor([&] { return model->phase().kind == kind; }, 15s);
    }
    bool recordsFor(std::chrono::milliseconds elapsed) {
        return waitFor(
            [&] {
                return model->recordingLiveStatus().elapsed >= ProjectTime::fromMilliseconds(elapsed.count());
            },
            15s);
    }

    std::vector<std::filesystem::path> packagesOnDisk() const {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(library)) {
            found.push_back(entry.path());
        }
        return found;
    }
};

TEST_F(AppModelRecordingTest, ARecordingAfterStartUpBecomesTheOpenProjectWhichIsEditedAndExported) {
    makeDiscardedRecording();
    const testing::RecordedPackage interrupted = makeInterruptedRecording();
    // The choices of the last run.
    userDefaults->set("recording.countdownSeconds", std::int64_t{0});
    userDefaults->set("recording.playsCountdownSound", false);
    userDefaults->set("recording.framesPerSecond", std::int64_t{30});

    startModel();
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    const ProjectPackage recovered{model->currentSnapshot()->packageURL};
    EXPECT_EQ(model->currentSnapshot()->manifest.id, interrupted.manifest.id);
    EXPECT_EQ(model->countdownSeconds(), 0);
    EXPECT_FALSE(model->playsCountdownSound());
    EXPECT_EQ(model->options().framesPerSecond, 30);

    // This run's setup: the display with its sound and the default microphone,
    // a short countdown with its sounds. Each choice is kept at once.
    model->selectRecordingSource(primaryDisplay());
    model->refreshRecordingDevices();
    const auto microphone =
        std::find_if(model->microphoneDevices().begin(), model->microphoneDevices().end(),
                     [](const MicrophoneDeviceDescriptor& device) { return device.isSystemDefault; });
    ASSERT_NE(microphone, model->microphoneDevices().end());
    model->selectMicrophone(microphone->id);
    model->setCountdownSeconds(3);
    model->setPlaysCountdownSound(true);
    const UserDefaults kept(userDefaults->file());
    EXPECT_EQ(RecordingLaunchPreferences::load(kept), (RecordingLaunchPreferences{3, true}));
    EXPECT_EQ(RecordingSetupPreferences::load(kept).options, model->options());

    // The recovered project is open: no recording starts, the editor stays.
    model->startRecording();
    EXPECT_EQ(model->recordingSetupMessage(), "当前录制设置尚未准备完成。");
    EXPECT_TRUE(isReady());
    model->dismissResult();
    ASSERT_EQ(model->phase().kind, Kind::idle);
    ASSERT_TRUE(waitFor([&] { return listed(recovered).has_value(); }));

    observePhases();
    model->startRecording();
    EXPECT_EQ(model->recordingSetupMessage(), std::nullopt);
    ASSERT_TRUE(reachesPhase(Kind::recording));
    // No project opens while recording.
    model->openProject(*listed(recovered));
    EXPECT_EQ(model->phase().kind, Kind::recording);
    EXPECT_EQ(model->currentSnapshot(), std::nullopt);
    ASSERT_TRUE(recordsFor(2000ms));
    model->stopRecording();
    EXPECT_EQ(model->phase().kind, Kind::finalizing);
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    EXPECT_EQ(phases, (std::vector<AppModelPhase>{
                          AppModelPhase::of(Kind::idle), AppModelPhase::of(Kind::validating),
                          AppModelPhase::countingDown(3), AppModelPhase::countingDown(2),
                          AppModelPhase::countingDown(1), AppModelPhase::countingDown(0),
                          AppModelPhase::of(Kind::preparing), AppModelPhase::of(Kind::recording),
                          AppModelPhase::of(Kind::finalizing), AppModelPhase::of(Kind::ready)}));
    EXPECT_EQ(model->recordingDiagnostics(), std::vector<std::string>{});

    // The new recording is the open project, with its sessions, in the library.
    const ProjectSnapshot shown = *model->currentSnapshot();
    const ProjectPackage recorded{shown.packageURL};
    EXPECT_NE(recorded.rootURL, recovered.rootURL);
    EXPECT_EQ(shown.manifest.state, ProjectState::completed);
    EXPECT_GE(shown.manifest.duration.seconds(), 1.9);
    ASSERT_TRUE(model->currentReport().has_value());
    EXPECT_FALSE(model->currentReport()->recovered);
    EXPECT_NE(model->captionSession(), nullptr);
    EXPECT_EQ(model->lastPersistedTimelineDigest(), store.timelineDigest(recorded));
    ASSERT_TRUE(waitFor([&] { return listed(recorded).has_value(); }));

    // A cut through the timeline session reaches the file.
    const std::string timelineBefore = readFileBytes(recorded.timelineURL());
    TimelineEditingSession& session = *model->timelineSession();
    session.split(ProjectTime::fromMilliseconds(500));
    session.split(ProjectTime::fromMilliseconds(1000));
    session.select(ProjectTime::fromMilliseconds(750));
    session.rippleDeleteSelection();
    const EditTimeline edited = session.timeline();
    ASSERT_TRUE(waitFor([&] { return timelineOnDisk(recorded) == edited; }));
    EXPECT_NE(readFileBytes(recorded.timelineURL()), timelineBefore);
    EXPECT_EQ(model->lastPersistedTimelineDigest(), store.timelineDigest(recorded));

    // The export of the cut take reports its way and is as long as the cut.
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    const ProjectTime sequenceDuration = TimelineMapper(edited, shown.manifest.duration).sequenceDuration();
    EXPECT_NEAR(sequenceDuration.seconds(), shown.manifest.duration.seconds() - 0.5, 0.05);
    std::vector<double> progress;
    model->setObserver([&] {
        if (model->isExporting()) {
            progress.push_back(model->exportProgress());
        }
    });
    const std::filesystem::path target = dataHome / "recording.mp4";
    model->startExport(
        target, {ExportResolution::p720, ExportFrameRate::fps30, ExportQuality::compact, ExportCodec::h264});
    ASSERT_TRUE(waitFor([&] { return !model->isExporting(); }, 300s));
    EXPECT_EQ(model->exportMessage(), std::nullopt);
    EXPECT_EQ(model->exportPhase(), ExportPhase::completed);
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_TRUE(std::any_of(progress.begin(), progress.end(), [](double p) { return p > 0 && p < 1; }));
    const MediaFileInfo exported = probeMediaFile(target);
    EXPECT_TRUE(exported.hasVideoTrack());
    EXPECT_NEAR(exported.duration.seconds(), sequenceDuration.seconds(), 0.1);
}

TEST_F(AppModelRecordingTest, ARecordingWhoseWindowVanishesShowsItsFailureUntilDismissed) {
    startModel();
    ASSERT_EQ(model->phase().kind, Kind::idle);
    const std::map<std::string, std::string> display{{"DISPLAY", xvfb->display()}};
    testing::BackgroundProcess window(testing::programOnPath("xmessage"),
                                      {"-geometry", "400x300+200+150", "-name", "rilo-recorded", "A"},
                                      display);
    const std::string found = xvfb->xdotool({"search", "--sync", "--classname", "rilo-recorded"});
    const auto windowID = static_cast<std::uint32_t>(std::stoul(found.substr(0, found.find('\n'))));

    model->selectRecordingSource(
        x11::X11CaptureContent(desktop).window(windowID, static_cast<std::int32_t>(getpid())));
    RecordingOptions options = model->options();
    options.framesPerSecond = 30;
    model->setRecordingOptions(options);
    model->setCountdownSeconds(0);
    observePhases();
    model->startRecording();
    ASSERT_TRUE(reachesPhase(Kind::recording));
    ASSERT_TRUE(recordsFor(700ms));
    window.signal(SIGKILL);
    window.wait();

    ASSERT_TRUE(reachesPhase(Kind::failed));
    EXPECT_EQ(model->phase(), AppModelPhase::failed("所选录制源已不可用，请刷新后重试。"));
    EXPECT_EQ(phases[phases.size() - 2], AppModelPhase::of(Kind::finalizing));
    EXPECT_EQ(model->currentSnapshot(), std::nullopt);
    const std::vector<std::filesystem::path> kept = packagesOnDisk();
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(json::decodeDocument<ProjectManifest>(readFileBytes(kept[0] / "manifest.json")).state,
              ProjectState::failed);
    // The failure stays until it is dismissed.
    model->startRecording();
    EXPECT_EQ(model->phase().kind, Kind::failed);

    model->dismissResult();
    EXPECT_EQ(model->phase().kind, Kind::idle);
    // From there the model records again; a discarded take leaves nothing.
    model->selectRecordingSource(primaryDisplay());
    model->startRecording();
    ASSERT_TRUE(reachesPhase(Kind::recording));
    ASSERT_TRUE(recordsFor(300ms));
    model->discardRecording();
    EXPECT_EQ(model->phase().kind, Kind::idle);
    EXPECT_EQ(packagesOnDisk(), kept);
}

} // namespace
} // namespace rilo
