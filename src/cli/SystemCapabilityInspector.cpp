#include "cli/SystemCapabilityInspector.h"

#include "platform/LinuxSystemPlatform.h"
#include "rendering/RenderDeviceProbe.h"

namespace rilo::cli::SystemCapabilityInspector {

namespace {
constexpr std::string_view unknownValue = "unknown";
} // namespace

CLISystemInfoResponse inspect(const platform::SystemPlatform& platform,
                              const std::filesystem::path& volumePath) {
    CLISystemInfoResponse response;
    response.architecture = platform.machineArchitecture().value_or(std::string(unknownValue));
    response.chip = platform.processorName().value_or(std::string(unknownValue));
    response.logicalCoreCount = platform.logicalCoreCount().value_or(0);
    response.memoryBytes = platform.physicalMemoryBytes().value_or(0);
    response.operatingSystemVersion = platform.operatingSystemVersion().value_or(std::string(unknownValue));
    response.supportsMetal = platform.hasGPURenderingDevice();
    response.availableDiskBytes = platform.availableDiskBytes(volumePath).value_or(0);
    return response;
}

CLISystemInfoResponse inspect(const std::filesystem::path& volumePath) {
    return inspect(platform::LinuxSystemPlatform(rendering::hasGPURenderingDevice), volumePath);
}

} // namespace rilo::cli::SystemCapabilityInspector
