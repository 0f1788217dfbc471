#pragma once

// The "main thread" of the editor tests: tasks posted from any thread wait
// in a queue until the test runs them on its own thread.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace rilo::testing {

class MainThreadTaskQueue {
public:
    // The poster to hand to a watcher or a player.
    std::function<void(std::function<void()>)> poster() {
        return [this](std::function<void()> task) {
            const std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
            ++postedCount_;
            posted_.notify_all();
        };
    }

    // Waits until at least one task is queued or the time is up.
    bool waitForTask(std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        return posted_.wait_for(lock, limit, [this] { return !tasks_.empty(); });
    }

    // Waits for a task, then until nothing more has been posted for the quiet
    // period (or the limit is up); answers whether anything was posted.
    bool waitUntilQuiet(std::chrono::milliseconds quietPeriod, std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        if (!posted_.wait_for(lock, limit, [this] { return !tasks_.empty(); })) {
            return false;
        }
        std::size_t seen = postedCount_;
        while (posted_.wait_for(lock, quietPeriod, [&] { return postedCount_ != seen; })) {
            seen = postedCount_;
        }
        return true;
    }

    // Runs the queued tasks on the calling thread; answers how many ran.
    int runPending() {
        std::deque<std::function<void()>> tasks;
        {
            const std::lock_guard lock(mutex_);
            tasks.swap(tasks_);
        }
        for (const auto& task : tasks) {
            task();
        }
        return static_cast<int>(tasks.size());
    }

    // Runs tasks as they come until the condition holds or the time is up.
    template <class Condition>
    bool runUntil(Condition condition, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return false;
            }
            waitForTask(left);
            runPending();
        }
        return true;
    }

private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> tasks_;
    std::size_t postedCount_ = 0;
};

} // namespace rilo::testing
