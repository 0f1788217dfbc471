#include "app/updates/AppUpdateModels.h"

#include "app/updates/AppVersion.h"

namespace rilo::app {

std::optional<ReleaseNote> ReleaseNotesCatalog::note(const std::string& version) const {
    const auto wanted = AppVersion::parse(version);
    if (!wanted) {
        return std::nullopt;
    }
    for (const auto& release : releases) {
        if (AppVersion::parse(release.version) == wanted) {
            return release;
        }
    }
    return std::nullopt;
}

} // namespace rilo::app
