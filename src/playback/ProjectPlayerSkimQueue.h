#pragma once

// Skimming asks for seeks faster than they finish. The queue keeps one seek
// in flight and remembers only the newest time asked meanwhile, so that
// every storm of requests ends on the last one with at most one seek between.

#include "shared/ProjectTime.h"

#include <optional>

namespace rilo {

struct ProjectPlayerSkimQueue {
    bool isInFlight = false;
    std::optional<ProjectTime> pendingTime;

    // The time to seek to now, or none when a seek is in flight (the time is
    // kept, the newest winning).
    std::optional<ProjectTime> enqueue(ProjectTime time) noexcept {
        if (isInFlight) {
            pendingTime = time;
            return std::nullopt;
        }
        isInFlight = true;
        return time;
    }
    // The seek in flight has finished: the next time to seek to, if any.
    std::optional<ProjectTime> complete() noexcept {
        if (pendingTime) {
            const ProjectTime next = *pendingTime;
            pendingTime.reset();
            return next;
        }
        isInFlight = false;
        return std::nullopt;
    }
    void cancel() noexcept {
        isInFlight = false;
        pendingTime.reset();
    }
};

} // namespace rilo
