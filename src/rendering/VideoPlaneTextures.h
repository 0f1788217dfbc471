#pragma once

// The textures one stream of decoded frames is uploaded into, kept from frame
// to frame and made again only when the layout or size changes: an RGBA8
// texture for RGBA frames, otherwise an R8 luma texture and an RG8 chroma
// texture. Planar U and V are interleaved on the way in, so that the shader
// reads chroma with one sample instead of two (each texture read is costly
// on a software rasteriser). The shader converts to RGB with the matrix and
// offset given here.

#include "rendering/GlObjects.h"
#include "shared/VideoFramePlanes.h"

#include <array>
#include <cstdint>
#include <vector>

namespace rilo {

class VideoPlaneTextures {
public:
    // Uploads the frame's planes. Throws RenderContextError::textureCreation
    // for a frame without planes or when the upload fails.
    void upload(const VideoFramePlanes& frame);

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
    VideoPixelLayout layout_ = VideoPixelLayout::yuv420p;
    VideoColorMatrix matrix_ = VideoColorMatrix::bt709;
    bool fullRange_ = false;
    int width_ = 0;
    int height_ = 0;
    std::array<gl::Texture, 2> planes_;
    std::vector<std::uint8_t> interleavedChroma_;
};

} // namespace rilo
