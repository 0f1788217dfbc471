#include "shared/AppDirectories.h"

#include "shared/Errors.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace rilo {

namespace {
std::filesystem::path homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        return home;
    }
    if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    throw FileError("无法确定用户主目录。");
}
} // namespace

std::filesystem::path applicationDataDirectory() {
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && xdg[0] == '/') {
        return xdg;
    }
    return homeDirectory() / ".local" / "share";
}

std::filesystem::path applicationConfigurationDirectory() {
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && xdg[0] == '/') {
        return xdg;
    }
    return homeDirectory() / ".config";
}

std::filesystem::path defaultSettingsFile() {
    return applicationConfigurationDirectory() / "Rilo" / "settings.json";
}

std::filesystem::path defaultProjectsDirectory() {
    return applicationDataDirectory() / "Rilo" / "Projects";
}

std::filesystem::path defaultExportsDirectory() {
    return applicationDataDirectory() / "Rilo" / "Exports";
}

} // namespace rilo
