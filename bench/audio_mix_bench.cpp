// Cost of mixing the audio of a long recording for export: a ten-minute
// movie with the track layout of a recording (a small screen track, system
// audio and microphone tones), a timeline with cuts every minute and a third
// of it at 1.5x, read through CompositionAudioReader in blocks of 4096
// frames as the exporter reads it.
//
// Prints the wall time of the mix and the peak resident memory of the mix
// alone (the peak is reset after the movie is written).
//
// Usage: audio_mix_bench [minutes]   (default 10)

#include "media/CompositionAudioReader.h"
#include "media/TimelineCompositionPlan.h"
#include "support/MediaFixture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace rilo;

long residentPeakKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return -1;
}

void resetResidentPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

EditTimeline timeline(ProjectTime duration) {
    EditTimeline edited;
    const std::int64_t minutes = duration.nanoseconds / ProjectTime::fromSeconds(60).nanoseconds;
    for (std::int64_t minute = 0; minute < minutes; ++minute) {
        const ProjectTime start = ProjectTime::fromSeconds(60 * minute);
        // Ten seconds cut away at the start of every minute after the first;
        // every third minute plays at 1.5x.
        const ProjectTime kept = minute == 0 ? start : start + ProjectTime::fromSeconds(10);
        const TimelinePlaybackRate rate{minute % 3 == 2 ? 1500 : 1000};
        edited.segments.push_back({Uuid::random(),
                                   ProjectTimeRange::fromStartEnd(kept, start + ProjectTime::fromSeconds(60)),
                                   rate});
    }
    return edited;
}

} // namespace

int main(int argc, char** argv) {
    const std::int64_t minutes = argc > 1 ? std::atoll(argv[1]) : 10;
    const auto directory =
        std::filesystem::temp_directory_path() / ("audio_mix_bench." + std::to_string(getpid()));
    std::filesystem::create_directories(directory / "media");

    testing::RecordingMovieOptions options;
    options.duration = ProjectTime::fromSeconds(60 * minutes);
    options.screen.framesPerSecond = 5;
    ProjectSnapshot snapshot;
    snapshot.packageURL = directory;
    testing::writeRecordingMovie(snapshot.mediaURL(), options).applyTo(snapshot.manifest);
    snapshot.timeline = timeline(options.duration);

    resetResidentPeak();
    const long before = residentPeakKilobytes();
    const auto started = std::chrono::steady_clock::now();
    const auto plan = TimelineCompositionBuilder::build(snapshot, std::stop_token{});
    CompositionAudioReader reader(plan, snapshot.mediaURL());
    std::vector<float> block(4096 * CompositionAudioReader::channelCount);
    std::int64_t frames = 0;
    while (const std::size_t read = reader.read(block.data(), 4096)) {
        frames += static_cast<std::int64_t>(read);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    std::printf("recording %lld min, sequence %.3f s, %lld frames (expected %lld)\n",
                static_cast<long long>(minutes), plan.duration().seconds(), static_cast<long long>(frames),
                static_cast<long long>(reader.totalFrames()));
    std::printf("mix: %.2f s wall, %.0fx real time\n", seconds, plan.duration().seconds() / seconds);
    std::printf("peak resident memory: %ld kB before the mix, %ld kB during it\n", before,
                residentPeakKilobytes());
    std::filesystem::remove_all(directory);
    return frames == reader.totalFrames() ? 0 : 1;
}
