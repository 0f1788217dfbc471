#pragma once

// Owning handles for OpenGL ES objects. Each deletes its object when it goes,
// so the context that made it must be current on the destroying thread.

#include <GLES3/gl3.h>
#include <utility>

namespace rilo::gl {

template <void (*Delete)(GLuint)>
class Object {
public:
    Object() = default;
    explicit Object(GLuint name) noexcept
        : name_(name) {}
    ~Object() { reset(); }
    Object(Object&& other) noexcept
        : name_(std::exchange(other.name_, 0)) {}
    Object& operator=(Object&& other) noexcept {
        if (this != &other) {
            reset();
            name_ = std::exchange(other.name_, 0);
        }
        return *this;
    }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    GLuint get() const noexcept { return name_; }
    explicit operator bool() const noexcept { return name_ != 0; }
    void reset() noexcept {
        if (name_ != 0) {
            Delete(name_);
            name_ = 0;
        }
    }

private:
    GLuint name_ = 0;
};

namespace detail {
inline void deleteTexture(GLuint name) {
    glDeleteTextures(1, &name);
}
inline void deleteFramebuffer(GLuint name) {
    glDeleteFramebuffers(1, &name);
}
inline void deleteBuffer(GLuint name) {
    glDeleteBuffers(1, &name);
}
inline void deleteSampler(GLuint name) {
    glDeleteSamplers(1, &name);
}
inline void deleteVertexArray(GLuint name) {
    glDeleteVertexArrays(1, &name);
}
inline void deleteProgram(GLuint name) {
    glDeleteProgram(name);
}
inline void deleteShader(GLuint name) {
    glDeleteShader(name);
}
} // namespace detail

using Texture = Object<detail::deleteTexture>;
using Framebuffer = Object<detail::deleteFramebuffer>;
using Buffer = Object<detail::deleteBuffer>;
using Sampler = Object<detail::deleteSampler>;
using VertexArray = Object<detail::deleteVertexArray>;
using Program = Object<detail::deleteProgram>;
using Shader = Object<detail::deleteShader>;

inline Texture makeTexture() {
    GLuint name = 0;
    glGenTextures(1, &name);
    return Texture(name);
}
inline Framebuffer makeFramebuffer() {
    GLuint name = 0;
    glGenFramebuffers(1, &name);
    return Framebuffer(name);
}
inline Buffer makeBuffer() {
    GLuint name = 0;
    glGenBuffers(1, &name);
    return Buffer(name);
}
inline Sampler makeSampler() {
    GLuint name = 0;
    glGenSamplers(1, &name);
    return Sampler(name);
}
inline VertexArray makeVertexArray() {
    GLuint name = 0;
    glGenVertexArrays(1, &name);
    return VertexArray(name);
}

} // namespace rilo::gl
