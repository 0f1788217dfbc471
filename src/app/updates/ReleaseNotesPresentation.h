#pragma once

// Whether to show the notes of the running version at launch. They are
// shown once, after the first start of a version newer than any started
// before, when the catalog has a note for it; never on a fresh installation
// (no version started before) and never after going back to an older
// version. Remembered in the user defaults under
// "releaseNotes.highestLaunchedMarketingVersion" and
// "releaseNotes.lastPresentedMarketingVersion".

#include "app/settings/UserDefaults.h"
#include "app/updates/AppUpdateModels.h"

#include <optional>
#include <string>

namespace rilo::app {

struct ReleaseNotesPresentation {
    // The note to show now, if any, recorded as shown. Called once per
    // launch on the main thread. A running version that is not a version
    // shows nothing and changes nothing. Throws FileError when the defaults
    // cannot be written; then nothing is recorded.
    static std::optional<ReleaseNote> noteToPresentAtLaunch(UserDefaults& defaults,
                                                            const std::string& runningVersion,
                                                            const ReleaseNotesCatalog& catalog);
};

} // namespace rilo::app
