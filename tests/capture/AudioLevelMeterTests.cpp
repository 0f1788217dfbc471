#include "capture/AudioLevelMeter.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <vector>

namespace rilo {
namespace {

// A 10 ms stereo buffer whose samples alternate between +amplitude and
// -amplitude: its root mean square is the amplitude.
AudioSampleBuffer squareWave(float amplitude) {
    auto samples = std::make_shared<std::vector<float>>();
    for (int frame = 0; frame < 480; ++frame) {
        const float value = frame % 2 == 0 ? amplitude : -amplitude;
        samples->insert(samples->end(), {value, value});
    }
    AudioSampleBuffer buffer;
    buffer.presentationTime = MediaTime::nanoseconds(0);
    buffer.frameCount = 480;
    buffer.samples = std::move(samples);
    return buffer;
}

TEST(AudioLevelMeterTest, MapsMinusSixtyToZeroDecibelsOntoTheUnitRange) {
    EXPECT_NEAR(*AudioLevelMeter::normalizedLevel(squareWave(0.001F)), 0.0, 1e-6);     // -60 dBFS
    EXPECT_NEAR(*AudioLevelMeter::normalizedLevel(squareWave(0.0316228F)), 0.5, 1e-6); // -30 dBFS
    EXPECT_NEAR(*AudioLevelMeter::normalizedLevel(squareWave(1.0F)), 1.0, 1e-9);       // full scale
    EXPECT_DOUBLE_EQ(*AudioLevelMeter::normalizedLevel(squareWave(0.0001F)), 0.0);     // below the floor
    EXPECT_DOUBLE_EQ(*AudioLevelMeter::normalizedLevel(squareWave(4.0F)), 1.0);        // clipped input
}

TEST(AudioLevelMeterTest, SilenceAndUnreadableSamplesShowNoLevel) {
    EXPECT_DOUBLE_EQ(*AudioLevelMeter::normalizedLevel(squareWave(0.0F)), 0.0);

    AudioSampleBuffer broken = squareWave(0.5F);
    auto samples = std::make_shared<std::vector<float>>(*broken.samples);
    (*samples)[7] = std::numeric_limits<float>::quiet_NaN();
    broken.samples = samples;
    EXPECT_DOUBLE_EQ(*AudioLevelMeter::normalizedLevel(broken), 0.0);

    AudioSampleBuffer shortOfSamples = squareWave(0.5F);
    shortOfSamples.frameCount = 481;
    EXPECT_EQ(AudioLevelMeter::normalizedLevel(shortOfSamples), std::nullopt);
}

} // namespace
} // namespace rilo
