#pragma once

// What the picture looks like at one source time. The evaluator reduces the
// visual edits, the recorded samples and the captions of a project to one
// SceneState per instant, as a pure function: no clock, no history, no cache.
// Preview, still frames and export therefore agree to the bit, and any frame
// can be computed in any order, on any thread at once (every member is const
// and the value is never changed after construction).
//
// Times are always source times. Mapping a playback position to source time
// under cuts and speed changes is the caller's; zooms, click effects,
// annotations and captions all run on source time, so a speed change on the
// timeline stretches them with the picture.
//
// One underdamped spring step (springProgress) drives every camera and webcam
// movement.

#include "project/caption/CaptionDocument.h"
#include "project/document/CaptureSamples.h"
#include "project/document/ProjectManifest.h"
#include "project/document/TimelineEffects.h"
#include "project/document/WebcamOverlay.h"
#include "project/store/ProjectSnapshot.h"
#include "scene/CursorInterpolator.h"
#include "scene/SceneState.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

class SceneEvaluator {
public:
    // The length of the webcam's ramp into and out of full screen.
    static constexpr std::int64_t webcamFullscreenTransitionNanoseconds = 300'000'000;

    // Everything the evaluator needs from a loaded project. A given canvas
    // replaces the timeline's for the default edits. The clicks are the left
    // presses visible inside the source, in stored order; geometry and cursor
    // shape samples are put in time order with a stable sort.
    explicit SceneEvaluator(const ProjectSnapshot& snapshot,
                            std::optional<CanvasState> canvas = std::nullopt);

    // The full form.
    SceneState evaluate(ProjectTime time, const TimelineVisualEdits& edits,
                        const std::optional<CaptionDocument>& captionDocument) const;
    // With the captions loaded with the project.
    SceneState evaluate(ProjectTime time, const TimelineVisualEdits& edits) const;
    // The default edits, with the given canvas and webcam overlay put over
    // them where given.
    SceneState evaluate(ProjectTime time, const std::optional<CanvasState>& canvas,
                        const std::optional<WebcamOverlay>& webcam) const;

    const TimelineVisualEdits& defaultVisualEdits() const noexcept { return defaultVisualEdits_; }
    const CursorInterpolator& cursor() const noexcept { return cursor_; }
    const std::vector<MouseEvent>& clicks() const noexcept { return clicks_; }
    const std::vector<GeometrySample>& geometry() const noexcept { return geometry_; }
    const std::vector<CursorShapeSample>& cursorShapeSamples() const noexcept { return cursorShapeSamples_; }
    const std::map<std::string, CursorAssetDescriptor>& cursorAssets() const noexcept {
        return cursorAssets_;
    }
    const std::optional<CaptionDocument>& captions() const noexcept { return captions_; }
    PixelSize sourceSize() const noexcept { return sourceSize_; }
    bool hasWebcam() const noexcept { return hasWebcam_; }

    // The camera of the zooms (in ascending order) at a time: the resting
    // view outside every zoom; a spring from rest to the target up to the
    // focus time, the target through the hold, a spring back to rest until
    // the end. Two zooms whose ends touch hand over directly, from the end of
    // the first one's hold to the second one's focus, never passing rest.
    static CameraState cameraState(ProjectTime time, const std::vector<ZoomSegment>& zooms) noexcept;

    // 0 to 1 over the duration along a fixed physical spring with its own
    // clock in seconds, normalised so that it ends at exactly 1: a longer
    // duration shows more of the spring's settled tail rather than stretching
    // it.
    static double springProgress(std::int64_t elapsedNanoseconds, std::int64_t durationNanoseconds) noexcept;

    // How far back the blur's earlier camera looks, for an amount of 0...1:
    // up to 1/60 s at 0.5, then up to 0.1 s at 1.
    static std::int64_t motionBlurShutterNanoseconds(double amount) noexcept;

    // 0 (overlay) to 1 (full screen). Segments ramp in at their start and out
    // at their end over the transition, or over half their length where that
    // is shorter; no ramp is made where a segment touches its neighbour.
    static double webcamFullscreenProgress(ProjectTime time,
                                           const std::vector<WebcamFullscreenSegment>& segments,
                                           std::int64_t transitionNanoseconds);

    // The factor, 0.8 to 1, by which the webcam shrinks while the camera is
    // zoomed in; it stays at 0.8 across a hand-over between two zooms.
    static double webcamZoomScale(ProjectTime time, const std::vector<ZoomSegment>& zooms,
                                  const CameraState& camera) noexcept;

    // The content rectangle of the last geometry sample at or before the
    // time, normalised to its encoded frame; the full frame without one.
    static ScreenState screenState(ProjectTime time, const std::vector<GeometrySample>& geometry) noexcept;

    static std::int64_t clickEffectDurationNanoseconds(ClickEffectStyle style) noexcept;

private:
    CursorState cursorState(ProjectTime time, const CursorEdit& edit, const CameraState& camera) const;
    std::optional<WebcamState> webcamState(ProjectTime time, const TimelineVisualEdits& edits,
                                           const CameraState& camera) const;
    std::optional<ClickEffectState> clickEffectState(ProjectTime time, const CursorEdit& edit,
                                                     const CameraState& camera) const;
    double outputAspectRatio(CanvasAspectRatio aspectRatio) const noexcept;

    TimelineVisualEdits defaultVisualEdits_;
    CursorInterpolator cursor_;
    std::vector<MouseEvent> clicks_;
    std::vector<GeometrySample> geometry_;
    std::vector<CursorShapeSample> cursorShapeSamples_;
    std::map<std::string, CursorAssetDescriptor> cursorAssets_;
    std::optional<CaptionDocument> captions_;
    PixelSize sourceSize_;
    bool hasWebcam_ = false;
};

} // namespace rilo
