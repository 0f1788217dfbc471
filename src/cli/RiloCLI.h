#pragma once

// The command dispatcher: parses a command line, runs its handler and turns
// the result or the failure into JSON on the standard streams and an exit code.
// Exit codes: 0 success, 1 invalid arguments, 2 project not found, 3 conflict
// of digests, 4 validation, 5 execution or store failure, 130 cancelled.

#include "cli/CLIResponses.h"
#include "shared/Json.h"

#include <exception>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace rilo::cli {

struct CLIErrorClassification {
    std::string code;
    int exitCode = 5;
    friend bool operator==(const CLIErrorClassification&, const CLIErrorClassification&) = default;
};

namespace RiloCLI {

// Runs the arguments that follow "cli". A stop request on the token cancels
// the command at its next cancellation point (exit 130).
int run(const std::vector<std::string>& arguments, std::stop_token stopToken);

// Success: pretty printed, slashes as they are, one line feed, to standard output.
void writeJSON(const json::Json& response);
// Failure: the error envelope, slashes escaped, one line feed, to standard error.
void writeError(const std::string& code, const std::string& message,
                const std::optional<CLIValidationDetails>& details);

CLIErrorClassification classify(const std::exception& error);
std::optional<CLIValidationDetails> validationDetails(const std::exception& error);

} // namespace RiloCLI
} // namespace rilo::cli
