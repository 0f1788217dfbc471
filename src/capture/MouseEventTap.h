#pragma once

// The platform's stream of mouse events, listened to without being taken:
// the ten kinds below, each with a time stamp on the host clock and the
// pointer's place in global points. One implementation per windowing system.
//
// Contract:
// - start() begins listening and calls the handler on the tap's own thread
//   for every event, in order; it throws MouseEventRecorderError when the
//   system won't let the program listen.
// - stop() ends listening and returns within about a second, after which the
//   handler is not called again. It may be called more than once.

#include "shared/Errors.h"
#include "shared/Geometry.h"

#include <cstdint>
#include <functional>

namespace rilo {

enum class MouseEventKind {
    leftMouseDown,
    leftMouseUp,
    rightMouseDown,
    rightMouseUp,
    mouseMoved,
    leftMouseDragged,
    rightMouseDragged,
    otherMouseDown,
    otherMouseUp,
    otherMouseDragged,
};

struct RawMouseEvent {
    MouseEventKind kind = MouseEventKind::mouseMoved;
    std::uint64_t timestampNanoseconds = 0; // host clock
    PointValue location;                    // global points
    // For a plain move: 0 left, 1 right, anything else no button.
    std::int64_t buttonNumber = 0;
};

enum class MouseEventRecorderErrorCase { eventTapUnavailable };

class MouseEventRecorderError : public CaseError<MouseEventRecorderErrorCase> {
public:
    static MouseEventRecorderError eventTapUnavailable() {
        return {Case::eventTapUnavailable, "无法创建鼠标事件监听，请确认已授予输入监听权限。"};
    }

private:
    using CaseError::CaseError;
};

class MouseEventTap {
public:
    using Handler = std::function<void(const RawMouseEvent&)>;

    virtual ~MouseEventTap() = default;
    virtual void start(Handler handler) = 0;
    virtual void stop() = 0;
};

} // namespace rilo
