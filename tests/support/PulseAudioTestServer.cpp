#include "support/PulseAudioTestServer.h"

#include "support/BackgroundProcess.h"
#include "support/ProcessRunner.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace rilo::testing {

namespace {

// Whether a client can connect to the socket: it exists and is listening.
bool acceptsConnections(const std::filesystem::path& socketPath) {
    const int client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (client < 0) {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    const bool connected =
        ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(client);
    return connected;
}

void waitForExit(pid_t process, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline) {
        const pid_t result = ::waitpid(process, nullptr, WNOHANG);
        if (result == process || (result < 0 && errno != EINTR)) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(process, SIGKILL);
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

std::optional<std::filesystem::path> PulseAudioTestServer::daemonProgram() {
    std::filesystem::path program = programOnPath("pulseaudio");
    return program.empty() ? std::nullopt : std::optional<std::filesystem::path>(program);
}

PulseAudioTestServer::PulseAudioTestServer(const std::filesystem::path& program) {
    controlProgram_ = programOnPath("pactl");
    if (controlProgram_.empty()) {
        throw std::runtime_error("pactl is not installed");
    }
    const std::filesystem::path home = directory_ / "home";
    const std::filesystem::path runtime = directory_ / "runtime";
    std::filesystem::create_directories(home);
    std::filesystem::create_directories(runtime);

    // The daemon keeps its cookie, state and runtime files here instead of in
    // the user's own directories.
    std::map<std::string, std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        const auto equals = text.find('=');
        if (equals != std::string::npos) {
            environment[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    environment.erase("PULSE_SERVER");
    environment["HOME"] = home.string();
    environment["XDG_RUNTIME_DIR"] = runtime.string();
    environment["XDG_CONFIG_HOME"] = (home / ".config").string();
    environment["PULSE_RUNTIME_PATH"] = (runtime / "pulse").string();
    environment["PULSE_STATE_PATH"] = (home / "state").string();

    // The socket module comes last: once clients can connect, every device is there.
    std::vector<std::string> words{program.string(),
                                   "-n",
                                   "--daemonize=no",
                                   "--system=false",
                                   "--use-pid-file=false",
                                   "--exit-idle-time=-1",
                                   "--disallow-exit",
                                   "--disallow-module-loading=false",
                                   "--log-target=stderr",
                                   "-L",
                                   "module-null-sink sink_name=rilo_null "
                                   "sink_properties='device.description=\"Rilo Test Output\"'",
                                   "-L",
                                   "module-sine-source source_name=rilo_sine frequency=440 rate=44100",
                                   "-L",
                                   "module-null-source source_name=rilo_quiet",
                                   "-L",
                                   "module-native-protocol-unix auth-anonymous=1 socket=" +
                                       (directory_ / "native").string()};
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::vector<std::string> assignments;
    for (const auto& [name, value] : environment) {
        assignments.push_back(name + "=" + value);
    }
    std::vector<char*> environmentPointers;
    for (std::string& assignment : assignments) {
        environmentPointers.push_back(assignment.data());
    }
    environmentPointers.push_back(nullptr);

    // Everything the child needs is made before the fork: after it, only
    // calls that are safe in a child of a threaded process.
    const std::string logPath = (directory_ / "daemon.log").string();
    const pid_t parent = ::getpid();
    daemon_ = ::fork();
    if (daemon_ < 0) {
        throw std::runtime_error(std::string("cannot start pulseaudio: ") + std::strerror(errno));
    }
    if (daemon_ == 0) {
        // A test that crashes takes its daemon with it.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) {
            ::_exit(1);
        }
        const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (log < 0 || nothing < 0) {
            ::_exit(127);
        }
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(log, STDOUT_FILENO);
        ::dup2(log, STDERR_FILENO);
        ::execve(arguments[0], arguments.data(), environmentPointers.data());
        ::_exit(127);
    }

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!acceptsConnections(directory_ / "native")) {
        if (::waitpid(daemon_, nullptr, WNOHANG) == daemon_) {
            daemon_ = -1;
            throw std::runtime_error("pulseaudio ended at start:\n" + log());
        }
        if (std::chrono::steady_clock::now() > deadline) {
            kill();
            throw std::runtime_error("pulseaudio did not come up:\n" + log());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    control({"set-default-sink", "rilo_null"});
    control({"set-default-source", "rilo_sine"});
}

PulseAudioTestServer::~PulseAudioTestServer() {
    if (daemon_ > 0) {
        ::kill(daemon_, SIGTERM);
        waitForExit(daemon_, std::chrono::seconds(5));
    }
}

std::string PulseAudioTestServer::address() const {
    return "unix:" + (directory_ / "native").string();
}

std::string PulseAudioTestServer::control(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words{"--server=" + address()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const ProcessResult result = runProcess(controlProgram_, words);
    if (result.exitCode != 0) {
        throw std::runtime_error("pactl failed: " + result.standardError);
    }
    return result.standardOutput;
}

void PulseAudioTestServer::kill() {
    if (daemon_ > 0) {
        ::kill(daemon_, SIGKILL);
        waitForExit(daemon_, std::chrono::seconds(5));
        daemon_ = -1;
    }
}

std::string PulseAudioTestServer::log() const {
    std::ifstream file(directory_ / "daemon.log");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace rilo::testing
