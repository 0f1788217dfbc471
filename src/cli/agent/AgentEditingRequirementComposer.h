#pragma once

// Turns a requirement draft into the words an agent reads: one sentence for
// each chosen capability, the requirement section of the prompt, and the
// help topics the agent must read first.

#include "cli/agent/AgentEditingRequirements.h"
#include "cli/agent/AgentHelpCatalog.h"

#include <string>
#include <vector>

namespace rilo::cli::AgentEditingRequirementComposer {

// `workflow` and the topic of each selected capability, in topic order.
std::vector<CLIAgentHelpTopic> helpTopics(const AgentEditingRequirementDraft& draft);

// The "## 我的剪辑需求" section.
std::string text(const AgentEditingRequirementDraft& draft);

// The sentence of one capability, naming the chosen option where it has one.
std::string instruction(AgentEditingCapabilityID id, const AgentEditingRequirementOptions& options);

} // namespace rilo::cli::AgentEditingRequirementComposer
