#pragma once

// Finds the stretches of a recording in which nothing happens, neither with
// the mouse nor on an audio track, and turns them into cut proposals. Pure
// functions over source time (0 up to the recording's duration); a missing
// envelope is passed as nullptr and counts as silence throughout.

#include "media/analysis/WaveformEnvelope.h"
#include "project/document/CaptureSamples.h"
#include "shared/ProjectTime.h"

#include <vector>

namespace rilo {

struct TimelineIdleAnalysis {
    // No mouse activity near these times; each at least the minimum duration.
    std::vector<ProjectTimeRange> idleSpans;
    // Every bucket at or below the silence threshold; each at least the minimum duration.
    std::vector<ProjectTimeRange> silenceSpans;
    // Idle and silent at once; each at least the minimum duration.
    std::vector<ProjectTimeRange> quietSpans;
    double estimatedNoiseFloorDecibels = -96.0;
    double recommendedSilenceDecibels = -55.0;

    friend bool operator==(const TimelineIdleAnalysis&, const TimelineIdleAnalysis&) = default;
};

namespace TimelineIdleAnalyzer {

// How far around a mouse sample the recording counts as active, and how
// close two active windows must be to join; what the idle command passes.
inline constexpr ProjectTime defaultActivityPadding{500'000'000};
inline constexpr ProjectTime defaultMergeGap{250'000'000};

// Every mouse sample inside the source (whatever its phase) makes the time
// within activityPadding of it active; active windows no more than mergeGap
// apart join. The spans of the result are each at least minimumDuration
// long, and a silent stretch shorter than that never makes a quiet span.
TimelineIdleAnalysis analyze(const std::vector<MouseEvent>& events, const WaveformEnvelope* envelope,
                             ProjectTime duration, ProjectTime minimumDuration, double silenceDecibels,
                             ProjectTime activityPadding, ProjectTime mergeGap);

// The quiet spans, each less its last keepTail, within the retained source
// ranges, snapped inwards to the 60 fps frame grid, joined where they touch,
// and each at least minimumRemoval long. In source time, sorted.
std::vector<ProjectTimeRange> recommendedCuts(const TimelineIdleAnalysis& analysis,
                                              const std::vector<ProjectTimeRange>& retainedRanges,
                                              ProjectTime keepTail, ProjectTime minimumRemoval);

} // namespace TimelineIdleAnalyzer

} // namespace rilo
