#pragma once

// Loudness measured on a waveform envelope: the noise floor of a track, the
// silence threshold it suggests, and where within a range the track is
// audible. Pure functions; a missing envelope is passed as nullptr.

#include "media/analysis/WaveformEnvelope.h"
#include "shared/ProjectTime.h"

#include <vector>

namespace rilo::AudioActivityAnalyzer {

// The quietest possible loudness: digital silence, and the floor of every value.
inline constexpr double silenceFloorDecibels = -96.0;

// The loudness of a bucket in dB relative to full scale, from the larger
// magnitude of its two samples; never below -96. The magnitude of -32768 is
// 32768, which gives a value just above 0.
double peakDecibels(const WaveformPeak& peak) noexcept;

// The lower quartile of the loudness of every bucket; -96 for a missing or
// empty envelope.
double estimatedNoiseFloor(const WaveformEnvelope* envelope);

// The noise floor plus 8 dB, kept within -55...-30.
double recommendedThreshold(const WaveformEnvelope* envelope);

// The stretches of `range` whose buckets are strictly louder than the
// threshold, with runs no more than mergeGap apart joined, clipped to the
// range, and each at least minimumDuration long.
std::vector<ProjectTimeRange> activeRanges(const ProjectTimeRange& range, const WaveformEnvelope& envelope,
                                           double thresholdDecibels, ProjectTime mergeGap,
                                           ProjectTime minimumDuration);

} // namespace rilo::AudioActivityAnalyzer
