#include "support/ProcessRunner.h"

#include "support/TestPaths.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace rilo::testing {

namespace {
// Whether the process has `signal` in its blocked mask (/proc/<pid>/status SigBlk).
bool blocksSignal(pid_t pid, int signal) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("SigBlk:")) {
            const unsigned long long mask = std::stoull(line.substr(7), nullptr, 16);
            return (mask >> (signal - 1)) & 1U;
        }
    }
    return false;
}

void drain(int fd, std::string& into, bool& open) {
    std::array<char, 4096> buffer{};
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n > 0) {
        into.append(buffer.data(), static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
        open = false;
    }
}
} // namespace

ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
    int out[2];
    int err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0) {
        throw std::runtime_error("pipe failed");
    }
    // A read end closed here, before the child starts, is -1 from now on.
    if (options.closedReaderStream == STDOUT_FILENO || options.closedReaderStream == STDERR_FILENO) {
        int& readEnd = options.closedReaderStream == STDOUT_FILENO ? out[0] : err[0];
        ::close(std::exchange(readEnd, -1));
    }
    bool outOpen = out[0] >= 0;
    bool errOpen = err[0] >= 0;
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        for (const int fd : {out[0], err[0], out[1], err[1]}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
        execInChild(program, arguments, options.environment);
    }
    ::close(out[1]);
    ::close(err[1]);

    ProcessResult result;
    bool signalled = options.signalOnceBlocked <= 0;
    while (outOpen || errOpen) {
        const short outEvents = outOpen ? POLLIN : 0;
        const short errEvents = errOpen ? POLLIN : 0;
        std::array<pollfd, 2> fds{{{out[0], outEvents, 0}, {err[0], errEvents, 0}}};
        ::poll(fds.data(), fds.size(), signalled ? 20 : 1);
        if (fds[0].revents != 0) {
            drain(out[0], result.standardOutput, outOpen);
        }
        if (fds[1].revents != 0) {
            drain(err[0], result.standardError, errOpen);
        }
        if (!signalled && blocksSignal(child, options.signalOnceBlocked)) {
            ::kill(child, options.signalOnceBlocked);
            signalled = true;
        }
    }
    for (const int readEnd : {out[0], err[0]}) {
        if (readEnd >= 0) {
            ::close(readEnd);
        }
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

void execInChild(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment) {
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<std::string> words{program.string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
}

std::filesystem::path riloExecutable() {
    return buildDirectory() / "rilo";
}

} // namespace rilo::testing
