#include "rendering/caption/CaptionPainter.h"

#include <algorithm>
#include <cmath>
#include <ft2build.h>
#include <memory>
#include <new>
#include FT_FREETYPE_H
#include FT_GLYPH_H
#include FT_STROKER_H

namespace rilo {

namespace {

// Larger than any texture the renderer can take.
constexpr int largestBitmapEdge = 16384;
constexpr double fixedPointUnit = 64.0;
// The outline is stroked on the glyph's edge, half outside and half under
// the fill that follows: 8% of the font size in all.
constexpr double outlineWidthPerFontSize = 0.08;
constexpr double plateCornerRadiusPerFontSize = 0.3;

struct Colour {
    float red = 0;
    float green = 0;
    float blue = 0;
    float alpha = 1;
};

constexpr Colour white{1, 1, 1, 1};
constexpr Colour black{0, 0, 0, 1};
constexpr Colour highlightColour{1.0f, 0.78f, 0.2f, 1};
constexpr Colour plateColour{0.02f, 0.02f, 0.02f, 0.78f};

struct GlyphDeleter {
    void operator()(FT_Glyph glyph) const { FT_Done_Glyph(glyph); }
};
struct StrokerDeleter {
    void operator()(FT_Stroker stroker) const { FT_Stroker_Done(stroker); }
};
using GlyphHandle = std::unique_ptr<FT_GlyphRec, GlyphDeleter>;
using StrokerHandle = std::unique_ptr<FT_StrokerRec_, StrokerDeleter>;

// Premultiplied floating point pixels, composited source over.
class Canvas {
public:
    Canvas(int width, int height)
        : width_(width)
        , height_(height)
        , pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4, 0.0f) {}

    void blend(int x, int y, float coverage, Colour colour) {
        if (x < 0 || y < 0 || x >= width_ || y >= height_ || coverage <= 0) {
            return;
        }
        const float alpha = colour.alpha * std::min(coverage, 1.0f);
        float* pixel = &pixels_[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                                 static_cast<std::size_t>(x)) *
                                4];
        const float keep = 1 - alpha;
        pixel[0] = colour.red * alpha + pixel[0] * keep;
        pixel[1] = colour.green * alpha + pixel[1] * keep;
        pixel[2] = colour.blue * alpha + pixel[2] * keep;
        pixel[3] = alpha + pixel[3] * keep;
    }

    // The whole canvas as a rounded rectangle, its edge anti-aliased by the
    // distance of each pixel centre from it.
    void fillRoundedRectangle(double radius, Colour colour) {
        radius = std::clamp(radius, 0.0, std::min(width_, height_) / 2.0);
        const double halfWidth = width_ / 2.0;
        const double halfHeight = height_ / 2.0;
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                const double qx = std::abs(x + 0.5 - halfWidth) - (halfWidth - radius);
                const double qy = std::abs(y + 0.5 - halfHeight) - (halfHeight - radius);
                const double outside = std::hypot(std::max(qx, 0.0), std::max(qy, 0.0));
                const double distance = outside + std::min(std::max(qx, qy), 0.0) - radius;
                blend(x, y, static_cast<float>(std::clamp(0.5 - distance, 0.0, 1.0)), colour);
            }
        }
    }

    void blendCoverage(const FT_Bitmap& bitmap, int left, int top, Colour colour) {
        if (bitmap.pixel_mode != FT_PIXEL_MODE_GRAY) {
            return;
        }
        const int rows = static_cast<int>(bitmap.rows);
        const int pitch = bitmap.pitch;
        for (int row = 0; row < rows; ++row) {
            const int memoryRow = pitch >= 0 ? row : rows - 1 - row;
            const unsigned char* source =
                bitmap.buffer + static_cast<std::ptrdiff_t>(memoryRow) * std::abs(pitch);
            const float scale = 1.0f / static_cast<float>(std::max(bitmap.num_grays - 1, 1));
            for (unsigned column = 0; column < bitmap.width; ++column) {
                blend(left + static_cast<int>(column), top + row, static_cast<float>(source[column]) * scale,
                      colour);
            }
        }
    }

    CaptionBitmap bitmap() const {
        CaptionBitmap result;
        result.width = width_;
        result.height = height_;
        result.rgbaPremultiplied.resize(pixels_.size());
        std::transform(pixels_.begin(), pixels_.end(), result.rgbaPremultiplied.begin(), [](float value) {
            return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f));
        });
        return result;
    }

private:
    int width_;
    int height_;
    std::vector<float> pixels_;
};

// Renders one glyph, stroked when a stroker is given, with its origin at
// (x, y) in canvas pixels, y downwards.
void drawGlyph(Canvas& canvas, FT_Face face, unsigned glyphId, double x, double y, FT_Stroker stroker,
               Colour colour) {
    if (FT_Load_Glyph(face, glyphId, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0 ||
        face->glyph->format != FT_GLYPH_FORMAT_OUTLINE) {
        return;
    }
    FT_Glyph raw = nullptr;
    if (FT_Get_Glyph(face->glyph, &raw) != 0) {
        return;
    }
    GlyphHandle glyph(raw);
    if (stroker != nullptr) {
        raw = glyph.release();
        const FT_Error error = FT_Glyph_Stroke(&raw, stroker, true);
        glyph.reset(raw);
        if (error != 0) {
            return;
        }
    }
    const double originX = std::floor(x);
    const double originY = std::floor(y);
    FT_Vector fraction{static_cast<FT_Pos>(std::lround((x - originX) * fixedPointUnit)),
                       -static_cast<FT_Pos>(std::lround((y - originY) * fixedPointUnit))};
    FT_Glyph_Transform(glyph.get(), nullptr, &fraction);
    raw = glyph.release();
    const FT_Error error = FT_Glyph_To_Bitmap(&raw, FT_RENDER_MODE_NORMAL, nullptr, true);
    glyph.reset(raw);
    if (error != 0) {
        return;
    }
    const auto* rendered = reinterpret_cast<const FT_BitmapGlyphRec*>(glyph.get());
    canvas.blendCoverage(rendered->bitmap, static_cast<int>(originX) + rendered->left,
                         static_cast<int>(originY) - rendered->top, colour);
}

bool isHighlighted(std::size_t cluster, const std::vector<CaptionHighlight::ByteRange>& highlighted) {
    return std::any_of(highlighted.begin(), highlighted.end(),
                       [cluster](const CaptionHighlight::ByteRange& range) {
                           return cluster >= range.offset && cluster < range.offset + range.length;
                       });
}

template <class ColourOf>
void drawLayer(Canvas& canvas, const CaptionFaces& faces, const CaptionSetting& setting,
               const RectValue& textRect, FT_Stroker stroker, ColourOf colourOf) {
    for (std::size_t lineIndex = 0; lineIndex < setting.lines.size(); ++lineIndex) {
        const CaptionLine& line = setting.lines[lineIndex];
        const double baseline =
            textRect.y + setting.ascender + setting.lineHeight * static_cast<double>(lineIndex);
        const double left = textRect.x + (textRect.width - line.width) / 2;
        for (const CaptionGlyph& glyph : line.glyphs) {
            drawGlyph(canvas, faces.faces()[glyph.faceIndex].drawingFace.get(), glyph.glyphId,
                      left + glyph.penX, baseline - glyph.offsetY, stroker, colourOf(glyph));
        }
    }
}

} // namespace

CaptionBitmap paintCaption(const CaptionFaces& faces, const CaptionSetting& setting,
                           const CaptionTextLayout& layout, CaptionAppearance appearance,
                           const std::vector<CaptionHighlight::ByteRange>& highlighted) {
    const double width = std::ceil(layout.bitmapSize.width);
    const double height = std::ceil(layout.bitmapSize.height);
    if (!(width >= 1 && height >= 1 && width <= largestBitmapEdge && height <= largestBitmapEdge)) {
        throw CaptionRasterizerError::rasterizationFailed();
    }
    std::unique_ptr<Canvas> canvas;
    try {
        canvas = std::make_unique<Canvas>(static_cast<int>(width), static_cast<int>(height));
    } catch (const std::bad_alloc&) {
        throw CaptionRasterizerError::rasterizationFailed();
    }
    if (appearance == CaptionAppearance::whiteOnBlack) {
        canvas->fillRoundedRectangle(layout.fontSize * plateCornerRadiusPerFontSize, plateColour);
    }
    if (setting.lines.empty()) {
        return canvas->bitmap();
    }

    const auto drawingLock = faces.lockForDrawing();
    const auto charSize = static_cast<FT_F26Dot6>(std::lround(layout.fontSize * fixedPointUnit));
    for (const CaptionFace& face : faces.faces()) {
        if (FT_Set_Char_Size(face.drawingFace.get(), 0, charSize, 72, 72) != 0) {
            throw CaptionRasterizerError::rasterizationFailed();
        }
    }
    const bool isOutlined = appearance != CaptionAppearance::whiteOnBlack;
    if (isOutlined) {
        FT_Stroker raw = nullptr;
        if (FT_Stroker_New(faces.drawingLibrary(), &raw) != 0) {
            throw CaptionRasterizerError::rasterizationFailed();
        }
        const StrokerHandle stroker(raw);
        const auto radius = static_cast<FT_Fixed>(
            std::lround(layout.fontSize * outlineWidthPerFontSize / 2 * fixedPointUnit));
        FT_Stroker_Set(stroker.get(), radius, FT_STROKER_LINECAP_ROUND, FT_STROKER_LINEJOIN_ROUND, 0);
        const Colour outline = appearance == CaptionAppearance::whiteWithBlackOutline ? black : white;
        drawLayer(*canvas, faces, setting, layout.textRect, stroker.get(), [&](const CaptionGlyph& glyph) {
            return isHighlighted(glyph.cluster, highlighted) ? black : outline;
        });
    }
    const Colour fill = appearance == CaptionAppearance::blackWithWhiteOutline ? black : white;
    drawLayer(*canvas, faces, setting, layout.textRect, nullptr, [&](const CaptionGlyph& glyph) {
        return isHighlighted(glyph.cluster, highlighted) ? highlightColour : fill;
    });
    return canvas->bitmap();
}

} // namespace rilo
