#pragma once

// The main thread's run loop, as the application's model sees it: tasks
// posted from any thread run later on the main thread, in order, and
// delayed tasks run once their time has come. The desktop application
// implements it on its toolkit's event loop; programs and tests without one
// use ManualRunLoop and turn it themselves.

#include "shared/MainThreadPoster.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace rilo {

class MainRunLoop {
public:
    virtual ~MainRunLoop() = default;

    // Both may be called from any thread.
    virtual void post(std::function<void()> task) = 0;
    virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> task) = 0;

    // A poster that hands its tasks to this loop; valid while the loop is.
    MainThreadPoster poster() {
        return [this](std::function<void()> task) { post(std::move(task)); };
    }
};

// A run loop turned by its owner: runPending() runs what is due now,
// runUntil() keeps turning (waiting for tasks in between) until a condition
// holds or the time is up. Tasks run on the thread that turns the loop.
class ManualRunLoop final : public MainRunLoop {
public:
    using Clock = std::chrono::steady_clock;

    void post(std::function<void()> task) override { postAt(Clock::now(), std::move(task)); }
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override {
        postAt(Clock::now() + delay, std::move(task));
    }

    // Runs every task that is due; answers how many ran.
    int runPending() {
        int ran = 0;
        while (true) {
            std::function<void()> task;
            {
                const std::scoped_lock lock(mutex_);
                if (tasks_.empty() || tasks_.begin()->first.first > Clock::now()) {
                    return ran;
                }
                task = std::move(tasks_.begin()->second);
                tasks_.erase(tasks_.begin());
            }
            task();
            ++ran;
        }
    }

    // Turns the loop until the condition holds (true) or the limit has
    // passed (false).
    template <class Condition>
    bool runUntil(Condition condition, std::chrono::milliseconds limit) {
        const Clock::time_point deadline = Clock::now() + limit;
        while (!condition()) {
            if (Clock::now() >= deadline) {
                return false;
            }
            {
                std::unique_lock lock(mutex_);
                const Clock::time_point next =
                    tasks_.empty() ? deadline : std::min(deadline, tasks_.begin()->first.first);
                posted_.wait_until(lock, next);
            }
            runPending();
        }
        return true;
    }

private:
    void postAt(Clock::time_point when, std::function<void()> task) {
        {
            const std::scoped_lock lock(mutex_);
            tasks_.emplace(std::make_pair(when, sequence_++), std::move(task));
        }
        posted_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    // By due time, then by the order of posting.
    std::map<std::pair<Clock::time_point, std::uint64_t>, std::function<void()>> tasks_;
    std::uint64_t sequence_ = 0;
};

} // namespace rilo
