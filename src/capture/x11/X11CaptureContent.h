#pragma once

// What can be recorded on an X11 desktop: its displays (RandR monitors, or
// the whole screen without RandR) and its top-level windows with titles and
// application names. This program's own windows are never offered, and a
// display is recorded only when none of them shows on it.
//
// On X11 one point is one pixel: every source has a pixel scale of 1.

#include "capture/CaptureContent.h"
#include "capture/ScreenCaptureStream.h"
#include "capture/x11/X11Connection.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace rilo::x11 {

class X11CaptureContent {
public:
    explicit X11CaptureContent(std::shared_ptr<X11Connection> connection);

    // Every display, the primary first.
    std::vector<CaptureSourceDescriptor> displays() const;
    // The windows that may be recorded, in stacking order from the top.
    std::vector<CaptureSourceDescriptor> windows(std::int32_t currentProcessID) const;
    // The display with that id, or the primary one. Throws CaptureContentError::sourceUnavailable.
    CaptureSourceDescriptor display(std::optional<std::uint32_t> nativeID) const;
    // The window with that id as it stands now; it must be eligible. Throws
    // CaptureContentError::sourceUnavailable.
    CaptureSourceDescriptor window(std::uint32_t windowID, std::int32_t currentProcessID) const;
    // Throws CaptureContentError::ownApplicationUnavailable when a window of
    // this process shows on the source, which an X11 capture can't leave out.
    void verifyOwnWindowsExcluded(const CaptureSourceDescriptor& source, std::int32_t currentProcessID) const;

    // A window's frame on the desktop, or nothing when it is gone or unmapped.
    std::optional<RectValue> windowFrame(std::uint32_t windowID) const;

private:
    struct WindowFacts {
        xcb_window_t window = 0;
        RectValue frame;
        bool isViewable = false;
        bool overrideRedirect = false;
        std::int32_t processID = -1;
        std::optional<std::string> title;
        std::optional<std::string> applicationName;
    };
    std::vector<xcb_window_t> topLevelWindows() const;
    std::optional<WindowFacts> facts(xcb_window_t window) const;
    std::int32_t processOf(xcb_window_t window) const;

    std::shared_ptr<X11Connection> connection_;
};

// The platform's word on a source while it is recorded.
class X11CaptureSourceMonitor final : public CaptureSourceMonitor {
public:
    X11CaptureSourceMonitor(std::shared_ptr<X11Connection> connection, CaptureSourceDescriptor source);
    std::optional<RectValue> currentWindowFrame() override;
    std::optional<DisplayState> currentDisplay() override;

private:
    X11CaptureContent content_;
    CaptureSourceDescriptor source_;
};

} // namespace rilo::x11
