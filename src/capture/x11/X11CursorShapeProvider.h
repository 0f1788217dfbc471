#pragma once

// The cursor image of an X11 desktop through XFixes: ARGB pixels and the hot
// spot of whatever cursor the server shows now. The PNG of the latest image
// is kept by the server's cursor serial, so an unchanged cursor costs one
// round trip and no encoding.

#include "capture/CursorShapeProvider.h"
#include "capture/x11/X11Connection.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace rilo::x11 {

class X11CursorShapeProvider final : public CursorShapeProvider {
public:
    // Throws X11CaptureError when the server lacks XFIXES.
    explicit X11CursorShapeProvider(std::shared_ptr<X11Connection> connection);
    std::optional<CapturedCursorShape> captureCurrentSystemCursor() override;

private:
    std::shared_ptr<X11Connection> connection_;
    std::optional<std::uint32_t> lastSerial_;
    std::optional<CapturedCursorShape> lastShape_;
};

} // namespace rilo::x11
