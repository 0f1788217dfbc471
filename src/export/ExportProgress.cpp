#include "export/ExportProgress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace rilo {

namespace {
// Only the last seconds of work tell the current rate.
constexpr double estimateWindowSeconds = 8;
constexpr double minimumSpanSeconds = 2;
} // namespace

double ExportProgressUpdate::fraction() const noexcept {
    switch (phase) {
    case ExportPhase::preparing:
        return 0;
    case ExportPhase::rendering: {
        if (totalFrames <= 0) {
            return 0;
        }
        const auto completed = std::clamp<std::int64_t>(completedFrames, 0, totalFrames);
        return static_cast<double>(completed) / static_cast<double>(totalFrames) * 0.9;
    }
    case ExportPhase::finalizing:
        return 0.95;
    case ExportPhase::completed:
        break;
    }
    return 1;
}

std::optional<double> ExportTimeEstimator::estimatedRemainingSeconds(const ExportProgressUpdate& update,
                                                                     double elapsedSeconds) {
    if (update.phase != ExportPhase::rendering || update.totalFrames <= 0 || !std::isfinite(elapsedSeconds) ||
        elapsedSeconds < 0) {
        return std::nullopt;
    }
    const auto completed = std::clamp<std::int64_t>(update.completedFrames, 0, update.totalFrames);
    if (samples.empty() || samples.back().completedFrames != completed) {
        samples.push_back({elapsedSeconds, completed});
    }
    std::erase_if(samples, [&](const Sample& sample) {
        return sample.elapsedSeconds < elapsedSeconds - estimateWindowSeconds;
    });
    if (elapsedSeconds < minimumSpanSeconds || samples.empty()) {
        return std::nullopt;
    }
    const double span = samples.back().elapsedSeconds - samples.front().elapsedSeconds;
    const auto frames = samples.back().completedFrames - samples.front().completedFrames;
    if (span < minimumSpanSeconds || frames <= 0) {
        return std::nullopt;
    }
    const double framesPerSecond = static_cast<double>(frames) / span;
    return std::max(static_cast<double>(update.totalFrames - completed) / framesPerSecond, 0.0);
}

std::string ExportDurationFormatter::string(double seconds) {
    if (!std::isfinite(seconds)) {
        return "00:00";
    }
    // Far beyond any export; keeps the conversion defined.
    constexpr double largest = 1e15;
    const auto t = static_cast<long long>(std::clamp(std::trunc(seconds), 0.0, largest));
    char text[48];
    if (t < 3600) {
        std::snprintf(text, sizeof text, "%02lld:%02lld", t / 60, t % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", t / 3600, t / 60 % 60, t % 60);
    }
    return text;
}

} // namespace rilo
