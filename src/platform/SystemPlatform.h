#pragma once

// What `system-info` asks of the operating system, behind one small
// interface (LinuxSystemPlatform.h has the Linux implementation). Every fact may be unavailable
// (an empty optional); the inspector decides what an agent is told then.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace rilo::platform {

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

} // namespace rilo::platform
