#include "project/document/EditTimeline.h"

#include <algorithm>
#include <tuple>

namespace rilo {

namespace {

// Drops what a stored schema could not have meant and stamps the current one.
void migrateSchema(EditTimeline& timeline) {
    const std::int64_t version = timeline.schemaVersion;
    if (version <= 4) {
        timeline.webcamFullscreenSegments.clear();
    }
    if (version <= 5) {
        timeline.motionBlurAmount = EditTimeline::defaultMotionBlurAmount;
    }
    if (version <= 6) {
        timeline.annotations.clear();
    }
    if (version <= 7) {
        timeline.deviceFrame.reset();
    }
    if (version <= EditTimeline::currentSchemaVersion) {
        timeline.schemaVersion = EditTimeline::currentSchemaVersion;
    }
}

template <class T>
void sortByStartTime(std::vector<T>& elements) {
    std::stable_sort(elements.begin(), elements.end(),
                     [](const T& a, const T& b) { return a.startTime < b.startTime; });
}

} // namespace

EditTimeline EditTimeline::normalized(ProjectTime sourceDuration, bool hasWebcam) const {
    EditTimeline result = *this;
    migrateSchema(result);

    if (result.segments.empty() && sourceDuration > ProjectTime::zero()) {
        result.segments.push_back(
            {Uuid::random(), {ProjectTime::zero(), sourceDuration}, TimelinePlaybackRate::normal()});
    }

    // Full-screen stretches are kept even without a webcam track.
    if (!hasWebcam) {
        result.webcamOverlay.reset();
        result.webcamKeyframes.clear();
    } else if (!result.webcamOverlay) {
        result.webcamOverlay = WebcamOverlay::defaultValue();
    }

    std::erase_if(result.webcamKeyframes, [&](const WebcamOverlayKeyframe& keyframe) {
        return keyframe.time < ProjectTime::zero() || keyframe.time >= sourceDuration;
    });
    std::stable_sort(
        result.webcamKeyframes.begin(), result.webcamKeyframes.end(),
        [](const WebcamOverlayKeyframe& a, const WebcamOverlayKeyframe& b) { return a.time < b.time; });

    sortByStartTime(result.webcamFullscreenSegments);
    sortByStartTime(result.zooms);

    std::stable_sort(result.annotations.begin(), result.annotations.end(),
                     [](const AnnotationElement& a, const AnnotationElement& b) {
                         return std::forward_as_tuple(a.zIndex, a.startTime, a.id.string()) <
                                std::forward_as_tuple(b.zIndex, b.startTime, b.id.string());
                     });

    if (CanvasBackgroundPresets::background(result.canvas.preset) != result.canvas.background) {
        result.canvas.preset = CanvasBackgroundPresets::defaultPreset(result.canvas.background);
    }
    result.canvas.padding = CanvasEdit::paddingLimits.clamped(result.canvas.padding);
    result.canvas.cornerRadius = CanvasCornerRadiusRules::clamped(result.canvas.cornerRadius);

    result.cursor.scale = CursorEdit::scaleLimits.clamped(result.cursor.scale);

    for (AudioTrackEdit* track : {&result.audioMix.systemAudio, &result.audioMix.microphone}) {
        track->gainDecibels = AudioTrackEdit::gainDecibelLimits.clamped(track->gainDecibels);
    }
    return result;
}

} // namespace rilo
