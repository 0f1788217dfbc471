#pragma once

// The mixed audio of a whole composition, as the exporter encodes it:
// interleaved 32-bit float stereo at 48000 Hz, from the first frame of the
// sequence to its end. Every audio track of the plan is decoded on its own,
// cut and stretched (pitch kept) to its inserts, scaled by its volume and
// summed; the sum is clipped to [-1, 1]. Muted tracks are not decoded.
//
// The stream holds exactly round(duration * 48000) frames, so that audio and
// video end together: missing data is silence, and what a stretch gives
// beyond an insert is dropped. Once constructed, reading never fails for
// lack of data (a track that starts late, ends early or is damaged leaves
// silence). Memory stays bounded whatever the length: tracks are read in
// blocks, never whole.
//
// One thread drives a reader; it reads the media file only.

#include "media/CompositionAudioTrackStream.h"
#include "media/TimelineCompositionPlan.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace rilo {

class CompositionAudioReader {
public:
    static constexpr int sampleRate = CompositionAudioTrackStream::sampleRate;
    static constexpr int channelCount = CompositionAudioTrackStream::channelCount;

    // Opens every audible audio track of the plan in the media file. Throws
    // MediaProbeError when the file or a track cannot be opened.
    CompositionAudioReader(const TimelineCompositionPlan& plan, const std::filesystem::path& mediaPath);
    // The same from the sequence time `start` on, as a player resuming there
    // hears it: the first frame read is the one at `start`.
    CompositionAudioReader(const TimelineCompositionPlan& plan, const std::filesystem::path& mediaPath,
                           ProjectTime start);

    // Writes up to maxFrames frames (maxFrames * channelCount floats) and
    // returns how many; 0 at the end.
    std::size_t read(float* out, std::size_t maxFrames);

    std::int64_t totalFrames() const noexcept { return totalFrames_; }
    std::int64_t framesRead() const noexcept { return position_; }

private:
    struct AudibleTrack {
        CompositionAudioTrackStream stream;
        float volume = 1;
    };

    std::vector<AudibleTrack> tracks_;
    std::int64_t totalFrames_ = 0;
    std::int64_t position_ = 0;
    std::vector<float> trackBlock_;
};

} // namespace rilo
