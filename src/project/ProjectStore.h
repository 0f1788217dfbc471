#pragma once

// The library of project packages. A ProjectStore owns one library directory;
// it alone names, moves and deletes packages. Its operations are meant to be
// called from one thread at a time (one store per command-line process, one
// store worker in the application).

#include "project/ProjectManifest.h"
#include "project/ProjectPackage.h"
#include "project/ProjectStoreError.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

// One row of the library list.
struct RecentProject {
    std::filesystem::path packageURL; // also its identity
    IsoDate createdAt;
    IsoDate updatedAt;
    ProjectState state = ProjectState::completed;
    CaptureSourceKind sourceKind = CaptureSourceKind::display;
    std::string sourceTitle;
    ProjectTime duration;
    bool hasWebcam = false;

    friend bool operator==(const RecentProject&, const RecentProject&) = default;
};

class ProjectStore {
public:
    // Uses the given library directory as it stands, or the default library
    // under the application data directory. Creates the directory with its
    // parents; throws FileError when it cannot.
    explicit ProjectStore(std::optional<std::filesystem::path> rootDirectory = std::nullopt);

    const std::filesystem::path& projectsDirectoryURL() const noexcept { return projectsDirectory_; }

    // Decodes manifest.json of the package; throws FileError or json::DecodingError.
    ProjectManifest readManifest(const ProjectPackage& package) const;

    // Finished packages (.rilo, state completed or recovered, with media),
    // newest first; packages that cannot be read are skipped silently.
    std::vector<RecentProject> recentProjects() const;

    // The listed project whose id starts with the prefix, in any case.
    // Throws ProjectStoreError projectNotFound or ambiguousProjectPrefix.
    ProjectPackage project(const std::string& matchingIDPrefix) const;

private:
    std::filesystem::path projectsDirectory_;
};

} // namespace rilo
