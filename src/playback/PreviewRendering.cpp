#include "playback/PreviewRendering.h"

#include "shared/Errors.h"

namespace rilo {

bool PreviewRenderState::shouldRun(PreviewRenderMode next, bool forceRedraw) {
    const std::optional<PreviewRenderMode> previous = mode;
    mode = next;
    switch (next.kind) {
    case PreviewRenderMode::Kind::continuous:
        return true;
    case PreviewRenderMode::Kind::suspended:
        return false;
    case PreviewRenderMode::Kind::onDemand:
        break;
    }
    if (forceRedraw) {
        return true;
    }
    if (!previous || previous->kind != PreviewRenderMode::Kind::onDemand ||
        previous->revision != next.revision) {
        return true;
    }
    if (!completedOnDemandRevision) {
        return true;
    }
    return *completedOnDemandRevision != next.revision;
}

PreviewDrawer::PreviewDrawer(SceneRenderer& renderer, std::shared_ptr<PreviewFrameProvider> frameProvider)
    : renderer_(renderer)
    , frameProvider_(std::move(frameProvider)) {}

std::optional<PreviewFrame> PreviewDrawer::draw(PreviewRenderMode mode, bool forceRedraw,
                                                const FramebufferTarget& target) {
    if (!state_.shouldRun(mode, forceRedraw)) {
        return std::nullopt;
    }
    std::optional<PreviewFrame> frame = frameProvider_->frame();
    if (!frame) {
        return std::nullopt;
    }
    try {
        const VideoFramePlanes screen = frame->screenPixelBuffer->planes();
        std::optional<VideoFramePlanes> webcam;
        if (frame->webcamPixelBuffer) {
            webcam = frame->webcamPixelBuffer->planes();
        }
        renderer_.encode(screen, webcam ? &*webcam : nullptr, frame->scene, target);
    } catch (const LocalizedError&) {
        return std::nullopt;
    }
    if (mode.kind == PreviewRenderMode::Kind::onDemand) {
        state_.completedOnDemandRevision = mode.revision;
    }
    return frame;
}

} // namespace rilo
