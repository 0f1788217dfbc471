#include "ui/timeline/TimelineHitTesting.h"

#include "ui/timeline/TimelineBlockLayout.h"

#include <cmath>
#include <tuple>
#include <vector>

namespace rilo {
namespace {

enum class Edge { start, end };

struct Span {
    double startX = 0;
    double endX = 0;
};

// One element as drawn: its blocks in order, and how high it is stacked.
struct Candidate {
    Uuid id;
    std::vector<Span> spans;
    std::int64_t stacking = 0;
};

struct Pick {
    Uuid id;
    std::optional<Edge> edge;
};

Candidate candidate(const Uuid& id, ProjectTimeRange sourceRange, std::int64_t stacking,
                    const TimelineMapper& mapper, const TimelineCoordinateSpace& space) {
    Candidate result{id, {}, stacking};
    for (const ProjectTimeRange& range : mapper.projectedRanges(sourceRange)) {
        result.spans.push_back({space.xFor(range.start), space.xFor(range.end())});
    }
    return result;
}

bool contains(const Candidate& candidate, double x) {
    for (const Span& span : candidate.spans) {
        if (x >= span.startX && x < span.endX) {
            return true;
        }
    }
    return false;
}

// Whether x is within reach of the handle at one end of a span, and how far
// from the edge itself it is.
std::optional<double> reach(const Span& span, Edge edge, double x, const TimelineViewMetrics& metrics) {
    const double handle = TimelineEditableBlockLayout::handleWidth(span.endX - span.startX, metrics);
    // Positive towards the inside of the block.
    const double inward = edge == Edge::start ? x - span.startX : span.endX - x;
    if (inward < -metrics.handleHitSlop || inward > handle + metrics.handleHitSlop) {
        return std::nullopt;
    }
    return std::abs(inward);
}

std::optional<Pick> pick(const std::vector<Candidate>& candidates, double x, bool bodies,
                         const TimelineViewMetrics& metrics) {
    if (!std::isfinite(x)) {
        return std::nullopt;
    }
    // The nearest handle; at equal distance the element under the pointer,
    // then the one on top.
    std::optional<Pick> best;
    std::tuple<double, bool, std::int64_t> bestKey;
    for (const Candidate& candidate : candidates) {
        if (candidate.spans.empty()) {
            continue;
        }
        const bool under = contains(candidate, x);
        for (const auto& [span, edge] : {std::pair{candidate.spans.front(), Edge::start},
                                         std::pair{candidate.spans.back(), Edge::end}}) {
            const std::optional<double> distance = reach(span, edge, x, metrics);
            if (!distance) {
                continue;
            }
            const std::tuple key{*distance, !under, -candidate.stacking};
            if (!best || key < bestKey) {
                best = Pick{candidate.id, edge};
                bestKey = key;
            }
        }
    }
    if (best || !bodies) {
        return best;
    }
    const Candidate* top = nullptr;
    for (const Candidate& candidate : candidates) {
        if (contains(candidate, x) && (!top || candidate.stacking > top->stacking)) {
            top = &candidate;
        }
    }
    if (!top) {
        return std::nullopt;
    }
    return Pick{top->id, std::nullopt};
}

std::optional<TimelineZoomEdge> zoomEdge(std::optional<Edge> edge) {
    if (!edge) {
        return std::nullopt;
    }
    return *edge == Edge::start ? TimelineZoomEdge::start : TimelineZoomEdge::end;
}

template <typename Element>
std::vector<Candidate> spanCandidates(const std::vector<Element>& elements, const TimelineMapper& mapper,
                                      const TimelineCoordinateSpace& space) {
    std::vector<Candidate> result;
    for (const Element& element : elements) {
        if (element.endTime > element.startTime) {
            result.push_back(candidate(element.id,
                                       ProjectTimeRange::fromStartEnd(element.startTime, element.endTime), 0,
                                       mapper, space));
        }
    }
    return result;
}

} // namespace

std::optional<Uuid> TimelineEffectHit::zoomID() const noexcept {
    return kind == Kind::zoomBody || kind == Kind::zoomHandle ? std::optional(id) : std::nullopt;
}

std::optional<TimelineZoomDragPart> TimelineEffectHit::zoomDragPart() const noexcept {
    return zoomID() ? std::optional(dragPart()) : std::nullopt;
}

std::optional<Uuid> TimelineEffectHit::webcamFullscreenID() const noexcept {
    return kind == Kind::webcamFullscreenBody || kind == Kind::webcamFullscreenHandle ? std::optional(id)
                                                                                      : std::nullopt;
}

std::optional<Uuid> TimelineEffectHit::annotationID() const noexcept {
    return kind == Kind::annotationBody || kind == Kind::annotationHandle ? std::optional(id) : std::nullopt;
}

TimelineHoveredBlock TimelineHoveredBlock::of(const TimelineEffectHit& hit) noexcept {
    if (hit.zoomID()) {
        return {Kind::zoom, hit.id};
    }
    if (hit.webcamFullscreenID()) {
        return {Kind::webcamFullscreen, hit.id};
    }
    return {Kind::annotation, hit.id};
}

TimelineHoveredBlock TimelineHoveredBlock::of(const TimelineCaptionHit& hit) noexcept {
    return {Kind::caption, hit.cueID};
}

std::optional<TimelineEffectHit> TimelineHitTesting::effectHit(TimelineLane lane, double x,
                                                               const EditTimeline& timeline,
                                                               const TimelineMapper& mapper,
                                                               const TimelineCoordinateSpace& space,
                                                               const TimelineViewMetrics& metrics) {
    using Kind = TimelineEffectHit::Kind;
    std::vector<Candidate> candidates;
    Kind bodyKind = Kind::zoomBody;
    Kind handleKind = Kind::zoomHandle;
    switch (lane) {
    case TimelineLane::autoZoom:
        candidates = spanCandidates(timeline.zooms, mapper, space);
        bodyKind = Kind::zoomBody;
        handleKind = Kind::zoomHandle;
        break;
    case TimelineLane::webcamLayout:
        candidates = spanCandidates(timeline.webcamFullscreenSegments, mapper, space);
        bodyKind = Kind::webcamFullscreenBody;
        handleKind = Kind::webcamFullscreenHandle;
        break;
    case TimelineLane::annotations:
        for (const AnnotationElement& annotation : timeline.annotations) {
            if (annotation.endTime > annotation.startTime) {
                candidates.push_back(candidate(
                    annotation.id, ProjectTimeRange::fromStartEnd(annotation.startTime, annotation.endTime),
                    annotation.zIndex, mapper, space));
            }
        }
        bodyKind = Kind::annotationBody;
        handleKind = Kind::annotationHandle;
        break;
    default:
        return std::nullopt;
    }
    const std::optional<Pick> found = pick(candidates, x, true, metrics);
    if (!found) {
        return std::nullopt;
    }
    return TimelineEffectHit{found->edge ? handleKind : bodyKind, found->id, zoomEdge(found->edge)};
}

std::optional<TimelineCaptionHit> TimelineHitTesting::captionHit(double x, const CaptionDocument& captions,
                                                                 const TimelineMapper& mapper,
                                                                 const TimelineCoordinateSpace& space,
                                                                 const TimelineViewMetrics& metrics) {
    std::vector<Candidate> candidates;
    for (const CaptionCue& cue : captions.cues) {
        if (cue.end > cue.start) {
            candidates.push_back(
                candidate(cue.id, ProjectTimeRange::fromStartEnd(cue.start, cue.end), 0, mapper, space));
        }
    }
    const std::optional<Pick> found = pick(candidates, x, true, metrics);
    if (!found) {
        return std::nullopt;
    }
    if (!found->edge) {
        return TimelineCaptionHit{found->id, CaptionDragPart::body};
    }
    return TimelineCaptionHit{found->id,
                              *found->edge == Edge::start ? CaptionDragPart::start : CaptionDragPart::end};
}

std::optional<TimelineTrimHit> TimelineHitTesting::trimHit(double x, const TimelineMapper& mapper,
                                                           const TimelineCoordinateSpace& space,
                                                           const TimelineViewMetrics& metrics) {
    std::vector<Candidate> candidates;
    for (const TimelineSegmentProjection& projection : mapper.projections()) {
        candidates.push_back(
            {projection.segment.id,
             {{space.xFor(projection.sequenceRange.start), space.xFor(projection.sequenceRange.end())}},
             0});
    }
    const std::optional<Pick> found = pick(candidates, x, false, metrics);
    if (!found) {
        return std::nullopt;
    }
    return TimelineTrimHit{found->id,
                           *found->edge == Edge::start ? TimelineTrimEdge::start : TimelineTrimEdge::end};
}

} // namespace rilo
