#include "support/ProcessRunner.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace rilo::testing {

namespace {
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
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        ::close(out[0]);
        ::close(err[0]);
        ::close(out[1]);
        ::close(err[1]);
        for (const auto& [name, value] : options.environment) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        std::vector<char*> argv;
        std::string programPath = program.string();
        argv.push_back(programPath.data());
        std::vector<std::string> copies = arguments;
        for (auto& argument : copies) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ::execv(programPath.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);

    ProcessResult result;
    bool outOpen = true;
    bool errOpen = true;
    const auto started = std::chrono::steady_clock::now();
    bool signalled = options.signal <= 0;
    while (outOpen || errOpen) {
        const short outEvents = outOpen ? POLLIN : 0;
        const short errEvents = errOpen ? POLLIN : 0;
        std::array<pollfd, 2> fds{{{out[0], outEvents, 0}, {err[0], errEvents, 0}}};
        ::poll(fds.data(), fds.size(), 20);
        if (fds[0].revents != 0) {
            drain(out[0], result.standardOutput, outOpen);
        }
        if (fds[1].revents != 0) {
            drain(err[0], result.standardError, errOpen);
        }
        if (!signalled && std::chrono::steady_clock::now() - started >=
                              std::chrono::milliseconds(options.signalDelayMilliseconds)) {
            ::kill(child, options.signal);
            signalled = true;
        }
    }
    ::close(out[0]);
    ::close(err[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::filesystem::path riloExecutable() {
    const char* buildDirectory = std::getenv("RILO_BUILD_DIR");
    if (buildDirectory == nullptr) {
        throw std::runtime_error("RILO_BUILD_DIR is not set");
    }
    return std::filesystem::path(buildDirectory) / "rilo";
}

} // namespace rilo::testing
