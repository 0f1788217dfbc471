// An agent's captions.json as captions-import reads it
// (CaptionExchange::decodeDocument), made into a caption document for the
// job it names (captionDocument), validated with the manifest's source
// duration, and, as with --align-audio, tightened against an envelope of
// the job's audio and validated again. The program writes the example of
// this format with the same codec, so a document that decodes must write
// and read back unchanged; a validated caption document is what the import
// commits, so it must too, and must pass validation again as it stands.

#include "FuzzSupport.h"
#include "cli/exchange/CaptionExchange.h"
#include "cli/exchange/CaptionExchangeError.h"
#include "media/analysis/CaptionTimingAligner.h"
#include "project/caption/CaptionCodecs.h"

#include <array>
#include <limits>

namespace {

using namespace rilo;

// The end-to-end tests' spoken recording, and the longest a manifest holds.
constexpr std::array sourceDurations{
    ProjectTime::fromMilliseconds(8000),
    ProjectTime{std::numeric_limits<std::int64_t>::max()},
};

// 8 s of the job's audio: speech, silence from 3 s to 6 s, speech.
const WaveformEnvelope& jobAudio() {
    static const WaveformEnvelope envelope = [] {
        WaveformEnvelope made{MediaTrackKind::microphone, std::vector<WaveformPeak>(400, {-9830, 9830})};
        for (std::size_t bucket = 150; bucket < 300; ++bucket) {
            made.peaks[bucket] = {-3, 3};
        }
        return made;
    }();
    return envelope;
}

// The job the result answers: the program's own file, which the result's
// ids and digest must match for anything past them to run.
cli::CaptionExchangeJob jobFor(const cli::CaptionExchangeDocument& result) {
    cli::CaptionExchangeJob job;
    job.id = result.jobID;
    job.projectID = result.projectID;
    job.sourceTrack = MediaTrackKind::microphone;
    job.sourceAudioDigest = result.sourceAudioDigest;
    job.timelineDigest = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
    job.sourceDurationMilliseconds = 8000;
    return job;
}

void requireStable(const CaptionDocument& validated, ProjectTime sourceDuration, const char* what) {
    fuzz::requireRoundTrip(validated, what);
    try {
        if (!(validated.validated(sourceDuration) == validated)) {
            fuzz::finding(std::string(what) + " changes when validated again");
        }
    } catch (const CaptionValidationError& error) {
        fuzz::finding(std::string(what) + " fails validation: " + error.message());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    cli::CaptionExchangeDocument result;
    try {
        result = cli::CaptionExchange::decodeDocument(fuzz::inputText(data, size));
    } catch (const cli::CaptionExchangeError&) {
        return 0;
    }
    fuzz::requireRoundTrip(result, "caption exchange result");

    CaptionDocument imported;
    try {
        imported = result.captionDocument(jobFor(result), std::nullopt);
    } catch (const CaptionValidationError&) {
        return 0;
    }
    for (const ProjectTime sourceDuration : sourceDurations) {
        CaptionDocument validated;
        try {
            validated = imported.validated(sourceDuration);
        } catch (const CaptionValidationError&) {
            continue;
        }
        requireStable(validated, sourceDuration, "an imported caption document");
        CaptionDocument aligned;
        try {
            aligned = CaptionTimingAligner::align(validated, jobAudio()).document.validated(sourceDuration);
        } catch (const CaptionValidationError&) {
            continue;
        }
        requireStable(aligned, sourceDuration, "an aligned caption document");
    }
    return 0;
}
