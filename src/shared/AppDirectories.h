#pragma once

#include <filesystem>

namespace rilo {

// Where the user's application data lives: $XDG_DATA_HOME when it is an
// absolute path, else ~/.local/share. Nothing is created here.
std::filesystem::path applicationDataDirectory();

// Where the user's settings live: $XDG_CONFIG_HOME when it is an absolute
// path, else ~/.config. Nothing is created here.
std::filesystem::path applicationConfigurationDirectory();
// <config>/Rilo/settings.json: the application's user defaults.
std::filesystem::path defaultSettingsFile();

// <data>/Rilo/Projects: the library of project packages.
std::filesystem::path defaultProjectsDirectory();
// <data>/Rilo/Exports: where bare output names of the command line go.
std::filesystem::path defaultExportsDirectory();

} // namespace rilo
