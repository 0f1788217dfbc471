// Caption timing alignment on envelopes made by hand: silence is digital
// silence and sound a loud tone, so the noise floor is the silence's and the
// threshold the lowest one.

#include "EnvelopeBuilders.h"
#include "media/analysis/CaptionTimingAligner.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::EnvelopeBuilder;

ProjectTime ms(std::int64_t milliseconds) {
    return ProjectTime::fromMilliseconds(milliseconds);
}

ProjectTime us(std::int64_t microseconds) {
    return ProjectTime{microseconds * 1000};
}

CaptionCue cue(ProjectTime start, ProjectTime end) {
    CaptionCue made;
    made.id = Uuid::random();
    made.start = start;
    made.end = end;
    made.text = "字幕";
    return made;
}

CaptionDocument documentOf(std::vector<CaptionCue> cues) {
    CaptionDocument document;
    document.cues = std::move(cues);
    return document;
}

ProjectTimeRange range(ProjectTime start, ProjectTime end) {
    return ProjectTimeRange::fromStartEnd(start, end);
}

TEST(CaptionTimingAligner, ALongCueShrinksToItsSoundWithLeadAndLingerAndATightOneStays) {
    // Sound from 3 s to 4 s, and again from 8 s to 8.2 s.
    const WaveformEnvelope envelope =
        EnvelopeBuilder().silent(3000).loud(1000).silent(4000).loud(200).silent(1800).build();
    const CaptionDocument document = documentOf({cue(ms(1000), ms(6000)), cue(ms(8000), ms(8200))});

    const CaptionTimingAlignmentResult result = CaptionTimingAligner::align(document, envelope);

    EXPECT_EQ(result.estimatedNoiseFloorDecibels, -96.0);
    EXPECT_EQ(result.thresholdDecibels, -55.0);
    ASSERT_EQ(result.adjustments.size(), 2u);
    // 1.1625 s: from 12.5 ms before the sound to 150 ms after it.
    const ProjectTimeRange aligned = range(us(2'987'500), ms(4150));
    EXPECT_EQ(result.adjustments[0], (CaptionTimingAdjustment{0, range(ms(1000), ms(6000)), aligned,
                                                              CaptionTimingAlignmentAction::aligned}));
    EXPECT_EQ(aligned.duration, us(1'162'500));
    // 200 ms of sound throughout cannot grow beyond its own range.
    EXPECT_EQ(result.adjustments[1],
              (CaptionTimingAdjustment{1, range(ms(8000), ms(8200)), range(ms(8000), ms(8200)),
                                       CaptionTimingAlignmentAction::unchangedAlreadyTight}));
    EXPECT_EQ(result.document.cues[0].start, aligned.start);
    EXPECT_EQ(result.document.cues[0].end, aligned.end());
    EXPECT_EQ(result.document.cues[1], document.cues[1]);
    EXPECT_EQ(result.document.cues[0].text, document.cues[0].text);
    EXPECT_TRUE(result.warnings.empty());
}

TEST(CaptionTimingAligner, ShortBurstsDoNotCountAndOnlyTheFirstAndLastStretchBound) {
    // A 60 ms burst (below 80 ms) in the first cue; in the second, two
    // bursts 140 ms apart that stay separate stretches.
    const WaveformEnvelope envelope = EnvelopeBuilder()
                                          .silent(1000)
                                          .loud(60)
                                          .silent(1940)
                                          .loud(200)
                                          .silent(140)
                                          .loud(200)
                                          .silent(2460)
                                          .build();
    const CaptionDocument document = documentOf({cue(ms(0), ms(2000)), cue(ms(2500), ms(5000))});

    const CaptionTimingAlignmentResult result = CaptionTimingAligner::align(document, envelope);

    ASSERT_EQ(result.adjustments.size(), 2u);
    EXPECT_EQ(result.adjustments[0].action, CaptionTimingAlignmentAction::unchangedNoActivity);
    EXPECT_EQ(result.adjustments[0].adjustedRange, range(ms(0), ms(2000)));
    EXPECT_EQ(result.document.cues[0], document.cues[0]);
    EXPECT_EQ(result.adjustments[1].adjustedRange, range(us(2'987'500), ms(3690)));
    EXPECT_EQ(result.warnings,
              std::vector<std::string>{"有1条字幕未检测到可靠音频活动，已保留原区间（索引：0）。"});
}

TEST(CaptionTimingAligner, WordsAndTheMinimumDurationWidenTheRangeWithinTheClaimedOne) {
    // 100 ms of sound at 2 s, 4 s and 6.1 s.
    const WaveformEnvelope envelope = EnvelopeBuilder()
                                          .silent(2000)
                                          .loud(100)
                                          .silent(1900)
                                          .loud(100)
                                          .silent(2000)
                                          .loud(100)
                                          .silent(900)
                                          .build();
    CaptionCue withWords = cue(ms(1000), ms(3000));
    withWords.words = {{ms(1500), ms(1800), "早"}, {ms(1900), ms(2100), "安"}};
    CaptionCue short1 = cue(ms(3500), ms(5000));
    // Starts with its sound: nothing to lead with, all the shortfall behind.
    CaptionCue short2 = cue(ms(6100), ms(7000));
    const CaptionTimingAlignmentResult result =
        CaptionTimingAligner::align(documentOf({withWords, short1, short2}), envelope);

    ASSERT_EQ(result.adjustments.size(), 3u);
    // The words reach before the sound and win over it.
    EXPECT_EQ(result.adjustments[0].adjustedRange, range(ms(1500), ms(2250)));
    // 262.5 ms around the sound grow by 18.75 ms on each side to 300 ms.
    EXPECT_EQ(result.adjustments[1].adjustedRange, range(us(3'968'750), us(4'268'750)));
    EXPECT_EQ(result.adjustments[2].adjustedRange, range(ms(6100), ms(6400)));
    for (const CaptionTimingAdjustment& adjustment : result.adjustments) {
        EXPECT_EQ(adjustment.action, CaptionTimingAlignmentAction::aligned);
    }
}

TEST(CaptionTimingAligner, SilenceEverywhereKeepsEveryCueAndListsTwentyIndices) {
    const WaveformEnvelope envelope = EnvelopeBuilder().silent(30'000).build();
    std::vector<CaptionCue> cues;
    for (std::int64_t i = 0; i < 25; ++i) {
        cues.push_back(cue(ms(i * 1000), ms(i * 1000 + 500)));
    }
    const CaptionDocument document = documentOf(cues);

    const CaptionTimingAlignmentResult result = CaptionTimingAligner::align(document, envelope);

    EXPECT_EQ(result.document, document);
    EXPECT_EQ(
        result.warnings,
        std::vector<std::string>{"有25条字幕未检测到可靠音频活动，已保留原区间（索引：0,1,2,3,4,5,6,7,8,9,10,"
                                 "11,12,13,14,15,16,17,18,19…）。"});
    // An empty envelope is no different.
    EXPECT_EQ(CaptionTimingAligner::align(document, WaveformEnvelope{}).warnings, result.warnings);
}

} // namespace
} // namespace rilo
