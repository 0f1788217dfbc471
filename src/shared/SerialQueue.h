#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

namespace rilo {

// One serial background thread: tasks run one after another in the order
// they were queued. Tasks must not throw. The thread carries the label as its
// name and runs at a lower priority, so that background writes give way to
// capture and encoding.
class SerialQueue {
public:
    explicit SerialQueue(std::string_view label);
    // Runs every queued task, then ends the thread.
    ~SerialQueue() = default;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(std::function<void()> task);
    // Returns once every task queued before it has run. Not to be called from a task.
    void sync();

private:
    void run(const std::stop_token& stop);

    std::string label_;
    std::mutex mutex_;
    std::condition_variable_any wakeUp_;
    std::deque<std::function<void()>> tasks_;
    // Last, so that it is joined before the queue it drains goes away.
    std::jthread thread_;
};

} // namespace rilo
