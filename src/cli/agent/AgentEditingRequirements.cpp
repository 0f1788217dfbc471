#include "cli/agent/AgentEditingRequirements.h"

#include "cli/agent/UserPerceivedText.h"

namespace rilo::cli {

std::string_view optionTitle(AgentEditingAspectRatio value) noexcept {
    switch (value) {
    case AgentEditingAspectRatio::source:
        return "原始比例";
    case AgentEditingAspectRatio::landscape:
        return "横屏16:9";
    case AgentEditingAspectRatio::portrait:
        return "竖屏9:16";
    case AgentEditingAspectRatio::portraitThreeFour:
        return "竖屏3:4";
    case AgentEditingAspectRatio::portraitFourFive:
        return "竖屏4:5";
    }
    return {};
}

std::string_view optionTitle(AgentEditingClickStyle value) noexcept {
    switch (value) {
    case AgentEditingClickStyle::solidPulse:
        return "实心脉冲";
    case AgentEditingClickStyle::ring:
        return "圆环";
    case AgentEditingClickStyle::ringAndPress:
        return "圆环加按压";
    }
    return {};
}

std::string_view optionTitle(AgentEditingWebcamShape value) noexcept {
    switch (value) {
    case AgentEditingWebcamShape::circle:
        return "圆形";
    case AgentEditingWebcamShape::roundedRectangle:
        return "圆角矩形";
    }
    return {};
}

std::string_view optionTitle(AgentEditingExportPreset value) noexcept {
    switch (value) {
    case AgentEditingExportPreset::high:
        return "高质量";
    case AgentEditingExportPreset::standard:
        return "标准";
    case AgentEditingExportPreset::compact:
        return "紧凑";
    }
    return {};
}

std::string AgentEditingRequirementDraft::capabilityInstruction(AgentEditingCapabilityID id) const {
    const auto found = capabilityInstructions.find(id);
    if (found == capabilityInstructions.end()) {
        return {};
    }
    return std::string(trimmedWhiteSpace(found->second));
}

void AgentEditingRequirementDraft::constrainInstructions() {
    for (auto& [id, instruction] : capabilityInstructions) {
        instruction = std::string(userPerceivedPrefix(instruction, maximumCapabilityInstructionCharacters));
    }
}

void AgentEditingRequirementDraft::applyDependenciesAndConflicts(AgentEditingCapabilityID id) {
    using ID = AgentEditingCapabilityID;
    if (!selectedCapabilities.contains(id)) {
        return;
    }
    switch (id) {
    case ID::removeWaiting:
        selectedCapabilities.erase(ID::speedUpWaiting);
        break;
    case ID::speedUpWaiting:
        selectedCapabilities.erase(ID::removeWaiting);
        break;
    case ID::addZooms:
        selectedCapabilities.erase(ID::regenerateZooms);
        break;
    case ID::regenerateZooms:
        selectedCapabilities.erase(ID::addZooms);
        break;
    case ID::exportVideo:
        selectedCapabilities.insert(ID::generatePreview);
        break;
    default:
        break;
    }
}

} // namespace rilo::cli
