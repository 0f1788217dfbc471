#pragma once

// PNG pictures in and out through FFmpeg's PNG codec: device frames, cursor
// images and still frames all take this one road.

#include "shared/Errors.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rilo {

// Rows top to bottom, four bytes a pixel in the order R, G, B, A, with
// straight (not premultiplied) alpha.
struct RgbaImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;

    friend bool operator==(const RgbaImage&, const RgbaImage&) = default;
};

class PngCodecError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

// The PNG file bytes of an RGBA picture. Throws PngCodecError when the size is
// not positive, the pixel count does not match, or the encoder fails.
std::string encodePng(int width, int height, std::span<const std::uint8_t> rgba);

// Decodes a PNG file of any colour type and bit depth the codec reads into
// 8-bit RGBA. Throws PngCodecError for bytes that are not a PNG picture.
RgbaImage decodePng(std::string_view bytes);

} // namespace rilo
