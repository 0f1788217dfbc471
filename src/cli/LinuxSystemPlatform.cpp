#include "cli/SystemPlatform.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
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

namespace rilo::cli {

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

bool containsWord(const char* list, std::string_view word) {
    if (list == nullptr) {
        return false;
    }
    std::string_view remaining(list);
    while (!remaining.empty()) {
        const std::size_t blank = remaining.find(' ');
        if (remaining.substr(0, blank) == word) {
            return true;
        }
        if (blank == std::string_view::npos) {
            break;
        }
        remaining.remove_prefix(blank + 1);
    }
    return false;
}

// Points standard error at /dev/null while it lives: EGL implementations may
// print warnings about drivers they cannot load.
class SilencedStandardError {
public:
    SilencedStandardError()
        : saved_(::dup(STDERR_FILENO)) {
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved_ >= 0 && null >= 0) {
            ::dup2(null, STDERR_FILENO);
        }
        if (null >= 0) {
            ::close(null);
        }
    }
    ~SilencedStandardError() {
        if (saved_ >= 0) {
            ::dup2(saved_, STDERR_FILENO);
            ::close(saved_);
        }
    }
    SilencedStandardError(const SilencedStandardError&) = delete;
    SilencedStandardError& operator=(const SilencedStandardError&) = delete;

private:
    int saved_;
};

// One initialised display on an EGL device, terminated on destruction.
class DeviceDisplay {
public:
    explicit DeviceDisplay(EGLDisplay display)
        : display_(display) {
        EGLint major = 0;
        EGLint minor = 0;
        initialized_ = display_ != EGL_NO_DISPLAY && eglInitialize(display_, &major, &minor) == EGL_TRUE;
    }
    ~DeviceDisplay() {
        if (initialized_) {
            eglTerminate(display_);
        }
    }
    DeviceDisplay(const DeviceDisplay&) = delete;
    DeviceDisplay& operator=(const DeviceDisplay&) = delete;

    bool isInitialized() const noexcept { return initialized_; }
    EGLDisplay get() const noexcept { return display_; }

private:
    EGLDisplay display_;
    bool initialized_ = false;
};

bool namesSoftwareRasterizer(std::string_view renderer) {
    for (const std::string_view software : {"llvmpipe", "softpipe", "swrast", "Software Rasterizer"}) {
        if (renderer.find(software) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

// Whether an OpenGL ES 3 context on the display renders on real hardware.
bool rendersOnHardware(EGLDisplay display) {
    if (eglBindAPI(EGL_OPENGL_ES_API) != EGL_TRUE) {
        return false;
    }
    EGLConfig config = nullptr;
    EGLint configCount = 0;
    const std::array<EGLint, 3> configAttributes{EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_NONE};
    if (eglChooseConfig(display, configAttributes.data(), &config, 1, &configCount) != EGL_TRUE ||
        configCount < 1) {
        // A device display may offer no configs at all; a context then needs
        // EGL_KHR_no_config_context.
        if (!containsWord(eglQueryString(display, EGL_EXTENSIONS), "EGL_KHR_no_config_context")) {
            return false;
        }
        config = nullptr;
    }
    const std::array<EGLint, 3> contextAttributes{EGL_CONTEXT_MAJOR_VERSION, 3, EGL_NONE};
    const EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttributes.data());
    if (context == EGL_NO_CONTEXT) {
        return false;
    }
    bool hardware = false;
    if (eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) == EGL_TRUE) {
        using GetString = const unsigned char* (*)(unsigned int);
        constexpr unsigned int rendererName = 0x1F01; // GL_RENDERER
        const auto getString = reinterpret_cast<GetString>(eglGetProcAddress("glGetString"));
        const unsigned char* renderer = getString != nullptr ? getString(rendererName) : nullptr;
        hardware = renderer != nullptr && !namesSoftwareRasterizer(reinterpret_cast<const char*>(renderer));
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    eglDestroyContext(display, context);
    return hardware;
}

bool probeRenderingDevices() {
    const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (!containsWord(clientExtensions, "EGL_EXT_device_enumeration") ||
        !containsWord(clientExtensions, "EGL_EXT_platform_device")) {
        return false;
    }
    const auto queryDevices =
        reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    const auto queryDeviceString =
        reinterpret_cast<PFNEGLQUERYDEVICESTRINGEXTPROC>(eglGetProcAddress("eglQueryDeviceStringEXT"));
    const auto platformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (queryDevices == nullptr || queryDeviceString == nullptr || platformDisplay == nullptr) {
        return false;
    }
    EGLint count = 0;
    if (queryDevices(0, nullptr, &count) != EGL_TRUE || count <= 0) {
        return false;
    }
    std::vector<EGLDeviceEXT> devices(static_cast<std::size_t>(count));
    if (queryDevices(count, devices.data(), &count) != EGL_TRUE) {
        return false;
    }
    devices.resize(static_cast<std::size_t>(std::max(count, 0)));
    for (EGLDeviceEXT device : devices) {
        if (containsWord(queryDeviceString(device, EGL_EXTENSIONS), "EGL_MESA_device_software")) {
            continue;
        }
        const DeviceDisplay display(platformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr));
        if (display.isInitialized() && rendersOnHardware(display.get())) {
            return true;
        }
    }
    return false;
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

bool LinuxSystemPlatform::hasGPURenderingDevice() const {
    const SilencedStandardError silenced;
    const bool found = probeRenderingDevices();
    eglReleaseThread();
    return found;
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

} // namespace rilo::cli
