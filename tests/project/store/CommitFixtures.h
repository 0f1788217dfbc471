#pragma once

// A library with one finished package (source duration 12.345678901 s, with
// webcam) for the commit tests, and helpers for timeline and caption
// documents.

#include "project/caption/CaptionCodecs.h"
#include "project/document/TimelineCodecs.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Sha256.h"
#include "support/BuildCatalog.h"
#include "support/PackageFixtures.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace rilo::testing {

// The SHA-256 of no bytes.
inline constexpr const char* digestOfNoBytes =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

// A timeline document as a person or an older version would have written it:
// its own spacing, keys in its own order, members left to their defaults.
inline std::string handWrittenTimeline(std::int64_t schemaVersion, std::int64_t keptNanoseconds) {
    return "{\"segments\": [{\"id\": \"0B7F2C1E-8D3A-4C5B-9E6F-112233445566\",\n"
           "  \"sourceRange\": {\"start\": {\"nanoseconds\": 0}, \"duration\": {\"nanoseconds\": " +
           std::to_string(keptNanoseconds) + "}}}],\n \"schemaVersion\": " + std::to_string(schemaVersion) +
           "}\n";
}

// A current-schema timeline that keeps the source from 0 for the given time,
// in one segment with the given id.
inline EditTimeline timelineKeeping(ProjectTime kept, const Uuid& segmentID = Uuid::random()) {
    EditTimeline timeline;
    timeline.segments = {{segmentID, {ProjectTime::zero(), kept}, TimelinePlaybackRate::normal()}};
    return timeline;
}

// The n-th of a series of ids.
inline Uuid numberedID(int n) {
    char id[40];
    std::snprintf(id, sizeof id, "00000000-0000-4000-8000-%012d", n);
    return *Uuid::parse(id);
}

// The n-th of a series of distinct valid timelines; the same n always gives
// the same document.
inline EditTimeline numberedTimeline(int n) {
    return timelineKeeping(ProjectTime::fromMilliseconds(1000 + 10 * n), numberedID(n));
}

// The n-th of a series of distinct caption documents, with one cue whose text
// has blanks and a line break around it.
inline CaptionDocument numberedCaptions(int n, ProjectTime cueEnd = ProjectTime::fromSeconds(2)) {
    CaptionDocument document;
    document.sourceTrack = MediaTrackKind::microphone;
    document.sourceAudioDigest = std::string(64, 'a');
    document.basedOnTimelineDigest = std::string(64, 'b');
    document.language = "zh-Hans";
    document.cues = {{numberedID(n),
                      ProjectTime::fromSeconds(1),
                      cueEnd,
                      "  第" + std::to_string(n) + "句字幕\n",
                      {},
                      {}}};
    return document;
}

class CommitTest : public ::testing::Test {
protected:
    TemporaryDirectory root;
    std::filesystem::path library = root / "Library";
    ProjectStore store{library, testing::buildCatalog};
    ProjectPackage package = writePackage(library, sampleManifest(Uuid::random(), IsoDate{1'700'000'000}));
    ProjectTime sourceDuration = store.readManifest(package).duration;

    void SetUp() override {
        writeFileAtomically(package.timelineURL(), handWrittenTimeline(8, 5'000'000'000));
    }

    std::string timelineBytes() const { return readFileBytes(package.timelineURL()); }

    // History names carry the time to the millisecond: commits whose order a
    // test checks are kept apart by more than that.
    static void waitPastMillisecond() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }
};

} // namespace rilo::testing
