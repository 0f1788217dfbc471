#include "rendering/caption/CaptionRasterizer.h"

#include "rendering/caption/CaptionFaces.h"
#include "rendering/caption/CaptionPainter.h"
#include "rendering/caption/CaptionTypesetter.h"
#include "shared/JsonNames.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace rilo {

struct CaptionRasterizer::Fonts {
    CaptionFaces faces;
};

namespace {

constexpr double baseSizePerShorterSide = 0.046;
constexpr double smallestBaseSize = 12;
constexpr double smallestScale = 0.6;
constexpr double largestScale = 1.2;
constexpr double minimumSizePerBaseSize = 0.6;
constexpr double widthLimitPerOutputWidth = 0.84;
constexpr double smallestWidthLimit = 2;
constexpr int shrinkRounds = 6;
constexpr std::string_view ellipsis = "…";

std::int64_t clampedLines(std::int64_t maximumLines) {
    return std::clamp<std::int64_t>(maximumLines, 1, 2);
}

double clampedScale(double fontScale) {
    return std::isnan(fontScale) ? 1.0 : std::clamp(fontScale, smallestScale, largestScale);
}

struct Measurement {
    CaptionSetting setting;
    std::int64_t lineCount = 0;

    bool fitsIn(std::int64_t maximumLines) const { return lineCount <= maximumLines; }
};

Measurement measurement(const CaptionFaces& faces, std::string_view text, double fontSize, double maxWidth) {
    const double widthLimit = std::max(maxWidth - fontSize, smallestWidthLimit);
    Measurement result;
    result.setting = setCaptionText(faces, text, fontSize, widthLimit);
    result.lineCount = static_cast<std::int64_t>(result.setting.lines.size());
    return result;
}

struct SetCaption {
    CaptionTextLayout layout;
    CaptionSetting setting;
};

// Lines and scale already clamped.
SetCaption setCaption(const CaptionFaces& faces, const std::string& text, std::int64_t lines, double scale,
                      PixelSize outputSize) {
    const double outputWidth = static_cast<double>(outputSize.width);
    const double outputHeight = static_cast<double>(outputSize.height);
    const double baseSize =
        std::max(baseSizePerShorterSide * std::min(outputWidth, outputHeight), smallestBaseSize);
    const double minimumSize = baseSize * minimumSizePerBaseSize;
    const double maxWidth = std::max(widthLimitPerOutputWidth * outputWidth, smallestWidthLimit);

    SetCaption result;
    CaptionTextLayout& layout = result.layout;
    layout.renderedText = text;
    layout.fontSize = baseSize * scale;
    Measurement chosen = measurement(faces, text, layout.fontSize, maxWidth);
    if (!chosen.fitsIn(lines)) {
        Measurement atMinimum = measurement(faces, text, minimumSize, maxWidth);
        if (atMinimum.fitsIn(lines)) {
            double low = minimumSize;
            double high = layout.fontSize;
            chosen = std::move(atMinimum);
            for (int round = 0; round < shrinkRounds; ++round) {
                const double middle = (low + high) / 2;
                Measurement candidate = measurement(faces, text, middle, maxWidth);
                if (candidate.fitsIn(lines)) {
                    low = middle;
                    chosen = std::move(candidate);
                } else {
                    high = middle;
                }
            }
            layout.fontSize = low;
        } else {
            const std::vector<std::size_t> ends = captionCharacterEnds(text);
            const auto prefixWithEllipsis = [&](std::size_t count) {
                return text.substr(0, count == 0 ? 0 : ends[count - 1]) + std::string(ellipsis);
            };
            std::size_t low = 0;
            std::size_t high = ends.size();
            while (low < high) {
                const std::size_t middle = (low + high + 1) / 2;
                if (measurement(faces, prefixWithEllipsis(middle), minimumSize, maxWidth).fitsIn(lines)) {
                    low = middle;
                } else {
                    high = middle - 1;
                }
            }
            layout.renderedText = prefixWithEllipsis(low);
            layout.isTruncated = true;
            layout.fontSize = minimumSize;
            chosen = measurement(faces, layout.renderedText, minimumSize, maxWidth);
        }
    }

    const double fontSize = layout.fontSize;
    layout.lineCount = chosen.lineCount;
    layout.bitmapSize.width =
        chosen.lineCount > 1 ? maxWidth : std::min(std::ceil(fontSize + chosen.setting.width), maxWidth);
    layout.bitmapSize.height = std::max(std::ceil(fontSize * 0.7 + chosen.setting.height), 2.0);
    layout.textRect = {fontSize * 0.5, fontSize * 0.25, layout.bitmapSize.width - fontSize,
                       layout.bitmapSize.height - fontSize * 0.5};
    result.setting = std::move(chosen.setting);
    return result;
}

std::string formattedScale(double scale) {
    char digits[32];
    const auto written = std::to_chars(std::begin(digits), std::end(digits), scale);
    return std::string(digits, written.ptr);
}

// Everything that decides the pixels, and nothing else.
std::string cacheKey(const std::string& text, const std::vector<CaptionHighlight>& highlights,
                     CaptionAppearance appearance, std::int64_t lines, double scale, PixelSize outputSize) {
    std::string highlightPart;
    for (const CaptionHighlight& highlight : highlights) {
        if (!highlightPart.empty()) {
            highlightPart += '|';
        }
        highlightPart += std::to_string(highlight.text.size()) + ':' + highlight.text + ':' +
                         std::to_string(highlight.occurrence);
    }
    return std::to_string(outputSize.width) + 'x' + std::to_string(outputSize.height) + ':' +
           std::string(json::rawValue(appearance)) + ':' + std::to_string(lines) + ':' +
           formattedScale(scale) + ':' + text + ':' + highlightPart;
}

RectValue positionedRect(const CaptionBitmap& bitmap, double bottomPosition, PixelSize outputSize) {
    const double outputWidth = static_cast<double>(outputSize.width);
    const double outputHeight = static_cast<double>(outputSize.height);
    const double position = std::isnan(bottomPosition) ? 0.0 : std::clamp(bottomPosition, 0.0, 1.0);
    const double room = std::max(outputHeight - bitmap.height, 0.0);
    return {(outputWidth - bitmap.width) / 2 / outputWidth, room * (1 - position) / outputHeight,
            bitmap.width / outputWidth, bitmap.height / outputHeight};
}

} // namespace

CaptionRasterizer::CaptionRasterizer()
    : fonts_(std::make_unique<Fonts>()) {}

CaptionRasterizer::~CaptionRasterizer() = default;

CaptionRenderAsset CaptionRasterizer::asset(const std::string& text,
                                            const std::vector<CaptionHighlight>& highlights,
                                            CaptionAppearance appearance, std::int64_t maximumLines,
                                            double fontScale, double bottomPosition, PixelSize outputSize) {
    const std::int64_t lines = clampedLines(maximumLines);
    const double scale = clampedScale(fontScale);
    const std::string key = cacheKey(text, highlights, appearance, lines, scale, outputSize);
    std::shared_ptr<const CaptionBitmap> bitmap;
    {
        const std::lock_guard guard(lock_);
        if (const auto found = cache_.find(key); found != cache_.end()) {
            bitmap = found->second;
        }
    }
    if (!bitmap) {
        const SetCaption set = setCaption(fonts_->faces, text, lines, scale, outputSize);
        std::vector<CaptionHighlight::ByteRange> highlighted;
        for (const CaptionHighlight& highlight : highlights) {
            if (const auto range = highlight.matchedRange(set.layout.renderedText)) {
                highlighted.push_back(*range);
            }
        }
        bitmap = std::make_shared<const CaptionBitmap>(
            paintCaption(fonts_->faces, set.setting, set.layout, appearance, highlighted));
        const std::lock_guard guard(lock_);
        if (cache_.size() >= cacheLimit) {
            cache_.clear();
        }
        cache_.insert_or_assign(key, bitmap);
    }
    return {bitmap, positionedRect(*bitmap, bottomPosition, outputSize)};
}

CaptionTextLayout CaptionRasterizer::layout(const std::string& text, std::int64_t maximumLines,
                                            double fontScale, PixelSize outputSize) {
    return setCaption(fonts_->faces, text, clampedLines(maximumLines), clampedScale(fontScale), outputSize)
        .layout;
}

std::size_t CaptionRasterizer::cachedCount() const {
    const std::lock_guard guard(lock_);
    return cache_.size();
}

} // namespace rilo
