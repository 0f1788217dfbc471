// The read commands of the real executable (describe, history, captions-read,
// system-info) on packages made the way a recording makes them, with real
// media, in a library under a temporary data directory.

#include "project/caption/CaptionCodecs.h"
#include "project/document/DeviceFrameCatalog.h"
#include "project/document/TimelineCodecs.h"
#include "project/engine/TimelineEffectEngine.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/BuildCatalog.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/PackageFixtures.h"
#include "support/ProcessRunner.h"
#include "support/RecordedPackage.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"

#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sys/utsname.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using json::Json;
using testing::ProcessResult;

using testing::buildCatalog;

ProjectTime ms(std::int64_t milliseconds) {
    return ProjectTime::fromMilliseconds(milliseconds);
}

TimelineSegment segment(std::int64_t startMilliseconds, std::int64_t endMilliseconds, std::int64_t permille) {
    return {Uuid::random(), ProjectTimeRange::fromStartEnd(ms(startMilliseconds), ms(endMilliseconds)),
            TimelinePlaybackRate{permille}};
}

using testing::fileTreeState;

class ReadCommandsEndToEnd : public testing::CliLibraryTest {
protected:
    static std::string prefixOf(const testing::RecordedPackage& recorded) {
        return recorded.manifest.id.string().substr(0, 8);
    }

    std::string diskDigest(const fs::path& file) const { return sha256Hex(readFileBytes(file)); }

    // Cuts 1000...1500 and 2000...2500 ms, plays the middle at double speed and
    // adds one zoom; committed as the command line commits.
    EditTimeline commitEditedTimeline(const testing::RecordedPackage& recorded) {
        const TimelineState current =
            store.readTimelineState(recorded.package, recorded.manifest.duration, false);
        EditTimeline timeline = current.timeline;
        timeline.segments = {segment(0, 1000, 1000), segment(1500, 2000, 2000), segment(2500, 3000, 1000)};
        ZoomSegment zoom;
        zoom.id = Uuid::random();
        zoom.startTime = ms(200);
        zoom.focusTime = ms(400);
        zoom.holdEndTime = ms(600);
        zoom.endTime = ms(800);
        zoom.scale = 2;
        zoom.focusPoint = TimelineEffectEngine::constrainedFocus({0.9, 0.2}, zoom.scale);
        timeline.zooms = {zoom};
        store.commitTimeline(timeline, current.digest, std::nullopt, recorded.package);
        return timeline;
    }

    static testing::RecordedPackageSpec threeSecondRecording() {
        testing::RecordedPackageSpec spec;
        spec.movie.duration = ProjectTime::fromSeconds(3);
        return spec;
    }
};

TEST_F(ReadCommandsEndToEnd, DescribeShowsTheProjectOnBothTimeAxesWithTheDigestOnDisk) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    const EditTimeline timeline = commitEditedTimeline(recorded);

    const Json description = succeed({"describe", prefixOf(recorded)});
    const std::set<std::string> keys{"protocolVersion",
                                     "id",
                                     "packagePath",
                                     "manifestVersion",
                                     "timelineSchema",
                                     "state",
                                     "sourceWidth",
                                     "sourceHeight",
                                     "sourceDurationMilliseconds",
                                     "sequenceDurationMilliseconds",
                                     "segments",
                                     "zooms",
                                     "canvas",
                                     "cursor",
                                     "audio",
                                     "tracks",
                                     "clickMilliseconds",
                                     "captionCueCount",
                                     "timelineDigest"};
    std::set<std::string> actualKeys;
    for (const auto& [key, value] : description.items()) {
        actualKeys.insert(key);
    }
    // No webcam and no captions: their optional keys are left out.
    EXPECT_EQ(actualKeys, keys);

    EXPECT_EQ(description["protocolVersion"], 1);
    EXPECT_EQ(description["id"], recorded.manifest.id.string());
    EXPECT_EQ(description["packagePath"], recorded.package.rootURL.string());
    EXPECT_EQ(description["manifestVersion"], 4);
    EXPECT_EQ(description["timelineSchema"], 8);
    EXPECT_EQ(description["state"], "completed");
    EXPECT_EQ(description["sourceWidth"], 320);
    EXPECT_EQ(description["sourceHeight"], 180);
    EXPECT_EQ(description["sourceDurationMilliseconds"], recorded.manifest.duration.cliMilliseconds());
    EXPECT_EQ(description["sequenceDurationMilliseconds"], 1000 + 250 + 500);

    const Json& segments = description["segments"];
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[1]["id"], timeline.segments[1].id.string());
    EXPECT_EQ(segments[1]["sourceStartMilliseconds"], 1500);
    EXPECT_EQ(segments[1]["sourceEndMilliseconds"], 2000);
    EXPECT_EQ(segments[1]["sequenceStartMilliseconds"], 1000);
    EXPECT_EQ(segments[1]["sequenceEndMilliseconds"], 1250);
    EXPECT_EQ(segments[1]["playbackRate"], 2.0);
    EXPECT_EQ(segments[2]["sequenceStartMilliseconds"], 1250);
    EXPECT_EQ(segments[2]["sequenceEndMilliseconds"], 1750);
    EXPECT_EQ(segments[2]["playbackRate"], 1.0);

    ASSERT_EQ(description["zooms"].size(), 1u);
    const Json& zoom = description["zooms"][0];
    EXPECT_EQ(zoom["index"], 0);
    EXPECT_EQ(zoom["id"], timeline.zooms[0].id.string());
    EXPECT_EQ(zoom["sourceStartMilliseconds"], 200);
    EXPECT_EQ(zoom["sourceEndMilliseconds"], 800);
    EXPECT_EQ(zoom["focusX"], 0.75);
    EXPECT_EQ(zoom["focusY"], 0.25);
    EXPECT_EQ(zoom["scale"], 2.0);

    EXPECT_EQ(description["canvas"], json::encode(timeline.canvas));
    EXPECT_EQ(description["cursor"], json::encode(timeline.cursor));
    EXPECT_EQ(description["audio"], json::encode(timeline.audioMix));
    EXPECT_EQ(description["tracks"],
              Json({{"screen", true}, {"webcam", false}, {"systemAudio", true}, {"microphone", true}}));

    Json clicks = Json::array();
    for (const MouseEvent& event : recorded.mouseEvents) {
        if (event.phase == MousePhase::down) {
            clicks.push_back(event.time.cliMilliseconds());
        }
    }
    ASSERT_EQ(clicks.size(), 2u);
    EXPECT_EQ(description["clickMilliseconds"], clicks);
    EXPECT_EQ(description["captionCueCount"], 0);

    // The digest is that of the bytes on disk, and a commit takes it at once.
    const std::string digest = description["timelineDigest"];
    EXPECT_EQ(digest, diskDigest(recorded.package.timelineURL()));
    EXPECT_NO_THROW(store.commitTimeline(timeline, digest, std::nullopt, recorded.package));
}

TEST_F(ReadCommandsEndToEnd, ResponsesLeaveSlashesUnescaped) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    const ProcessResult result = cli({"describe", prefixOf(recorded)});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_NE(result.standardOutput.find("\"packagePath\" : \"" + recorded.package.rootURL.string() + "\""),
              std::string::npos);
    EXPECT_EQ(result.standardOutput.find("\\/"), std::string::npos);
}

TEST_F(ReadCommandsEndToEnd, HistoryNumbersTheKeptTimelinesNewestFirst) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    const std::string id = recorded.manifest.id.string();

    const Json empty = succeed({"history", prefixOf(recorded)});
    EXPECT_EQ(empty, Json({{"protocolVersion", 1}, {"projectID", id}, {"entries", Json::array()}}));

    const std::string original = diskDigest(recorded.package.timelineURL());
    commitEditedTimeline(recorded);
    const std::string edited = diskDigest(recorded.package.timelineURL());
    commitEditedTimeline(recorded);

    const Json history = succeed({"history", prefixOf(recorded)});
    EXPECT_EQ(history["projectID"], id);
    const Json& entries = history["entries"];
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0]["index"], 0);
    EXPECT_EQ(entries[0]["timelineDigest"], edited);
    EXPECT_EQ(entries[1]["index"], 1);
    EXPECT_EQ(entries[1]["timelineDigest"], original);
    for (const Json& entry : entries) {
        const fs::path file =
            recorded.package.timelineHistoryDirectory() / entry["fileName"].get<std::string>();
        EXPECT_EQ(entry["timelineDigest"], diskDigest(file));
    }
}

TEST_F(ReadCommandsEndToEnd, CaptionsReadWithoutCaptionsGivesTheHint) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    const Json response = succeed({"captions-read", prefixOf(recorded)});
    EXPECT_EQ(response, Json({{"protocolVersion", 1},
                              {"projectID", recorded.manifest.id.string()},
                              {"timeDomain", "source milliseconds"},
                              {"timelineDigest", diskDigest(recorded.package.timelineURL())},
                              {"captionsDigest", sha256Hex("")},
                              {"cues", Json::array()},
                              {"hint", "当前项目没有字幕，请先执行captions-prepare。"}}));
}

TEST_F(ReadCommandsEndToEnd, CaptionsReadMapsEachCueToWhatSurvivesTheCuts) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    commitEditedTimeline(recorded);
    const std::string timelineDigest = diskDigest(recorded.package.timelineURL());

    CaptionDocument document;
    document.sourceTrack = MediaTrackKind::microphone;
    document.sourceAudioDigest = "audio";
    document.basedOnTimelineDigest = timelineDigest;
    document.language = "zh-Hans";
    const auto cue = [](std::int64_t start, std::int64_t end, std::string text) {
        return CaptionCue{Uuid::random(), ms(start), ms(end), std::move(text), {}, {}};
    };
    // Kept whole; inside the first cut; over the second cut, kept on both sides.
    document.cues = {cue(100, 600, "你好，世界"), cue(1100, 1400, "被剪掉"), cue(1800, 2700, "跨越剪切")};
    document.cues[0].words = {{ms(100), ms(300), "你好"}, {ms(350), ms(600), "世界"}};
    document.cues[0].highlights = {{"世界", 1}};
    store.commitCaptions(document, sha256Hex(""), timelineDigest, recorded.package);

    const Json response = succeed({"captions-read", prefixOf(recorded)});
    EXPECT_EQ(response["captionsDigest"], diskDigest(recorded.package.captionsURL()));
    EXPECT_EQ(response["timelineDigest"], timelineDigest);
    EXPECT_EQ(response["language"], "zh-Hans");
    EXPECT_EQ(response["sourceTrack"], "microphone");
    EXPECT_FALSE(response.contains("hint"));

    const auto range = [](std::int64_t start, std::int64_t end) {
        return Json({{"startMilliseconds", start}, {"endMilliseconds", end}});
    };
    const Json& cues = response["cues"];
    ASSERT_EQ(cues.size(), 3u);
    EXPECT_EQ(cues[0],
              Json({{"id", document.cues[0].id.string()},
                    {"sourceStartMilliseconds", 100},
                    {"sourceEndMilliseconds", 600},
                    {"sequenceRanges", Json::array({range(100, 600)})},
                    {"text", "你好，世界"},
                    {"words",
                     Json::array({{{"startMilliseconds", 100}, {"endMilliseconds", 300}, {"text", "你好"}},
                                  {{"startMilliseconds", 350}, {"endMilliseconds", 600}, {"text", "世界"}}})},
                    {"highlights", Json::array({{{"text", "世界"}, {"occurrence", 1}}})}}));
    // A cue that was cut away is listed all the same.
    EXPECT_EQ(cues[1]["id"], document.cues[1].id.string());
    EXPECT_EQ(cues[1]["sequenceRanges"], Json::array());
    // 1800...2000 at double speed, then 2500...2700: two touching ranges, not merged.
    EXPECT_EQ(cues[2]["sequenceRanges"], Json::array({range(1150, 1250), range(1250, 1450)}));

    const Json description = succeed({"describe", prefixOf(recorded)});
    EXPECT_EQ(description["captionCueCount"], 3);
    EXPECT_EQ(description["captionLanguage"], "zh-Hans");
}

TEST_F(ReadCommandsEndToEnd, ReadCommandsChangeNothingOnDisk) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    commitEditedTimeline(recorded);
    const auto before = fileTreeState(recorded.package.rootURL);
    for (const char* command : {"describe", "history", "captions-read"}) {
        succeed({command, prefixOf(recorded)});
    }
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), before);
}

TEST_F(ReadCommandsEndToEnd, UnknownAndAmbiguousPrefixesExitTwo) {
    fs::create_directories(library);
    testing::writePackage(
        library, testing::sampleManifest(*Uuid::parse("1A2B3C4D-0000-4000-8000-000000000001"), IsoDate{100}));
    testing::writePackage(
        library, testing::sampleManifest(*Uuid::parse("1A2B9999-0000-4000-8000-000000000002"), IsoDate{100}));
    for (const char* command : {"describe", "history", "captions-read"}) {
        const ProcessResult ambiguous = cli({command, "1a2b"});
        EXPECT_EQ(ambiguous.exitCode, 2) << command;
        EXPECT_EQ(ambiguous.standardOutput, "");
        EXPECT_EQ(json::parse(ambiguous.standardError)["error"], "project_not_found");
        EXPECT_EQ(json::parse(ambiguous.standardError)["message"], "项目ID前缀不唯一：1a2b");

        const ProcessResult unknown = cli({command, "ffff"});
        EXPECT_EQ(unknown.exitCode, 2) << command;
        EXPECT_EQ(json::parse(unknown.standardError)["message"], "找不到项目：ffff");
    }
}

TEST_F(ReadCommandsEndToEnd, MediaThatLostAPromisedTrackFailsWithTheResolversText) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    // The microphone (track 2 of the manifest) is gone from the file.
    testing::RecordingMovieSpec movie = threeSecondRecording().movie;
    movie.microphone.reset();
    testing::writeRecordingMovie(recorded.package.mediaURL(), movie);

    const ProcessResult result = cli({"describe", prefixOf(recorded)});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.standardOutput, "");
    const Json error = json::parse(result.standardError);
    EXPECT_EQ(error["error"], "execution");
    EXPECT_EQ(error["message"], "项目媒体缺少 Manifest 指定的第 2 条轨道。");
}

TEST_F(ReadCommandsEndToEnd, AnInvalidTimelineIsAValidationFailure) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    EditTimeline timeline = store.readTimeline(recorded.package, recorded.manifest.duration, false);
    timeline.segments = {segment(0, 1500, 1000), segment(1000, 2000, 1000)};
    writeFileAtomically(recorded.package.timelineURL(), json::encodeDocument(timeline));

    for (const char* command : {"describe", "captions-read"}) {
        const ProcessResult result = cli({command, prefixOf(recorded)});
        EXPECT_EQ(result.exitCode, 4) << command;
        const Json error = json::parse(result.standardError);
        EXPECT_EQ(error["error"], "validation");
        EXPECT_EQ(error["message"], "时间轴片段不能重叠。");
    }
}

TEST_F(ReadCommandsEndToEnd, SystemInfoGivesTheFactsAndNothingElse) {
    const Json info = succeed({"system-info"});
    std::set<std::string> keys;
    for (const auto& [key, value] : info.items()) {
        keys.insert(key);
    }
    EXPECT_EQ(keys, (std::set<std::string>{"protocolVersion", "architecture", "chip", "logicalCoreCount",
                                           "memoryBytes", "operatingSystemVersion", "supportsMetal",
                                           "availableDiskBytes", "privacyNote"}));
    utsname name{};
    ASSERT_EQ(::uname(&name), 0);
    EXPECT_EQ(info["architecture"], name.machine);
    EXPECT_TRUE(info["chip"].is_string());
    EXPECT_GE(info["logicalCoreCount"].get<std::int64_t>(), 1);
    EXPECT_TRUE(info["memoryBytes"].is_number_unsigned());
    EXPECT_GT(info["memoryBytes"].get<std::uint64_t>(), 0u);
    EXPECT_NE(info["operatingSystemVersion"].get<std::string>().find(name.release), std::string::npos);
    EXPECT_TRUE(info["supportsMetal"].is_boolean());
    EXPECT_GT(info["availableDiskBytes"].get<std::int64_t>(), 0);
    EXPECT_EQ(
        info["privacyNote"],
        "不包含序列号、硬件UUID、用户名或文件列表；安装工具或下载模型前必须展示具体方案并获得用户明确确认。");
}

} // namespace
} // namespace rilo
