// manifest.json as the store reads it (ProjectStore::readManifest). A manifest
// that decodes is written back as it was read when a package is finished or
// recovered, so it must survive that unchanged.

#include "FuzzSupport.h"
#include "project/document/ProjectManifest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace rilo;
    ProjectManifest manifest;
    try {
        manifest = json::decodeDocument<ProjectManifest>(fuzz::inputText(data, size));
    } catch (const json::DecodingError&) {
        return 0;
    }
    fuzz::requireRoundTrip(manifest, "manifest");
    return 0;
}
