#include "scene/SceneEvaluator.h"

#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineSettingsEngine.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace rilo {

namespace {

template <class Sample>
std::vector<Sample> sortedByTime(std::vector<Sample> samples) {
    std::stable_sort(samples.begin(), samples.end(),
                     [](const Sample& a, const Sample& b) { return a.time < b.time; });
    return samples;
}

// The presses that draw a click effect: left button, inside the source.
std::vector<MouseEvent> effectClicks(const std::vector<MouseEvent>& events) {
    std::vector<MouseEvent> clicks;
    std::copy_if(events.begin(), events.end(), std::back_inserter(clicks), [](const MouseEvent& event) {
        return event.phase == MousePhase::down && event.button == MouseButton::left &&
               event.isVisibleInsideSource();
    });
    return clicks;
}

std::map<std::string, CursorAssetDescriptor>
descriptorsByID(const std::vector<CursorAssetPayload>& payloads) {
    std::map<std::string, CursorAssetDescriptor> descriptors;
    for (const CursorAssetPayload& payload : payloads) {
        descriptors.insert_or_assign(payload.descriptor.id, payload.descriptor);
    }
    return descriptors;
}

// Those active at the time, in a drawing order that is stable from frame to
// frame: by zIndex, then by the text of the id.
std::vector<AnnotationElement> activeAnnotations(ProjectTime time,
                                                 const std::vector<AnnotationElement>& all) {
    std::vector<std::pair<std::string, const AnnotationElement*>> active;
    for (const AnnotationElement& annotation : all) {
        if (annotation.startTime <= time && time < annotation.endTime) {
            active.emplace_back(annotation.id.string(), &annotation);
        }
    }
    std::sort(active.begin(), active.end(), [](const auto& a, const auto& b) {
        if (a.second->zIndex != b.second->zIndex) {
            return a.second->zIndex < b.second->zIndex;
        }
        return a.first < b.first;
    });
    std::vector<AnnotationElement> result;
    result.reserve(active.size());
    for (const auto& entry : active) {
        result.push_back(*entry.second);
    }
    return result;
}

// The last cue running at the time wins where cues overlap.
std::optional<CaptionState> captionState(ProjectTime time, const std::optional<CaptionDocument>& document) {
    if (!document || !document->style.isEnabled) {
        return std::nullopt;
    }
    const auto& cues = document->cues;
    const auto cue = std::find_if(cues.rbegin(), cues.rend(), [time](const CaptionCue& candidate) {
        return candidate.start <= time && time < candidate.end;
    });
    if (cue == cues.rend()) {
        return std::nullopt;
    }
    const CaptionStyle& style = document->style;
    return CaptionState{
        cue->id,         cue->text,           cue->highlights, style.appearance, style.maximumLines,
        style.fontScale, style.bottomPosition};
}

} // namespace

SceneEvaluator::SceneEvaluator(const ProjectSnapshot& snapshot, std::optional<CanvasState> canvas)
    : defaultVisualEdits_(snapshot.timeline, std::move(canvas), std::nullopt)
    , cursor_(snapshot.mouseEvents)
    , clicks_(effectClicks(snapshot.mouseEvents))
    , geometry_(sortedByTime(snapshot.geometry))
    , cursorShapeSamples_(sortedByTime(snapshot.cursorShapeSamples))
    , cursorAssets_(descriptorsByID(snapshot.cursorAssets))
    , captions_(snapshot.captions)
    , sourceSize_(snapshot.manifest.encodedPixelSize)
    , hasWebcam_(snapshot.manifest.webcam.has_value()) {}

SceneState SceneEvaluator::evaluate(ProjectTime time, const TimelineVisualEdits& edits,
                                    const std::optional<CaptionDocument>& captionDocument) const {
    SceneState state;
    state.time = time;
    state.camera = cameraState(time, edits.zooms);

    const ProjectTime shutter{motionBlurShutterNanoseconds(edits.motionBlurAmount)};
    const CameraState earlier = cameraState(std::max(time - shutter, ProjectTime::zero()), edits.zooms);
    if (earlier != state.camera) {
        state.motionBlurCamera = earlier;
    }

    state.screen = screenState(time, geometry_);
    state.cursor = cursorState(time, edits.cursor, state.camera);
    state.canvas = edits.canvas;
    state.deviceFrame = edits.deviceFrame;
    state.webcam = webcamState(time, edits, state.camera);
    state.clickEffect = clickEffectState(time, edits.cursor, state.camera);
    state.annotations = activeAnnotations(time, edits.annotations);
    state.caption = captionState(time, captionDocument);
    return state;
}

SceneState SceneEvaluator::evaluate(ProjectTime time, const TimelineVisualEdits& edits) const {
    return evaluate(time, edits, captions_);
}

SceneState SceneEvaluator::evaluate(ProjectTime time, const std::optional<CanvasState>& canvas,
                                    const std::optional<WebcamOverlay>& webcam) const {
    if (!canvas && !webcam) {
        return evaluate(time, defaultVisualEdits_);
    }
    TimelineVisualEdits edits = defaultVisualEdits_;
    if (canvas) {
        edits.canvas = *canvas;
    }
    if (webcam) {
        edits.webcamOverlay = webcam;
    }
    return evaluate(time, edits);
}

CursorState SceneEvaluator::cursorState(ProjectTime time, const CursorEdit& edit,
                                        const CameraState& camera) const {
    CursorState state;
    state.sourcePosition = cursor_.position(time);
    state.outputPosition = camera.outputPoint(state.sourcePosition);
    state.visible = edit.isVisible && cursor_.isVisible(time);
    state.scale = edit.scale;

    // The samples are in time order: the last one at or before the time is
    // the one before the first later one.
    const auto after =
        std::upper_bound(cursorShapeSamples_.begin(), cursorShapeSamples_.end(), time,
                         [](ProjectTime t, const CursorShapeSample& sample) { return t < sample.time; });
    if (after == cursorShapeSamples_.begin()) {
        return state;
    }
    const CursorShapeSample& shape = *std::prev(after);
    state.assetID = shape.assetID;
    // An id missing from the assets keeps no size or hot spot; the renderer
    // falls back to its own cursor.
    if (const auto asset = cursorAssets_.find(shape.assetID); asset != cursorAssets_.end()) {
        state.logicalSize = asset->second.logicalSize;
        state.hotSpot = asset->second.hotSpot;
    }
    return state;
}

double SceneEvaluator::outputAspectRatio(CanvasAspectRatio aspectRatio) const noexcept {
    return TimelineSettingsEngine::outputAspectRatio(aspectRatio, sourceSize_);
}

std::optional<WebcamState> SceneEvaluator::webcamState(ProjectTime time, const TimelineVisualEdits& edits,
                                                       const CameraState& camera) const {
    if (!hasWebcam_ || !edits.webcamOverlay) {
        return std::nullopt;
    }
    const auto overlay = TimelineEffectEngine::webcamOverlay(edits.webcamOverlay, edits.webcamKeyframes, time,
                                                             outputAspectRatio(edits.canvas.aspectRatio));
    if (!overlay) {
        return std::nullopt;
    }
    const double fullscreen =
        webcamFullscreenProgress(time, edits.webcamFullscreenSegments, webcamFullscreenTransitionNanoseconds);
    const double zoomFactor = webcamZoomScale(time, edits.zooms, camera);
    // The webcam shrinks while the screen is zoomed in, less and less as it
    // goes full screen.
    const double diameterScale = 1 + (1 - fullscreen) * (zoomFactor - 1);

    WebcamState state;
    state.center = {std::clamp(overlay->center.x, 0.0, 1.0), std::clamp(overlay->center.y, 0.0, 1.0)};
    state.diameter = std::clamp(overlay->diameter, WebcamOverlay::diameterLimits.minimum,
                                WebcamOverlay::diameterLimits.maximum) *
                     diameterScale;
    state.isMirrored = overlay->isMirrored;
    state.visible = overlay->isVisible;
    state.aspectRatio = overlay->aspectRatio;
    state.cornerRadius = WebcamOverlay::constrainedCornerRadius(overlay->cornerRadius);
    state.showsBorder = overlay->showsBorder;
    state.borderWidthAt1080p = WebcamOverlay::constrainedBorderWidthAt1080p(overlay->borderWidthAt1080p);
    state.showsShadow = overlay->showsShadow;
    state.fullscreenProgress = std::clamp(fullscreen, 0.0, 1.0);
    return state;
}

std::optional<ClickEffectState> SceneEvaluator::clickEffectState(ProjectTime time, const CursorEdit& edit,
                                                                 const CameraState& camera) const {
    if (!edit.showsClickEffect) {
        return std::nullopt;
    }
    const std::int64_t duration = clickEffectDurationNanoseconds(edit.clickEffectStyle);
    const auto click = std::find_if(clicks_.rbegin(), clicks_.rend(), [&](const MouseEvent& candidate) {
        return candidate.time <= time && (time - candidate.time).nanoseconds <= duration;
    });
    if (click == clicks_.rend()) {
        return std::nullopt;
    }
    // Placed with the camera of this instant, so that the mark stays on the
    // clicked object while the camera moves.
    return ClickEffectState{camera.outputPoint(click->normalizedPoint),
                            static_cast<double>((time - click->time).nanoseconds) /
                                static_cast<double>(duration),
                            edit.clickEffectStyle};
}

ScreenState SceneEvaluator::screenState(ProjectTime time,
                                        const std::vector<GeometrySample>& geometry) noexcept {
    const auto sample =
        std::find_if(geometry.rbegin(), geometry.rend(),
                     [time](const GeometrySample& candidate) { return candidate.time <= time; });
    if (sample == geometry.rend() || sample->encodedPixelSize.width < 1 ||
        sample->encodedPixelSize.height < 1) {
        return ScreenState::fullFrame();
    }
    const double width = static_cast<double>(sample->encodedPixelSize.width);
    const double height = static_cast<double>(sample->encodedPixelSize.height);
    const RectValue& content = sample->contentRectInEncodedFrame;
    return {{content.x / width, content.y / height, content.width / width, content.height / height}};
}

std::int64_t SceneEvaluator::clickEffectDurationNanoseconds(ClickEffectStyle style) noexcept {
    switch (style) {
    case ClickEffectStyle::solidPulse:
        return 350'000'000;
    case ClickEffectStyle::ring:
    case ClickEffectStyle::ringAndPress:
        return 500'000'000;
    }
    return 500'000'000;
}

} // namespace rilo
