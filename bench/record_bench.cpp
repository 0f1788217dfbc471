// Records an X server whose whole screen changes every frame with the
// headless recorder, and prints the frames written and dropped and the
// recorder's average processor use (user and system time over wall time).
//
//   build/bench/record_bench [seconds] [fps] [width] [height] [recorder]
//
// The recorder is build/rilo-record unless another one is named, so that two
// builds can be compared in one run.

#include "BenchProcess.h"
#include "capture/x11/X11Connection.h"
#include "project/document/ProjectManifest.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"
#include "support/XvfbServer.h"

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

using namespace rilo;

// Repaints a full-screen window every frame: a background of a new colour
// and rows of small glyph-like blocks that scroll, as a page of text does.
void animate(const std::string& display, int width, int height, int framesPerSecond,
             const std::atomic<bool>& running) {
    const x11::X11Connection connection(display);
    xcb_connection_t* c = connection.get();
    const xcb_window_t window = xcb_generate_id(c);
    const std::uint32_t noManager = 1;
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, connection.root(), 0, 0,
                      static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &noManager);
    xcb_map_window(c, window);
    const xcb_gcontext_t context = xcb_generate_id(c);
    xcb_create_gc(c, context, window, 0, nullptr);
    std::vector<xcb_rectangle_t> glyphs;
    for (std::uint32_t frame = 0; running; ++frame) {
        const std::uint32_t background = 0xe0e0e0 ^ ((frame * 2654435761U) & 0x1f1f1f);
        xcb_change_gc(c, context, XCB_GC_FOREGROUND, &background);
        const xcb_rectangle_t whole{0, 0, static_cast<std::uint16_t>(width),
                                    static_cast<std::uint16_t>(height)};
        xcb_poly_fill_rectangle(c, window, context, 1, &whole);
        // Rows of blocks of varying width, two rows further down each frame.
        for (std::uint32_t shade = 0; shade < 4; ++shade) {
            glyphs.clear();
            for (int row = 0; row < height / 18; ++row) {
                const std::uint32_t line = row + frame * 2;
                for (int x = 20, i = 0; x < width - 20; ++i) {
                    const std::uint32_t seed =
                        (line * 7919U + static_cast<std::uint32_t>(i) * 104729U) * 2654435761U;
                    const int glyph = 4 + static_cast<int>((seed >> 8) % 9);
                    if ((seed >> 4) % 4 == shade && (seed >> 20) % 11 != 0) {
                        glyphs.push_back({static_cast<std::int16_t>(x),
                                          static_cast<std::int16_t>(row * 18 + 4),
                                          static_cast<std::uint16_t>(glyph), 11});
                    }
                    x += glyph + 2;
                }
            }
            const std::uint32_t ink = 0x202020 + shade * 0x301008;
            xcb_change_gc(c, context, XCB_GC_FOREGROUND, &ink);
            xcb_poly_fill_rectangle(c, window, context, static_cast<std::uint32_t>(glyphs.size()),
                                    glyphs.data());
        }
        xcb_flush(c);
        std::this_thread::sleep_for(std::chrono::microseconds(1'000'000 / framesPerSecond));
    }
}

} // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 20;
    const int framesPerSecond = argc > 2 ? std::atoi(argv[2]) : 60;
    const int width = argc > 3 ? std::atoi(argv[3]) : 1920;
    const int height = argc > 4 ? std::atoi(argv[4]) : 1080;
    const std::string recorder = argc > 5 ? argv[5] : (testing::buildDirectory() / "rilo-record").string();
    if (!testing::XvfbServer::isAvailable()) {
        std::fprintf(stderr, "record_bench needs Xvfb and xdotool\n");
        return 1;
    }
    const testing::XvfbServer desktop(width, height);
    const testing::TemporaryDirectory dataHome;
    ::setenv("DISPLAY", desktop.display().c_str(), 1);

    std::atomic<bool> running{true};
    std::thread animator([&] { animate(desktop.display(), width, height, framesPerSecond, running); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const bench::RunFigures run = bench::runProgram(
        (testing::buildDirectory() / "rilo-record").string(),
        {"--seconds", std::to_string(seconds), "--fps", std::to_string(framesPerSecond)}, dataHome.path());
    running = false;
    animator.join();
    if (run.exitCode != 0) {
        std::fprintf(stderr, "rilo-record failed with exit code %d\n", run.exitCode);
        return 1;
    }
    const json::Json answer = json::parse(run.output);
    const ProjectManifest manifest = json::decodeDocument<ProjectManifest>(
        readFileBytes(std::filesystem::path(answer["packagePath"].get<std::string>()) / "manifest.json"));
    const RecordingMetrics& metrics = manifest.metrics;
    const double wallSeconds = run.wallMilliseconds / 1000;
    std::printf("recording %dx%d at %d fps for %d s, a page of text scrolling every frame\n", width, height,
                framesPerSecond, seconds);
    std::printf("  duration          %.3f s\n", manifest.duration.seconds());
    std::printf("  frames written    %lld\n", static_cast<long long>(metrics.videoFrames));
    std::printf("  frames dropped    %lld\n", static_cast<long long>(metrics.droppedVideoFrames));
    std::printf("  processor use     %.2f cores (%.1f s of CPU over %.1f s)\n", run.cpuSeconds / wallSeconds,
                run.cpuSeconds, wallSeconds);
    std::printf("  peak memory       %.0f MB\n", static_cast<double>(run.maximumResidentKilobytes) / 1024);
    return 0;
}
