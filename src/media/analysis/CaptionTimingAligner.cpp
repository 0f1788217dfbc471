#include "media/analysis/CaptionTimingAligner.h"

#include "media/analysis/AudioActivityAnalyzer.h"

#include <algorithm>

namespace rilo::CaptionTimingAligner {

namespace {

// The range of one cue of source range `claimed` whose sound lies within
// `soundStart`...`soundEnd`: the lead and linger around the sound, the word
// timings kept, then grown towards 300 ms, half in front and the rest
// behind, never beyond the claimed range.
ProjectTimeRange expandedRange(ProjectTime soundStart, ProjectTime soundEnd, const CaptionCue& cue) {
    const ProjectTime claimedStart = cue.start;
    const ProjectTime claimedEnd = cue.end;
    ProjectTime start = std::max(soundStart - leadBeforeSound, claimedStart);
    ProjectTime end = std::min(soundEnd + lingerAfterSound, claimedEnd);
    if (!cue.words.empty()) {
        start = std::min(start, cue.words.front().start);
        end = std::max(end, cue.words.back().end);
    }
    const std::int64_t shortfall = minimumCueDuration.nanoseconds - (end - start).nanoseconds;
    if (shortfall >= 1) {
        const std::int64_t lead = std::min((start - claimedStart).nanoseconds, shortfall / 2);
        start = start - ProjectTime{lead};
        end = std::min(end + ProjectTime{shortfall - lead}, claimedEnd);
        if (end - start < minimumCueDuration) {
            start = std::max(end - minimumCueDuration, claimedStart);
        }
    }
    return ProjectTimeRange::fromStartEnd(start, end);
}

std::string noActivityWarning(const std::vector<std::size_t>& indices) {
    std::string listed;
    for (std::size_t i = 0; i < indices.size() && i < maximumWarnedCueIndices; ++i) {
        if (i > 0) {
            listed += ",";
        }
        listed += std::to_string(indices[i]);
    }
    if (indices.size() > maximumWarnedCueIndices) {
        listed += "…";
    }
    return "有" + std::to_string(indices.size()) + "条字幕未检测到可靠音频活动，已保留原区间（索引：" +
           listed + "）。";
}

} // namespace

CaptionTimingAlignmentResult align(const CaptionDocument& document, const WaveformEnvelope& envelope) {
    CaptionTimingAlignmentResult result;
    result.document = document;
    result.estimatedNoiseFloorDecibels = AudioActivityAnalyzer::estimatedNoiseFloor(&envelope);
    result.thresholdDecibels = AudioActivityAnalyzer::recommendedThreshold(&envelope);

    std::vector<std::size_t> silentCueIndices;
    for (std::size_t index = 0; index < result.document.cues.size(); ++index) {
        CaptionCue& cue = result.document.cues[index];
        const ProjectTimeRange claimed = ProjectTimeRange::fromStartEnd(cue.start, cue.end);
        const std::vector<ProjectTimeRange> active = AudioActivityAnalyzer::activeRanges(
            claimed, envelope, result.thresholdDecibels, activityMergeGap, minimumActivityDuration);
        if (active.empty()) {
            silentCueIndices.push_back(index);
            result.adjustments.push_back(
                {index, claimed, claimed, CaptionTimingAlignmentAction::unchangedNoActivity});
            continue;
        }
        const ProjectTimeRange adjusted = expandedRange(active.front().start, active.back().end(), cue);
        cue.start = adjusted.start;
        cue.end = adjusted.end();
        result.adjustments.push_back({index, claimed, adjusted,
                                      adjusted == claimed
                                          ? CaptionTimingAlignmentAction::unchangedAlreadyTight
                                          : CaptionTimingAlignmentAction::aligned});
    }
    if (!silentCueIndices.empty()) {
        result.warnings.push_back(noActivityWarning(silentCueIndices));
    }
    return result;
}

} // namespace rilo::CaptionTimingAligner
