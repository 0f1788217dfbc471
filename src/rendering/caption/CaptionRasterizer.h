#pragma once

// Sets one caption on the CPU (FreeType, HarfBuzz, fontconfig, ICU line
// breaking) and answers its bitmap and where it lies in the output. A cue on
// screen for seconds is set once: results are cached by everything that
// decides the pixels (not the vertical position, which is worked out on every
// call). Safe to call from any thread; the lock is held for cache lookups and
// inserts only, never while text is set.

#include "project/caption/CaptionDocument.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace rilo {

// Premultiplied RGBA, rows top to bottom.
struct CaptionBitmap {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgbaPremultiplied;
};

struct CaptionTextLayout {
    std::string renderedText; // with "…" at the end when truncated
    double fontSize = 0;
    SizeValue bitmapSize;
    RectValue textRect;
    std::int64_t lineCount = 0;
    bool isTruncated = false;
};

struct CaptionRenderAsset {
    // Shared with the cache; the same pointer for every frame of one cue, so
    // that a GPU texture made from it can be kept by pointer.
    std::shared_ptr<const CaptionBitmap> bitmap;
    RectValue rect; // normalised to the output size
};

// The bitmap could not be made (no face to set the text in, a size beyond
// what a bitmap can hold, memory). Nothing enters the cache.
class CaptionRasterizerError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
    static CaptionRasterizerError rasterizationFailed() {
        return CaptionRasterizerError("无法生成字幕图像。");
    }
};

class CaptionRasterizer {
public:
    static constexpr std::size_t cacheLimit = 128;

    CaptionRasterizer();
    ~CaptionRasterizer();
    CaptionRasterizer(const CaptionRasterizer&) = delete;
    CaptionRasterizer& operator=(const CaptionRasterizer&) = delete;

    // The caption's bitmap, from the cache when the same content was set for
    // the same output before, and its rectangle: centred horizontally, with
    // bottomPosition 0 at the bottom edge and 1 at the top edge. maximumLines
    // is clamped to [1, 2] and fontScale to [0.6, 1.2]. Highlights colour the
    // occurrence-th literal match of their text in what is rendered.
    CaptionRenderAsset asset(const std::string& text, const std::vector<CaptionHighlight>& highlights,
                             CaptionAppearance appearance, std::int64_t maximumLines, double fontScale,
                             double bottomPosition, PixelSize outputSize);

    // How `text` is set for an output, without drawing: at the scaled size
    // when it fits in maximumLines, else at the largest size down to 0.6 of
    // the base size that fits, else cut with "…" at that minimum size.
    CaptionTextLayout layout(const std::string& text, std::int64_t maximumLines, double fontScale,
                             PixelSize outputSize);

    std::size_t cachedCount() const;

private:
    struct Fonts;
    std::unique_ptr<Fonts> fonts_;
    mutable std::mutex lock_;
    std::map<std::string, std::shared_ptr<const CaptionBitmap>> cache_;
};

} // namespace rilo
