#pragma once

#include "cli/CLIResponses.h"
#include "project/ProjectStore.h"

#include <stop_token>
#include <vector>

namespace rilo::cli {

// Runs the project commands of the command line over one project store.
// Long operations test the stop token at their own points and then throw
// CancellationError.
class ProjectCommandService {
public:
    ProjectCommandService(ProjectStore& store, std::stop_token stopToken)
        : store_(store)
        , stopToken_(std::move(stopToken)) {}

    // The finished projects of the library, in the library's order. A project
    // whose manifest no longer reads is left out.
    std::vector<CLIProjectSummary> list() const;

private:
    void throwIfCancelled() const;

    ProjectStore& store_;
    std::stop_token stopToken_;
};

} // namespace rilo::cli
