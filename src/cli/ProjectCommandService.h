#pragma once

#include "cli/CLIResponses.h"
#include "project/ProjectStore.h"

#include <vector>

namespace rilo::cli {

// Runs the project commands of the command line over one project store.
class ProjectCommandService {
public:
    explicit ProjectCommandService(ProjectStore& store)
        : store_(store) {}

    // The finished projects of the library, in the library's order. A project
    // whose manifest no longer reads is left out.
    std::vector<CLIProjectSummary> list() const;

private:
    ProjectStore& store_;
};

} // namespace rilo::cli
