#pragma once

// What the sound server knows about its devices, asked over a connection whose
// loop runs on the calling thread. Every query throws PulseServerError when
// the server does not answer before the deadline.

#include "capture/pulse/PulseConnection.h"

#include <optional>
#include <string>
#include <vector>

namespace rilo::pulse {

// The names of the server's default devices; empty where it has none.
struct ServerDefaults {
    std::string sinkName;
    std::string sourceName;
};

struct SourceDescription {
    std::string name;
    std::string description;
    // A monitor replays what a sink plays: never a microphone.
    bool isMonitor = false;
};

struct SinkDescription {
    std::string name;
    std::string description;
    std::string monitorSourceName;
};

ServerDefaults serverDefaults(PulseConnection& connection, Deadline deadline);

// Every source, in the server's order.
std::vector<SourceDescription> sources(PulseConnection& connection, Deadline deadline);

// The sink of that name; nothing when there is none.
std::optional<SinkDescription> sink(PulseConnection& connection, const std::string& name, Deadline deadline);

// The default sink. Throws PulseServerError (PA_ERR_NOENTITY) when there is none.
SinkDescription defaultSink(PulseConnection& connection, Deadline deadline);

} // namespace rilo::pulse
