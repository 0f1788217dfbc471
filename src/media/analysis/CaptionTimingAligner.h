#pragma once

// Tightens the time ranges of transcribed caption cues to where the audio is
// really audible, so that a caption does not stay on screen through silence.
// A cue is only ever shortened inside the range it already claims: it leads
// its sound by 12.5 ms, lingers 150 ms after it, keeps its word timings and
// stays at least 300 ms long where its own range allows. Cues are handled one
// by one in document order, without looking at their neighbours; the caption
// document's rules apply when the result is committed.
//
// Pure: alignment cannot fail. An envelope without usable sound leaves every
// cue unchanged and says so in one warning.

#include "media/analysis/WaveformEnvelope.h"
#include "project/caption/CaptionDocument.h"
#include "shared/JsonNames.h"
#include "shared/ProjectTime.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo {

enum class CaptionTimingAlignmentAction { aligned, unchangedNoActivity, unchangedAlreadyTight };

struct CaptionTimingAdjustment {
    std::size_t cueIndex = 0;
    ProjectTimeRange originalRange;
    ProjectTimeRange adjustedRange;
    CaptionTimingAlignmentAction action = CaptionTimingAlignmentAction::aligned;

    friend bool operator==(const CaptionTimingAdjustment&, const CaptionTimingAdjustment&) = default;
};

struct CaptionTimingAlignmentResult {
    CaptionDocument document;
    double estimatedNoiseFloorDecibels = 0;
    double thresholdDecibels = 0;
    // One for every cue, in document order.
    std::vector<CaptionTimingAdjustment> adjustments;
    std::vector<std::string> warnings;
};

namespace CaptionTimingAligner {

// Sound at least this far apart counts as one stretch.
inline constexpr ProjectTime activityMergeGap = ProjectTime::fromMilliseconds(120);
// Shorter bursts do not count as sound.
inline constexpr ProjectTime minimumActivityDuration = ProjectTime::fromMilliseconds(80);
inline constexpr ProjectTime leadBeforeSound{12'500'000};
inline constexpr ProjectTime lingerAfterSound = ProjectTime::fromMilliseconds(150);
inline constexpr ProjectTime minimumCueDuration = ProjectTime::fromMilliseconds(300);
// The warning lists at most this many cue indices.
inline constexpr std::size_t maximumWarnedCueIndices = 20;

CaptionTimingAlignmentResult align(const CaptionDocument& document, const WaveformEnvelope& envelope);

} // namespace CaptionTimingAligner

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<CaptionTimingAlignmentAction> {
    static constexpr std::array<std::pair<CaptionTimingAlignmentAction, std::string_view>, 3> entries{{
        {CaptionTimingAlignmentAction::aligned, "aligned"},
        {CaptionTimingAlignmentAction::unchangedNoActivity, "unchanged-no-activity"},
        {CaptionTimingAlignmentAction::unchangedAlreadyTight, "unchanged-already-tight"},
    }};
};

} // namespace rilo::json
