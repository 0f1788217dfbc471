#include "rendering/RenderContext.h"

#include "rendering/ShaderSources.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <vector>

namespace rilo {

namespace {

// The display is never terminated: EGL hands every caller on the same
// platform the same display, and terminating it would end the contexts of
// every other RenderContext in the process.
EGLDisplay surfacelessDisplay() {
    const auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getPlatformDisplay == nullptr) {
        return EGL_NO_DISPLAY;
    }
    return getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
}

gl::Shader compileShader(GLenum kind, std::string_view source) {
    gl::Shader shader(glCreateShader(kind));
    if (!shader) {
        throw RenderContextError::unavailable();
    }
    const char* text = source.data();
    const auto length = static_cast<GLint>(source.size());
    glShaderSource(shader.get(), 1, &text, &length);
    glCompileShader(shader.get());
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader.get(), GL_COMPILE_STATUS, &compiled);
    if (compiled != GL_TRUE) {
        throw RenderContextError::unavailable();
    }
    return shader;
}

// Links the full-screen vertex stage with one fragment stage and points each
// named sampler at its texture unit.
gl::Program linkProgram(std::string_view fragmentSource, std::string_view definitions,
                        std::initializer_list<std::pair<const char*, GLint>> samplerUnits) {
    const gl::Shader vertex = compileShader(GL_VERTEX_SHADER, shaders::fullscreenVertexSource);
    // The definitions go right after the #version line, which must come first.
    const std::size_t versionEnd = fragmentSource.find('\n') + 1;
    std::string source(fragmentSource.substr(0, versionEnd));
    source.append(definitions);
    source.append(fragmentSource.substr(versionEnd));
    const gl::Shader fragment = compileShader(GL_FRAGMENT_SHADER, source);
    gl::Program program(glCreateProgram());
    if (!program) {
        throw RenderContextError::unavailable();
    }
    glAttachShader(program.get(), vertex.get());
    glAttachShader(program.get(), fragment.get());
    glLinkProgram(program.get());
    GLint linked = GL_FALSE;
    glGetProgramiv(program.get(), GL_LINK_STATUS, &linked);
    if (linked != GL_TRUE) {
        throw RenderContextError::unavailable();
    }
    glUseProgram(program.get());
    for (const auto& [name, unit] : samplerUnits) {
        glUniform1i(glGetUniformLocation(program.get(), name), unit);
    }
    glUseProgram(0);
    return program;
}

// The arrow's outline in points, tip first; the hot spot is the tip.
constexpr std::array<std::array<double, 2>, 7> arrowPolygon{{
    {2.0, 2.0},
    {2.0, 19.0},
    {6.0, 15.2},
    {8.9, 21.9},
    {11.6, 20.8},
    {8.8, 14.3},
    {14.2, 14.3},
}};
constexpr double arrowWidthPoints = 17;
constexpr double arrowHeightPoints = 25;
constexpr double arrowOutlinePoints = 1.25;
// Drawn at four pixels a point, so that it stays sharp when scaled up.
constexpr int arrowPixelsPerPoint = 4;

// Signed distance, in points, from a point to the arrow: negative inside.
double arrowDistance(double x, double y) {
    double nearest = 1e9;
    bool inside = false;
    for (std::size_t i = 0, j = arrowPolygon.size() - 1; i < arrowPolygon.size(); j = i++) {
        const auto [ax, ay] = arrowPolygon[j];
        const auto [bx, by] = arrowPolygon[i];
        const double ex = bx - ax;
        const double ey = by - ay;
        const double t = std::clamp(((x - ax) * ex + (y - ay) * ey) / (ex * ex + ey * ey), 0.0, 1.0);
        nearest = std::min(nearest, std::hypot(x - ax - t * ex, y - ay - t * ey));
        if ((ay > y) != (by > y) && x < ax + (y - ay) * ex / ey) {
            inside = !inside;
        }
    }
    return inside ? -nearest : nearest;
}

// A black arrow with a white outline, premultiplied RGBA, edges smoothed over
// one pixel.
std::vector<std::uint8_t> rasterizeArrow(int width, int height) {
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    const double pixelPoints = 1.0 / arrowPixelsPerPoint;
    for (int row = 0; row < height; ++row) {
        for (int column = 0; column < width; ++column) {
            const double distance = arrowDistance((column + 0.5) * pixelPoints, (row + 0.5) * pixelPoints);
            const double fill = std::clamp(0.5 - distance / pixelPoints, 0.0, 1.0);
            const double shape = std::clamp(0.5 - (distance - arrowOutlinePoints) / pixelPoints, 0.0, 1.0);
            // White outline under the black body; premultiplied, so the
            // colour is the white coverage left visible.
            const double white = shape - fill;
            const auto level = static_cast<std::uint8_t>(std::lround(255 * std::max(white, 0.0)));
            std::uint8_t* pixel = &pixels[(static_cast<std::size_t>(row) * width + column) * 4];
            pixel[0] = level;
            pixel[1] = level;
            pixel[2] = level;
            pixel[3] = static_cast<std::uint8_t>(std::lround(255 * shape));
        }
    }
    return pixels;
}

} // namespace

struct RenderContext::Egl {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;

    ~Egl() {
        if (context != EGL_NO_CONTEXT) {
            if (eglGetCurrentContext() == context) {
                eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            }
            eglDestroyContext(display, context);
        }
    }
};

RenderContext::RenderContext()
    : egl_(std::make_unique<Egl>()) {
    egl_->display = surfacelessDisplay();
    EGLint major = 0;
    EGLint minor = 0;
    if (egl_->display == EGL_NO_DISPLAY || eglInitialize(egl_->display, &major, &minor) != EGL_TRUE ||
        eglBindAPI(EGL_OPENGL_ES_API) != EGL_TRUE) {
        throw RenderContextError::unavailable();
    }
    // Rendering goes to framebuffer objects only, so any configuration that
    // renders OpenGL ES 3 will do, or none where the display offers none.
    EGLConfig config = nullptr;
    EGLint configCount = 0;
    const std::array<EGLint, 3> configAttributes{EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_NONE};
    if (eglChooseConfig(egl_->display, configAttributes.data(), &config, 1, &configCount) != EGL_TRUE ||
        configCount < 1) {
        config = nullptr;
    }
    const std::array<EGLint, 5> contextAttributes{EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 0,
                                                  EGL_NONE};
    egl_->context = eglCreateContext(egl_->display, config, EGL_NO_CONTEXT, contextAttributes.data());
    if (egl_->context == EGL_NO_CONTEXT) {
        throw RenderContextError::unavailable();
    }
    makeCurrent();

    // The commonest variant now, so that a device that can't draw is found
    // out here.
    sceneProgram(SceneShaderFeatures{.cursor = true});
    annotationProgram_ = linkProgram(shaders::annotationFragmentSource, {}, {{"uImage", 0}, {"uCaption", 1}});
    yuv420pLumaProgram_ =
        linkProgram(shaders::yuv420pFragmentSource, "#define RILO_CHROMA 0\n", {{"uImage", 0}});
    yuv420pChromaProgram_ =
        linkProgram(shaders::yuv420pFragmentSource, "#define RILO_CHROMA 1\n", {{"uImage", 0}});

    sampler_ = gl::makeSampler();
    mipmapSampler_ = gl::makeSampler();
    vertexArray_ = gl::makeVertexArray();
    if (!sampler_ || !mipmapSampler_ || !vertexArray_) {
        throw RenderContextError::unavailable();
    }
    for (const GLuint sampler : {sampler_.get(), mipmapSampler_.get()}) {
        glSamplerParameteri(sampler, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glSamplerParameteri(sampler, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glSamplerParameteri(sampler, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    glSamplerParameteri(sampler_.get(), GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glSamplerParameteri(mipmapSampler_.get(), GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);

    const int width = static_cast<int>(arrowWidthPoints) * arrowPixelsPerPoint;
    const int height = static_cast<int>(arrowHeightPoints) * arrowPixelsPerPoint;
    try {
        fallbackCursor_.texture = uploadRgba(width, height, rasterizeArrow(width, height).data(), true);
    } catch (const RenderContextError&) {
        throw RenderContextError::cursorTexture();
    }
    fallbackCursor_.size = {arrowWidthPoints, arrowHeightPoints};
    fallbackCursor_.hotSpot = {arrowPolygon[0][0], arrowPolygon[0][1]};
}

RenderContext::~RenderContext() {
    // The GL objects below go before the EGL context, with it current.
    eglMakeCurrent(egl_->display, EGL_NO_SURFACE, EGL_NO_SURFACE, egl_->context);
}

unsigned SceneShaderFeatures::bits() const noexcept {
    return (motionBlur ? 1U : 0U) | (cursor ? 2U : 0U) | (webcam ? 4U : 0U) | (deviceFrame ? 8U : 0U) |
           (caption ? 16U : 0U) | (backgroundImage ? 32U : 0U) | (screenRgba ? 64U : 0U) |
           (webcamRgba ? 128U : 0U) | (screen ? 256U : 0U) | (screenInterior ? 512U : 0U);
}

GLuint RenderContext::sceneProgram(const SceneShaderFeatures& features) {
    const unsigned key = features.bits();
    if (const auto found = scenePrograms_.find(key); found != scenePrograms_.end()) {
        return found->second.get();
    }
    const auto flag = [](const char* name, bool on) {
        return std::string("#define ") + name + (on ? " 1\n" : " 0\n");
    };
    const std::string definitions =
        flag("RILO_BLUR", features.motionBlur) + flag("RILO_CURSOR", features.cursor) +
        flag("RILO_WEBCAM", features.webcam) + flag("RILO_DEVICE_FRAME", features.deviceFrame) +
        flag("RILO_CAPTION", features.caption) + flag("RILO_BACKGROUND_IMAGE", features.backgroundImage) +
        flag("RILO_SCREEN_RGBA", features.screenRgba) + flag("RILO_WEBCAM_RGBA", features.webcamRgba) +
        flag("RILO_SCREEN", features.screen) + flag("RILO_SCREEN_INTERIOR", features.screenInterior);
    gl::Program program = linkProgram(shaders::sceneFragmentSource, definitions,
                                      {{"uScreenPlane0", 0},
                                       {"uScreenPlane1", 1},
                                       {"uCursor", 3},
                                       {"uWebcamPlane0", 4},
                                       {"uWebcamPlane1", 5},
                                       {"uCaption", 7},
                                       {"uBackground", 8},
                                       {"uDeviceFrame", 9}});
    return scenePrograms_.emplace(key, std::move(program)).first->second.get();
}

void RenderContext::makeCurrent() const {
    if (eglMakeCurrent(egl_->display, EGL_NO_SURFACE, EGL_NO_SURFACE, egl_->context) != EGL_TRUE) {
        throw RenderContextError::unavailable();
    }
}

bool RenderContext::isSoftwareRenderer() const {
    makeCurrent();
    const auto* name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    const std::string renderer = name != nullptr ? name : "";
    return renderer.find("llvmpipe") != std::string::npos || renderer.find("softpipe") != std::string::npos;
}

gl::Texture RenderContext::uploadRgba(int width, int height, const std::uint8_t* rgbaPremultiplied,
                                      bool mipmaps) {
    gl::Texture texture = gl::makeTexture();
    if (!texture || width <= 0 || height <= 0) {
        throw RenderContextError::textureCreation(static_cast<std::int32_t>(glGetError()));
    }
    int levels = 1;
    if (mipmaps) {
        for (int size = std::max(width, height); size > 1; size /= 2) {
            ++levels;
        }
    }
    glBindTexture(GL_TEXTURE_2D, texture.get());
    glTexStorage2D(GL_TEXTURE_2D, levels, GL_RGBA8, width, height);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgbaPremultiplied);
    if (mipmaps) {
        glGenerateMipmap(GL_TEXTURE_2D);
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    if (const GLenum error = glGetError(); error != GL_NO_ERROR) {
        throw RenderContextError::textureCreation(static_cast<std::int32_t>(error));
    }
    return texture;
}

} // namespace rilo
