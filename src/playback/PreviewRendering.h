#pragma once

// Drawing the preview: when to draw, and the drawing of one frame from the
// frame provider through the same SceneRenderer as still frames and export.
//
// An idle editor draws nothing: with onDemand(revision) a frame is drawn once
// for each new revision of the preview (the player counts one up for every
// finished seek and every edit); playback draws continuously; a hidden
// preview is suspended.
//
// PreviewDrawer runs on the drawing thread, with the render context current
// there; the target is the caller's (a window's framebuffer or an offscreen
// RenderTarget).

#include "playback/PreviewFrameProvider.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRenderer.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace rilo {

struct PreviewRenderMode {
    enum class Kind { onDemand, continuous, suspended };
    Kind kind = Kind::onDemand;
    std::uint64_t revision = 0;

    static PreviewRenderMode onDemand(std::uint64_t revision) noexcept { return {Kind::onDemand, revision}; }
    static PreviewRenderMode continuous() noexcept { return {Kind::continuous, 0}; }
    static PreviewRenderMode suspended() noexcept { return {Kind::suspended, 0}; }
    friend bool operator==(const PreviewRenderMode&, const PreviewRenderMode&) = default;
};

struct PreviewRenderState {
    std::optional<PreviewRenderMode> mode;
    std::optional<std::uint64_t> completedOnDemandRevision;

    // Stores the mode and answers whether a frame should be drawn now.
    bool shouldRun(PreviewRenderMode next, bool forceRedraw);
};

class PreviewDrawer {
public:
    PreviewDrawer(SceneRenderer& renderer, std::shared_ptr<PreviewFrameProvider> frameProvider);

    // Draws one frame into the target when the mode asks for it. Answers the
    // frame drawn, or none when nothing was drawn (not due, no frame yet, or
    // the drawing failed: the picture then stays as it was, and the next call
    // tries again).
    std::optional<PreviewFrame> draw(PreviewRenderMode mode, bool forceRedraw,
                                     const FramebufferTarget& target);

private:
    SceneRenderer& renderer_;
    std::shared_ptr<PreviewFrameProvider> frameProvider_;
    PreviewRenderState state_;
};

} // namespace rilo
