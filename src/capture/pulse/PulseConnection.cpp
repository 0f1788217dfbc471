#include "capture/pulse/PulseConnection.h"

#include <algorithm>
#include <pulse/error.h>

namespace rilo::pulse {

PulseServerError::PulseServerError(int errorNumber)
    : std::runtime_error(pa_strerror(errorNumber))
    , errorNumber_(errorNumber) {}

void ContextDeleter::operator()(pa_context* context) const noexcept {
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
}

void StreamDeleter::operator()(pa_stream* stream) const noexcept {
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    if (pa_stream_get_state(stream) == PA_STREAM_READY) {
        pa_stream_disconnect(stream);
    }
    pa_stream_unref(stream);
}

void OperationDeleter::operator()(pa_operation* operation) const noexcept {
    if (pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
        pa_operation_cancel(operation);
    }
    pa_operation_unref(operation);
}

PulseConnection::PulseConnection(const std::string& clientName, Deadline deadline)
    : mainloop_(pa_mainloop_new()) {
    if (mainloop_ == nullptr) {
        throw PulseServerError(PA_ERR_INTERNAL);
    }
    context_.reset(pa_context_new(pa_mainloop_get_api(mainloop_.get()), clientName.c_str()));
    if (context_ == nullptr) {
        throw PulseServerError(PA_ERR_INTERNAL);
    }
    if (pa_context_connect(context_.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        throw PulseServerError(lastError());
    }
    runUntil([this] { return pa_context_get_state(context_.get()) == PA_CONTEXT_READY; }, deadline);
}

int PulseConnection::lastError() const noexcept {
    const int error = pa_context_errno(context_.get());
    // A context that ended without an error was still taken away from us.
    return error == PA_OK ? PA_ERR_CONNECTIONTERMINATED : error;
}

void PulseConnection::runUntil(const std::function<bool()>& isDone, Deadline deadline) {
    while (!isDone()) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context_.get()))) {
            throw PulseServerError(lastError());
        }
        const auto remaining = deadline - std::chrono::steady_clock::now();
        if (remaining <= std::chrono::steady_clock::duration::zero()) {
            throw PulseServerError(PA_ERR_TIMEOUT);
        }
        // Rounded up, so that the last microsecond is waited for, not spun through.
        const auto timeout = std::chrono::ceil<std::chrono::microseconds>(
            std::min<std::chrono::steady_clock::duration>(remaining, std::chrono::seconds(60)));
        if (pa_mainloop_prepare(mainloop_.get(), static_cast<int>(timeout.count())) < 0 ||
            pa_mainloop_poll(mainloop_.get()) < 0 || pa_mainloop_dispatch(mainloop_.get()) < 0) {
            throw PulseServerError(PA_ERR_INTERNAL);
        }
    }
}

void PulseConnection::await(OperationHandle operation, Deadline deadline) {
    if (operation == nullptr) {
        throw PulseServerError(lastError());
    }
    runUntil([&operation] { return pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING; },
             deadline);
}

} // namespace rilo::pulse
