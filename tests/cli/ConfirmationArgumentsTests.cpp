#include "cli/CLIArgumentParser.h"
#include "cli/ProjectCommandService.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

const std::string id = "0F3C2A4E-1B2D-4C5E-8F70-123456789ABC";
const std::string digest = std::string(64, 'a');

std::vector<std::string> confirmationOf(const std::vector<std::string>& arguments) {
    const auto command = std::get<command::Mutate>(CLIArgumentParser::parse(arguments));
    return ProjectCommandService::confirmationArguments(command.request.mutation, id, digest);
}

std::vector<std::string> withTail(std::vector<std::string> words) {
    words.insert(words.end(), {"--apply", "--expect", digest});
    return words;
}

// The confirmation of a preview must parse back to the very same change.
TEST(ConfirmationArguments, RepeatTheChangeWithTheFullIDAndTheDigest) {
    EXPECT_EQ(confirmationOf({"cut", "0f3c", "--range", "5000,9000"}),
              withTail({"cut", id, "--range", "5000,9000"}));
    EXPECT_EQ(confirmationOf({"cut", "0f3c", "--source", "--range", "0,10"}),
              withTail({"cut", id, "--range", "0,10", "--source"}));
    EXPECT_EQ(confirmationOf({"speed-set", "0f3c", "--range", "0,2000", "--rate", "1.50"}),
              withTail({"speed-set", id, "--range", "0,2000", "--rate", "1.5"}));
    EXPECT_EQ(
        confirmationOf({"zoom-add", "0f3c", "--range", "100,900", "--at", "0.25,0.5", "--source"}),
        withTail({"zoom-add", id, "--range", "100,900", "--level", "1.8", "--source", "--at", "0.25,0.5"}));
    EXPECT_EQ(confirmationOf({"set", "0f3c", "cursor.scale=2", "canvas.aspect=9:16"}),
              withTail({"set", id, "canvas.aspect=9:16", "cursor.scale=2"}));

    for (const auto& arguments :
         {std::vector<std::string>{"speed-set", "0f3c", "--range", "0,2000", "--rate", "0.75"},
          {"set", "0f3c", "webcam.shadow=false", "canvas.padding=0.1"}}) {
        const auto confirmation = confirmationOf(arguments);
        const auto reparsed = std::get<command::Mutate>(CLIArgumentParser::parse(confirmation));
        const auto original = std::get<command::Mutate>(CLIArgumentParser::parse(arguments));
        EXPECT_EQ(reparsed.request.mutation, original.request.mutation);
        EXPECT_TRUE(reparsed.request.appliesChanges);
        EXPECT_EQ(reparsed.request.expectedDigest, digest);
    }
}

} // namespace
} // namespace rilo::cli
