#pragma once

// The commands that make files from a project: `frame` (a still picture),
// `preview` (a quick export of a sequence range) and `export`. Each checks its
// output path before the project is opened, works on the snapshot as loaded
// (no commit lock), and ends by the stop token with CancellationError,
// leaving no partial file. While standard error is a terminal, the two
// exports draw a progress line there and erase it before the answer.

#include "cli/CLICommand.h"
#include "cli/CLIReadResponses.h"
#include "cli/ProjectCommandService.h"

#include <stop_token>

namespace rilo::cli {

class ProjectOutputCommands {
public:
    ProjectOutputCommands(ProjectCommandService& service, const ProjectStore& store, std::stop_token stop)
        : service_(service)
        , store_(store)
        , stop_(std::move(stop)) {}

    CLIOutputResponse frame(const command::Frame& command) const;
    CLIOutputResponse preview(const command::Preview& command) const;
    CLIOutputResponse exportProject(const command::Export& command) const;

private:
    ProjectCommandService& service_;
    const ProjectStore& store_;
    std::stop_token stop_;
};

} // namespace rilo::cli
