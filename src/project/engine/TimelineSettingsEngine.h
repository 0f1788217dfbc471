#pragma once

// The one vocabulary of textual settings that agents use (`key=value` on the
// command line, `values` in an edit plan), turned into changes of the
// appearance members of a timeline: canvas, cursor, webcam overlay and audio
// mix.
//
// Keys are applied one at a time in ascending order of their text, on a
// working copy; the first key that fails throws TimelineSettingsError and
// nothing is applied. Canvas keys therefore come before webcam keys, and a
// webcam placement in the same call sees the new canvas aspect. Numbers out of
// range are clamped; text that cannot be read is refused:
// - booleans: "true", "on", "1" and "false", "off", "0", in any letter case;
// - numbers: the whole text as a finite double in the C locale, with no
//   leading blank;
// - words of an enumeration: exactly as listed.
// Every `webcam.*` key needs webcam media (webcamUnavailable) before its value
// is read, and starts from the timeline's overlay or the default one.
//
// Keys: audio.microphone.gain-db, audio.microphone.muted, audio.system.gain-db,
// audio.system.muted, canvas.aspect, canvas.background, canvas.padding,
// canvas.radius, cursor.click-ripple, cursor.click-style, cursor.scale,
// cursor.show, webcam.aspect-ratio, webcam.border, webcam.border-width,
// webcam.corner-radius, webcam.diameter, webcam.mirror, webcam.shadow,
// webcam.shape, webcam.show, webcam.x, webcam.y.

#include "project/document/CanvasEdit.h"
#include "project/document/EditTimeline.h"
#include "project/document/WebcamOverlay.h"
#include "project/engine/TimelineSettingsError.h"
#include "shared/Geometry.h"

#include <map>
#include <string>

namespace rilo::TimelineSettingsEngine {

// The timeline with the settings applied. The result is not validated; that
// is the caller's part.
EditTimeline applying(const std::map<std::string, std::string>& settings, const EditTimeline& timeline,
                      bool hasWebcam, PixelSize sourceSize);

// Width over height of the output for a canvas aspect; `source` follows the
// recording's pixel size.
double outputAspectRatio(CanvasAspectRatio aspectRatio, PixelSize sourceSize) noexcept;

// The overlay with its center moved so that the whole webcam stays on an
// output of this aspect ratio.
WebcamOverlay constrainWebcam(WebcamOverlay overlay, double outputAspectRatio) noexcept;

} // namespace rilo::TimelineSettingsEngine
