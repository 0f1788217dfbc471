// The command line when its surroundings are not as expected: a reader of its
// output that has gone away, and a package without a timeline document.

#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/RecordedPackage.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace rilo {
namespace {

using json::Json;

class RobustnessEndToEnd : public testing::CliLibraryTest {};

TEST_F(RobustnessEndToEnd, AGoneReaderLeavesTheExitCodeAsTheResult) {
    const auto exitWithoutReader = [&](int stream, const std::vector<std::string>& arguments) {
        return cli(arguments, {.closedReaderStream = stream}).exitCode;
    };
    // The failure's envelope goes to standard error, the answers to standard output.
    EXPECT_EQ(exitWithoutReader(STDERR_FILENO, {"describe", "nonexistent"}), 2);
    EXPECT_EQ(exitWithoutReader(STDERR_FILENO, {"cut", "x", "--range", "9,1"}), 1);
    EXPECT_EQ(exitWithoutReader(STDOUT_FILENO, {"help"}), 0);
    EXPECT_EQ(exitWithoutReader(STDOUT_FILENO, {"list"}), 0);
    EXPECT_EQ(exitWithoutReader(STDOUT_FILENO, {"version"}), 0);
}

TEST_F(RobustnessEndToEnd, APackageWithoutTimelineIsDescribedAndEditedFromTheEmptyTimeline) {
    const testing::RecordedPackage recorded = testing::makeRecordedPackage(store);
    const std::string id = recorded.manifest.id.string();
    std::filesystem::remove(recorded.package.timelineURL());
    const std::string digestOfNoBytes = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

    const Json described = succeed({"describe", id});
    EXPECT_EQ(described["timelineDigest"], digestOfNoBytes);
    EXPECT_EQ(succeed({"history", id})["entries"], Json::array());

    const auto untouched = testing::fileTreeState(recorded.package.rootURL);
    const Json preview = succeed({"cut", id, "--range", "100,600"});
    EXPECT_EQ(preview["timelineDigest"], digestOfNoBytes);
    EXPECT_EQ(testing::fileTreeState(recorded.package.rootURL), untouched);

    const auto confirmation = preview["confirmationArguments"].get<std::vector<std::string>>();
    const Json applied = succeed(confirmation);
    EXPECT_EQ(applied["resultingDigest"], sha256HexOfFile(recorded.package.timelineURL()));
    // There were no bytes to keep: the history stays empty.
    EXPECT_EQ(succeed({"history", id})["entries"], Json::array());
    EXPECT_EQ(succeed({"describe", id})["timelineDigest"], applied["resultingDigest"]);
}

} // namespace
} // namespace rilo
