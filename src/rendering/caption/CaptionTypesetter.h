#pragma once

// Sets a caption's text in lines: HarfBuzz shapes it, character by character
// in the first face that has the character; ICU's line rules say where lines
// may break (between words, and between Chinese characters). A word wider
// than a whole line is cut between user-perceived characters. Measuring
// touches no FreeType state, so it may run on any thread without a lock.

#include "rendering/caption/CaptionFaces.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace rilo {

struct CaptionGlyph {
    std::size_t faceIndex = 0; // into CaptionFaces::faces()
    unsigned glyphId = 0;
    std::size_t cluster = 0; // byte offset of the character it draws
    double penX = 0;         // from the line's left edge, pixels
    double offsetY = 0;      // upwards from the baseline, pixels
};

struct CaptionLine {
    std::vector<CaptionGlyph> glyphs; // trailing white space left out
    double width = 0;
};

struct CaptionSetting {
    std::vector<CaptionLine> lines;
    double width = 0;  // of the widest line
    double height = 0; // every line is lineHeight tall
    double ascender = 0;
    double lineHeight = 0;
};

// `text` at `fontSize` pixels in lines no wider than `widthLimit`. An empty
// text has no lines. Throws CaptionRasterizerError when there is no face.
CaptionSetting setCaptionText(const CaptionFaces& faces, std::string_view text, double fontSize,
                              double widthLimit);

// Byte offsets where the user-perceived characters of `text` end, the last
// being text.size(); empty for an empty text.
std::vector<std::size_t> captionCharacterEnds(std::string_view text);

} // namespace rilo
