#pragma once

// The faces captions are set in: a semibold (else bold) sans face, and a
// Chinese-capable face for the characters the first one lacks, both found
// through fontconfig when the set is made.
//
// Shaping and measuring go through HarfBuzz faces, which are immutable and
// may be used from any thread at once. Drawing goes through FreeType faces,
// which are not thread-safe: whoever draws holds the lock that
// lockForDrawing() hands out for the whole drawing.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct FT_LibraryRec_;
struct FT_FaceRec_;
struct hb_face_t;

namespace rilo {

struct CaptionFace {
    std::string path;
    int index = 0;
    std::shared_ptr<hb_face_t> shapingFace;
    std::shared_ptr<FT_FaceRec_> drawingFace;
};

class CaptionFaces {
public:
    // Opens what fontconfig offers; a machine without any sans face gets an
    // empty set, which the typesetter refuses.
    CaptionFaces();
    ~CaptionFaces();
    CaptionFaces(const CaptionFaces&) = delete;
    CaptionFaces& operator=(const CaptionFaces&) = delete;

    // The primary face first, then the fallback, in the order tried.
    const std::vector<CaptionFace>& faces() const noexcept { return faces_; }

    std::unique_lock<std::mutex> lockForDrawing() const { return std::unique_lock(drawingLock_); }
    // Only under the drawing lock.
    FT_LibraryRec_* drawingLibrary() const noexcept { return library_.get(); }

private:
    std::shared_ptr<FT_LibraryRec_> library_;
    std::vector<CaptionFace> faces_;
    mutable std::mutex drawingLock_;
};

} // namespace rilo
