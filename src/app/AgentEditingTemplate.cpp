#include "app/AgentEditingTemplate.h"

#include "cli/agent/UserPerceivedText.h"

namespace rilo::app {

using cli::AgentEditingCapabilityCatalog::definition;
using cli::AgentEditingCapabilityCatalog::isAvailable;
using ID = cli::AgentEditingCapabilityID;

AgentEditingTemplate AgentEditingTemplate::make(const Uuid& id, std::string_view name,
                                                const cli::AgentEditingRequirementDraft& draft,
                                                IsoDate createdAt, IsoDate updatedAt) {
    AgentEditingTemplate result;
    result.id = id;
    result.name = std::string(cli::trimmedWhiteSpace(name));
    for (const ID capability : draft.selectedCapabilities) {
        const std::string raw(json::rawValue(capability));
        result.capabilityIDs.push_back(raw);
        if (std::string instruction = draft.capabilityInstruction(capability); !instruction.empty()) {
            result.capabilityInstructions.emplace(raw, std::move(instruction));
        }
    }
    result.options = draft.options;
    result.additionalInstructions = draft.additionalInstructions;
    result.createdAt = createdAt;
    result.updatedAt = updatedAt;
    return result;
}

AgentEditingTemplateApplication AgentEditingTemplate::applying(const ProjectSnapshot& snapshot,
                                                               const std::set<ID>& allowed) const {
    AgentEditingTemplateApplication application;
    cli::AgentEditingRequirementDraft& draft = application.draft;
    for (const std::string& raw : capabilityIDs) {
        const std::optional<ID> capability = json::enumFromRaw<ID>(raw);
        if (!capability) {
            application.skippedCapabilityNames.push_back(raw);
            continue;
        }
        if (!allowed.contains(*capability) || !isAvailable(*capability, snapshot)) {
            application.skippedCapabilityNames.emplace_back(definition(*capability).title);
            continue;
        }
        draft.selectedCapabilities.insert(*capability);
        if (const auto instruction = capabilityInstructions.find(raw);
            instruction != capabilityInstructions.end()) {
            draft.capabilityInstructions[*capability] = instruction->second;
        }
    }
    draft.options = options;
    draft.additionalInstructions = additionalInstructions;
    draft.constrainInstructions();
    return application;
}

} // namespace rilo::app
