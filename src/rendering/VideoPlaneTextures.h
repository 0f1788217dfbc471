#pragma once

// The textures one stream of decoded frames is uploaded into, kept from frame
// to frame and made again only when the layout or size changes: an RGBA8
// texture for RGBA frames, otherwise an R8 luma texture and an RG8 chroma
// texture. Planar U and V are interleaved on the way in, so that the shader
// reads chroma with one sample instead of two (each texture read is costly
// on a software rasteriser). The shader converts to RGB with the matrix and
// offset given here.
//
// Where the GPU is a CPU, YUV frames can instead be converted to RGBA before
// the upload: one RGBA read a sample then replaces a luma and a chroma read
// and the matrix, which at every pixel (seven times over under motion blur)
// costs far more than converting each frame once.

#include "rendering/GlObjects.h"
#include "shared/VideoFramePlanes.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

struct SwsContext;

namespace rilo {

class VideoPlaneTextures {
public:
    // Uploads the frame's planes. Throws RenderContextError::textureCreation
    // for a frame without planes or when the upload fails.
    void upload(const VideoFramePlanes& frame);

    // Whether YUV frames are converted to RGBA before upload (off at first).
    void setConvertsToRgba(bool converts) noexcept { convertsToRgba_ = converts; }

    // Binds luma (or RGBA) to unit `first` and chroma to `first + 1` (the
    // first texture when there is none), and sets the program's uniforms
    // `<prefix>Matrix` and `<prefix>Offset`.
    void bind(GLuint program, const char* prefix, GLuint firstUnit) const;

    bool isRgba() const noexcept { return layout_ == VideoPixelLayout::rgba; }
    int width() const noexcept { return width_; }
    int height() const noexcept { return height_; }
    // The first texture, bound where a slot must hold some texture.
    GLuint anyTexture() const noexcept { return planes_[0].get(); }

private:
    struct ConverterDeleter {
        void operator()(SwsContext* context) const noexcept;
    };

    // The frame as RGBA in `converted_`.
    VideoFramePlanes convertedToRgba(const VideoFramePlanes& frame);
    void uploadPlanes(const VideoFramePlanes& frame);

    bool convertsToRgba_ = false;
    std::unique_ptr<SwsContext, ConverterDeleter> converter_;
    std::vector<std::uint8_t> converted_;
    VideoPixelLayout layout_ = VideoPixelLayout::yuv420p;
    VideoColorMatrix matrix_ = VideoColorMatrix::bt709;
    bool fullRange_ = false;
    int width_ = 0;
    int height_ = 0;
    std::array<gl::Texture, 2> planes_;
    std::vector<std::uint8_t> interleavedChroma_;
};

} // namespace rilo
