#pragma once

// One connection to an X server, and the small helpers every X11 capture
// part shares. XCB connections may be used from several threads at once.

#include "shared/Errors.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <xcb/xcb.h>

namespace rilo::x11 {

enum class X11CaptureErrorCase { displayUnavailable, extensionMissing };

class X11CaptureError : public CaseError<X11CaptureErrorCase> {
public:
    static X11CaptureError displayUnavailable(const std::string& displayName) {
        return {Case::displayUnavailable, "无法连接显示“" + displayName + "”，请确认图形会话正在运行。"};
    }
    static X11CaptureError extensionMissing(const std::string& extension) {
        return {Case::extensionMissing, "显示服务器缺少录制所需的 " + extension + " 扩展。"};
    }

private:
    using CaseError::CaseError;
};

// A reply of XCB, freed with free().
template <class T>
struct ReplyDeleter {
    void operator()(T* reply) const noexcept { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, ReplyDeleter<T>>;

class X11Connection {
public:
    // An empty name is $DISPLAY. Throws X11CaptureError::displayUnavailable.
    explicit X11Connection(const std::string& displayName);
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    xcb_connection_t* get() const noexcept { return connection_; }
    xcb_screen_t* screen() const noexcept { return screen_; }
    xcb_window_t root() const noexcept { return screen_->root; }
    const std::string& displayName() const noexcept { return displayName_; }
    // False once the server has gone away.
    bool isAlive() const noexcept { return xcb_connection_has_error(connection_) == 0; }

    xcb_atom_t atom(const char* name) const;
    // A text property (UTF-8 or Latin-1 as stored), or nothing.
    std::optional<std::string> textProperty(xcb_window_t window, xcb_atom_t property) const;

private:
    std::string displayName_;
    xcb_connection_t* connection_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
};

} // namespace rilo::x11
