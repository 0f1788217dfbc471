// edits/captions.json as a project load reads it: decoded
// (ProjectStore::captionsState), then passed through validated() with the
// manifest's source duration (ProjectStore::loadSnapshot). A validated
// document is what a commit writes, so it must read back unchanged and pass
// validation again as it stands.

#include "FuzzSupport.h"
#include "project/caption/CaptionCodecs.h"
#include "project/caption/CaptionDocument.h"

#include <array>
#include <limits>

namespace {

// Source durations a manifest may give: none yet, that of a short recording,
// and the largest one it can hold.
constexpr std::array sourceDurations{
    rilo::ProjectTime::zero(),
    rilo::ProjectTime{12'345'678'901},
    rilo::ProjectTime{std::numeric_limits<std::int64_t>::max()},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace rilo;
    CaptionDocument document;
    try {
        document = json::decodeDocument<CaptionDocument>(fuzz::inputText(data, size));
    } catch (const json::DecodingError&) {
        return 0;
    }
    for (const ProjectTime sourceDuration : sourceDurations) {
        CaptionDocument validated;
        try {
            validated = document.validated(sourceDuration);
        } catch (const CaptionValidationError&) {
            continue;
        }
        fuzz::requireRoundTrip(validated, "validated caption document");
        try {
            if (!(validated.validated(sourceDuration) == validated)) {
                fuzz::finding("a validated caption document changes when validated again");
            }
        } catch (const CaptionValidationError& error) {
            fuzz::finding("a validated caption document fails validation: " + error.message());
        }
    }
    return 0;
}
