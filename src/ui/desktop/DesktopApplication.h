#pragma once

// The desktop application's start: it makes sure there is a display to show
// windows on, makes the Qt application, the application model on Qt's run
// loop, bootstraps the model and shows the library window until the user
// closes it. Nothing here runs for the command line.

#include "app/model/AppModel.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace rilo::ui {

// Why no window can be shown in this environment (a message for the user, in
// Chinese), or none when there is a display: neither DISPLAY nor
// WAYLAND_DISPLAY set (empty counts as unset), or an X display that does not
// accept a connection. A platform other than X11 or Wayland chosen through
// QT_QPA_PLATFORM (offscreen, say) needs no display and passes.
std::optional<std::string> missingDisplayMessage();

// $XDG_CACHE_HOME/Rilo/Covers when XDG_CACHE_HOME is absolute, else
// ~/.cache/Rilo/Covers. Nothing is created here.
std::filesystem::path defaultCoverCacheDirectory();

// What the desktop application gives its model: the user's library, settings
// and cover cache, the resources beside the executable, the desktop of
// $DISPLAY. No players are made yet (there is no editor to show one).
AppModelEnvironment desktopModelEnvironment(const std::string& applicationVersion);

// Runs the application with the process arguments; returns its exit code.
// Without a display it prints missingDisplayMessage on standard error and
// returns 1, before anything of Qt is made; a platform plugin that fails all
// the same gets a message of the same kind and the same code.
int runDesktopApplication(const std::vector<std::string>& arguments, const std::string& applicationVersion);

} // namespace rilo::ui
