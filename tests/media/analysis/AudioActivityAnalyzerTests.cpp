#include "EnvelopeBuilders.h"
#include "media/analysis/AudioActivityAnalyzer.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::between;
using testing::EnvelopeBuilder;
using testing::ms;
using namespace AudioActivityAnalyzer;

TEST(AudioActivityAnalyzer, PeakDecibelsMeasureTheLargerMagnitudeWithoutOverflow) {
    EXPECT_EQ(peakDecibels({0, 0}), -96.0);
    EXPECT_GT(peakDecibels({-32768, 0}), 0.0);
    EXPECT_LT(peakDecibels({-32768, 0}), 0.001);
    EXPECT_DOUBLE_EQ(peakDecibels({-100, 32767}), 0.0);
    EXPECT_DOUBLE_EQ(peakDecibels({-3277, 10}), 20 * std::log10(3277 / 32767.0));
}

TEST(AudioActivityAnalyzer, NoiseFloorIsTheLowerQuartileAndTheThresholdStaysInItsBounds) {
    EXPECT_EQ(estimatedNoiseFloor(nullptr), -96.0);
    const WaveformEnvelope empty;
    EXPECT_EQ(estimatedNoiseFloor(&empty), -96.0);
    EXPECT_EQ(recommendedThreshold(nullptr), -55.0);
    EXPECT_EQ(recommendedThreshold(&empty), -55.0);

    // Eight buckets out of order: index 8 / 4 = 2 of the sorted loudness.
    WaveformEnvelope mixed;
    for (const std::int16_t magnitude : {900, 100, 5000, 300, 20000, 200, 7000, 30000}) {
        mixed.peaks.push_back({static_cast<std::int16_t>(-magnitude), magnitude});
    }
    EXPECT_DOUBLE_EQ(estimatedNoiseFloor(&mixed), peakDecibels({-300, 300}));
    EXPECT_DOUBLE_EQ(recommendedThreshold(&mixed), peakDecibels({-300, 300}) + 8.0);

    // A single bucket is its own quartile.
    const WaveformEnvelope one = EnvelopeBuilder().add(testing::peakAt(-50), 1).build();
    EXPECT_NEAR(estimatedNoiseFloor(&one), -50, 0.1);

    const WaveformEnvelope silent = EnvelopeBuilder().silent(1000).build();
    EXPECT_EQ(recommendedThreshold(&silent), -55.0);
    const WaveformEnvelope loud = EnvelopeBuilder().loud(1000).build();
    EXPECT_EQ(recommendedThreshold(&loud), -30.0);
}

TEST(AudioActivityAnalyzer, ActiveRangesCountOnlyBucketsStrictlyAboveTheThreshold) {
    const WaveformPeak atThreshold = testing::peakAt(-40);
    const double threshold = peakDecibels(atThreshold);
    const WaveformEnvelope envelope =
        EnvelopeBuilder().add(atThreshold, 10).loud(200).add(atThreshold, 10).build();
    EXPECT_EQ(activeRanges(between(ms(0), envelope.duration()), envelope, threshold, ms(0), ms(0)),
              (std::vector{between(ms(200), ms(400))}));
    EXPECT_TRUE(
        activeRanges(between(ms(0), envelope.duration()), envelope, threshold + 100, ms(0), ms(0)).empty());
    EXPECT_TRUE(activeRanges({ms(0), ProjectTime{0}}, envelope, threshold, ms(0), ms(0)).empty());
}

TEST(AudioActivityAnalyzer, ActiveRangesMergeCloseBurstsAndDropShortOnes) {
    // Bursts of 200 ms, 100 ms apart, then 140 ms apart, then a burst of 60 ms.
    const WaveformEnvelope envelope = EnvelopeBuilder()
                                          .loud(200)
                                          .silent(100)
                                          .loud(200)
                                          .silent(140)
                                          .loud(200)
                                          .silent(500)
                                          .loud(60)
                                          .silent(500)
                                          .build();
    const auto active = activeRanges(between(ms(0), envelope.duration()), envelope, -40, ms(120), ms(80));
    EXPECT_EQ(active, (std::vector{between(ms(0), ms(500)), between(ms(640), ms(840))}));
}

TEST(AudioActivityAnalyzer, ActiveRangesAreClippedToTheAskedRange) {
    const WaveformEnvelope envelope = EnvelopeBuilder().silent(100).loud(400).silent(100).build();
    // Starting and ending inside buckets; the run still open at the end closes there.
    EXPECT_EQ(activeRanges(between(ms(150), ms(333)), envelope, -40, ms(0), ms(0)),
              (std::vector{between(ms(150), ms(333))}));
    // A range reaching before 0 and past the envelope.
    EXPECT_EQ(activeRanges(between(ms(-50), ms(9000)), envelope, -40, ms(0), ms(0)),
              (std::vector{between(ms(100), ms(500))}));
    // Clipping happens before the minimum duration is applied.
    EXPECT_TRUE(activeRanges(between(ms(450), ms(600)), envelope, -40, ms(0), ms(80)).empty());
    EXPECT_TRUE(activeRanges(between(ms(700), ms(900)), envelope, -40, ms(0), ms(0)).empty());
}

} // namespace
} // namespace rilo
