#pragma once

// The editing capabilities a user can ask an agent for, as the requirement
// form of the editor offers them: one fixed catalog, in the order the form
// shows them, with the help topic each one needs the agent to read.

#include "cli/agent/AgentHelpCatalog.h"
#include "shared/JsonNames.h"

#include <array>
#include <span>
#include <string_view>
#include <utility>

namespace rilo {
struct ProjectSnapshot;
}

namespace rilo::cli {

// Declared in catalog order, so that ordered containers of ids list them in
// the order of the catalog.
enum class AgentEditingCapabilityID {
    removePauses,
    removeRepetition,
    removeWaiting,
    speedUpWaiting,
    adjustPlaybackSpeed,
    addZooms,
    regenerateZooms,
    emphasizeClicks,
    prepareCaptions,
    correctTerminology,
    highlightKeywords,
    setAspectRatio,
    styleWebcam,
    styleCursor,
    generatePreview,
    exportVideo,
};

enum class AgentEditingCapabilityGroup { content, focus, captions, appearance, delivery };

struct AgentEditingCapabilityDefinition {
    AgentEditingCapabilityID id = AgentEditingCapabilityID::removePauses;
    AgentEditingCapabilityGroup group = AgentEditingCapabilityGroup::content;
    std::string_view title;
    std::string_view detail;
    CLIAgentHelpTopic helpTopic = CLIAgentHelpTopic::workflow;

    friend bool operator==(const AgentEditingCapabilityDefinition&,
                           const AgentEditingCapabilityDefinition&) = default;
};

namespace AgentEditingCapabilityCatalog {

// Every capability, in catalog order.
std::span<const AgentEditingCapabilityDefinition> definitions() noexcept;

const AgentEditingCapabilityDefinition& definition(AgentEditingCapabilityID id) noexcept;

// Caption capabilities need a microphone or system audio track, the webcam
// style needs webcam media; everything else is always offered.
bool isAvailable(AgentEditingCapabilityID id, const ProjectSnapshot& snapshot) noexcept;

// The placeholder of the capability's instruction field.
std::string_view instructionExample(AgentEditingCapabilityID id) noexcept;

} // namespace AgentEditingCapabilityCatalog

} // namespace rilo::cli

namespace rilo::json {

template <>
struct EnumNames<cli::AgentEditingCapabilityID> {
    static constexpr std::array<std::pair<cli::AgentEditingCapabilityID, std::string_view>, 16> entries{{
        {cli::AgentEditingCapabilityID::removePauses, "remove-pauses"},
        {cli::AgentEditingCapabilityID::removeRepetition, "remove-repetition"},
        {cli::AgentEditingCapabilityID::removeWaiting, "remove-waiting"},
        {cli::AgentEditingCapabilityID::speedUpWaiting, "speed-up-waiting"},
        {cli::AgentEditingCapabilityID::adjustPlaybackSpeed, "adjust-playback-speed"},
        {cli::AgentEditingCapabilityID::addZooms, "add-zooms"},
        {cli::AgentEditingCapabilityID::regenerateZooms, "regenerate-zooms"},
        {cli::AgentEditingCapabilityID::emphasizeClicks, "emphasize-clicks"},
        {cli::AgentEditingCapabilityID::prepareCaptions, "prepare-captions"},
        {cli::AgentEditingCapabilityID::correctTerminology, "correct-terminology"},
        {cli::AgentEditingCapabilityID::highlightKeywords, "highlight-keywords"},
        {cli::AgentEditingCapabilityID::setAspectRatio, "set-aspect-ratio"},
        {cli::AgentEditingCapabilityID::styleWebcam, "style-webcam"},
        {cli::AgentEditingCapabilityID::styleCursor, "style-cursor"},
        {cli::AgentEditingCapabilityID::generatePreview, "generate-preview"},
        {cli::AgentEditingCapabilityID::exportVideo, "export-video"},
    }};
};

} // namespace rilo::json
