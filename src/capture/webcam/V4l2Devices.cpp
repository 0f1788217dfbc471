#include "capture/webcam/V4l2Devices.h"

#include "capture/webcam/WebcamCaptureSources.h"
#include "shared/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/videodev2.h>
#include <string_view>
#include <sys/ioctl.h>
#include <system_error>
#include <utility>

namespace rilo {
namespace webcam {
namespace {

// The N of a node named "videoN".
std::optional<int> videoNodeNumber(std::string_view fileName) {
    constexpr std::string_view prefix = "video";
    if (!fileName.starts_with(prefix) || fileName.size() == prefix.size()) {
        return std::nullopt;
    }
    int number = 0;
    const char* first = fileName.data() + prefix.size();
    const char* last = fileName.data() + fileName.size();
    const auto [end, error] = std::from_chars(first, last, number);
    if (error != std::errc{} || end != last) {
        return std::nullopt;
    }
    return number;
}

std::string fixedText(const __u8* text, std::size_t capacity) {
    const auto* characters = reinterpret_cast<const char*>(text);
    return std::string(characters, strnlen(characters, capacity));
}

} // namespace

std::optional<WebcamDeviceDescriptor> v4l2CaptureDevice(const std::string& path) {
    const FileDescriptor device(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!device.isOpen()) {
        return std::nullopt;
    }
    v4l2_capability capability{};
    int result = 0;
    do {
        result = ::ioctl(device.get(), VIDIOC_QUERYCAP, &capability);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        return std::nullopt;
    }
    // A node's own capabilities, where the driver tells them apart from those
    // of the whole device (a camera's metadata node shares its card).
    const __u32 nodeCapabilities = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0
                                       ? capability.device_caps
                                       : capability.capabilities;
    if ((nodeCapabilities & V4L2_CAP_VIDEO_CAPTURE) == 0 || (nodeCapabilities & V4L2_CAP_STREAMING) == 0) {
        return std::nullopt;
    }
    std::string name = fixedText(capability.card, sizeof capability.card);
    const std::string busInfo = fixedText(capability.bus_info, sizeof capability.bus_info);
    return WebcamDeviceDescriptor{
        .id = path,
        .name = name.empty() ? path : std::move(name),
        // Cameras wired into the board sit on the platform bus; USB ones,
        // built into a laptop's lid or not, can't be told apart.
        .isBuiltIn = busInfo.starts_with("platform:"),
    };
}

} // namespace webcam

std::vector<WebcamDeviceDescriptor> availableWebcams() {
    std::vector<std::pair<int, std::string>> nodes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
        if (const auto number = webcam::videoNodeNumber(entry.path().filename().native())) {
            nodes.emplace_back(*number, entry.path().native());
        }
    }
    std::sort(nodes.begin(), nodes.end());
    std::vector<WebcamDeviceDescriptor> devices;
    for (const auto& [number, path] : nodes) {
        if (auto device = webcam::v4l2CaptureDevice(path)) {
            devices.push_back(std::move(*device));
        }
    }
    return devices;
}

} // namespace rilo
