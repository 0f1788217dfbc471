#pragma once

#include <functional>
#include <string>
#include <vector>

namespace rilo::app {

// The process entry: the one executable is both the graphical application and
// the JSON command line; the first argument "cli" selects the command line.
namespace RiloEntryPoint {

// Starts the graphical application with the process arguments and returns its
// exit code. The executable hands it in, so that this library never needs a
// windowing toolkit.
using GraphicalApplicationLauncher = std::function<int(const std::vector<std::string>& arguments)>;

// Decides the mode and runs it; returns the process exit code. Without the
// first argument "cli" the launcher runs.
int main(const std::vector<std::string>& arguments,
         const GraphicalApplicationLauncher& launchGraphicalApplication);

// {"protocolVersion":1,"version":"<short version>"} on one line.
void printVersion();

// Runs the command line with SIGINT and SIGTERM turned into cancellation.
int runCLI(const std::vector<std::string>& arguments);

} // namespace RiloEntryPoint
} // namespace rilo::app
