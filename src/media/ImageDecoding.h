#pragma once

// Still pictures (background images, cursor and device pictures) decoded
// through FFmpeg: PNG through decodePng, JPEG through the MJPEG decoder.

#include "media/PngCodec.h"
#include "shared/Errors.h"

#include <string_view>

namespace rilo {

class ImageDecodingError : public LocalizedError {
public:
    ImageDecodingError()
        : LocalizedError("无法解码图像。") {}
};

// 8-bit RGBA with straight alpha, rows top to bottom. Throws
// ImageDecodingError for bytes that are neither a PNG nor a JPEG picture.
RgbaImage decodeImage(std::string_view bytes);

} // namespace rilo
