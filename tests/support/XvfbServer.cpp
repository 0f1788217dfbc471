#include "support/XvfbServer.h"

#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace rilo::testing {

bool XvfbServer::isAvailable() {
    return !programOnPath("Xvfb").empty() && !programOnPath("xdotool").empty();
}

XvfbServer::XvfbServer(int width, int height) {
    // Xvfb picks a free display number and writes it to the descriptor
    // given with -displayfd once it accepts connections.
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) {
        throw std::runtime_error("pipe failed");
    }
    const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    // The write end, moved above the standard descriptors, is inherited by the server.
    const int writeEnd = ::fcntl(pipeEnds[1], F_DUPFD, 20);
    ::close(pipeEnds[1]);
    server_ = std::make_unique<BackgroundProcess>(
        programOnPath("Xvfb"), std::vector<std::string>{"-displayfd", std::to_string(writeEnd), "-screen",
                                                        "0", screen, "-nolisten", "tcp", "-noreset"});
    ::close(writeEnd);
    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd ready{pipeEnds[0], POLLIN, 0};
        if (::poll(&ready, 1, 100) > 0) {
            char buffer[32];
            const ssize_t count = ::read(pipeEnds[0], buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            number.append(buffer, static_cast<std::size_t>(count));
            if (number.find('\n') != std::string::npos) {
                break;
            }
        }
    }
    ::close(pipeEnds[0]);
    while (!number.empty() && (number.back() == '\n' || number.back() == ' ')) {
        number.pop_back();
    }
    if (number.empty()) {
        throw std::runtime_error("Xvfb did not start: " + server_->standardError());
    }
    display_ = ":" + number;
}

std::string XvfbServer::xdotool(const std::vector<std::string>& arguments) const {
    const ProcessResult result = runProcess(programOnPath("xdotool"), arguments, {{{"DISPLAY", display_}}});
    if (result.exitCode != 0) {
        throw std::runtime_error("xdotool failed: " + result.standardError);
    }
    return result.standardOutput;
}

} // namespace rilo::testing
