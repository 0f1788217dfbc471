#pragma once

// The edits of a timeline other than its cuts, canvas and webcam: cursor
// drawing, audio mix, zooms, annotations and motion blur. All times are
// source times.
//
// CursorEdit::defaultValue() is what a default-constructed value holds;
// likewise for AudioMixEdit.

#include "project/document/CanvasEdit.h"
#include "project/document/MediaTrackKind.h"
#include "shared/Geometry.h"
#include "shared/JsonNames.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"
#include "shared/ValueLimits.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace rilo {

enum class ClickEffectStyle {
    solidPulse,
    ring,
    ringAndPress,
};

// How the recorded cursor is drawn again.
struct CursorEdit {
    static constexpr ValueLimits scaleLimits{0.5, 3.0};

    bool isVisible = true;
    double scale = 1.0;
    bool showsClickEffect = true;
    ClickEffectStyle clickEffectStyle = ClickEffectStyle::solidPulse;

    static CursorEdit defaultValue() { return {}; }

    friend bool operator==(const CursorEdit&, const CursorEdit&) = default;
};

struct AudioTrackEdit {
    static constexpr ValueLimits gainDecibelLimits{-60, 12};

    bool isMuted = false;
    double gainDecibels = 0;

    // The amplitude factor: 0 when muted, 0.001 at -60 dB and below, and at
    // most the factor of +12 dB.
    float linearGain() const noexcept;
    // From a volume slider position: 0 (or below) mutes and keeps the gain;
    // otherwise unmutes with the gain of the position clamped to 0.01...1.
    AudioTrackEdit updatingVolume(double volume) const noexcept;

    friend bool operator==(const AudioTrackEdit&, const AudioTrackEdit&) = default;
};

struct AudioMixEdit {
    AudioTrackEdit systemAudio;
    AudioTrackEdit microphone;

    static AudioMixEdit defaultValue() { return {}; }
    // The edit of an audio track; the screen track has none.
    std::optional<AudioTrackEdit> settings(MediaTrackKind kind) const noexcept;

    friend bool operator==(const AudioMixEdit&, const AudioMixEdit&) = default;
};

// A zoom: ramps in from startTime to focusTime, holds until holdEndTime and
// ramps out until endTime.
struct ZoomSegment {
    static constexpr ValueLimits scaleLimits{1, 3};
    // How long a new zoom rises before its focus and falls after its hold,
    // when its maker does not say.
    static constexpr std::int64_t defaultZoomInNanoseconds = 650'000'000;
    static constexpr std::int64_t defaultZoomOutNanoseconds = 500'000'000;

    Uuid id;
    ProjectTime startTime;
    ProjectTime focusTime;
    ProjectTime holdEndTime;
    ProjectTime endTime;
    PointValue focusPoint{0.5, 0.5};
    double scale = 1;

    friend bool operator==(const ZoomSegment&, const ZoomSegment&) = default;
};

enum class AnnotationKind {
    rectangle,
    circle,
    arrow,
    mosaic,
};

// A static shape over the picture between two source times. Shapes use
// `bounds`; arrows use `startPoint` and `endPoint`. Positions are normalised
// to the output.
struct AnnotationElement {
    Uuid id;
    ProjectTime startTime;
    ProjectTime endTime;
    AnnotationKind kind = AnnotationKind::rectangle;
    std::optional<RectValue> bounds;
    std::optional<PointValue> startPoint;
    std::optional<PointValue> endPoint;
    CanvasColorValue color;
    double lineWidth = 0;
    std::int64_t zIndex = 0;

    // The annotation a fresh insertion gets, with a fresh id. A circle's
    // width is corrected by the output's aspect ratio so that it looks round.
    static AnnotationElement defaultAnnotation(AnnotationKind kind, ProjectTime startTime,
                                               ProjectTime endTime, std::int64_t zIndex,
                                               double outputAspectRatio);

    friend bool operator==(const AnnotationElement&, const AnnotationElement&) = default;
};

namespace MotionBlurRules {
// Clamped to 0...1.
double clamped(double amount) noexcept;
} // namespace MotionBlurRules

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<ClickEffectStyle> {
    static constexpr std::array<std::pair<ClickEffectStyle, std::string_view>, 3> entries{{
        {ClickEffectStyle::solidPulse, "solid-pulse"},
        {ClickEffectStyle::ring, "ring"},
        {ClickEffectStyle::ringAndPress, "ring-and-press"},
    }};
};

template <>
struct EnumNames<AnnotationKind> {
    static constexpr std::array<std::pair<AnnotationKind, std::string_view>, 4> entries{{
        {AnnotationKind::rectangle, "rectangle"},
        {AnnotationKind::circle, "circle"},
        {AnnotationKind::arrow, "arrow"},
        {AnnotationKind::mosaic, "mosaic"},
    }};
};

} // namespace rilo::json
