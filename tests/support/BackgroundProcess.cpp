#include "support/BackgroundProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace rilo::testing {
namespace {

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

BackgroundProcess::BackgroundProcess(const std::filesystem::path& program,
                                     const std::vector<std::string>& arguments,
                                     const std::map<std::string, std::string>& environment) {
    const std::string out = (outputDirectory_ / "stdout").string();
    const std::string err = (outputDirectory_ / "stderr").string();
    pid_ = ::fork();
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid_ == 0) {
        const int outFile = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int errFile = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int nullFile = ::open("/dev/null", O_RDONLY);
        ::dup2(outFile, STDOUT_FILENO);
        ::dup2(errFile, STDERR_FILENO);
        ::dup2(nullFile, STDIN_FILENO);
        execInChild(program, arguments, environment);
    }
}

BackgroundProcess::~BackgroundProcess() {
    if (!ended_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
    }
}

void BackgroundProcess::signal(int signal) const {
    ::kill(pid_, signal);
}

ProcessResult BackgroundProcess::wait() {
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    ended_ = true;
    ProcessResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.standardOutput = readFile(outputDirectory_ / "stdout");
    result.standardError = readFile(outputDirectory_ / "stderr");
    return result;
}

std::string BackgroundProcess::standardError() const {
    return readFile(outputDirectory_ / "stderr");
}

std::filesystem::path programOnPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::stringstream directories(path != nullptr ? path : "/usr/bin:/bin");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        const std::filesystem::path candidate = std::filesystem::path(directory) / name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

} // namespace rilo::testing
