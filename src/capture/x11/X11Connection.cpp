#include "capture/x11/X11Connection.h"

#include <cstring>

namespace rilo::x11 {

X11Connection::X11Connection(const std::string& displayName) {
    const char* fromEnvironment = std::getenv("DISPLAY");
    displayName_ = !displayName.empty() ? displayName : (fromEnvironment != nullptr ? fromEnvironment : "");
    int screenNumber = 0;
    connection_ = xcb_connect(displayName_.empty() ? nullptr : displayName_.c_str(), &screenNumber);
    if (xcb_connection_has_error(connection_) != 0) {
        xcb_disconnect(connection_);
        throw X11CaptureError::displayUnavailable(displayName_);
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) {
        xcb_screen_next(&screens);
    }
    screen_ = screens.data;
    if (screen_ == nullptr) {
        xcb_disconnect(connection_);
        throw X11CaptureError::displayUnavailable(displayName_);
    }
}

X11Connection::~X11Connection() {
    xcb_disconnect(connection_);
}

xcb_atom_t X11Connection::atom(const char* name) const {
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
        nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::optional<std::string> X11Connection::textProperty(xcb_window_t window, xcb_atom_t property) const {
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 4096),
        nullptr));
    if (!reply || reply->format != 8 || xcb_get_property_value_length(reply.get()) <= 0) {
        return std::nullopt;
    }
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
}

} // namespace rilo::x11
