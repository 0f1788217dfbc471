#pragma once

// The cursor image that the system shows now, for any application, with its
// hot spot. One implementation per windowing system.

#include "shared/Geometry.h"

#include <optional>
#include <string>

namespace rilo {

struct CapturedCursorShape {
    std::string pngData;
    SizeValue logicalSize; // points
    PointValue hotSpot;    // points from the top left

    friend bool operator==(const CapturedCursorShape&, const CapturedCursorShape&) = default;
};

class CursorShapeProvider {
public:
    virtual ~CursorShapeProvider() = default;
    // Nothing when the image can't be had. Called from the sampling thread.
    virtual std::optional<CapturedCursorShape> captureCurrentSystemCursor() = 0;
};

} // namespace rilo
