#pragma once

// The level shown for a microphone, before and during a recording: the loudness
// of one sample buffer on a scale from 0 (-60 dBFS and quieter) to 1 (full scale).

#include "capture/CaptureSampleBuffers.h"

#include <optional>

namespace rilo::AudioLevelMeter {

// The root mean square over all samples of the buffer, in decibels relative to
// full scale, mapped from -60...0 onto 0...1. Nothing when the buffer holds
// fewer samples than it claims; 0 for silence and for samples that are not
// finite.
std::optional<double> normalizedLevel(const AudioSampleBuffer& buffer);

} // namespace rilo::AudioLevelMeter
