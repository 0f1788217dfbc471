#include "project/document/TimelineEffects.h"

#include <algorithm>
#include <cmath>

namespace rilo {

float AudioTrackEdit::linearGain() const noexcept {
    if (isMuted) {
        return 0;
    }
    if (gainDecibels <= -60) {
        return 0.001F;
    }
    return static_cast<float>(std::pow(10.0, std::min(gainDecibels, 12.0) / 20.0));
}

AudioTrackEdit AudioTrackEdit::updatingVolume(double volume) const noexcept {
    if (!(volume > 0)) {
        return {true, gainDecibels};
    }
    return {false, 20.0 * std::log10(std::clamp(volume, 0.01, 1.0))};
}

std::optional<AudioTrackEdit> AudioMixEdit::settings(MediaTrackKind kind) const noexcept {
    switch (kind) {
    case MediaTrackKind::systemAudio:
        return systemAudio;
    case MediaTrackKind::microphone:
        return microphone;
    case MediaTrackKind::screen:
        return std::nullopt;
    }
    return std::nullopt;
}

AnnotationElement AnnotationElement::defaultAnnotation(AnnotationKind kind, ProjectTime startTime,
                                                       ProjectTime endTime, std::int64_t zIndex,
                                                       double outputAspectRatio) {
    AnnotationElement annotation;
    annotation.id = Uuid::random();
    annotation.startTime = startTime;
    annotation.endTime = endTime;
    annotation.kind = kind;
    annotation.color = {0.96, 0.45, 0.16};
    annotation.lineWidth = 0.006;
    annotation.zIndex = zIndex;
    switch (kind) {
    case AnnotationKind::rectangle:
    case AnnotationKind::mosaic:
        annotation.bounds = RectValue{0.35, 0.4, 0.3, 0.2};
        break;
    case AnnotationKind::circle: {
        const double height = 0.22;
        // A degenerate aspect ratio counts as 0.01, which clamps to the widest circle.
        const double correctedWidth = outputAspectRatio > 0.01 ? height / outputAspectRatio : height / 0.01;
        const double width = std::clamp(correctedWidth, 0.02, 0.8);
        annotation.bounds = RectValue{0.5 - width / 2, 0.39, width, height};
        break;
    }
    case AnnotationKind::arrow:
        annotation.startPoint = PointValue{0.34, 0.62};
        annotation.endPoint = PointValue{0.66, 0.38};
        break;
    }
    return annotation;
}

namespace MotionBlurRules {

double clamped(double amount) noexcept {
    return std::min(std::max(amount, 0.0), 1.0);
}

} // namespace MotionBlurRules

} // namespace rilo
