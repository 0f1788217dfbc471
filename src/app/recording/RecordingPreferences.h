#pragma once

// The recording choices kept between runs in the user defaults ("recording.*"):
// what the setup records (RecordingSetupPreferences) and how a recording is
// launched (RecordingLaunchPreferences). Loading never fails: a key that is
// missing, of the wrong type or out of range reads as its default (a stored
// false stays false), and a stored overlay or panel position is brought back
// into its limits. Saving writes every key; an absent device choice removes
// its key. A failed write throws FileError (see UserDefaults).

#include "app/settings/UserDefaults.h"
#include "project/document/ProjectManifest.h"
#include "project/document/WebcamOverlay.h"
#include "shared/Geometry.h"

#include <cstdint>
#include <optional>

namespace rilo {

struct RecordingSetupPreferences {
    // The capture switches, the chosen devices and the frame rate.
    RecordingOptions options;
    WebcamOverlay webcamOverlay = WebcamOverlay::newRecording();
    // Where the floating webcam panel was left, normalised to the screen.
    std::optional<PointValue> webcamPanelCenter;

    static RecordingSetupPreferences load(const UserDefaults& defaults);
    void save(UserDefaults& defaults) const;

    // A stored overlay as the setup offers it: visible, at the fresh
    // recording's place, its measures within the setup's limits, its flags kept.
    static WebcamOverlay normalized(WebcamOverlay overlay) noexcept;

    friend bool operator==(const RecordingSetupPreferences&, const RecordingSetupPreferences&) = default;
};

struct RecordingLaunchPreferences {
    // 0 (no countdown), 3 or 5.
    std::int64_t countdownSeconds = 3;
    bool playsCountdownSound = true;

    static RecordingLaunchPreferences load(const UserDefaults& defaults);
    void save(UserDefaults& defaults) const;

    friend bool operator==(const RecordingLaunchPreferences&, const RecordingLaunchPreferences&) = default;
};

} // namespace rilo
