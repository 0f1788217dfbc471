#include "cli/ProjectCommandService.h"

namespace rilo::cli {

std::vector<CLIProjectSummary> ProjectCommandService::list() const {
    std::vector<CLIProjectSummary> summaries;
    for (const RecentProject& recent : store_.recentProjects()) {
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
