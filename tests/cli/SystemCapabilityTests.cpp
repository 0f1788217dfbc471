#include "cli/SystemCapabilityInspector.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

TEST(SystemCapabilityInspector, ReadsThisMachine) {
    const testing::TemporaryDirectory volume;
    const CLISystemInfoResponse info = SystemCapabilityInspector::inspect(volume.path());
    EXPECT_NE(info.architecture, "unknown");
    EXPECT_GE(info.logicalCoreCount, 1);
    EXPECT_GT(info.memoryBytes, 0u);
    EXPECT_GT(info.availableDiskBytes, 0);
    EXPECT_EQ(info.protocolVersion, 1);
    // A volume that does not exist has no free space to report.
    EXPECT_EQ(SystemCapabilityInspector::inspect(volume / "missing").availableDiskBytes, 0);
}

} // namespace
} // namespace rilo::cli
