#pragma once

// The live status that a running recording shows to people.

#include "project/document/ProjectManifest.h"
#include "shared/JsonNames.h"
#include "shared/ProjectTime.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace rilo {

enum class RecordingTransportState { recording, pausing, paused, resuming, stopping, discarding };

// Stopping and discarding lead only to the end of the session.
constexpr bool isTerminal(RecordingTransportState state) noexcept {
    return state == RecordingTransportState::stopping || state == RecordingTransportState::discarding;
}

enum class RecordingWebcamState { disabled, active, interrupted };

// The live facts of a running recording, for the interface.
struct RecordingLiveStatus {
    ProjectTime elapsed;
    std::optional<double> microphoneLevel;
    RecordingWebcamState webcamState = RecordingWebcamState::disabled;
    RecordingTransportState transportState = RecordingTransportState::recording;

    // Nothing elapsed, no level, recording, and the webcam active exactly
    // when the options capture one.
    static RecordingLiveStatus initial(const RecordingOptions& options) noexcept;

    friend bool operator==(const RecordingLiveStatus&, const RecordingLiveStatus&) = default;
};

// Lets live status out at most once every 100 ms of host uptime.
struct RecordingLiveStatusThrottle {
    static constexpr std::uint64_t minimumIntervalNanoseconds = 100'000'000;

    std::optional<std::uint64_t> lastPublishUptimeNanoseconds;

    // True for the first call, and when `nowUptimeNanoseconds` is not before
    // the last publication and at least the interval after it; a true
    // answer records `nowUptimeNanoseconds` as the last publication.
    bool shouldPublish(std::uint64_t nowUptimeNanoseconds) noexcept;

    friend bool operator==(const RecordingLiveStatusThrottle&, const RecordingLiveStatusThrottle&) = default;
};

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<RecordingTransportState> {
    static constexpr std::array<std::pair<RecordingTransportState, std::string_view>, 6> entries{{
        {RecordingTransportState::recording, "recording"},
        {RecordingTransportState::pausing, "pausing"},
        {RecordingTransportState::paused, "paused"},
        {RecordingTransportState::resuming, "resuming"},
        {RecordingTransportState::stopping, "stopping"},
        {RecordingTransportState::discarding, "discarding"},
    }};
};

template <>
struct EnumNames<RecordingWebcamState> {
    static constexpr std::array<std::pair<RecordingWebcamState, std::string_view>, 3> entries{{
        {RecordingWebcamState::disabled, "disabled"},
        {RecordingWebcamState::active, "active"},
        {RecordingWebcamState::interrupted, "interrupted"},
    }};
};

} // namespace rilo::json
