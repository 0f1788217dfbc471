#include "project/document/ProjectPackage.h"

#include <string>

namespace rilo {

std::filesystem::path ProjectPackage::preSchemaTimelineBackupURL(int version) const {
    return rootURL / "edits" / ("timeline.pre-schema" + std::to_string(version) + ".json");
}

std::vector<std::filesystem::path> ProjectPackage::creationDirectories() const {
    return {rootURL,
            mediaDirectory(),
            eventsDirectory(),
            geometryDirectory(),
            cursorAssetsDirectory(),
            cursorEventsDirectory(),
            editsDirectory(),
            diagnosticsDirectory(),
            waveformCacheDirectory()};
}

} // namespace rilo
