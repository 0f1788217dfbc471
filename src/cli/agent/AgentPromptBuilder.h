#pragma once

// The prompts the user copies out of the editor for an agent: one for an
// editing request and one for a captions-only job. Each states the project's
// facts, how to start the command line, the safety rules and which help to
// read. Pure functions of their arguments.

#include "cli/agent/AgentEditingRequirements.h"
#include "project/document/MediaTrackKind.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace rilo {
struct ProjectSnapshot;
}

namespace rilo::cli {

enum class CaptionAgentPromptMode { generate, regenerate };

namespace AgentPromptBuilder {

// The executable a prompt names when the caller knows of none.
inline constexpr std::string_view defaultExecutablePath = "/usr/bin/rilo";

// `executablePath` is the running executable where the caller knows it.
std::string make(const ProjectSnapshot& snapshot, const AgentEditingRequirementDraft& requirements,
                 const std::optional<std::filesystem::path>& executablePath);

// None when the project has no audio track to caption.
std::optional<std::string> makeCaptions(const ProjectSnapshot& snapshot, CaptionAgentPromptMode mode,
                                        const std::optional<std::filesystem::path>& executablePath);

// The microphone when recorded, else the system audio, else none.
std::optional<MediaTrackKind> preferredCaptionTrack(const ProjectSnapshot& snapshot) noexcept;

} // namespace AgentPromptBuilder

} // namespace rilo::cli
