#include "media/analysis/TimelineIdleAnalyzer.h"

#include "media/analysis/AudioActivityAnalyzer.h"

#include <algorithm>

namespace rilo::TimelineIdleAnalyzer {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t gridFramesPerSecond = 60;

// A range from start to end; an end before the start gives an empty range.
ProjectTimeRange range(ProjectTime start, ProjectTime end) noexcept {
    return {start, std::max(end - start, ProjectTime::zero())};
}

std::vector<ProjectTimeRange> merge(std::vector<ProjectTimeRange> ranges, ProjectTime gap) {
    std::erase_if(ranges, [](const ProjectTimeRange& r) { return r.duration.nanoseconds < 1; });
    std::stable_sort(ranges.begin(), ranges.end(),
                     [](const ProjectTimeRange& a, const ProjectTimeRange& b) { return a.start < b.start; });
    std::vector<ProjectTimeRange> merged;
    for (const ProjectTimeRange& current : ranges) {
        if (!merged.empty() && current.start - merged.back().end() <= gap) {
            merged.back() = range(merged.back().start, std::max(merged.back().end(), current.end()));
        } else {
            merged.push_back(current);
        }
    }
    return merged;
}

std::vector<ProjectTimeRange> complement(const std::vector<ProjectTimeRange>& ranges, ProjectTime duration) {
    std::vector<ProjectTimeRange> gaps;
    ProjectTime cursor = ProjectTime::zero();
    for (const ProjectTimeRange& current : ranges) {
        if (cursor < current.start) {
            gaps.push_back(range(cursor, current.start));
        }
        cursor = std::max(cursor, current.end());
    }
    if (cursor < duration) {
        gaps.push_back(range(cursor, duration));
    }
    return gaps;
}

std::vector<ProjectTimeRange> filterMinimum(std::vector<ProjectTimeRange> ranges, ProjectTime minimum) {
    std::erase_if(ranges, [&](const ProjectTimeRange& r) { return r.duration < minimum; });
    return ranges;
}

std::vector<ProjectTimeRange> intersections(const std::vector<ProjectTimeRange>& a,
                                            const std::vector<ProjectTimeRange>& b) {
    std::vector<ProjectTimeRange> overlaps;
    for (const ProjectTimeRange& first : a) {
        for (const ProjectTimeRange& second : b) {
            const ProjectTime start = std::max(first.start, second.start);
            const ProjectTime end = std::min(first.end(), second.end());
            if (start < end) {
                overlaps.push_back(range(start, end));
            }
        }
    }
    return overlaps;
}

// A bucket exactly at the threshold is silent here (and not active for
// AudioActivityAnalyzer::activeRanges).
std::vector<ProjectTimeRange> silentRanges(const WaveformEnvelope* envelope, ProjectTime duration,
                                           double threshold) {
    if (envelope == nullptr) {
        return {range(ProjectTime::zero(), duration)};
    }
    std::vector<ProjectTimeRange> silent;
    // The start of the run being walked; negative outside a run.
    ProjectTime runStart{-1};
    for (std::size_t index = 0; index < envelope->peaks.size(); ++index) {
        const bool isSilent = AudioActivityAnalyzer::peakDecibels(envelope->peaks[index]) <= threshold;
        const ProjectTime bucketStart = waveformBucketDuration * static_cast<std::int64_t>(index);
        if (isSilent && runStart.nanoseconds < 0) {
            runStart = bucketStart;
        } else if (!isSilent && runStart.nanoseconds >= 0) {
            silent.push_back(range(runStart, std::min(bucketStart, duration)));
            runStart = ProjectTime{-1};
        }
    }
    // Beyond the envelope there is no sound: a run open at its end lasts to
    // the end of the recording.
    if (runStart.nanoseconds >= 0) {
        silent.push_back(range(runStart, duration));
    }
    std::erase_if(silent, [](const ProjectTimeRange& r) { return r.duration.nanoseconds < 1; });
    return silent;
}

ProjectTime frameTime(std::int64_t frame) noexcept {
    return ProjectTime{checkedMultiply(frame, nanosecondsPerSecond) / gridFramesPerSecond};
}

// Snaps every range inwards to the frame grid, so that a cut never falls
// between frames and never removes more than was proposed.
std::vector<ProjectTimeRange> normalizedRanges(const std::vector<ProjectTimeRange>& ranges) {
    std::vector<ProjectTimeRange> snapped;
    for (const ProjectTimeRange& current : ranges) {
        const std::int64_t s = std::max<std::int64_t>(current.start.nanoseconds, 0);
        std::int64_t startFrame = checkedMultiply(s, gridFramesPerSecond) / nanosecondsPerSecond;
        if (frameTime(startFrame) < current.start) {
            ++startFrame;
        }
        const std::int64_t e = std::max<std::int64_t>(current.end().nanoseconds, 0);
        const ProjectTime start = frameTime(startFrame);
        const ProjectTime end = frameTime(checkedMultiply(e, gridFramesPerSecond) / nanosecondsPerSecond);
        if (end > start) {
            snapped.push_back(range(start, end));
        }
    }
    return merge(std::move(snapped), ProjectTime::zero());
}

} // namespace

TimelineIdleAnalysis analyze(const std::vector<MouseEvent>& events, const WaveformEnvelope* envelope,
                             ProjectTime duration, ProjectTime minimumDuration, double silenceDecibels,
                             ProjectTime activityPadding, ProjectTime mergeGap) {
    TimelineIdleAnalysis analysis;
    if (duration.nanoseconds < 1) {
        return analysis;
    }
    std::vector<ProjectTimeRange> windows;
    for (const MouseEvent& event : events) {
        if (!event.isVisibleInsideSource()) {
            continue;
        }
        windows.push_back(range(std::max(event.time - activityPadding, ProjectTime::zero()),
                                std::min(event.time + activityPadding, duration)));
    }
    analysis.idleSpans =
        filterMinimum(complement(merge(std::move(windows), mergeGap), duration), minimumDuration);
    analysis.silenceSpans = filterMinimum(silentRanges(envelope, duration, silenceDecibels), minimumDuration);
    analysis.quietSpans =
        filterMinimum(intersections(analysis.idleSpans, analysis.silenceSpans), minimumDuration);
    analysis.estimatedNoiseFloorDecibels = AudioActivityAnalyzer::estimatedNoiseFloor(envelope);
    analysis.recommendedSilenceDecibels = AudioActivityAnalyzer::recommendedThreshold(envelope);
    return analysis;
}

std::vector<ProjectTimeRange> recommendedCuts(const TimelineIdleAnalysis& analysis,
                                              const std::vector<ProjectTimeRange>& retainedRanges,
                                              ProjectTime keepTail, ProjectTime minimumRemoval) {
    std::vector<ProjectTimeRange> shortened;
    for (const ProjectTimeRange& quiet : analysis.quietSpans) {
        // The tail stays, so that a short pause remains before activity resumes.
        shortened.push_back(range(quiet.start, std::max(quiet.end() - keepTail, quiet.start)));
    }
    return filterMinimum(normalizedRanges(intersections(shortened, retainedRanges)), minimumRemoval);
}

} // namespace rilo::TimelineIdleAnalyzer
