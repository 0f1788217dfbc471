// The grammar through the real executable: a malformed line fails with the
// argument envelope before anything is opened, and a well-formed one gets
// past the parser.

#include "shared/Json.h"
#include "support/ProcessRunner.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

class GrammarEndToEnd : public ::testing::Test {
protected:
    testing::TemporaryDirectory dataHome;

    testing::ProcessResult rilo(const std::vector<std::string>& arguments) const {
        testing::ProcessOptions options;
        options.environment["XDG_DATA_HOME"] = dataHome.path().string();
        return testing::runProcess(testing::riloExecutable(), arguments, options);
    }
};

TEST_F(GrammarEndToEnd, ApplyWithoutExpectIsRefusedBeforeAnythingIsTouched) {
    const auto result = rilo({"cli", "cut", "abc", "--range", "0,1000", "--apply"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError,
              "{\n  \"error\" : \"invalid_arguments\",\n  \"message\" : "
              "\"参数无效：--apply必须与--expect同时提供\",\n  \"protocolVersion\" : 1\n}\n");
    EXPECT_TRUE(std::filesystem::is_empty(dataHome.path()));
}

TEST_F(GrammarEndToEnd, MalformedLinesTouchNoFile) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> lines{
        {{"cli", "cut", "--range", "0,1000"}, "缺少参数：id"},
        {{"cli", "idle", "abc", "--min-removal-ms", "16"}, "参数无效：--min-removal-ms"},
        {{"cli", "frame", "abc", "--ms", "0", "--out", "a/b.jpg"}, "参数无效：--out"},
        {{"cli", "export", "abc", "--preset", "ultra", "--out", "x.mp4"}, "参数无效：--preset"},
        {{"cli", "set", "abc", "a=1", "a=2"}, "参数无效：a"},
        {{"cli", "zoom-rm", "abc"}, "参数无效：--index/--all"},
    };
    for (const auto& [arguments, message] : lines) {
        const auto result = rilo(arguments);
        EXPECT_EQ(result.exitCode, 1) << arguments[1];
        EXPECT_EQ(result.standardOutput, "") << arguments[1];
        const auto envelope = json::parse(result.standardError);
        EXPECT_EQ(envelope["error"], "invalid_arguments");
        EXPECT_EQ(envelope["message"], message);
    }
    EXPECT_TRUE(std::filesystem::is_empty(dataHome.path()));
}

TEST_F(GrammarEndToEnd, ANegativeNumberIsAValueAndTheLineGetsPastTheParser) {
    const auto result = rilo({"cli", "idle", "abc", "--silence-db", "-42"});
    // Parsed; then the empty library has no project "abc".
    EXPECT_EQ(result.exitCode, 2) << result.standardError;
    EXPECT_EQ(result.standardOutput, "");
    const auto envelope = json::parse(result.standardError);
    EXPECT_EQ(envelope["error"], "project_not_found");
    EXPECT_EQ(envelope["message"], "找不到项目：abc");
}

TEST_F(GrammarEndToEnd, ExportWithABareNameIsAccepted) {
    const auto result = rilo({"cli", "export", "abc", "--preset", "high", "--fps", "30", "--out", "x.mp4"});
    EXPECT_NE(result.exitCode, 1) << result.standardError;
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_FALSE(std::filesystem::exists(dataHome / "Rilo/Exports/x.mp4"));
}

} // namespace
} // namespace rilo
