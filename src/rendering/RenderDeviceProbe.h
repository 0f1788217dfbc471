#pragma once

namespace rilo::rendering {

// True when EGL enumerates a device that is not Mesa's software device
// (EGL_MESA_device_software), whose display initialises, which makes an
// OpenGL ES 3 context current without a surface, and whose GL_RENDERER names
// no software rasteriser (llvmpipe, softpipe, swrast). Whatever EGL prints to
// standard error meanwhile is discarded, so that the command line's streams
// carry only its JSON.
bool hasGPURenderingDevice();

} // namespace rilo::rendering
