#pragma once

#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rilo::testing {

// A PulseAudio daemon of the test's own, reached through a socket in a
// temporary directory, with nothing of the machine's own sound setup:
// - the null sink "rilo_null" ("Rilo Test Output"), the default output;
// - the sine source "rilo_sine" (440 Hz), the default source;
// - the silent null source "rilo_quiet".
// The daemon is stopped when the object goes away.
class PulseAudioTestServer {
public:
    // The pulseaudio program on PATH; nothing when it is not installed.
    static std::optional<std::filesystem::path> daemonProgram();

    // Starts the daemon and returns once it answers. Throws std::runtime_error
    // (with the daemon's log) when it does not come up.
    explicit PulseAudioTestServer(const std::filesystem::path& program);
    ~PulseAudioTestServer();
    PulseAudioTestServer(const PulseAudioTestServer&) = delete;
    PulseAudioTestServer& operator=(const PulseAudioTestServer&) = delete;

    // The value of PULSE_SERVER that reaches this daemon.
    std::string address() const;
    // Runs pactl against this daemon and returns what it prints. Throws
    // std::runtime_error when pactl fails.
    std::string control(const std::vector<std::string>& arguments) const;
    // Ends the daemon now, as a crash would.
    void kill();

private:
    std::string log() const;

    TemporaryDirectory directory_;
    std::filesystem::path controlProgram_;
    pid_t daemon_ = -1;
};

} // namespace rilo::testing
