#pragma once

// Screen frames of an X11 display, area or window, read from the root window
// into shared memory at a steady rate. The X server never draws the cursor
// into what GetImage returns, so the pictures are free of it.
//
// Each picture stays in its shared memory segment until the writer has
// converted it; the stream owns as many segments as the configuration's
// queue depth, and a tick that finds none free is delivered without an image
// (a dropped frame), as is a tick missed because the machine was busy.
// A window source is read from its own off-screen picture (Composite), so
// that windows over it never show; it is followed as it moves and resizes,
// and when it goes away the stream stops with
// CaptureContentError::sourceUnavailable. Without Composite the window's
// place on the screen is read instead.

#include "capture/ScreenCaptureStream.h"
#include "capture/x11/X11CaptureContent.h"
#include "capture/x11/X11Connection.h"

#include <memory>
#include <thread>
#include <vector>

namespace rilo::x11 {

class X11ScreenCaptureStream final : public ScreenCaptureStream {
public:
    X11ScreenCaptureStream(std::shared_ptr<X11Connection> connection, CaptureSourceDescriptor source);
    ~X11ScreenCaptureStream() override;

    // Throws X11CaptureError when shared memory can't be had.
    void startCapture(const ScreenStreamConfiguration& configuration,
                      ScreenCaptureStreamOutput& output) override;
    void stopCapture() override;

private:
    class SegmentPool;
    // What one frame reads: a rectangle of a drawable, and where that lies
    // on the desktop.
    struct Grab {
        xcb_drawable_t drawable = 0;
        RectValue readRect;
        RectValue screenRect;
    };
    void run(const std::stop_token& stop, ScreenStreamConfiguration configuration,
             ScreenCaptureStreamOutput& output);
    // Nothing when a window source is gone.
    std::optional<Grab> nextGrab();
    std::optional<Grab> windowGrab();
    void releaseWindowPixmap();

    std::shared_ptr<X11Connection> connection_;
    X11CaptureContent content_;
    CaptureSourceDescriptor source_;
    std::shared_ptr<SegmentPool> segments_;
    bool readsWindowPicture_ = false;
    xcb_pixmap_t windowPixmap_ = 0;
    std::optional<Grab> windowGrab_;
    std::uint64_t lastWindowProbeNanoseconds_ = 0;
    std::jthread thread_;
};

} // namespace rilo::x11
