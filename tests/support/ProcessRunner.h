#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace rilo::testing {

struct ProcessResult {
    int exitCode = -1; // 128 + signal number when the process was killed
    std::string standardOutput;
    std::string standardError;
};

struct ProcessOptions {
    // Variables set (or replaced) in the child's environment.
    std::map<std::string, std::string> environment{};
    // When positive, the signal sent to the child as soon as the child has
    // blocked it (so that it is sure to be handled, not to kill).
    int signalOnceBlocked = 0;
    // STDOUT_FILENO or STDERR_FILENO: that stream goes into a pipe whose
    // reader has gone away before the child starts.
    int closedReaderStream = -1;
};

// Runs a program to completion, capturing both output streams.
ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

// In a forked child: sets the variables and replaces the child with the
// program; exits 127 when it can't be run.
[[noreturn]] void execInChild(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                              const std::map<std::string, std::string>& environment);

// The rilo executable of this build.
std::filesystem::path riloExecutable();

} // namespace rilo::testing
