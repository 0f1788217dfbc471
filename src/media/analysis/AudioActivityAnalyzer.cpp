#include "media/analysis/AudioActivityAnalyzer.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace rilo::AudioActivityAnalyzer {

namespace {

constexpr double thresholdAboveNoiseFloorDecibels = 8.0;
constexpr double lowestRecommendedThresholdDecibels = -55.0;
constexpr double highestRecommendedThresholdDecibels = -30.0;

ProjectTime bucketStart(std::int64_t index) noexcept {
    return waveformBucketDuration * index;
}

} // namespace

double peakDecibels(const WaveformPeak& peak) noexcept {
    // In 32 bits, so that -32768 has its magnitude.
    const std::int32_t magnitude = std::max(std::abs(static_cast<std::int32_t>(peak.minimum)),
                                            std::abs(static_cast<std::int32_t>(peak.maximum)));
    if (magnitude == 0) {
        return silenceFloorDecibels;
    }
    return std::max(silenceFloorDecibels, 20.0 * std::log10(static_cast<double>(magnitude) / 32767.0));
}

double estimatedNoiseFloor(const WaveformEnvelope* envelope) {
    if (envelope == nullptr || envelope->peaks.empty()) {
        return silenceFloorDecibels;
    }
    std::vector<double> loudness;
    loudness.reserve(envelope->peaks.size());
    for (const WaveformPeak& peak : envelope->peaks) {
        loudness.push_back(peakDecibels(peak));
    }
    const std::size_t index = std::min(loudness.size() / 4, loudness.size() - 1);
    // Only the quartile's value is needed, not the whole order.
    std::nth_element(loudness.begin(), loudness.begin() + static_cast<std::ptrdiff_t>(index), loudness.end());
    return loudness[index];
}

double recommendedThreshold(const WaveformEnvelope* envelope) {
    return std::clamp(estimatedNoiseFloor(envelope) + thresholdAboveNoiseFloorDecibels,
                      lowestRecommendedThresholdDecibels, highestRecommendedThresholdDecibels);
}

std::vector<ProjectTimeRange> activeRanges(const ProjectTimeRange& range, const WaveformEnvelope& envelope,
                                           double thresholdDecibels, ProjectTime mergeGap,
                                           ProjectTime minimumDuration) {
    if (range.duration.nanoseconds < 1) {
        return {};
    }
    const std::int64_t bucketNanoseconds = waveformBucketDuration.nanoseconds;
    const auto bucketCount = static_cast<std::int64_t>(envelope.peaks.size());
    const std::int64_t firstBucket =
        range.start.nanoseconds <= -bucketNanoseconds
            ? 0
            : std::max<std::int64_t>(0, range.start.nanoseconds / bucketNanoseconds);
    const ProjectTime clippedEnd = std::min(bucketStart(bucketCount), range.end());
    // Rounding up: a bucket that the range only begins still counts.
    const std::int64_t endBuckets =
        clippedEnd.nanoseconds <= 0
            ? 0
            : checkedAdd(clippedEnd.nanoseconds, bucketNanoseconds - 1) / bucketNanoseconds;
    const std::int64_t lastBucket = std::min(bucketCount, endBuckets);
    if (firstBucket >= lastBucket) {
        return {};
    }

    std::vector<ProjectTimeRange> runs;
    // The first bucket of the run being walked; -1 outside a run.
    std::int64_t runStart = -1;
    for (std::int64_t index = firstBucket; index < lastBucket; ++index) {
        const bool active = thresholdDecibels < peakDecibels(envelope.peaks[static_cast<std::size_t>(index)]);
        if (active && runStart < 0) {
            runStart = index;
        } else if (!active && runStart >= 0) {
            runs.push_back(ProjectTimeRange::fromStartEnd(bucketStart(runStart), bucketStart(index)));
            runStart = -1;
        }
    }
    if (runStart >= 0) {
        runs.push_back(ProjectTimeRange::fromStartEnd(bucketStart(runStart), clippedEnd));
    }

    std::vector<ProjectTimeRange> merged;
    for (const ProjectTimeRange& run : runs) {
        if (!merged.empty() && run.start - merged.back().end() <= mergeGap) {
            merged.back() = ProjectTimeRange::fromStartEnd(merged.back().start, run.end());
        } else {
            merged.push_back(run);
        }
    }

    std::vector<ProjectTimeRange> result;
    for (const ProjectTimeRange& candidate : merged) {
        const ProjectTime start = std::max(candidate.start, range.start);
        const ProjectTime end = std::min(candidate.end(), range.end());
        if (start >= end || end - start < minimumDuration) {
            continue;
        }
        result.push_back(ProjectTimeRange::fromStartEnd(start, end));
    }
    return result;
}

} // namespace rilo::AudioActivityAnalyzer
