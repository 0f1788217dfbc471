#pragma once

// The loudness outline of one audio track: the smallest and the largest
// signed 16-bit sample of every 20 ms of the track, all channels together.
// The timeline draws it; silence, idle and caption timing are measured on it.

#include "project/document/MediaTrackKind.h"
#include "shared/ProjectTime.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace rilo {

// The length of one bucket of an envelope. Fixed: the cache format and the
// analyses count with it and never read it from an envelope.
inline constexpr ProjectTime waveformBucketDuration{20'000'000};

struct WaveformPeak {
    std::int16_t minimum = 0;
    std::int16_t maximum = 0;

    friend constexpr bool operator==(const WaveformPeak&, const WaveformPeak&) = default;
};

struct WaveformEnvelope {
    MediaTrackKind kind = MediaTrackKind::microphone;
    // Bucket i covers i × 20 ms up to (i + 1) × 20 ms of source time.
    std::vector<WaveformPeak> peaks;

    // Peak count × 20 ms.
    ProjectTime duration() const noexcept {
        return waveformBucketDuration * static_cast<std::int64_t>(peaks.size());
    }
    // The bucket that holds the time; none before 0 or after the last bucket.
    std::optional<WaveformPeak> peak(ProjectTime time) const noexcept {
        if (time.nanoseconds < 0) {
            return std::nullopt;
        }
        const auto index = static_cast<std::size_t>(time.nanoseconds / waveformBucketDuration.nanoseconds);
        if (index >= peaks.size()) {
            return std::nullopt;
        }
        return peaks[index];
    }

    friend bool operator==(const WaveformEnvelope&, const WaveformEnvelope&) = default;
};

} // namespace rilo
