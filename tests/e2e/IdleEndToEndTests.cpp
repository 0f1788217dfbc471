// The `idle` command of the real executable on recordings whose microphone
// falls silent and whose mouse rests, with real media in a library under a
// temporary data directory.

#include "project/store/ProjectStore.h"
#include "shared/Json.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/RecordedPackage.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <set>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using json::Json;
using testing::between;
using testing::fileTreeState;
using testing::ms;
using testing::segment;

class IdleEndToEnd : public testing::CliLibraryTest {
protected:
    static std::string prefixOf(const testing::RecordedPackage& recorded) {
        return recorded.manifest.id.string().substr(0, 8);
    }

    // 8 s: the mouse rests from 3 s on, and the microphone is silent from
    // 4 s to 7 s; the system audio plays its tone throughout.
    testing::RecordedPackage makeQuietRecording() {
        testing::RecordedPackageOptions options;
        options.movie.duration = ProjectTime::fromSeconds(8);
        options.movie.microphone->silentRanges = {between(ms(4000), ms(7000))};
        options.stillRanges = {between(ms(3000), ms(8000))};
        return testing::makeRecordedPackage(store, options);
    }

    // The frame of the 60 fps grid at or after a time, in milliseconds.
    static std::int64_t frameAtOrAfter(std::int64_t nanoseconds) {
        const std::int64_t frame = (nanoseconds * 60 + 999'999'999) / 1'000'000'000;
        return frame * 1'000'000'000 / 60 / 1'000'000;
    }
};

std::int64_t integer(const Json& value) {
    return value.get<std::int64_t>();
}

TEST_F(IdleEndToEnd, ReportsTheQuietStretchRecommendsItsCutAndReadsTheCacheAfterwards) {
    const auto recorded = makeQuietRecording();
    const Json response = succeed({"idle", prefixOf(recorded)});

    std::set<std::string> keys;
    for (const auto& [key, value] : response.items()) {
        keys.insert(key);
    }
    EXPECT_EQ(keys, (std::set<std::string>{
                        "protocolVersion", "projectID", "unit", "analyzedTrack", "analysisMethod",
                        "bucketMilliseconds", "minimumDurationMilliseconds", "silenceThresholdDecibels",
                        "estimatedNoiseFloorDecibels", "recommendedSilenceDecibels", "keepTailMilliseconds",
                        "minimumRemovalMilliseconds", "recommendedCuts", "idleSpans", "silenceSpans",
                        "quietSpans", "suggestedRate", "hint"}));
    EXPECT_EQ(response["protocolVersion"], 1);
    EXPECT_EQ(response["projectID"], recorded.manifest.id.string());
    EXPECT_EQ(response["unit"], "source milliseconds");
    EXPECT_EQ(response["analyzedTrack"], "microphone");
    EXPECT_EQ(response["analysisMethod"], "peak-dBFS");
    EXPECT_EQ(response["bucketMilliseconds"], 20);
    EXPECT_EQ(response["minimumDurationMilliseconds"], 1500);
    EXPECT_EQ(response["silenceThresholdDecibels"], -42);
    EXPECT_EQ(response["keepTailMilliseconds"], 500);
    EXPECT_EQ(response["minimumRemovalMilliseconds"], 150);
    EXPECT_EQ(response["suggestedRate"], 3);
    EXPECT_EQ(response["hint"],
              "有声桶不会并入静默；recommendedCuts只来自无声且无鼠标操作的quietSpans；修改前仍必须预演。");
    // Three of eight seconds are digital silence: the lower quartile is silent.
    EXPECT_EQ(response["estimatedNoiseFloorDecibels"], -96);
    EXPECT_EQ(response["recommendedSilenceDecibels"], -55);

    // Idle from half a second after the last mouse sample to the end.
    const std::int64_t idleStart = (recorded.mouseEvents.back().time + ms(500)).cliMilliseconds();
    const std::int64_t end = recorded.manifest.duration.cliMilliseconds();
    EXPECT_EQ(response["idleSpans"],
              Json::array({{{"sourceStartMilliseconds", idleStart},
                            {"sourceEndMilliseconds", end},
                            {"sequenceRanges",
                             Json::array({{{"startMilliseconds", idleStart}, {"endMilliseconds", end}}})}}}));
    // The silence, give or take the codec's smearing of an edge by a bucket or two.
    ASSERT_EQ(response["silenceSpans"].size(), 1u);
    const Json& silence = response["silenceSpans"][0];
    EXPECT_NEAR(integer(silence["sourceStartMilliseconds"]), 4000, 60);
    EXPECT_NEAR(integer(silence["sourceEndMilliseconds"]), 7000, 60);
    EXPECT_EQ(response["quietSpans"], response["silenceSpans"]);

    // The cut keeps the last half second of the quiet span, on the frame grid.
    const std::int64_t quietStart = integer(silence["sourceStartMilliseconds"]);
    const std::int64_t quietEnd = integer(silence["sourceEndMilliseconds"]);
    ASSERT_EQ(response["recommendedCuts"].size(), 1u);
    const Json& cut = response["recommendedCuts"][0];
    EXPECT_EQ(integer(cut["startMilliseconds"]), frameAtOrAfter(quietStart * 1'000'000));
    EXPECT_NEAR(integer(cut["endMilliseconds"]), quietEnd - 500, 17);
    EXPECT_LE(integer(cut["endMilliseconds"]), quietEnd - 500);

    // A second run reads the cache and answers the same.
    const fs::path cache = recorded.package.waveformCacheDirectory() / "microphone.cswf";
    ASSERT_TRUE(fs::exists(cache));
    const auto before = fileTreeState(recorded.package.rootURL);
    EXPECT_EQ(succeed({"idle", prefixOf(recorded)}), response);
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), before);
}

TEST_F(IdleEndToEnd, SpansAcrossACutLandOnBothSidesAndOnlyKeptMaterialIsProposed) {
    const auto recorded = makeQuietRecording();
    const std::string prefix = prefixOf(recorded);
    const Json uncut = succeed({"idle", prefix, "--keep-tail-ms", "0"});
    const std::int64_t quietStart = integer(uncut["quietSpans"][0]["sourceStartMilliseconds"]);
    const std::int64_t quietEnd = integer(uncut["quietSpans"][0]["sourceEndMilliseconds"]);

    // 5 s to 6 s are cut away.
    const TimelineState current =
        store.readTimelineState(recorded.package, recorded.manifest.duration, false);
    EditTimeline timeline = current.timeline;
    timeline.segments = {segment(ms(0), ms(5000)), segment(ms(6000), recorded.manifest.duration)};
    store.commitTimeline(timeline, current.digest, std::nullopt, recorded.package);

    const Json response = succeed({"idle", prefix, "--keep-tail-ms", "0"});
    // The spans describe the whole recording, whatever the edit.
    ASSERT_EQ(response["quietSpans"].size(), 1u);
    EXPECT_EQ(response["quietSpans"][0]["sourceStartMilliseconds"], quietStart);
    EXPECT_EQ(response["quietSpans"][0]["sourceEndMilliseconds"], quietEnd);
    EXPECT_EQ(response["quietSpans"][0]["sequenceRanges"],
              Json::array({{{"startMilliseconds", quietStart}, {"endMilliseconds", 5000}},
                           {{"startMilliseconds", 5000}, {"endMilliseconds", quietEnd - 1000}}}));
    ASSERT_EQ(response["recommendedCuts"].size(), 2u);
    EXPECT_EQ(response["recommendedCuts"][0]["endMilliseconds"], 5000);
    EXPECT_EQ(response["recommendedCuts"][1]["startMilliseconds"], 6000);

    // Asking for the system audio, which never falls silent, proposes nothing.
    const Json system = succeed({"idle", prefix, "--track", "system-audio"});
    EXPECT_EQ(system["analyzedTrack"], "system-audio");
    EXPECT_EQ(system["silenceSpans"], Json::array());
    EXPECT_EQ(system["recommendedCuts"], Json::array());
    EXPECT_TRUE(fs::exists(recorded.package.waveformCacheDirectory() / "systemAudio.cswf"));
}

TEST_F(IdleEndToEnd, AProjectWithoutTheAudioTrackFailsAndChangesNothing) {
    testing::RecordedPackageOptions systemOnly;
    systemOnly.movie.microphone.reset();
    const auto withoutMicrophone = testing::makeRecordedPackage(store, systemOnly);
    const auto before = fileTreeState(withoutMicrophone.package.rootURL);
    EXPECT_EQ(fail({"idle", prefixOf(withoutMicrophone), "--track", "microphone"}, "validation", 4),
              "项目不包含所选静默分析音轨：microphone");
    EXPECT_EQ(fileTreeState(withoutMicrophone.package.rootURL), before);

    testing::RecordedPackageOptions silentMovie;
    silentMovie.movie.microphone.reset();
    silentMovie.movie.systemAudio.reset();
    const auto withoutAudio = testing::makeRecordedPackage(store, silentMovie);
    const auto silentBefore = fileTreeState(withoutAudio.package.rootURL);
    EXPECT_EQ(fail({"idle", prefixOf(withoutAudio)}, "validation", 4),
              "项目没有可用于静默分析的麦克风或系统声音轨。");
    EXPECT_EQ(fail({"idle", prefixOf(withoutAudio), "--track", "system-audio"}, "validation", 4),
              "项目不包含所选静默分析音轨：systemAudio");
    EXPECT_EQ(fileTreeState(withoutAudio.package.rootURL), silentBefore);
}

} // namespace
} // namespace rilo
