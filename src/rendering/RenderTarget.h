#pragma once

// An offscreen picture to render into, and the ways to get its pixels back.
//
// A RenderTarget owns an RGBA8 colour texture and its framebuffer; row 0 of
// the framebuffer is the top of the picture, so pixels come back top row
// first. Reading back is either synchronous (readRgba, readYuv420p) or split
// in two so that the next frame can be drawn while a read is in flight:
//
//     target.startReadback(ReadbackFormat::yuv420p);   // frame n
//     ... draw frame n + 1 ...
//     const std::uint8_t* bytes = target.mapReadback(); // frame n's bytes
//     ... hand them to the encoder ...
//     target.unmap();
//
// Up to two reads may be in flight; mapReadback answers the oldest. All calls
// with the context current.

#include "rendering/GlObjects.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace rilo {

class RenderContext;

// A framebuffer a scene is drawn into: a RenderTarget's, or a window's.
struct FramebufferTarget {
    GLuint framebuffer = 0;
    int width = 0;
    int height = 0;
    // True when framebuffer row 0 holds the top of the picture (offscreen
    // targets); a window's framebuffer is bottom-up.
    bool rowsTopFirst = false;
};

enum class ReadbackFormat {
    rgba,    // four bytes a pixel, R G B A, rows top first
    yuv420p, // BT.709 limited range: Y plane, then U, then V, tightly packed
};

class RenderTarget {
public:
    // Throws RenderContextError::unavailable when the texture or framebuffer
    // can't be made.
    RenderTarget(RenderContext& context, int width, int height);
    RenderTarget(const RenderTarget&) = delete;
    RenderTarget& operator=(const RenderTarget&) = delete;

    int width() const noexcept { return width_; }
    int height() const noexcept { return height_; }
    GLuint colorTexture() const noexcept { return colorTexture_.get(); }
    FramebufferTarget framebufferTarget() const noexcept;

    // Whether this size can be read back as YUV 4:2:0: a width that is a
    // multiple of 8 and an even height.
    bool supportsYuv420p() const noexcept;
    static std::size_t byteCount(ReadbackFormat format, int width, int height) noexcept;

    void readRgba(std::vector<std::uint8_t>& pixels);
    // Throws RenderContextError::unavailable when supportsYuv420p() is false.
    void readYuv420p(std::vector<std::uint8_t>& bytes);

    // Queues a read of the picture as it is now. Throws
    // RenderContextError::unavailable with two reads already in flight or for
    // a YUV read of an unsupported size.
    void startReadback(ReadbackFormat format);
    // The bytes of the oldest read, byteCount(format) long, valid until
    // unmap(); null when no read is in flight.
    const std::uint8_t* mapReadback();
    void unmap();

private:
    struct PendingRead {
        std::size_t buffer = 0;
        ReadbackFormat format = ReadbackFormat::rgba;
    };

    // Draws the YUV packing pass and leaves its framebuffer bound for reading.
    void packYuv420p();
    // Binds the framebuffer that holds the bytes of `format` for reading and
    // answers its size in RGBA texels.
    std::array<int, 2> bindForReading(ReadbackFormat format);

    RenderContext& context_;
    int width_;
    int height_;
    gl::Texture colorTexture_;
    gl::Framebuffer framebuffer_;
    gl::Texture packedTexture_;
    gl::Framebuffer packedFramebuffer_;
    std::array<gl::Buffer, 2> readBuffers_;
    std::size_t nextBuffer_ = 0;
    std::deque<PendingRead> pending_;
    bool mapped_ = false;
};

} // namespace rilo
