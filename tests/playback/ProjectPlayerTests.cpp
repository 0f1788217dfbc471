#include "playback/PreviewRendering.h"
#include "playback/ProjectPlayer.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineSpeedEngine.h"
#include "project/store/ProjectStore.h"
#include "rendering/RenderContext.h"
#include "support/BuildCatalog.h"
#include "support/MainThreadTaskQueue.h"
#include "support/MediaFixture.h"
#include "support/PackageFixtures.h"
#include "support/PulseAudioTestServer.h"
#include "support/RecordedPackage.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <deque>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <pulse/error.h>
#include <pulse/simple.h>
#include <thread>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using testing::frameNumberBarCount;

constexpr std::int64_t sourceFramesPerSecond = 30;
constexpr int pictureWidth = 320;
// How long a seek may take on a loaded machine.
constexpr auto patience = 5000ms;
constexpr int pictureHeight = 180;

ProjectTime seconds(double value) {
    return ProjectTime{static_cast<std::int64_t>(std::llround(value * 1e9))};
}

// A 16 s recording whose frames show their numbers, with a 100 ms tone at
// every whole second of source time. The edit keeps 0-4 s, cuts 4-6 s,
// plays 6-14 s at 2x and 14-16 s as recorded: 10 s of sequence.
class ProjectPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::RecordedPackageOptions options;
        options.clicks.clear();
        options.movie.duration = seconds(16);
        options.movie.screen = {
            {pictureWidth, pictureHeight}, sourceFramesPerSecond, testing::MoviePicture::frameNumber};
        testing::AudioTrackOptions tone{1000, {}};
        for (int second = 0; second < 16; ++second) {
            tone.silentRanges.push_back(
                ProjectTimeRange::fromStartEnd(seconds(second + 0.1), seconds(second + 1)));
        }
        options.movie.systemAudio = tone;
        options.movie.microphone.reset();
        recorded = testing::makeRecordedPackage(store, options);
        snapshot = store.loadSnapshot(recorded.package);
        const ProjectTime duration = snapshot.manifest.duration;
        EditTimeline edited = TimelineEditEngine::removeSourceRanges(
            snapshot.timeline, {ProjectTimeRange::fromStartEnd(seconds(4), seconds(6))}, duration);
        edited = TimelineSpeedEngine::settingRate(TimelinePlaybackRate{2000},
                                                  ProjectTimeRange::fromStartEnd(seconds(6), seconds(14)),
                                                  edited, duration);
        edited.canvas.aspectRatio = CanvasAspectRatio::source;
        edited.canvas.padding = 0;
        edited.canvas.cornerRadius = 0;
        edited.cursor.isVisible = false;
        snapshot.timeline = edited;
    }

    std::unique_ptr<ProjectPlayer> makePlayer(std::shared_ptr<PlaybackAudioOutput> audio = nullptr) {
        return ProjectPlayer::make(snapshot, std::nullopt, std::nullopt, {queue.poster(), std::move(audio)});
    }

    // The frame number the picture shows, read from its bars.
    std::int64_t shownFrameNumber() {
        target.readRgba(pixels);
        std::int64_t number = 0;
        for (int bit = 0; bit < frameNumberBarCount; ++bit) {
            const int x = static_cast<int>((bit + 0.5) * pictureWidth / frameNumberBarCount);
            int lit = 0;
            for (const double row : {0.3, 0.5, 0.7}) {
                const auto y = static_cast<std::size_t>(row * pictureHeight);
                const std::size_t index = (y * pictureWidth + static_cast<std::size_t>(x)) * 4;
                lit += pixels[index + 1] > 128 ? 1 : 0;
            }
            if (lit >= 2) {
                number |= std::int64_t{1} << bit;
            }
        }
        return number;
    }

    static std::int64_t frameAtSource(ProjectTime source) {
        return source.nanoseconds * sourceFramesPerSecond / 1'000'000'000;
    }

    testing::TemporaryDirectory directory;
    ProjectStore store{directory.path() / "Projects", testing::buildCatalog};
    testing::RecordedPackage recorded;
    ProjectSnapshot snapshot;
    testing::MainThreadTaskQueue queue;
    RenderContext context;
    CaptionRasterizer captions;
    SceneRenderer renderer{context, std::nullopt, RILO_TEST_BUILD_DIR, captions};
    RenderTarget target{context, pictureWidth, pictureHeight};
    std::vector<std::uint8_t> pixels;
};

TEST_F(ProjectPlayerTest, ExactSeeksLandOnTheAskedFrameAndOnlyTheNewestSeekTakesEffect) {
    auto player = makePlayer();
    PreviewDrawer drawer(renderer, player->frameProvider());
    ASSERT_EQ(player->duration(), seconds(10));
    ASSERT_FALSE(player->hasWebcam());

    // 2.51 s plays source 2.51 s; 5.01 s lies in the 2x part (source 8.02 s);
    // 9.2 s is past it (source 15.2 s).
    for (const double at : {2.51, 5.01, 9.2}) {
        const std::uint64_t before = player->previewRevision();
        player->seek(seconds(7.5));
        player->seek(seconds(at));
        ASSERT_TRUE(queue.runUntil([&] { return player->previewRevision() != before; }, patience));
        queue.runPending();
        // The first seek's completion was dropped: one new revision only.
        EXPECT_EQ(player->previewRevision(), before + 1);
        EXPECT_EQ(player->currentTime(), seconds(at));
        const std::optional<PreviewFrame> frame = drawer.draw(
            PreviewRenderMode::onDemand(player->previewRevision()), false, target.framebufferTarget());
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->webcamPixelBuffer, nullptr);
        EXPECT_EQ(shownFrameNumber(), frameAtSource(*player->sourceTime(seconds(at)))) << at;
        // Nothing changed since: an idle preview draws nothing more.
        EXPECT_FALSE(drawer.draw(PreviewRenderMode::onDemand(player->previewRevision()), false,
                                 target.framebufferTarget()));
    }

    // An edit while paused redraws one frame.
    TimelineVisualEdits edits = player->visualEdits();
    edits.canvas.padding = 0.1;
    player->setVisualEdits(edits);
    EXPECT_TRUE(drawer.draw(PreviewRenderMode::onDemand(player->previewRevision()), false,
                            target.framebufferTarget()));
    EXPECT_FALSE(drawer.draw(PreviewRenderMode::onDemand(player->previewRevision()), false,
                             target.framebufferTarget()));
}

TEST_F(ProjectPlayerTest, ASkimStormEndsOnTheLastTimeAskedWithFewSeeks) {
    auto player = makePlayer();
    PreviewDrawer drawer(renderer, player->frameProvider());
    ASSERT_TRUE(queue.runUntil([&] { return player->previewRevision() > 0; }, patience));

    // A hundred moves while one seek is under way: at most two seeks, the
    // second to the newest position.
    std::uint64_t generation = player->seekGeneration();
    for (int move = 0; move < 100; ++move) {
        player->skim(seconds(1 + move * 0.05));
    }
    ProjectTime last = seconds(1 + 99 * 0.05);
    ASSERT_TRUE(queue.runUntil([&] { return player->currentTime() == last; }, patience));
    queue.runUntil([] { return false; }, 50ms);
    EXPECT_LE(player->seekGeneration() - generation, 2U);

    // A storm of a hundred moves in one second, with the main thread
    // turning between them, ends on the last one asked.
    for (int move = 0; move < 100; ++move) {
        last = seconds(9.5 - move * 0.09);
        player->skim(last);
        EXPECT_EQ(player->playheadTime(), last);
        queue.runPending();
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_TRUE(queue.runUntil([&] { return player->currentTime() == last; }, patience));
    const std::optional<PreviewFrame> frame = drawer.draw(
        PreviewRenderMode::onDemand(player->previewRevision()), false, target.framebufferTarget());
    ASSERT_TRUE(frame);
    // A skim lands within a frame of the time asked.
    EXPECT_NEAR(static_cast<double>(shownFrameNumber()),
                static_cast<double>(frameAtSource(*player->sourceTime(last))), 2.0);

    // The end of the drag seeks exactly.
    player->endSkimming();
    EXPECT_FALSE(player->isSkimming());
    ASSERT_TRUE(
        queue.runUntil([&] { return !player->isSkimming() && player->currentTime() == last; }, patience));
    queue.runUntil([] { return false; }, 100ms);
    ASSERT_TRUE(drawer.draw(PreviewRenderMode::onDemand(player->previewRevision()), false,
                            target.framebufferTarget()));
    EXPECT_EQ(shownFrameNumber(), frameAtSource(*player->sourceTime(last)));
}

TEST_F(ProjectPlayerTest, AWebcamTrackPlaysInLockstepWithTheScreen) {
    testing::RecordedPackageOptions options;
    options.clicks.clear();
    options.movie.webcam = testing::VideoTrackOptions{{160, 120}, 30, testing::MoviePicture::movingRamp};
    recorded = testing::makeRecordedPackage(store, options);
    ProjectSnapshot withWebcam = store.loadSnapshot(recorded.package);
    auto player = ProjectPlayer::make(withWebcam, std::nullopt, std::nullopt, {queue.poster(), nullptr});
    ASSERT_TRUE(player->hasWebcam());
    PreviewDrawer drawer(renderer, player->frameProvider());
    player->seek(seconds(1.5));
    ASSERT_TRUE(queue.runUntil([&] { return player->previewRevision() > 0; }, patience));
    const std::optional<PreviewFrame> frame = drawer.draw(
        PreviewRenderMode::onDemand(player->previewRevision()), false, target.framebufferTarget());
    ASSERT_TRUE(frame);
    ASSERT_NE(frame->webcamPixelBuffer, nullptr);
    EXPECT_EQ(frame->webcamPixelBuffer->presentationTime(), frame->screenPixelBuffer->presentationTime());
}

TEST_F(ProjectPlayerTest, PlayAtTheEndStartsFromTheBeginning) {
    auto player = makePlayer();
    player->seek(player->duration());
    ASSERT_TRUE(queue.runUntil([&] { return player->previewRevision() > 0; }, patience));
    EXPECT_EQ(player->currentTime(), player->duration());
    player->play();
    ASSERT_TRUE(queue.runUntil([&] { return player->isPlaying(); }, patience));
    EXPECT_LT(player->currentTime(), seconds(0.5));
    player->pause();
    EXPECT_FALSE(player->isPlaying());
}

TEST_F(ProjectPlayerTest, MediaThatCannotBeDecodedOrLacksThePromisedWebcamIsAnErrorNotACrash) {
    // The manifest promises a webcam track that the movie does not have.
    snapshot.manifest.webcam = WebcamMediaInfo{3, "usb-camera", "USB Camera", {640, 480}, 30};
    EXPECT_THROW(makePlayer(), LocalizedError);
    snapshot.manifest.webcam.reset();
    {
        std::ofstream damaged(snapshot.mediaURL(), std::ios::binary | std::ios::trunc);
        damaged << "not a movie";
    }
    EXPECT_THROW(makePlayer(), LocalizedError);
}

// Sound of the null sink, as heard: the host time at which each tone burst
// began, taken from the sink's monitor.
class MonitorRecorder {
public:
    explicit MonitorRecorder(const std::string& server) {
        const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, 48000, 2};
        pa_buffer_attr attributes{};
        attributes.maxlength = static_cast<std::uint32_t>(-1);
        attributes.fragsize = static_cast<std::uint32_t>(pa_usec_to_bytes(20000, &spec));
        int error = 0;
        stream_ = pa_simple_new(server.c_str(), "rilo-test", PA_STREAM_RECORD, "rilo_null.monitor", "monitor",
                                &spec, nullptr, &attributes, &error);
        if (stream_ == nullptr) {
            throw std::runtime_error(pa_strerror(error));
        }
        thread_ = std::jthread([this](const std::stop_token& stop) { record(stop); });
    }
    ~MonitorRecorder() {
        thread_.request_stop();
        thread_.join();
        pa_simple_free(stream_);
    }
    std::vector<std::int64_t> onsets() {
        const std::scoped_lock lock(mutex_);
        return onsets_;
    }

private:
    void record(const std::stop_token& stop) {
        std::vector<float> chunk(960 * 2);
        std::int64_t silentFrames = 48000;
        while (!stop.stop_requested()) {
            int error = 0;
            if (pa_simple_read(stream_, chunk.data(), chunk.size() * sizeof(float), &error) < 0) {
                return;
            }
            const std::int64_t readAt = PlaybackClock::hostNow();
            const pa_usec_t latency = pa_simple_get_latency(stream_, &error);
            // The host time at which the chunk's last frame was played.
            const std::int64_t lastFrameAt = readAt - static_cast<std::int64_t>(latency) * 1000;
            for (std::size_t frame = 0; frame < chunk.size() / 2; ++frame) {
                const bool loud = std::abs(chunk[frame * 2]) > 0.05F;
                if (loud && silentFrames > 2400) {
                    const auto framesBeforeEnd = static_cast<std::int64_t>(chunk.size() / 2 - 1 - frame);
                    const std::scoped_lock lock(mutex_);
                    onsets_.push_back(lastFrameAt - framesBeforeEnd * 1'000'000'000 / 48000);
                }
                silentFrames = loud ? 0 : silentFrames + 1;
            }
        }
    }

    pa_simple* stream_ = nullptr;
    std::mutex mutex_;
    std::vector<std::int64_t> onsets_;
    std::jthread thread_;
};

TEST_F(ProjectPlayerTest, PlaysTheEditWithSoundAndPicturesInStep) {
    const auto program = testing::PulseAudioTestServer::daemonProgram();
    if (!program) {
        GTEST_SKIP() << "pulseaudio is not installed";
    }
    testing::PulseAudioTestServer server(*program);
    MonitorRecorder monitor(server.address());
    // A null sink that has been idle renders in blocks of up to two seconds
    // and takes up a stream's latency only at the next block: give it one,
    // so that the test measures the player, not the sink's first block.
    std::this_thread::sleep_for(2500ms);
    auto player = makePlayer(std::make_shared<PulseAudioPlaybackOutput>(server.address()));
    PreviewDrawer drawer(renderer, player->frameProvider());
    ASSERT_TRUE(queue.runUntil([&] { return player->previewRevision() > 0; }, patience));

    const TimelineMapper mapper(snapshot.timeline, snapshot.manifest.duration);
    struct Shown {
        std::int64_t host;
        std::int64_t frame;
        ProjectTime sequenceTime;
    };
    std::vector<Shown> shown;
    player->play();
    const auto start = std::chrono::steady_clock::now();
    auto next = start;
    while (std::chrono::steady_clock::now() - start < 15s) {
        queue.runPending();
        if (!player->isPlaying() && !shown.empty()) {
            break;
        }
        // The moment a frame is chosen, not when the software renderer has
        // finished it: the picture's delay on a screen is the display's.
        const std::int64_t chosen = PlaybackClock::hostNow();
        if (const std::optional<PreviewFrame> frame =
                drawer.draw(PreviewRenderMode::continuous(), false, target.framebufferTarget())) {
            shown.push_back({chosen, shownFrameNumber(), frame->sequenceTime});
        }
        next += 8ms;
        std::this_thread::sleep_until(next);
    }
    EXPECT_FALSE(player->isPlaying());
    EXPECT_EQ(player->currentTime(), player->duration());
    ASSERT_GT(shown.size(), 300U);

    // Every frame drawn is the one for its time, within the frame the
    // decoding thread may still be behind; nothing of the cut appears.
    int exact = 0;
    for (const Shown& picture : shown) {
        const std::optional<TimelineMappedTime> mapped =
            mapper.mappedTimeForSequenceTime(picture.sequenceTime);
        ASSERT_TRUE(mapped);
        const std::int64_t expected = frameAtSource(mapped->sourceTime);
        EXPECT_NEAR(static_cast<double>(picture.frame), static_cast<double>(expected), 2.0)
            << "at " << picture.sequenceTime.nanoseconds;
        EXPECT_FALSE(picture.frame >= 4 * sourceFramesPerSecond && picture.frame < 6 * sourceFramesPerSecond);
        exact += picture.frame == expected ? 1 : 0;
    }
    EXPECT_GT(exact, static_cast<int>(shown.size()) / 2);

    // Each tone burst starts at a whole second of source time: the host time
    // it was heard against the host time its frame was first shown. The
    // frame came between the draw that showed it and the draw before: the
    // middle of the two stands for it.
    const std::vector<std::int64_t> heard = monitor.onsets();
    ASSERT_GE(heard.size(), 13U);
    std::int64_t worst = 0;
    for (int second = 1; second < 16; ++second) {
        if (second == 4 || second == 5) {
            continue;
        }
        const std::int64_t frame = second * sourceFramesPerSecond;
        const auto first =
            std::find_if(shown.begin(), shown.end(), [&](const Shown& s) { return s.frame >= frame; });
        ASSERT_NE(first, shown.end());
        ASSERT_NE(first, shown.begin());
        const std::int64_t seen = (first->host + std::prev(first)->host) / 2;
        const auto nearest =
            std::min_element(heard.begin(), heard.end(), [&](std::int64_t a, std::int64_t b) {
                return std::abs(a - seen) < std::abs(b - seen);
            });
        worst = std::max(worst, std::abs(*nearest - seen));
    }
    RecordProperty("worstAudioVideoOffsetMilliseconds", std::to_string(worst / 1'000'000));
    EXPECT_LT(worst, 40'000'000) << "worst offset " << worst / 1'000'000 << " ms";
}

TEST(PreviewRenderStateTest, OnDemandDrawsOncePerRevision) {
    PreviewRenderState state;
    EXPECT_TRUE(state.shouldRun(PreviewRenderMode::onDemand(1), false));
    // Not drawn yet (no frame): it keeps trying.
    EXPECT_TRUE(state.shouldRun(PreviewRenderMode::onDemand(1), false));
    state.completedOnDemandRevision = 1;
    EXPECT_FALSE(state.shouldRun(PreviewRenderMode::onDemand(1), false));
    EXPECT_TRUE(state.shouldRun(PreviewRenderMode::onDemand(1), true));
    EXPECT_TRUE(state.shouldRun(PreviewRenderMode::onDemand(2), false));
    EXPECT_TRUE(state.shouldRun(PreviewRenderMode::continuous(), false));
    EXPECT_FALSE(state.shouldRun(PreviewRenderMode::suspended(), false));
    // Back from playback, the same revision is drawn again once.
    EXPECT_TRUE(state.shouldRun(PreviewRenderMode::onDemand(2), false));
}

TEST(ProjectPlayerSkimQueueTest, KeepsOneSeekInFlightAndTheNewestPending) {
    ProjectPlayerSkimQueue queue;
    EXPECT_EQ(queue.enqueue(ProjectTime{1}), ProjectTime{1});
    for (std::int64_t t = 2; t <= 100; ++t) {
        EXPECT_FALSE(queue.enqueue(ProjectTime{t}));
    }
    EXPECT_EQ(queue.complete(), ProjectTime{100});
    EXPECT_FALSE(queue.complete());
    EXPECT_FALSE(queue.isInFlight);
}

} // namespace
} // namespace rilo
