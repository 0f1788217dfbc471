// edits/timeline.json of any schema as the store reads it
// (ProjectStore::readTimeline): decoded, normalised for the source, and
// validated against the device frame catalog when the source duration is
// known. A document that passes is one the program may write, so it must
// read back unchanged and pass again.

#include "FuzzSupport.h"
#include "project/document/DeviceFrameCatalog.h"
#include "project/document/TimelineCodecs.h"
#include "project/document/TimelineValidator.h"
#include "shared/Files.h"

#include <array>
#include <limits>

namespace {

using namespace rilo;

// The catalog that ships with the program, without its pictures, which
// validation does not look at.
const DeviceFrameCatalog& shippedCatalog() {
    static const DeviceFrameCatalog catalog = [] {
        DeviceFrameCatalog decoded =
            DeviceFrameCatalog::decode(readFileBytes(RILO_FUZZ_DEVICE_FRAME_CATALOG));
        decoded.validate();
        return decoded;
    }();
    return catalog;
}

// What a manifest may say about the source: nothing known yet, a short
// recording with a webcam, and the longest duration it can hold.
struct Source {
    ProjectTime duration;
    bool hasWebcam = false;
};
constexpr std::array sources{
    Source{ProjectTime::zero(), false},
    Source{ProjectTime{12'345'678'901}, true},
    Source{ProjectTime{std::numeric_limits<std::int64_t>::max()}, false},
};

// Whether validation refuses the timeline; any other failure escapes.
bool refused(const EditTimeline& timeline, ProjectTime sourceDuration) {
    try {
        TimelineValidator::validate(timeline, sourceDuration, shippedCatalog);
        return false;
    } catch (const TimelineValidationError&) {
        return true;
    } catch (const TimelineEffectError&) {
        return true;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EditTimeline stored;
    try {
        stored = json::decodeDocument<EditTimeline>(fuzz::inputText(data, size));
    } catch (const json::DecodingError&) {
        return 0;
    }
    for (const Source& source : sources) {
        const EditTimeline timeline = stored.normalized(source.duration, source.hasWebcam);
        if (source.duration <= ProjectTime::zero() || refused(timeline, source.duration)) {
            continue;
        }
        fuzz::requireRoundTrip(timeline, "validated timeline");
        // Read again, the written document is normalised and validated again.
        const EditTimeline reread = timeline.normalized(source.duration, source.hasWebcam);
        if (!(reread == timeline)) {
            fuzz::finding("a validated timeline changes when it is normalised again");
        }
        if (refused(reread, source.duration)) {
            fuzz::finding("a validated timeline fails validation when it is read again");
        }
    }
    return 0;
}
