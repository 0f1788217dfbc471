#pragma once

// RecordingClock relates the three time bases of a recording: the
// presentation times of the screen frames, the host clock on which mouse
// events, sound and the webcam are stamped, and project time. It is the only
// place where project time is made while recording. Project time 0 is the
// first written screen frame; the screen track is the master, and drift
// between the bases is measured (anchors), never corrected.
//
// Every member may be called from any thread; one lock guards the fields and
// is never held across a call out. The common path (observe, the mappings,
// recordDiagnosticAnchor between anchors) does not allocate.

#include "capture/MediaTime.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace rilo {

// Where the video clock and the host clock stood at one frame.
struct ClockAnchor {
    ProjectTime projectTime; // from the video clock
    std::int64_t videoPTSNanoseconds = 0;
    std::uint64_t hostTimeNanoseconds = 0;
    // projectTime minus the project time the host clock gives for this instant.
    std::int64_t offsetNanoseconds = 0;

    friend bool operator==(const ClockAnchor&, const ClockAnchor&) = default;
};

class RecordingClock {
public:
    // A frame whose video time differs from its host time by more than this
    // (after the previous frame) is a discontinuity.
    static constexpr std::int64_t discontinuityToleranceNanoseconds = 50'000'000;
    // Periodic anchors are at least this far apart in project time.
    static constexpr std::int64_t diagnosticAnchorIntervalNanoseconds = 10'000'000'000;

    bool isStarted() const;
    // Project time 0 is this frame; later calls do nothing.
    void start(MediaTime videoPTS, std::uint64_t displayTimeHostUnits);
    // Host times map to nothing until resume.
    void pause();
    // The host mapping restarts at this frame; nothing before start.
    void resume(MediaTime videoPTS, std::uint64_t displayTimeHostUnits);

    std::optional<ProjectTime> projectTimeForVideoPTS(MediaTime videoPTS) const;
    // Nothing while paused or before start; may be negative for a host time
    // older than the latest start or resume.
    std::optional<ProjectTime> projectTimeForHostTimeNanoseconds(std::uint64_t hostTimeNanoseconds) const;
    // Mouse event time stamps are host nanoseconds already.
    std::optional<ProjectTime> projectTimeForEventTimestamp(std::uint64_t timestampNanoseconds) const {
        return projectTimeForHostTimeNanoseconds(timestampNanoseconds);
    }
    std::optional<MediaTime> videoPTS(ProjectTime time) const;

    // True when this frame's video and host times moved apart by more than
    // the tolerance since the previous frame, or either stood still.
    bool observe(MediaTime videoPTS, std::uint64_t displayTimeHostUnits);
    // An anchor every 10 s of project time; nothing in between.
    std::optional<ClockAnchor> recordDiagnosticAnchor(MediaTime videoPTS, std::uint64_t displayTimeHostUnits);
    std::vector<ClockAnchor> anchors() const;

    // Host clock units are nanoseconds on Linux (CLOCK_MONOTONIC); the ratio
    // is kept so that the arithmetic matches a clock with another unit.
    static std::uint64_t hostUnitsToNanoseconds(std::uint64_t units) noexcept;

private:
    ClockAnchor makeAnchorLocked(MediaTime videoPTS, std::uint64_t hostNanoseconds) const;

    mutable std::mutex lock_;
    std::optional<MediaTime> videoStartPTS_;
    std::optional<std::uint64_t> hostAnchorNanoseconds_;
    ProjectTime projectAnchorTime_;
    bool acceptsHostTime_ = false;
    ProjectTime lastDiagnosticTime_;
    std::optional<std::int64_t> lastObservedVideoNanoseconds_;
    std::optional<std::uint64_t> lastObservedHostNanoseconds_;
    std::vector<ClockAnchor> anchors_;
};

} // namespace rilo

namespace rilo::json {

template <>
struct RecordFields<ClockAnchor> {
    static constexpr auto fields = std::tuple{
        field("projectTime", &ClockAnchor::projectTime),
        field("videoPTSNanoseconds", &ClockAnchor::videoPTSNanoseconds),
        field("hostTimeNanoseconds", &ClockAnchor::hostTimeNanoseconds),
        field("offsetNanoseconds", &ClockAnchor::offsetNanoseconds),
    };
};

} // namespace rilo::json
