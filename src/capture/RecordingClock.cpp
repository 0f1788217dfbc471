#include "capture/RecordingClock.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace rilo {
namespace {

constexpr std::uint64_t hostTimebaseNumerator = 1;
constexpr std::uint64_t hostTimebaseDenominator = 1;

// Host nanoseconds are subtracted as signed values, each capped first.
std::int64_t capped(std::uint64_t nanoseconds) noexcept {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(
        nanoseconds, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
}

} // namespace

std::uint64_t RecordingClock::hostUnitsToNanoseconds(std::uint64_t units) noexcept {
    __extension__ using WideUnsigned = unsigned __int128;
    const WideUnsigned product = static_cast<WideUnsigned>(units) * hostTimebaseNumerator;
    return static_cast<std::uint64_t>(product / hostTimebaseDenominator);
}

bool RecordingClock::isStarted() const {
    const std::lock_guard guard(lock_);
    return videoStartPTS_.has_value();
}

void RecordingClock::start(MediaTime videoPTS, std::uint64_t displayTimeHostUnits) {
    const std::lock_guard guard(lock_);
    if (videoStartPTS_) {
        return;
    }
    const std::uint64_t host = hostUnitsToNanoseconds(displayTimeHostUnits);
    videoStartPTS_ = videoPTS;
    hostAnchorNanoseconds_ = host;
    projectAnchorTime_ = ProjectTime{};
    acceptsHostTime_ = true;
    lastObservedVideoNanoseconds_ = nanosecondsFromMediaTime(videoPTS);
    lastObservedHostNanoseconds_ = host;
    anchors_ = {makeAnchorLocked(videoPTS, host)};
}

void RecordingClock::pause() {
    const std::lock_guard guard(lock_);
    acceptsHostTime_ = false;
    lastObservedVideoNanoseconds_.reset();
    lastObservedHostNanoseconds_.reset();
}

void RecordingClock::resume(MediaTime videoPTS, std::uint64_t displayTimeHostUnits) {
    const std::lock_guard guard(lock_);
    if (!videoStartPTS_) {
        return;
    }
    const std::uint64_t host = hostUnitsToNanoseconds(displayTimeHostUnits);
    projectAnchorTime_ = ProjectTime{nanosecondsFromMediaTime(videoPTS - *videoStartPTS_)};
    hostAnchorNanoseconds_ = host;
    acceptsHostTime_ = true;
    lastObservedVideoNanoseconds_ = nanosecondsFromMediaTime(videoPTS);
    lastObservedHostNanoseconds_ = host;
    anchors_.push_back(makeAnchorLocked(videoPTS, host));
}

ClockAnchor RecordingClock::makeAnchorLocked(MediaTime videoPTS, std::uint64_t hostNanoseconds) const {
    ClockAnchor anchor;
    anchor.projectTime =
        videoStartPTS_ ? ProjectTime{nanosecondsFromMediaTime(videoPTS - *videoStartPTS_)} : ProjectTime{};
    anchor.videoPTSNanoseconds = nanosecondsFromMediaTime(videoPTS);
    anchor.hostTimeNanoseconds = hostNanoseconds;
    const std::int64_t hostElapsed =
        hostAnchorNanoseconds_ ? capped(hostNanoseconds) - capped(*hostAnchorNanoseconds_) : 0;
    anchor.offsetNanoseconds =
        anchor.projectTime.nanoseconds - (projectAnchorTime_.nanoseconds + hostElapsed);
    return anchor;
}

std::optional<ProjectTime> RecordingClock::projectTimeForVideoPTS(MediaTime videoPTS) const {
    const std::lock_guard guard(lock_);
    if (!videoStartPTS_) {
        return std::nullopt;
    }
    return ProjectTime{nanosecondsFromMediaTime(videoPTS - *videoStartPTS_)};
}

std::optional<ProjectTime>
RecordingClock::projectTimeForHostTimeNanoseconds(std::uint64_t hostTimeNanoseconds) const {
    const std::lock_guard guard(lock_);
    if (!acceptsHostTime_ || !hostAnchorNanoseconds_) {
        return std::nullopt;
    }
    return ProjectTime{projectAnchorTime_.nanoseconds +
                       (capped(hostTimeNanoseconds) - capped(*hostAnchorNanoseconds_))};
}

std::optional<MediaTime> RecordingClock::videoPTS(ProjectTime time) const {
    const std::lock_guard guard(lock_);
    if (!videoStartPTS_) {
        return std::nullopt;
    }
    return *videoStartPTS_ + MediaTime::nanoseconds(time.nanoseconds);
}

bool RecordingClock::observe(MediaTime videoPTS, std::uint64_t displayTimeHostUnits) {
    const std::int64_t video = nanosecondsFromMediaTime(videoPTS);
    const std::uint64_t host = hostUnitsToNanoseconds(displayTimeHostUnits);
    const std::lock_guard guard(lock_);
    bool discontinuity = false;
    if (lastObservedVideoNanoseconds_ && lastObservedHostNanoseconds_) {
        const std::int64_t videoDelta = video - *lastObservedVideoNanoseconds_;
        const std::int64_t hostDelta = capped(host) - capped(*lastObservedHostNanoseconds_);
        discontinuity = videoDelta <= 0 || hostDelta <= 0 ||
                        std::llabs(videoDelta - hostDelta) > discontinuityToleranceNanoseconds;
    }
    lastObservedVideoNanoseconds_ = video;
    lastObservedHostNanoseconds_ = host;
    return discontinuity;
}

std::optional<ClockAnchor> RecordingClock::recordDiagnosticAnchor(MediaTime videoPTS,
                                                                  std::uint64_t displayTimeHostUnits) {
    const std::lock_guard guard(lock_);
    if (!videoStartPTS_) {
        return std::nullopt;
    }
    const std::int64_t time = nanosecondsFromMediaTime(videoPTS - *videoStartPTS_);
    if (time - lastDiagnosticTime_.nanoseconds < diagnosticAnchorIntervalNanoseconds) {
        return std::nullopt;
    }
    ClockAnchor anchor = makeAnchorLocked(videoPTS, hostUnitsToNanoseconds(displayTimeHostUnits));
    anchors_.push_back(anchor);
    lastDiagnosticTime_ = ProjectTime{time};
    return anchor;
}

std::vector<ClockAnchor> RecordingClock::anchors() const {
    const std::lock_guard guard(lock_);
    return anchors_;
}

} // namespace rilo
