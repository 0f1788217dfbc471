// The caption exchange of the real executable: captions-prepare writes the
// audio and the job, an agent's result file is imported, aligned and
// committed, and bad jobs, results and projects fail without touching the
// project. Real media in a library under a temporary data directory.

#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
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

constexpr const char* emptyDigest = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class CaptionExchangeEndToEnd : public testing::CliLibraryTest {
protected:
    static std::string prefixOf(const testing::RecordedPackage& recorded) {
        return recorded.manifest.id.string().substr(0, 8);
    }

    // 8 s whose microphone is silent from 3 s to 6 s.
    testing::RecordedPackage makeSpokenRecording() {
        testing::RecordedPackageOptions options;
        options.movie.duration = ProjectTime::fromSeconds(8);
        options.movie.microphone->silentRanges = {between(ms(3000), ms(6000))};
        return testing::makeRecordedPackage(store, options);
    }

    // The agent's result for a prepared job.
    static Json resultFor(const Json& prepared, Json cues, const std::string& language = "zh-CN") {
        Json result = prepared["captionFormatExample"];
        result["language"] = language;
        result["cues"] = std::move(cues);
        return result;
    }

    static void writeResult(const Json& prepared, const Json& result) {
        writeFileAtomically(prepared["resultPath"].get<std::string>(), result.dump());
    }

    static Json cue(std::int64_t start, std::int64_t end, const std::string& text) {
        return {{"startMilliseconds", start}, {"endMilliseconds", end}, {"text", text}};
    }

    static std::vector<std::string> words(const Json& arguments) {
        return arguments.get<std::vector<std::string>>();
    }
};

TEST_F(CaptionExchangeEndToEnd, PrepareWritesTheWavThenImportSimplifiesAlignsAndCommitsWithBothDigests) {
    const auto recorded = makeSpokenRecording();
    const std::string prefix = prefixOf(recorded);
    const std::string id = recorded.manifest.id.string();
    const auto untouched = fileTreeState(recorded.package.rootURL);

    const Json prepared = succeed({"captions-prepare", prefix});
    const std::string jobID = prepared["jobID"].get<std::string>();
    const fs::path jobDirectory = dataHome / "Rilo/AgentExchange" / jobID;
    EXPECT_EQ(prepared["protocolVersion"], 1);
    EXPECT_EQ(prepared["projectID"], id);
    EXPECT_EQ(prepared["sourceTrack"], "microphone");
    EXPECT_EQ(prepared["timeDomain"], "source milliseconds");
    EXPECT_EQ(prepared["audioPath"], (jobDirectory / "source.wav").string());
    EXPECT_EQ(prepared["resultPath"], (jobDirectory / "captions.json").string());
    EXPECT_EQ(prepared["timelineDigest"], store.timelineDigest(recorded.package));
    EXPECT_EQ(prepared["instructions"].size(), 4u);
    EXPECT_EQ(prepared["instructions"][3], "不得直接修改项目文件。");
    EXPECT_EQ(prepared["captionFormatExample"]["jobID"], jobID);
    EXPECT_EQ(prepared["captionFormatExample"]["cues"][0]["text"], "替换为转录文本");
    EXPECT_EQ(testing::entryNames(jobDirectory), (std::vector<std::string>{"job.json", "source.wav"}));
    // Preparing leaves the package as it was.
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), untouched);

    // 16 kHz mono 16-bit PCM in a WAVE file, the whole 8 s of the track.
    const testing::ProcessResult probe = testing::runProcess(
        "/usr/bin/ffprobe",
        {"-v", "error", "-show_entries", "stream=codec_name,sample_rate,channels:format=format_name,duration",
         "-of", "json", prepared["audioPath"].get<std::string>()});
    ASSERT_EQ(probe.exitCode, 0) << probe.standardError;
    const Json probed = json::parse(probe.standardOutput);
    ASSERT_EQ(probed["streams"].size(), 1u);
    EXPECT_EQ(probed["streams"][0]["codec_name"], "pcm_s16le");
    EXPECT_EQ(probed["streams"][0]["sample_rate"], "16000");
    EXPECT_EQ(probed["streams"][0]["channels"], 1);
    EXPECT_EQ(probed["format"]["format_name"], "wav");
    EXPECT_NEAR(std::stod(probed["format"]["duration"].get<std::string>()), 8.0, 0.03);

    const Json job = json::parse(readFileBytes(jobDirectory / "job.json"));
    EXPECT_EQ(job["sourceAudioDigest"], sha256HexOfFile(jobDirectory / "source.wav"));
    EXPECT_EQ(prepared["captionFormatExample"]["sourceAudioDigest"], job["sourceAudioDigest"]);
    EXPECT_EQ(job["sourceDurationMilliseconds"], 8000);

    // Traditional script, a closing period, a highlight; the second cue
    // claims the whole silence before its sound at 6 s.
    Json first = cue(500, 2500, "這是一個測試。");
    first["highlights"] = Json::array({{{"text", "測試"}}});
    first["words"] = Json::array({cue(600, 1000, "這是"), cue(1000, 1500, "測試")});
    writeResult(prepared, resultFor(prepared, Json::array({first, cue(3000, 7500, "開始說話")})));

    const Json preview = succeed({"captions-import", prefix, "--job", jobID, "--align-audio"});
    EXPECT_EQ(preview["applied"], false);
    EXPECT_EQ(preview["cueCount"], 2);
    EXPECT_EQ(preview["wordTimingCount"], 2);
    EXPECT_EQ(preview["highlightedCueCount"], 1);
    EXPECT_EQ(preview["highlightCount"], 1);
    EXPECT_EQ(preview["captionsDigest"], emptyDigest);
    EXPECT_EQ(preview["warnings"], Json::array());
    const Json& alignment = preview["audioAlignment"];
    EXPECT_EQ(alignment["analyzedTrack"], "microphone");
    EXPECT_EQ(alignment["analysisMethod"], "adaptive-peak-dBFS");
    EXPECT_EQ(alignment["bucketMilliseconds"], 20);
    ASSERT_EQ(alignment["adjustments"].size(), 2u);
    const Json& tightened = alignment["adjustments"][1];
    EXPECT_EQ(tightened["action"], "aligned");
    EXPECT_EQ(tightened["originalRange"], Json({{"startMilliseconds", 3000}, {"endMilliseconds", 7500}}));
    // 12.5 ms before the sound comes back, give or take the codec's smearing.
    const std::int64_t alignedStart = tightened["adjustedRange"]["startMilliseconds"].get<std::int64_t>();
    EXPECT_NEAR(alignedStart, 5988, 45);
    EXPECT_EQ(tightened["adjustedRange"]["endMilliseconds"], 7500);
    const std::string timelineDigest = store.timelineDigest(recorded.package);
    EXPECT_EQ(
        words(preview["confirmationArguments"]),
        (std::vector<std::string>{"captions-import", id, "--job", jobID, "--align-audio", "--apply",
                                  "--expect-timeline", timelineDigest, "--expect-captions", emptyDigest}));
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), untouched);

    // Without alignment the cue keeps its claimed range.
    const Json plain = succeed({"captions-import", prefix, "--job", jobID});
    EXPECT_FALSE(plain.contains("audioAlignment"));
    EXPECT_EQ(words(plain["confirmationArguments"]).size(), 9u);

    const Json applied = succeed(words(preview["confirmationArguments"]));
    EXPECT_EQ(applied["applied"], true);
    EXPECT_FALSE(applied.contains("confirmationArguments"));
    const fs::path captionsFile = recorded.package.rootURL / "edits/captions.json";
    EXPECT_EQ(applied["resultingDigest"], sha256HexOfFile(captionsFile));
    const Json stored = json::parse(readFileBytes(captionsFile));
    EXPECT_EQ(stored["language"], "zh-Hans");
    EXPECT_EQ(stored["sourceTrack"], "microphone");
    EXPECT_EQ(stored["sourceAudioDigest"], job["sourceAudioDigest"]);
    EXPECT_EQ(stored["basedOnTimelineDigest"], timelineDigest);
    ASSERT_EQ(stored["cues"].size(), 2u);
    EXPECT_EQ(stored["cues"][0]["text"], "这是一个测试");
    EXPECT_EQ(stored["cues"][0]["words"][1]["text"], "测试");
    EXPECT_EQ(stored["cues"][0]["highlights"][0], Json({{"text", "测试"}, {"occurrence", 1}}));
    EXPECT_EQ(stored["cues"][1]["text"], "开始说话");
    EXPECT_EQ(stored["cues"][1]["start"]["nanoseconds"].get<std::int64_t>() / 1'000'000, alignedStart);

    // The same confirmation again is stale: the captions changed under it.
    fail(words(preview["confirmationArguments"]), "captions_conflict", 3);
}

TEST_F(CaptionExchangeEndToEnd, BadJobsResultsAndProjectsFailWithTheirMessageAndChangeNothing) {
    const auto recorded = makeSpokenRecording();
    const std::string prefix = prefixOf(recorded);
    testing::RecordedPackageOptions systemAudioOnly;
    systemAudioOnly.movie.microphone.reset();
    const auto withoutMicrophone = testing::makeRecordedPackage(store, systemAudioOnly);

    const Json prepared = succeed({"captions-prepare", prefix});
    const std::string jobID = prepared["jobID"].get<std::string>();
    const Json other = succeed({"captions-prepare", prefixOf(withoutMicrophone), "--track", "system-audio"});
    EXPECT_EQ(other["sourceTrack"], "systemAudio");
    const auto exchangeBefore = fileTreeState(dataHome / "Rilo/AgentExchange");
    const auto before = fileTreeState(library);

    EXPECT_EQ(fail({"captions-prepare", prefixOf(withoutMicrophone)}, "execution", 5),
              "项目没有可用于字幕的microphone音频轨。");
    EXPECT_EQ(fileTreeState(dataHome / "Rilo/AgentExchange"), exchangeBefore);

    const std::string invalid = "Caption Exchange Schema 1文档无效。";
    EXPECT_EQ(fail({"captions-import", prefix, "--job", Uuid::random().string()}, "execution", 5), invalid);
    // Another project's job.
    EXPECT_EQ(fail({"captions-import", prefix, "--job", other["jobID"].get<std::string>()}, "execution", 5),
              "项目剪辑已变化，请重新生成字幕。");
    // No result yet, then a result that is not JSON.
    EXPECT_EQ(fail({"captions-import", prefix, "--job", jobID}, "execution", 5), invalid);
    writeFileAtomically(prepared["resultPath"].get<std::string>(), "字幕：你好");
    EXPECT_EQ(fail({"captions-import", prefix, "--job", jobID}, "execution", 5), invalid);

    // Overlapping cues; then a result for other audio.
    writeResult(prepared, resultFor(prepared, Json::array({cue(0, 2000, "一"), cue(1999, 3000, "二")})));
    EXPECT_EQ(fail({"captions-import", prefix, "--job", jobID}, "execution", 5),
              "字幕文本、顺序或时间范围无效。");
    Json foreign = resultFor(prepared, Json::array({cue(0, 2000, "一")}));
    foreign["sourceAudioDigest"] = emptyDigest;
    writeResult(prepared, foreign);
    EXPECT_EQ(fail({"captions-import", prefix, "--job", jobID}, "execution", 5),
              "字幕对应的音频与当前任务不一致。");

    // A good result confirmed with only one digest.
    writeResult(prepared, resultFor(prepared, Json::array({cue(0, 2000, "一")})));
    EXPECT_EQ(fail({"captions-import", prefix, "--job", jobID, "--apply", "--expect-timeline",
                    prepared["timelineDigest"].get<std::string>()},
                   "invalid_arguments", 1),
              "参数无效：--apply/--expect-timeline/--expect-captions");
    EXPECT_EQ(fileTreeState(library), before);

    // A cut after preparation retires the job; a job prepared after it
    // refuses a cue across the cut.
    const TimelineState current =
        store.readTimelineState(recorded.package, recorded.manifest.duration, false);
    EditTimeline timeline = current.timeline;
    timeline.segments = {segment(ms(0), ms(4000)), segment(ms(5000), recorded.manifest.duration)};
    store.commitTimeline(timeline, current.digest, std::nullopt, recorded.package);
    EXPECT_EQ(fail({"captions-import", prefix, "--job", jobID}, "execution", 5),
              "项目剪辑已变化，请重新生成字幕。");
    const Json afterCut = succeed({"captions-prepare", prefix});
    writeResult(afterCut, resultFor(afterCut, Json::array({cue(0, 2000, "一"), cue(3500, 5500, "二")})));
    const auto cutState = fileTreeState(library);
    EXPECT_EQ(
        fail({"captions-import", prefix, "--job", afterCut["jobID"].get<std::string>()}, "execution", 5),
        "最终字幕不能包含已删除内容或跨越剪切边界，请按最新保留片段重新生成。");
    EXPECT_EQ(fileTreeState(library), cutState);
    EXPECT_FALSE(fs::exists(recorded.package.rootURL / "edits/captions.json"));
}

} // namespace
} // namespace rilo
