#include "rendering/ProjectFrameRenderer.h"

#include "media/JpegCodec.h"
#include "media/PngCodec.h"
#include "media/TimelineCompositionPlan.h"
#include "media/VideoTrackDecoder.h"
#include "rendering/RenderContext.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRenderer.h"
#include "scene/SceneEvaluator.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace rilo {

std::string ProjectFrameRendererError::messageFor(Case errorCase) {
    switch (errorCase) {
    case Case::frameUnavailable:
        return "指定时间暂时无法取得预览帧。";
    case Case::renderFailed:
        return "单帧Metal渲染失败。";
    case Case::imageEncodingFailed:
        return "无法编码单帧图片。";
    }
    return "单帧Metal渲染失败。";
}

ProjectFrameRenderer::ProjectFrameRenderer(RenderContext& context, SceneRenderer& renderer)
    : context_(context)
    , renderer_(renderer) {}

PixelSize ProjectFrameRenderer::outputSize(std::int64_t width, double aspectRatio) noexcept {
    const auto even = [](std::int64_t measure) { return std::max<std::int64_t>(measure - measure % 2, 2); };
    const double ratio = aspectRatio > 0 && std::isfinite(aspectRatio) ? aspectRatio : 16.0 / 9.0;
    const auto height = static_cast<std::int64_t>(std::llround(static_cast<double>(width) / ratio));
    return PixelSize::unnormalized(even(width), even(height));
}

std::string ProjectFrameRenderer::render(const ProjectSnapshot& snapshot, ProjectTime at, std::int64_t width,
                                         const std::string& format, std::stop_token stop) {
    const TimelineCompositionPlan plan = TimelineCompositionBuilder::build(snapshot, stop);
    const TimelineMapper& mapper = plan.mapper;
    const ProjectTime last{
        std::max<std::int64_t>(mapper.sequenceDuration().nanoseconds - endMarginNanoseconds, 0)};
    const ProjectTime time{std::min(last.nanoseconds, std::max<std::int64_t>(at.nanoseconds, 0))};
    const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(time);
    if (!mapped) {
        throw ProjectFrameRendererError(ProjectFrameRendererError::Case::frameUnavailable);
    }
    if (stop.stop_requested()) {
        throw CancellationError();
    }
    const std::filesystem::path media = snapshot.mediaURL();
    VideoTrackDecoder screen(media, plan.screen.source.index);
    const DecodedVideoFrame* screenFrame = screen.frameAt(mapped->sourceTime);
    std::optional<VideoTrackDecoder> webcam;
    std::optional<VideoFramePlanes> webcamPlanes;
    if (plan.webcam) {
        webcam.emplace(media, plan.webcam->source.index);
        const DecodedVideoFrame* frame = webcam->frameAt(mapped->sourceTime);
        if (std::abs((frame->presentationTime() - mapped->sourceTime).nanoseconds) <= 500'000'000) {
            webcamPlanes = frame->planes();
        }
    }

    context_.makeCurrent();
    renderer_.registerProjectAssets(snapshot);
    const SceneEvaluator evaluator(snapshot, std::nullopt);
    const SceneState scene = evaluator.evaluate(mapped->sourceTime, evaluator.defaultVisualEdits());
    const SizeValue sourceSize{static_cast<double>(snapshot.manifest.encodedPixelSize.width),
                               static_cast<double>(snapshot.manifest.encodedPixelSize.height)};
    const PixelSize size = outputSize(width, value(scene.canvas.aspectRatio, sourceSize));
    RenderTarget target(context_, static_cast<int>(size.width), static_cast<int>(size.height));
    renderer_.encode(screenFrame->planes(), webcamPlanes ? &*webcamPlanes : nullptr, scene, target);
    std::vector<std::uint8_t> rgba;
    target.readRgba(rgba);

    std::string lowered = format;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    try {
        if (lowered == "png") {
            return encodePng(static_cast<int>(size.width), static_cast<int>(size.height), rgba);
        }
        return encodeJpeg(static_cast<int>(size.width), static_cast<int>(size.height), rgba, 0.9);
    } catch (const LocalizedError&) {
        throw ProjectFrameRendererError(ProjectFrameRendererError::Case::imageEncodingFailed);
    }
}

} // namespace rilo
