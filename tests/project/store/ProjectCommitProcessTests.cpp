// Commits from separate processes, as the command line and the editor make
// them: real forks racing for the same file lock.

#include "project/store/AdvisoryFileLock.h"
#include "project/store/CommitFixtures.h"

#include <csignal>
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

bool hasExited(pid_t pid) {
    int status = 0;
    return ::waitpid(pid, &status, WNOHANG) == pid;
}

class Pipe {
public:
    Pipe() { EXPECT_EQ(::pipe(ends_), 0); }
    ~Pipe() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool waitForByte() const {
        char byte = 0;
        return ::read(ends_[0], &byte, 1) == 1;
    }
    void sendBytes(std::size_t count) const {
        const std::string bytes(count, 'x');
        EXPECT_EQ(::write(ends_[1], bytes.data(), count), static_cast<ssize_t>(count));
    }

private:
    int ends_[2] = {-1, -1};
};

// Commits the timeline in a child once the start pipe gives it a byte; exits
// with committedExit, conflictExit or otherFailureExit.
pid_t startCommitter(const Pipe& start, const std::filesystem::path& library, const ProjectPackage& package,
                     const EditTimeline& timeline, const std::string& expectedDigest) {
    return runInChild([&] {
        ProjectStore store{library, testing::buildCatalog};
        if (!start.waitForByte()) {
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

        const Pipe start;
        const pid_t leftChild = startCommitter(start, library, package, left, digest);
        const pid_t rightChild = startCommitter(start, library, package, right, digest);
        ASSERT_GT(leftChild, 0);
        ASSERT_GT(rightChild, 0);
        start.sendBytes(2);
        const int leftExit = exitCode(leftChild);
        const int rightExit = exitCode(rightChild);

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

TEST_F(CommitTest, CommitWaitsForTheLockAndADeadHolderReleasesIt) {
    const Pipe locked;
    const Pipe never;
    const pid_t holder = runInChild([&] {
        const AdvisoryFileLock lock(package.timelineLockURL());
        locked.sendBytes(1);
        never.waitForByte(); // held until the process is killed
        return committedExit;
    });
    ASSERT_GT(holder, 0);
    ASSERT_TRUE(locked.waitForByte());

    const std::string digest = store.timelineDigest(package);
    const Pipe start;
    const pid_t committer = startCommitter(start, library, package, numberedTimeline(1), digest);
    ASSERT_GT(committer, 0);
    start.sendBytes(1);

    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(hasExited(committer)) << "the commit did not wait for the lock";
    EXPECT_EQ(store.timelineDigest(package), digest);

    ASSERT_EQ(::kill(holder, SIGKILL), 0);
    EXPECT_EQ(exitCode(holder), -1);
    EXPECT_EQ(exitCode(committer), committedExit);
    EXPECT_EQ(timelineBytes(), json::encodeDocument(numberedTimeline(1)));
}

} // namespace
} // namespace rilo
