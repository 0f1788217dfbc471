#pragma once

// Draws a SceneState and the decoded frames of that instant. Preview, still
// frames and export all draw through encode(), so they show the same picture.
//
// One full-screen triangle composes everything (background, screen through
// the camera, cursor and click, device frame, webcam, caption); a second pass
// runs only when annotations are present, over an intermediate picture, so
// that mosaics can read what lies beneath them and the caption stays on top.
//
// Threads: every call needs the RenderContext current on the calling thread,
// and encode() reuses textures from frame to frame, so one renderer draws on
// one thread at a time. Cursor registration may race with drawing: the
// cursor table is guarded by its own lock, held only for lookups and merges.

#include "project/document/DeviceFrameCatalog.h"
#include "project/store/ProjectSnapshot.h"
#include "rendering/RenderContext.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRendererError.h"
#include "rendering/SceneUniforms.h"
#include "rendering/VideoPlaneTextures.h"
#include "rendering/caption/CaptionRasterizer.h"
#include "scene/SceneState.h"
#include "shared/VideoFramePlanes.h"

#include <filesystem>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

class SceneRenderer {
public:
    // Without a catalog, device frames are off. Device pictures are read from
    // `resourceDirectory` when first needed.
    SceneRenderer(RenderContext& context, std::optional<DeviceFrameCatalog> catalog,
                  std::filesystem::path resourceDirectory, CaptionRasterizer& captions);
    SceneRenderer(const SceneRenderer&) = delete;
    SceneRenderer& operator=(const SceneRenderer&) = delete;

    // Each payload becomes a texture keyed by its id; a later registration
    // replaces an entry of the same id. Throws ImageDecodingError or
    // RenderContextError, registering none of the batch.
    void registerCursorAssets(const std::vector<CursorAssetPayload>& payloads);
    // Background pictures, PNG or JPEG, keyed by image id; the last eight used
    // are kept.
    void registerCanvasBackgroundAssets(const std::vector<CanvasBackgroundAssetPayload>& payloads);
    // All the snapshot's cursors, and the payload of the canvas image if the
    // timeline has one (the last of that id).
    void registerProjectAssets(const ProjectSnapshot& snapshot);

    // Draws one frame into the target. Throws SceneRendererError
    // (tooManyAnnotations before anything is drawn; encoderUnavailable when
    // the intermediate picture can't be made), RenderContextError for frames
    // that can't be uploaded, and what reading a device picture throws.
    void encode(const VideoFramePlanes& source, const VideoFramePlanes* webcam, const SceneState& scene,
                RenderTarget& target);
    void encode(const VideoFramePlanes& source, const VideoFramePlanes* webcam, const SceneState& scene,
                const FramebufferTarget& target);

private:
    struct PictureTexture {
        gl::Texture texture;
        SizeValue size;
    };
    struct DeviceFrameTexture {
        gl::Texture texture;
        DeviceFrameDescriptor descriptor;
    };
    struct CaptionTexture {
        std::shared_ptr<const CaptionBitmap> bitmap;
        gl::Texture texture;
    };

    const DeviceFrameTexture* deviceFrameAsset(const std::optional<DeviceFrameEdit>& edit);
    const PictureTexture* backgroundAsset(const std::string& imageID);
    GLuint captionTexture(const std::shared_ptr<const CaptionBitmap>& bitmap);
    void ensureIntermediate(int width, int height);
    void drawAnnotations(const std::vector<AnnotationUniform>& annotations, const SceneUniforms& uniforms,
                         GLuint captionTexture, const FramebufferTarget& target);

    RenderContext& context_;
    std::optional<DeviceFrameCatalog> catalog_;
    std::filesystem::path resourceDirectory_;
    CaptionRasterizer& captions_;

    std::mutex assetsLock_;
    std::map<std::string, CursorTexture> cursorAssets_;

    // Most recently used first.
    std::list<std::pair<std::string, PictureTexture>> backgroundAssets_;
    std::list<std::pair<std::string, DeviceFrameTexture>> deviceFrameAssets_;
    std::map<const CaptionBitmap*, CaptionTexture> captionTextures_;

    VideoPlaneTextures screenTextures_;
    VideoPlaneTextures webcamTextures_;
    // Whether the current context draws on the CPU, learnt at the first draw.
    std::optional<bool> softwareRenderer_;
    gl::Texture intermediateTexture_;
    gl::Framebuffer intermediateFramebuffer_;
    int intermediateWidth_ = 0;
    int intermediateHeight_ = 0;
};

} // namespace rilo
