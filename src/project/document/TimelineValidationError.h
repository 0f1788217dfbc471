#pragma once

#include "shared/Errors.h"
#include "shared/Uuid.h"

#include <cstdint>
#include <optional>

namespace rilo {

// The cases of TimelineValidationError.
enum class TimelineValidationErrorCase {
    unsupportedSchema,
    rangeOutsideSource,
    segmentTooShort,
    invalidPlaybackRate,
    playbackRateRequiresSchema4,
    sequenceSegmentTooShort,
    sequenceDurationOverflow,
    segmentsOutOfOrder,
    overlappingSegments,
    invalidAnnotation,
    empty,
    invalidMotionBlurAmount,
    deviceFrameRequiresSchema8,
    invalidDeviceFrame,
    tooManyAnnotations,
    tooManySimultaneousAnnotations,
    annotationsRequireSchema7,
};

// Why a timeline document may not exist. The cases about one segment or one
// annotation carry its id; the id is not part of the message.
class TimelineValidationError : public CaseError<TimelineValidationErrorCase> {
public:
    static TimelineValidationError unsupportedSchema(std::int64_t version);

    // About one segment.
    static TimelineValidationError rangeOutsideSource(const Uuid& segmentID) {
        return {Case::rangeOutsideSource, segmentID};
    }
    static TimelineValidationError segmentTooShort(const Uuid& segmentID) {
        return {Case::segmentTooShort, segmentID};
    }
    static TimelineValidationError invalidPlaybackRate(const Uuid& segmentID) {
        return {Case::invalidPlaybackRate, segmentID};
    }
    static TimelineValidationError playbackRateRequiresSchema4(const Uuid& segmentID) {
        return {Case::playbackRateRequiresSchema4, segmentID};
    }
    static TimelineValidationError sequenceSegmentTooShort(const Uuid& segmentID) {
        return {Case::sequenceSegmentTooShort, segmentID};
    }
    static TimelineValidationError sequenceDurationOverflow(const Uuid& segmentID) {
        return {Case::sequenceDurationOverflow, segmentID};
    }
    static TimelineValidationError segmentsOutOfOrder(const Uuid& segmentID) {
        return {Case::segmentsOutOfOrder, segmentID};
    }
    static TimelineValidationError overlappingSegments(const Uuid& segmentID) {
        return {Case::overlappingSegments, segmentID};
    }

    // About one annotation.
    static TimelineValidationError invalidAnnotation(const Uuid& annotationID) {
        return {Case::invalidAnnotation, annotationID};
    }

    // About the document as a whole.
    static TimelineValidationError empty() { return {Case::empty, std::nullopt}; }
    static TimelineValidationError invalidMotionBlurAmount() {
        return {Case::invalidMotionBlurAmount, std::nullopt};
    }
    static TimelineValidationError deviceFrameRequiresSchema8() {
        return {Case::deviceFrameRequiresSchema8, std::nullopt};
    }
    static TimelineValidationError invalidDeviceFrame() { return {Case::invalidDeviceFrame, std::nullopt}; }
    static TimelineValidationError tooManyAnnotations() { return {Case::tooManyAnnotations, std::nullopt}; }
    static TimelineValidationError tooManySimultaneousAnnotations() {
        return {Case::tooManySimultaneousAnnotations, std::nullopt};
    }
    static TimelineValidationError annotationsRequireSchema7() {
        return {Case::annotationsRequireSchema7, std::nullopt};
    }

    // The segment or annotation concerned; none for the cases about the
    // whole document.
    const std::optional<Uuid>& id() const noexcept { return id_; }
    // The refused version of unsupportedSchema; none otherwise.
    std::optional<std::int64_t> schemaVersion() const noexcept { return schemaVersion_; }

private:
    TimelineValidationError(Case errorCase, std::optional<Uuid> id,
                            std::optional<std::int64_t> schemaVersion = std::nullopt);

    std::optional<Uuid> id_;
    std::optional<std::int64_t> schemaVersion_;
};

} // namespace rilo
