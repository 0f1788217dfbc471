#include "cli/CLIArgumentError.h"
#include "cli/CLIOutputError.h"
#include "cli/ProjectCommandService.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

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
    std::optional<std::string> failure(const fs::path& output, bool replace) const {
        return testing::thrownMessage<Error>([&] { prepare(output, replace); });
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

TEST_F(PrepareOutput, AnExistingOutputNeedsReplaceAndOnlyAbsolutePathsAreTaken) {
    const fs::path output = root / "frame.jpg";
    writeFileAtomically(output, "old");
    EXPECT_EQ(failure<CLIOutputError>(output, false),
              "输出已存在，使用--replace才能覆盖：" + output.string());
    prepare(output, true);
    EXPECT_EQ(readFileBytes(output), "old");
    EXPECT_EQ(failure<CLIArgumentError>("x.mp4", false), "参数无效：--out");
}

} // namespace
} // namespace rilo::cli
