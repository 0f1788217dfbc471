#pragma once

// The facts of `system-info`: enough for an agent to plan work on this
// machine (architecture, processor, cores, memory, a GPU, free space), and
// nothing that identifies the machine or its user.

#include "cli/CLIReadResponses.h"
#include "platform/SystemPlatform.h"

#include <filesystem>

namespace rilo::cli::SystemCapabilityInspector {

// Texts the platform does not give are "unknown", numbers 0. Free space is
// that of the volume holding `volumePath`.
CLISystemInfoResponse inspect(const platform::SystemPlatform& platform,
                              const std::filesystem::path& volumePath);

// The same on this machine, for the volume of the given library.
CLISystemInfoResponse inspect(const std::filesystem::path& volumePath);

} // namespace rilo::cli::SystemCapabilityInspector
