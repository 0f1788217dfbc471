#pragma once

// What `system-info` asks of the operating system, behind one small
// interface, and its Linux implementation. Every fact may be unavailable
// (an empty optional); the inspector decides what an agent is told then.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace rilo::cli {

class SystemPlatform {
public:
    virtual ~SystemPlatform() = default;

    // The machine's hardware name, such as "x86_64" or "aarch64".
    virtual std::optional<std::string> machineArchitecture() const = 0;
    // The processor's marketing name.
    virtual std::optional<std::string> processorName() const = 0;
    // Processors online.
    virtual std::optional<std::int64_t> logicalCoreCount() const = 0;
    virtual std::optional<std::uint64_t> physicalMemoryBytes() const = 0;
    // The system's name and version, for people.
    virtual std::optional<std::string> operatingSystemVersion() const = 0;
    // Whether a GPU rendering device can be had; a software rasteriser does
    // not count.
    virtual bool hasGPURenderingDevice() const = 0;
    // Space that an unprivileged process may still use on the volume that
    // holds the path.
    virtual std::optional<std::int64_t> availableDiskBytes(const std::filesystem::path& path) const = 0;
};

// Linux: uname for the architecture and kernel, /proc/cpuinfo for the
// processor, sysconf and sysinfo for cores and memory, /etc/os-release for the
// distribution, statvfs for free space, and EGL for the rendering device.
class LinuxSystemPlatform final : public SystemPlatform {
public:
    std::optional<std::string> machineArchitecture() const override;
    std::optional<std::string> processorName() const override;
    std::optional<std::int64_t> logicalCoreCount() const override;
    std::optional<std::uint64_t> physicalMemoryBytes() const override;
    std::optional<std::string> operatingSystemVersion() const override;
    // True when EGL enumerates a device that is not Mesa's software device
    // (EGL_MESA_device_software), whose display initialises, which makes an
    // OpenGL ES 3 context current without a surface, and whose GL_RENDERER
    // names no software rasteriser (llvmpipe, softpipe, swrast). Whatever EGL
    // prints to standard error meanwhile is discarded, so that the command
    // line's streams carry only its JSON.
    bool hasGPURenderingDevice() const override;
    std::optional<std::int64_t> availableDiskBytes(const std::filesystem::path& path) const override;
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

} // namespace rilo::cli
