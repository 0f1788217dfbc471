#pragma once

#include "platform/SystemPlatform.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace rilo::platform {

// Linux: uname for the architecture and kernel, /proc/cpuinfo for the
// processor, sysconf and sysinfo for cores and memory, /etc/os-release for the
// distribution, and statvfs for free space. Whether a GPU rendering device can
// be had is the answer of the probe it is given (the renderer's own probe in
// the program), so that this room links no graphics library.
class LinuxSystemPlatform final : public SystemPlatform {
public:
    explicit LinuxSystemPlatform(std::function<bool()> renderingDeviceProbe);

    std::optional<std::string> machineArchitecture() const override;
    std::optional<std::string> processorName() const override;
    std::optional<std::int64_t> logicalCoreCount() const override;
    std::optional<std::uint64_t> physicalMemoryBytes() const override;
    std::optional<std::string> operatingSystemVersion() const override;
    bool hasGPURenderingDevice() const override;
    std::optional<std::int64_t> availableDiskBytes(const std::filesystem::path& path) const override;

private:
    std::function<bool()> renderingDeviceProbe_;
};

// Readers of the system's text files, apart from the files themselves.
namespace LinuxSystemFacts {

// The processor name of a /proc/cpuinfo text: the first "model name", else
// "Hardware", else "Processor" (older ARM kernels), with the blanks around it
// removed; none when there is none or it is empty.
std::optional<std::string> processorName(std::string_view cpuinfo);

// PRETTY_NAME of an os-release text, quotes removed; else NAME and VERSION.
std::optional<std::string> distributionName(std::string_view osRelease);

// "<distribution>, <kernel name> <kernel release>", or whichever of the two
// is known.
std::optional<std::string> operatingSystemVersion(const std::optional<std::string>& distribution,
                                                  const std::optional<std::string>& kernel);

} // namespace LinuxSystemFacts

} // namespace rilo::platform
