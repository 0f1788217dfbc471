#include "cli/ProjectCommandService.h"

namespace rilo::cli {

void ProjectCommandService::throwIfCancelled() const {
    if (stopToken_.stop_requested()) {
        throw CancellationError();
    }
}

std::vector<CLIProjectSummary> ProjectCommandService::list() const {
    throwIfCancelled();
    std::vector<CLIProjectSummary> summaries;
    for (const RecentProject& recent : store_.recentProjects()) {
        throwIfCancelled();
        const ProjectPackage package{recent.packageURL};
        ProjectManifest manifest;
        try {
            manifest = store_.readManifest(package);
        } catch (const LocalizedError&) {
            continue;
        }
        summaries.push_back({manifest.id.string(), manifest.source.title, package.rootURL.string(),
                             manifest.duration.cliMilliseconds(), manifest.webcam.has_value(),
                             manifest.updatedAt});
    }
    return summaries;
}

} // namespace rilo::cli
