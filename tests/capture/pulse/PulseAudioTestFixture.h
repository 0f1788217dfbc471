#pragma once

#include "support/PulseAudioTestServer.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>

namespace rilo::testing {

// Gives each test a PulseAudio daemon of its own (see PulseAudioTestServer)
// and points this process's clients at it through PULSE_SERVER.
class PulseAudioTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::optional<std::filesystem::path> program = PulseAudioTestServer::daemonProgram();
        if (!program) {
            GTEST_SKIP() << "pulseaudio is not installed";
        }
        if (const char* previous = std::getenv("PULSE_SERVER")) {
            previousServer_ = previous;
        }
        server_.emplace(*program);
        ::setenv("PULSE_SERVER", server_->address().c_str(), 1);
    }

    void TearDown() override {
        if (previousServer_) {
            ::setenv("PULSE_SERVER", previousServer_->c_str(), 1);
        } else {
            ::unsetenv("PULSE_SERVER");
        }
        server_.reset();
    }

    PulseAudioTestServer& server() { return *server_; }

private:
    std::optional<std::string> previousServer_;
    std::optional<PulseAudioTestServer> server_;
};

} // namespace rilo::testing
