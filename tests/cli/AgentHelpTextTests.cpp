#include "cli/agent/AgentHelpCatalog.h"
#include "shared/Files.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

// Agents follow the topic texts literally; each is kept byte for byte in
// tests/cli/expected/help-<topic>.txt.
TEST(AgentHelpCatalog, EveryTopicTextIsTheExpectedBytes) {
    for (const auto& [topic, word] : json::EnumNames<CLIAgentHelpTopic>::entries) {
        SCOPED_TRACE(std::string(word));
        const std::string expected = readFileBytes(testing::sourceDirectory() / "tests/cli/expected" /
                                                   ("help-" + std::string(word) + ".txt"));
        EXPECT_EQ(AgentHelpCatalog::text(topic), expected);
    }
}

} // namespace
} // namespace rilo::cli
