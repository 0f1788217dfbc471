#pragma once

// One still picture of the edited project at a sequence time, for the
// `frame` command: the same decoded frames, scene and renderer as the export,
// so that what an agent sees in a still is what the user gets.

#include "project/store/ProjectSnapshot.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"

#include <stop_token>
#include <string>

namespace rilo {

class RenderContext;
class SceneRenderer;

enum class ProjectFrameRendererErrorCase {
    frameUnavailable,
    renderFailed,
    imageEncodingFailed,
};

class ProjectFrameRendererError : public CaseError<ProjectFrameRendererErrorCase> {
public:
    explicit ProjectFrameRendererError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase);
};

class ProjectFrameRenderer {
public:
    // The one-frame margin before the end: a time at or past the end shows
    // the frame one sixtieth of a second before it.
    static constexpr std::int64_t endMarginNanoseconds = 16'666'666;

    ProjectFrameRenderer(RenderContext& context, SceneRenderer& renderer);

    // The picture at sequence time `at` (clamped into the sequence), `width`
    // pixels wide with the canvas's aspect, as PNG bytes when `format` is
    // "png" in any case, otherwise as JPEG.
    std::string render(const ProjectSnapshot& snapshot, ProjectTime at, std::int64_t width,
                       const std::string& format, std::stop_token stop);

    // Even measures of at least 2: the width lowered to even, the height the
    // width over the aspect ratio, rounded, then lowered to even.
    static PixelSize outputSize(std::int64_t width, double aspectRatio) noexcept;

private:
    RenderContext& context_;
    SceneRenderer& renderer_;
};

} // namespace rilo
