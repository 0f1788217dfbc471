#pragma once

// The layout of a project package on disk. A ProjectPackage only computes
// paths: it can be built for any directory, existing or not, and only the
// code that opens those paths fails.

#include <filesystem>
#include <string_view>
#include <vector>

namespace rilo {

inline constexpr std::string_view projectPackageExtension = "rilo";
inline constexpr std::string_view unfinishedPackageSuffix = ".rilo.tmp";
inline constexpr std::string_view finishedPackageSuffix = ".rilo";
inline constexpr std::string_view discardingPackageSuffix = ".rilo.discarding";

struct ProjectPackage {
    std::filesystem::path rootURL;

    std::filesystem::path manifestURL() const { return rootURL / "manifest.json"; }
    std::filesystem::path mediaDirectory() const { return rootURL / "media"; }
    std::filesystem::path mediaURL() const { return rootURL / "media" / "recording.mov"; }
    std::filesystem::path eventsDirectory() const { return rootURL / "events"; }
    std::filesystem::path geometryDirectory() const { return rootURL / "geometry"; }
    std::filesystem::path cursorDirectory() const { return rootURL / "cursor"; }
    std::filesystem::path cursorAssetsDirectory() const { return rootURL / "cursor" / "assets"; }
    std::filesystem::path cursorEventsDirectory() const { return rootURL / "cursor" / "events"; }
    std::filesystem::path assetsDirectory() const { return rootURL / "assets"; }
    std::filesystem::path canvasBackgroundsDirectory() const { return rootURL / "assets" / "backgrounds"; }
    std::filesystem::path editsDirectory() const { return rootURL / "edits"; }
    std::filesystem::path timelineURL() const { return rootURL / "edits" / "timeline.json"; }
    // The backup kept when a timeline of schema (version - 1) or older is first
    // rewritten in schema `version`; versions 3 to 8.
    std::filesystem::path preSchemaTimelineBackupURL(int version) const;
    std::filesystem::path preSchema3TimelineBackupURL() const { return preSchemaTimelineBackupURL(3); }
    std::filesystem::path preSchema4TimelineBackupURL() const { return preSchemaTimelineBackupURL(4); }
    std::filesystem::path preSchema5TimelineBackupURL() const { return preSchemaTimelineBackupURL(5); }
    std::filesystem::path preSchema6TimelineBackupURL() const { return preSchemaTimelineBackupURL(6); }
    std::filesystem::path preSchema7TimelineBackupURL() const { return preSchemaTimelineBackupURL(7); }
    std::filesystem::path preSchema8TimelineBackupURL() const { return preSchemaTimelineBackupURL(8); }
    std::filesystem::path timelineHistoryDirectory() const { return rootURL / "edits" / "history"; }
    std::filesystem::path timelineLockURL() const { return rootURL / "edits" / ".timeline.lock"; }
    std::filesystem::path captionsURL() const { return rootURL / "edits" / "captions.json"; }
    std::filesystem::path captionsHistoryDirectory() const { return rootURL / "edits" / "caption-history"; }
    std::filesystem::path captionsLockURL() const { return rootURL / "edits" / ".captions.lock"; }
    std::filesystem::path diagnosticsDirectory() const { return rootURL / "diagnostics"; }
    std::filesystem::path reportURL() const { return rootURL / "diagnostics" / "report.json"; }
    std::filesystem::path cacheDirectory() const { return rootURL / "cache"; }
    std::filesystem::path waveformCacheDirectory() const { return rootURL / "cache" / "waveforms"; }

    // The directories a new package is created with, in creation order.
    std::vector<std::filesystem::path> creationDirectories() const;

    friend bool operator==(const ProjectPackage&, const ProjectPackage&) = default;
};

} // namespace rilo
