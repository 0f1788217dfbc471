// A cursor asset descriptor (cursor/assets/<id>.json) as a recovery or a
// project load reads it (CursorAssetStore::readDescriptors), which passes over
// files that do not decode and so documents no failure. A descriptor it reads
// goes into the manifest of a recovered package, so it must read back
// unchanged.

#include "FuzzSupport.h"
#include "project/store/CursorAssetStore.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace rilo;
    static const fuzz::ScratchDirectory directory("cursor-assets");
    directory.write("asset.json", fuzz::inputText(data, size));
    for (const CursorAssetDescriptor& descriptor : CursorAssetStore::readDescriptors(directory.path())) {
        fuzz::requireRoundTrip(descriptor, "cursor asset descriptor");
    }
    return 0;
}
