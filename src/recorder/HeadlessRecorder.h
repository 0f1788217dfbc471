#pragma once

// Records the X11 desktop into a finished project of the library, without
// the application window: the source and inputs named by the arguments, for
// the given seconds or until a stop is requested, then the package is
// finished with its first timeline and report.
//
// Every device is checked before the package is made, so a display that
// can't be opened, a missing microphone or webcam leaves nothing behind. A
// failure during the recording marks the package failed and keeps what was
// recorded for recovery; the failure is then thrown.

#include "project/document/DiagnosticReport.h"
#include "recorder/RecorderArguments.h"
#include "shared/Uuid.h"

#include <filesystem>
#include <optional>
#include <stop_token>

namespace rilo::recorder {

struct HeadlessRecordingResult {
    Uuid projectID;
    std::filesystem::path packagePath;
};

// The status line goes to the descriptor while it is a terminal.
HeadlessRecordingResult recordDesktop(const RecorderArguments& arguments, std::stop_token stop,
                                      int statusDescriptor);

} // namespace rilo::recorder
