#include "capture/x11/X11CursorShapeProvider.h"

#include "media/PngCodec.h"

#include <vector>
#include <xcb/xfixes.h>

namespace rilo::x11 {

X11CursorShapeProvider::X11CursorShapeProvider(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)) {
    xcb_connection_t* c = connection_->get();
    const Reply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        c, xcb_xfixes_query_version(c, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION), nullptr));
    if (!version || version->major_version < 1) {
        throw X11CaptureError::extensionMissing("XFIXES");
    }
}

std::optional<CapturedCursorShape> X11CursorShapeProvider::captureCurrentSystemCursor() {
    xcb_connection_t* c = connection_->get();
    const Reply<xcb_xfixes_get_cursor_image_reply_t> image(
        xcb_xfixes_get_cursor_image_reply(c, xcb_xfixes_get_cursor_image(c), nullptr));
    if (!image || image->width == 0 || image->height == 0) {
        return std::nullopt;
    }
    if (lastSerial_ == image->cursor_serial) {
        return lastShape_;
    }
    const int width = image->width;
    const int height = image->height;
    const std::uint32_t* argb = xcb_xfixes_get_cursor_image_cursor_image(image.get());
    if (xcb_xfixes_get_cursor_image_cursor_image_length(image.get()) < width * height) {
        return std::nullopt;
    }
    // The server's pixels are premultiplied ARGB; PNG wants straight RGBA.
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * height * 4);
    for (int i = 0; i < width * height; ++i) {
        const std::uint32_t pixel = argb[i];
        const std::uint32_t alpha = pixel >> 24;
        const auto straight = [alpha](std::uint32_t channel) {
            return static_cast<std::uint8_t>(
                alpha == 0 ? 0 : std::min<std::uint32_t>(255, (channel * 255 + alpha / 2) / alpha));
        };
        rgba[i * 4 + 0] = straight((pixel >> 16) & 0xff);
        rgba[i * 4 + 1] = straight((pixel >> 8) & 0xff);
        rgba[i * 4 + 2] = straight(pixel & 0xff);
        rgba[i * 4 + 3] = static_cast<std::uint8_t>(alpha);
    }
    CapturedCursorShape shape;
    try {
        shape.pngData = encodePng(width, height, rgba);
    } catch (const PngCodecError&) {
        return std::nullopt;
    }
    // One point is one pixel on X11.
    shape.logicalSize = {double(width), double(height)};
    shape.hotSpot = {double(image->xhot), double(image->yhot)};
    lastSerial_ = image->cursor_serial;
    lastShape_ = shape;
    return shape;
}

} // namespace rilo::x11
