#pragma once

// A client connection to the session's sound server, with owning handles for
// libpulse's C objects. The connection has its own main loop, which its owner
// runs: on the calling thread with a deadline while setting things up, and on
// a capture thread afterwards. Neither is safe to use from two threads at once.

#include <chrono>
#include <functional>
#include <memory>
#include <pulse/context.h>
#include <pulse/mainloop.h>
#include <pulse/operation.h>
#include <pulse/stream.h>
#include <stdexcept>
#include <string>

namespace rilo::pulse {

using Deadline = std::chrono::steady_clock::time_point;

// How the server lists us among its clients.
inline constexpr const char* applicationName = "Rilo";
// How long a server may take to answer before it counts as unreachable.
inline constexpr std::chrono::seconds serverAnswerTimeout{5};

// A failure reported by the sound server or by libpulse: its error number
// (PA_ERR_...) and libpulse's text for it.
class PulseServerError : public std::runtime_error {
public:
    explicit PulseServerError(int errorNumber);
    int errorNumber() const noexcept { return errorNumber_; }

private:
    int errorNumber_;
};

struct MainloopDeleter {
    void operator()(pa_mainloop* mainloop) const noexcept { pa_mainloop_free(mainloop); }
};
// Callbacks are cleared first, so that tearing down never calls into an owner
// that is going away.
struct ContextDeleter {
    void operator()(pa_context* context) const noexcept;
};
struct StreamDeleter {
    void operator()(pa_stream* stream) const noexcept;
};
// An operation still running is cancelled: its callback's data may be gone.
struct OperationDeleter {
    void operator()(pa_operation* operation) const noexcept;
};

using MainloopHandle = std::unique_ptr<pa_mainloop, MainloopDeleter>;
using ContextHandle = std::unique_ptr<pa_context, ContextDeleter>;
using StreamHandle = std::unique_ptr<pa_stream, StreamDeleter>;
using OperationHandle = std::unique_ptr<pa_operation, OperationDeleter>;

class PulseConnection {
public:
    // Connects as `clientName` (normally applicationName) to the server that libpulse finds for this
    // session (PULSE_SERVER, client.conf, the user's runtime directory). No
    // server is spawned: a fresh one would have nothing playing into it.
    // Throws PulseServerError when no server answers before the deadline.
    PulseConnection(const std::string& clientName, Deadline deadline);
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    pa_mainloop* mainloop() const noexcept { return mainloop_.get(); }
    pa_context* context() const noexcept { return context_.get(); }

    // Runs the loop on this thread until isDone() holds. Throws
    // PulseServerError when the connection fails or the deadline passes first.
    void runUntil(const std::function<bool()>& isDone, Deadline deadline);
    // Runs the loop until the operation has finished (or was cancelled).
    // Throws PulseServerError when the operation could not be sent.
    void await(OperationHandle operation, Deadline deadline);

    // The error number of the context's last failure.
    int lastError() const noexcept;

private:
    MainloopHandle mainloop_;
    ContextHandle context_;
};

} // namespace rilo::pulse
