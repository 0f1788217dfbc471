#pragma once

// What the application passes to AppUpdateController: this build's update
// endpoint (the CMake setting RILO_UPDATE_FEED_URL; empty when the build
// does not look for updates) and the limits of the transport.

#include "app/updates/AppUpdateHttp.h"

#include <string>

namespace rilo::app {

std::string buildUpdateFeedURL();

// 10 s to connect, 30 s in all, 64 KiB of metadata, 4 MiB of release notes.
AppUpdateTransportLimits standardUpdateTransportLimits();

} // namespace rilo::app
