// The grammar of the commands that take options: every word of the usage
// text, the option rules, and the exact rejection of each mistake.

#include "cli/CLIArgumentParser.h"
#include "shared/AppDirectories.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

using Case = CLIArgumentError::Case;
using Line = std::vector<std::string>;
namespace Parser = CLIArgumentParser;

const std::string job = "0F8FAD5B-D9CB-469F-A165-70867728950E";

template <class Command>
Command parseAs(const Line& arguments) {
    const CLICommand command = Parser::parse(arguments);
    const auto* result = std::get_if<Command>(&command);
    if (result == nullptr) {
        ADD_FAILURE() << "parsed into another command";
        return {};
    }
    return *result;
}

CLIMutationRequest mutation(const Line& arguments) {
    return parseAs<command::Mutate>(arguments).request;
}

// Each message starts with the words of its case.
Case caseOf(const std::string& message) {
    if (message.starts_with("参数无效：")) {
        return Case::invalidValue;
    }
    if (message.starts_with("缺少参数：")) {
        return Case::missingValue;
    }
    return message.starts_with("未知命令：") ? Case::unknownCommand : Case::unexpectedArgument;
}

TEST(CLIGrammar, EveryMistakeIsRejectedWithItsCaseAndMessage) {
    const std::vector<std::pair<Line, std::string>> rejections{
        // Commands and their id.
        {{"Describe"}, "未知命令：Describe"},
        {{"list", "--all"}, "无法识别参数：--all"},
        {{"describe", "ab", "cd"}, "无法识别参数：cd"},
        {{"describe"}, "缺少参数：id"},
        {{"cut", "--range", "0,1000"}, "缺少参数：id"},
        {{"help", "editPlan"}, "参数无效：help topic"},
        {{"help", "workflow", "captions"}, "无法识别参数：captions"},
        // Option tokens, values and duplicates. One dash is no option.
        {{"idle", "ab", "--min-ms", "-5"}, "参数无效：--min-ms"},
        {{"cut", "ab", "--range", "0,1000", "extra"}, "无法识别参数：extra"},
        {{"cut", "ab", "--range", "0,1000", "--source", "--source"}, "参数无效：--source"},
        {{"cut", "ab", "--range", "0,1000", "--range", "0,2000"}, "参数无效：--range"},
        {{"cut", "ab", "--range", "0,1000", "--source", "yes"}, "参数无效：--source"},
        {{"idle", "ab", "--track"}, "缺少参数：--track"},
        {{"cut", "ab", "--range", "--source"}, "缺少参数：--range"},
        {{"cut", "ab"}, "缺少参数：--range"},
        // The first problem ends the parse.
        {{"cut", "ab", "--range", "5,1", "--bogus"}, "无法识别参数：--bogus"},
        // Numbers are read in full within their bounds.
        {{"idle", "ab", "--min-ms", "0"}, "参数无效：--min-ms"},
        {{"idle", "ab", "--min-ms", "604800001"}, "参数无效：--min-ms"},
        {{"idle", "ab", "--min-ms", " 5"}, "参数无效：--min-ms"},
        {{"idle", "ab", "--silence-db", "-96.5"}, "参数无效：--silence-db"},
        {{"idle", "ab", "--silence-db", "0.1"}, "参数无效：--silence-db"},
        {{"idle", "ab", "--keep-tail-ms", "-1"}, "参数无效：--keep-tail-ms"},
        {{"idle", "ab", "--min-removal-ms", "16"}, "参数无效：--min-removal-ms"},
        {{"idle", "ab", "--track", "speakers"}, "参数无效：--track"},
        // Ranges and points.
        {{"cut", "ab", "--range", "1000,1000"}, "参数无效：--range"},
        {{"cut", "ab", "--range", "0,604800001"}, "参数无效：--range"},
        {{"cut", "ab", "--range", "1,2,3"}, "参数无效：--range"},
        {{"cut", "ab", "--range", "1.5,3"}, "参数无效：--range"},
        {{"zoom-add", "ab", "--range", "0,1000", "--at", "1.1,0.5"}, "参数无效：--at"},
        {{"zoom-add", "ab", "--range", "0,1000", "--level", "inf"}, "参数无效：--level"},
        // --apply comes only with --expect.
        {{"cut", "ab", "--range", "0,1000", "--apply"}, "参数无效：--apply必须与--expect同时提供"},
        {{"cut", "ab", "--range", "0,1000", "--expect", "d1"}, "参数无效：--apply必须与--expect同时提供"},
        {{"restore", "ab", "--index", "1", "--apply", "yes", "--expect", "d1"}, "参数无效：--apply"},
        // Speed, zoom removal and restore.
        {{"speed-set", "ab", "--range", "0,1000", "--rate", "0.49"}, "参数无效：--rate"},
        {{"speed-set", "ab", "--range", "0,1000", "--rate", "1.005"}, "参数无效：--rate"},
        {{"speed-set", "ab", "--range", "0,1000"}, "缺少参数：--rate"},
        {{"zoom-rm", "ab"}, "参数无效：--index/--all"},
        {{"zoom-rm", "ab", "--index", "1", "--all"}, "参数无效：--index/--all"},
        {{"restore", "ab"}, "缺少参数：--index"},
        // set takes key=value pairs; the protocol tokens still follow the option rules.
        {{"set", "ab", "--apply", "k=v", "--expect", "--d"}, "无法识别参数：--d"},
        {{"set", "ab", "a=1", "b"}, "参数无效：b"},
        {{"set", "ab", "a=1", "a=2"}, "参数无效：a"},
        {{"set", "ab"}, "缺少参数：key=value"},
        {{"set", "--apply", "a=1"}, "缺少参数：id"},
        // Guarded imports need every digest with --apply.
        {{"captions-import", "ab", "--job", job, "--apply", "--expect-timeline", "t"},
         "参数无效：--apply/--expect-timeline/--expect-captions"},
        {{"captions-import", "ab", "--job", job, "--expect-captions", "c"},
         "参数无效：--apply/--expect-timeline/--expect-captions"},
        {{"captions-import", "ab", "--job", "not-a-uuid"}, "参数无效：--job"},
        {{"captions-import", "ab"}, "缺少参数：--job"},
        {{"edit-plan-preview", "ab", "--job", job, "--expect-plan", "p"},
         "参数无效：--apply/--expect-timeline/--expect-captions/--expect-plan"},
        {{"edit-plan-preview", "ab", "--job", job, "--align-audio"}, "无法识别参数：--align-audio"},
        // Output names, frames and previews.
        {{"frame", "ab", "--ms", "0", "--out", "a/b.jpg"}, "参数无效：--out"},
        {{"frame", "ab", "--ms", "0"}, "缺少参数：--out"},
        {{"frame", "ab", "--out", "a.jpg"}, "缺少参数：--ms"},
        {{"frame", "ab", "--ms", "604800001", "--out", "a.jpg"}, "参数无效：--ms"},
        {{"frame", "ab", "--ms", "1", "--out", "a.jpg", "--width", "1"}, "参数无效：--width"},
        {{"preview", "ab", "--range", "0,0", "--out", "p.mp4"}, "参数无效：--range"},
        // Export presets and their overrides.
        {{"export", "ab", "--out", "x.mp4", "--preset", "ultra"}, "参数无效：--preset"},
        {{"export", "ab", "--out", "x.mp4", "--res", "4K"}, "参数无效：--res"},
        {{"export", "ab", "--out", "x.mp4", "--hevc", "1"}, "参数无效：--hevc"},
        {{"export", "ab"}, "缺少参数：--out"},
    };
    for (const auto& [arguments, message] : rejections) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const auto error = rilo::testing::thrown<CLIArgumentError>([&] { Parser::parse(arguments); });
        ASSERT_TRUE(error) << "parsed without error";
        EXPECT_EQ(error->errorCase(), caseOf(message));
        EXPECT_EQ(error->message(), message);
    }
}

TEST(CLIGrammar, EveryCommandOfTheUsageTextHasItsGrammar) {
    const Uuid jobID = *Uuid::parse(job);
    EXPECT_EQ(Parser::parse({"idle", "ab"}),
              CLICommand(command::Idle{"ab", 1500, -42, std::nullopt, 500, 150}));
    EXPECT_EQ(Parser::parse({"captions-prepare", "ab"}),
              CLICommand(command::CaptionsPrepare{"ab", MediaTrackKind::microphone}));
    EXPECT_EQ(Parser::parse({"captions-import", "ab", "--job", job}),
              CLICommand(command::CaptionsImport{{"ab", jobID, false, false, std::nullopt, std::nullopt}}));
    EXPECT_EQ(Parser::parse({"edit-plan-preview", "ab", "--job", job}),
              CLICommand(command::EditPlan{{"ab", jobID, false, std::nullopt, std::nullopt, std::nullopt}}));
    EXPECT_EQ(
        mutation({"cut", "ab", "--range", "0,1000"}),
        (CLIMutationRequest{"ab", mutation::Cut{{0, 1000}, CLITimeDomain::sequence}, false, std::nullopt}));
    EXPECT_EQ(mutation({"speed-set", "ab", "--range", "0,1000", "--rate", "2.0"}).mutation,
              CLIMutation(mutation::Speed{{0, 1000}, CLITimeDomain::sequence, TimelinePlaybackRate{2000}}));
    EXPECT_EQ(mutation({"zoom-add", "ab", "--range", "0,1000"}).mutation,
              CLIMutation(mutation::ZoomAdd{{0, 1000}, CLITimeDomain::sequence, 1.8, std::nullopt}));
    EXPECT_EQ(mutation({"zoom-rm", "ab", "--all"}).mutation,
              CLIMutation(mutation::ZoomRemove{std::nullopt, true}));
    EXPECT_EQ(mutation({"zoom-regen", "ab"}).mutation, CLIMutation(mutation::ZoomRegenerate{}));
    EXPECT_EQ(mutation({"set", "ab", "canvas.aspect=source"}).mutation,
              CLIMutation(mutation::Settings{{{"canvas.aspect", "source"}}}));
    EXPECT_EQ(mutation({"restore", "ab", "--index", "3"}).mutation, CLIMutation(mutation::RestoreHistory{3}));
    EXPECT_EQ(Parser::parse({"frame", "ab", "--ms", "5000", "--out", "/tmp/f.jpg"}),
              CLICommand(command::Frame{"ab", 5000, "/tmp/f.jpg", 1280, false}));
    EXPECT_EQ(Parser::parse({"preview", "ab", "--range", "0,1000", "--out", "/tmp/p.mp4", "--replace"}),
              CLICommand(command::Preview{"ab", {0, 1000}, "/tmp/p.mp4", true}));
    EXPECT_EQ(Parser::parse({"export", "ab", "--out", "/tmp/r.mp4"}),
              CLICommand(command::Export{"ab", ExportConfiguration::preset(ExportPreset::standard),
                                         "/tmp/r.mp4", false}));
    EXPECT_EQ(Parser::parse({"-h", "output"}), CLICommand(command::Help{CLIAgentHelpTopic::output}));
    EXPECT_EQ(Parser::parse({"help", "edit-plan"}), CLICommand(command::Help{CLIAgentHelpTopic::editPlan}));
    EXPECT_EQ(Parser::parse({"edit-plan-prepare", "ab"}), CLICommand(command::EditPlanPrepare{"ab"}));
}

TEST(CLIGrammar, AcceptedValuesAreReadInFull) {
    const auto idle = [](const std::string& option, const std::string& value) {
        return parseAs<command::Idle>({"idle", "ab", option, value});
    };
    // One dash is no option: a negative number is a value.
    EXPECT_EQ(idle("--silence-db", "-60.5").silenceDecibels, -60.5);
    EXPECT_EQ(idle("--min-ms", "+604800000").minimumMilliseconds, 604'800'000);
    EXPECT_EQ(idle("--min-removal-ms", "17").minimumRemovalMilliseconds, 17);
    EXPECT_EQ(idle("--track", "system-audio").track, MediaTrackKind::systemAudio);
    EXPECT_EQ(Parser::parseRange("1000,1001"), (CLIRange{1000, 1001}));
    EXPECT_EQ(Parser::parsePoint("0,1"), (PointValue{0, 1}));

    EXPECT_EQ(mutation({"speed-set", "ab", "--range", "0,1000", "--rate", "1.25"}).mutation,
              CLIMutation(mutation::Speed{{0, 1000}, CLITimeDomain::sequence, TimelinePlaybackRate{1250}}));
    const auto zoom = std::get<mutation::ZoomAdd>(
        mutation({"zoom-add", "ab", "--range", "0,1000", "--level", "2.5", "--at", "0.4,0.5"}).mutation);
    EXPECT_EQ(zoom.level, 2.5);
    EXPECT_EQ(zoom.focus, (PointValue{0.4, 0.5}));
    EXPECT_EQ(mutation({"zoom-rm", "ab", "--index", "2"}).mutation,
              CLIMutation(mutation::ZoomRemove{2, false}));
    EXPECT_EQ(mutation({"restore", "ab", "--index", "-1"}).mutation,
              CLIMutation(mutation::RestoreHistory{-1}));
    EXPECT_EQ(mutation({"set", "ab", "a=1=2", "b=", "--x=--y"}).mutation,
              CLIMutation(mutation::Settings{{{"a", "1=2"}, {"b", ""}, {"--x", "--y"}}}));
}

TEST(CLIGrammar, ApplyAndExpectGoAnywhereAmongTheOptions) {
    const auto applied =
        mutation({"cut", "ab", "--apply", "--range", "0,1000", "--source", "--expect", "d1"});
    EXPECT_TRUE(applied.appliesChanges);
    EXPECT_EQ(applied.expectedDigest, "d1");
    EXPECT_EQ(applied.mutation, CLIMutation(mutation::Cut{{0, 1000}, CLITimeDomain::source}));

    EXPECT_EQ(
        parseAs<command::CaptionsImport>({"captions-import", "ab", "--job", job, "--align-audio",
                                          "--expect-captions", "c", "--apply", "--expect-timeline", "t"})
            .request,
        (CLICaptionImportRequest{"ab", *Uuid::parse(job), true, true, "t", "c"}));
    EXPECT_EQ(parseAs<command::EditPlan>({"edit-plan-preview", "ab", "--job", job, "--apply", "--expect-plan",
                                          "p", "--expect-timeline", "t", "--expect-captions", "c"})
                  .request,
              (CLIEditPlanRequest{"ab", *Uuid::parse(job), true, "t", "c", "p"}));
}

TEST(CLIGrammar, OutputNamesAndExportOverrides) {
    const auto frame = [](const std::string& out) {
        return parseAs<command::Frame>({"frame", "ab", "--ms", "0", "--out", out}).outputURL;
    };
    EXPECT_EQ(frame("/abs/dir/a.jpg"), std::filesystem::path("/abs/dir/a.jpg"));
    EXPECT_EQ(frame("..shot"), defaultExportsDirectory() / "..shot");
    EXPECT_EQ(
        parseAs<command::Frame>({"frame", "ab", "--ms", "604800000", "--out", "a.jpg", "--width", "3840"})
            .width,
        3840);

    const auto configuration = [](Line more) {
        Line line{"export", "ab", "--out", "x.mp4"};
        line.insert(line.end(), more.begin(), more.end());
        return parseAs<command::Export>(line).configuration;
    };
    EXPECT_EQ(configuration({"--preset", "high", "--fps", "30"}),
              (ExportConfiguration{ExportResolution::p2160, ExportFrameRate::fps30, ExportQuality::high,
                                   ExportCodec::h264}));
    EXPECT_EQ(configuration({"--hevc", "--quality", "high", "--res", "original", "--fps", "source"}),
              (ExportConfiguration{ExportResolution::original, ExportFrameRate::source, ExportQuality::high,
                                   ExportCodec::hevc}));
    EXPECT_EQ(configuration({"--res", "720p"}).resolution, ExportResolution::p720);
    EXPECT_EQ(configuration({"--res", "1440p"}).resolution, ExportResolution::p1440);
    EXPECT_EQ(configuration({"--res", "4k"}).resolution, ExportResolution::p2160);
}

} // namespace
} // namespace rilo::cli
