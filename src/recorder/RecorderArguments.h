#pragma once

// The command line of the headless recorder:
//
//   rilo-record [--seconds S] [--display :N] [--fps 30|60]
//               [--area X,Y,W,H | --window ID] [--system-audio]
//               [--microphone default|NAME] [--webcam DEVICE]
//
// A bad line throws cli::CLIArgumentError (exit 1).

#include "shared/Geometry.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rilo::recorder {

struct RecorderArguments {
    std::optional<double> seconds; // until SIGINT or SIGTERM when absent
    std::string display;           // $DISPLAY when empty
    std::int64_t framesPerSecond = 60;
    std::optional<RectValue> area; // in the primary display's points
    std::optional<std::uint32_t> windowID;
    bool capturesSystemAudio = false;
    std::optional<std::string> microphone; // "default" or a source name
    std::optional<std::string> webcam;     // /dev/videoN, "pattern" or "file:PATH"

    friend bool operator==(const RecorderArguments&, const RecorderArguments&) = default;
};

// The arguments after the program's name.
RecorderArguments parseRecorderArguments(const std::vector<std::string>& arguments);

} // namespace rilo::recorder
