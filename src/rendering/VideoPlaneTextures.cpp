#include "rendering/VideoPlaneTextures.h"

#include "rendering/RenderContext.h"

#include <string>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

namespace rilo {

namespace {

struct PlaneFormat {
    GLenum internalFormat;
    GLenum format;
    int bytesPerPixel;
    int widthDivisor;
    int heightDivisor;
};

// Luma (or RGBA) and chroma; chroma is at half width and height.
PlaneFormat planeFormat(VideoPixelLayout layout, int plane) {
    if (layout == VideoPixelLayout::rgba) {
        return {GL_RGBA8, GL_RGBA, 4, 1, 1};
    }
    return plane == 0 ? PlaneFormat{GL_R8, GL_RED, 1, 1, 1} : PlaneFormat{GL_RG8, GL_RG, 2, 2, 2};
}

void uploadPlane(const std::uint8_t* data, int stride, int width, int height, const PlaneFormat& format) {
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    if (stride % format.bytesPerPixel == 0) {
        glPixelStorei(GL_UNPACK_ROW_LENGTH, stride / format.bytesPerPixel);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, format.format, GL_UNSIGNED_BYTE, data);
    } else {
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        for (int row = 0; row < height; ++row) {
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, row, width, 1, format.format, GL_UNSIGNED_BYTE,
                            data + static_cast<std::ptrdiff_t>(row) * stride);
        }
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
}

} // namespace

void VideoPlaneTextures::ConverterDeleter::operator()(SwsContext* context) const noexcept {
    sws_freeContext(context);
}

void VideoPlaneTextures::upload(const VideoFramePlanes& frame) {
    if (convertsToRgba_ && frame.layout != VideoPixelLayout::rgba) {
        uploadPlanes(convertedToRgba(frame));
    } else {
        uploadPlanes(frame);
    }
}

VideoFramePlanes VideoPlaneTextures::convertedToRgba(const VideoFramePlanes& frame) {
    const int sourcePlanes = frame.layout == VideoPixelLayout::yuv420p ? 3 : 2;
    if (frame.width <= 0 || frame.height <= 0) {
        throw RenderContextError::textureCreation(0);
    }
    for (int plane = 0; plane < sourcePlanes; ++plane) {
        if (frame.data[static_cast<std::size_t>(plane)] == nullptr) {
            throw RenderContextError::textureCreation(0);
        }
    }
    const AVPixelFormat format =
        frame.layout == VideoPixelLayout::nv12 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
    // Bilinear chroma in both directions, as the shader's filtered chroma
    // read gives.
    converter_.reset(sws_getCachedContext(
        converter_.release(), frame.width, frame.height, format, frame.width, frame.height, AV_PIX_FMT_RGBA,
        SWS_BILINEAR | SWS_FULL_CHR_H_INT | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!converter_) {
        throw RenderContextError::textureCreation(0);
    }
    const int* coefficients =
        sws_getCoefficients(frame.matrix == VideoColorMatrix::bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
    sws_setColorspaceDetails(converter_.get(), coefficients, frame.fullRange ? 1 : 0, coefficients, 1, 0,
                             1 << 16, 1 << 16);
    converted_.resize(static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height) * 4);
    std::array<std::uint8_t*, 4> target{converted_.data(), nullptr, nullptr, nullptr};
    const std::array<int, 4> targetStrides{frame.width * 4, 0, 0, 0};
    const std::array<int, 4> sourceStrides{frame.strides[0], frame.strides[1], frame.strides[2], 0};
    sws_scale(converter_.get(), frame.data.data(), sourceStrides.data(), 0, frame.height, target.data(),
              targetStrides.data());
    VideoFramePlanes rgba;
    rgba.layout = VideoPixelLayout::rgba;
    rgba.width = frame.width;
    rgba.height = frame.height;
    rgba.data[0] = converted_.data();
    rgba.strides[0] = targetStrides[0];
    return rgba;
}

void VideoPlaneTextures::uploadPlanes(const VideoFramePlanes& frame) {
    const int planeCount = frame.layout == VideoPixelLayout::rgba ? 1 : 2;
    const int sourcePlanes = frame.layout == VideoPixelLayout::yuv420p ? 3 : planeCount;
    if (frame.width <= 0 || frame.height <= 0) {
        throw RenderContextError::textureCreation(0);
    }
    for (int plane = 0; plane < sourcePlanes; ++plane) {
        if (frame.data[static_cast<std::size_t>(plane)] == nullptr) {
            throw RenderContextError::textureCreation(0);
        }
    }
    const int chromaWidth = (frame.width + 1) / 2;
    const int chromaHeight = (frame.height + 1) / 2;
    const bool reallocate =
        !planes_[0] || frame.layout != layout_ || frame.width != width_ || frame.height != height_;
    if (reallocate) {
        for (auto& texture : planes_) {
            texture.reset();
        }
        for (int plane = 0; plane < planeCount; ++plane) {
            const PlaneFormat format = planeFormat(frame.layout, plane);
            gl::Texture texture = gl::makeTexture();
            glBindTexture(GL_TEXTURE_2D, texture.get());
            glTexStorage2D(GL_TEXTURE_2D, 1, format.internalFormat,
                           (frame.width + format.widthDivisor - 1) / format.widthDivisor,
                           (frame.height + format.heightDivisor - 1) / format.heightDivisor);
            planes_[static_cast<std::size_t>(plane)] = std::move(texture);
        }
        layout_ = frame.layout;
        width_ = frame.width;
        height_ = frame.height;
    }
    matrix_ = frame.matrix;
    fullRange_ = frame.fullRange;

    const PlaneFormat first = planeFormat(frame.layout, 0);
    glBindTexture(GL_TEXTURE_2D, planes_[0].get());
    uploadPlane(frame.data[0], frame.strides[0], frame.width, frame.height, first);
    if (planeCount == 2) {
        const PlaneFormat chroma = planeFormat(frame.layout, 1);
        glBindTexture(GL_TEXTURE_2D, planes_[1].get());
        if (frame.layout == VideoPixelLayout::nv12) {
            uploadPlane(frame.data[1], frame.strides[1], chromaWidth, chromaHeight, chroma);
        } else {
            interleavedChroma_.resize(static_cast<std::size_t>(chromaWidth) * chromaHeight * 2);
            std::uint8_t* out = interleavedChroma_.data();
            for (int row = 0; row < chromaHeight; ++row) {
                const std::uint8_t* blue =
                    frame.data[1] + static_cast<std::ptrdiff_t>(row) * frame.strides[1];
                const std::uint8_t* red = frame.data[2] + static_cast<std::ptrdiff_t>(row) * frame.strides[2];
                for (int column = 0; column < chromaWidth; ++column) {
                    *out++ = blue[column];
                    *out++ = red[column];
                }
            }
            uploadPlane(interleavedChroma_.data(), chromaWidth * 2, chromaWidth, chromaHeight, chroma);
        }
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    if (const GLenum error = glGetError(); error != GL_NO_ERROR) {
        planes_[0].reset();
        throw RenderContextError::textureCreation(static_cast<std::int32_t>(error));
    }
}

void VideoPlaneTextures::bind(GLuint program, const char* prefix, GLuint firstUnit) const {
    for (GLuint plane = 0; plane < 2; ++plane) {
        const gl::Texture& texture = planes_[plane];
        glActiveTexture(GL_TEXTURE0 + firstUnit + plane);
        glBindTexture(GL_TEXTURE_2D, texture ? texture.get() : planes_[0].get());
    }

    // Y, Cb, Cr as sampled (0 to 1) to R, G, B, for the frame's matrix and
    // range: rgb = matrix * (y, cb, cr) + offset.
    const bool bt709 = matrix_ == VideoColorMatrix::bt709;
    const double redFromCr = bt709 ? 1.5748 : 1.402;
    const double greenFromCb = bt709 ? -0.187324 : -0.344136;
    const double greenFromCr = bt709 ? -0.468124 : -0.714136;
    const double blueFromCb = bt709 ? 1.8556 : 1.772;
    const double lumaScale = fullRange_ ? 1.0 : 255.0 / 219.0;
    const double chromaScale = fullRange_ ? 1.0 : 255.0 / 224.0;
    const double lumaZero = fullRange_ ? 0.0 : 16.0 / 255.0;
    const double chromaZero = 128.0 / 255.0;
    // Column-major: the columns are the weights of y, cb and cr.
    const std::array<double, 9> columns{lumaScale,
                                        lumaScale,
                                        lumaScale,
                                        0,
                                        greenFromCb * chromaScale,
                                        blueFromCb * chromaScale,
                                        redFromCr * chromaScale,
                                        greenFromCr * chromaScale,
                                        0};
    std::array<float, 9> matrix{};
    std::array<float, 3> offset{};
    for (std::size_t i = 0; i < 9; ++i) {
        matrix[i] = static_cast<float>(columns[i]);
    }
    for (std::size_t row = 0; row < 3; ++row) {
        offset[row] = static_cast<float>(
            -(columns[row] * lumaZero + columns[3 + row] * chromaZero + columns[6 + row] * chromaZero));
    }
    const std::string name(prefix);
    glUniformMatrix3fv(glGetUniformLocation(program, (name + "Matrix").c_str()), 1, GL_FALSE, matrix.data());
    glUniform3fv(glGetUniformLocation(program, (name + "Offset").c_str()), 1, offset.data());
}

} // namespace rilo
