// The grammar of the commands that take options: every word of the usage
// text, the option rules, and the exact rejection of each mistake.

#include "cli/CLIArgumentParser.h"
#include "shared/AppDirectories.h"

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

void expectRejected(const Line& arguments, Case errorCase, const std::string& message) {
    try {
        Parser::parse(arguments);
        ADD_FAILURE() << "parsed without error: " << ::testing::PrintToString(arguments);
    } catch (const CLIArgumentError& error) {
        EXPECT_EQ(error.errorCase(), errorCase) << ::testing::PrintToString(arguments);
        EXPECT_EQ(error.message(), message) << ::testing::PrintToString(arguments);
    }
}

void expectInvalid(const Line& arguments, const std::string& value) {
    expectRejected(arguments, Case::invalidValue, "参数无效：" + value);
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
    for (const char* word : {"idle", "cut", "set", "frame", "export", "zoom-regen"}) {
        expectRejected({word, "--range", "0,1000"}, Case::missingValue, "缺少参数：id");
    }
}

TEST(CLIGrammar, OptionTokensValuesAndDuplicates) {
    // One dash is no option: a negative number is a value.
    EXPECT_EQ(parseAs<command::Idle>({"idle", "ab", "--silence-db", "-42"}).silenceDecibels, -42);
    EXPECT_EQ(parseAs<command::Idle>({"idle", "ab", "--silence-db", "-60.5"}).silenceDecibels, -60.5);
    expectInvalid({"idle", "ab", "--min-ms", "-5"}, "--min-ms");
    expectInvalid({"cut", "ab", "--range", "-5,100"}, "--range");

    expectRejected({"cut", "ab", "--range", "0,1000", "extra"}, Case::unexpectedArgument,
                   "无法识别参数：extra");
    expectRejected({"cut", "ab", "ab2", "--range", "0,1000"}, Case::unexpectedArgument, "无法识别参数：ab2");
    expectRejected({"cut", "ab", "--range", "0,1000", "--level", "2"}, Case::unexpectedArgument,
                   "无法识别参数：--level");
    expectInvalid({"cut", "ab", "--range", "0,1000", "--source", "--source"}, "--source");
    expectInvalid({"cut", "ab", "--range", "0,1000", "--range", "0,2000"}, "--range");
    expectInvalid({"cut", "ab", "--range", "0,1000", "--source", "yes"}, "--source");
    expectInvalid({"frame", "ab", "--ms", "0", "--out", "/a.jpg", "--replace", "1"}, "--replace");
    // An option that takes a value and has none is missing its value.
    expectRejected({"idle", "ab", "--track"}, Case::missingValue, "缺少参数：--track");
    expectRejected({"cut", "ab", "--range", "--source"}, Case::missingValue, "缺少参数：--range");
    // The first problem ends the parse: the unknown option comes before the bad range.
    expectRejected({"cut", "ab", "--range", "5,1", "--bogus"}, Case::unexpectedArgument,
                   "无法识别参数：--bogus");
    expectInvalid({"frame", "ab", "--ms", "x", "--out", "a/b.jpg"}, "--ms");
}

TEST(CLIGrammar, NumbersAreReadInFullWithinTheirBounds) {
    const auto idle = [](const std::string& option, const std::string& value) {
        return parseAs<command::Idle>({"idle", "ab", option, value});
    };
    EXPECT_EQ(idle("--min-ms", "1").minimumMilliseconds, 1);
    EXPECT_EQ(idle("--min-ms", "+604800000").minimumMilliseconds, 604'800'000);
    EXPECT_EQ(idle("--silence-db", "-96").silenceDecibels, -96);
    EXPECT_EQ(idle("--silence-db", "0").silenceDecibels, 0);
    EXPECT_EQ(idle("--keep-tail-ms", "0").keepTailMilliseconds, 0);
    EXPECT_EQ(idle("--min-removal-ms", "17").minimumRemovalMilliseconds, 17);
    EXPECT_EQ(idle("--track", "system-audio").track, MediaTrackKind::systemAudio);
    for (const auto& [option, value] : std::vector<std::pair<std::string, std::string>>{
             {"--min-ms", "0"},
             {"--min-ms", "604800001"},
             {"--min-ms", "1.5"},
             {"--min-ms", "1e3"},
             {"--min-ms", " 5"},
             {"--min-ms", "99999999999999999999"},
             {"--silence-db", "-96.5"},
             {"--silence-db", "0.1"},
             {"--silence-db", "-inf"},
             {"--silence-db", "nan"},
             {"--silence-db", "-4x"},
             {"--keep-tail-ms", "-1"},
             {"--min-removal-ms", "16"},
             {"--track", "speakers"},
         }) {
        expectInvalid({"idle", "ab", option, value}, option);
    }
}

TEST(CLIGrammar, RangesAndPoints) {
    EXPECT_EQ(Parser::parseRange("0,604800000"), (CLIRange{0, 604'800'000}));
    EXPECT_EQ(Parser::parseRange("1000,1001"), (CLIRange{1000, 1001}));
    for (const char* text : {"1000,1000", "2000,1000", "0,604800001", "-1,5", "5", "1,2,3", ",5", "5,", "a,5",
                             "1.5,3", "1, 2", ""}) {
        expectInvalid({"cut", "ab", "--range", text}, "--range");
    }
    expectRejected({"cut", "ab"}, Case::missingValue, "缺少参数：--range");

    EXPECT_EQ(Parser::parsePoint("0.4,0.5"), (PointValue{0.4, 0.5}));
    EXPECT_EQ(Parser::parsePoint("0,1"), (PointValue{0, 1}));
    for (const char* text : {"1.1,0.5", "0.5,-0.1", "nan,0.5", "0.5", "0.5,0.5,0.5", "0.5,x"}) {
        expectInvalid({"zoom-add", "ab", "--range", "0,1000", "--at", text}, "--at");
    }
}

TEST(CLIGrammar, ApplyComesOnlyWithExpect) {
    const std::string rule = "--apply必须与--expect同时提供";
    expectInvalid({"cut", "ab", "--range", "0,1000", "--apply"}, rule);
    expectInvalid({"cut", "ab", "--range", "0,1000", "--expect", "d1"}, rule);
    expectInvalid({"cut", "ab", "--range", "0,1000", "--apply", "--expect"}, rule);
    expectInvalid({"zoom-regen", "ab", "--expect"}, rule);
    expectInvalid({"restore", "ab", "--index", "1", "--apply", "yes", "--expect", "d1"}, "--apply");

    const auto applied =
        mutation({"cut", "ab", "--apply", "--range", "0,1000", "--source", "--expect", "d1"});
    EXPECT_TRUE(applied.appliesChanges);
    EXPECT_EQ(applied.expectedDigest, "d1");
    EXPECT_EQ(applied.mutation, CLIMutation(mutation::Cut{{0, 1000}, CLITimeDomain::source}));
    const auto regenerated = mutation({"zoom-regen", "ab", "--expect", "d2", "--apply"});
    EXPECT_TRUE(regenerated.appliesChanges);
    EXPECT_EQ(regenerated.expectedDigest, "d2");
}

TEST(CLIGrammar, SpeedZoomAndRestoreOptions) {
    const auto rate = [](const std::string& text) {
        return std::get<mutation::Speed>(
                   mutation({"speed-set", "ab", "--range", "0,1000", "--rate", text}).mutation)
            .rate;
    };
    EXPECT_EQ(rate("0.5"), TimelinePlaybackRate{500});
    EXPECT_EQ(rate("4"), TimelinePlaybackRate{4000});
    EXPECT_EQ(rate("1.25"), TimelinePlaybackRate{1250});
    for (const char* text : {"0.49", "4.01", "1.005", "fast", "0", "-2"}) {
        expectInvalid({"speed-set", "ab", "--range", "0,1000", "--rate", text}, "--rate");
    }
    expectRejected({"speed-set", "ab", "--range", "0,1000"}, Case::missingValue, "缺少参数：--rate");

    const auto zoom = std::get<mutation::ZoomAdd>(
        mutation({"zoom-add", "ab", "--range", "0,1000", "--level", "2.5", "--at", "0.4,0.5"}).mutation);
    EXPECT_EQ(zoom.level, 2.5);
    EXPECT_EQ(zoom.focus, (PointValue{0.4, 0.5}));
    expectInvalid({"zoom-add", "ab", "--range", "0,1000", "--level", "inf"}, "--level");

    EXPECT_EQ(mutation({"zoom-rm", "ab", "--index", "2"}).mutation,
              CLIMutation(mutation::ZoomRemove{2, false}));
    expectInvalid({"zoom-rm", "ab"}, "--index/--all");
    expectInvalid({"zoom-rm", "ab", "--index", "1", "--all"}, "--index/--all");
    expectInvalid({"zoom-rm", "ab", "--index", "one"}, "--index");
    expectInvalid({"zoom-rm", "ab", "--all", "3"}, "--all");

    EXPECT_EQ(mutation({"restore", "ab", "--index", "-1"}).mutation,
              CLIMutation(mutation::RestoreHistory{-1}));
    expectRejected({"restore", "ab"}, Case::missingValue, "缺少参数：--index");
}

TEST(CLIGrammar, SetTakesPairsWhoseValuesMayBeAnything) {
    EXPECT_EQ(mutation({"set", "ab", "a=1=2", "b=", "--x=--y"}).mutation,
              CLIMutation(mutation::Settings{{{"a", "1=2"}, {"b", ""}, {"--x", "--y"}}}));
    // The protocol tokens set aside still go through the option rules.
    expectRejected({"set", "ab", "--apply", "k=v", "--expect", "--d"}, Case::unexpectedArgument,
                   "无法识别参数：--d");
}

TEST(CLIGrammar, SetRejections) {
    expectInvalid({"set", "ab", "a=1", "b"}, "b");
    expectInvalid({"set", "ab", "a=1", "a=2"}, "a");
    expectRejected({"set", "ab"}, Case::missingValue, "缺少参数：key=value");
    expectRejected({"set", "ab", "--apply", "--expect", "d"}, Case::missingValue, "缺少参数：key=value");
    expectRejected({"set", "ab", "a=1", "--expect"}, Case::missingValue, "缺少参数：--expect");
    expectRejected({"set", "--apply", "a=1"}, Case::missingValue, "缺少参数：id");
    expectInvalid({"set", "ab", "a=1", "--apply"}, "--apply必须与--expect同时提供");
    expectInvalid({"set", "ab", "a=1", "--apply", "--apply", "--expect", "d"}, "--apply");

    const auto applied = mutation({"set", "ab", "--apply", "a=1", "--expect", "d9"});
    EXPECT_TRUE(applied.appliesChanges);
    EXPECT_EQ(applied.expectedDigest, "d9");
}

TEST(CLIGrammar, GuardedImportsNeedEveryDigestWithApply) {
    const std::string captionsRule = "--apply/--expect-timeline/--expect-captions";
    const Line importLine{"captions-import", "ab", "--job", job};
    const auto withImport = [&](const Line& more) {
        Line line = importLine;
        line.insert(line.end(), more.begin(), more.end());
        return line;
    };
    expectInvalid(withImport({"--apply", "--expect-timeline", "t"}), captionsRule);
    expectInvalid(withImport({"--expect-captions", "c"}), captionsRule);
    expectInvalid(withImport({"--apply", "--expect-timeline", "t", "--expect-captions"}), captionsRule);
    expectInvalid(withImport({"--align-audio", "yes"}), "--align-audio");
    expectInvalid({"captions-import", "ab", "--job", "not-a-uuid"}, "--job");
    expectRejected({"captions-import", "ab"}, Case::missingValue, "缺少参数：--job");

    const auto applied =
        parseAs<command::CaptionsImport>(
            withImport({"--align-audio", "--expect-captions", "c", "--apply", "--expect-timeline", "t"}))
            .request;
    EXPECT_EQ(applied, (CLICaptionImportRequest{"ab", *Uuid::parse(job), true, true, "t", "c"}));

    const std::string planRule = "--apply/--expect-timeline/--expect-captions/--expect-plan";
    expectInvalid({"edit-plan-preview", "ab", "--job", job, "--apply", "--expect-timeline", "t",
                   "--expect-captions", "c"},
                  planRule);
    expectInvalid({"edit-plan-preview", "ab", "--job", job, "--expect-plan", "p"}, planRule);
    expectRejected({"edit-plan-preview", "ab", "--job", job, "--align-audio"}, Case::unexpectedArgument,
                   "无法识别参数：--align-audio");
    EXPECT_EQ(parseAs<command::EditPlan>({"edit-plan-preview", "ab", "--job", job, "--apply", "--expect-plan",
                                          "p", "--expect-timeline", "t", "--expect-captions", "c"})
                  .request,
              (CLIEditPlanRequest{"ab", *Uuid::parse(job), true, "t", "c", "p"}));
}

TEST(CLIGrammar, OutputNamesAndFrameOptions) {
    const auto frame = [](const std::string& out) {
        return parseAs<command::Frame>({"frame", "ab", "--ms", "0", "--out", out}).outputURL;
    };
    EXPECT_EQ(frame("/abs/dir/a.jpg"), std::filesystem::path("/abs/dir/a.jpg"));
    EXPECT_EQ(frame("shot.jpg"), defaultExportsDirectory() / "shot.jpg");
    EXPECT_EQ(frame("..shot"), defaultExportsDirectory() / "..shot");
    for (const char* out : {"a/b.jpg", "..", ".", "", "./a.jpg"}) {
        expectInvalid({"frame", "ab", "--ms", "0", "--out", out}, "--out");
    }
    expectRejected({"frame", "ab", "--ms", "0"}, Case::missingValue, "缺少参数：--out");
    expectRejected({"frame", "ab", "--out", "a.jpg"}, Case::missingValue, "缺少参数：--ms");
    expectInvalid({"frame", "ab", "--ms", "604800001", "--out", "a.jpg"}, "--ms");

    const auto width = [](const std::string& value) {
        return parseAs<command::Frame>(
                   {"frame", "ab", "--ms", "604800000", "--out", "a.jpg", "--width", value})
            .width;
    };
    EXPECT_EQ(width("2"), 2);
    EXPECT_EQ(width("3840"), 3840);
    expectInvalid({"frame", "ab", "--ms", "1", "--out", "a.jpg", "--width", "1"}, "--width");
    expectInvalid({"frame", "ab", "--ms", "1", "--out", "a.jpg", "--width", "3841"}, "--width");
    expectInvalid({"preview", "ab", "--range", "0,0", "--out", "p.mp4"}, "--range");
}

TEST(CLIGrammar, ExportPresetsAndTheirOverrides) {
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
    const std::vector<std::pair<std::string, ExportResolution>> resolutions{
        {"720p", ExportResolution::p720},
        {"1440p", ExportResolution::p1440},
        {"4k", ExportResolution::p2160}};
    for (const auto& [word, value] : resolutions) {
        EXPECT_EQ(configuration({"--res", word}).resolution, value) << word;
    }
    EXPECT_EQ(configuration({"--fps", "60", "--preset", "compact"}).frameRate, ExportFrameRate::fps60);

    const Line line{"export", "ab", "--out", "x.mp4"};
    const auto rejected = [&](const std::string& option, const std::string& value) {
        Line bad = line;
        bad.insert(bad.end(), {option, value});
        expectInvalid(bad, option);
    };
    rejected("--preset", "ultra");
    rejected("--res", "2160p");
    rejected("--res", "4K");
    rejected("--fps", "24");
    rejected("--quality", "best");
    rejected("--hevc", "1");
    expectRejected({"export", "ab"}, Case::missingValue, "缺少参数：--out");
}

TEST(CLIGrammar, HelpTopics) {
    EXPECT_EQ(Parser::parse({}), CLICommand(command::Help{}));
    for (const char* word : {"help", "--help", "-h"}) {
        EXPECT_EQ(Parser::parse({word}), CLICommand(command::Help{})) << word;
    }
    EXPECT_EQ(Parser::parse({"help", "edit-plan"}), CLICommand(command::Help{CLIAgentHelpTopic::editPlan}));
    EXPECT_EQ(Parser::parse({"-h", "output"}), CLICommand(command::Help{CLIAgentHelpTopic::output}));
    expectInvalid({"help", "nonsense"}, "help topic");
    // Topic words are exact: the case name of a topic is not its word.
    expectInvalid({"help", "editPlan"}, "help topic");
    expectRejected({"help", "workflow", "captions"}, Case::unexpectedArgument, "无法识别参数：captions");
}

TEST(CLIGrammar, CommandsWithoutOptions) {
    EXPECT_EQ(Parser::parse({"list"}), CLICommand(command::List{}));
    EXPECT_EQ(Parser::parse({"system-info"}), CLICommand(command::SystemInfo{}));
    EXPECT_EQ(Parser::parse({"describe", "1a2b"}), CLICommand(command::Describe{"1a2b"}));
    EXPECT_EQ(Parser::parse({"history", "1A"}), CLICommand(command::History{"1A"}));
    EXPECT_EQ(Parser::parse({"captions-read", "ab"}), CLICommand(command::CaptionsRead{"ab"}));
    EXPECT_EQ(Parser::parse({"edit-plan-prepare", "ab"}), CLICommand(command::EditPlanPrepare{"ab"}));
    expectRejected({"list", "--all"}, Case::unexpectedArgument, "无法识别参数：--all");
    expectRejected({"describe", "ab", "cd"}, Case::unexpectedArgument, "无法识别参数：cd");
    for (const Line& line : {Line{"describe"}, Line{"describe", ""}, Line{"history", "--json"}}) {
        expectRejected(line, Case::missingValue, "缺少参数：id");
    }
    for (const char* word : {"nonsense", "Describe", "version", "--list", ""}) {
        expectRejected({word}, Case::unknownCommand, std::string("未知命令：") + word);
    }
}

} // namespace
} // namespace rilo::cli
