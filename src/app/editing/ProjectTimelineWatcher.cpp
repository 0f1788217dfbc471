#include "app/editing/ProjectTimelineWatcher.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace rilo {

namespace {

constexpr std::uint32_t watchedEvents = IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                        IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

// Reads every queued event; answers whether there was at least one.
bool drainEvents(int descriptor) {
    alignas(inotify_event) std::array<char, 4096> buffer{};
    bool any = false;
    while (true) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count > 0) {
            any = true;
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        return any;
    }
}

// The watcher's thread: waits for events or the wake-up, and posts one task
// after each burst has settled.
void watch(const std::stop_token& stopToken, int descriptor, int wakeDescriptor,
           const std::shared_ptr<std::atomic<std::uint64_t>>& generation,
           const MainThreadPoster& postToMainThread,
           const std::shared_ptr<const std::function<void()>>& onChange) {
    bool burstPending = false;
    while (!stopToken.stop_requested()) {
        std::array<pollfd, 2> descriptors{{{descriptor, POLLIN, 0}, {wakeDescriptor, POLLIN, 0}}};
        const int timeout = burstPending ? static_cast<int>(ProjectTimelineWatcher::settleDelay.count()) : -1;
        const int ready = ::poll(descriptors.data(), descriptors.size(), timeout);
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (descriptors[1].revents != 0) {
            return;
        }
        if (ready == 0) {
            burstPending = false;
            const std::uint64_t posted = generation->load();
            postToMainThread([generation, posted, onChange] {
                if (generation->load() == posted) {
                    (*onChange)();
                }
            });
            continue;
        }
        if ((descriptors[0].revents & POLLIN) != 0) {
            if (drainEvents(descriptor)) {
                // Whatever was posted before this event is stale now.
                generation->fetch_add(1);
                burstPending = true;
            }
        } else if (descriptors[0].revents != 0) {
            return;
        }
    }
}

} // namespace

ProjectTimelineWatcher::ProjectTimelineWatcher(MainThreadPoster postToMainThread)
    : postToMainThread_(std::move(postToMainThread)) {}

ProjectTimelineWatcher::~ProjectTimelineWatcher() {
    stop();
}

void ProjectTimelineWatcher::start(const std::filesystem::path& directoryURL,
                                   std::function<void()> onChange) {
    stop();
    FileDescriptor descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    FileDescriptor wakeDescriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!descriptor.isOpen() || !wakeDescriptor.isOpen() ||
        ::inotify_add_watch(descriptor.get(), directoryURL.c_str(), watchedEvents | IN_ONLYDIR) < 0) {
        throw ProjectTimelineWatcherError(ProjectTimelineWatcherError::Case::cannotOpenDirectory);
    }
    descriptor_ = std::move(descriptor);
    wakeDescriptor_ = std::move(wakeDescriptor);
    thread_ = std::jthread(watch, descriptor_.get(), wakeDescriptor_.get(), generation_, postToMainThread_,
                           std::make_shared<const std::function<void()>>(std::move(onChange)));
}

void ProjectTimelineWatcher::stop() {
    if (!thread_.joinable()) {
        return;
    }
    thread_.request_stop();
    const std::uint64_t wake = 1;
    while (::write(wakeDescriptor_.get(), &wake, sizeof wake) < 0 && errno == EINTR) {
    }
    thread_.join();
    generation_->fetch_add(1);
    descriptor_.close();
    wakeDescriptor_.close();
}

} // namespace rilo
