#pragma once

// Kills a writer of a package at many moments and has the caller judge what
// it left behind.
//
// Each trial lays out the state before the write, forks a child that runs the
// write, and sends the child SIGKILL after a delay. The delays are spread over
// the time one whole write takes (the longest of three unkilled children), one in
// each of `trials` equal slices, at a seeded random place inside its slice, so
// that the kills fall from before the first file operation to after the last.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace rilo::testing {

// What a killed write left: the package as before, as after, or at a stage
// in between that the writer allows (such as a history entry written before
// its document). Judges report anything else as a test failure.
enum class CrashOutcome { before, after, between };

struct CrashCounts {
    int trials = 0;
    int before = 0;
    int after = 0;
    int between = 0;
};

struct CrashScenario {
    std::function<void()> prepare; // lays out the state before the write
    std::function<void()> write;   // runs in the child
    std::function<CrashOutcome()> judge;
};

namespace crash_detail {

// Runs the write in a child; after it has announced that it starts, waits
// `delay` (forever when absent) and kills it. Returns the time from the
// announcement to the child's end.
inline std::chrono::nanoseconds runChild(const CrashScenario& scenario,
                                         std::optional<std::chrono::nanoseconds> delay) {
    int ready[2];
    if (::pipe(ready) != 0) {
        ADD_FAILURE() << "pipe failed";
        return {};
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ready[0]);
        const char go = 'g';
        if (::write(ready[1], &go, 1) != 1) {
            ::_exit(4);
        }
        try {
            scenario.write();
        } catch (...) {
            ::_exit(3);
        }
        ::_exit(0);
    }
    ::close(ready[1]);
    char go = 0;
    const bool started = child > 0 && ::read(ready[0], &go, 1) == 1;
    ::close(ready[0]);
    const auto start = std::chrono::steady_clock::now();
    if (started && delay) {
        std::this_thread::sleep_for(*delay);
        ::kill(child, SIGKILL);
    }
    int status = 0;
    if (child > 0) {
        ::waitpid(child, &status, 0);
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(started);
    // A child that was not killed must have finished its write.
    EXPECT_TRUE((WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) ||
                (WIFEXITED(status) && WEXITSTATUS(status) == 0))
        << "status " << status;
    return elapsed;
}

} // namespace crash_detail

// Runs the trials and returns how the kills fell. Fails when no kill left the
// state before or none the state after, since then the kills missed the write.
inline CrashCounts killDuringWrite(const CrashScenario& scenario, int trials, std::uint32_t seed) {
    std::chrono::nanoseconds span{0};
    for (int run = 0; run < 3; ++run) {
        scenario.prepare();
        span = std::max(span, crash_detail::runChild(scenario, std::nullopt));
        EXPECT_EQ(scenario.judge(), CrashOutcome::after);
    }
    // The measured time includes the child's exit, so the last slices fall
    // after the write, also when a loaded machine makes the write slower.
    const double reachNanoseconds = 1.1 * static_cast<double>(span.count());
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> withinSlice(0.0, 1.0);
    CrashCounts counts;
    for (int trial = 0; trial < trials; ++trial) {
        scenario.prepare();
        const double slice = (trial + withinSlice(random)) / trials;
        crash_detail::runChild(scenario,
                               std::chrono::nanoseconds(static_cast<std::int64_t>(slice * reachNanoseconds)));
        ++counts.trials;
        switch (scenario.judge()) {
        case CrashOutcome::before:
            ++counts.before;
            break;
        case CrashOutcome::after:
            ++counts.after;
            break;
        case CrashOutcome::between:
            ++counts.between;
            break;
        }
        if (::testing::Test::HasFailure()) {
            ADD_FAILURE() << "trial " << trial << " of " << trials << ", kill at "
                          << static_cast<std::int64_t>(slice * reachNanoseconds / 1000) << " us";
            break;
        }
    }
    EXPECT_GT(counts.before, 0);
    EXPECT_GT(counts.after, 0);
    std::printf("[ kills    ] %d kill points over %lld us: %d before, %d between, %d after\n", counts.trials,
                static_cast<long long>(reachNanoseconds / 1000), counts.before, counts.between, counts.after);
    return counts;
}

} // namespace rilo::testing
