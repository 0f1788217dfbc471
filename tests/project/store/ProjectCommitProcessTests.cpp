// Commits from separate processes, as the command line and the editor make
// them: real forks racing for the same file lock.

#include "project/store/CommitFixtures.h"

#include <sys/wait.h>
#include <unistd.h>

namespace rilo {
namespace {

using testing::CommitTest;
using testing::numberedTimeline;

constexpr int committedExit = 0;
constexpr int conflictExit = 3;
constexpr int otherFailureExit = 1;

// Runs body in a child process and ends the child with its result. The child
// never returns into the test framework.
template <typename Body>
pid_t runInChild(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        int code = otherFailureExit;
        try {
            code = body();
        } catch (...) {
        }
        ::_exit(code);
    }
    return pid;
}

int exitCode(pid_t pid) {
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

// Commits the timeline in a child once the start pipe gives it a byte; exits
// with committedExit, conflictExit or otherFailureExit.
pid_t startCommitter(int start, const std::filesystem::path& library, const ProjectPackage& package,
                     const EditTimeline& timeline, const std::string& expectedDigest) {
    return runInChild([&] {
        ProjectStore store{library, testing::buildCatalog};
        char byte = 0;
        if (::read(start, &byte, 1) != 1) {
            return otherFailureExit;
        }
        try {
            store.commitTimeline(timeline, expectedDigest, std::nullopt, package);
            return committedExit;
        } catch (const ProjectStoreError& error) {
            return error.errorCase() == ProjectStoreError::Case::timelineDigestConflict ? conflictExit
                                                                                        : otherFailureExit;
        }
    });
}

TEST_F(CommitTest, OneOfTwoProcessesWithTheSameDigestWins) {
    for (int round = 0; round < 3; ++round) {
        const std::string original = timelineBytes();
        const std::string digest = sha256Hex(original);
        const std::size_t historyBefore = store.timelineHistory(package).size();
        const EditTimeline left = numberedTimeline(10 * round + 1);
        const EditTimeline right = numberedTimeline(10 * round + 2);

        int start[2];
        ASSERT_EQ(::pipe(start), 0);
        const pid_t leftChild = startCommitter(start[0], library, package, left, digest);
        const pid_t rightChild = startCommitter(start[0], library, package, right, digest);
        ASSERT_GT(leftChild, 0);
        ASSERT_GT(rightChild, 0);
        EXPECT_EQ(::write(start[1], "go", 2), 2);
        const int leftExit = exitCode(leftChild);
        const int rightExit = exitCode(rightChild);
        ::close(start[0]);
        ::close(start[1]);

        ASSERT_TRUE((leftExit == committedExit && rightExit == conflictExit) ||
                    (leftExit == conflictExit && rightExit == committedExit))
            << "round " << round << ": " << leftExit << ", " << rightExit;
        const EditTimeline& winner = leftExit == committedExit ? left : right;
        EXPECT_EQ(timelineBytes(), json::encodeDocument(winner));
        const auto history = store.timelineHistory(package);
        ASSERT_EQ(history.size(), historyBefore + 1);
        // The one new entry is the state that both prepared against.
        EXPECT_EQ(readFileBytes(history[0].fileURL), original);
        testing::CommitTest::waitPastMillisecond();
    }
}

} // namespace
} // namespace rilo
