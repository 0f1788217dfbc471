#include "rendering/SceneRenderer.h"

#include "media/ImageDecoding.h"
#include "shared/Files.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace rilo {

namespace {

constexpr std::size_t backgroundAssetLimit = 8;
constexpr std::size_t deviceFrameAssetLimit = 4;

// Texture units of the scene program.
constexpr GLuint screenUnit = 0;
constexpr GLuint cursorUnit = 3;
constexpr GLuint webcamUnit = 4;
constexpr GLuint captionUnit = 7;
constexpr GLuint backgroundUnit = 8;
constexpr GLuint deviceFrameUnit = 9;
constexpr GLuint sceneUnitCount = 10;
// Screen reads a pixel under motion blur, as the scene program takes them.
constexpr int motionBlurSamples = 7;

// Straight-alpha RGBA to premultiplied, so that filtering at transparent
// edges does not bleed colour.
std::vector<std::uint8_t> premultiplied(const RgbaImage& image) {
    std::vector<std::uint8_t> pixels = image.pixels;
    for (std::size_t i = 0; i + 3 < pixels.size(); i += 4) {
        const unsigned alpha = pixels[i + 3];
        for (std::size_t channel = 0; channel < 3; ++channel) {
            pixels[i + channel] = static_cast<std::uint8_t>((pixels[i + channel] * alpha + 127) / 255);
        }
    }
    return pixels;
}

gl::Texture pictureTexture(const RgbaImage& image) {
    return RenderContext::uploadRgba(image.width, image.height, premultiplied(image).data(), true);
}

void bindTexture(GLuint unit, GLuint texture, GLuint sampler) {
    glActiveTexture(GL_TEXTURE0 + unit);
    glBindTexture(GL_TEXTURE_2D, texture);
    glBindSampler(unit, sampler);
}

// Leaves no state behind that a shared context (a window's) would trip over.
void unbindUnits(GLuint count) {
    for (GLuint unit = 0; unit < count; ++unit) {
        glActiveTexture(GL_TEXTURE0 + unit);
        glBindTexture(GL_TEXTURE_2D, 0);
        glBindSampler(unit, 0);
    }
    glActiveTexture(GL_TEXTURE0);
    glUseProgram(0);
    glBindVertexArray(0);
}

void prepareDraw(GLuint framebuffer, int width, int height) {
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glViewport(0, 0, width, height);
    glDisable(GL_BLEND);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_CULL_FACE);
}

template <class Entry>
const Entry* touch(std::list<std::pair<std::string, Entry>>& entries, const std::string& key) {
    const auto found =
        std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == key; });
    if (found == entries.end()) {
        return nullptr;
    }
    entries.splice(entries.begin(), entries, found);
    return &entries.front().second;
}

template <class Entry>
void insertMostRecent(std::list<std::pair<std::string, Entry>>& entries, std::string key, Entry entry,
                      std::size_t limit) {
    std::erase_if(entries, [&](const auto& existing) { return existing.first == key; });
    entries.emplace_front(std::move(key), std::move(entry));
    while (entries.size() > limit) {
        entries.pop_back();
    }
}

} // namespace

SceneRenderer::SceneRenderer(RenderContext& context, std::optional<DeviceFrameCatalog> catalog,
                             std::filesystem::path resourceDirectory, CaptionRasterizer& captions)
    : context_(context)
    , catalog_(std::move(catalog))
    , resourceDirectory_(std::move(resourceDirectory))
    , captions_(captions) {}

void SceneRenderer::registerCursorAssets(const std::vector<CursorAssetPayload>& payloads) {
    std::map<std::string, CursorTexture> built;
    for (const CursorAssetPayload& payload : payloads) {
        const RgbaImage image = decodeImage(payload.pngData);
        built[payload.descriptor.id] =
            CursorTexture{pictureTexture(image), payload.descriptor.logicalSize, payload.descriptor.hotSpot};
    }
    const std::lock_guard lock(assetsLock_);
    for (auto& [id, texture] : built) {
        cursorAssets_.insert_or_assign(id, std::move(texture));
    }
}

void SceneRenderer::registerCanvasBackgroundAssets(
    const std::vector<CanvasBackgroundAssetPayload>& payloads) {
    for (const CanvasBackgroundAssetPayload& payload : payloads) {
        const RgbaImage image = decodeImage(payload.imageData);
        insertMostRecent(
            backgroundAssets_, payload.descriptor.id,
            PictureTexture{pictureTexture(image),
                           {static_cast<double>(image.width), static_cast<double>(image.height)}},
            backgroundAssetLimit);
    }
}

void SceneRenderer::registerProjectAssets(const ProjectSnapshot& snapshot) {
    registerCursorAssets(snapshot.cursorAssets);
    if (const auto& image = snapshot.timeline.canvas.image) {
        const auto& payloads = snapshot.canvasBackgroundAssets;
        const auto found = std::find_if(payloads.rbegin(), payloads.rend(), [&](const auto& payload) {
            return payload.descriptor.id == image->id;
        });
        if (found != payloads.rend()) {
            registerCanvasBackgroundAssets({*found});
        }
    }
}

const SceneRenderer::DeviceFrameTexture*
SceneRenderer::deviceFrameAsset(const std::optional<DeviceFrameEdit>& edit) {
    if (!edit || !edit->isEnabled || !catalog_) {
        return nullptr;
    }
    const std::optional<DeviceFrameAsset> asset = catalog_->descriptor(edit->assetID);
    if (!asset) {
        return nullptr;
    }
    if (const DeviceFrameTexture* cached = touch(deviceFrameAssets_, edit->assetID)) {
        return cached;
    }
    const std::optional<std::filesystem::path> path =
        DeviceFrameCatalog::resourceURL(asset->variant, resourceDirectory_);
    if (!path) {
        return nullptr;
    }
    const RgbaImage image = decodeImage(readFileBytes(*path));
    insertMostRecent(deviceFrameAssets_, edit->assetID,
                     DeviceFrameTexture{pictureTexture(image), asset->descriptor}, deviceFrameAssetLimit);
    return &deviceFrameAssets_.front().second;
}

const SceneRenderer::PictureTexture* SceneRenderer::backgroundAsset(const std::string& imageID) {
    return touch(backgroundAssets_, imageID);
}

GLuint SceneRenderer::captionTexture(const std::shared_ptr<const CaptionBitmap>& bitmap) {
    // Only the current cue's texture is worth keeping.
    std::erase_if(captionTextures_, [&](const auto& entry) { return entry.first != bitmap.get(); });
    if (!bitmap || bitmap->width <= 0 || bitmap->height <= 0) {
        return 0;
    }
    auto found = captionTextures_.find(bitmap.get());
    if (found == captionTextures_.end()) {
        gl::Texture texture =
            RenderContext::uploadRgba(bitmap->width, bitmap->height, bitmap->rgbaPremultiplied.data(), false);
        found = captionTextures_.emplace(bitmap.get(), CaptionTexture{bitmap, std::move(texture)}).first;
    }
    return found->second.texture.get();
}

void SceneRenderer::ensureIntermediate(int width, int height) {
    if (intermediateFramebuffer_ && intermediateWidth_ == width && intermediateHeight_ == height) {
        return;
    }
    intermediateFramebuffer_.reset();
    intermediateTexture_ = gl::makeTexture();
    intermediateFramebuffer_ = gl::makeFramebuffer();
    if (!intermediateTexture_ || !intermediateFramebuffer_) {
        throw SceneRendererError::encoderUnavailable();
    }
    glBindTexture(GL_TEXTURE_2D, intermediateTexture_.get());
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, width, height);
    glBindTexture(GL_TEXTURE_2D, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, intermediateFramebuffer_.get());
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, intermediateTexture_.get(),
                           0);
    const bool complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    if (!complete) {
        intermediateFramebuffer_.reset();
        throw SceneRendererError::encoderUnavailable();
    }
    intermediateWidth_ = width;
    intermediateHeight_ = height;
}

void SceneRenderer::encode(const VideoFramePlanes& source, const VideoFramePlanes* webcam,
                           const SceneState& scene, RenderTarget& target) {
    encode(source, webcam, scene, target.framebufferTarget());
}

void SceneRenderer::encode(const VideoFramePlanes& source, const VideoFramePlanes* webcam,
                           const SceneState& scene, const FramebufferTarget& target) {
    const std::vector<AnnotationUniform> annotations =
        SceneUniformRules::annotationUniforms(scene.annotations);
    if (target.width <= 0 || target.height <= 0) {
        throw SceneRendererError::encoderUnavailable();
    }

    if (!softwareRenderer_) {
        // Asked of the context that is current, which may be a window's.
        const auto* name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        const std::string renderer = name != nullptr ? name : "";
        softwareRenderer_ =
            renderer.find("llvmpipe") != std::string::npos || renderer.find("softpipe") != std::string::npos;
    }
    // Converting a frame costs about what reading its planes once at each of
    // its pixels would: it pays off where the draw reads the screen at least
    // that often. The webcam, drawn small, keeps its planes.
    const double screenReads = static_cast<double>(target.width) * static_cast<double>(target.height) *
                               (scene.motionBlurCamera ? motionBlurSamples : 1);
    screenTextures_.setConvertsToRgba(*softwareRenderer_ &&
                                      screenReads >= static_cast<double>(source.width) * source.height);
    screenTextures_.upload(source);
    if (webcam != nullptr) {
        webcamTextures_.upload(*webcam);
    }

    SceneUniformInputs inputs;
    inputs.outputSize = {static_cast<double>(target.width), static_cast<double>(target.height)};
    inputs.screenTextureSize = {static_cast<double>(source.width), static_cast<double>(source.height)};
    if (webcam != nullptr) {
        inputs.webcamTextureSize =
            SizeValue{static_cast<double>(webcam->width), static_cast<double>(webcam->height)};
    }
    const DeviceFrameTexture* deviceFrame = deviceFrameAsset(scene.deviceFrame);
    if (deviceFrame != nullptr) {
        inputs.deviceFrame = deviceFrame->descriptor;
    }

    const CursorTexture& fallback = context_.fallbackCursor();
    inputs.fallbackCursor = {fallback.size, fallback.hotSpot};
    GLuint cursorTexture = fallback.texture.get();
    if (scene.cursor.assetID) {
        const std::lock_guard lock(assetsLock_);
        if (const auto found = cursorAssets_.find(*scene.cursor.assetID); found != cursorAssets_.end()) {
            inputs.cursorAsset = CursorShape{found->second.size, found->second.hotSpot};
            cursorTexture = found->second.texture.get();
        }
    }

    GLuint caption = 0;
    if (const auto& state = scene.caption) {
        const CaptionRenderAsset asset = captions_.asset(
            state->text, state->highlights, state->appearance, state->maximumLines, state->fontScale,
            state->bottomPosition, PixelSize::unnormalized(target.width, target.height));
        caption = captionTexture(asset.bitmap);
        if (caption != 0) {
            inputs.captionRect = asset.rect;
        }
    } else {
        captionTexture(nullptr);
    }

    const PictureTexture* background = nullptr;
    if (scene.canvas.image) {
        background = backgroundAsset(scene.canvas.image->id);
        if (background != nullptr) {
            inputs.backgroundImageSize = background->size;
        }
    }

    SceneUniforms uniforms = SceneUniformRules::sceneUniforms(scene, inputs);
    const SceneUniforms::Row captionRect = uniforms.captionRect;
    if (!annotations.empty()) {
        // The caption goes above the annotations, in the second pass.
        uniforms.captionRect = {};
        ensureIntermediate(target.width, target.height);
        prepareDraw(intermediateFramebuffer_.get(), target.width, target.height);
    } else {
        prepareDraw(target.framebuffer, target.width, target.height);
    }

    SceneShaderFeatures local;
    local.motionBlur = scene.motionBlurCamera.has_value();
    local.deviceFrame = deviceFrame != nullptr;
    local.backgroundImage = uniforms.output[3] == 2;
    local.screenRgba = screenTextures_.isRgba();
    local.webcamRgba = webcam != nullptr ? webcamTextures_.isRgba() : screenTextures_.isRgba();
    local.cursor = scene.cursor.visible || scene.clickEffect.has_value();
    local.webcam = uniforms.webcamAspects[0] > 0;
    local.caption = uniforms.captionRect[2] > 0;
    SceneShaderFeatures wide = local;
    wide.cursor = false;
    wide.webcam = false;
    wide.caption = false;

    const auto draw = [&](const SceneShaderFeatures& features) {
        const GLuint program = context_.sceneProgram(features);
        glUseProgram(program);
        const auto packed = uniforms.packed();
        glUniform4fv(glGetUniformLocation(program, "uScene"), static_cast<GLsizei>(SceneUniforms::rowCount),
                     packed.data());
        glUniform1i(glGetUniformLocation(program, "uRowsTopFirst"), target.rowsTopFirst ? 1 : 0);
        glUniform2f(glGetUniformLocation(program, "uScreenTextureSize"), static_cast<float>(source.width),
                    static_cast<float>(source.height));
        glUniform1f(glGetUniformLocation(program, "uClickRadiusPoints"),
                    static_cast<float>(clickEffectRadiusPoints));
        const GLuint sampler = context_.sampler();
        const GLuint mipmapSampler = context_.mipmapSampler();
        screenTextures_.bind(program, "uScreen", screenUnit);
        const VideoPlaneTextures& webcamPlanes = webcam != nullptr ? webcamTextures_ : screenTextures_;
        webcamPlanes.bind(program, "uWebcam", webcamUnit);
        for (GLuint unit = 0; unit < 2; ++unit) {
            glBindSampler(screenUnit + unit, sampler);
            glBindSampler(webcamUnit + unit, sampler);
        }
        const GLuint anyTexture = screenTextures_.anyTexture();
        bindTexture(cursorUnit, cursorTexture, mipmapSampler);
        bindTexture(captionUnit, caption != 0 ? caption : anyTexture, sampler);
        bindTexture(backgroundUnit, background != nullptr ? background->texture.get() : anyTexture,
                    mipmapSampler);
        bindTexture(deviceFrameUnit, deviceFrame != nullptr ? deviceFrame->texture.get() : anyTexture,
                    mipmapSampler);
        glBindVertexArray(context_.vertexArray());
        glDrawArrays(GL_TRIANGLES, 0, 3);
    };

    // A software rasteriser pays for every instruction of the program at
    // every pixel, branches not taken included. So the picture is drawn in
    // scissored pieces, each with the smallest program that gives the same
    // pixels there: background and shadow outside the screen (and device
    // frame), the screen without the small layers inside it, and the full
    // program where the cursor, click, webcam and caption lie.
    SceneShaderFeatures backdrop = wide;
    backdrop.screen = false;
    backdrop.motionBlur = false;
    backdrop.deviceFrame = false;

    const double outputWidth = target.width;
    const double outputHeight = target.height;
    const auto pixels = [&](const SceneUniforms::Row& row) {
        return RectValue{row[0] * outputWidth, row[1] * outputHeight, row[2] * outputWidth,
                         row[3] * outputHeight};
    };
    RectValue content = pixels(uniforms.screenRect);
    if (deviceFrame != nullptr) {
        const RectValue frame = pixels(uniforms.deviceFrameRect);
        const double left = std::min(content.x, frame.x);
        const double top = std::min(content.y, frame.y);
        content = {left, top, std::max(content.maxX(), frame.maxX()) - left,
                   std::max(content.maxY(), frame.maxY()) - top};
    }
    const int contentLeft = std::clamp(static_cast<int>(std::floor(content.x)) - 1, 0, target.width);
    const int contentRight = std::clamp(static_cast<int>(std::ceil(content.maxX())) + 1, 0, target.width);
    const int contentTop = std::clamp(static_cast<int>(std::floor(content.y)) - 1, 0, target.height);
    const int contentBottom = std::clamp(static_cast<int>(std::ceil(content.maxY())) + 1, 0, target.height);

    glEnable(GL_SCISSOR_TEST);
    // A rectangle of picture rows from the top, in the target's row order.
    const auto drawIn = [&](int left, int top, int right, int bottom, const SceneShaderFeatures& features) {
        if (right <= left || bottom <= top) {
            return;
        }
        glScissor(left, target.rowsTopFirst ? top : target.height - bottom, right - left, bottom - top);
        draw(features);
    };
    const std::vector<RectValue> rects =
        SceneUniformRules::localLayerRects(uniforms, inputs.screenTextureSize);
    double localArea = 0;
    for (const RectValue& rect : rects) {
        localArea += rect.width * rect.height;
    }
    const bool drawLocalLayersApart = localArea <= 0.5 * outputWidth * outputHeight;
    const SceneShaderFeatures& body = drawLocalLayersApart ? wide : local;
    SceneShaderFeatures surround = backdrop;
    if (!drawLocalLayersApart) {
        surround.cursor = local.cursor;
        surround.webcam = local.webcam;
        surround.caption = local.caption;
    }
    drawIn(0, 0, target.width, contentTop, surround);
    drawIn(0, contentBottom, target.width, target.height, surround);
    drawIn(0, contentTop, contentLeft, contentBottom, surround);
    drawIn(contentRight, contentTop, target.width, contentBottom, surround);
    // Well inside the screen's rounded edge (one pixel in from the straight
    // edges, one beyond the corner radius across), the screen covers every
    // pixel whole: there the program leaves out the background, the shadow
    // and the edge. The rest of the content rectangle goes around it.
    const RectValue screen = pixels(uniforms.screenRect);
    const double cornerRadius = std::min(uniforms.output[2] * std::min(outputWidth, outputHeight),
                                         0.5 * std::min(screen.width, screen.height));
    const int innerLeft =
        std::clamp(static_cast<int>(std::ceil(screen.x + cornerRadius)) + 1, contentLeft, contentRight);
    const int innerRight =
        std::clamp(static_cast<int>(std::floor(screen.maxX() - cornerRadius)) - 1, innerLeft, contentRight);
    const int innerTop = std::clamp(static_cast<int>(std::ceil(screen.y)) + 1, contentTop, contentBottom);
    const int innerBottom =
        std::clamp(static_cast<int>(std::floor(screen.maxY())) - 1, innerTop, contentBottom);
    if (local.screen && innerRight > innerLeft && innerBottom > innerTop) {
        SceneShaderFeatures interior = body;
        interior.screenInterior = true;
        drawIn(contentLeft, contentTop, contentRight, innerTop, body);
        drawIn(contentLeft, innerBottom, contentRight, contentBottom, body);
        drawIn(contentLeft, innerTop, innerLeft, innerBottom, body);
        drawIn(innerRight, innerTop, contentRight, innerBottom, body);
        drawIn(innerLeft, innerTop, innerRight, innerBottom, interior);
    } else {
        drawIn(contentLeft, contentTop, contentRight, contentBottom, body);
    }
    if (drawLocalLayersApart) {
        for (const RectValue& rect : rects) {
            drawIn(std::clamp(static_cast<int>(std::floor(rect.x)), 0, target.width),
                   std::clamp(static_cast<int>(std::floor(rect.y)), 0, target.height),
                   std::clamp(static_cast<int>(std::ceil(rect.maxX())), 0, target.width),
                   std::clamp(static_cast<int>(std::ceil(rect.maxY())), 0, target.height), local);
        }
    }
    glDisable(GL_SCISSOR_TEST);
    unbindUnits(sceneUnitCount);

    if (!annotations.empty()) {
        uniforms.captionRect = captionRect;
        drawAnnotations(annotations, uniforms, caption, target);
    }
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
}

void SceneRenderer::drawAnnotations(const std::vector<AnnotationUniform>& annotations,
                                    const SceneUniforms& uniforms, GLuint caption,
                                    const FramebufferTarget& target) {
    std::array<float, 16> pass{};
    const std::array<SceneUniforms::Row, 4> passRows{
        SceneUniforms::Row{uniforms.output[0], uniforms.output[1], static_cast<double>(annotations.size()),
                           uniforms.output[2]},
        uniforms.screenRect, uniforms.captionRect, SceneUniforms::Row{}};
    for (std::size_t i = 0; i < pass.size(); ++i) {
        pass[i] = static_cast<float>(passRows[i / 4][i % 4]);
    }
    std::vector<float> elements;
    elements.reserve(annotations.size() * 12);
    for (const AnnotationUniform& annotation : annotations) {
        for (const auto* row : {&annotation.geometry, &annotation.color, &annotation.options}) {
            for (const double value : *row) {
                elements.push_back(static_cast<float>(value));
            }
        }
    }

    prepareDraw(target.framebuffer, target.width, target.height);
    const GLuint program = context_.annotationProgram();
    glUseProgram(program);
    glUniform4fv(glGetUniformLocation(program, "uPass"), 4, pass.data());
    glUniform4fv(glGetUniformLocation(program, "uAnnotations"), static_cast<GLsizei>(annotations.size() * 3),
                 elements.data());
    glUniform1i(glGetUniformLocation(program, "uRowsTopFirst"), target.rowsTopFirst ? 1 : 0);
    bindTexture(0, intermediateTexture_.get(), context_.sampler());
    bindTexture(1, caption != 0 ? caption : intermediateTexture_.get(), context_.sampler());
    glBindVertexArray(context_.vertexArray());
    glDrawArrays(GL_TRIANGLES, 0, 3);
    unbindUnits(2);
}

} // namespace rilo
