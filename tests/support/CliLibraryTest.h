#pragma once

// Tests that run the real executable's command line against a project library
// in a temporary data directory.

#include "project/store/ProjectStore.h"
#include "shared/Json.h"
#include "support/BuildCatalog.h"
#include "support/ProcessRunner.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo::testing {

// The data directory alone: nothing is created in it before the executable runs.
class CliTest : public ::testing::Test {
protected:
    TemporaryDirectory dataHome;
    std::filesystem::path library = dataHome / "Rilo/Projects";

    // Runs `rilo <arguments>` with the temporary data directory.
    ProcessResult rilo(const std::vector<std::string>& arguments, ProcessOptions options = {}) const {
        options.environment["XDG_DATA_HOME"] = dataHome.path().string();
        return runProcess(riloExecutable(), arguments, options);
    }

    // Runs `rilo cli <arguments>` with the temporary data directory.
    ProcessResult cli(std::vector<std::string> arguments, ProcessOptions options = {}) const {
        arguments.insert(arguments.begin(), "cli");
        return rilo(arguments, std::move(options));
    }

    // Runs a command that must succeed and gives its response.
    json::Json succeed(const std::vector<std::string>& arguments) const {
        const ProcessResult result = cli(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        EXPECT_EQ(result.standardError, "");
        EXPECT_TRUE(result.standardOutput.ends_with("}\n") || result.standardOutput.ends_with("]\n"));
        return json::parse(result.standardOutput);
    }

    // Runs a command that must fail with this code and exit status, and gives
    // its message.
    std::string fail(const std::vector<std::string>& arguments, const std::string& code, int exitCode) const {
        const ProcessResult result = cli(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.standardError;
        EXPECT_EQ(result.standardOutput, "");
        const json::Json envelope = json::parse(result.standardError);
        EXPECT_EQ(envelope["error"], code);
        return envelope["message"].get<std::string>();
    }
};

// With the library opened through the project store beforehand.
class CliLibraryTest : public CliTest {
protected:
    ProjectStore store{library, buildCatalog};
};

} // namespace rilo::testing
