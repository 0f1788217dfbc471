#include "app/model/BackgroundThreads.h"

namespace rilo {

BackgroundThreads::~BackgroundThreads() {
    for (Running& entry : running_) {
        entry.thread.request_stop();
    }
    // The jthreads join as the list goes.
}

std::stop_source BackgroundThreads::start(std::function<void(std::stop_token)> work) {
    joinFinished();
    auto finished = std::make_shared<std::atomic<bool>>(false);
    std::jthread thread([work = std::move(work), finished](std::stop_token stop) {
        work(std::move(stop));
        finished->store(true);
    });
    std::stop_source source = thread.get_stop_source();
    running_.push_back({std::move(finished), std::move(thread)});
    return source;
}

void BackgroundThreads::joinFinished() {
    running_.remove_if([](const Running& entry) { return entry.finished->load(); });
}

} // namespace rilo
