#pragma once

// MouseEventRecorder turns every event of the session's mouse tap into a
// MouseEvent in project time, placed against the source's current geometry.
// Events before the first frame and during a pause have no project time and
// are dropped, as are events before any geometry is known. There is no
// throttling and no coalescing: thinning happens at playback.
//
// The handler is called on the tap's thread, with no lock of the recorder
// held. Made anew for every recording.

#include "capture/GeometryTracker.h"
#include "capture/MouseEventTap.h"
#include "capture/RecordingClock.h"
#include "project/document/CaptureSamples.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace rilo {

class MouseEventRecorder {
public:
    using Handler = std::function<void(const MouseEvent&)>;

    MouseEventRecorder(std::unique_ptr<MouseEventTap> tap, const RecordingClock& clock,
                       const GeometryTracker& geometryTracker, Handler handler);
    ~MouseEventRecorder();
    MouseEventRecorder(const MouseEventRecorder&) = delete;
    MouseEventRecorder& operator=(const MouseEventRecorder&) = delete;

    // Throws MouseEventRecorderError when the tap can't be had.
    void start();
    // Harmless when repeated; no event reaches the handler afterwards.
    void stop();

    // The record of one tap event, or nothing when it is dropped.
    static std::optional<MouseEvent> record(const RawMouseEvent& event, const RecordingClock& clock,
                                            const GeometryTracker& geometryTracker);

private:
    void handle(const RawMouseEvent& event);

    std::unique_ptr<MouseEventTap> tap_;
    const RecordingClock& clock_;
    const GeometryTracker& geometryTracker_;
    Handler handler_;
    std::atomic<bool> stopping_{false};
};

} // namespace rilo
