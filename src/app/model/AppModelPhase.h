#pragma once

// The top-level state of the application: what the main window shows.

#include <cstdint>
#include <string>

namespace rilo {

struct AppModelPhase {
    enum class Kind {
        loading,        // start-up work is running
        idle,           // the recording setup or the recent projects
        openingProject, // a project is being opened
        validating,     // a recording start is being checked
        countingDown,   // countdown, with countdownSecondsLeft
        preparing,      // the recording session is being built
        recording,      // a session runs
        finalizing,     // a session is being stopped
        ready,          // a project is open in the editor
        failed,         // a failure is shown, with failureMessage
    };

    Kind kind = Kind::loading;
    std::int64_t countdownSecondsLeft = 0;
    std::string failureMessage;

    static AppModelPhase of(Kind kind) { return {kind, 0, {}}; }
    static AppModelPhase countingDown(std::int64_t secondsLeft) {
        return {Kind::countingDown, secondsLeft, {}};
    }
    static AppModelPhase failed(std::string message) { return {Kind::failed, 0, std::move(message)}; }

    friend bool operator==(const AppModelPhase&, const AppModelPhase&) = default;
};

} // namespace rilo
