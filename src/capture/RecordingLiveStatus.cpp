#include "capture/RecordingLiveStatus.h"

namespace rilo {

RecordingLiveStatus RecordingLiveStatus::initial(const RecordingOptions& options) noexcept {
    RecordingLiveStatus status;
    status.elapsed = ProjectTime::zero();
    status.microphoneLevel = std::nullopt;
    status.transportState = RecordingTransportState::recording;
    status.webcamState =
        options.capturesWebcam ? RecordingWebcamState::active : RecordingWebcamState::disabled;
    return status;
}

bool RecordingLiveStatusThrottle::shouldPublish(std::uint64_t nowUptimeNanoseconds) noexcept {
    if (lastPublishUptimeNanoseconds) {
        const std::uint64_t last = *lastPublishUptimeNanoseconds;
        if (nowUptimeNanoseconds < last || nowUptimeNanoseconds - last < minimumIntervalNanoseconds) {
            return false;
        }
    }
    lastPublishUptimeNanoseconds = nowUptimeNanoseconds;
    return true;
}

} // namespace rilo
