#include "cli/CLIArgumentError.h"
#include "cli/CLIOutputError.h"
#include "cli/ProjectCommandService.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

namespace fs = std::filesystem;

class PrepareOutput : public ::testing::Test {
protected:
    testing::TemporaryDirectory root;
    fs::path exports = root / "Rilo/Exports";

    void prepare(const fs::path& output, bool replace) const {
        ProjectCommandService::prepareOutput(output, replace, exports);
    }

    template <class Error>
    std::string failure(const fs::path& output, bool replace) const {
        try {
            prepare(output, replace);
        } catch (const Error& error) {
            return error.message();
        }
        return "no failure";
    }
};

TEST_F(PrepareOutput, CreatesOnlyTheDefaultExportDirectory) {
    prepare(exports / "x.mp4", false);
    EXPECT_TRUE(fs::is_directory(exports));
    EXPECT_FALSE(fs::exists(exports / "x.mp4"));

    // Another spelling of the same directory counts as well.
    fs::remove_all(root / "Rilo");
    prepare(root / "Rilo/Other/../Exports/y.mp4", false);
    EXPECT_TRUE(fs::is_directory(exports));

    const fs::path elsewhere = root / "no/such/dir/x.mp4";
    EXPECT_EQ(failure<CLIOutputError>(elsewhere, false), "输出目录不存在：" + elsewhere.string());
    EXPECT_FALSE(fs::exists(root / "no"));
}

TEST_F(PrepareOutput, AnExistingOutputNeedsReplaceAndIsLeftInPlace) {
    const fs::path output = root / "frame.jpg";
    std::ofstream(output) << "old";
    EXPECT_EQ(failure<CLIOutputError>(output, false),
              "输出已存在，使用--replace才能覆盖：" + output.string());
    prepare(output, true);
    std::ifstream stillThere(output);
    std::string contents;
    stillThere >> contents;
    EXPECT_EQ(contents, "old");

    // A directory in the way counts as something that exists.
    fs::create_directories(root / "taken.mp4");
    EXPECT_THROW(prepare(root / "taken.mp4", false), CLIOutputError);
}

TEST_F(PrepareOutput, TakesAbsolutePathsOnly) {
    EXPECT_EQ(failure<CLIArgumentError>("x.mp4", false), "参数无效：--out");
    EXPECT_EQ(failure<CLIArgumentError>("", true), "参数无效：--out");
    prepare(root / "fresh.mp4", false);
}

} // namespace
} // namespace rilo::cli
