// The read commands of the real executable (describe, history, captions-read,
// system-info) on packages made the way a recording makes them, with real
// media, in a library under a temporary data directory.

#include "project/caption/CaptionCodecs.h"
#include "project/document/TimelineCodecs.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/PackageFixtures.h"
#include "support/RecordedPackage.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <set>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using json::Json;
using testing::ProcessResult;

using testing::ms;
using testing::segment;

using testing::fileTreeState;

class ReadCommandsEndToEnd : public testing::CliLibraryTest {
protected:
    static std::string prefixOf(const testing::RecordedPackage& recorded) {
        return recorded.manifest.id.string().substr(0, 8);
    }

    std::string diskDigest(const fs::path& file) const { return sha256Hex(readFileBytes(file)); }

    // Cuts 1000...1500 and 2000...2500 ms of a recording of the default 3 s,
    // plays the middle at double speed and adds one zoom; committed as the
    // command line commits.
    EditTimeline commitEditedTimeline(const testing::RecordedPackage& recorded) {
        const TimelineState current =
            store.readTimelineState(recorded.package, recorded.manifest.duration, false);
        EditTimeline timeline = current.timeline;
        timeline.segments = {segment(ms(0), ms(1000), 1000), segment(ms(1500), ms(2000), 2000),
                             segment(ms(2500), ms(3000), 1000)};
        timeline.zooms = {{Uuid::random(), ms(200), ms(400), ms(600), ms(800), {0.5, 0.5}, 2}};
        store.commitTimeline(timeline, current.digest, std::nullopt, recorded.package);
        return timeline;
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

TEST_F(ReadCommandsEndToEnd, DescribeAndHistoryGiveTheDigestsOnDiskAndChangeNothing) {
    const auto recorded = testing::makeRecordedPackage(store);
    const std::string original = diskDigest(recorded.package.timelineURL());
    const Json empty = succeed({"history", prefixOf(recorded)});
    EXPECT_EQ(empty, Json({{"protocolVersion", 1},
                           {"projectID", recorded.manifest.id.string()},
                           {"entries", Json::array()}}));
    const EditTimeline timeline = commitEditedTimeline(recorded);
    const auto before = fileTreeState(recorded.package.rootURL);

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
    ASSERT_EQ(description["zooms"].size(), 1u);
    EXPECT_EQ(description["zooms"][0]["id"], timeline.zooms[0].id.string());
    EXPECT_EQ(description["timelineDigest"], diskDigest(recorded.package.timelineURL()));

    const Json entries = succeed({"history", prefixOf(recorded)})["entries"];
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0]["index"], 0);
    EXPECT_EQ(entries[0]["timelineDigest"], original);
    EXPECT_EQ(
        diskDigest(recorded.package.timelineHistoryDirectory() / entries[0]["fileName"].get<std::string>()),
        original);
    succeed({"captions-read", prefixOf(recorded)});
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), before);
}

TEST_F(ReadCommandsEndToEnd, CaptionsReadGivesTheHintThenListsEveryCue) {
    const auto recorded = testing::makeRecordedPackage(store);
    commitEditedTimeline(recorded);
    const std::string timelineDigest = diskDigest(recorded.package.timelineURL());
    EXPECT_EQ(succeed({"captions-read", prefixOf(recorded)}),
              Json({{"protocolVersion", 1},
                    {"projectID", recorded.manifest.id.string()},
                    {"timeDomain", "source milliseconds"},
                    {"timelineDigest", timelineDigest},
                    {"captionsDigest", sha256Hex("")},
                    {"cues", Json::array()},
                    {"hint", "当前项目没有字幕，请先执行captions-prepare。"}}));

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
    EXPECT_EQ(response["language"], "zh-Hans");
    EXPECT_FALSE(response.contains("hint"));

    const Json& cues = response["cues"];
    ASSERT_EQ(cues.size(), 3u);
    EXPECT_EQ(keysOf(cues[0]),
              (std::set<std::string>{"id", "sourceStartMilliseconds", "sourceEndMilliseconds",
                                     "sequenceRanges", "text", "words", "highlights"}));
    EXPECT_EQ(cues[0]["text"], "你好，世界");

    const Json description = succeed({"describe", prefixOf(recorded)});
    EXPECT_EQ(description["captionCueCount"], 3);
    EXPECT_EQ(description["captionLanguage"], "zh-Hans");
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
        EXPECT_EQ(cli({command, "ffff"}).exitCode, 2) << command;
    }
}

TEST_F(ReadCommandsEndToEnd, MissingMediaTrackExitsFiveAndInvalidTimelineExitsFour) {
    const auto recorded = testing::makeRecordedPackage(store);
    // The microphone (track 2 of the manifest) is gone from the file.
    testing::RecordingMovieOptions movie;
    movie.microphone.reset();
    testing::writeRecordingMovie(recorded.package.mediaURL(), movie);
    const ProcessResult result = cli({"describe", prefixOf(recorded)});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(json::parse(result.standardError)["message"], "项目媒体缺少 Manifest 指定的第 2 条轨道。");

    // The timeline is checked before the media.
    EditTimeline timeline = store.readTimeline(recorded.package, recorded.manifest.duration, false);
    timeline.segments = {segment(ms(0), ms(1500), 1000), segment(ms(1000), ms(2000), 1000)};
    writeFileAtomically(recorded.package.timelineURL(), json::encodeDocument(timeline));
    for (const char* command : {"describe", "captions-read"}) {
        const ProcessResult invalid = cli({command, prefixOf(recorded)});
        EXPECT_EQ(invalid.exitCode, 4) << command;
        EXPECT_EQ(json::parse(invalid.standardError)["error"], "validation");
        EXPECT_EQ(json::parse(invalid.standardError)["message"], "时间轴片段不能重叠。");
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
