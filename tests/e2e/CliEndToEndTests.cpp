// Runs the real rilo executable against a library in a temporary data
// directory and checks its streams, exit codes and what it leaves on disk.

#include "shared/Files.h"
#include "shared/Json.h"
#include "support/CliLibraryTest.h"
#include "support/PackageFixtures.h"
#include "support/TestPaths.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>

namespace rilo {
namespace {

class CliEndToEnd : public testing::CliTest {
protected:
    static std::string errorEnvelope(const std::string& code, const std::string& message) {
        return "{\n  \"error\" : \"" + code + "\",\n  \"message\" : \"" + message +
               "\",\n  \"protocolVersion\" : 1\n}\n";
    }
};

TEST_F(CliEndToEnd, VersionIsOneLineHelpIsTheGeneralTextAndWithoutTheWordCliTheApplicationStarts) {
    const std::string version = "{\"protocolVersion\":1,\"version\":\"0.1.0\"}\n";
    const std::string help =
        readFileBytes(testing::sourceDirectory() / "tests/e2e/expected/general-help.txt");
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"cli", "version"}, version}, {{"cli", "--version"}, version}, {{"cli"}, help},
        {{"cli", "help"}, help},       {{"cli", "--help"}, help},       {{"cli", "-h"}, help},
    };
    for (const auto& [arguments, output] : rows) {
        const auto result = rilo(arguments);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.standardOutput, output);
        EXPECT_EQ(result.standardError, "");
    }
    // Without the word "cli" the desktop application starts; with no display
    // it says so in its own words instead of failing inside the toolkit.
    testing::ProcessOptions noDisplay;
    noDisplay.environment = {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"QT_QPA_PLATFORM", ""}};
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"list"}, {"CLI", "list"}}) {
        const auto result = rilo(arguments, noDisplay);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.standardOutput.find("protocolVersion"), std::string::npos);
        EXPECT_NE(result.standardError.find("无法打开 Rilo 窗口"), std::string::npos) << result.standardError;
    }
    // None of them opens a project store.
    EXPECT_TRUE(std::filesystem::is_empty(dataHome.path()));
}

TEST_F(CliEndToEnd, ArgumentErrorsUseTheEnvelopeOnStandardError) {
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string standardError;
    } rows[] = {
        {{"help", "nonsense"}, 1, errorEnvelope("invalid_arguments", "参数无效：help topic")},
        {{"cut", "abc", "--range", "0,1000", "--apply"},
         1,
         errorEnvelope("invalid_arguments", "参数无效：--apply必须与--expect同时提供")},
        // A negative number is a value: the line gets past the parser, and then
        // the empty library has no project "abc".
        {{"idle", "abc", "--silence-db", "-42"}, 2, errorEnvelope("project_not_found", "找不到项目：abc")},
    };
    for (const auto& row : rows) {
        const auto result = cli(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode);
        EXPECT_EQ(result.standardOutput, "");
        EXPECT_EQ(result.standardError, row.standardError);
        // Arguments are refused before any library is opened.
        EXPECT_EQ(std::filesystem::exists(library), row.exitCode != 1);
    }
}

TEST_F(CliEndToEnd, ListsOnlyFinishedProjectsNewestFirst) {
    EXPECT_EQ(cli({"list"}).standardOutput, "[]\n");
    EXPECT_TRUE(std::filesystem::is_directory(library));
    const auto older = testing::writePackage(
        library, testing::sampleManifest(*Uuid::parse("22222222-0000-4000-8000-000000000002"),
                                         IsoDate{1'700'000'000}));
    testing::writePackage(library,
                          testing::sampleManifest(*Uuid::parse("11111111-0000-4000-8000-000000000001"),
                                                  IsoDate{1'800'000'000}));
    testing::writePackage(library,
                          testing::sampleManifest(*Uuid::parse("33333333-0000-4000-8000-000000000003"),
                                                  IsoDate{1'900'000'000}, ProjectState::failed));

    const json::Json projects = succeed({"list"});
    ASSERT_EQ(projects.size(), 2u);
    EXPECT_EQ(projects[0]["id"], "11111111-0000-4000-8000-000000000001");
    EXPECT_EQ(projects[1], json::Json({{"durationMilliseconds", 12345},
                                       {"hasWebcam", true},
                                       {"id", "22222222-0000-4000-8000-000000000002"},
                                       {"packagePath", older.rootURL.string()},
                                       {"title", "内建显示器 / Built-in"},
                                       {"updatedAt", "2023-11-14T22:13:20Z"}}));
}

// A signal during a command cancels it: the process reports "cancelled" and
// exits 130 instead of dying.
TEST_F(CliEndToEnd, TerminationSignalCancelsAListOfALargeLibrary) {
    // Enough packages that the listing is still running when the signal comes.
    for (int i = 0; i < 1500; ++i) {
        const Uuid id = Uuid::random();
        const ProjectPackage package{library / (id.string() + ".rilo")};
        std::filesystem::create_directories(package.mediaDirectory());
        std::ofstream(package.manifestURL()) << json::encodeDocument(testing::sampleManifest(id, IsoDate{i}));
        std::ofstream(package.mediaURL()) << "media";
    }
    const auto result = cli({"list"}, {.signalOnceBlocked = SIGTERM});
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError, errorEnvelope("cancelled", "命令已取消。"));
}

} // namespace
} // namespace rilo
