#include "media/pictures/DesktopWallpaperSettings.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <gio/gio.h>
#include <memory>
#include <optional>
#include <system_error>

namespace rilo::LinuxDesktopWallpapers {

namespace fs = std::filesystem;

namespace {

constexpr const char* gnomeBackgroundSchema = "org.gnome.desktop.background";
constexpr const char* gnomePictureKeys[] = {"picture-uri", "picture-uri-dark"};
constexpr std::string_view plasmaWallpaperGroupSuffix = "[Wallpaper][org.kde.image][General]";

struct GFreeDeleter {
    void operator()(gchar* text) const noexcept { g_free(text); }
};
struct SchemaDeleter {
    void operator()(GSettingsSchema* schema) const noexcept { g_settings_schema_unref(schema); }
};
struct ObjectDeleter {
    void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
using GText = std::unique_ptr<gchar, GFreeDeleter>;

fs::path dataHomeOf(const LinuxDesktopEnvironment& environment) {
    return environment.dataHome.is_absolute() ? environment.dataHome
                                              : environment.homeDirectory / ".local" / "share";
}

fs::path configHomeOf(const LinuxDesktopEnvironment& environment) {
    return environment.configHome.is_absolute() ? environment.configHome
                                                : environment.homeDirectory / ".config";
}

// A file:// URI or an absolute path; anything else names no local file.
std::optional<fs::path> localPath(const std::string& value) {
    if (value.starts_with("file:")) {
        const GText path(g_filename_from_uri(value.c_str(), nullptr, nullptr));
        if (path) {
            return fs::path(path.get());
        }
        return std::nullopt;
    }
    if (!value.empty() && value.front() == '/') {
        return fs::path(value);
    }
    return std::nullopt;
}

// "3840x2160" gives 3840 * 2160; any other stem gives 0.
std::int64_t areaNamedBy(const fs::path& file) {
    const std::string stem = file.stem().string();
    const std::size_t cross = stem.find('x');
    if (cross == std::string::npos || cross == 0 || cross + 1 == stem.size()) {
        return 0;
    }
    const auto allDigits = [](std::string_view digits) {
        return digits.size() <= 6 && std::all_of(digits.begin(), digits.end(),
                                                 [](unsigned char c) { return std::isdigit(c) != 0; });
    };
    const std::string width = stem.substr(0, cross);
    const std::string height = stem.substr(cross + 1);
    if (!allDigits(width) || !allDigits(height)) {
        return 0;
    }
    return std::stoll(width) * std::stoll(height);
}

// A wallpaper package keeps one picture in several sizes under
// contents/images; the largest stands for it.
std::optional<fs::path> largestPackagePicture(const fs::path& package) {
    std::error_code error;
    std::optional<fs::path> best;
    std::int64_t bestArea = -1;
    std::vector<fs::path> pictures;
    for (fs::directory_iterator entry(package / "contents" / "images", error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->is_regular_file(error) && hasPictureExtension(entry->path())) {
            pictures.push_back(entry->path());
        }
    }
    std::sort(pictures.begin(), pictures.end());
    for (const fs::path& picture : pictures) {
        if (const std::int64_t area = areaNamedBy(picture); area > bestArea) {
            best = picture;
            bestArea = area;
        }
    }
    return best;
}

std::optional<fs::path> pictureNamedBy(const std::string& value) {
    std::optional<fs::path> path = localPath(value);
    if (!path) {
        return std::nullopt;
    }
    std::error_code error;
    if (fs::is_directory(*path, error)) {
        return largestPackagePicture(*path);
    }
    return path;
}

void readGnomeSettings(std::vector<DesktopWallpaperReference>& references) {
    // The default source is shared by the process and not ours to free; a
    // machine without any schema has none.
    GSettingsSchemaSource* source = g_settings_schema_source_get_default();
    if (source == nullptr) {
        return;
    }
    // Looking the schema up first keeps GSettings from aborting the process
    // on a machine without it.
    const std::unique_ptr<GSettingsSchema, SchemaDeleter> schema(
        g_settings_schema_source_lookup(source, gnomeBackgroundSchema, TRUE));
    if (!schema) {
        return;
    }
    const std::unique_ptr<GSettings, ObjectDeleter> settings(
        g_settings_new_full(schema.get(), nullptr, nullptr));
    if (!settings) {
        return;
    }
    for (const char* key : gnomePictureKeys) {
        if (!g_settings_schema_has_key(schema.get(), key)) {
            continue;
        }
        const GText value(g_settings_get_string(settings.get(), key));
        if (!value) {
            continue;
        }
        if (const std::optional<fs::path> picture = pictureNamedBy(value.get())) {
            references.push_back({std::string("gnome:") + key, *picture});
        }
    }
}

std::string trimmed(std::string text) {
    const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isSpace));
    text.erase(std::find_if_not(text.rbegin(), text.rend(), isSpace).base(), text.end());
    return text;
}

void readPlasmaConfiguration(const fs::path& configuration,
                             std::vector<DesktopWallpaperReference>& references) {
    std::ifstream input(configuration);
    std::string group;
    std::string line;
    while (std::getline(input, line)) {
        line = trimmed(std::move(line));
        if (line.starts_with('[')) {
            group = line;
            continue;
        }
        if (!group.ends_with(plasmaWallpaperGroupSuffix)) {
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || trimmed(line.substr(0, equals)) != "Image") {
            continue;
        }
        if (const std::optional<fs::path> picture = pictureNamedBy(trimmed(line.substr(equals + 1)))) {
            const std::string containment = group.substr(0, group.size() - plasmaWallpaperGroupSuffix.size());
            references.push_back({"kde:" + containment, *picture});
        }
    }
}

} // namespace

bool hasPictureExtension(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".jpg" || extension == ".jpeg" || extension == ".png";
}

std::vector<fs::path> systemWallpaperDirectories(const LinuxDesktopEnvironment& environment) {
    return {"/usr/share/backgrounds", "/usr/share/wallpapers", dataHomeOf(environment) / "backgrounds"};
}

DesktopWallpaperSettings desktopWallpaperSettings(const LinuxDesktopEnvironment& environment) {
    return {configHomeOf(environment) / "plasma-org.kde.plasma.desktop-appletsrc", true};
}

std::vector<DesktopWallpaperReference> currentWallpaperReferences(const DesktopWallpaperSettings& settings) {
    std::vector<DesktopWallpaperReference> references;
    if (settings.readsGnomeSettings) {
        readGnomeSettings(references);
    }
    if (!settings.plasmaDesktopConfiguration.empty()) {
        readPlasmaConfiguration(settings.plasmaDesktopConfiguration, references);
    }
    std::vector<DesktopWallpaperReference> distinct;
    for (DesktopWallpaperReference& reference : references) {
        if (std::none_of(distinct.begin(), distinct.end(), [&](const DesktopWallpaperReference& kept) {
                return kept.imagePath == reference.imagePath;
            })) {
            distinct.push_back(std::move(reference));
        }
    }
    return distinct;
}

} // namespace rilo::LinuxDesktopWallpapers
