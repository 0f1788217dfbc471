#include "platform/LinuxSystemPlatform.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <sstream>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

namespace rilo::platform {

namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

std::optional<std::string> nonEmpty(std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    return std::string(text);
}

// The value of the first "key<blanks>: value" line of a /proc style text.
std::optional<std::string> colonField(std::string_view text, std::string_view key) {
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t end = std::min(text.find('\n', position), text.size());
        const std::string_view line = text.substr(position, end - position);
        position = end + 1;
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos && trimmed(line.substr(0, colon)) == key) {
            return nonEmpty(trimmed(line.substr(colon + 1)));
        }
    }
    return std::nullopt;
}

// The value of a KEY=value line of an os-release text, without its quotes.
std::optional<std::string> assignmentField(std::string_view text, std::string_view key) {
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t end = std::min(text.find('\n', position), text.size());
        const std::string_view line = trimmed(text.substr(position, end - position));
        position = end + 1;
        if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=') {
            std::string_view value = trimmed(line.substr(key.size() + 1));
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                value.back() == value.front()) {
                value = value.substr(1, value.size() - 2);
            }
            return nonEmpty(trimmed(value));
        }
    }
    return std::nullopt;
}

std::optional<std::string> readTextFile(const char* path) {
    std::ifstream file(path);
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

std::optional<utsname> systemName() {
    utsname name{};
    if (::uname(&name) != 0) {
        return std::nullopt;
    }
    return name;
}

} // namespace

namespace LinuxSystemFacts {

std::optional<std::string> processorName(std::string_view cpuinfo) {
    for (const std::string_view key : {"model name", "Hardware", "Processor"}) {
        if (auto value = colonField(cpuinfo, key)) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<std::string> distributionName(std::string_view osRelease) {
    if (auto pretty = assignmentField(osRelease, "PRETTY_NAME")) {
        return pretty;
    }
    auto name = assignmentField(osRelease, "NAME");
    const auto version = assignmentField(osRelease, "VERSION");
    if (name && version) {
        return *name + " " + *version;
    }
    return name;
}

std::optional<std::string> operatingSystemVersion(const std::optional<std::string>& distribution,
                                                  const std::optional<std::string>& kernel) {
    if (distribution && kernel) {
        return *distribution + ", " + *kernel;
    }
    return distribution ? distribution : kernel;
}

} // namespace LinuxSystemFacts

std::optional<std::string> LinuxSystemPlatform::machineArchitecture() const {
    const auto name = systemName();
    return name ? nonEmpty(name->machine) : std::nullopt;
}

std::optional<std::string> LinuxSystemPlatform::processorName() const {
    const auto cpuinfo = readTextFile("/proc/cpuinfo");
    return cpuinfo ? LinuxSystemFacts::processorName(*cpuinfo) : std::nullopt;
}

std::optional<std::int64_t> LinuxSystemPlatform::logicalCoreCount() const {
    const long count = ::sysconf(_SC_NPROCESSORS_ONLN);
    if (count <= 0) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(count);
}

std::optional<std::uint64_t> LinuxSystemPlatform::physicalMemoryBytes() const {
    struct sysinfo information {};
    if (::sysinfo(&information) != 0 || information.totalram == 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(information.totalram) *
           std::max<std::uint64_t>(information.mem_unit, 1);
}

std::optional<std::string> LinuxSystemPlatform::operatingSystemVersion() const {
    std::optional<std::string> distribution;
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        if (const auto text = readTextFile(path)) {
            distribution = LinuxSystemFacts::distributionName(*text);
            break;
        }
    }
    std::optional<std::string> kernel;
    if (const auto name = systemName(); name && name->sysname[0] != '\0') {
        kernel = std::string(name->sysname) + " " + name->release;
    }
    return LinuxSystemFacts::operatingSystemVersion(distribution, kernel);
}

LinuxSystemPlatform::LinuxSystemPlatform(std::function<bool()> renderingDeviceProbe)
    : renderingDeviceProbe_(std::move(renderingDeviceProbe)) {}

bool LinuxSystemPlatform::hasGPURenderingDevice() const {
    return renderingDeviceProbe_ && renderingDeviceProbe_();
}

std::optional<std::int64_t> LinuxSystemPlatform::availableDiskBytes(const std::filesystem::path& path) const {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0) {
        return std::nullopt;
    }
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const std::uint64_t blockSize = std::max<std::uint64_t>(volume.f_frsize, 1);
    const std::uint64_t blocks = volume.f_bavail;
    return static_cast<std::int64_t>(blocks > largest / blockSize ? largest : blocks * blockSize);
}

} // namespace rilo::platform
