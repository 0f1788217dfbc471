#include "capture/pulse/PulseAudioDeviceService.h"

#include "capture/CaptureDeviceErrors.h"
#include "capture/pulse/PulseConnection.h"
#include "capture/pulse/PulseIntrospection.h"

#include <algorithm>
#include <chrono>

namespace rilo {

namespace {

constexpr const char* defaultDeviceID = "default";

pulse::Deadline deadlineFromNow() {
    return std::chrono::steady_clock::now() + pulse::serverAnswerTimeout;
}

pulse::SinkDescription defaultSinkOrThrow() {
    try {
        const pulse::Deadline deadline = deadlineFromNow();
        pulse::PulseConnection connection(pulse::applicationName, deadline);
        return pulse::defaultSink(connection, deadline);
    } catch (const pulse::PulseServerError& error) {
        throw SystemAudioCaptureError::unavailable(error.what());
    }
}

} // namespace

std::vector<MicrophoneDeviceDescriptor> PulseAudioDeviceService::microphones() const {
    std::vector<MicrophoneDeviceDescriptor> result;
    try {
        const pulse::Deadline deadline = deadlineFromNow();
        pulse::PulseConnection connection(pulse::applicationName, deadline);
        const pulse::ServerDefaults defaults = pulse::serverDefaults(connection, deadline);
        for (const pulse::SourceDescription& source : pulse::sources(connection, deadline)) {
            if (!source.isMonitor) {
                result.push_back({source.name, source.description, source.name == defaults.sourceName});
            }
        }
    } catch (const pulse::PulseServerError&) {
        // Without a server there is nothing to record from; choosing then
        // reports that no microphone was found.
        return {};
    }
    return result;
}

MicrophoneDeviceDescriptor
PulseAudioDeviceService::resolveMicrophone(const std::optional<std::string>& selectedDeviceID) const {
    const std::vector<MicrophoneDeviceDescriptor> devices = microphones();
    if (selectedDeviceID && *selectedDeviceID != defaultDeviceID) {
        const auto selected = std::ranges::find(devices, *selectedDeviceID, &MicrophoneDeviceDescriptor::id);
        if (selected == devices.end()) {
            throw MicrophoneCaptureError::deviceUnavailable();
        }
        return *selected;
    }
    const auto systemDefault = std::ranges::find_if(devices, &MicrophoneDeviceDescriptor::isSystemDefault);
    if (systemDefault != devices.end()) {
        return *systemDefault;
    }
    if (devices.empty()) {
        throw MicrophoneCaptureError::noDevice();
    }
    return devices.front();
}

std::string PulseAudioDeviceService::systemAudioMonitorSourceName() const {
    return defaultSinkOrThrow().monitorSourceName;
}

std::string PulseAudioDeviceService::systemAudioOutputDeviceName() const {
    return defaultSinkOrThrow().description;
}

} // namespace rilo
