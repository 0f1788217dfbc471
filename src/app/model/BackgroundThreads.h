#pragma once

// Threads for the application model's background work (a waveform, a strip
// of thumbnails, an export, a player build), each cancellable through its
// stop token, none of which the main thread ever waits for while the model
// lives. A started thread is kept until it has finished; finished threads are
// joined when the next one starts, which costs nothing. The destructor asks
// every thread to stop and joins them all.
//
// Threads: start and the destructor belong to the main thread; the work runs
// on its own thread and must not throw.

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <stop_token>
#include <thread>

namespace rilo {

class BackgroundThreads {
public:
    BackgroundThreads() = default;
    ~BackgroundThreads();
    BackgroundThreads(const BackgroundThreads&) = delete;
    BackgroundThreads& operator=(const BackgroundThreads&) = delete;

    // Runs the work on a new thread; the answer stops it.
    std::stop_source start(std::function<void(std::stop_token)> work);

private:
    struct Running {
        std::shared_ptr<std::atomic<bool>> finished;
        std::jthread thread;
    };
    void joinFinished();

    std::list<Running> running_;
};

} // namespace rilo
