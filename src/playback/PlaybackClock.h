#pragma once

// The one clock both video players of the preview follow. It is stopped at a
// sequence time, or running from an anchor: a sequence time and the host
// time (CLOCK_MONOTONIC) at which it was heard or shown. While sound plays,
// the sound output moves the anchor to what has really been heard, so that
// the sound is the master and the pictures follow it; without sound the
// anchor set at the start runs on host time alone.
//
// A clock that waits for the sound stands still until the output reports
// its first heard position: a device that is slow to start delays the
// pictures with it instead of letting them run ahead.
//
// A running clock never goes backwards: when the sound reports a position
// behind what was already answered (it started later than planned), the
// answer holds still until the sound catches up, so the picture repeats a
// frame instead of jumping back. The sequence end is the limit.
//
// Thread-safe: the main thread starts and stops it, the sound thread moves
// the anchor, decoding and drawing threads read it.

#include "shared/ProjectTime.h"

#include <cstdint>
#include <mutex>

namespace rilo {

class PlaybackClock {
public:
    explicit PlaybackClock(ProjectTime limit) noexcept
        : limit_(limit) {}

    // CLOCK_MONOTONIC in nanoseconds.
    static std::int64_t hostNow() noexcept;

    void stop(ProjectTime at) noexcept;
    // Runs from `at` as of host time `hostStart` (which may lie in the near
    // future: until then the clock stands at `at`). With `waitsForSound` it
    // stands at `at` until the sound output reports the first position it
    // has made heard, however long the device takes to start.
    void start(ProjectTime at, std::int64_t hostStart, bool waitsForSound) noexcept;
    // The sound output could not start after all: run on host time from now.
    void stopWaitingForSound() noexcept;
    // What the sound output has made heard by host time `host`. Ignored
    // while the clock is stopped.
    void follow(std::int64_t host, ProjectTime heard) noexcept;

    ProjectTime time(std::int64_t host) const noexcept;
    ProjectTime now() const noexcept { return time(hostNow()); }
    bool isRunning() const noexcept;
    ProjectTime limit() const noexcept { return limit_; }

private:
    ProjectTime clamped(ProjectTime t) const noexcept;

    const ProjectTime limit_;
    mutable std::mutex mutex_;
    bool running_ = false;
    bool waitingForSound_ = false;
    ProjectTime anchorTime_;
    std::int64_t anchorHost_ = 0;
    mutable ProjectTime lastAnswer_;
};

} // namespace rilo
