// Recording sessions and capture content on a real X server (Xvfb).

#include "capture/RecordingMachineFacts.h"
#include "capture/ScreenRecordingSession.h"
#include "capture/x11/X11CaptureContent.h"
#include "capture/x11/X11CursorShapeProvider.h"
#include "capture/x11/X11MouseEventTap.h"
#include "capture/x11/X11ScreenCaptureStream.h"
#include "project/document/DeviceFrameCatalog.h"
#include "shared/Json.h"
#include "support/BackgroundProcess.h"
#include "support/TemporaryDirectory.h"
#include "support/XvfbServer.h"

#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace rilo {
namespace {

using namespace std::chrono_literals;

class X11CaptureTest : public ::testing::Test {
protected:
    std::unique_ptr<testing::XvfbServer> desktop;
    std::shared_ptr<x11::X11Connection> connection;

    void SetUp() override {
        if (!testing::XvfbServer::isAvailable()) {
            GTEST_SKIP() << "Xvfb and xdotool are not installed";
        }
        desktop = std::make_unique<testing::XvfbServer>(1280, 720);
        connection = std::make_shared<x11::X11Connection>(desktop->display());
    }

    ScreenRecordingInputs inputsFor(const CaptureSourceDescriptor& source) const {
        ScreenRecordingInputs inputs;
        inputs.stream = std::make_unique<x11::X11ScreenCaptureStream>(connection, source);
        inputs.mouseTap = std::make_unique<x11::X11MouseEventTap>(desktop->display());
        inputs.cursorShapeProvider = std::make_shared<x11::X11CursorShapeProvider>(connection);
        inputs.sourceMonitor = std::make_shared<x11::X11CaptureSourceMonitor>(connection, source);
        return inputs;
    }

    static RecordingOptions silentOptions() {
        RecordingOptions options;
        options.capturesSystemAudio = false;
        options.capturesMicrophone = false;
        options.framesPerSecond = 30;
        return options;
    }
};

TEST_F(X11CaptureTest, PauseAndResumeLeaveNoGapInProjectTimeAndAreCounted) {
    testing::TemporaryDirectory library;
    ProjectStore store(library.path(), DeviceFrameCatalog::bundled);
    const CaptureSourceDescriptor source = x11::X11CaptureContent(connection).display(std::nullopt);
    const RecordingOptions options = silentOptions();
    ScreenRecordingInputs inputs = inputsFor(source);

    std::mutex statesLock;
    std::vector<RecordingTransportState> states;
    ScreenRecordingSession session(
        store, store.create(source, options, source.initialPixelSize, std::nullopt, std::nullopt),
        std::move(inputs), std::nullopt, currentMachineFacts(std::nullopt),
        [&](const RecordingLiveStatus& status) {
            const std::lock_guard guard(statesLock);
            if (states.empty() || states.back() != status.transportState) {
                states.push_back(status.transportState);
            }
        },
        [](const std::string& message) { ADD_FAILURE() << message; });
    session.start();
    std::this_thread::sleep_for(1s);
    session.pause();
    std::this_thread::sleep_for(1500ms);
    session.resume();
    std::this_thread::sleep_for(1s);
    const RecordingSessionResult result = session.stop();

    const RecordingMetrics& metrics = result.snapshot.manifest.metrics;
    EXPECT_EQ(metrics.pauseCount, 1);
    EXPECT_NEAR(static_cast<double>(*metrics.pausedDurationNanoseconds) / 1e9, 1.5, 0.2);
    EXPECT_NEAR(result.snapshot.manifest.duration.seconds(), 2.0, 0.25);
    EXPECT_EQ(result.report.metrics, metrics);
    EXPECT_FALSE(result.report.recovered);
    EXPECT_EQ(states, (std::vector<RecordingTransportState>{
                          RecordingTransportState::recording, RecordingTransportState::paused,
                          RecordingTransportState::resuming, RecordingTransportState::recording}));
    // The movie runs on without a hole where the pause was.
    const testing::ProcessResult packets = testing::runProcess(
        "/usr/bin/ffprobe", {"-v", "error", "-select_streams", "v:0", "-show_entries", "packet=pts_time",
                             "-of", "csv=p=0", result.snapshot.mediaURL().string()});
    std::istringstream lines(packets.standardOutput);
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);) {
        times.push_back(std::stod(line));
    }
    ASSERT_GT(times.size(), 30U);
    double largestGap = 0;
    for (std::size_t i = 1; i < times.size(); ++i) {
        largestGap = std::max(largestGap, times[i] - times[i - 1]);
    }
    EXPECT_LT(largestGap, 0.15);
    // The first timeline covers the take.
    ASSERT_EQ(result.snapshot.timeline.segments.size(), 1U);
    EXPECT_EQ(result.snapshot.timeline.segments[0].sourceRange.duration, result.snapshot.manifest.duration);
}

TEST_F(X11CaptureTest, ADiscardedRecordingLeavesNothing) {
    testing::TemporaryDirectory library;
    ProjectStore store(library.path(), DeviceFrameCatalog::bundled);
    const CaptureSourceDescriptor source = DisplayCaptureGeometry::croppedSource(
        x11::X11CaptureContent(connection).display(std::nullopt), {100, 100, 640, 360});
    ScreenRecordingSession session(
        store, store.create(source, silentOptions(), source.initialPixelSize, std::nullopt, std::nullopt),
        inputsFor(source), std::nullopt, currentMachineFacts(std::nullopt), nullptr,
        [](const std::string& message) { ADD_FAILURE() << message; });
    session.start();
    std::this_thread::sleep_for(500ms);
    ASSERT_TRUE(std::filesystem::exists(session.package().mediaURL()));
    session.discard();
    EXPECT_TRUE(std::filesystem::is_empty(library.path()));
}

TEST_F(X11CaptureTest, OtherProgramsWindowsAreOfferedAndThisProgramsNever) {
    testing::BackgroundProcess other(testing::programOnPath("xmessage"),
                                     {"-geometry", "400x300+200+150", "-name", "rilo-listed", "listed"},
                                     {{"DISPLAY", desktop->display()}});
    testing::BackgroundProcess tiny(testing::programOnPath("xmessage"),
                                    {"-geometry", "150x90+700+150", "-name", "rilo-tiny", "tiny"},
                                    {{"DISPLAY", desktop->display()}});
    const std::string listedID = desktop->xdotool({"search", "--sync", "--classname", "rilo-listed"});
    desktop->xdotool({"search", "--sync", "--classname", "rilo-tiny"});

    // A window of this very process, over the display.
    xcb_connection_t* c = connection->get();
    const xcb_window_t own = xcb_generate_id(c);
    xcb_create_window(c, XCB_COPY_FROM_PARENT, own, connection->root(), 600, 400, 300, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, own, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 8, "rilo own");
    xcb_map_window(c, own);
    xcb_flush(c);
    std::this_thread::sleep_for(200ms);

    const x11::X11CaptureContent content(connection);
    const auto processID = static_cast<std::int32_t>(getpid());
    const std::vector<CaptureSourceDescriptor> windows = content.windows(processID);
    ASSERT_EQ(windows.size(), 1U);
    EXPECT_EQ(windows[0].nativeID, std::stoul(listedID));
    EXPECT_EQ(windows[0].applicationName, "Xmessage");
    EXPECT_EQ(windows[0].initialPixelSize, PixelSize(400, 300));
    EXPECT_NEAR(windows[0].globalFrame.x, 200, 2); // inside its border

    const CaptureSourceDescriptor display = content.display(std::nullopt);
    EXPECT_EQ(display.initialPixelSize, PixelSize(1280, 720));
    EXPECT_THROW(content.verifyOwnWindowsExcluded(display, processID), CaptureContentError);
    xcb_unmap_window(c, own);
    xcb_flush(c);
    std::this_thread::sleep_for(200ms);
    EXPECT_NO_THROW(content.verifyOwnWindowsExcluded(display, processID));
    EXPECT_THROW(content.display(12345), CaptureContentError);
}

TEST(X11MouseEventTap, ServerTimesLandOnTheHostClockAcrossTheWrapOfTheirCount) {
    const std::uint64_t now = 5'000'000'123'456'789; // host nanoseconds
    const auto serverNow = static_cast<std::uint32_t>((now / 1'000'000) & 0xffffffff);
    EXPECT_EQ(x11::X11MouseEventTap::hostTimeOfServerTime(serverNow - 20, now),
              (now / 1'000'000 - 20) * 1'000'000);
    // A count that has just wrapped still lands just before now.
    const std::uint64_t afterWrap = ((now / 1'000'000) | 0xffffffffULL) + 5;
    EXPECT_EQ(x11::X11MouseEventTap::hostTimeOfServerTime(0xfffffffe, afterWrap * 1'000'000),
              (afterWrap - 6) * 1'000'000);
    // A time from another clock is not trusted: the arrival stands in.
    EXPECT_EQ(x11::X11MouseEventTap::hostTimeOfServerTime(serverNow + 600'000, now), now);
}

} // namespace
} // namespace rilo
