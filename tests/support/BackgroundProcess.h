#pragma once

// A program running beside the test: its output goes to files, and the test
// can signal it and wait for it.

#include "support/ProcessRunner.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rilo::testing {

class BackgroundProcess {
public:
    BackgroundProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      const std::map<std::string, std::string>& environment = {});
    // Kills the program if it still runs.
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    pid_t pid() const noexcept { return pid_; }
    void signal(int signal) const;
    // Waits for the end and returns its exit code (128 + signal when killed) and output.
    ProcessResult wait();
    // What the program has written to standard error so far.
    std::string standardError() const;

private:
    TemporaryDirectory outputDirectory_;
    pid_t pid_ = -1;
    bool ended_ = false;
};

// The program of that name on PATH, or an empty path.
std::filesystem::path programOnPath(const std::string& name);

} // namespace rilo::testing
