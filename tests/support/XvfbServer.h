#pragma once

// An X server of the test's own (Xvfb) on a free display number, and xdotool
// to drive its mouse as a person would.

#include "support/BackgroundProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace rilo::testing {

class XvfbServer {
public:
    // Whether Xvfb and xdotool are installed.
    static bool isAvailable();

    // Starts the server with one screen of that size and returns once it
    // accepts connections. Throws std::runtime_error when it does not.
    XvfbServer(int width, int height);

    // ":N".
    const std::string& display() const noexcept { return display_; }
    // Runs xdotool against this server; throws std::runtime_error when it fails.
    std::string xdotool(const std::vector<std::string>& arguments) const;

private:
    std::string display_;
    std::unique_ptr<BackgroundProcess> server_;
};

} // namespace rilo::testing
