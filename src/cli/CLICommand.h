#pragma once

// What one command line asks for, as parsed by CLIArgumentParser.

#include "cli/AgentHelpCatalog.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace rilo::cli {

namespace command {
struct Help {
    std::optional<CLIAgentHelpTopic> topic;
    friend bool operator==(const Help&, const Help&) = default;
};
struct SystemInfo {
    friend bool operator==(const SystemInfo&, const SystemInfo&) = default;
};
struct List {
    friend bool operator==(const List&, const List&) = default;
};
// Commands that name one project by the start of its id, as typed.
struct Describe {
    std::string projectID;
    friend bool operator==(const Describe&, const Describe&) = default;
};
struct History {
    std::string projectID;
    friend bool operator==(const History&, const History&) = default;
};
struct CaptionsRead {
    std::string projectID;
    friend bool operator==(const CaptionsRead&, const CaptionsRead&) = default;
};
struct EditPlanPrepare {
    std::string projectID;
    friend bool operator==(const EditPlanPrepare&, const EditPlanPrepare&) = default;
};
// A known command word whose grammar and handler this build does not have
// yet; running it fails as an execution error.
struct Unavailable {
    std::string word;
    std::vector<std::string> arguments;
    friend bool operator==(const Unavailable&, const Unavailable&) = default;
};
} // namespace command

using CLICommand =
    std::variant<command::Help, command::SystemInfo, command::List, command::Describe, command::History,
                 command::CaptionsRead, command::EditPlanPrepare, command::Unavailable>;

} // namespace rilo::cli
