#include "platform/LinuxSystemPlatform.h"

#include <gtest/gtest.h>

namespace rilo::platform {
namespace {

TEST(LinuxSystemFacts, ProcessorNameComesFromTheFirstModelName) {
    const std::string intel = "processor\t: 0\nvendor_id\t: GenuineIntel\nmodel name\t: Intel(R) Xeon(R) "
                              "Processor @ 2.80GHz \nflags\t\t: fpu\n\nprocessor\t: 1\nmodel name\t: Other\n";
    EXPECT_EQ(LinuxSystemFacts::processorName(intel), "Intel(R) Xeon(R) Processor @ 2.80GHz");
    // Older ARM kernels name the processor differently; "processor" is only a number.
    EXPECT_EQ(LinuxSystemFacts::processorName("processor\t: 0\nBogoMIPS\t: 38.40\nHardware\t: BCM2835\n"),
              "BCM2835");
    EXPECT_EQ(LinuxSystemFacts::processorName("Processor\t: ARMv7 Processor rev 4 (v7l)\nprocessor\t: 0\n"),
              "ARMv7 Processor rev 4 (v7l)");
    EXPECT_EQ(LinuxSystemFacts::processorName("processor\t: 0\nCPU implementer\t: 0x41\n"), std::nullopt);
    EXPECT_EQ(LinuxSystemFacts::processorName("model name\t:   \n"), std::nullopt);
}

TEST(LinuxSystemFacts, OperatingSystemVersionJoinsDistributionAndKernel) {
    EXPECT_EQ(
        LinuxSystemFacts::distributionName(
            "NAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"),
        "Debian GNU/Linux 12 (bookworm)");
    EXPECT_EQ(LinuxSystemFacts::distributionName("NAME='Arch Linux'\nVERSION=rolling\n"),
              "Arch Linux rolling");
    EXPECT_EQ(LinuxSystemFacts::distributionName("PRETTY_NAMES=x\n"), std::nullopt);
    EXPECT_EQ(LinuxSystemFacts::operatingSystemVersion("Debian GNU/Linux 12 (bookworm)", "Linux 6.1.0"),
              "Debian GNU/Linux 12 (bookworm), Linux 6.1.0");
    EXPECT_EQ(LinuxSystemFacts::operatingSystemVersion(std::nullopt, "Linux 6.1.0"), "Linux 6.1.0");
    EXPECT_EQ(LinuxSystemFacts::operatingSystemVersion(std::nullopt, std::nullopt), std::nullopt);
}

} // namespace
} // namespace rilo::platform
