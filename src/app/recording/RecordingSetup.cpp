#include "app/recording/RecordingSetup.h"

#include <algorithm>

namespace rilo::RecordingSetupValidation {
namespace {

template <class Device>
bool lists(const std::vector<Device>& devices, const std::string& id) {
    return std::any_of(devices.begin(), devices.end(), [&](const Device& device) { return device.id == id; });
}

} // namespace

std::optional<std::string> firstProblem(const RecordingSetupState& setup) {
    if (!setup.selectedSource) {
        return "请选择有效的录制来源或重新框选Area。";
    }
    if (setup.selectedSource->kind == CaptureSourceKind::device) {
        if (!setup.permissions.camera) {
            return "需要摄像头权限才能读取 USB iPhone/iPad 屏幕。";
        }
    } else {
        if (!setup.permissions.screenRecording) {
            return "需要录屏权限才能开始。";
        }
        if (!setup.permissions.inputMonitoring) {
            return "需要输入监听权限才能记录虚拟光标。";
        }
    }
    const RecordingOptions& options = setup.options;
    if (options.capturesMicrophone) {
        if (!setup.permissions.microphone) {
            return "需要麦克风权限才能使用当前设置。";
        }
        if (options.microphoneDeviceID && !lists(setup.microphoneDevices, *options.microphoneDeviceID)) {
            return "所选麦克风已不可用，请重新选择。";
        }
    }
    if (options.capturesWebcam) {
        if (!setup.permissions.camera) {
            return "需要摄像头权限才能使用画中画。";
        }
        if (options.webcamDeviceID && !lists(setup.webcamDevices, *options.webcamDeviceID)) {
            return "所选摄像头已不可用，请重新选择。";
        }
        if (!setup.webcamPreviewIsRunning) {
            return "摄像头尚未准备完成，请稍候重试。";
        }
    }
    return std::nullopt;
}

} // namespace rilo::RecordingSetupValidation
