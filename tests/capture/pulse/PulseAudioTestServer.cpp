#include "PulseAudioTestServer.h"

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
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace rilo::testing {

namespace {

std::optional<std::filesystem::path> programOnPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream directories(path == nullptr ? "/usr/bin:/bin" : path);
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        const std::filesystem::path candidate = std::filesystem::path(directory) / name;
        if (!directory.empty() && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::nullopt;
}

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
    return programOnPath("pulseaudio");
}

PulseAudioTestServer::PulseAudioTestServer(const std::filesystem::path& program) {
    const std::optional<std::filesystem::path> pactl = programOnPath("pactl");
    if (!pactl) {
        throw std::runtime_error("pactl is not installed");
    }
    controlProgram_ = *pactl;
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

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string logPath = (directory_ / "daemon.log").string();
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int spawned = ::posix_spawn(&daemon_, arguments[0], &actions, nullptr, arguments.data(),
                                      environmentPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        daemon_ = -1;
        throw std::runtime_error(std::string("cannot start pulseaudio: ") + std::strerror(spawned));
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
