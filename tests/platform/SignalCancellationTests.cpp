#include "platform/SignalCancellation.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace rilo::platform {
namespace {

TEST(SignalCancellation, TerminationAndInterruptBecomeStopRequests) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const SignalCancellation cancellation;
        EXPECT_FALSE(cancellation.token().stop_requested());
        // Sent to the whole process: without the watcher this would end the test run.
        ASSERT_EQ(::kill(::getpid(), signal), 0);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!cancellation.token().stop_requested() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_TRUE(cancellation.token().stop_requested()) << signal;
        EXPECT_EQ(cancellation.receivedSignal(), signal);
    }
}

} // namespace
} // namespace rilo::platform
