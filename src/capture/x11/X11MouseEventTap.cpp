#include "capture/x11/X11MouseEventTap.h"

#include "capture/MediaTime.h"

#include <cstring>
#include <set>
#include <xcb/record.h>

namespace rilo::x11 {
namespace {

// Core event codes and the parts of a 32-byte pointer event that matter.
constexpr std::uint8_t buttonPress = 4;
constexpr std::uint8_t buttonRelease = 5;
constexpr std::uint8_t motionNotify = 6;
constexpr std::size_t eventSize = 32;
constexpr std::int64_t serverTimeToleranceMilliseconds = 5'000;

struct PointerEvent {
    std::uint8_t type = 0;
    std::uint8_t detail = 0; // the button of a press or release
    std::uint32_t time = 0;  // server milliseconds
    std::int16_t rootX = 0;
    std::int16_t rootY = 0;
};

PointerEvent readEvent(const std::uint8_t* bytes) {
    PointerEvent event;
    event.type = static_cast<std::uint8_t>(bytes[0] & 0x7f);
    event.detail = bytes[1];
    std::memcpy(&event.time, bytes + 4, sizeof event.time);
    std::memcpy(&event.rootX, bytes + 20, sizeof event.rootX);
    std::memcpy(&event.rootY, bytes + 22, sizeof event.rootY);
    return event;
}

// Buttons 1 to 3 are left, middle and right; 4 to 7 are the wheel, which is
// not recorded; anything higher is another button.
enum class Button { left, middle, right, wheel, other };

Button buttonOf(std::uint8_t detail) {
    switch (detail) {
    case 1:
        return Button::left;
    case 2:
        return Button::middle;
    case 3:
        return Button::right;
    case 4:
    case 5:
    case 6:
    case 7:
        return Button::wheel;
    default:
        return Button::other;
    }
}

} // namespace

X11MouseEventTap::X11MouseEventTap(std::string displayName)
    : displayName_(std::move(displayName)) {}

X11MouseEventTap::~X11MouseEventTap() {
    stop();
}

std::uint64_t X11MouseEventTap::hostTimeOfServerTime(std::uint32_t serverMilliseconds,
                                                     std::uint64_t hostNowNanoseconds) {
    const auto nowMilliseconds = static_cast<std::int64_t>(hostNowNanoseconds / 1'000'000);
    // The server's 32-bit count wraps; pick the turn nearest to now.
    std::int64_t candidate = (nowMilliseconds & ~std::int64_t{0xffffffff}) | serverMilliseconds;
    if (candidate - nowMilliseconds > (std::int64_t{1} << 31)) {
        candidate -= std::int64_t{1} << 32;
    } else if (nowMilliseconds - candidate > (std::int64_t{1} << 31)) {
        candidate += std::int64_t{1} << 32;
    }
    if (candidate < 0 || std::abs(candidate - nowMilliseconds) > serverTimeToleranceMilliseconds) {
        return hostNowNanoseconds;
    }
    // A server time in the future is impossible: it rounds below us.
    return std::min(static_cast<std::uint64_t>(candidate) * 1'000'000, hostNowNanoseconds);
}

void X11MouseEventTap::start(Handler handler) {
    try {
        control_ = std::make_unique<X11Connection>(displayName_);
        data_ = std::make_unique<X11Connection>(displayName_);
    } catch (const LocalizedError&) {
        throw MouseEventRecorderError::eventTapUnavailable();
    }
    xcb_connection_t* c = control_->get();
    const xcb_query_extension_reply_t* record = xcb_get_extension_data(c, &xcb_record_id);
    if (record == nullptr || record->present == 0) {
        throw MouseEventRecorderError::eventTapUnavailable();
    }
    context_ = xcb_generate_id(c);
    xcb_record_range_t range{};
    range.device_events.first = buttonPress;
    range.device_events.last = motionNotify;
    const xcb_record_client_spec_t clients = XCB_RECORD_CS_ALL_CLIENTS;
    const Reply<xcb_generic_error_t> error(
        xcb_request_check(c, xcb_record_create_context_checked(c, context_, 0, 1, 1, &clients, &range)));
    if (error) {
        throw MouseEventRecorderError::eventTapUnavailable();
    }
    stopping_ = false;
    thread_ = std::jthread([this, handler = std::move(handler)] { run(handler); });
}

void X11MouseEventTap::run(Handler handler) {
    xcb_connection_t* c = data_->get();
    const xcb_record_enable_context_cookie_t cookie = xcb_record_enable_context(c, context_);
    std::set<Button> held;
    for (;;) {
        const Reply<xcb_record_enable_context_reply_t> reply(
            xcb_record_enable_context_reply(c, cookie, nullptr));
        if (!reply || reply->category == 5 /* end of data */) {
            return;
        }
        if (reply->category != 0 /* from the server */ || stopping_) {
            continue;
        }
        const std::uint8_t* bytes = xcb_record_enable_context_data(reply.get());
        const int length = xcb_record_enable_context_data_length(reply.get());
        const std::uint64_t now = hostUptimeNanoseconds();
        for (int offset = 0; offset + static_cast<int>(eventSize) <= length; offset += eventSize) {
            const PointerEvent event = readEvent(bytes + offset);
            RawMouseEvent raw;
            raw.timestampNanoseconds = hostTimeOfServerTime(event.time, now);
            raw.location = {double(event.rootX), double(event.rootY)};
            const Button button = buttonOf(event.detail);
            if (event.type == motionNotify) {
                raw.kind = held.contains(Button::left)    ? MouseEventKind::leftMouseDragged
                           : held.contains(Button::right) ? MouseEventKind::rightMouseDragged
                           : !held.empty()                ? MouseEventKind::otherMouseDragged
                                                          : MouseEventKind::mouseMoved;
            } else if ((event.type == buttonPress || event.type == buttonRelease) &&
                       button != Button::wheel) {
                const bool press = event.type == buttonPress;
                if (press) {
                    held.insert(button);
                } else {
                    held.erase(button);
                }
                raw.kind = button == Button::left
                               ? (press ? MouseEventKind::leftMouseDown : MouseEventKind::leftMouseUp)
                           : button == Button::right
                               ? (press ? MouseEventKind::rightMouseDown : MouseEventKind::rightMouseUp)
                               : (press ? MouseEventKind::otherMouseDown : MouseEventKind::otherMouseUp);
            } else {
                continue;
            }
            handler(raw);
        }
    }
}

void X11MouseEventTap::stop() {
    stopping_ = true;
    if (control_ && thread_.joinable()) {
        xcb_record_disable_context(control_->get(), context_);
        xcb_flush(control_->get());
        thread_.join();
    }
    if (control_) {
        xcb_record_free_context(control_->get(), context_);
        xcb_flush(control_->get());
    }
    thread_ = {};
    data_.reset();
    control_.reset();
}

} // namespace rilo::x11
