// The progress line a person sees while an export runs at a terminal.

#include "cli/TerminalProgressLine.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace rilo::cli {
namespace {

TEST(TerminalProgressLine, BarPercentageAndTimeLeft) {
    EXPECT_EQ(TerminalProgressLine::text("导出", 0.45, 75.0, 10), "导出 [████░░░░░░] 45%  剩余 01:15");
    // Out-of-range and unknown values draw an empty or full bar, never more.
    EXPECT_EQ(TerminalProgressLine::text("预览", -1, std::nullopt, 4), "预览 [░░░░] 0%");
    EXPECT_EQ(TerminalProgressLine::text("预览", 7, std::nullopt, 4), "预览 [████] 100%");
}

TEST(TerminalProgressLine, NothingIsDrawnIntoAPipe) {
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    {
        TerminalProgressLine line("导出", pipeEnds[1]);
        EXPECT_FALSE(line.isShown());
        line.update(ExportProgressUpdate::rendering(5, 10));
    }
    ::close(pipeEnds[1]);
    char byte = 0;
    EXPECT_EQ(::read(pipeEnds[0], &byte, 1), 0);
    ::close(pipeEnds[0]);
}

} // namespace
} // namespace rilo::cli
