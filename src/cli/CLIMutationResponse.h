#pragma once

// The answer of a single timeline change, previewed or applied.

#include "cli/CLIRange.h"
#include "cli/CLIReadResponses.h"

#include <optional>
#include <string>
#include <vector>

namespace rilo::cli {

struct CLIZoomReconciliationDescription {
    std::string zoomID;
    CLIRange originalRange;
    std::string action; // "preserved", "trimmed", "split" or "removed"
    std::vector<CLIRange> resultingRanges;

    friend bool operator==(const CLIZoomReconciliationDescription&,
                           const CLIZoomReconciliationDescription&) = default;
};

struct CLIMutationResponse {
    bool applied = false;
    std::string projectID;
    std::string timelineDigest;                 // before the edit
    std::optional<std::string> resultingDigest; // only when applied
    CLITimelineSummary before;
    CLITimelineSummary after;
    std::vector<CLIRange> normalizedCuts;
    std::vector<CLIZoomReconciliationDescription> zoomReconciliations;
    std::vector<std::string> warnings;
    // Only in a preview: the arguments that confirm it.
    std::optional<std::vector<std::string>> confirmationArguments;
};

} // namespace rilo::cli

namespace rilo::json {

template <>
struct Codec<cli::CLIZoomReconciliationDescription> {
    static Json encode(const cli::CLIZoomReconciliationDescription& description);
};

template <>
struct Codec<cli::CLIMutationResponse> {
    static Json encode(const cli::CLIMutationResponse& response);
};

} // namespace rilo::json
