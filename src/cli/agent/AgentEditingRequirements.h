#pragma once

// What the user asks an agent to do: the capabilities chosen in the
// requirement form, an instruction for each, the options the sentences
// name, and free text for the whole request. Plain values; the form edits
// them, the prompt builder reads them, templates store them.

#include "cli/agent/AgentEditingCapabilities.h"
#include "shared/JsonNames.h"

#include <array>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace rilo::cli {

enum class AgentEditingAspectRatio { source, landscape, portrait, portraitThreeFour, portraitFourFive };
enum class AgentEditingClickStyle { solidPulse, ring, ringAndPress };
enum class AgentEditingWebcamShape { circle, roundedRectangle };
enum class AgentEditingExportPreset { high, standard, compact };

// The labels of the option values as the form shows them and the capability
// sentences name them.
std::string_view optionTitle(AgentEditingAspectRatio value) noexcept;
std::string_view optionTitle(AgentEditingClickStyle value) noexcept;
std::string_view optionTitle(AgentEditingWebcamShape value) noexcept;
std::string_view optionTitle(AgentEditingExportPreset value) noexcept;

struct AgentEditingRequirementOptions {
    AgentEditingAspectRatio aspectRatio = AgentEditingAspectRatio::source;
    AgentEditingClickStyle clickStyle = AgentEditingClickStyle::solidPulse;
    AgentEditingWebcamShape webcamShape = AgentEditingWebcamShape::circle;
    AgentEditingExportPreset exportPreset = AgentEditingExportPreset::high;

    friend bool operator==(const AgentEditingRequirementOptions&,
                           const AgentEditingRequirementOptions&) = default;
};

// Counted in user-perceived characters (see UserPerceivedText.h).
inline constexpr std::size_t maximumCapabilityInstructionCharacters = 500;

struct AgentEditingRequirementDraft {
    // Ordered sets and maps of ids list them in catalog order.
    std::set<AgentEditingCapabilityID> selectedCapabilities;
    std::map<AgentEditingCapabilityID, std::string> capabilityInstructions;
    AgentEditingRequirementOptions options;
    std::string additionalInstructions;

    // The capability's instruction without surrounding white space; empty
    // when there is none.
    std::string capabilityInstruction(AgentEditingCapabilityID id) const;

    // Cuts every capability instruction to its first 500 characters.
    void constrainInstructions();

    // Called after `id` was selected: removes the capability it excludes
    // (waiting removed or sped up; zooms added or regenerated) and selects
    // what it needs (an export is previewed first). Does nothing when `id`
    // is not selected, so deselecting leaves the dependencies in place.
    void applyDependenciesAndConflicts(AgentEditingCapabilityID id);

    friend bool operator==(const AgentEditingRequirementDraft&,
                           const AgentEditingRequirementDraft&) = default;
};

} // namespace rilo::cli

namespace rilo::json {

// The option words are those of the command line's settings.
template <>
struct EnumNames<cli::AgentEditingAspectRatio> {
    static constexpr std::array<std::pair<cli::AgentEditingAspectRatio, std::string_view>, 5> entries{{
        {cli::AgentEditingAspectRatio::source, "source"},
        {cli::AgentEditingAspectRatio::landscape, "16:9"},
        {cli::AgentEditingAspectRatio::portrait, "9:16"},
        {cli::AgentEditingAspectRatio::portraitThreeFour, "3:4"},
        {cli::AgentEditingAspectRatio::portraitFourFive, "4:5"},
    }};
};

template <>
struct EnumNames<cli::AgentEditingClickStyle> {
    static constexpr std::array<std::pair<cli::AgentEditingClickStyle, std::string_view>, 3> entries{{
        {cli::AgentEditingClickStyle::solidPulse, "solid-pulse"},
        {cli::AgentEditingClickStyle::ring, "ring"},
        {cli::AgentEditingClickStyle::ringAndPress, "ring-and-press"},
    }};
};

template <>
struct EnumNames<cli::AgentEditingWebcamShape> {
    static constexpr std::array<std::pair<cli::AgentEditingWebcamShape, std::string_view>, 2> entries{{
        {cli::AgentEditingWebcamShape::circle, "circle"},
        {cli::AgentEditingWebcamShape::roundedRectangle, "rounded-rectangle"},
    }};
};

template <>
struct EnumNames<cli::AgentEditingExportPreset> {
    static constexpr std::array<std::pair<cli::AgentEditingExportPreset, std::string_view>, 3> entries{{
        {cli::AgentEditingExportPreset::high, "high"},
        {cli::AgentEditingExportPreset::standard, "standard"},
        {cli::AgentEditingExportPreset::compact, "compact"},
    }};
};

template <>
struct RecordFields<cli::AgentEditingRequirementOptions> {
    using Options = cli::AgentEditingRequirementOptions;
    static constexpr auto fields = std::tuple{
        field("aspectRatio", &Options::aspectRatio), field("clickStyle", &Options::clickStyle),
        field("webcamShape", &Options::webcamShape), field("exportPreset", &Options::exportPreset)};
};

} // namespace rilo::json
