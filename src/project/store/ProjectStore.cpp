#include "project/store/ProjectStore.h"

#include "shared/AppDirectories.h"
#include "shared/Files.h"

#include <algorithm>
#include <cctype>
#include <system_error>

namespace rilo {

namespace {
std::string upperCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}
} // namespace

ProjectStore::ProjectStore(std::optional<std::filesystem::path> rootDirectory,
                           TimelineValidator::DeviceFrameCatalogProvider deviceFrameCatalog)
    : projectsDirectory_(rootDirectory ? *rootDirectory : defaultProjectsDirectory())
    , deviceFrameCatalog_(std::move(deviceFrameCatalog)) {
    std::error_code error;
    std::filesystem::create_directories(projectsDirectory_, error);
    if (error || !std::filesystem::is_directory(projectsDirectory_)) {
        throw FileError("无法创建项目目录：" + projectsDirectory_.string());
    }
}

ProjectManifest ProjectStore::readManifest(const ProjectPackage& package) const {
    return json::decodeDocument<ProjectManifest>(readFileBytes(package.manifestURL()));
}

std::vector<RecentProject> ProjectStore::recentProjects() const {
    std::vector<RecentProject> projects;
    std::error_code error;
    std::filesystem::directory_iterator entries(projectsDirectory_, error);
    if (error) {
        throw FileError("无法读取项目目录：" + projectsDirectory_.string());
    }
    for (const auto& entry : entries) {
        const std::filesystem::path& path = entry.path();
        const std::string name = path.filename().string();
        if (name.starts_with(".") || path.extension() != "." + std::string(projectPackageExtension)) {
            continue;
        }
        const ProjectPackage package{path};
        if (!std::filesystem::exists(package.mediaURL(), error)) {
            continue;
        }
        ProjectManifest manifest;
        try {
            manifest = readManifest(package);
        } catch (const LocalizedError&) {
            continue;
        }
        if (manifest.state != ProjectState::completed && manifest.state != ProjectState::recovered) {
            continue;
        }
        projects.push_back({path, manifest.createdAt, manifest.updatedAt, manifest.state,
                            manifest.source.kind, manifest.source.title, manifest.duration,
                            manifest.webcam.has_value()});
    }
    std::sort(projects.begin(), projects.end(), [](const RecentProject& a, const RecentProject& b) {
        if (a.updatedAt != b.updatedAt) {
            return a.updatedAt > b.updatedAt;
        }
        return a.packageURL.filename().string() < b.packageURL.filename().string();
    });
    return projects;
}

ProjectPackage ProjectStore::project(const std::string& matchingIDPrefix) const {
    const std::string prefix = upperCased(matchingIDPrefix);
    std::optional<ProjectPackage> match;
    for (const RecentProject& recent : recentProjects()) {
        const ProjectPackage package{recent.packageURL};
        std::string id;
        try {
            id = readManifest(package).id.string();
        } catch (const LocalizedError&) {
            continue;
        }
        if (!id.starts_with(prefix)) {
            continue;
        }
        if (match) {
            throw ProjectStoreError::ambiguousProjectPrefix(matchingIDPrefix);
        }
        match = package;
    }
    if (!match) {
        throw ProjectStoreError::projectNotFound(matchingIDPrefix);
    }
    return *match;
}

} // namespace rilo
