#pragma once

// What the V4L2 driver says about a device node.

#include "project/document/CaptureSamples.h"

#include <optional>
#include <string>

namespace rilo::webcam {

// The device at `path` when it is a video capture device; nothing when it
// can't be opened or captures no video (a metadata node, an encoder).
std::optional<WebcamDeviceDescriptor> v4l2CaptureDevice(const std::string& path);

} // namespace rilo::webcam
