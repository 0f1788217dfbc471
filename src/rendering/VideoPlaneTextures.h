#pragma once

// The textures one stream of decoded frames is uploaded into: one per plane
// (R8 for Y, U and V, RG8 for interleaved UV, RGBA8 for RGBA), kept from frame
// to frame and made again only when the layout or size changes. The shader
// converts to RGB with the matrix and offset given here.

#include "rendering/GlObjects.h"
#include "shared/VideoFramePlanes.h"

#include <array>

namespace rilo {

class VideoPlaneTextures {
public:
    // Uploads the frame's planes. Throws RenderContextError::textureCreation
    // for a frame without planes or when the upload fails.
    void upload(const VideoFramePlanes& frame);

    // Binds the planes to units first, first + 1 and first + 2 (a plane the
    // layout lacks is bound to the first), and sets the program's uniforms
    // `<prefix>Matrix` and `<prefix>Offset`.
    void bind(GLuint program, const char* prefix, GLuint firstUnit) const;

    VideoPixelLayout layout() const noexcept { return layout_; }
    int width() const noexcept { return width_; }
    int height() const noexcept { return height_; }
    // The first plane, bound where a slot must hold some texture.
    GLuint anyTexture() const noexcept { return planes_[0].get(); }

private:
    VideoPixelLayout layout_ = VideoPixelLayout::yuv420p;
    VideoColorMatrix matrix_ = VideoColorMatrix::bt709;
    bool fullRange_ = false;
    int width_ = 0;
    int height_ = 0;
    std::array<gl::Texture, 3> planes_;
};

} // namespace rilo
