#pragma once

// Envelopes made by hand: a run of 20 ms buckets of one loudness at a time.

#include "media/analysis/WaveformEnvelope.h"

#include <cmath>
#include <cstdint>

namespace rilo::testing {

inline constexpr WaveformPeak silentPeak{0, 0};
inline constexpr WaveformPeak loudPeak{-16'000, 16'000};

// A symmetric peak whose magnitude gives this loudness, rounded to the
// nearest sample value.
inline WaveformPeak peakAt(double decibels) {
    const auto magnitude = static_cast<std::int16_t>(std::lround(32767.0 * std::pow(10.0, decibels / 20.0)));
    return {static_cast<std::int16_t>(-magnitude), magnitude};
}

class EnvelopeBuilder {
public:
    EnvelopeBuilder& add(WaveformPeak peak, std::int64_t bucketCount) {
        for (std::int64_t i = 0; i < bucketCount; ++i) {
            envelope_.peaks.push_back(peak);
        }
        return *this;
    }
    // Buckets of 20 ms: milliseconds must be a multiple of 20.
    EnvelopeBuilder& silent(std::int64_t milliseconds) { return add(silentPeak, milliseconds / 20); }
    EnvelopeBuilder& loud(std::int64_t milliseconds) { return add(loudPeak, milliseconds / 20); }
    WaveformEnvelope build() const { return envelope_; }

private:
    WaveformEnvelope envelope_;
};

} // namespace rilo::testing
