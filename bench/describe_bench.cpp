// Cost of `rilo cli describe` on a long recording: one hour of mouse samples
// at 120 Hz (about 432,000 events, written through the chunk stores with the
// limits a recording uses) and 500 zooms in the timeline, beside a short real
// movie with the track layout of a recording (the manifest says one hour; the
// command resolves the tracks and does not decode the media).
//
// The command runs as a real process several times; the figures are its wall
// time (median and best) and its peak resident memory. Then the load steps
// run in this process, each the best of several passes, to show where the
// time goes.
//
// Usage: describe_bench [runs] [path of rilo ...] [--keep]
//   (default 7 runs and this build's rilo; with several executables, for
//   instance an older build beside this one, their runs take turns on the
//   same package, each gets its own figures, and their responses must be
//   byte for byte the same; --keep leaves the library in place for profiling
//   and prints where it is)

#include "BenchProcess.h"
#include "cli/ProjectCommandService.h"
#include "cli/ProjectInspector.h"
#include "media/TimelineTrackResolver.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/store/ChunkStore.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/MediaFixture.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace rilo;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t sampleRateHertz = 120;
constexpr std::int64_t zoomCount = 500;
const ProjectTime recordingDuration = ProjectTime::fromSeconds(3600);

// A fresh directory under the system's temporary directory, removed at the end.
class ScratchDirectory {
public:
    explicit ScratchDirectory(bool keep)
        : keep_(keep) {
        std::string pattern = (fs::temp_directory_path() / "rilo-describe-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::exit(1);
        }
        path_ = pattern;
    }
    ~ScratchDirectory() {
        if (keep_) {
            std::printf("data directory kept: %s\n", path_.c_str());
            return;
        }
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    const fs::path& path() const noexcept { return path_; }

private:
    bool keep_;
    fs::path path_;
};

// The pointer wanders over the source; a left click every 5 s.
std::vector<MouseEvent> mouseEvents(const GeometrySample& geometry) {
    std::vector<MouseEvent> events;
    const std::int64_t count = recordingDuration.nanoseconds * sampleRateHertz / 1'000'000'000;
    events.reserve(static_cast<std::size_t>(count + count / 300));
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> step(-0.004, 0.004);
    PointValue position{0.5, 0.5};
    for (std::int64_t index = 0; index < count; ++index) {
        MouseEvent event;
        event.time = ProjectTime{index * 1'000'000'000 / sampleRateHertz};
        event.rawTimestampNanoseconds = static_cast<std::uint64_t>(event.time.nanoseconds) + 9'000'000'000ULL;
        position = {std::clamp(position.x + step(random), 0.0, 1.0),
                    std::clamp(position.y + step(random), 0.0, 1.0)};
        event.normalizedPoint = position;
        event.localPoint = {position.x * geometry.globalWindowFrame.width,
                            position.y * geometry.globalWindowFrame.height};
        event.globalPoint = event.localPoint;
        event.geometryRevision = geometry.revision;
        event.isInsideSource = true;
        if (index % (5 * sampleRateHertz) == 0 && index > 0) {
            event.button = MouseButton::left;
            event.phase = MousePhase::down;
            events.push_back(event);
            event.phase = MousePhase::up;
            event.time = event.time + ProjectTime::fromMilliseconds(4);
        }
        events.push_back(event);
    }
    return events;
}

// 500 zooms of 3 s, one every 7.2 s, with constrained foci.
std::vector<ZoomSegment> zooms() {
    std::vector<ZoomSegment> result;
    const std::int64_t spacing = recordingDuration.nanoseconds / zoomCount;
    for (std::int64_t index = 0; index < zoomCount; ++index) {
        ZoomSegment zoom;
        zoom.id = Uuid::random();
        zoom.startTime = ProjectTime{index * spacing + 1'000'000'000};
        zoom.focusTime = zoom.startTime + ProjectTime::fromMilliseconds(500);
        zoom.holdEndTime = zoom.startTime + ProjectTime::fromMilliseconds(2500);
        zoom.endTime = zoom.startTime + ProjectTime::fromSeconds(3);
        zoom.scale = 1.5 + static_cast<double>(index % 5) * 0.25;
        zoom.focusPoint = TimelineEffectEngine::constrainedFocus(
            {static_cast<double>(index % 10) / 10.0, static_cast<double>(index % 7) / 7.0}, zoom.scale);
        result.push_back(zoom);
    }
    return result;
}

struct BuiltPackage {
    ProjectPackage package;
    std::size_t eventCount = 0;
    std::size_t chunkCount = 0;
    std::uintmax_t chunkBytes = 0;
};

BuiltPackage buildPackage(ProjectStore& store) {
    CaptureSourceDescriptor source;
    source.nativeID = 1;
    source.title = "Benchmark display";
    source.globalFrame = {0, 0, 1920, 1080};
    source.initialPixelSize = PixelSize(1920, 1080);
    RecordingOptions options;
    auto [package, manifest] =
        store.create(source, options, PixelSize(1920, 1080),
                     MicrophoneDeviceDescriptor{"mic", "Microphone", true}, std::nullopt);

    testing::RecordingMovieOptions movie;
    movie.duration = ProjectTime::fromSeconds(2);
    const testing::RecordingMovieLayout layout = testing::writeRecordingMovie(package.mediaURL(), movie);
    layout.applyTo(manifest);
    manifest.duration = recordingDuration;
    manifest.encodedPixelSize = PixelSize(1920, 1080);

    GeometrySample geometry;
    geometry.revision = 1;
    geometry.globalWindowFrame = source.globalFrame;
    geometry.sourceContentSize = {1920, 1080};
    geometry.encodedPixelSize = PixelSize(1920, 1080);
    geometry.contentRectInEncodedFrame = {0, 0, 1920, 1080};

    BuiltPackage built;
    const std::vector<MouseEvent> events = mouseEvents(geometry);
    {
        ChunkStore<MouseEvent> chunks(package.eventsDirectory(), recordingChunkMaximumCount,
                                      recordingChunkMaximumSpanNanoseconds,
                                      [](const MouseEvent& event) { return event.time; });
        for (const MouseEvent& event : events) {
            chunks.append(event);
        }
        chunks.flush();
    }
    {
        ChunkStore<GeometrySample> chunks(package.geometryDirectory(), recordingChunkMaximumCount,
                                          recordingChunkMaximumSpanNanoseconds,
                                          [](const GeometrySample& sample) { return sample.time; });
        chunks.append(geometry);
        chunks.flush();
    }
    built.eventCount = events.size();
    for (const fs::path& file : ChunkFiles::list(package.eventsDirectory())) {
        ++built.chunkCount;
        built.chunkBytes += fs::file_size(file);
    }

    EditTimeline timeline = EditTimeline::empty().normalized(recordingDuration, false);
    timeline.zooms = zooms();
    store.writeTimeline(timeline, package);

    manifest.metrics.mouseEvents = static_cast<std::int64_t>(events.size());
    manifest.state = ProjectState::finalizing;
    store.updateManifest(manifest, package);
    built.package = store.finish(package, manifest);
    return built;
}

using bench::RunFigures;

// Runs the command with the data directory set, its output read through a pipe.
RunFigures runCommand(const fs::path& executable, const std::vector<std::string>& arguments,
                      const fs::path& dataHome) {
    return bench::runProgram(executable.string(), arguments, dataHome);
}

// The best of a few passes, in milliseconds.
double bestMilliseconds(const std::function<void()>& work, int passes = 3) {
    double best = std::numeric_limits<double>::infinity();
    for (int pass = 0; pass < passes; ++pass) {
        const auto start = Clock::now();
        work();
        best = std::min(best, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    int runs = 7;
    std::vector<fs::path> executables;
    bool keep = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument == "--keep") {
            keep = true;
        } else if (!argument.empty() && std::all_of(argument.begin(), argument.end(), ::isdigit)) {
            runs = std::max(1, std::atoi(argument.c_str()));
        } else {
            executables.emplace_back(argument);
        }
    }
    if (executables.empty()) {
        executables.emplace_back(RILO_EXECUTABLE);
    }

    const ScratchDirectory dataHome(keep);
    const fs::path library = dataHome.path() / "Rilo" / "Projects";
    ProjectStore store(library, DeviceFrameCatalog::bundled);
    const auto buildStart = Clock::now();
    const BuiltPackage built = buildPackage(store);
    const std::string prefix = built.package.rootURL.filename().string().substr(0, 8);
    std::printf("package: %zu mouse events in %zu chunks (%.1f MB of JSON), %" PRId64
                " zooms, built in %.1f s\n",
                built.eventCount, built.chunkCount, static_cast<double>(built.chunkBytes) / 1e6, zoomCount,
                std::chrono::duration<double>(Clock::now() - buildStart).count());

    // Runs take turns between the executables, so that a change in the
    // machine's load falls on all of them alike.
    std::vector<std::vector<RunFigures>> figures(executables.size());
    for (int run = 0; run < runs; ++run) {
        for (std::size_t index = 0; index < executables.size(); ++index) {
            RunFigures result = runCommand(executables[index], {"cli", "describe", prefix}, dataHome.path());
            if (result.exitCode != 0) {
                std::fprintf(stderr, "describe with %s failed with exit code %d\n",
                             executables[index].c_str(), result.exitCode);
                return 1;
            }
            if (!figures[0].empty() && result.output != figures[0].front().output) {
                std::fprintf(stderr, "%s answered differently from %s\n", executables[index].c_str(),
                             executables[0].c_str());
                return 1;
            }
            figures[index].push_back(std::move(result));
        }
    }
    for (std::size_t index = 0; index < executables.size(); ++index) {
        std::vector<double> walls;
        long peakKilobytes = 0;
        for (const RunFigures& run : figures[index]) {
            walls.push_back(run.wallMilliseconds);
            peakKilobytes = std::max(peakKilobytes, run.maximumResidentKilobytes);
        }
        std::sort(walls.begin(), walls.end());
        std::printf("%s cli describe, %d runs: median %.1f ms, best %.1f ms, worst %.1f ms; "
                    "peak resident memory %.1f MB; response %zu bytes\n",
                    executables[index].c_str(), runs, walls[walls.size() / 2], walls.front(), walls.back(),
                    static_cast<double>(peakKilobytes) / 1024.0, figures[index].front().output.size());
    }

    // Where the time goes, in this process.
    const ProjectPackage& package = built.package;
    const ProjectManifest manifest = store.readManifest(package);
    std::size_t sink = 0;
    const double readChunks =
        bestMilliseconds([&] { sink += ChunkStore<MouseEvent>::readAll(package.eventsDirectory()).size(); });
    // The same chunks through the document decoder (nlohmann's tree, then the
    // record codecs), for comparison.
    const double generalParse = bestMilliseconds(
        [&] {
            for (const fs::path& file : ChunkFiles::list(package.eventsDirectory())) {
                sink += json::parse(readFileBytes(file)).size();
            }
        },
        1);
    const double generalDecode = bestMilliseconds(
        [&] {
            for (const fs::path& file : ChunkFiles::list(package.eventsDirectory())) {
                sink += json::decode<std::vector<MouseEvent>>(json::parse(readFileBytes(file)),
                                                              file.filename().string())
                            .size();
            }
        },
        1);
    const double snapshot = bestMilliseconds([&] { sink += store.loadSnapshot(package).mouseEvents.size(); });
    const double timelineState = bestMilliseconds(
        [&] { sink += store.readTimelineState(package, manifest.duration, false).digest.size(); });
    const double tracks = bestMilliseconds(
        [&] { sink += TimelineTrackResolver::resolve(package.mediaURL(), manifest).audioByKind.size(); });
    const ProjectSnapshot loaded = store.loadSnapshot(package);
    const double inspect =
        bestMilliseconds([&] { sink += cli::ProjectInspector::describe(loaded, "digest").zooms.size(); });
    const double encode = bestMilliseconds([&] {
        sink += json::write(json::encode(cli::ProjectInspector::describe(loaded, "digest")),
                            json::JsonStyle::commandLine)
                    .size();
    });
    std::printf(
        "in process (best of 3): snapshot %.1f ms, of which mouse chunks %.1f ms "
        "(the general decoder would take %.1f ms: JSON tree %.1f ms, codecs %.1f ms); timeline state %.1f "
        "ms; "
        "track resolution %.1f ms; description %.1f ms; description and encoding %.1f ms (checksum %zu)\n",
        snapshot, readChunks, generalDecode, generalParse, generalDecode - generalParse, timelineState,
        tracks, inspect, encode, sink);
    return 0;
}
