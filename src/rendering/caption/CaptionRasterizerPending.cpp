#include "rendering/caption/CaptionRasterizer.h"

// Linked only while the caption library is not part of the build: sets no
// text, so frames are drawn without captions.

namespace rilo {

struct CaptionRasterizer::Fonts {};

CaptionRasterizer::CaptionRasterizer() = default;
CaptionRasterizer::~CaptionRasterizer() = default;

CaptionRenderAsset CaptionRasterizer::asset(const std::string&, const std::vector<CaptionHighlight>&,
                                            CaptionAppearance, std::int64_t, double, double, PixelSize) {
    return {};
}

CaptionTextLayout CaptionRasterizer::layout(const std::string&, std::int64_t, double, PixelSize) {
    return {};
}

std::size_t CaptionRasterizer::cachedCount() const {
    return 0;
}

} // namespace rilo
