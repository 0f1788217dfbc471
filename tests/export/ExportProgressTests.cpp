#include "export/ExportProgress.h"

#include <cmath>
#include <gtest/gtest.h>

namespace rilo {
namespace {

TEST(ExportProgressUpdate, FractionOfEachPhase) {
    EXPECT_EQ((ExportProgressUpdate{ExportPhase::preparing, 5, 10}).fraction(), 0);
    EXPECT_DOUBLE_EQ(ExportProgressUpdate::rendering(5, 10).fraction(), 0.45);
    EXPECT_DOUBLE_EQ(ExportProgressUpdate::rendering(25, 10).fraction(), 0.9);
    EXPECT_EQ(ExportProgressUpdate::rendering(-3, 10).fraction(), 0);
    EXPECT_EQ((ExportProgressUpdate{ExportPhase::finalizing, 0, 0}).fraction(), 0.95);
    EXPECT_EQ((ExportProgressUpdate{ExportPhase::completed, 0, 0}).fraction(), 1);
}

TEST(ExportTimeEstimator, NeedsTwoSecondsOfProgress) {
    ExportTimeEstimator estimator;
    const auto rendering = [](std::int64_t frames) { return ExportProgressUpdate::rendering(frames, 1000); };
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(0), 0), std::nullopt);
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(110), 1.9), std::nullopt);
    // 200 frames in 2 s: 100 a second, 800 left.
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(200), 2), 8);
    // Frames beyond the total are clamped, and nothing is left.
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(5000), 4), 0);

    // Only rendering with a total and a sane elapsed time counts.
    EXPECT_EQ(estimator.estimatedRemainingSeconds({ExportPhase::finalizing, 1000, 1000}, 5), std::nullopt);
    EXPECT_EQ(estimator.estimatedRemainingSeconds(ExportProgressUpdate::rendering(5, 0), 5), std::nullopt);
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(300), -1), std::nullopt);
}

TEST(ExportTimeEstimator, LooksOnlyAtTheLastEightSecondsAndForgetsAStall) {
    ExportTimeEstimator estimator;
    const auto rendering = [](std::int64_t frames) {
        return ExportProgressUpdate::rendering(frames, 10'000);
    };
    // Slow at first, then 100 frames a second: only the recent rate counts.
    estimator.estimatedRemainingSeconds(rendering(10), 0);
    estimator.estimatedRemainingSeconds(rendering(20), 5);
    for (int second = 6; second <= 15; ++second) {
        estimator.estimatedRemainingSeconds(rendering(20 + (second - 5) * 100), second);
    }
    // Samples from 7 s to 15 s: 800 frames in 8 s.
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(1020), 15), (10'000.0 - 1020) / 100);
    EXPECT_EQ(estimator.samples.front().elapsedSeconds, 7);

    // A stall past the window: every sample ages out but the new one.
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(1030), 30), std::nullopt);
    EXPECT_EQ(estimator.samples.size(), 1u);
    EXPECT_EQ(estimator.estimatedRemainingSeconds(rendering(1040), 31), std::nullopt);
    const auto resumed = estimator.estimatedRemainingSeconds(rendering(1230), 32);
    ASSERT_TRUE(resumed.has_value());
    EXPECT_DOUBLE_EQ(*resumed, (10'000.0 - 1230) / 100);
}

TEST(ExportDurationFormatter, MinutesThenHours) {
    EXPECT_EQ(ExportDurationFormatter::string(0), "00:00");
    EXPECT_EQ(ExportDurationFormatter::string(754), "12:34");
    EXPECT_EQ(ExportDurationFormatter::string(3600), "1:00:00");
    EXPECT_EQ(ExportDurationFormatter::string(40 * 3600 + 61), "40:01:01");
    EXPECT_EQ(ExportDurationFormatter::string(-12), "00:00");
    EXPECT_EQ(ExportDurationFormatter::string(std::nan("")), "00:00");
}

TEST(ExportProgressLimiter, PassesTheFirstTheLastAndOneEvery50Milliseconds) {
    auto now = std::chrono::steady_clock::time_point{} + std::chrono::seconds(100);
    ExportProgressLimiter limiter([&] { return now; });
    std::vector<ExportProgressUpdate> sent;
    const auto report = [&](std::int64_t frame) {
        limiter.report(frame, 10, [&](const ExportProgressUpdate& update) { sent.push_back(update); });
    };
    report(1);
    now += std::chrono::milliseconds(49);
    report(2);
    now += std::chrono::milliseconds(1);
    report(3);
    now += std::chrono::milliseconds(10);
    report(4);
    report(10);
    report(10);
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0], ExportProgressUpdate::rendering(1, 10));
    EXPECT_EQ(sent[1], ExportProgressUpdate::rendering(3, 10));
    EXPECT_EQ(sent[2], ExportProgressUpdate::rendering(10, 10));
    EXPECT_EQ(limiter.lastUpdate(), now);
}

} // namespace
} // namespace rilo
