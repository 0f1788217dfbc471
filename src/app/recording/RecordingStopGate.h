#pragma once

// The one way out of a running recording: stopping, discarding and failing
// race, and only the first to ask goes through.

namespace rilo {

struct RecordingStopGate {
    bool isRequested = false;

    // True, and the gate closes, when it was open; false when it was closed already.
    bool request() noexcept {
        if (isRequested) {
            return false;
        }
        isRequested = true;
        return true;
    }
    void reset() noexcept { isRequested = false; }

    friend bool operator==(const RecordingStopGate&, const RecordingStopGate&) = default;
};

} // namespace rilo
