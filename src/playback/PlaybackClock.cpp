#include "playback/PlaybackClock.h"

#include <algorithm>
#include <ctime>

namespace rilo {

std::int64_t PlaybackClock::hostNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

ProjectTime PlaybackClock::clamped(ProjectTime t) const noexcept {
    return std::clamp(t, ProjectTime{0}, limit_);
}

void PlaybackClock::stop(ProjectTime at) noexcept {
    const std::scoped_lock lock(mutex_);
    running_ = false;
    waitingForSound_ = false;
    anchorTime_ = clamped(at);
    lastAnswer_ = anchorTime_;
}

void PlaybackClock::start(ProjectTime at, std::int64_t hostStart, bool waitsForSound) noexcept {
    const std::scoped_lock lock(mutex_);
    running_ = true;
    waitingForSound_ = waitsForSound;
    anchorTime_ = clamped(at);
    anchorHost_ = hostStart;
    lastAnswer_ = anchorTime_;
}

void PlaybackClock::stopWaitingForSound() noexcept {
    const std::scoped_lock lock(mutex_);
    if (running_ && waitingForSound_) {
        waitingForSound_ = false;
        anchorHost_ = hostNow();
    }
}

void PlaybackClock::follow(std::int64_t host, ProjectTime heard) noexcept {
    const std::scoped_lock lock(mutex_);
    if (running_) {
        waitingForSound_ = false;
        anchorTime_ = clamped(heard);
        anchorHost_ = host;
    }
}

ProjectTime PlaybackClock::time(std::int64_t host) const noexcept {
    const std::scoped_lock lock(mutex_);
    if (!running_ || waitingForSound_) {
        return anchorTime_;
    }
    const std::int64_t elapsed = std::max<std::int64_t>(0, host - anchorHost_);
    const ProjectTime answer = clamped(ProjectTime{anchorTime_.nanoseconds + elapsed});
    lastAnswer_ = std::max(lastAnswer_, answer);
    return lastAnswer_;
}

bool PlaybackClock::isRunning() const noexcept {
    const std::scoped_lock lock(mutex_);
    return running_;
}

} // namespace rilo
