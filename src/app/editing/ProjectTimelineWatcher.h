#pragma once

// Tells the editor that a package's documents changed on disk, which is how a
// commit by the command line reaches an open editor. Watch the directory in
// which the documents are replaced: a commit writes a temporary file beside
// edits/timeline.json and renames it over the old one, so the edits
// directory of the package sees the write, the rename and the removal.
//
// Ownership and threads: the watcher owns an inotify descriptor, an eventfd
// and one thread that waits on both. The thread never calls onChange itself:
// it hands a task to postToMainThread, which must be safe to call from any
// thread and run the task later on the main thread. start, stop and the
// destructor belong to the main thread.
//
// Bursts: every event makes the tasks posted before it stale, and a task is
// posted only after settleDelay without events, so that a commit (which
// creates, writes, renames and takes a lock file) is one call of onChange. A
// stale task, or one that runs after stop(), does nothing.
//
// Failure: start throws ProjectTimelineWatcherError::cannotOpenDirectory when
// the directory cannot be watched (missing, not a directory, no permission)
// and then watches nothing.

#include "app/editing/ProjectTimelineWatcherError.h"
#include "shared/FileDescriptor.h"
#include "shared/MainThreadPoster.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

namespace rilo {

class ProjectTimelineWatcher {
public:
    static constexpr std::chrono::milliseconds settleDelay{75};

    explicit ProjectTimelineWatcher(MainThreadPoster postToMainThread);
    // Stops the watch.
    ~ProjectTimelineWatcher();

    ProjectTimelineWatcher(const ProjectTimelineWatcher&) = delete;
    ProjectTimelineWatcher& operator=(const ProjectTimelineWatcher&) = delete;

    // Stops an earlier watch, then watches the directory (not its
    // subdirectories) for files written, created, renamed in or out and
    // deleted.
    void start(const std::filesystem::path& directoryURL, std::function<void()> onChange);
    // Ends the thread promptly and closes the descriptors; tasks already
    // posted do nothing. Nothing happens without a watch.
    void stop();

    bool isWatching() const noexcept { return thread_.joinable(); }

private:
    MainThreadPoster postToMainThread_;
    // Counts events and stops; shared with the posted tasks, which may
    // outlive the watcher, so that a task can tell that it is stale.
    std::shared_ptr<std::atomic<std::uint64_t>> generation_ = std::make_shared<std::atomic<std::uint64_t>>(0);
    FileDescriptor descriptor_;
    FileDescriptor wakeDescriptor_;
    std::jthread thread_;
};

} // namespace rilo
