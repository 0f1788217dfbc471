#include "scene/CursorInterpolator.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace rilo {
namespace {

using testing::ms;
using testing::ns;

MouseEvent sample(ProjectTime time, PointValue point, std::optional<bool> inside = std::nullopt) {
    MouseEvent event;
    event.time = time;
    event.normalizedPoint = point;
    event.isInsideSource = inside;
    return event;
}

void expectPoint(PointValue actual, PointValue expected, const char* label) {
    EXPECT_NEAR(actual.x, expected.x, 1e-12) << label;
    EXPECT_NEAR(actual.y, expected.y, 1e-12) << label;
}

TEST(CursorInterpolatorTest, EndsAndExactSamples) {
    expectPoint(CursorInterpolator{}.position(ms(5)), {0.5, 0.5}, "no samples");
    EXPECT_FALSE(CursorInterpolator{}.isVisible(ms(5)));

    const CursorInterpolator single({sample(ms(100), {0.2, 0.3})});
    expectPoint(single.position(ms(0)), {0.2, 0.3}, "one sample, before");
    expectPoint(single.position(ms(900)), {0.2, 0.3}, "one sample, after");

    // Given out of order; the two samples at 1 s keep their input order.
    const CursorInterpolator path({sample(ms(2'000), {1, 1}), sample(ms(1'000), {0.2, 0.2}),
                                   sample(ms(0), {0, 0}), sample(ms(1'000), {0.8, 0.8})});
    expectPoint(path.position(ms(-10)), {0, 0}, "before the first");
    expectPoint(path.position(ms(0)), {0, 0}, "at the first");
    expectPoint(path.position(ms(1'000)), {0.8, 0.8}, "at a repeated time, the later sample");
    expectPoint(path.position(ms(2'000)), {1, 1}, "at the last");
    expectPoint(path.position(ms(5'000)), {1, 1}, "after the last");

    // Two samples at one time: no division by zero on either side.
    const CursorInterpolator same({sample(ms(10), {0.1, 0.1}), sample(ms(10), {0.9, 0.9})});
    expectPoint(same.position(ms(10)), {0.1, 0.1}, "same time, at it");
    expectPoint(same.position(ms(10) + ns(1)), {0.9, 0.9}, "same time, after it");
}

// With only two samples both tangents are the chord, so the spline is the
// straight line with linear timing.
TEST(CursorInterpolatorTest, TwoSamplesGiveTheStraightLine) {
    const CursorInterpolator path({sample(ms(0), {0.1, 0.9}), sample(ms(1'000), {0.9, 0.5})});
    for (const double u : {0.1, 0.25, 0.5, 0.8}) {
        const auto t = ProjectTime{static_cast<std::int64_t>(u * 1e9)};
        expectPoint(path.position(t), {0.1 + 0.8 * u, 0.9 - 0.4 * u}, "on the line");
    }
}

// Tangents are scaled by the real time gaps: between 100 ms and 400 ms the
// incoming tangent is 0.6 * 300/400 and the outgoing one 0.5 * 300/1300.
TEST(CursorInterpolatorTest, TangentsFollowTheTimeGaps) {
    const CursorInterpolator path({sample(ms(0), {0, 0.5}), sample(ms(100), {0.2, 0.5}),
                                   sample(ms(400), {0.6, 0.5}), sample(ms(1'400), {0.7, 0.5})});
    const double expected = 0.5 * 0.2 + 0.125 * 0.45 + 0.5 * 0.6 - 0.125 * (0.5 * 300.0 / 1300.0);
    EXPECT_NEAR(path.position(ms(250)).x, expected, 1e-12);
    EXPECT_EQ(path.position(ms(250)).y, 0.5);
}

TEST(CursorInterpolatorTest, OvershootIsClampedToTheFrame) {
    // A fast approach to the right edge followed by a slow stretch: the
    // spline bulges past 1 (about 1.10 at 30 % of the last gap).
    const CursorInterpolator path(
        {sample(ms(0), {0, 0}), sample(ms(10), {0.95, 0}), sample(ms(1'000), {1, 0})});
    EXPECT_EQ(path.position(ms(10) + ms(297)).x, 1.0);
    for (std::int64_t t = 0; t <= 1'000; t += 7) {
        const PointValue point = path.position(ms(t));
        EXPECT_GE(point.x, 0.0);
        EXPECT_LE(point.x, 1.0);
    }
}

// Visibility steps at the sample's time; it is never interpolated.
TEST(CursorInterpolatorTest, VisibilityStepsAtSamples) {
    const CursorInterpolator path({sample(ms(0), {0.2, 0.2}, true), sample(ms(1'000), {0.4, 0.4}, false),
                                   sample(ms(2'000), {0.6, 0.6})});
    const struct {
        ProjectTime time;
        bool visible;
    } cases[] = {{ms(-5), true},     {ms(999), true},   {ms(1'000), false},
                 {ms(1'999), false}, {ms(2'000), true}, {ms(9'000), true}};
    for (const auto& c : cases) {
        EXPECT_EQ(path.isVisible(c.time), c.visible) << c.time.nanoseconds;
    }
}

} // namespace
} // namespace rilo
