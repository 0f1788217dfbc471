#pragma once

// The facts about this machine that a recording's diagnostic report names.

#include "project/document/DiagnosticReport.h"

#include <optional>
#include <string>

namespace rilo {

// The hardware model (from the firmware tables, else the architecture), the
// system's name and version, and the host name, read now.
DiagnosticReport::MachineFacts currentMachineFacts(std::optional<std::string> systemAudioOutputDevice);

} // namespace rilo
