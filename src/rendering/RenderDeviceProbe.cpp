#include "rendering/RenderDeviceProbe.h"

#include "shared/FileDescriptor.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace rilo::rendering {

namespace {

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
        const FileDescriptor null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
        if (saved_.isOpen() && null.isOpen()) {
            ::dup2(null.get(), STDERR_FILENO);
        }
    }
    ~SilencedStandardError() {
        if (saved_.isOpen()) {
            ::dup2(saved_.get(), STDERR_FILENO);
        }
    }
    SilencedStandardError(const SilencedStandardError&) = delete;
    SilencedStandardError& operator=(const SilencedStandardError&) = delete;

private:
    FileDescriptor saved_;
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

bool hasGPURenderingDevice() {
    const SilencedStandardError silenced;
    const bool found = probeRenderingDevices();
    eglReleaseThread();
    return found;
}

} // namespace rilo::rendering
