#pragma once

#include <string>
#include <vector>

namespace rilo::app {

// The process entry: the one executable is both the graphical application and
// the JSON command line; the first argument "cli" selects the command line.
namespace RiloEntryPoint {

// Decides the mode and runs it; returns the process exit code.
int main(const std::vector<std::string>& arguments);

// {"protocolVersion":1,"version":"<short version>"} on one line.
void printVersion();

// Runs the command line with SIGINT and SIGTERM turned into cancellation.
int runCLI(const std::vector<std::string>& arguments);

} // namespace RiloEntryPoint
} // namespace rilo::app
