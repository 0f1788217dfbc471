// Cost of an export against the floor that decoding and encoding alone set.
//
// Makes a 10 s 1080p60 sample project with three clicks (so zooms, click
// effects and motion blur), then, in one run on the same machine:
//   1. `rilo cli export` at 1080p60 and at 720p30, as real processes: wall
//      time and peak resident memory;
//   2. a plain FFmpeg transcode of the same movie to the same size, frame
//      rate, encoder, preset, bit rate and keyframe interval, with AAC audio;
//   3. the renderer's own cost per 1080p frame (decode excluded): draw plus
//      RGBA readback of the project's scenes, in this process.
//
// Usage: export_bench [seconds]   (default 10)

#include "BenchProcess.h"
#include "export/ExportConfiguration.h"
#include "media/TimelineCompositionPlan.h"
#include "media/VideoTrackDecoder.h"
#include "project/document/DeviceFrameCatalog.h"
#include "project/store/ProjectStore.h"
#include "rendering/RenderContext.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRenderer.h"
#include "rendering/caption/CaptionRasterizer.h"
#include "scene/SceneEvaluator.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace rilo;
using Clock = std::chrono::steady_clock;

struct RunFigures {
    double seconds = 0;
    long maximumResidentKilobytes = 0;
    std::string output;
};

// Runs a program that must succeed, with the data directory set; its standard
// error is discarded.
RunFigures run(const std::string& program, const std::vector<std::string>& arguments,
               const fs::path& dataHome) {
    const bench::RunFigures figures = bench::runProgram(program, arguments, dataHome, true);
    if (figures.exitCode != 0) {
        std::fprintf(stderr, "%s failed with %d\n", program.c_str(), figures.exitCode);
        std::exit(1);
    }
    return {figures.wallMilliseconds / 1000, figures.maximumResidentKilobytes, figures.output};
}

struct Comparison {
    const char* name;
    ExportConfiguration configuration;
    const char* resolutionWord;
    const char* fpsWord;
};

// The renderer alone: `frames` frames of the project's scenes at 1080p, drawn
// and read back, after a few frames of warm-up. Milliseconds a frame.
double rendererMilliseconds(const ProjectSnapshot& snapshot, const fs::path& resources, int frames) {
    RenderContext context;
    CaptionRasterizer captions;
    SceneRenderer renderer(context, DeviceFrameCatalog::load(resources), resources, captions);
    renderer.registerProjectAssets(snapshot);
    const TimelineCompositionPlan plan = TimelineCompositionBuilder::build(snapshot, {});
    VideoTrackDecoder decoder(snapshot.mediaURL(), plan.screen.source.index);
    const SceneEvaluator evaluator(snapshot);
    RenderTarget target(context, 1920, 1080);
    std::vector<std::uint8_t> pixels;
    const std::int64_t frameCount = plan.mapper.sequenceDuration().nanoseconds * 60 / 1'000'000'000;
    double total = 0;
    for (int i = -5; i < frames; ++i) {
        // Spread over the whole sequence, so that zooms and blur are included.
        const std::int64_t frame = (std::max(i, 0) * frameCount) / std::max(frames, 1);
        const auto mapped = plan.mapper.mappedTimeForSequenceTime(ProjectTime{frame * 1'000'000'000 / 60});
        const VideoFramePlanes planes = decoder.frameAt(mapped->sourceTime)->planes();
        const SceneState scene = evaluator.evaluate(mapped->sourceTime, evaluator.defaultVisualEdits());
        const auto start = Clock::now();
        renderer.encode(planes, nullptr, scene, target);
        target.readRgba(pixels);
        if (i >= 0) {
            total += std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        }
    }
    return total / frames;
}

} // namespace

int main(int argc, char** argv) {
    const long seconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 10;
    const fs::path home = fs::temp_directory_path() / ("rilo-export-bench-" + std::to_string(::getpid()));
    const fs::path build = fs::canonical("/proc/self/exe").parent_path().parent_path();
    const std::string rilo = (build / "rilo").string();
    const std::string maker = (build / "make_sample_project").string();

    const std::string id =
        run(maker, {"--seconds", std::to_string(seconds), "--fps", "60"}, home).output.substr(0, 36);
    ::setenv("XDG_DATA_HOME", home.c_str(), 1);
    const DeviceFrameCatalog catalog = DeviceFrameCatalog::load(build);
    ProjectStore store(std::nullopt, [&]() -> const DeviceFrameCatalog& { return catalog; });
    const ProjectPackage package = store.project(id);
    const ProjectSnapshot snapshot = store.loadSnapshot(package);
    std::printf("sample: %ld s of 1920x1080 at 60 fps, three clicks, %zu zooms\n", seconds,
                snapshot.timeline.zooms.size());

    const Comparison comparisons[] = {
        {"1080p60",
         {ExportResolution::p1080, ExportFrameRate::fps60, ExportQuality::standard, ExportCodec::h264},
         "1080p",
         "60"},
        {"720p30",
         {ExportResolution::p720, ExportFrameRate::fps30, ExportQuality::standard, ExportCodec::h264},
         "720p",
         "30"},
    };
    for (const Comparison& comparison : comparisons) {
        const ResolvedExportConfiguration resolved = comparison.configuration.resolved(
            snapshot.manifest.encodedPixelSize, snapshot.timeline.canvas.aspectRatio);
        const fs::path exported = home / (std::string("export-") + comparison.name + ".mp4");
        const RunFigures ours = run(rilo,
                                    {"cli", "export", id, "--res", comparison.resolutionWord, "--fps",
                                     comparison.fpsWord, "--quality", "standard", "--out", exported.string()},
                                    home);
        const std::string size =
            std::to_string(resolved.outputSize.width) + "x" + std::to_string(resolved.outputSize.height);
        const RunFigures floor = run("ffmpeg",
                                     {"-v",
                                      "error",
                                      "-y",
                                      "-i",
                                      snapshot.mediaURL().string(),
                                      "-map",
                                      "0:v:0",
                                      "-map",
                                      "0:a?",
                                      "-c:v",
                                      "libx264",
                                      "-preset",
                                      "veryfast",
                                      "-profile:v",
                                      "high",
                                      "-b:v",
                                      std::to_string(resolved.bitRate),
                                      "-g",
                                      std::to_string(resolved.framesPerSecond * 2),
                                      "-bf",
                                      "0",
                                      "-s",
                                      size,
                                      "-r",
                                      std::to_string(resolved.framesPerSecond),
                                      "-pix_fmt",
                                      "yuv420p",
                                      "-c:a",
                                      "aac",
                                      "-b:a",
                                      "192k",
                                      "-ar",
                                      "48000",
                                      "-ac",
                                      "2",
                                      (home / "transcode.mp4").string()},
                                     home);
        const double frames = static_cast<double>(seconds * resolved.framesPerSecond);
        std::printf(
            "%s (%s, %lld bit/s): export %.2f s (%.1f fps, peak %.0f MB); transcode %.2f s (%.1f fps); "
            "ratio %.2f\n",
            comparison.name, size.c_str(), static_cast<long long>(resolved.bitRate), ours.seconds,
            frames / ours.seconds, ours.maximumResidentKilobytes / 1024.0, floor.seconds,
            frames / floor.seconds, ours.seconds / floor.seconds);
    }
    std::printf("renderer alone, 1920x1080 draw + RGBA readback: %.1f ms a frame\n",
                rendererMilliseconds(snapshot, build, 120));
    std::error_code ignored;
    fs::remove_all(home, ignored);
    return 0;
}
