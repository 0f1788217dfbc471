#pragma once

// The GPU objects every rendering path shares: a headless EGL display and an
// OpenGL ES 3 context, the scene, annotation and YUV packing programs, a
// linear clamp-to-edge sampler (and a mipmapped one for shrinking cursors),
// and the fallback arrow cursor.
//
// The context is current on the constructing thread when construction ends.
// Whoever renders on another thread calls makeCurrent() there first; a
// context is current on one thread at a time. Every object made from it
// (targets, renderers) must be used and destroyed while it is current.

#include "rendering/GlObjects.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace rilo {

enum class RenderContextErrorCase {
    unavailable,
    textureCreation,
    cursorTexture,
};

class RenderContextError : public CaseError<RenderContextErrorCase> {
public:
    static RenderContextError unavailable() {
        return {Case::unavailable, "当前设备无法创建所需 OpenGL ES 渲染管线。"};
    }
    // `status` is the GL error code of the failed upload.
    static RenderContextError textureCreation(std::int32_t status) {
        return {Case::textureCreation,
                "无法从视频帧创建 OpenGL ES 纹理，错误码 " + std::to_string(status) + "。"};
    }
    static RenderContextError cursorTexture() { return {Case::cursorTexture, "无法创建默认箭头光标纹理。"}; }

private:
    RenderContextError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}
};

// A cursor picture on the GPU: premultiplied RGBA with mipmaps, its size and
// hot spot in points.
struct CursorTexture {
    gl::Texture texture;
    SizeValue size;
    PointValue hotSpot;
};

// The optional layers a scene program variant draws. Software rasterisers
// pay for every instruction of a shader whether a branch is taken or not, so
// each frame uses the variant with only the layers it shows.
struct SceneShaderFeatures {
    // The screen content and the device frame; without them only the
    // background and the screen's shadow are drawn.
    bool screen = true;
    bool motionBlur = false;
    bool cursor = false; // the cursor or a click effect
    bool webcam = false;
    bool deviceFrame = false;
    bool caption = false;
    bool backgroundImage = false;
    bool screenRgba = false;
    bool webcamRgba = false;
    // Only pixels the screen covers whole: no background, shadow or edge.
    bool screenInterior = false;

    unsigned bits() const noexcept;
    friend bool operator==(const SceneShaderFeatures&, const SceneShaderFeatures&) = default;
};

class RenderContext {
public:
    // Throws RenderContextError::unavailable when EGL, the context or a
    // program can't be had, cursorTexture when the arrow can't be uploaded.
    RenderContext();
    ~RenderContext();
    RenderContext(const RenderContext&) = delete;
    RenderContext& operator=(const RenderContext&) = delete;

    // Makes the context current on the calling thread.
    void makeCurrent() const;
    // Whether the GL driver draws on the CPU (Mesa's llvmpipe or softpipe).
    // There, packing YUV in a shader costs more than converting on the CPU.
    bool isSoftwareRenderer() const;

    // The scene program for these layers, compiled on first use. Throws
    // RenderContextError::unavailable when it does not compile.
    GLuint sceneProgram(const SceneShaderFeatures& features);
    GLuint annotationProgram() const noexcept { return annotationProgram_.get(); }
    // Packing of the Y rows, or with `chroma` of the U and V rows.
    GLuint yuv420pProgram(bool chroma) const noexcept {
        return chroma ? yuv420pChromaProgram_.get() : yuv420pLumaProgram_.get();
    }
    GLuint sampler() const noexcept { return sampler_.get(); }
    GLuint mipmapSampler() const noexcept { return mipmapSampler_.get(); }
    // An empty vertex array for attribute-less full-screen triangles.
    GLuint vertexArray() const noexcept { return vertexArray_.get(); }
    const CursorTexture& fallbackCursor() const noexcept { return fallbackCursor_; }

    // Uploads premultiplied RGBA rows, top row first, as an immutable texture;
    // with `mipmaps` the smaller levels are generated. Throws textureCreation.
    static gl::Texture uploadRgba(int width, int height, const std::uint8_t* rgbaPremultiplied, bool mipmaps);

private:
    struct Egl;
    std::unique_ptr<Egl> egl_;
    std::map<unsigned, gl::Program> scenePrograms_;
    gl::Program annotationProgram_;
    gl::Program yuv420pLumaProgram_;
    gl::Program yuv420pChromaProgram_;
    gl::Sampler sampler_;
    gl::Sampler mipmapSampler_;
    gl::VertexArray vertexArray_;
    CursorTexture fallbackCursor_;
};

} // namespace rilo
