#include "rendering/RenderTarget.h"

#include "rendering/RenderContext.h"

namespace rilo {

namespace {

// An RGBA8 texture with a framebuffer around it.
void makeColorTarget(int width, int height, gl::Texture& texture, gl::Framebuffer& framebuffer) {
    texture = gl::makeTexture();
    framebuffer = gl::makeFramebuffer();
    if (!texture || !framebuffer || width <= 0 || height <= 0) {
        throw RenderContextError::unavailable();
    }
    glBindTexture(GL_TEXTURE_2D, texture.get());
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, width, height);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glBindTexture(GL_TEXTURE_2D, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer.get());
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture.get(), 0);
    const bool complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    if (!complete) {
        throw RenderContextError::unavailable();
    }
}

} // namespace

RenderTarget::RenderTarget(RenderContext& context, int width, int height)
    : context_(context)
    , width_(width)
    , height_(height) {
    makeColorTarget(width, height, colorTexture_, framebuffer_);
}

FramebufferTarget RenderTarget::framebufferTarget() const noexcept {
    return {framebuffer_.get(), width_, height_, true};
}

bool RenderTarget::supportsYuv420p() const noexcept {
    return width_ % 8 == 0 && height_ % 2 == 0;
}

std::size_t RenderTarget::byteCount(ReadbackFormat format, int width, int height) noexcept {
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    return format == ReadbackFormat::rgba ? pixels * 4 : pixels * 3 / 2;
}

void RenderTarget::packYuv420p() {
    if (!supportsYuv420p()) {
        throw RenderContextError::unavailable();
    }
    if (!packedFramebuffer_) {
        makeColorTarget(width_ / 4, height_ * 3 / 2, packedTexture_, packedFramebuffer_);
    }
    glBindFramebuffer(GL_FRAMEBUFFER, packedFramebuffer_.get());
    glViewport(0, 0, width_ / 4, height_ * 3 / 2);
    glDisable(GL_BLEND);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, colorTexture_.get());
    glBindSampler(0, context_.sampler());
    glBindVertexArray(context_.vertexArray());
    // The Y rows and the U and V rows in two draws, each with its own program,
    // so that neither runs the other's code.
    glEnable(GL_SCISSOR_TEST);
    for (const bool chroma : {false, true}) {
        const GLuint program = context_.yuv420pProgram(chroma);
        glUseProgram(program);
        glUniform2i(glGetUniformLocation(program, "uSize"), width_, height_);
        glUniform1i(glGetUniformLocation(program, "uRowsTopFirst"), 1);
        glScissor(0, chroma ? height_ : 0, width_ / 4, chroma ? height_ / 2 : height_);
        glDrawArrays(GL_TRIANGLES, 0, 3);
    }
    glDisable(GL_SCISSOR_TEST);
    glBindSampler(0, 0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glBindVertexArray(0);
    glUseProgram(0);
}

std::array<int, 2> RenderTarget::bindForReading(ReadbackFormat format) {
    if (format == ReadbackFormat::yuv420p) {
        packYuv420p();
        return {width_ / 4, height_ * 3 / 2};
    }
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_.get());
    return {width_, height_};
}

void RenderTarget::readRgba(std::vector<std::uint8_t>& pixels) {
    pixels.resize(byteCount(ReadbackFormat::rgba, width_, height_));
    bindForReading(ReadbackFormat::rgba);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width_, height_, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
}

void RenderTarget::readYuv420p(std::vector<std::uint8_t>& bytes) {
    const auto [texelsAcross, rows] = bindForReading(ReadbackFormat::yuv420p);
    bytes.resize(byteCount(ReadbackFormat::yuv420p, width_, height_));
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, texelsAcross, rows, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
}

void RenderTarget::startReadback(ReadbackFormat format) {
    if (pending_.size() >= readBuffers_.size()) {
        throw RenderContextError::unavailable();
    }
    const std::size_t index = nextBuffer_;
    nextBuffer_ = (nextBuffer_ + 1) % readBuffers_.size();
    gl::Buffer& buffer = readBuffers_[index];
    if (!buffer) {
        buffer = gl::makeBuffer();
        glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer.get());
        glBufferData(GL_PIXEL_PACK_BUFFER,
                     static_cast<GLsizeiptr>(byteCount(ReadbackFormat::rgba, width_, height_)), nullptr,
                     GL_STREAM_READ);
    } else {
        glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer.get());
    }
    const auto [texelsAcross, rows] = bindForReading(format);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, texelsAcross, rows, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    pending_.push_back({index, format});
}

const std::uint8_t* RenderTarget::mapReadback() {
    if (pending_.empty()) {
        return nullptr;
    }
    const PendingRead& read = pending_.front();
    glBindBuffer(GL_PIXEL_PACK_BUFFER, readBuffers_[read.buffer].get());
    const void* bytes =
        glMapBufferRange(GL_PIXEL_PACK_BUFFER, 0,
                         static_cast<GLsizeiptr>(byteCount(read.format, width_, height_)), GL_MAP_READ_BIT);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    if (bytes == nullptr) {
        throw RenderContextError::unavailable();
    }
    mapped_ = true;
    return static_cast<const std::uint8_t*>(bytes);
}

void RenderTarget::unmap() {
    if (!mapped_ || pending_.empty()) {
        return;
    }
    glBindBuffer(GL_PIXEL_PACK_BUFFER, readBuffers_[pending_.front().buffer].get());
    glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    mapped_ = false;
    pending_.pop_front();
}

} // namespace rilo
