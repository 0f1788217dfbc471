// The command line when its surroundings are not as expected: a reader of its
// output that has gone away, and a package without a timeline document.

#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/RecordedPackage.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rilo {
namespace {

using json::Json;

// Runs `rilo cli <arguments>` with one of its output streams going into a pipe
// whose reading end is already closed, and gives the exit status (128 plus
// the signal when a signal ended it).
int runWithClosedReader(const std::filesystem::path& dataHome, int closedStream,
                        const std::vector<std::string>& arguments) {
    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) {
        return -1;
    }
    ::close(pipeEnds[0]);
    std::vector<std::string> words{testing::riloExecutable().string(), "cli"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const std::string environment = "XDG_DATA_HOME=" + dataHome.string();
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(pipeEnds[1], closedStream);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, closedStream == STDOUT_FILENO ? STDERR_FILENO : STDOUT_FILENO);
        std::vector<char*> argv;
        for (auto& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        char* envp[] = {const_cast<char*>(environment.c_str()), nullptr};
        ::execve(argv[0], argv.data(), envp);
        ::_exit(127);
    }
    ::close(pipeEnds[1]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

class RobustnessEndToEnd : public testing::CliLibraryTest {};

TEST_F(RobustnessEndToEnd, AGoneReaderLeavesTheExitCodeAsTheResult) {
    // The failure's envelope goes to standard error, the answers to standard output.
    EXPECT_EQ(runWithClosedReader(dataHome.path(), STDERR_FILENO, {"describe", "nonexistent"}), 2);
    EXPECT_EQ(runWithClosedReader(dataHome.path(), STDERR_FILENO, {"cut", "x", "--range", "9,1"}), 1);
    EXPECT_EQ(runWithClosedReader(dataHome.path(), STDOUT_FILENO, {"help"}), 0);
    EXPECT_EQ(runWithClosedReader(dataHome.path(), STDOUT_FILENO, {"list"}), 0);
    EXPECT_EQ(runWithClosedReader(dataHome.path(), STDOUT_FILENO, {"version"}), 0);
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
