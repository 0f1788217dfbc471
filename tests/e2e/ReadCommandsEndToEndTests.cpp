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
#include <set>

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

    static testing::RecordedPackageOptions threeSecondRecording() {
        testing::RecordedPackageOptions spec;
        spec.movie.duration = ProjectTime::fromSeconds(3);
        return spec;
    }
};

// Which keys a response carries.
std::set<std::string> keysOf(const Json& response) {
    std::set<std::string> keys;
    for (const auto& [key, value] : response.items()) {
        keys.insert(key);
    }
    return keys;
}

TEST_F(ReadCommandsEndToEnd, DescribeGivesTheProjectAndTheDigestOnDisk) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    const EditTimeline timeline = commitEditedTimeline(recorded);

    const ProcessResult result = cli({"describe", prefixOf(recorded)});
    ASSERT_EQ(result.exitCode, 0) << result.standardError;
    // Slashes are left unescaped.
    EXPECT_EQ(result.standardOutput.find("\\/"), std::string::npos);
    const Json description = json::parse(result.standardOutput);
    // No webcam and no captions: their optional keys are left out.
    EXPECT_EQ(
        keysOf(description),
        (std::set<std::string>{"protocolVersion", "id", "packagePath", "manifestVersion", "timelineSchema",
                               "state", "sourceWidth", "sourceHeight", "sourceDurationMilliseconds",
                               "sequenceDurationMilliseconds", "segments", "zooms", "canvas", "cursor",
                               "audio", "tracks", "clickMilliseconds", "captionCueCount", "timelineDigest"}));
    EXPECT_EQ(description["id"], recorded.manifest.id.string());
    EXPECT_EQ(description["packagePath"], recorded.package.rootURL.string());
    EXPECT_EQ(description["segments"].size(), timeline.segments.size());
    ASSERT_EQ(description["zooms"].size(), 1u);
    EXPECT_EQ(description["zooms"][0]["id"], timeline.zooms[0].id.string());
    EXPECT_EQ(description["clickMilliseconds"].size(), 2u);

    // The digest is that of the bytes on disk, and a commit takes it at once.
    const std::string digest = description["timelineDigest"];
    EXPECT_EQ(digest, diskDigest(recorded.package.timelineURL()));
    EXPECT_NO_THROW(store.commitTimeline(timeline, digest, std::nullopt, recorded.package));
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

TEST_F(ReadCommandsEndToEnd, CaptionsReadListsEveryCue) {
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
    // Kept whole; inside the first cut; over the second cut.
    document.cues = {cue(100, 600, "你好，世界"), cue(1100, 1400, "被剪掉"), cue(1800, 2700, "跨越剪切")};
    store.commitCaptions(document, sha256Hex(""), timelineDigest, recorded.package);

    const Json response = succeed({"captions-read", prefixOf(recorded)});
    EXPECT_EQ(response["captionsDigest"], diskDigest(recorded.package.captionsURL()));
    EXPECT_EQ(response["timelineDigest"], timelineDigest);
    EXPECT_EQ(response["language"], "zh-Hans");
    EXPECT_EQ(response["sourceTrack"], "microphone");
    EXPECT_FALSE(response.contains("hint"));

    const Json& cues = response["cues"];
    ASSERT_EQ(cues.size(), 3u);
    EXPECT_EQ(keysOf(cues[0]),
              (std::set<std::string>{"id", "sourceStartMilliseconds", "sourceEndMilliseconds",
                                     "sequenceRanges", "text", "words", "highlights"}));
    EXPECT_EQ(cues[0]["id"], document.cues[0].id.string());
    EXPECT_EQ(cues[0]["text"], "你好，世界");
    // A cue that was cut away is listed all the same.
    EXPECT_EQ(cues[1]["sequenceRanges"], Json::array());

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
    for (const char* command : {"describe", "history", "captions-read", "zoom-regen"}) {
        const ProcessResult ambiguous = cli({command, "1a2b"});
        EXPECT_EQ(ambiguous.exitCode, 2) << command;
        EXPECT_EQ(ambiguous.standardOutput, "");
        EXPECT_EQ(json::parse(ambiguous.standardError)["error"], "project_not_found");
        EXPECT_EQ(json::parse(ambiguous.standardError)["message"], "项目ID前缀不唯一：1a2b");

        const ProcessResult unknown = cli({command, "ffff"});
        EXPECT_EQ(unknown.exitCode, 2) << command;
        EXPECT_EQ(json::parse(unknown.standardError)["message"], "找不到项目：ffff");
    }
    // A prefix that names one project resolves; the placeholder media then
    // fails the command.
    const ProcessResult found = cli({"describe", "1a2b3c"});
    EXPECT_EQ(found.exitCode, 5);
    EXPECT_EQ(json::parse(found.standardError)["error"], "execution");
}

TEST_F(ReadCommandsEndToEnd, MediaThatLostAPromisedTrackFailsWithTheResolversText) {
    const auto recorded = testing::makeRecordedPackage(store, threeSecondRecording());
    // The microphone (track 2 of the manifest) is gone from the file.
    testing::RecordingMovieOptions movie = threeSecondRecording().movie;
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
    EXPECT_EQ(keysOf(info),
              (std::set<std::string>{"protocolVersion", "architecture", "chip", "logicalCoreCount",
                                     "memoryBytes", "operatingSystemVersion", "supportsMetal",
                                     "availableDiskBytes", "privacyNote"}));
    EXPECT_EQ(
        info["privacyNote"],
        "不包含序列号、硬件UUID、用户名或文件列表；安装工具或下载模型前必须展示具体方案并获得用户明确确认。");
}

} // namespace
} // namespace rilo
