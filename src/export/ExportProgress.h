#pragma once

// How an export reports: the phase and frame counts, the fraction shown to
// the user, a throttle for frame reports, and an estimate of the time left.
// The exporter only reports; the caller keeps the clock and the estimator.

#include "shared/JsonNames.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo {

enum class ExportPhase { preparing, rendering, finalizing, completed };

struct ExportProgressUpdate {
    ExportPhase phase = ExportPhase::preparing;
    std::int64_t completedFrames = 0;
    std::int64_t totalFrames = 0;

    static ExportProgressUpdate rendering(std::int64_t completedFrames, std::int64_t totalFrames) noexcept {
        return {ExportPhase::rendering, completedFrames, totalFrames};
    }

    // 0 while preparing; rendering fills up to 0.9; 0.95 while finalizing; 1
    // when completed.
    double fraction() const noexcept;

    friend bool operator==(const ExportProgressUpdate&, const ExportProgressUpdate&) = default;
};

// Estimates the time left from the rate of the last 8 seconds of rendering.
struct ExportTimeEstimator {
    struct Sample {
        double elapsedSeconds = 0;
        std::int64_t completedFrames = 0;
        friend bool operator==(const Sample&, const Sample&) = default;
    };

    std::vector<Sample> samples;

    // Records the update and gives the seconds left, or none while there is
    // too little to go by: outside rendering, in the first 2 seconds, or when
    // the samples kept span less than 2 seconds or show no progress.
    std::optional<double> estimatedRemainingSeconds(const ExportProgressUpdate& update,
                                                    double elapsedSeconds);
    void reset() noexcept { samples.clear(); }

    static double elapsedSeconds(std::chrono::steady_clock::time_point from,
                                 std::chrono::steady_clock::time_point to) noexcept {
        return std::chrono::duration<double>(to - from).count();
    }
};

namespace ExportDurationFormatter {
// "mm:ss" below an hour, "h:mm:ss" from an hour on; "00:00" for a value that
// is not finite. Fractions are dropped and negative values count as zero.
std::string string(double seconds);
} // namespace ExportDurationFormatter

// Lets at most about twenty frame reports a second through, always the first
// and the last.
class ExportProgressLimiter {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    static constexpr std::chrono::milliseconds minimumInterval{50};

    ExportProgressLimiter()
        : clock_([] { return std::chrono::steady_clock::now(); }) {}
    explicit ExportProgressLimiter(Clock clock)
        : clock_(std::move(clock)) {}

    // Calls the handler with a rendering update of frame `completedFrame` of
    // `frameCount`, or drops the report.
    template <class Handler>
    void report(std::int64_t completedFrame, std::int64_t frameCount, Handler&& handler) {
        const auto now = clock_();
        if (lastUpdate_ && completedFrame != frameCount && now - *lastUpdate_ < minimumInterval) {
            return;
        }
        lastUpdate_ = now;
        std::forward<Handler>(handler)(ExportProgressUpdate::rendering(completedFrame, frameCount));
    }

    std::optional<std::chrono::steady_clock::time_point> lastUpdate() const noexcept { return lastUpdate_; }

private:
    Clock clock_;
    std::optional<std::chrono::steady_clock::time_point> lastUpdate_;
};

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<ExportPhase> {
    static constexpr std::array<std::pair<ExportPhase, std::string_view>, 4> entries{{
        {ExportPhase::preparing, "preparing"},
        {ExportPhase::rendering, "rendering"},
        {ExportPhase::finalizing, "finalizing"},
        {ExportPhase::completed, "completed"},
    }};
};

} // namespace rilo::json
