#pragma once

// Where a recording stands, as the application shows it. The flow goes
// idle → validating → countingDown(n) → preparing → recording → finalizing,
// and back to idle once the finished project is handed on; a failure of a
// running recording ends in failed(text). A cancelled countdown, a setup
// problem and a discard go back to idle.

#include <string>

namespace rilo {

struct RecordingPhase {
    enum class Kind { idle, validating, countingDown, preparing, recording, finalizing, failed };

    Kind kind = Kind::idle;
    int secondsLeft = 0;        // countingDown only
    std::string failureMessage; // failed only

    static RecordingPhase idle() { return {}; }
    static RecordingPhase validating() { return {Kind::validating, 0, {}}; }
    static RecordingPhase countingDown(int seconds) { return {Kind::countingDown, seconds, {}}; }
    static RecordingPhase preparing() { return {Kind::preparing, 0, {}}; }
    static RecordingPhase recording() { return {Kind::recording, 0, {}}; }
    static RecordingPhase finalizing() { return {Kind::finalizing, 0, {}}; }
    static RecordingPhase failed(std::string message) { return {Kind::failed, 0, std::move(message)}; }

    friend bool operator==(const RecordingPhase&, const RecordingPhase&) = default;
};

} // namespace rilo
