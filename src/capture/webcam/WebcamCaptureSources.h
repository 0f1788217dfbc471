#pragma once

// The webcams of this machine and the sources that read them.

#include "capture/WebcamCaptureSource.h"
#include "project/document/CaptureSamples.h"

#include <memory>
#include <string>
#include <vector>

namespace rilo {

// Opens the webcam named by `device` (throwing WebcamCaptureError):
// - "pattern": a moving test picture, 1280x720 at 30 pictures a second;
// - "file:PATH": the video of a media file, played in a loop at its own
//   pace and size (deviceUnavailable(PATH) when it can't be read);
// - anything else: the path of a V4L2 camera, at 1280x720 when it can take
//   it, else 960x540, at the camera's own frame rate (deviceUnavailable when
//   the path does not exist, cannotStart when the device won't start).
std::unique_ptr<WebcamCaptureSource> makeWebcamCaptureSource(const std::string& device);

// The V4L2 video capture devices, in the order of their numbers; the id is
// the device path, the name the card's name.
std::vector<WebcamDeviceDescriptor> availableWebcams();

} // namespace rilo
