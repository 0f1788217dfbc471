#pragma once

#include "project/document/ProjectManifest.h"

#include <string>

namespace rilo {

// One cursor image as loaded from a package: its descriptor and the PNG bytes
// found at the descriptor's relativePath.
struct CursorAssetPayload {
    CursorAssetDescriptor descriptor;
    std::string pngData;

    friend bool operator==(const CursorAssetPayload&, const CursorAssetPayload&) = default;
};

} // namespace rilo
