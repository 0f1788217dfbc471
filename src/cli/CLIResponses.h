#pragma once

// The shapes the command line answers with.

#include "cli/CLIRange.h"
#include "shared/IsoDate.h"
#include "shared/Json.h"

#include <optional>
#include <string>
#include <vector>

namespace rilo::cli {

inline constexpr std::int64_t cliProtocolVersion = 1;

// Machine-readable detail of a failure.
struct CLIValidationDetails {
    std::string operation; // "zoom" is the one kind in use
    CLIRange requestedRange;
    std::optional<std::string> zoomID;
    std::vector<CLIRange> normalizedCuts;

    friend bool operator==(const CLIValidationDetails&, const CLIValidationDetails&) = default;
};

// The only shape of a failure, written to standard error.
struct CLIErrorResponse {
    std::int64_t protocolVersion = cliProtocolVersion;
    std::string error; // stable code
    std::string message;
    std::optional<CLIValidationDetails> details;
};

// One element of what `list` prints.
struct CLIProjectSummary {
    std::string id;
    std::string title;
    std::string packagePath;
    std::int64_t durationMilliseconds = 0;
    bool hasWebcam = false;
    IsoDate updatedAt;

    friend bool operator==(const CLIProjectSummary&, const CLIProjectSummary&) = default;
};

} // namespace rilo::cli

namespace rilo::json {

template <>
struct Codec<cli::CLIValidationDetails> {
    static Json encode(const cli::CLIValidationDetails& details);
};

template <>
struct Codec<cli::CLIErrorResponse> {
    static Json encode(const cli::CLIErrorResponse& response);
};

template <>
struct Codec<cli::CLIProjectSummary> {
    static Json encode(const cli::CLIProjectSummary& summary);
};

} // namespace rilo::json
