#include "EnvelopeBuilders.h"
#include "media/analysis/AudioActivityAnalyzer.h"
#include "media/analysis/TimelineIdleAnalyzer.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::between;
using testing::EnvelopeBuilder;
using testing::ms;
using Ranges = std::vector<ProjectTimeRange>;

constexpr ProjectTime padding = TimelineIdleAnalyzer::defaultActivityPadding;
constexpr ProjectTime gap = TimelineIdleAnalyzer::defaultMergeGap;

MouseEvent mouseAt(ProjectTime time, std::optional<bool> insideSource = true) {
    MouseEvent event;
    event.time = time;
    event.isInsideSource = insideSource;
    return event;
}

TimelineIdleAnalysis analyze(const std::vector<MouseEvent>& events, const WaveformEnvelope* envelope,
                             ProjectTime duration, ProjectTime minimum, double silenceDecibels = -42) {
    return TimelineIdleAnalyzer::analyze(events, envelope, duration, minimum, silenceDecibels, padding, gap);
}

TEST(TimelineIdleAnalyzer, MouseSamplesInsideTheSourceMakeActivity) {
    const WaveformEnvelope loud = EnvelopeBuilder().loud(10'000).build();
    // Without samples, the whole recording is idle.
    EXPECT_EQ(analyze({}, &loud, ms(10'000), ms(1)).idleSpans, (Ranges{between(ms(0), ms(10'000))}));
    // A sample outside the source adds nothing; one from before the flag was stored counts.
    EXPECT_EQ(analyze({mouseAt(ms(5000), false)}, &loud, ms(10'000), ms(1)).idleSpans,
              (Ranges{between(ms(0), ms(10'000))}));
    EXPECT_EQ(analyze({mouseAt(ms(5000), std::nullopt)}, &loud, ms(10'000), ms(1)).idleSpans,
              (Ranges{between(ms(0), ms(4500)), between(ms(5500), ms(10'000))}));
    // Windows are clamped to the recording.
    EXPECT_EQ(analyze({mouseAt(ms(100)), mouseAt(ms(9900))}, &loud, ms(10'000), ms(1)).idleSpans,
              (Ranges{between(ms(600), ms(9400))}));
}

TEST(TimelineIdleAnalyzer, ActivityWindowsWithinTheMergeGapJoin) {
    const WaveformEnvelope loud = EnvelopeBuilder().loud(10'000).build();
    // 1,200 ms apart leaves a 200 ms gap, which merges.
    EXPECT_EQ(analyze({mouseAt(ms(1000)), mouseAt(ms(2200))}, &loud, ms(10'000), ms(100)).idleSpans,
              (Ranges{between(ms(0), ms(500)), between(ms(2700), ms(10'000))}));
    // 1,300 ms apart leaves 300 ms, an idle piece when the minimum allows it.
    EXPECT_EQ(analyze({mouseAt(ms(1000)), mouseAt(ms(2300))}, &loud, ms(10'000), ms(300)).idleSpans,
              (Ranges{between(ms(0), ms(500)), between(ms(1500), ms(1800)), between(ms(2800), ms(10'000))}));
    EXPECT_EQ(analyze({mouseAt(ms(1000)), mouseAt(ms(2300))}, &loud, ms(10'000), ms(301)).idleSpans,
              (Ranges{between(ms(0), ms(500)), between(ms(2800), ms(10'000))}));
}

TEST(TimelineIdleAnalyzer, SilenceIncludesTheThresholdAndDigitalSilence) {
    const WaveformPeak atThreshold = testing::peakAt(-40);
    const double threshold = AudioActivityAnalyzer::peakDecibels(atThreshold);
    const WaveformEnvelope envelope =
        EnvelopeBuilder().loud(1000).add(atThreshold, 100).loud(1000).silent(2000).build();
    EXPECT_EQ(analyze({}, &envelope, envelope.duration(), ms(1), threshold).silenceSpans,
              (Ranges{between(ms(1000), ms(3000)), between(ms(4000), ms(6000))}));
    // At the lowest threshold digital silence is still silent: its loudness is exactly -96.
    EXPECT_EQ(analyze({}, &envelope, envelope.duration(), ms(1), -96.0).silenceSpans,
              (Ranges{between(ms(4000), ms(6000))}));
}

TEST(TimelineIdleAnalyzer, WithoutAudioDataEverythingIsSilentButAnEmptyEnvelopeHasNoSilence) {
    const TimelineIdleAnalysis missing = analyze({mouseAt(ms(1000))}, nullptr, ms(5000), ms(1000));
    EXPECT_EQ(missing.silenceSpans, (Ranges{between(ms(0), ms(5000))}));
    EXPECT_EQ(missing.quietSpans, (Ranges{between(ms(1500), ms(5000))}));
    EXPECT_EQ(missing.estimatedNoiseFloorDecibels, -96.0);
    EXPECT_EQ(missing.recommendedSilenceDecibels, -55.0);

    const WaveformEnvelope empty;
    const TimelineIdleAnalysis analysis = analyze({}, &empty, ms(5000), ms(1000));
    EXPECT_TRUE(analysis.silenceSpans.empty());
    EXPECT_TRUE(analysis.quietSpans.empty());
    EXPECT_TRUE(
        TimelineIdleAnalyzer::recommendedCuts(analysis, {between(ms(0), ms(5000))}, ms(0), ms(17)).empty());
    EXPECT_EQ(analysis.estimatedNoiseFloorDecibels, -96.0);
    EXPECT_EQ(analysis.recommendedSilenceDecibels, -55.0);

    // A recording without duration has nothing at all.
    EXPECT_EQ(analyze({}, nullptr, ms(0), ms(1)), TimelineIdleAnalysis{});
}

TEST(TimelineIdleAnalyzer, SilenceRunsToTheEndOfARecordingLongerThanItsEnvelope) {
    const WaveformEnvelope envelope = EnvelopeBuilder().loud(2000).silent(1000).build();
    EXPECT_EQ(analyze({}, &envelope, ms(5000), ms(1)).silenceSpans, (Ranges{between(ms(2000), ms(5000))}));
    // An envelope longer than the recording is cut at its end.
    const WaveformEnvelope longer = EnvelopeBuilder().silent(1000).loud(3000).silent(1000).build();
    EXPECT_EQ(analyze({}, &longer, ms(3000), ms(1)).silenceSpans, (Ranges{between(ms(0), ms(1000))}));
}

TEST(TimelineIdleAnalyzer, QuietSpansNeedIdleAndSilenceEachLongEnoughOnTheirOwn) {
    // Idle from 1.5 s to the end; silences of 900 ms and 2 s inside it, and
    // one of 1.2 s that starts while the mouse is still active.
    const WaveformEnvelope envelope = EnvelopeBuilder()
                                          .loud(1000)
                                          .silent(1200)
                                          .loud(800)
                                          .silent(900)
                                          .loud(1100)
                                          .silent(2000)
                                          .loud(1000)
                                          .build();
    const TimelineIdleAnalysis analysis =
        analyze({mouseAt(ms(1000))}, &envelope, envelope.duration(), ms(1000));
    EXPECT_EQ(analysis.idleSpans, (Ranges{between(ms(1500), ms(8000))}));
    EXPECT_EQ(analysis.silenceSpans, (Ranges{between(ms(1000), ms(2200)), between(ms(5000), ms(7000))}));
    // The first silence overlaps the idle span by only 700 ms.
    EXPECT_EQ(analysis.quietSpans, (Ranges{between(ms(5000), ms(7000))}));
}

TEST(TimelineIdleAnalyzer, CutsKeepTheTailAndStayWithinRetainedMaterial) {
    TimelineIdleAnalysis analysis;
    analysis.quietSpans = {between(ms(1000), ms(2000)), between(ms(5000), ms(9000))};
    const Ranges whole{between(ms(0), ms(10'000))};
    // A keep tail as long as the span leaves nothing of it.
    EXPECT_EQ(TimelineIdleAnalyzer::recommendedCuts(analysis, whole, ms(1000), ms(17)),
              (Ranges{between(ms(5000), ms(8000))}));
    EXPECT_EQ(TimelineIdleAnalyzer::recommendedCuts(analysis, whole, ms(0), ms(17)),
              (Ranges{between(ms(1000), ms(2000)), between(ms(5000), ms(9000))}));
    // A span across a timeline cut gives one piece on each side, each
    // measured against the minimum removal on its own.
    const Ranges edited{between(ms(0), ms(6000)), between(ms(7000), ms(10'000))};
    EXPECT_EQ(
        TimelineIdleAnalyzer::recommendedCuts(analysis, edited, ms(500), ms(17)),
        (Ranges{between(ms(1000), ms(1500)), between(ms(5000), ms(6000)), between(ms(7000), ms(8500))}));
    EXPECT_EQ(TimelineIdleAnalyzer::recommendedCuts(analysis, edited, ms(500), ms(1001)),
              (Ranges{between(ms(7000), ms(8500))}));
    // Material that is no longer in the edit is never proposed again.
    EXPECT_TRUE(TimelineIdleAnalyzer::recommendedCuts(analysis, {between(ms(2000), ms(5000))}, ms(0), ms(17))
                    .empty());
}

TEST(TimelineIdleAnalyzer, CutsSnapInwardsToTheFrameGrid) {
    TimelineIdleAnalysis analysis;
    // From just after frame 60 to just before frame 120, and a piece within one frame.
    analysis.quietSpans = {between(ProjectTime{1'000'000'001}, ProjectTime{1'999'999'999}),
                           between(ProjectTime{3'000'000'001}, ProjectTime{3'016'666'665})};
    EXPECT_EQ(TimelineIdleAnalyzer::recommendedCuts(analysis, {between(ms(0), ms(10'000))}, ms(0), ms(17)),
              (Ranges{between(ProjectTime{1'016'666'666}, ProjectTime{1'983'333'333})}));
    // The boundary at 1/60 s falls on the truncated frame time.
    analysis.quietSpans = {between(ProjectTime{16'666'666}, ms(1000))};
    EXPECT_EQ(TimelineIdleAnalyzer::recommendedCuts(analysis, {between(ms(0), ms(10'000))}, ms(0), ms(17)),
              (Ranges{between(ProjectTime{16'666'666}, ms(1000))}));
    // Pieces that touch after snapping become one cut.
    analysis.quietSpans = {between(ms(1000), ms(1500))};
    EXPECT_EQ(TimelineIdleAnalyzer::recommendedCuts(analysis,
                                                    {between(ms(1000), ProjectTime{1'250'000'000}),
                                                     between(ProjectTime{1'250'000'000}, ms(2000))},
                                                    ms(0), ms(17)),
              (Ranges{between(ms(1000), ms(1500))}));
}

} // namespace
} // namespace rilo
