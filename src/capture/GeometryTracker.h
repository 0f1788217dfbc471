#pragma once

// GeometryTracker turns what is known of each frame (where the source lies on
// the desktop, where the picture lies in the frame, the pixel scale) into
// revisioned GeometrySample records. A new revision appears only when
// something changed, so a long recording of a still window has one record.
//
// Written from the capture path, read from the mouse thread; one lock.

#include "project/document/CaptureSamples.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <mutex>
#include <optional>

namespace rilo {

struct GeometryFrameMetadata {
    RectValue screenRect;  // global points
    RectValue contentRect; // points, inside the frame
    double scaleFactor = 1;
};

class GeometryTracker {
public:
    // Without a fallback content size the encoded pixel size stands in.
    GeometryTracker(PixelSize encodedPixelSize, RectValue fallbackGlobalFrame,
                    std::optional<SizeValue> fallbackSourceContentSize);

    std::optional<GeometrySample> current() const;
    // The new sample, or nothing when nothing changed.
    std::optional<GeometrySample> update(ProjectTime time, const GeometryFrameMetadata& metadata);

    // Where a source of that size lies inside the encoded frame when scaled
    // to fit with its aspect ratio kept, centred; the whole frame for an
    // empty source.
    static RectValue aspectFit(SizeValue sourceSize, PixelSize encoded) noexcept;

private:
    const PixelSize encodedPixelSize_;
    const RectValue fallbackGlobalFrame_;
    const SizeValue fallbackSourceContentSize_;
    mutable std::mutex lock_;
    std::optional<GeometrySample> currentValue_;
    std::uint32_t nextRevision_ = 0;
};

} // namespace rilo
