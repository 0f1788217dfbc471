#include "rendering/caption/CaptionTypesetter.h"

#include "rendering/caption/CaptionRasterizer.h"

#include <algorithm>
#include <cmath>
#include <hb.h>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace rilo {

namespace {

struct TextCloser {
    void operator()(UText* text) const { utext_close(text); }
};
struct FontDestroyer {
    void operator()(hb_font_t* font) const { hb_font_destroy(font); }
};
struct BufferDestroyer {
    void operator()(hb_buffer_t* buffer) const { hb_buffer_destroy(buffer); }
};
using TextHandle = std::unique_ptr<UText, TextCloser>;
using FontHandle = std::unique_ptr<hb_font_t, FontDestroyer>;
using BufferHandle = std::unique_ptr<hb_buffer_t, BufferDestroyer>;

// HarfBuzz works in 26.6 fixed point, as FreeType does.
constexpr double fixedPointUnit = 64.0;

TextHandle openText(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    TextHandle handle(utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
    if (U_FAILURE(status) || !handle) {
        throw CaptionRasterizerError::rasterizationFailed();
    }
    return handle;
}

std::unique_ptr<icu::BreakIterator> makeIterator(bool lines, UText* text) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> iterator(
        lines ? icu::BreakIterator::createLineInstance(icu::Locale::getRoot(), status)
              : icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !iterator) {
        throw CaptionRasterizerError::rasterizationFailed();
    }
    iterator->setText(text, status);
    if (U_FAILURE(status)) {
        throw CaptionRasterizerError::rasterizationFailed();
    }
    return iterator;
}

std::vector<std::size_t> characterEnds(UText* text) {
    std::vector<std::size_t> ends;
    const auto iterator = makeIterator(false, text);
    for (std::int32_t end = iterator->next(); end != icu::BreakIterator::DONE; end = iterator->next()) {
        ends.push_back(static_cast<std::size_t>(end));
    }
    return ends;
}

UChar32 codePointAt(std::string_view text, std::size_t offset) {
    UChar32 codePoint = 0;
    std::int32_t index = static_cast<std::int32_t>(offset);
    U8_NEXT(reinterpret_cast<const std::uint8_t*>(text.data()), index, static_cast<std::int32_t>(text.size()),
            codePoint);
    return codePoint;
}

bool isBlank(UChar32 codePoint) {
    return codePoint < 0 || u_isUWhiteSpace(codePoint) || u_iscntrl(codePoint);
}

struct ShapedGlyph {
    std::size_t faceIndex = 0;
    unsigned glyphId = 0;
    std::size_t cluster = 0;
    double advance = 0;
    double offsetX = 0;
    double offsetY = 0;
};

struct Shaped {
    std::vector<ShapedGlyph> glyphs;
    std::vector<bool> facesUsed;
};

// Each user-perceived character goes to the first face that has its first
// code point; blanks stay with the face before them so that runs hold
// together. Runs of one face are shaped with the whole text as context.
Shaped shape(const std::vector<FontHandle>& fonts, std::string_view text,
             const std::vector<std::size_t>& characterEnds) {
    Shaped shaped;
    shaped.facesUsed.assign(fonts.size(), false);
    std::vector<std::pair<std::size_t, std::size_t>> runs; // start, face
    std::size_t start = 0;
    for (const std::size_t end : characterEnds) {
        const UChar32 codePoint = codePointAt(text, start);
        std::size_t face = runs.empty() ? 0 : runs.back().second;
        if (!isBlank(codePoint)) {
            face = 0;
            hb_codepoint_t glyph = 0;
            while (face < fonts.size() &&
                   !hb_font_get_nominal_glyph(fonts[face].get(), static_cast<hb_codepoint_t>(codePoint),
                                              &glyph)) {
                ++face;
            }
            if (face == fonts.size()) {
                face = 0;
            }
        }
        if (runs.empty() || runs.back().second != face) {
            runs.emplace_back(start, face);
        }
        start = end;
    }
    const BufferHandle buffer(hb_buffer_create());
    for (std::size_t run = 0; run < runs.size(); ++run) {
        const std::size_t runStart = runs[run].first;
        const std::size_t runEnd = run + 1 < runs.size() ? runs[run + 1].first : text.size();
        const std::size_t face = runs[run].second;
        hb_buffer_clear_contents(buffer.get());
        hb_buffer_add_utf8(buffer.get(), text.data(), static_cast<int>(text.size()),
                           static_cast<unsigned>(runStart), static_cast<int>(runEnd - runStart));
        hb_buffer_guess_segment_properties(buffer.get());
        hb_shape(fonts[face].get(), buffer.get(), nullptr, 0);
        unsigned count = 0;
        const hb_glyph_info_t* infos = hb_buffer_get_glyph_infos(buffer.get(), &count);
        const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer.get(), &count);
        for (unsigned i = 0; i < count; ++i) {
            shaped.glyphs.push_back(
                {face, infos[i].codepoint, infos[i].cluster, positions[i].x_advance / fixedPointUnit,
                 positions[i].x_offset / fixedPointUnit, positions[i].y_offset / fixedPointUnit});
        }
        shaped.facesUsed[face] = true;
    }
    return shaped;
}

struct Span {
    std::size_t start = 0;
    std::size_t end = 0;
};

class LineBreaker {
public:
    LineBreaker(std::string_view text, const Shaped& shaped, const std::vector<std::size_t>& characterEnds,
                double widthLimit)
        : text_(text)
        , characterEnds_(characterEnds)
        , widthLimit_(widthLimit)
        , widthBefore_(text.size() + 1, 0.0) {
        for (const ShapedGlyph& glyph : shaped.glyphs) {
            widthBefore_[glyph.cluster + 1] += glyph.advance;
        }
        for (std::size_t i = 1; i < widthBefore_.size(); ++i) {
            widthBefore_[i] += widthBefore_[i - 1];
        }
    }

    // Greedy filling: each line takes as many break opportunities as fit.
    std::vector<Span> spans(icu::BreakIterator& lineBreaks) const {
        struct Opportunity {
            std::size_t offset;
            bool isHard;
        };
        std::vector<Opportunity> opportunities;
        for (std::int32_t offset = lineBreaks.next(); offset != icu::BreakIterator::DONE;
             offset = lineBreaks.next()) {
            const std::int32_t rule = lineBreaks.getRuleStatus();
            opportunities.push_back(
                {static_cast<std::size_t>(offset), rule >= UBRK_LINE_HARD && rule < UBRK_LINE_HARD_LIMIT});
        }
        std::vector<Span> spans;
        std::size_t start = 0;
        std::size_t lastFit = 0;
        std::size_t next = 0;
        while (next < opportunities.size()) {
            const Opportunity opportunity = opportunities[next];
            if (fits(start, opportunity.offset)) {
                lastFit = opportunity.offset;
                ++next;
                if (opportunity.isHard && opportunity.offset < text_.size()) {
                    spans.push_back({start, opportunity.offset});
                    start = opportunity.offset;
                }
            } else if (lastFit > start) {
                spans.push_back({start, lastFit});
                start = lastFit;
            } else {
                const std::size_t cut = cutInside(start, opportunity.offset);
                spans.push_back({start, cut});
                start = cut;
                lastFit = cut;
            }
        }
        if (start < text_.size()) {
            spans.push_back({start, text_.size()});
        }
        return spans;
    }

    std::size_t visibleEnd(std::size_t start, std::size_t end) const {
        while (end > start) {
            std::int32_t index = static_cast<std::int32_t>(end);
            UChar32 codePoint = 0;
            U8_PREV(reinterpret_cast<const std::uint8_t*>(text_.data()), 0, index, codePoint);
            if (!isBlank(codePoint)) {
                break;
            }
            end = static_cast<std::size_t>(index);
        }
        return end;
    }

private:
    double width(std::size_t start, std::size_t end) const { return widthBefore_[end] - widthBefore_[start]; }
    bool fits(std::size_t start, std::size_t end) const {
        return width(start, visibleEnd(start, end)) <= widthLimit_;
    }

    // The furthest character boundary before `end` that fits, at least one
    // character past `start`.
    std::size_t cutInside(std::size_t start, std::size_t end) const {
        auto boundary = std::upper_bound(characterEnds_.begin(), characterEnds_.end(), start);
        std::size_t cut = boundary == characterEnds_.end() ? end : *boundary;
        for (++boundary; boundary != characterEnds_.end() && *boundary < end && fits(start, *boundary);
             ++boundary) {
            cut = *boundary;
        }
        return cut;
    }

    std::string_view text_;
    const std::vector<std::size_t>& characterEnds_;
    double widthLimit_;
    std::vector<double> widthBefore_;
};

} // namespace

std::vector<std::size_t> captionCharacterEnds(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    const TextHandle handle = openText(text);
    return characterEnds(handle.get());
}

CaptionSetting setCaptionText(const CaptionFaces& faces, std::string_view text, double fontSize,
                              double widthLimit) {
    if (faces.faces().empty()) {
        throw CaptionRasterizerError::rasterizationFailed();
    }
    CaptionSetting setting;
    if (text.empty()) {
        return setting;
    }
    const int scale = static_cast<int>(std::lround(fontSize * fixedPointUnit));
    std::vector<FontHandle> fonts;
    for (const CaptionFace& face : faces.faces()) {
        fonts.emplace_back(hb_font_create(face.shapingFace.get()));
        hb_font_set_scale(fonts.back().get(), scale, scale);
    }
    const TextHandle handle = openText(text);
    const std::vector<std::size_t> ends = characterEnds(handle.get());
    const Shaped shaped = shape(fonts, text, ends);

    double descender = 0;
    double lineGap = 0;
    for (std::size_t face = 0; face < fonts.size(); ++face) {
        if (!shaped.facesUsed[face]) {
            continue;
        }
        hb_font_extents_t extents{};
        hb_font_get_h_extents(fonts[face].get(), &extents);
        setting.ascender = std::max(setting.ascender, extents.ascender / fixedPointUnit);
        descender = std::max(descender, -extents.descender / fixedPointUnit);
        lineGap = std::max(lineGap, extents.line_gap / fixedPointUnit);
    }
    setting.lineHeight = setting.ascender + descender + lineGap;

    const LineBreaker breaker(text, shaped, ends, widthLimit);
    const auto lineBreaks = makeIterator(true, handle.get());
    for (const Span span : breaker.spans(*lineBreaks)) {
        const std::size_t visibleEnd = breaker.visibleEnd(span.start, span.end);
        CaptionLine line;
        for (const ShapedGlyph& glyph : shaped.glyphs) {
            if (glyph.cluster < span.start || glyph.cluster >= visibleEnd) {
                continue;
            }
            line.glyphs.push_back(
                {glyph.faceIndex, glyph.glyphId, glyph.cluster, line.width + glyph.offsetX, glyph.offsetY});
            line.width += glyph.advance;
        }
        setting.width = std::max(setting.width, line.width);
        setting.lines.push_back(std::move(line));
    }
    setting.height = setting.lineHeight * static_cast<double>(setting.lines.size());
    return setting;
}

} // namespace rilo
