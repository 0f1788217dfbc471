#include "capture/AudioLevelMeter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace rilo::AudioLevelMeter {

namespace {
constexpr double floorDecibels = -60.0;
} // namespace

std::optional<double> normalizedLevel(const AudioSampleBuffer& buffer) {
    if (buffer.samples == nullptr || buffer.frameCount < 0 || buffer.channelCount <= 0) {
        return std::nullopt;
    }
    const auto sampleCount =
        static_cast<std::size_t>(buffer.frameCount) * static_cast<std::size_t>(buffer.channelCount);
    if (buffer.samples->size() < sampleCount) {
        return std::nullopt;
    }
    double sumOfSquares = 0.0;
    for (std::size_t index = 0; index < sampleCount; ++index) {
        const double sample = (*buffer.samples)[index];
        sumOfSquares += sample * sample;
    }
    // An empty buffer divides 0 by 0: not finite, so silent.
    const double rootMeanSquare = std::sqrt(sumOfSquares / static_cast<double>(sampleCount));
    if (!std::isfinite(rootMeanSquare) || !(rootMeanSquare > 0.0)) {
        return 0.0;
    }
    const double decibels = 20.0 * std::log10(std::min(rootMeanSquare, 1.0));
    return std::clamp((decibels - floorDecibels) / -floorDecibels, 0.0, 1.0);
}

} // namespace rilo::AudioLevelMeter
