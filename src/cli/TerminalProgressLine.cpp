#include "cli/TerminalProgressLine.h"

#include <algorithm>
#include <cmath>
#include <unistd.h>

namespace rilo::cli {

namespace {

void writeAll(int fd, const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n <= 0) {
            return; // a terminal that went away takes the line with it
        }
        written += static_cast<std::size_t>(n);
    }
}

} // namespace

TerminalProgressLine::TerminalProgressLine(std::string label, int fd)
    : label_(std::move(label))
    , fd_(fd)
    , shown_(::isatty(fd) == 1)
    , start_(std::chrono::steady_clock::now()) {}

TerminalProgressLine::~TerminalProgressLine() {
    clear();
}

std::string TerminalProgressLine::text(const std::string& label, double fraction,
                                       std::optional<double> remainingSeconds, int barWidth) {
    fraction = std::clamp(std::isfinite(fraction) ? fraction : 0.0, 0.0, 1.0);
    const int filled = static_cast<int>(std::floor(fraction * barWidth));
    std::string line = label + " [";
    for (int cell = 0; cell < barWidth; ++cell) {
        line += cell < filled ? "█" : "░";
    }
    line += "] " + std::to_string(static_cast<int>(std::floor(fraction * 100))) + "%";
    if (remainingSeconds) {
        line += "  剩余 " + ExportDurationFormatter::string(*remainingSeconds);
    }
    return line;
}

void TerminalProgressLine::update(const ExportProgressUpdate& update) {
    if (!shown_) {
        return;
    }
    const double elapsed = ExportTimeEstimator::elapsedSeconds(start_, std::chrono::steady_clock::now());
    const std::optional<double> remaining = estimator_.estimatedRemainingSeconds(update, elapsed);
    // Carriage return, the line, then erase whatever a longer line left.
    writeAll(fd_, "\r" + text(label_, update.fraction(), remaining) + "\033[K");
    drawn_ = true;
}

void TerminalProgressLine::clear() {
    if (drawn_) {
        writeAll(fd_, "\r\033[K");
        drawn_ = false;
    }
}

} // namespace rilo::cli
