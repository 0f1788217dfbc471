// The desktop launch of the real executable where no window can be shown,
// and the command line beside it, which needs no display at all.

#include "support/CliLibraryTest.h"

#include <gtest/gtest.h>

namespace rilo::testing {
namespace {

class DesktopLauncherTest : public CliTest {
protected:
    // Runs `rilo` with these display variables (empty: unset) and no platform chosen.
    ProcessResult launch(const std::string& display, const std::string& waylandDisplay,
                         const std::vector<std::string>& arguments) const {
        ProcessOptions options;
        options.environment["DISPLAY"] = display;
        options.environment["WAYLAND_DISPLAY"] = waylandDisplay;
        options.environment["QT_QPA_PLATFORM"] = "";
        return rilo(arguments, options);
    }
};

TEST_F(DesktopLauncherTest, WithoutADisplayItSaysSoAndFails) {
    const ProcessResult result = launch("", "", {});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.standardError.find("没有可用的图形显示"), std::string::npos) << result.standardError;
    EXPECT_NE(result.standardError.find("rilo cli"), std::string::npos);
}

TEST_F(DesktopLauncherTest, ADisplayThatCannotBeReachedIsNamedInTheMessage) {
    const ProcessResult result = launch(":4711", "", {});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.standardError.find("无法连接到显示 :4711"), std::string::npos) << result.standardError;
}

TEST_F(DesktopLauncherTest, TheCommandLineNeedsNoDisplay) {
    ProcessOptions options;
    options.environment["DISPLAY"] = "";
    options.environment["WAYLAND_DISPLAY"] = "";
    const ProcessResult result = cli({"list"}, options);
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardOutput, "[]\n");
    EXPECT_EQ(result.standardError, "");
}

} // namespace
} // namespace rilo::testing
