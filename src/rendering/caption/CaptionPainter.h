#pragma once

// Draws a set caption into a premultiplied RGBA bitmap: the plate of the
// white-on-black appearance, the outline layer of the two outline
// appearances, then the text itself, highlighted ranges in amber. Glyphs are
// FreeType's anti-aliased outlines placed at fractional pen positions.

#include "project/caption/CaptionDocument.h"
#include "rendering/caption/CaptionFaces.h"
#include "rendering/caption/CaptionRasterizer.h"
#include "rendering/caption/CaptionTypesetter.h"

#include <vector>

namespace rilo {

// Takes the faces' drawing lock for the whole drawing. `highlighted` are byte
// ranges of the rendered text. Throws CaptionRasterizerError when the bitmap
// cannot be made.
CaptionBitmap paintCaption(const CaptionFaces& faces, const CaptionSetting& setting,
                           const CaptionTextLayout& layout, CaptionAppearance appearance,
                           const std::vector<CaptionHighlight::ByteRange>& highlighted);

} // namespace rilo
