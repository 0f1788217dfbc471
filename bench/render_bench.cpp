// Draws 1920x1080 scenes on whatever EGL device is present and prints the
// time a frame takes to draw and read back, in each output form. With a
// directory argument, also writes PNG pictures of a few scenes there.

#include "media/PngCodec.h"
#include "rendering/RenderContext.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRenderer.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace rilo;

namespace {

// A screen-like picture: a light page with dark text lines and a coloured
// panel, as limited-range BT.709 yuv420p.
struct SourcePicture {
    int width;
    int height;
    std::vector<std::uint8_t> y, u, v;

    SourcePicture(int w, int h, bool camera)
        : width(w)
        , height(h)
        , y(static_cast<std::size_t>(w) * h)
        , u(static_cast<std::size_t>(w / 2) * (h / 2))
        , v(u.size()) {
        for (int row = 0; row < h; ++row) {
            for (int column = 0; column < w; ++column) {
                double r, g, b;
                const double x = static_cast<double>(column) / w;
                const double yy = static_cast<double>(row) / h;
                if (camera) {
                    const double d = std::hypot(x - 0.5, yy - 0.45);
                    r = d < 0.22 ? 0.85 : 0.25 + 0.3 * yy;
                    g = d < 0.22 ? 0.65 : 0.35;
                    b = d < 0.22 ? 0.55 : 0.45 + 0.2 * x;
                } else if (x > 0.62 && yy > 0.15 && yy < 0.7) {
                    r = 0.2 + 0.5 * x;
                    g = 0.4;
                    b = 0.8;
                } else {
                    const bool text = row % 28 < 10 && column % 200 < 170 && x > 0.05 && x < 0.58 && yy > 0.1;
                    r = g = b = text ? 0.15 : 0.96;
                }
                const double l = 0.2126 * r + 0.7152 * g + 0.0722 * b;
                y[static_cast<std::size_t>(row) * w + column] = static_cast<std::uint8_t>(16 + 219 * l);
                if (row % 2 == 0 && column % 2 == 0) {
                    const std::size_t i = static_cast<std::size_t>(row / 2) * (w / 2) + column / 2;
                    u[i] = static_cast<std::uint8_t>(std::lround(128 + 224 * (b - l) / 1.8556));
                    v[i] = static_cast<std::uint8_t>(std::lround(128 + 224 * (r - l) / 1.5748));
                }
            }
        }
    }

    VideoFramePlanes planes() const {
        VideoFramePlanes planes;
        planes.width = width;
        planes.height = height;
        planes.data = {y.data(), u.data(), v.data()};
        planes.strides = {width, width / 2, width / 2};
        return planes;
    }
};

double processCpuMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Wall-clock and CPU milliseconds (all threads of the process, the
// rasteriser's included) a frame, formatted. CPU time is what a busy shared
// machine does not distort.
std::string millisecondsPerFrame(int frames, const std::function<void()>& frame) {
    frame(); // warm up
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = processCpuMilliseconds();
    for (int i = 0; i < frames; ++i) {
        frame();
    }
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    const double cpu = processCpuMilliseconds() - cpuStart;
    char text[64];
    std::snprintf(text, sizeof text, "%6.1f wall %6.1f cpu", elapsed.count() / frames, cpu / frames);
    return text;
}

void writePng(RenderTarget& target, const std::filesystem::path& path) {
    std::vector<std::uint8_t> rgba;
    target.readRgba(rgba);
    const std::string png = encodePng(target.width(), target.height(), rgba);
    std::ofstream(path, std::ios::binary).write(png.data(), static_cast<std::streamsize>(png.size()));
}

AnnotationElement annotation(AnnotationKind kind) {
    AnnotationElement element =
        AnnotationElement::defaultAnnotation(kind, ProjectTime(), ProjectTime(), 0, 16.0 / 9);
    if (kind == AnnotationKind::mosaic) {
        element.bounds = RectValue{0.12, 0.2, 0.25, 0.15};
    }
    return element;
}

} // namespace

int main(int argc, char** argv) {
    RenderContext context;
    CaptionRasterizer captions;
    const std::filesystem::path resources = DeviceFrameCatalog::applicationResourceDirectory().parent_path();
    std::optional<DeviceFrameCatalog> catalog;
    try {
        catalog = DeviceFrameCatalog::load(resources);
    } catch (const LocalizedError&) {
    }
    SceneRenderer renderer(context, catalog, resources, captions);
    RenderTarget target(context, 1920, 1080);
    const SourcePicture screen(1920, 1080, false);
    const SourcePicture camera(640, 360, true);
    const VideoFramePlanes screenPlanes = screen.planes();
    const VideoFramePlanes cameraPlanes = camera.planes();

    SceneState scene;
    scene.cursor.visible = true;
    scene.cursor.outputPosition = {0.4, 0.45};
    scene.cursor.scale = 1.5;
    SceneState bare = scene;
    bare.cursor.visible = false;
    SceneState blurred = scene;
    blurred.camera = {{0.4, 0.45}, 1.8};
    blurred.motionBlurCamera = CameraState{{0.45, 0.5}, 1.6};

    const int frames = 10;
    std::vector<std::uint8_t> rgba;
    std::vector<std::uint8_t> yuv(1920 * 1080 * 3 / 2);
    std::unique_ptr<SwsContext, decltype(&sws_freeContext)> scaler(
        sws_getContext(1920, 1080, AV_PIX_FMT_RGBA, 1920, 1080, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr,
                       nullptr, nullptr),
        &sws_freeContext);
    const auto swscale = [&] {
        const std::uint8_t* source[1] = {rgba.data()};
        const int sourceStride[1] = {1920 * 4};
        std::uint8_t* planes[3] = {yuv.data(), yuv.data() + 1920 * 1080, yuv.data() + 1920 * 1080 * 5 / 4};
        const int strides[3] = {1920, 960, 960};
        sws_scale(scaler.get(), source, sourceStride, 0, 1080, planes, strides);
    };

    for (const auto& [name, state] :
         {std::pair{"bare", &bare}, std::pair{"cursor", &scene}, std::pair{"blur", &blurred}}) {
        const std::string drawOnly = millisecondsPerFrame(frames, [&] {
            renderer.encode(screenPlanes, nullptr, *state, target);
            glFinish();
        });
        const std::string rgbaRead = millisecondsPerFrame(frames, [&] {
            renderer.encode(screenPlanes, nullptr, *state, target);
            target.readRgba(rgba);
        });
        const std::string rgbaSwscale = millisecondsPerFrame(frames, [&] {
            renderer.encode(screenPlanes, nullptr, *state, target);
            target.readRgba(rgba);
            swscale();
        });
        const std::string yuvRead = millisecondsPerFrame(frames, [&] {
            renderer.encode(screenPlanes, nullptr, *state, target);
            target.readYuv420p(yuv);
        });
        const std::string yuvPipelined = millisecondsPerFrame(frames, [&] {
            renderer.encode(screenPlanes, nullptr, *state, target);
            target.startReadback(ReadbackFormat::yuv420p);
            target.mapReadback();
            target.unmap();
        });
        std::printf("%s, ms a frame:\n  draw only            %s\n  draw, RGBA read      %s\n"
                    "  draw, RGBA, swscale  %s\n  draw, YUV pass read  %s\n  draw, YUV through PBO %s\n",
                    name, drawOnly.c_str(), rgbaRead.c_str(), rgbaSwscale.c_str(), yuvRead.c_str(),
                    yuvPipelined.c_str());
    }

    if (argc < 2) {
        return 0;
    }
    const std::filesystem::path directory = argv[1];
    std::filesystem::create_directories(directory);
    renderer.encode(screenPlanes, nullptr, scene, target);
    writePng(target, directory / "plain.png");
    renderer.encode(screenPlanes, nullptr, blurred, target);
    writePng(target, directory / "blur.png");

    SceneState decorated = scene;
    decorated.canvas.preset = CanvasBackgroundPreset::aurora;
    decorated.canvas.cornerRadius = 0.03;
    decorated.clickEffect = ClickEffectState{{0.4, 0.45}, 0.35, ClickEffectStyle::ringAndPress};
    WebcamState webcam;
    webcam.visible = true;
    webcam.center = {0.86, 0.8};
    webcam.diameter = 0.22;
    webcam.aspectRatio = WebcamAspectRatio::square;
    webcam.cornerRadius = 1;
    webcam.showsBorder = true;
    webcam.showsShadow = true;
    webcam.isMirrored = true;
    decorated.webcam = webcam;
    decorated.annotations = {annotation(AnnotationKind::rectangle), annotation(AnnotationKind::circle),
                             annotation(AnnotationKind::arrow), annotation(AnnotationKind::mosaic)};
    CaptionState caption;
    caption.text = "这是一段字幕 with a caption over the annotations";
    caption.appearance = CaptionAppearance::whiteOnBlack;
    caption.bottomPosition = 0.08;
    decorated.caption = caption;
    renderer.encode(screenPlanes, &cameraPlanes, decorated, target);
    writePng(target, directory / "decorated.png");

    SceneState solid = scene;
    solid.canvas.preset = CanvasBackgroundPreset::sand;
    solid.clickEffect = ClickEffectState{{0.4, 0.45}, 0.3, ClickEffectStyle::solidPulse};
    solid.cursor.scale = 3;
    solid.webcam = webcam;
    solid.webcam->aspectRatio = WebcamAspectRatio::source;
    solid.webcam->cornerRadius = 0.3;
    solid.webcam->fullscreenProgress = 0.4;
    renderer.encode(screenPlanes, &cameraPlanes, solid, target);
    writePng(target, directory / "solid.png");

    if (catalog) {
        const SourcePicture phone(1170, 2532, false);
        SceneState framed = scene;
        framed.cursor.visible = false;
        framed.deviceFrame = DeviceFrameEdit{true, *catalog->defaultAssetID(PixelSize(1170, 2532))};
        renderer.encode(phone.planes(), nullptr, framed, target);
        writePng(target, directory / "device-portrait.png");
        const SourcePicture landscape(2532, 1170, false);
        framed.deviceFrame = DeviceFrameEdit{true, *catalog->defaultAssetID(PixelSize(2532, 1170))};
        renderer.encode(landscape.planes(), nullptr, framed, target);
        writePng(target, directory / "device-landscape.png");
    }
    return 0;
}
