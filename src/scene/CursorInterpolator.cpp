#include "scene/CursorInterpolator.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace rilo {

namespace {

// Time gaps in nanoseconds, at least 1 so that equal times never divide by zero.
double gapNanoseconds(ProjectTime from, ProjectTime to) noexcept {
    return static_cast<double>(std::max<std::int64_t>((to - from).nanoseconds, 1));
}

double unitClamped(double value) noexcept {
    return std::clamp(value, 0.0, 1.0);
}

} // namespace

CursorInterpolator::CursorInterpolator(std::vector<MouseEvent> events)
    : samples_(std::move(events)) {
    std::stable_sort(samples_.begin(), samples_.end(),
                     [](const MouseEvent& a, const MouseEvent& b) { return a.time < b.time; });
}

std::size_t CursorInterpolator::firstIndexAfter(ProjectTime time) const noexcept {
    std::size_t lo = 0;
    std::size_t hi = samples_.size();
    while (lo < hi) {
        const std::size_t mid = (lo + hi) / 2;
        if (samples_[mid].time <= time) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return std::min(lo, samples_.size() - 1);
}

PointValue CursorInterpolator::position(ProjectTime time) const noexcept {
    const std::size_t count = samples_.size();
    if (count == 0) {
        return {0.5, 0.5};
    }
    if (count == 1 || time <= samples_.front().time) {
        return samples_.front().normalizedPoint;
    }
    if (time >= samples_.back().time) {
        return samples_.back().normalizedPoint;
    }

    const std::size_t n = firstIndexAfter(time);
    const std::size_t a = n > 0 ? n - 1 : 0;
    if (samples_[a].time == time) {
        return samples_[a].normalizedPoint;
    }
    if (samples_[n].time == time) {
        return samples_[n].normalizedPoint;
    }
    // At the start the sample before `a` is `a` itself; at the end the one
    // after `n` is `n` itself.
    const std::size_t p = n > 1 ? a - 1 : 0;
    const std::size_t q = std::min(n + 1, count - 1);

    const MouseEvent& s0 = samples_[p];
    const MouseEvent& s1 = samples_[a];
    const MouseEvent& s2 = samples_[n];
    const MouseEvent& s3 = samples_[q];

    const double d = gapNanoseconds(s1.time, s2.time);
    const double u = static_cast<double>((time - s1.time).nanoseconds) / d;
    const double inScale = d / gapNanoseconds(s0.time, s2.time);
    const double outScale = d / gapNanoseconds(s1.time, s3.time);

    const double u2 = u * u;
    const double u3 = u2 * u;
    const double h00 = 2 * u3 - 3 * u2 + 1;
    const double h10 = u3 - 2 * u2 + u;
    const double h01 = 3 * u2 - 2 * u3;
    const double h11 = u3 - u2;

    const auto axis = [&](double p0, double p1, double p2, double p3) {
        const double m1 = (p2 - p0) * inScale;
        const double m2 = (p3 - p1) * outScale;
        return unitClamped(p1 * h00 + m1 * h10 + p2 * h01 + m2 * h11);
    };
    return {axis(s0.normalizedPoint.x, s1.normalizedPoint.x, s2.normalizedPoint.x, s3.normalizedPoint.x),
            axis(s0.normalizedPoint.y, s1.normalizedPoint.y, s2.normalizedPoint.y, s3.normalizedPoint.y)};
}

bool CursorInterpolator::isVisible(ProjectTime time) const noexcept {
    if (samples_.empty()) {
        return false;
    }
    const auto after =
        std::upper_bound(samples_.begin(), samples_.end(), time,
                         [](ProjectTime t, const MouseEvent& sample) { return t < sample.time; });
    const MouseEvent& sample = after == samples_.begin() ? samples_.front() : *std::prev(after);
    return sample.isVisibleInsideSource();
}

} // namespace rilo
