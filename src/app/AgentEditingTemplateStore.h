#pragma once

// The saved agent editing templates: one JSON file, "AgentEditingTemplates.json",
// in the directory given at construction (the application passes
// defaultDirectory()). Used from the main thread only; no locking. A save
// checks every limit before writing and replaces the file atomically, so a
// failed save leaves the file as it was.

#include "app/AgentEditingTemplate.h"
#include "shared/Errors.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace rilo::app {

enum class AgentEditingTemplateStoreErrorCase {
    unsupportedSchema,
    tooManyTemplates,
    invalidName,
    instructionsTooLong,
    capabilityInstructionTooLong,
};

class AgentEditingTemplateStoreError : public CaseError<AgentEditingTemplateStoreErrorCase> {
public:
    static AgentEditingTemplateStoreError unsupportedSchema(std::int64_t version) {
        return {Case::unsupportedSchema, "模板文件版本不受支持：" + std::to_string(version)};
    }
    static AgentEditingTemplateStoreError tooManyTemplates() {
        return {Case::tooManyTemplates, "最多只能保存50个AI剪辑模板。"};
    }
    static AgentEditingTemplateStoreError invalidName() {
        return {Case::invalidName, "模板名称不能为空，且最多40个字符。"};
    }
    static AgentEditingTemplateStoreError instructionsTooLong() {
        return {Case::instructionsTooLong, "模板整体补充说明不能超过4000个字符。"};
    }
    static AgentEditingTemplateStoreError capabilityInstructionTooLong() {
        return {Case::capabilityInstructionTooLong, "每项功能的针对性说明不能超过500个字符。"};
    }

private:
    AgentEditingTemplateStoreError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}
};

// Texts are counted in user-perceived characters.
inline constexpr std::size_t maximumAgentEditingTemplates = 50;
inline constexpr std::size_t maximumAgentEditingTemplateNameCharacters = 40;
inline constexpr std::size_t maximumAgentEditingTemplateInstructionsCharacters = 4000;

class AgentEditingTemplateStore {
public:
    // <application data>/Rilo.
    static std::filesystem::path defaultDirectory();

    explicit AgentEditingTemplateStore(std::filesystem::path directory);

    const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

    // No file gives no templates. Throws AgentEditingTemplateStoreError for a
    // schema other than 2, json::DecodingError for a file that does not decode,
    // FileError for one that cannot be read.
    std::vector<AgentEditingTemplate> load() const;

    // Throws AgentEditingTemplateStoreError at the first limit broken, in the
    // order: count, then for each template its name, its additional
    // instructions, its capability instructions. Creates the directory.
    void save(const std::vector<AgentEditingTemplate>& templates) const;

private:
    std::filesystem::path fileURL_;
};

} // namespace rilo::app
