#pragma once

// The documents of the update endpoint and the values the controller
// publishes. The endpoint serves, side by side, the metadata of the newest
// version (for example "latest.json") and "release-notes.json", the catalog
// of the notes of every version.

#include "shared/IsoDate.h"
#include "shared/JsonNames.h"

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace rilo::app {

// The newest version on offer. `key` and `releaseNotesKey` are paths on the
// endpoint, relative to the metadata's own location unless absolute.
struct AppUpdateMetadata {
    std::string version;
    std::string key;
    std::optional<std::string> releaseNotesKey;
    std::string sha256;
    std::uint64_t size = 0;
    IsoDate publishedAt;

    friend bool operator==(const AppUpdateMetadata&, const AppUpdateMetadata&) = default;
};

struct ReleaseNotesSection {
    std::string title;
    std::vector<std::string> items;

    friend bool operator==(const ReleaseNotesSection&, const ReleaseNotesSection&) = default;
};

struct ReleaseNote {
    std::string version;
    std::string title;
    IsoDate publishedAt;
    std::vector<ReleaseNotesSection> sections;

    friend bool operator==(const ReleaseNote&, const ReleaseNote&) = default;
};

struct ReleaseNotesCatalog {
    std::int64_t schemaVersion = 1;
    std::vector<ReleaseNote> releases;

    // The note whose version equals `version` as versions compare
    // ("v1.2" finds "1.2.0"); notes with unreadable versions are skipped.
    std::optional<ReleaseNote> note(const std::string& version) const;

    friend bool operator==(const ReleaseNotesCatalog&, const ReleaseNotesCatalog&) = default;
};

// A newer version than the running one. `downloadURL` is the metadata's
// `key` resolved against the endpoint: always http or https.
struct AvailableAppUpdate {
    AppUpdateMetadata metadata;
    std::optional<ReleaseNote> releaseNote;
    std::string downloadURL;

    friend bool operator==(const AvailableAppUpdate&, const AvailableAppUpdate&) = default;
};

// What a manual check tells the person; a new id for each notice, so that a
// second identical notice is shown again.
struct AppUpdateNotice {
    std::uint64_t id = 0;
    std::string title;
    std::string message;

    friend bool operator==(const AppUpdateNotice&, const AppUpdateNotice&) = default;
};

} // namespace rilo::app

namespace rilo::json {

template <>
struct RecordFields<app::AppUpdateMetadata> {
    using Metadata = app::AppUpdateMetadata;
    static constexpr auto fields = std::tuple{field("version", &Metadata::version),
                                              field("key", &Metadata::key),
                                              field("releaseNotesKey", &Metadata::releaseNotesKey),
                                              field("sha256", &Metadata::sha256),
                                              field("size", &Metadata::size),
                                              field("publishedAt", &Metadata::publishedAt)};
};

template <>
struct RecordFields<app::ReleaseNotesSection> {
    using Section = app::ReleaseNotesSection;
    static constexpr auto fields =
        std::tuple{field("title", &Section::title), field("items", &Section::items)};
};

template <>
struct RecordFields<app::ReleaseNote> {
    using Note = app::ReleaseNote;
    static constexpr auto fields =
        std::tuple{field("version", &Note::version), field("title", &Note::title),
                   field("publishedAt", &Note::publishedAt), field("sections", &Note::sections)};
};

template <>
struct RecordFields<app::ReleaseNotesCatalog> {
    using Catalog = app::ReleaseNotesCatalog;
    static constexpr auto fields =
        std::tuple{field("schemaVersion", &Catalog::schemaVersion), field("releases", &Catalog::releases)};
};

} // namespace rilo::json
