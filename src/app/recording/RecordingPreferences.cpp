#include "app/recording/RecordingPreferences.h"

#include "project/document/TimelineCodecs.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace rilo {
namespace {

namespace keys {
constexpr const char* capturesSystemAudio = "recording.capturesSystemAudio";
constexpr const char* capturesMicrophone = "recording.capturesMicrophone";
constexpr const char* capturesWebcam = "recording.capturesWebcam";
constexpr const char* capturesMenuBar = "recording.capturesMenuBar";
constexpr const char* microphoneDeviceID = "recording.microphoneDeviceID";
constexpr const char* webcamDeviceID = "recording.webcamDeviceID";
constexpr const char* framesPerSecond = "recording.framesPerSecond";
constexpr const char* webcamOverlay = "recording.webcamOverlay";
constexpr const char* webcamPanelCenter = "recording.webcamPanelCenter";
constexpr const char* countdownSeconds = "recording.countdownSeconds";
constexpr const char* playsCountdownSound = "recording.playsCountdownSound";
} // namespace keys

template <class Value>
std::optional<Value> decoded(const UserDefaults& defaults, const char* key) {
    const std::optional<json::Json> stored = defaults.value(key);
    if (!stored) {
        return std::nullopt;
    }
    try {
        return json::Codec<Value>::decode(*stored, key);
    } catch (const std::exception&) {
        return std::nullopt; // a value this version can't read is as good as none
    }
}

void setOrRemove(UserDefaults& defaults, const char* key, const std::optional<std::string>& value) {
    if (value) {
        defaults.set(key, *value);
    } else {
        defaults.remove(key);
    }
}

} // namespace

RecordingSetupPreferences RecordingSetupPreferences::load(const UserDefaults& defaults) {
    RecordingSetupPreferences preferences;
    RecordingOptions& options = preferences.options;
    options.capturesSystemAudio =
        defaults.boolean(keys::capturesSystemAudio).value_or(options.capturesSystemAudio);
    options.capturesMicrophone =
        defaults.boolean(keys::capturesMicrophone).value_or(options.capturesMicrophone);
    options.capturesWebcam = defaults.boolean(keys::capturesWebcam).value_or(options.capturesWebcam);
    options.capturesMenuBar = defaults.boolean(keys::capturesMenuBar).value_or(options.capturesMenuBar);
    options.microphoneDeviceID = defaults.string(keys::microphoneDeviceID);
    options.webcamDeviceID = defaults.string(keys::webcamDeviceID);
    options.framesPerSecond = defaults.integer(keys::framesPerSecond).value_or(options.framesPerSecond);
    if (const auto overlay = decoded<WebcamOverlay>(defaults, keys::webcamOverlay)) {
        preferences.webcamOverlay = normalized(*overlay);
    }
    if (const auto center = decoded<PointValue>(defaults, keys::webcamPanelCenter)) {
        preferences.webcamPanelCenter = center->clamped();
    }
    return preferences;
}

void RecordingSetupPreferences::save(UserDefaults& defaults) const {
    defaults.set(keys::capturesSystemAudio, options.capturesSystemAudio);
    defaults.set(keys::capturesMicrophone, options.capturesMicrophone);
    defaults.set(keys::capturesWebcam, options.capturesWebcam);
    defaults.set(keys::capturesMenuBar, options.capturesMenuBar);
    setOrRemove(defaults, keys::microphoneDeviceID, options.microphoneDeviceID);
    setOrRemove(defaults, keys::webcamDeviceID, options.webcamDeviceID);
    defaults.set(keys::framesPerSecond, options.framesPerSecond);
    defaults.set(keys::webcamOverlay, json::Codec<WebcamOverlay>::encode(webcamOverlay));
    if (webcamPanelCenter) {
        defaults.set(keys::webcamPanelCenter, json::Codec<PointValue>::encode(*webcamPanelCenter));
    } else {
        defaults.remove(keys::webcamPanelCenter);
    }
}

WebcamOverlay RecordingSetupPreferences::normalized(WebcamOverlay overlay) noexcept {
    overlay.isVisible = true;
    overlay.center = WebcamOverlay::newRecording().center;
    overlay.diameter = std::isfinite(overlay.diameter) ? std::clamp(overlay.diameter, 0.12, 0.36)
                                                       : WebcamOverlay::newRecording().diameter;
    overlay.cornerRadius = WebcamOverlay::constrainedCornerRadius(overlay.cornerRadius);
    overlay.borderWidthAt1080p = WebcamOverlay::constrainedBorderWidthAt1080p(overlay.borderWidthAt1080p);
    return overlay;
}

RecordingLaunchPreferences RecordingLaunchPreferences::load(const UserDefaults& defaults) {
    RecordingLaunchPreferences preferences;
    const std::int64_t seconds =
        defaults.integer(keys::countdownSeconds).value_or(preferences.countdownSeconds);
    if (seconds == 0 || seconds == 3 || seconds == 5) {
        preferences.countdownSeconds = seconds;
    }
    preferences.playsCountdownSound =
        defaults.boolean(keys::playsCountdownSound).value_or(preferences.playsCountdownSound);
    return preferences;
}

void RecordingLaunchPreferences::save(UserDefaults& defaults) const {
    defaults.set(keys::countdownSeconds, countdownSeconds);
    defaults.set(keys::playsCountdownSound, playsCountdownSound);
}

} // namespace rilo
