// The watcher of a package's documents, on a real directory with real
// inotify events; the test thread plays the main thread.

#include "app/editing/ProjectTimelineWatcher.h"
#include "shared/Files.h"
#include "support/MainThreadTaskQueue.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>

namespace rilo {
namespace {

using namespace std::chrono_literals;

// Long enough for any burst to settle on a loaded machine; only bounds waits.
constexpr auto patience = 10s;

class ProjectTimelineWatcherTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory;
    testing::MainThreadTaskQueue mainThread;
    ProjectTimelineWatcher watcher{mainThread.poster()};
    int reloads = 0;

    void startWatching() {
        watcher.start(directory.path(), [this] { ++reloads; });
    }

    // Waits until the watcher has posted and then gone quiet, and runs what
    // was posted, as a main thread that was busy during the burst would.
    void settle() {
        ASSERT_TRUE(mainThread.waitUntilQuiet(ProjectTimelineWatcher::settleDelay * 6, patience));
        mainThread.runPending();
    }
};

TEST_F(ProjectTimelineWatcherTest, ABurstOfCommitsIsOneReload) {
    startWatching();
    for (int commit = 0; commit < 5; ++commit) {
        writeFileAtomically(directory / "timeline.json",
                            "{\"schemaVersion\":" + std::to_string(commit) + "}");
    }
    settle();
    EXPECT_EQ(reloads, 1);

    // A main thread too busy to run the reload before the next commit runs
    // only the newest one.
    writeFileAtomically(directory / "timeline.json", "{\"a\":1}");
    ASSERT_TRUE(mainThread.waitForTask(patience));
    writeFileAtomically(directory / "timeline.json", "{\"a\":2}");
    settle();
    EXPECT_EQ(reloads, 2);

    // Each kind of change counts: a rename out of the directory, a removal.
    std::filesystem::rename(directory / "timeline.json",
                            directory.path().parent_path() /
                                (directory.path().filename().string() + ".moved"));
    settle();
    EXPECT_EQ(reloads, 3);
    std::filesystem::remove(directory.path().parent_path() /
                            (directory.path().filename().string() + ".moved"));
    std::ofstream(directory / "captions.json") << "{}";
    settle();
    std::filesystem::remove(directory / "captions.json");
    settle();
    EXPECT_EQ(reloads, 5);
}

TEST_F(ProjectTimelineWatcherTest, AfterStopNothingIsReloadedAndItCanStartAgain) {
    startWatching();
    writeFileAtomically(directory / "timeline.json", "{}");
    ASSERT_TRUE(mainThread.waitForTask(patience));
    watcher.stop();
    EXPECT_FALSE(watcher.isWatching());
    mainThread.runPending();
    EXPECT_EQ(reloads, 0);

    // Writes while stopped go unnoticed; a new start sees the next one.
    writeFileAtomically(directory / "timeline.json", "{\"a\":1}");
    startWatching();
    writeFileAtomically(directory / "timeline.json", "{\"a\":2}");
    settle();
    EXPECT_EQ(reloads, 1);
}

TEST_F(ProjectTimelineWatcherTest, ADirectoryThatCannotBeWatchedIsRefused) {
    const auto refusal = [&](const std::filesystem::path& path) {
        return testing::thrownCase<ProjectTimelineWatcherError>([&] { watcher.start(path, [] {}); });
    };
    EXPECT_EQ(refusal(directory / "missing"), ProjectTimelineWatcherError::Case::cannotOpenDirectory);
    std::ofstream(directory / "file") << "x";
    EXPECT_EQ(refusal(directory / "file"), ProjectTimelineWatcherError::Case::cannotOpenDirectory);
    EXPECT_FALSE(watcher.isWatching());

    // A failed start also ends the watch before it.
    startWatching();
    EXPECT_TRUE(watcher.isWatching());
    EXPECT_TRUE(refusal(directory / "missing").has_value());
    EXPECT_FALSE(watcher.isWatching());
}

} // namespace
} // namespace rilo
