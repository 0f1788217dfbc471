#include "cli/CLIArgumentError.h"
#include "cli/RiloCLI.h"
#include "cli/SignalCancellation.h"
#include "project/ProjectStoreError.h"
#include "project/TimelineEffectError.h"
#include "project/TimelineValidationError.h"
#include "shared/Json.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

namespace rilo::cli {
namespace {

TEST(RiloCLIClassify, MapsErrorsToCodesAndExitCodes) {
    const auto classify = [](const std::exception& error) { return RiloCLI::classify(error); };
    const CLIErrorClassification invalid{"invalid_arguments", 1};
    const CLIErrorClassification notFound{"project_not_found", 2};
    const CLIErrorClassification validation{"validation", 4};
    const CLIErrorClassification store{"project_store", 5};
    const CLIErrorClassification execution{"execution", 5};

    EXPECT_EQ(classify(CLIArgumentError::unknownCommand("x")), invalid);
    EXPECT_EQ(classify(CLIArgumentError::missingCommand()), invalid);
    EXPECT_EQ(classify(ProjectStoreError::projectNotFound("1a")), notFound);
    EXPECT_EQ(classify(ProjectStoreError::ambiguousProjectPrefix("1a")), notFound);
    EXPECT_EQ(classify(ProjectStoreError::timelineDigestConflict("a", "b")),
              (CLIErrorClassification{"timeline_conflict", 3}));
    EXPECT_EQ(classify(ProjectStoreError::captionsDigestConflict("a", "b")),
              (CLIErrorClassification{"captions_conflict", 3}));
    // A missing history entry is a validation failure, not a missing project.
    EXPECT_EQ(classify(ProjectStoreError::historyNotFound(7)), validation);
    EXPECT_EQ(classify(ProjectStoreError::invalidProjectLocation()), store);
    EXPECT_EQ(classify(ProjectStoreError::timelineLockUnavailable()), store);
    EXPECT_EQ(classify(TimelineValidationError::empty()), validation);
    EXPECT_EQ(classify(TimelineEffectError::zoomOverlap()), validation);
    EXPECT_EQ(classify(json::DecodingError("bad")), execution);
    EXPECT_EQ(classify(CLICommandUnavailableError("cut")), execution);
    EXPECT_EQ(classify(std::runtime_error("anything")), execution);
    EXPECT_FALSE(RiloCLI::validationDetails(ProjectStoreError::historyNotFound(1)).has_value());
}

TEST(ProjectStoreErrorMessages, CarryTheirValues) {
    EXPECT_EQ(ProjectStoreError::historyNotFound(12).message(), "找不到历史版本：12");
    const auto conflict = ProjectStoreError::timelineDigestConflict("aaa", "bbb");
    EXPECT_EQ(conflict.message(), "Timeline已被其他进程修改，请重新预演。");
    EXPECT_EQ(conflict.expectedDigest(), "aaa");
    EXPECT_EQ(conflict.actualDigest(), "bbb");
}

TEST(SignalCancellation, TurnsTerminationSignalsIntoStopRequests) {
    const SignalCancellation cancellation;
    EXPECT_FALSE(cancellation.token().stop_requested());
    // Sent to the whole process: without the watcher this would end the test run.
    ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!cancellation.token().stop_requested() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(cancellation.token().stop_requested());
    EXPECT_EQ(cancellation.receivedSignal(), SIGTERM);
}

TEST(SignalCancellation, InterruptAlsoCancels) {
    const SignalCancellation cancellation;
    ASSERT_EQ(::kill(::getpid(), SIGINT), 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!cancellation.token().stop_requested() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(cancellation.receivedSignal(), SIGINT);
}

} // namespace
} // namespace rilo::cli
