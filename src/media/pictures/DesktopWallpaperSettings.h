#pragma once

// Where a Linux desktop keeps its wallpapers, and which picture its settings
// name as the current one. Nothing here reads the process environment: the
// caller hands in the values of $HOME, $XDG_DATA_HOME and $XDG_CONFIG_HOME.
//
// The current wallpaper is read from GNOME's settings
// (org.gnome.desktop.background, picture-uri and picture-uri-dark, through
// GSettings) and from KDE Plasma's desktop configuration (the Image= entry of
// every [Wallpaper][org.kde.image][General] group). A setting that is absent,
// unreadable or names no local file is left out; nothing here throws for a
// missing desktop. Any thread may call.

#include <filesystem>
#include <string>
#include <vector>

namespace rilo {

struct LinuxDesktopEnvironment {
    std::filesystem::path homeDirectory;
    // Empty when the variable is unset; a relative value is ignored.
    std::filesystem::path dataHome;
    std::filesystem::path configHome;

    friend bool operator==(const LinuxDesktopEnvironment&, const LinuxDesktopEnvironment&) = default;
};

// Which desktop settings name the current wallpaper.
struct DesktopWallpaperSettings {
    // KDE Plasma's plasma-org.kde.plasma.desktop-appletsrc; empty: not read.
    std::filesystem::path plasmaDesktopConfiguration;
    // Whether GNOME's settings are asked through GSettings (a machine without
    // the schema answers nothing).
    bool readsGnomeSettings = false;

    friend bool operator==(const DesktopWallpaperSettings&, const DesktopWallpaperSettings&) = default;
};

// A picture that a setting names as the wallpaper now.
struct DesktopWallpaperReference {
    // The setting: "gnome:picture-uri", "gnome:picture-uri-dark", or "kde:"
    // and the containment's group, such as "kde:[Containments][1]".
    std::string settingID;
    std::filesystem::path imagePath;

    friend bool operator==(const DesktopWallpaperReference&, const DesktopWallpaperReference&) = default;
};

namespace LinuxDesktopWallpapers {

// /usr/share/backgrounds, /usr/share/wallpapers, and the user's own
// backgrounds folder ($XDG_DATA_HOME/backgrounds, else
// ~/.local/share/backgrounds).
std::vector<std::filesystem::path> systemWallpaperDirectories(const LinuxDesktopEnvironment& environment);

// KDE Plasma's configuration under $XDG_CONFIG_HOME (else ~/.config), and
// GNOME's settings.
DesktopWallpaperSettings desktopWallpaperSettings(const LinuxDesktopEnvironment& environment);

// Whether the name ends in .jpg, .jpeg or .png, in any case: the pictures
// the image decoders read.
bool hasPictureExtension(const std::filesystem::path& path);

// The pictures the settings name now, GNOME's first, each file once. A KDE
// entry naming a wallpaper package (a folder with contents/images) gives its
// largest picture.
std::vector<DesktopWallpaperReference> currentWallpaperReferences(const DesktopWallpaperSettings& settings);

} // namespace LinuxDesktopWallpapers

} // namespace rilo
