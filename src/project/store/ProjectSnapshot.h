#pragma once

// Everything loaded from a package to edit, render or describe it. Held in
// memory only, for one use.

#include "project/caption/CaptionDocument.h"
#include "project/document/CaptureSamples.h"
#include "project/document/EditTimeline.h"
#include "project/document/ProjectManifest.h"
#include "project/store/CursorAssetPayload.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

struct CanvasBackgroundAssetPayload {
    CanvasBackgroundImage descriptor;
    std::string imageData;

    friend bool operator==(const CanvasBackgroundAssetPayload&,
                           const CanvasBackgroundAssetPayload&) = default;
};

struct ProjectSnapshot {
    std::filesystem::path packageURL;
    ProjectManifest manifest;
    std::vector<MouseEvent> mouseEvents;
    std::vector<GeometrySample> geometry;
    // Normalised, and validated when the duration is known.
    EditTimeline timeline;
    std::optional<CaptionDocument> captions;
    std::vector<CursorShapeSample> cursorShapeSamples;
    std::vector<CursorAssetPayload> cursorAssets;
    std::vector<CanvasBackgroundAssetPayload> canvasBackgroundAssets;

    std::filesystem::path mediaURL() const { return packageURL / manifest.media.relativePath; }
};

} // namespace rilo
