#pragma once

// Runs a program as a benchmark measures it: wall time, peak resident memory
// and exit code, with its standard output kept.

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace rilo::bench {

struct RunFigures {
    double wallMilliseconds = 0;
    long maximumResidentKilobytes = 0;
    double cpuSeconds = 0; // user and system time of the program
    int exitCode = -1;
    std::string output;
};

// Runs `program` (a path, or a name looked up on PATH) with XDG_DATA_HOME set
// to `dataHome`, its output read through a pipe; its standard error goes to
// /dev/null when `quiet`.
inline RunFigures runProgram(const std::string& program, const std::vector<std::string>& arguments,
                             const std::filesystem::path& dataHome, bool quiet = false) {
    int output[2];
    if (::pipe(output) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        ::close(output[0]);
        ::close(output[1]);
        if (quiet && std::freopen("/dev/null", "w", stderr) == nullptr) {
            std::_Exit(126);
        }
        ::setenv("XDG_DATA_HOME", dataHome.c_str(), 1);
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        ::execvp(program.c_str(), argv.data());
        std::_Exit(127);
    }
    ::close(output[1]);
    RunFigures figures;
    char buffer[65536];
    for (ssize_t n; (n = ::read(output[0], buffer, sizeof buffer)) != 0;) {
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        figures.output.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(output[0]);
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    figures.wallMilliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    figures.maximumResidentKilobytes = usage.ru_maxrss;
    figures.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    figures.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return figures;
}

} // namespace rilo::bench
