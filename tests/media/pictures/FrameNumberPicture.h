#pragma once

// Reads back the frame number that the media fixture draws as bars
// (MoviePicture::frameNumber) from a scaled RGBA picture.

#include "media/PngCodec.h"
#include "support/MediaFixture.h"

#include <cstdint>

namespace rilo::testing {

// The number the bars show, sampled at the middle of each bar; -1 when a bar
// is neither clearly white nor clearly black (a blend of two frames, or no
// such picture at all).
inline std::int64_t frameNumberShown(const RgbaImage& image) {
    std::int64_t number = 0;
    for (int bit = 0; bit < frameNumberBarCount; ++bit) {
        const int x = static_cast<int>((bit + 0.5) * image.width / frameNumberBarCount);
        const std::size_t offset = (static_cast<std::size_t>(image.height / 2) * image.width + x) * 4;
        const int red = image.pixels.at(offset);
        if (red > 170) {
            number |= std::int64_t{1} << bit;
        } else if (red > 85) {
            return -1;
        }
    }
    return number;
}

} // namespace rilo::testing
