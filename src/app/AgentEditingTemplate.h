#pragma once

// A saved set of choices of the agent requirement form, applied again to
// other projects. Capabilities are kept by their raw words, so that a file
// written by a newer version with capabilities unknown here still loads;
// applying the template skips what this project or this version cannot do.

#include "cli/agent/AgentEditingRequirements.h"
#include "shared/IsoDate.h"
#include "shared/JsonNames.h"
#include "shared/Uuid.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace rilo {
struct ProjectSnapshot;
}

namespace rilo::app {

struct AgentEditingTemplateApplication {
    cli::AgentEditingRequirementDraft draft;
    // Catalog titles of the capabilities left out, or the raw word of one
    // this version does not know.
    std::vector<std::string> skippedCapabilityNames;

    friend bool operator==(const AgentEditingTemplateApplication&,
                           const AgentEditingTemplateApplication&) = default;
};

struct AgentEditingTemplate {
    Uuid id;
    std::string name;
    std::vector<std::string> capabilityIDs;
    std::map<std::string, std::string> capabilityInstructions;
    cli::AgentEditingRequirementOptions options;
    std::string additionalInstructions;
    IsoDate createdAt;
    IsoDate updatedAt;

    // The trimmed name, the selected capabilities in catalog order, and the
    // non-empty instructions of the selected capabilities only.
    static AgentEditingTemplate make(const Uuid& id, std::string_view name,
                                     const cli::AgentEditingRequirementDraft& draft, IsoDate createdAt,
                                     IsoDate updatedAt);

    // A draft for the project: capabilities that are unknown, not in
    // `allowed`, or not available in the project are skipped and named;
    // instructions are cut to their limit.
    AgentEditingTemplateApplication applying(const ProjectSnapshot& snapshot,
                                             const std::set<cli::AgentEditingCapabilityID>& allowed) const;

    friend bool operator==(const AgentEditingTemplate&, const AgentEditingTemplate&) = default;
};

inline constexpr std::int64_t currentAgentEditingTemplateSchemaVersion = 2;

// The whole file.
struct AgentEditingTemplateDocument {
    std::int64_t schemaVersion = currentAgentEditingTemplateSchemaVersion;
    std::vector<AgentEditingTemplate> templates;

    friend bool operator==(const AgentEditingTemplateDocument&,
                           const AgentEditingTemplateDocument&) = default;
};

} // namespace rilo::app

namespace rilo::json {

template <>
struct RecordFields<app::AgentEditingTemplate> {
    using Template = app::AgentEditingTemplate;
    static constexpr auto fields =
        std::tuple{field("id", &Template::id),
                   field("name", &Template::name),
                   field("capabilityIDs", &Template::capabilityIDs),
                   field("capabilityInstructions", &Template::capabilityInstructions),
                   field("options", &Template::options),
                   field("additionalInstructions", &Template::additionalInstructions),
                   field("createdAt", &Template::createdAt),
                   field("updatedAt", &Template::updatedAt)};
};

// The schema version comes first: a reader checks it before the rest.
template <>
struct RecordFields<app::AgentEditingTemplateDocument> {
    using Document = app::AgentEditingTemplateDocument;
    static constexpr auto fields = std::tuple{field("schemaVersion", &Document::schemaVersion),
                                              field("templates", &Document::templates)};
};

} // namespace rilo::json
