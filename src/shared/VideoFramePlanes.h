#pragma once

// A decoded picture as the renderer reads it: a view of planes owned by
// whoever decoded the frame. Valid only while that owner keeps the frame.

#include <array>
#include <cstdint>

namespace rilo {

enum class VideoPixelLayout {
    yuv420p, // 8-bit Y, U, V planes; chroma at half width and height
    nv12,    // 8-bit Y plane, then interleaved U and V at half width and height
    rgba,    // one plane, four bytes a pixel R, G, B, A, straight alpha
};

// Full-range or limited-range BT.601 / BT.709 as the decoder reports it.
enum class VideoColorMatrix { bt601, bt709 };

struct VideoFramePlanes {
    VideoPixelLayout layout = VideoPixelLayout::yuv420p;
    VideoColorMatrix matrix = VideoColorMatrix::bt709;
    bool fullRange = false;
    int width = 0;
    int height = 0;
    std::array<const std::uint8_t*, 3> data{};
    std::array<int, 3> strides{}; // bytes a row of each plane
};

} // namespace rilo
