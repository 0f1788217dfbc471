// What the editor's preview costs: a 10 s 1920x1080 60 fps recording played
// through ProjectPlayer into a 1920x1080 offscreen target, drawn by the same
// SceneRenderer as the export, with no sound output (the clock runs on host
// time).
//
// Prints:
// - frames drawn a second while playing (each draw is a new picture or a
//   repeat, as a display refresh would ask), and how many distinct pictures
//   the player delivered in that time;
// - the time from a seek to the frame drawn for it, for exact seeks spread
//   over the recording (median and worst).
//
// Usage: preview_bench [seconds to play]   (default 5)

#include "playback/PreviewRendering.h"
#include "playback/ProjectPlayer.h"
#include "project/store/ProjectStore.h"
#include "rendering/RenderContext.h"
#include "shared/MainRunLoop.h"
#include "support/BuildCatalog.h"
#include "support/RecordedPackage.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using namespace rilo;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

} // namespace

int main(int argc, char** argv) {
    const double playSeconds = argc > 1 ? std::stod(argv[1]) : 5.0;
    testing::TemporaryDirectory directory;
    ProjectStore store(directory.path() / "Projects", testing::buildCatalog);
    testing::RecordedPackageOptions options;
    options.movie.duration = ProjectTime::fromSeconds(10);
    options.movie.screen = {{1920, 1080}, 60, testing::MoviePicture::desktop};
    options.movie.microphone.reset();
    std::printf("writing a 10 s 1080p60 recording...\n");
    const testing::RecordedPackage recorded = testing::makeRecordedPackage(store, options);
    ProjectSnapshot snapshot = store.loadSnapshot(recorded.package);

    RenderContext context;
    CaptionRasterizer captions;
    SceneRenderer renderer(context, std::nullopt, RILO_BENCH_BUILD_DIR, captions);
    renderer.registerProjectAssets(snapshot);
    RenderTarget target(context, 1920, 1080);
    ManualRunLoop loop;
    auto player = ProjectPlayer::make(snapshot, std::nullopt, std::nullopt, {loop.poster(), nullptr});
    PreviewDrawer drawer(renderer, player->frameProvider());
    loop.runUntil([&] { return player->previewRevision() > 0; }, 10s);

    // Playing: draw as fast as the renderer allows, as a display asking for
    // every refresh would; glFinish through a one-pixel read makes each draw count.
    std::vector<std::uint8_t> pixel;
    player->play();
    std::int64_t drawn = 0;
    std::int64_t distinct = 0;
    const DecodedVideoFrame* last = nullptr;
    const Clock::time_point playStart = Clock::now();
    while (millisecondsSince(playStart) < playSeconds * 1000 && player->isPlaying()) {
        loop.runPending();
        if (const auto frame =
                drawer.draw(PreviewRenderMode::continuous(), false, target.framebufferTarget())) {
            target.readRgba(pixel);
            ++drawn;
            if (frame->screenPixelBuffer.get() != last) {
                last = frame->screenPixelBuffer.get();
                ++distinct;
            }
        }
    }
    const double playedMilliseconds = millisecondsSince(playStart);
    player->pause();
    std::printf("preview while playing: %.1f frames drawn/s, %.1f new pictures/s (1080p, %s)\n",
                drawn * 1000.0 / playedMilliseconds, distinct * 1000.0 / playedMilliseconds,
                context.isSoftwareRenderer() ? "software renderer" : "GPU");

    // Seeks: from the call to the drawn frame.
    std::vector<double> latencies;
    for (int index = 0; index < 20; ++index) {
        const ProjectTime to = ProjectTime::fromMilliseconds(250 + (index * 7919) % 9500);
        const std::uint64_t before = player->previewRevision();
        const Clock::time_point start = Clock::now();
        player->seek(to);
        loop.runUntil([&] { return player->previewRevision() != before; }, 10s);
        drawer.draw(PreviewRenderMode::onDemand(player->previewRevision()), false,
                    target.framebufferTarget());
        target.readRgba(pixel);
        latencies.push_back(millisecondsSince(start));
    }
    std::sort(latencies.begin(), latencies.end());
    std::printf("seek to frame shown: median %.1f ms, worst %.1f ms (%zu seeks)\n",
                latencies[latencies.size() / 2], latencies.back(), latencies.size());
    return 0;
}
