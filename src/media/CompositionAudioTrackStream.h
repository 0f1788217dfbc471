#pragma once

// One audio track of a composition, played on the sequence axis: decoded
// with its own demuxer and decoder, converted to 48 kHz interleaved float
// stereo, cut to each insert's source range and stretched with its pitch
// kept to fill the insert's sequence range exactly. Used by
// CompositionAudioReader, which mixes the tracks.
//
// Where the track has no data (no insert, a late start, an early end, a
// damaged tail) it gives silence: once open, it never fails. Memory is
// bounded by the block asked for plus one decoded packet, whatever the
// length of the track. Not thread-safe; one reader drives it.

#include "media/TimelineCompositionPlan.h"

#include <cstdint>
#include <filesystem>
#include <memory>

namespace rilo {

class CompositionAudioTrackStream {
public:
    static constexpr int sampleRate = 48'000;
    static constexpr int channelCount = 2;

    // Opens the file and the track's decoder. Throws MediaProbeError when
    // the file cannot be opened or the track cannot be decoded.
    CompositionAudioTrackStream(const std::filesystem::path& mediaPath,
                                const TimelineCompositionTrack& track);
    ~CompositionAudioTrackStream();
    CompositionAudioTrackStream(CompositionAudioTrackStream&&) noexcept;
    CompositionAudioTrackStream& operator=(CompositionAudioTrackStream&&) noexcept;

    // Writes the next frameCount frames of the sequence (frameCount *
    // channelCount floats) and moves on by as much.
    void render(float* out, std::int64_t frameCount);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

namespace CompositionAudioFrames {

// The 48 kHz frame at a sequence time, rounded to the nearest frame; the
// boundaries of neighbouring inserts thus fall on the same frame.
std::int64_t frameAt(ProjectTime sequenceTime) noexcept;

} // namespace CompositionAudioFrames

} // namespace rilo
