#include "cli/SignalCancellation.h"

#include <csignal>
#include <ctime>
#include <pthread.h>

namespace rilo::cli {

namespace {
sigset_t cancellationSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}
} // namespace

SignalCancellation::SignalCancellation() {
    const sigset_t signals = cancellationSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    watcher_ = std::jthread([this, signals](std::stop_token watcherStop) {
        // A short timeout lets the watcher notice its own shutdown.
        const timespec timeout{0, 50'000'000};
        while (!watcherStop.stop_requested()) {
            const int signal = sigtimedwait(&signals, nullptr, &timeout);
            if (signal > 0) {
                receivedSignal_.store(signal);
                source_.request_stop();
            }
        }
    });
}

SignalCancellation::~SignalCancellation() {
    watcher_.request_stop();
    if (watcher_.joinable()) {
        watcher_.join();
    }
}

} // namespace rilo::cli
