#include "rendering/caption/CaptionFaces.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <hb.h>
#include <optional>

namespace rilo {

namespace {

struct ConfigDeleter {
    void operator()(FcConfig* config) const { FcConfigDestroy(config); }
};
struct PatternDeleter {
    void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
using ConfigHandle = std::unique_ptr<FcConfig, ConfigDeleter>;
using PatternHandle = std::unique_ptr<FcPattern, PatternDeleter>;

struct FontFile {
    std::string path;
    int index = 0;
    friend bool operator==(const FontFile&, const FontFile&) = default;
};

// The best match for a family at semibold weight (fontconfig falls back to
// the nearest weight the family has, which is bold when there is no
// semibold), provided it covers `requiredCharacter`.
std::optional<FontFile> matchFont(FcConfig* config, const char* family, const char* language,
                                  FcChar32 requiredCharacter) {
    const PatternHandle pattern(FcPatternCreate());
    if (!pattern) {
        return std::nullopt;
    }
    FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(family));
    FcPatternAddInteger(pattern.get(), FC_WEIGHT, FC_WEIGHT_DEMIBOLD);
    FcPatternAddInteger(pattern.get(), FC_SLANT, FC_SLANT_ROMAN);
    if (language != nullptr) {
        FcPatternAddString(pattern.get(), FC_LANG, reinterpret_cast<const FcChar8*>(language));
    }
    FcConfigSubstitute(config, pattern.get(), FcMatchPattern);
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultNoMatch;
    const PatternHandle match(FcFontMatch(config, pattern.get(), &result));
    if (!match || result != FcResultMatch) {
        return std::nullopt;
    }
    FcChar8* file = nullptr;
    if (FcPatternGetString(match.get(), FC_FILE, 0, &file) != FcResultMatch || file == nullptr) {
        return std::nullopt;
    }
    FcCharSet* characters = nullptr;
    if (FcPatternGetCharSet(match.get(), FC_CHARSET, 0, &characters) != FcResultMatch ||
        !FcCharSetHasChar(characters, requiredCharacter)) {
        return std::nullopt;
    }
    int index = 0;
    FcPatternGetInteger(match.get(), FC_INDEX, 0, &index);
    return FontFile{reinterpret_cast<const char*>(file), index};
}

std::vector<FontFile> findCaptionFonts() {
    std::vector<FontFile> found;
    const ConfigHandle config(FcInitLoadConfigAndFonts());
    if (!config) {
        return found;
    }
    constexpr FcChar32 latinLetter = U'A';
    constexpr FcChar32 chineseLetter = U'中';
    if (auto primary = matchFont(config.get(), "sans-serif", nullptr, latinLetter)) {
        found.push_back(*primary);
    }
    auto chinese = matchFont(config.get(), "Noto Sans CJK SC", "zh-cn", chineseLetter);
    if (!chinese) {
        chinese = matchFont(config.get(), "sans-serif", "zh-cn", chineseLetter);
    }
    if (chinese && (found.empty() || found.front() != *chinese)) {
        found.push_back(*chinese);
    }
    return found;
}

} // namespace

CaptionFaces::CaptionFaces() {
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0) {
        return;
    }
    library_.reset(library, FT_Done_FreeType);
    for (const FontFile& font : findCaptionFonts()) {
        FT_Face drawingFace = nullptr;
        if (FT_New_Face(library, font.path.c_str(), font.index, &drawingFace) != 0) {
            continue;
        }
        CaptionFace face;
        face.path = font.path;
        face.index = font.index;
        // The library outlives every face: faces_ is destroyed before library_.
        face.drawingFace.reset(drawingFace, FT_Done_Face);
        hb_blob_t* blob = hb_blob_create_from_file_or_fail(font.path.c_str());
        if (blob == nullptr) {
            continue;
        }
        hb_face_t* shapingFace = hb_face_create(blob, static_cast<unsigned>(font.index));
        hb_blob_destroy(blob);
        hb_face_make_immutable(shapingFace);
        face.shapingFace.reset(shapingFace, hb_face_destroy);
        if (hb_face_get_glyph_count(shapingFace) == 0) {
            continue;
        }
        faces_.push_back(std::move(face));
    }
}

CaptionFaces::~CaptionFaces() = default;

} // namespace rilo
