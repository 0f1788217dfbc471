#pragma once

// The countdown before a recording: a tick a second, with its sound, then
// the start sound.
//
// countDown() runs on the main run loop: it calls onTick(n) for n from
// `seconds` down to 1, a second apart, each with "countdown-tick" when
// sounds are on, then onTick(0) with "recording-start", and `finished` once
// that sound has had its time. With zero seconds there is only onTick(0) and
// the start sound. A stop requested through the token ends it quietly:
// nothing more is called. Sounds that can't be played go to the cue player's
// diagnostics and the countdown goes on.
//
// The coordinator and the run loop outlive the countdowns they start, or the
// countdowns are stopped first.

#include "app/recording/RecordingCueSounds.h"
#include "shared/MainRunLoop.h"

#include <chrono>
#include <functional>
#include <stop_token>

namespace rilo {

class RecordingLaunchCoordinator {
public:
    static constexpr const char* tickSoundName = "countdown-tick";
    static constexpr const char* startSoundName = "recording-start";
    static constexpr std::chrono::milliseconds tickSoundLength{90};
    static constexpr std::chrono::milliseconds startSoundLength{160};
    static constexpr std::chrono::milliseconds tickInterval{1000};

    RecordingLaunchCoordinator(MainRunLoop& mainRunLoop, RecordingCueSounds& sounds);

    void countDown(int seconds, bool playsSound, std::stop_token stop, std::function<void(int)> onTick,
                   std::function<void()> finished);

private:
    void tick(int remaining, bool playsSound, std::stop_token stop, std::function<void(int)> onTick,
              std::function<void()> finished);

    MainRunLoop& mainRunLoop_;
    RecordingCueSounds& sounds_;
};

} // namespace rilo
