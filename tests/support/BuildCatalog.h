#pragma once

#include "project/document/DeviceFrameCatalog.h"
#include "support/TestPaths.h"

namespace rilo::testing {

// The device frame catalog drawn into this build's directory (test programs
// do not live next to it, so DeviceFrameCatalog::bundled() cannot find it).
inline const DeviceFrameCatalog& buildCatalog() {
    static const DeviceFrameCatalog catalog = DeviceFrameCatalog::load(buildDirectory());
    return catalog;
}

} // namespace rilo::testing
