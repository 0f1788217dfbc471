// A waveform cache file (cache/waveforms/<kind>.cswf) as the waveform
// service reads it (WaveformCacheFile::decode, which the path reader hands
// the file's bytes), once with the key of the media file that the seeds were
// made for and once with the key the header names, so that every input with
// a readable header reaches its peaks. A file is trusted only when it is
// exactly what the writer makes of the envelope read from it. The idle
// command then measures the recording on the cached envelope, whose length
// need not be the manifest's.

#include "FuzzSupport.h"
#include "media/analysis/TimelineIdleAnalyzer.h"
#include "media/audio/WaveformCacheFile.h"
#include "media/audio/WaveformServiceError.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

namespace {

using namespace rilo;

// The media file of the seeds: track 1 of a 3 s recording.
constexpr WaveformCacheKey seedKey{1, {48'213, 1'764'000'000'123'456'789}};
constexpr ProjectTime recordingDuration = ProjectTime::fromMilliseconds(3000);

template <class T>
T field(std::string_view bytes, std::size_t offset) noexcept {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

std::optional<WaveformCacheKey> headerKey(std::string_view bytes) noexcept {
    if (bytes.size() < WaveformCacheFile::headerSize) {
        return std::nullopt;
    }
    return WaveformCacheKey{field<std::uint16_t>(bytes, 6),
                            {field<std::uint64_t>(bytes, 8), field<std::int64_t>(bytes, 16)}};
}

MouseEvent click(std::int64_t milliseconds) {
    MouseEvent event;
    event.time = ProjectTime::fromMilliseconds(milliseconds);
    event.normalizedPoint = {0.5, 0.5};
    event.button = MouseButton::left;
    event.phase = MousePhase::down;
    return event;
}

// What `idle` does with the envelope, with its default settings.
void measureIdle(const WaveformEnvelope& envelope, ProjectTime duration) {
    static const std::vector<MouseEvent> clicks{click(500), click(2500)};
    const TimelineIdleAnalysis analysis = TimelineIdleAnalyzer::analyze(
        clicks, &envelope, duration, ProjectTime::fromMilliseconds(1500), -42,
        TimelineIdleAnalyzer::defaultActivityPadding, TimelineIdleAnalyzer::defaultMergeGap);
    const ProjectTimeRange retained{ProjectTime::zero(), duration};
    const std::vector<ProjectTimeRange> cuts = TimelineIdleAnalyzer::recommendedCuts(
        analysis, {retained}, ProjectTime::fromMilliseconds(500), ProjectTime::fromMilliseconds(150));
    for (std::size_t index = 0; index < cuts.size(); ++index) {
        if (cuts[index].start < retained.start || cuts[index].end() > retained.end() ||
            (index > 0 && cuts[index].start < cuts[index - 1].end())) {
            fuzz::finding("an idle cut lies outside the recording or out of order");
        }
    }
}

void readWith(std::string_view bytes, const WaveformCacheKey& key) {
    WaveformEnvelope envelope;
    try {
        envelope = WaveformCacheFile::decode(bytes, key, MediaTrackKind::systemAudio);
    } catch (const WaveformServiceError&) {
        return;
    }
    if (envelope.kind != MediaTrackKind::systemAudio || WaveformCacheFile::encode(key, envelope) != bytes) {
        fuzz::finding("a trusted waveform cache file is not what the writer makes of its envelope");
    }
    measureIdle(envelope, recordingDuration);
    measureIdle(envelope, envelope.duration());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::inputText(data, size);
    readWith(bytes, seedKey);
    if (const std::optional<WaveformCacheKey> key = headerKey(bytes); key && !(*key == seedKey)) {
        readWith(bytes, *key);
    }
    return 0;
}
