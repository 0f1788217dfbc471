#include "capture/MouseEventRecorder.h"

#include <utility>

namespace rilo {
namespace {

struct PhaseAndButton {
    MousePhase phase;
    MouseButton button;
};

PhaseAndButton phaseAndButton(const RawMouseEvent& event) noexcept {
    switch (event.kind) {
    case MouseEventKind::leftMouseDown:
        return {MousePhase::down, MouseButton::left};
    case MouseEventKind::leftMouseUp:
        return {MousePhase::up, MouseButton::left};
    case MouseEventKind::rightMouseDown:
        return {MousePhase::down, MouseButton::right};
    case MouseEventKind::rightMouseUp:
        return {MousePhase::up, MouseButton::right};
    case MouseEventKind::leftMouseDragged:
        return {MousePhase::dragged, MouseButton::left};
    case MouseEventKind::rightMouseDragged:
        return {MousePhase::dragged, MouseButton::right};
    case MouseEventKind::otherMouseDown:
        return {MousePhase::down, MouseButton::other};
    case MouseEventKind::otherMouseUp:
        return {MousePhase::up, MouseButton::other};
    case MouseEventKind::otherMouseDragged:
        return {MousePhase::dragged, MouseButton::other};
    case MouseEventKind::mouseMoved:
        break;
    }
    // A move names the button number the event carries; a plain move is
    // number 0 and so reads as left. Readers look at the phase to see
    // whether a button is held.
    const MouseButton button = event.buttonNumber == 0   ? MouseButton::left
                               : event.buttonNumber == 1 ? MouseButton::right
                                                         : MouseButton::none;
    return {MousePhase::moved, button};
}

bool contains(const RectValue& rect, PointValue point) noexcept {
    return rect.width > 0 && rect.height > 0 && point.x >= rect.x && point.x < rect.maxX() &&
           point.y >= rect.y && point.y < rect.maxY();
}

} // namespace

MouseEventRecorder::MouseEventRecorder(std::unique_ptr<MouseEventTap> tap, const RecordingClock& clock,
                                       const GeometryTracker& geometryTracker, Handler handler)
    : tap_(std::move(tap))
    , clock_(clock)
    , geometryTracker_(geometryTracker)
    , handler_(std::move(handler)) {}

MouseEventRecorder::~MouseEventRecorder() {
    stop();
}

void MouseEventRecorder::start() {
    stopping_ = false;
    tap_->start([this](const RawMouseEvent& event) { handle(event); });
}

void MouseEventRecorder::stop() {
    stopping_ = true;
    if (tap_) {
        tap_->stop();
    }
}

std::optional<MouseEvent> MouseEventRecorder::record(const RawMouseEvent& event, const RecordingClock& clock,
                                                     const GeometryTracker& geometryTracker) {
    const std::optional<ProjectTime> time = clock.projectTimeForEventTimestamp(event.timestampNanoseconds);
    if (!time) {
        return std::nullopt;
    }
    const std::optional<GeometrySample> geometry = geometryTracker.current();
    if (!geometry) {
        return std::nullopt;
    }
    const PhaseAndButton kind = phaseAndButton(event);
    MouseEvent record;
    record.rawTimestampNanoseconds = event.timestampNanoseconds;
    record.time = *time;
    record.globalPoint = event.location;
    record.localPoint = geometry->localPoint(event.location);
    record.normalizedPoint = geometry->normalizedPoint(event.location);
    record.geometryRevision = geometry->revision;
    record.button = kind.button;
    record.phase = kind.phase;
    record.isInsideSource = contains(geometry->globalWindowFrame, event.location);
    return record;
}

void MouseEventRecorder::handle(const RawMouseEvent& event) {
    if (stopping_) {
        return;
    }
    if (std::optional<MouseEvent> record = MouseEventRecorder::record(event, clock_, geometryTracker_)) {
        handler_(*record);
    }
}

} // namespace rilo
