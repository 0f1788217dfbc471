#include "cli/CLIArgumentError.h"
#include "cli/RiloCLI.h"
#include "project/document/TimelineEffectError.h"
#include "project/document/TimelineValidationError.h"
#include "project/store/ProjectStoreError.h"
#include "shared/Json.h"

#include <gtest/gtest.h>

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
    EXPECT_EQ(classify(ProjectStoreError::projectNotFound("1a")), notFound);
    EXPECT_EQ(classify(ProjectStoreError::timelineDigestConflict("a", "b")),
              (CLIErrorClassification{"timeline_conflict", 3}));
    EXPECT_EQ(classify(ProjectStoreError::captionsDigestConflict("a", "b")),
              (CLIErrorClassification{"captions_conflict", 3}));
    // A missing history entry is a validation failure, not a missing project.
    EXPECT_EQ(classify(ProjectStoreError::historyNotFound(7)), validation);
    EXPECT_EQ(classify(ProjectStoreError::invalidProjectLocation()), store);
    EXPECT_EQ(classify(TimelineValidationError::empty()), validation);
    EXPECT_EQ(classify(TimelineEffectError(TimelineEffectError::Case::zoomOverlap)), validation);
    EXPECT_EQ(classify(json::DecodingError("bad")), execution);
    EXPECT_EQ(classify(std::runtime_error("anything")), execution);
    EXPECT_FALSE(RiloCLI::validationDetails(ProjectStoreError::historyNotFound(1)).has_value());
}

} // namespace
} // namespace rilo::cli
