#pragma once

#include "shared/FileDescriptor.h"

#include <atomic>
#include <stop_token>
#include <thread>

namespace rilo::platform {

// Turns SIGINT and SIGTERM into a stop request, so that a signal cancels the
// running command instead of killing the process.
//
// Construct it on the main thread before any other thread starts: it blocks
// both signals in the calling thread, every later thread inherits that mask,
// and one watcher thread takes the signals from a signalfd and requests a
// stop on the source. The signals stay blocked after destruction (the process
// is about to end with the command's exit code, which a late second signal
// must not replace).
class SignalCancellation {
public:
    SignalCancellation();
    ~SignalCancellation();
    SignalCancellation(const SignalCancellation&) = delete;
    SignalCancellation& operator=(const SignalCancellation&) = delete;

    std::stop_token token() const noexcept { return source_.get_token(); }
    // The last signal received, or 0.
    int receivedSignal() const noexcept { return receivedSignal_.load(); }

private:
    FileDescriptor signalDescriptor_;
    FileDescriptor wakeDescriptor_;
    std::stop_source source_;
    std::atomic<int> receivedSignal_{0};
    std::jthread watcher_;
};

} // namespace rilo::platform
