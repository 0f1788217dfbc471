// Cost of the waveform of a long recording: one hour of 48 kHz stereo AAC
// (made once with the ffmpeg program in a temporary directory), decoded into
// its envelope and cached, then read back from the cache.
//
// Prints the wall time of the first (decoding) and the cached request, and
// the peak resident memory of the requests alone (the peak is reset after
// the movie is made).
//
// Usage: waveform_bench [minutes]   (default 60)

#include "media/audio/WaveformService.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using namespace rilo;
namespace fs = std::filesystem;

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

double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char** argv) {
    const long minutes = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 60;
    const fs::path root = fs::temp_directory_path() / ("waveform_bench." + std::to_string(::getpid()));
    const fs::path package = root / "Bench.rilo";
    fs::create_directories(package / "media");
    const fs::path movie = package / "media" / "recording.mov";

    // A tone that pauses for two seconds every ten, so that the buckets differ.
    const std::string command =
        "ffmpeg -nostdin -loglevel error -f lavfi -i \"sine=frequency=440:sample_rate=48000:duration=" +
        std::to_string(minutes * 60) +
        "\" -af \"volume='if(lt(mod(t,10),8),1,0)':eval=frame\" -ac 2 -c:a aac -b:a 128k -y \"" +
        movie.string() + "\"";
    std::printf("making %ld minutes of 48 kHz stereo AAC ...\n", minutes);
    std::fflush(stdout);
    const auto makeStart = std::chrono::steady_clock::now();
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "waveform_bench: ffmpeg failed\n");
        fs::remove_all(root);
        return 1;
    }
    std::printf("movie: %.1f MB in %.1f s\n", static_cast<double>(fs::file_size(movie)) / 1e6,
                millisecondsSince(makeStart) / 1000);

    ProjectSnapshot snapshot;
    snapshot.packageURL = package;
    snapshot.manifest.duration = ProjectTime::fromSeconds(minutes * 60);
    snapshot.manifest.media.tracks = {{MediaTrackKind::systemAudio, 0}};
    const WaveformService service{std::stop_token{}};

    resetResidentPeak();
    const long baseline = residentPeakKilobytes();
    auto start = std::chrono::steady_clock::now();
    const WaveformEnvelope decoded = service.envelope(MediaTrackKind::systemAudio, snapshot);
    const double firstMilliseconds = millisecondsSince(start);
    const long firstPeak = residentPeakKilobytes();

    start = std::chrono::steady_clock::now();
    const WaveformEnvelope cached = service.envelope(MediaTrackKind::systemAudio, snapshot);
    const double cachedMilliseconds = millisecondsSince(start);
    const long cachedPeak = residentPeakKilobytes();

    const fs::path cache = WaveformService::cacheURL(package, MediaTrackKind::systemAudio);
    std::printf("buckets: %zu (cache file %.1f KB)%s\n", decoded.peaks.size(),
                static_cast<double>(fs::file_size(cache)) / 1e3, cached == decoded ? "" : "  CACHE DIFFERS");
    std::printf("first run (decode + write cache): %.0f ms\n", firstMilliseconds);
    std::printf("cached run: %.2f ms\n", cachedMilliseconds);
    std::printf(
        "peak resident memory: %.1f MB before, %.1f MB after the first run, %.1f MB after the cached run\n",
        static_cast<double>(baseline) / 1e3, static_cast<double>(firstPeak) / 1e3,
        static_cast<double>(cachedPeak) / 1e3);
    fs::remove_all(root);
    return cached == decoded ? 0 : 1;
}
