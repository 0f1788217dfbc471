#pragma once

// The progress of a long command for a person at a terminal: one line on
// standard error with a bar, the percentage and the time left, redrawn in
// place and erased before the answer is written. Agents read standard error
// through a pipe, not a terminal, and get nothing: the line is drawn only when
// the stream is a terminal.

#include "export/ExportProgress.h"

#include <chrono>
#include <optional>
#include <string>

namespace rilo::cli {

class TerminalProgressLine {
public:
    // `label` opens the line ("导出", "预览"). Draws only when `fd` is a
    // terminal.
    TerminalProgressLine(std::string label, int fd);
    ~TerminalProgressLine();
    TerminalProgressLine(const TerminalProgressLine&) = delete;
    TerminalProgressLine& operator=(const TerminalProgressLine&) = delete;

    bool isShown() const noexcept { return shown_; }
    // Redraws the line for the update. Safe to call from one thread at a time.
    void update(const ExportProgressUpdate& update);
    // Erases the line, if one was drawn.
    void clear();

    // The text of the line, without the control characters: the label, a
    // bar of `barWidth` cells, the percentage and, when known, the time left.
    static std::string text(const std::string& label, double fraction, std::optional<double> remainingSeconds,
                            int barWidth = 24);

private:
    std::string label_;
    int fd_;
    bool shown_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    ExportTimeEstimator estimator_;
};

} // namespace rilo::cli
