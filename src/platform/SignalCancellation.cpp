#include "platform/SignalCancellation.h"

#include "shared/Checked.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace rilo::platform {

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
    signalDescriptor_ = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
    wakeDescriptor_ = FileDescriptor(::eventfd(0, EFD_CLOEXEC));
    if (!signalDescriptor_.isOpen() || !wakeDescriptor_.isOpen()) {
        // Two descriptors at the start of a process: only a broken system has none.
        programmingFault("cannot watch for termination signals");
    }
    // The watcher sleeps until a signal arrives or the destructor wakes it.
    watcher_ = std::jthread([this] {
        for (;;) {
            std::array<pollfd, 2> descriptors{
                {{signalDescriptor_.get(), POLLIN, 0}, {wakeDescriptor_.get(), POLLIN, 0}}};
            if (::poll(descriptors.data(), descriptors.size(), -1) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return;
            }
            if (descriptors[1].revents != 0) {
                return;
            }
            signalfd_siginfo info{};
            if (::read(signalDescriptor_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
                receivedSignal_.store(static_cast<int>(info.ssi_signo));
                source_.request_stop();
            }
        }
    });
}

SignalCancellation::~SignalCancellation() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor_.get(), &one, sizeof one);
    if (watcher_.joinable()) {
        watcher_.join();
    }
}

} // namespace rilo::platform
