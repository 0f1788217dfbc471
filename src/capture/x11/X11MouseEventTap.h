#pragma once

// The mouse of an X11 desktop, listened to through the RECORD extension: it
// reports every pointer event the server processes, including those made
// through XTEST, without taking them from any window.
//
// Two connections of its own: one receives the recorded data on the tap's
// thread, the other enables and disables the recording. Time stamps are the
// server's milliseconds carried onto the host clock (the server counts on
// CLOCK_MONOTONIC too); where they can't be, the arrival time stands in.

#include "capture/MouseEventTap.h"
#include "capture/x11/X11Connection.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace rilo::x11 {

class X11MouseEventTap final : public MouseEventTap {
public:
    explicit X11MouseEventTap(std::string displayName);
    ~X11MouseEventTap() override;

    void start(Handler handler) override;
    void stop() override;

    // The host time of a server time stamp, given the host time now.
    static std::uint64_t hostTimeOfServerTime(std::uint32_t serverMilliseconds,
                                              std::uint64_t hostNowNanoseconds);

private:
    void run(Handler handler);

    std::string displayName_;
    std::unique_ptr<X11Connection> control_;
    std::unique_ptr<X11Connection> data_;
    std::uint32_t context_ = 0;
    std::atomic<bool> stopping_{false};
    std::jthread thread_;
};

} // namespace rilo::x11
