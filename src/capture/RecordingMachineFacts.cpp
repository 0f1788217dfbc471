#include "capture/RecordingMachineFacts.h"

#include "platform/LinuxSystemPlatform.h"

#include <fstream>
#include <string>
#include <unistd.h>

namespace rilo {
namespace {

std::optional<std::string> firstLine(const char* path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line) || line.find_first_not_of(" \t") == std::string::npos) {
        return std::nullopt;
    }
    return line;
}

} // namespace

DiagnosticReport::MachineFacts currentMachineFacts(std::optional<std::string> systemAudioOutputDevice) {
    const platform::LinuxSystemPlatform system([] { return false; });
    DiagnosticReport::MachineFacts facts;
    facts.machine = firstLine("/sys/class/dmi/id/product_name")
                        .value_or(system.machineArchitecture().value_or("unknown"));
    facts.operatingSystem = system.operatingSystemVersion().value_or("Linux");
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) == 0 && name[0] != '\0') {
        facts.hostName = std::string(name);
    }
    facts.systemAudioOutputDevice = std::move(systemAudioOutputDevice);
    return facts;
}

} // namespace rilo
