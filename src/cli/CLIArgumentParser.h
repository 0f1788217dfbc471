#pragma once

#include "cli/CLIArgumentError.h"
#include "cli/CLICommand.h"

#include <string>
#include <vector>

namespace rilo::cli {

// The strict grammar of the command line. Takes the arguments after "cli";
// the first problem found ends the parse with a CLIArgumentError. Touches no
// file.
namespace CLIArgumentParser {
CLICommand parse(const std::vector<std::string>& arguments);
} // namespace CLIArgumentParser

} // namespace rilo::cli
