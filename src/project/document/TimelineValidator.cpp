#include "project/document/TimelineValidator.h"

#include "project/document/TimelineEffectRules.h"
#include "project/document/TimelineRateMath.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <set>
#include <utility>
#include <vector>

namespace rilo::TimelineValidator {

namespace {

constexpr double minimumAnnotationLineWidth = 0.001;
constexpr double maximumAnnotationLineWidth = 0.05;
// Shapes are at least this wide and high, arrows at least this long.
constexpr double minimumAnnotationExtent = 0.02;

// Comparisons are written so that a NaN fails them.
bool isWithin(double value, double lower, double upper) noexcept {
    return value >= lower && value <= upper;
}

// Without a catalog only the schema is checked.
void validateDeviceFrame(const EditTimeline& timeline, const DeviceFrameCatalogProvider* catalogProvider) {
    if (!timeline.deviceFrame) {
        return;
    }
    if (timeline.schemaVersion != EditTimeline::currentSchemaVersion) {
        throw TimelineValidationError::deviceFrameRequiresSchema8();
    }
    if (catalogProvider == nullptr) {
        return;
    }
    try {
        if ((*catalogProvider)().descriptor(timeline.deviceFrame->assetID)) {
            return;
        }
    } catch (const std::exception&) {
        // A catalog that can't be loaded knows no asset.
    }
    throw TimelineValidationError::invalidDeviceFrame();
}

void validateSegments(const EditTimeline& timeline, ProjectTime sourceDuration) {
    std::int64_t sequenceTotal = 0;
    const TimelineSegment* previous = nullptr;
    for (const TimelineSegment& segment : timeline.segments) {
        const ProjectTimeRange& range = segment.sourceRange;
        std::int64_t end = 0;
        if (range.start < ProjectTime::zero() || range.duration.nanoseconds < 1 ||
            __builtin_add_overflow(range.start.nanoseconds, range.duration.nanoseconds, &end) ||
            end > sourceDuration.nanoseconds) {
            throw TimelineValidationError::rangeOutsideSource(segment.id);
        }
        if (range.duration < TimelineFrameGrid::minimumDuration) {
            throw TimelineValidationError::segmentTooShort(segment.id);
        }
        if (!segment.playbackRate.isValid()) {
            throw TimelineValidationError::invalidPlaybackRate(segment.id);
        }
        if (timeline.schemaVersion < 4 && segment.playbackRate != TimelinePlaybackRate::normal()) {
            throw TimelineValidationError::playbackRateRequiresSchema4(segment.id);
        }
        const auto sequenceDuration =
            TimelineRateMath::sequenceDuration(range.duration, segment.playbackRate);
        if (!sequenceDuration) {
            throw TimelineValidationError::sequenceDurationOverflow(segment.id);
        }
        if (*sequenceDuration < TimelineFrameGrid::minimumDuration) {
            throw TimelineValidationError::sequenceSegmentTooShort(segment.id);
        }
        if (__builtin_add_overflow(sequenceTotal, sequenceDuration->nanoseconds, &sequenceTotal)) {
            throw TimelineValidationError::sequenceDurationOverflow(segment.id);
        }
        if (previous != nullptr) {
            if (range.start < previous->sourceRange.start) {
                throw TimelineValidationError::segmentsOutOfOrder(segment.id);
            }
            if (range.start < previous->sourceRange.end()) {
                throw TimelineValidationError::overlappingSegments(segment.id);
            }
        }
        previous = &segment;
    }
}

bool isValidColor(const CanvasColorValue& color) noexcept {
    return isWithin(color.red, 0, 1) && isWithin(color.green, 0, 1) && isWithin(color.blue, 0, 1);
}

bool isValidGeometry(const AnnotationElement& annotation) noexcept {
    switch (annotation.kind) {
    case AnnotationKind::rectangle:
    case AnnotationKind::circle:
    case AnnotationKind::mosaic: {
        if (!annotation.bounds || annotation.startPoint || annotation.endPoint) {
            return false;
        }
        const RectValue& bounds = *annotation.bounds;
        return std::isfinite(bounds.x) && std::isfinite(bounds.y) && std::isfinite(bounds.width) &&
               std::isfinite(bounds.height) && bounds.x >= 0 && bounds.y >= 0 &&
               bounds.width >= minimumAnnotationExtent && bounds.height >= minimumAnnotationExtent &&
               bounds.maxX() <= 1 && bounds.maxY() <= 1;
    }
    case AnnotationKind::arrow: {
        if (annotation.bounds || !annotation.startPoint || !annotation.endPoint) {
            return false;
        }
        const PointValue& start = *annotation.startPoint;
        const PointValue& end = *annotation.endPoint;
        return isWithin(start.x, 0, 1) && isWithin(start.y, 0, 1) && isWithin(end.x, 0, 1) &&
               isWithin(end.y, 0, 1) &&
               std::hypot(end.x - start.x, end.y - start.y) >= minimumAnnotationExtent;
    }
    }
    return false;
}

// Times are compared before anything subtracts them, so wild values can't
// overflow.
bool isValidTiming(const AnnotationElement& annotation, ProjectTime sourceDuration) noexcept {
    return annotation.startTime >= ProjectTime::zero() && annotation.endTime > annotation.startTime &&
           annotation.endTime <= sourceDuration &&
           annotation.endTime - annotation.startTime >= TimelineFrameGrid::minimumDuration;
}

bool isValidStyle(const AnnotationElement& annotation) noexcept {
    return isWithin(annotation.lineWidth, minimumAnnotationLineWidth, maximumAnnotationLineWidth) &&
           isValidColor(annotation.color);
}

// The most annotations shown at one instant. An annotation is shown on
// [startTime, endTime), so at a shared instant the ends count before the
// starts.
std::int64_t mostSimultaneousAnnotations(const std::vector<AnnotationElement>& annotations) {
    std::vector<std::pair<ProjectTime, int>> events;
    events.reserve(annotations.size() * 2);
    for (const AnnotationElement& annotation : annotations) {
        events.emplace_back(annotation.startTime, +1);
        events.emplace_back(annotation.endTime, -1);
    }
    std::sort(events.begin(), events.end());
    std::int64_t count = 0;
    std::int64_t most = 0;
    for (const auto& event : events) {
        count += event.second;
        most = std::max(most, count);
    }
    return most;
}

void validateAnnotations(const EditTimeline& timeline, ProjectTime sourceDuration) {
    const std::vector<AnnotationElement>& annotations = timeline.annotations;
    if (annotations.size() > maximumAnnotationCount) {
        throw TimelineValidationError::tooManyAnnotations();
    }
    std::set<Uuid> seenIDs;
    std::set<std::int64_t> seenZIndices;
    for (const AnnotationElement& annotation : annotations) {
        if (!seenIDs.insert(annotation.id).second || !seenZIndices.insert(annotation.zIndex).second ||
            annotation.zIndex < 0 || !isValidTiming(annotation, sourceDuration) ||
            !isValidStyle(annotation) || !isValidGeometry(annotation)) {
            throw TimelineValidationError::invalidAnnotation(annotation.id);
        }
    }
    if (mostSimultaneousAnnotations(annotations) > maximumSimultaneousAnnotationCount) {
        throw TimelineValidationError::tooManySimultaneousAnnotations();
    }
}

void validateAll(const EditTimeline& timeline, ProjectTime sourceDuration,
                 const DeviceFrameCatalogProvider* deviceFrameCatalog) {
    if (timeline.schemaVersion > EditTimeline::currentSchemaVersion) {
        throw TimelineValidationError::unsupportedSchema(timeline.schemaVersion);
    }
    if (timeline.segments.empty()) {
        throw TimelineValidationError::empty();
    }
    if (!isWithin(timeline.motionBlurAmount, 0, 1)) {
        throw TimelineValidationError::invalidMotionBlurAmount();
    }
    validateDeviceFrame(timeline, deviceFrameCatalog);
    validateSegments(timeline, sourceDuration);
    TimelineEffectEngine::validate(timeline, sourceDuration);
    if (timeline.schemaVersion < 7 && !timeline.annotations.empty()) {
        throw TimelineValidationError::annotationsRequireSchema7();
    }
    validateAnnotations(timeline, sourceDuration);
}

} // namespace

void validate(const EditTimeline& timeline, ProjectTime sourceDuration,
              const DeviceFrameCatalogProvider& deviceFrameCatalog) {
    validateAll(timeline, sourceDuration, &deviceFrameCatalog);
}

void validateContent(const EditTimeline& timeline, ProjectTime sourceDuration) {
    validateAll(timeline, sourceDuration, nullptr);
}

} // namespace rilo::TimelineValidator
