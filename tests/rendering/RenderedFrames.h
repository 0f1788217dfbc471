#pragma once

// Decoded pictures made up by the tests, and pixel reading of rendered ones.

#include "shared/VideoFramePlanes.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace rilo::testing {

using Rgb = std::array<int, 3>;

// A yuv420p (or nv12) picture, limited-range BT.709, whose colour at each
// normalised point `colorAt` decides.
class SyntheticFrame {
public:
    SyntheticFrame(int width, int height, const std::function<Rgb(double x, double y)>& colorAt,
                   VideoPixelLayout layout = VideoPixelLayout::yuv420p)
        : layout_(layout)
        , width_(width)
        , height_(height) {
        const int chromaWidth = (width + 1) / 2;
        const int chromaHeight = (height + 1) / 2;
        luma_.resize(static_cast<std::size_t>(width) * height);
        blue_.resize(static_cast<std::size_t>(chromaWidth) * chromaHeight);
        red_.resize(blue_.size());
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const Rgb color = colorAt((x + 0.5) / width, (y + 0.5) / height);
                const double r = color[0] / 255.0;
                const double g = color[1] / 255.0;
                const double b = color[2] / 255.0;
                const double l = 0.2126 * r + 0.7152 * g + 0.0722 * b;
                luma_[static_cast<std::size_t>(y) * width + x] = byte(16 + 219 * l);
                if (x % 2 == 0 && y % 2 == 0) {
                    const std::size_t index = static_cast<std::size_t>(y / 2) * chromaWidth + x / 2;
                    blue_[index] = byte(128 + 224 * (b - l) / 1.8556);
                    red_[index] = byte(128 + 224 * (r - l) / 1.5748);
                }
            }
        }
        if (layout == VideoPixelLayout::nv12) {
            interleaved_.resize(blue_.size() * 2);
            for (std::size_t i = 0; i < blue_.size(); ++i) {
                interleaved_[i * 2] = blue_[i];
                interleaved_[i * 2 + 1] = red_[i];
            }
        }
    }

    VideoFramePlanes planes() const {
        VideoFramePlanes planes;
        planes.layout = layout_;
        planes.matrix = VideoColorMatrix::bt709;
        planes.fullRange = false;
        planes.width = width_;
        planes.height = height_;
        const int chromaWidth = (width_ + 1) / 2;
        if (layout_ == VideoPixelLayout::nv12) {
            planes.data = {luma_.data(), interleaved_.data(), nullptr};
            planes.strides = {width_, chromaWidth * 2, 0};
        } else {
            planes.data = {luma_.data(), blue_.data(), red_.data()};
            planes.strides = {width_, chromaWidth, chromaWidth};
        }
        return planes;
    }

private:
    static std::uint8_t byte(double value) {
        return static_cast<std::uint8_t>(std::lround(std::fmin(std::fmax(value, 0.0), 255.0)));
    }

    VideoPixelLayout layout_;
    int width_;
    int height_;
    std::vector<std::uint8_t> luma_;
    std::vector<std::uint8_t> blue_;
    std::vector<std::uint8_t> red_;
    std::vector<std::uint8_t> interleaved_;
};

inline SyntheticFrame solidFrame(int width, int height, Rgb color) {
    return SyntheticFrame(width, height, [color](double, double) { return color; });
}

// RGBA rows top first, as RenderTarget::readRgba gives them.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;

    Rgb at(int x, int y) const {
        const std::size_t index = (static_cast<std::size_t>(y) * width + x) * 4;
        return {rgba[index], rgba[index + 1], rgba[index + 2]};
    }
};

// The largest channel difference.
inline int colorDistance(const Rgb& a, const Rgb& b) {
    int distance = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        distance = std::max(distance, std::abs(a[i] - b[i]));
    }
    return distance;
}

} // namespace rilo::testing
