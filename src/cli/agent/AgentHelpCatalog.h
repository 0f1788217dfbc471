#pragma once

#include "shared/JsonNames.h"

#include <string_view>

namespace rilo::cli {

enum class CLIAgentHelpTopic { workflow, editPlan, captions, settings, output };

// The help texts of the command line: the general usage text and one text
// for each agent topic.
namespace AgentHelpCatalog {
std::string_view generalText() noexcept;
std::string_view text(CLIAgentHelpTopic topic) noexcept;
} // namespace AgentHelpCatalog

} // namespace rilo::cli

namespace rilo::json {

template <>
struct EnumNames<cli::CLIAgentHelpTopic> {
    static constexpr std::array<std::pair<cli::CLIAgentHelpTopic, std::string_view>, 5> entries{{
        {cli::CLIAgentHelpTopic::workflow, "workflow"},
        {cli::CLIAgentHelpTopic::editPlan, "edit-plan"},
        {cli::CLIAgentHelpTopic::captions, "captions"},
        {cli::CLIAgentHelpTopic::settings, "settings"},
        {cli::CLIAgentHelpTopic::output, "output"},
    }};
};

} // namespace rilo::json
