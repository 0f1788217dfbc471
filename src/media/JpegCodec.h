#pragma once

// JPEG pictures out through FFmpeg's MJPEG encoder, for still frames asked
// for as .jpg.

#include "shared/Errors.h"

#include <cstdint>
#include <span>
#include <string>

namespace rilo {

class JpegCodecError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

// The JPEG file bytes of an RGBA picture (alpha dropped), at a quality from 0
// to 1 (0.9 keeps a screen recording's text crisp). Throws JpegCodecError when
// the size is not positive, the pixel count does not match, or the encoder
// fails.
std::string encodeJpeg(int width, int height, std::span<const std::uint8_t> rgba, double quality);

} // namespace rilo
