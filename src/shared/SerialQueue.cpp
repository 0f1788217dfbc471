#include "shared/SerialQueue.h"

#include <future>
#include <memory>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace rilo {

SerialQueue::SerialQueue(std::string_view label)
    : label_(label)
    , thread_([this](std::stop_token stop) { run(stop); }) {}

void SerialQueue::async(std::function<void()> task) {
    {
        const std::lock_guard guard(mutex_);
        tasks_.push_back(std::move(task));
    }
    wakeUp_.notify_one();
}

void SerialQueue::sync() {
    // Shared, so that the promise outlives the task that fulfils it.
    auto done = std::make_shared<std::promise<void>>();
    auto finished = done->get_future();
    async([done] { done->set_value(); });
    finished.wait();
}

void SerialQueue::run(const std::stop_token& stop) {
    // Thread names hold at most 15 characters.
    ::pthread_setname_np(::pthread_self(), label_.substr(0, 15).c_str());
    // Background writes give way to capture and encoding.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 5);

    std::unique_lock lock(mutex_);
    for (;;) {
        // After a stop request the wait returns at once; the queue is drained first.
        wakeUp_.wait(lock, stop, [this] { return !tasks_.empty(); });
        if (tasks_.empty()) {
            return;
        }
        auto task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

} // namespace rilo
