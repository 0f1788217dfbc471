#pragma once

// The application's user defaults ("recording.*", "updates.*",
// "releaseNotes.*"): a flat JSON object of keys and values in one file,
// normally <config>/Rilo/settings.json (defaultSettingsFile()). The command
// line never reads it.
//
// Every change writes the whole file atomically (temporary file, fsync,
// rename), so a crash leaves the old settings or the new ones. A file that
// cannot be read as a JSON object is never lost: it is moved aside next to
// the settings, as "settings.json.damaged-<UTC time>", and the defaults start
// empty; damagedFileKeptAt() tells where it went, so that the application
// can say so. A value of the wrong type under a key reads as absent, and the
// caller's default applies.
//
// One thread (the main thread) uses an instance. A write that fails throws
// FileError and leaves the values in memory as they were.

#include "shared/IsoDate.h"
#include "shared/Json.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace rilo {

class UserDefaults {
public:
    // Reads the file; a missing file is an empty set of defaults. Throws
    // FileError only when a damaged file cannot be moved aside.
    explicit UserDefaults(std::filesystem::path file);

    const std::filesystem::path& file() const noexcept { return file_; }
    const std::optional<std::filesystem::path>& damagedFileKeptAt() const noexcept {
        return damagedFileKeptAt_;
    }

    bool contains(std::string_view key) const;
    std::optional<json::Json> value(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    std::optional<std::string> string(std::string_view key) const;
    // Dates are stored as ISO 8601 text with second precision.
    std::optional<IsoDate> date(std::string_view key) const;

    void set(std::string_view key, json::Json value);
    void setDate(std::string_view key, IsoDate date);
    void remove(std::string_view key);

private:
    void write(const json::Json& values) const;

    std::filesystem::path file_;
    json::Json values_ = json::Json::object();
    std::optional<std::filesystem::path> damagedFileKeptAt_;
};

} // namespace rilo
