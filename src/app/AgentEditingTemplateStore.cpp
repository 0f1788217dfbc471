#include "app/AgentEditingTemplateStore.h"

#include "cli/agent/UserPerceivedText.h"
#include "cli/exchange/StringMapCodec.h"
#include "shared/AppDirectories.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/ValueCodecs.h"

#include <system_error>

namespace rilo::app {

namespace {

constexpr std::string_view fileName = "AgentEditingTemplates.json";

void checkLimits(const AgentEditingTemplate& candidate) {
    const std::size_t nameLength = cli::userPerceivedCharacterCount(cli::trimmedWhiteSpace(candidate.name));
    if (nameLength == 0 || nameLength > maximumAgentEditingTemplateNameCharacters) {
        throw AgentEditingTemplateStoreError::invalidName();
    }
    if (cli::userPerceivedCharacterCount(candidate.additionalInstructions) >
        maximumAgentEditingTemplateInstructionsCharacters) {
        throw AgentEditingTemplateStoreError::instructionsTooLong();
    }
    for (const auto& [capability, instruction] : candidate.capabilityInstructions) {
        if (cli::userPerceivedCharacterCount(instruction) > cli::maximumCapabilityInstructionCharacters) {
            throw AgentEditingTemplateStoreError::capabilityInstructionTooLong();
        }
    }
}

} // namespace

std::filesystem::path AgentEditingTemplateStore::defaultDirectory() {
    return applicationDataDirectory() / "Rilo";
}

AgentEditingTemplateStore::AgentEditingTemplateStore(std::filesystem::path directory)
    : fileURL_(std::move(directory) / fileName) {}

std::vector<AgentEditingTemplate> AgentEditingTemplateStore::load() const {
    std::error_code error;
    if (!std::filesystem::exists(fileURL_, error) && !error) {
        return {};
    }
    const json::Json document = json::parse(readFileBytes(fileURL_));
    // The version decides how the rest reads, so it is checked on its own first.
    const auto& versionField = std::get<0>(json::RecordFields<AgentEditingTemplateDocument>::fields);
    const auto version = json::ObjectReader(document, {}).required<std::int64_t>(versionField.key);
    if (version != currentAgentEditingTemplateSchemaVersion) {
        throw AgentEditingTemplateStoreError::unsupportedSchema(version);
    }
    return json::decode<AgentEditingTemplateDocument>(document).templates;
}

void AgentEditingTemplateStore::save(const std::vector<AgentEditingTemplate>& templates) const {
    if (templates.size() > maximumAgentEditingTemplates) {
        throw AgentEditingTemplateStoreError::tooManyTemplates();
    }
    for (const AgentEditingTemplate& candidate : templates) {
        checkLimits(candidate);
    }
    const AgentEditingTemplateDocument document{currentAgentEditingTemplateSchemaVersion, templates};
    const std::string bytes = json::encodeDocument(document);
    const std::filesystem::path directory = fileURL_.parent_path();
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw FileError("无法创建目录：" + directory.string() + "（" + error.message() + "）");
    }
    writeFileAtomically(fileURL_, bytes);
}

} // namespace rilo::app
