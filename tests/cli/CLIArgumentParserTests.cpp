#include "cli/CLIArgumentParser.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

using Case = CLIArgumentError::Case;

CLIArgumentError parseFailure(const std::vector<std::string>& arguments) {
    try {
        CLIArgumentParser::parse(arguments);
    } catch (const CLIArgumentError& error) {
        return error;
    }
    ADD_FAILURE() << "parsed without error";
    return CLIArgumentError::missingCommand();
}

TEST(CLIArgumentParser, HelpTopics) {
    EXPECT_EQ(CLIArgumentParser::parse({}), CLICommand(command::Help{}));
    for (const char* word : {"help", "--help", "-h"}) {
        EXPECT_EQ(CLIArgumentParser::parse({word}), CLICommand(command::Help{})) << word;
    }
    EXPECT_EQ(CLIArgumentParser::parse({"help", "edit-plan"}),
              CLICommand(command::Help{CLIAgentHelpTopic::editPlan}));
    EXPECT_EQ(CLIArgumentParser::parse({"-h", "output"}),
              CLICommand(command::Help{CLIAgentHelpTopic::output}));

    const auto unknown = parseFailure({"help", "nonsense"});
    EXPECT_EQ(unknown.errorCase(), Case::invalidValue);
    EXPECT_EQ(unknown.message(), "参数无效：help topic");
    // Topic words are exact: the case name of a topic is not its word.
    EXPECT_EQ(parseFailure({"help", "editPlan"}).errorCase(), Case::invalidValue);
    const auto extra = parseFailure({"help", "workflow", "captions"});
    EXPECT_EQ(extra.errorCase(), Case::unexpectedArgument);
    EXPECT_EQ(extra.message(), "无法识别参数：captions");
}

TEST(CLIArgumentParser, CommandsWithoutArguments) {
    EXPECT_EQ(CLIArgumentParser::parse({"list"}), CLICommand(command::List{}));
    EXPECT_EQ(CLIArgumentParser::parse({"system-info"}), CLICommand(command::SystemInfo{}));
    EXPECT_EQ(parseFailure({"list", "--all"}).message(), "无法识别参数：--all");
    EXPECT_EQ(parseFailure({"system-info", "x"}).message(), "无法识别参数：x");
}

TEST(CLIArgumentParser, CommandsWithExactlyOneProjectPrefix) {
    EXPECT_EQ(CLIArgumentParser::parse({"describe", "1a2b"}), CLICommand(command::Describe{"1a2b"}));
    EXPECT_EQ(CLIArgumentParser::parse({"history", "1A"}), CLICommand(command::History{"1A"}));
    EXPECT_EQ(CLIArgumentParser::parse({"captions-read", "ab"}), CLICommand(command::CaptionsRead{"ab"}));
    EXPECT_EQ(CLIArgumentParser::parse({"edit-plan-prepare", "ab"}),
              CLICommand(command::EditPlanPrepare{"ab"}));

    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"describe"}, {"describe", ""}, {"history", "--json"}}) {
        const auto error = parseFailure(arguments);
        EXPECT_EQ(error.errorCase(), Case::missingValue);
        EXPECT_EQ(error.message(), "缺少参数：id");
    }
    EXPECT_EQ(parseFailure({"describe", "ab", "cd"}).message(), "无法识别参数：cd");
}

TEST(CLIArgumentParser, UnknownCommands) {
    for (const char* word : {"nonsense", "Describe", "version", "--list", ""}) {
        const auto error = parseFailure({word});
        EXPECT_EQ(error.errorCase(), Case::unknownCommand) << word;
        EXPECT_EQ(error.message(), std::string("未知命令：") + word);
    }
}

} // namespace
} // namespace rilo::cli
