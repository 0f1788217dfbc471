// The countdown before a recording, with its cue sounds played through a
// sound server of the test's own.

#include "app/recording/RecordingLaunchCoordinator.h"
#include "capture/AudioLevelMeter.h"
#include "capture/pulse/PulseAudioCaptureSource.h"
#include "capture/pulse/PulseAudioTestFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>
#include <mutex>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct Tick {
    int remaining;
    Clock::time_point at;
};

// One countdown run to its end (or its stop) on a run loop of the test's own.
class Countdown {
public:
    explicit Countdown(const std::filesystem::path& sounds)
        : cues_(sounds,
                [this](const std::string& line) {
                    const std::scoped_lock guard(lock_);
                    diagnostics_.push_back(line);
                })
        , coordinator_(loop_, cues_) {}

    void start(int seconds, bool playsSound) {
        coordinator_.countDown(
            seconds, playsSound, stop_.get_token(),
            [this](int remaining) {
                ticks_.push_back({remaining, Clock::now()});
                if (stopsAfter_ && remaining == *stopsAfter_) {
                    stop_.request_stop();
                }
            },
            [this] { finished_ = true; });
    }
    void stopAfterTick(int remaining) { stopsAfter_ = remaining; }

    bool runToEnd() {
        return loop_.runUntil([this] { return finished_; }, 10s);
    }
    // Turns the loop for a while, so that whatever would still come does.
    void turnFor(std::chrono::milliseconds time) {
        loop_.runUntil([] { return false; }, time);
    }

    std::vector<int> remainingSeconds() const {
        std::vector<int> seen;
        for (const Tick& tick : ticks_) {
            seen.push_back(tick.remaining);
        }
        return seen;
    }
    const std::vector<Tick>& ticks() const { return ticks_; }
    bool finished() const { return finished_; }
    std::vector<std::string> diagnostics() {
        cuesDone();
        const std::scoped_lock guard(lock_);
        return diagnostics_;
    }

private:
    // The player reports an output that failed from its own thread, after the sound.
    void cuesDone() { std::this_thread::sleep_for(300ms); }

    ManualRunLoop loop_;
    std::mutex lock_;
    std::vector<std::string> diagnostics_;
    RecordingCueSounds cues_;
    RecordingLaunchCoordinator coordinator_;
    std::stop_source stop_;
    std::optional<int> stopsAfter_;
    std::vector<Tick> ticks_;
    bool finished_ = false;
};

std::filesystem::path installedSounds() {
    return testing::buildDirectory() / "sounds";
}

class RecordingCountdownTest : public testing::PulseAudioTest {};

TEST_F(RecordingCountdownTest, TicksASecondApartDownToZeroAndTheCuesReachTheOutput) {
    // What the default output plays, heard through its monitor.
    std::mutex levelLock;
    double loudest = 0;
    const std::unique_ptr<AudioCaptureSource> output = makeSystemAudioCaptureSource();
    output->start(
        [&](const AudioSampleBuffer& buffer) {
            const std::scoped_lock guard(levelLock);
            loudest = std::max(loudest, AudioLevelMeter::normalizedLevel(buffer).value_or(0));
        },
        [](const std::string&) {});
    std::this_thread::sleep_for(200ms);
    {
        const std::scoped_lock guard(levelLock);
        ASSERT_EQ(loudest, 0) << "the test output is silent before the countdown";
    }

    Countdown countdown(installedSounds());
    countdown.start(3, true);
    ASSERT_TRUE(countdown.runToEnd());
    EXPECT_EQ(countdown.remainingSeconds(), (std::vector<int>{3, 2, 1, 0}));
    for (std::size_t i = 1; i < countdown.ticks().size(); ++i) {
        EXPECT_GE(countdown.ticks()[i].at - countdown.ticks()[i - 1].at, 990ms) << i;
    }
    EXPECT_TRUE(countdown.diagnostics().empty());
    output->stop();
    const std::scoped_lock guard(levelLock);
    EXPECT_GT(loudest, 0.5);
}

TEST_F(RecordingCountdownTest, MissingSoundsLeaveOneNotePerCueAndTheCountdownGoesOn) {
    const testing::TemporaryDirectory empty;
    Countdown countdown(empty.path());
    countdown.start(3, true);
    ASSERT_TRUE(countdown.runToEnd());
    EXPECT_EQ(countdown.remainingSeconds(), (std::vector<int>{3, 2, 1, 0}));
    const std::string tick = "提示音资源 countdown-tick.wav 不可用，已静默继续。";
    EXPECT_EQ(
        countdown.diagnostics(),
        (std::vector<std::string>{tick, tick, tick, "提示音资源 recording-start.wav 不可用，已静默继续。"}));

    // Without a countdown only the start sound is asked for; with sounds off none.
    Countdown immediate(empty.path());
    immediate.start(0, true);
    ASSERT_TRUE(immediate.runToEnd());
    EXPECT_EQ(immediate.remainingSeconds(), std::vector<int>{0});
    EXPECT_EQ(immediate.diagnostics(),
              std::vector<std::string>{"提示音资源 recording-start.wav 不可用，已静默继续。"});
    Countdown silent(empty.path());
    silent.start(3, false);
    ASSERT_TRUE(silent.runToEnd());
    EXPECT_TRUE(silent.diagnostics().empty());
}

TEST_F(RecordingCountdownTest, AnOutputThatCannotPlayIsNotedAndTheCountdownGoesOn) {
    server().kill();
    Countdown countdown(installedSounds());
    countdown.start(0, true);
    ASSERT_TRUE(countdown.runToEnd());
    EXPECT_EQ(countdown.diagnostics(),
              std::vector<std::string>{"系统输出设备无法播放提示音 recording-start.wav，已静默继续。"});
}

TEST_F(RecordingCountdownTest, AStoppedCountdownCallsNothingMore) {
    Countdown countdown(installedSounds());
    countdown.stopAfterTick(2);
    countdown.start(3, true);
    countdown.turnFor(3s);
    EXPECT_EQ(countdown.remainingSeconds(), (std::vector<int>{3, 2}));
    EXPECT_FALSE(countdown.finished());
}

} // namespace
} // namespace rilo
