#include "cli/CLIArgumentParser.h"

#include <algorithm>
#include <array>

namespace rilo::cli {

namespace CLIArgumentParser {

namespace {

command::Help parseHelp(Arguments rest) {
    if (rest.empty()) {
        return {};
    }
    if (rest.size() > 1) {
        throw CLIArgumentError::unexpectedArgument(rest[1]);
    }
    const auto topic = json::enumFromRaw<CLIAgentHelpTopic>(rest[0]);
    if (!topic) {
        throw CLIArgumentError::invalidValue("help topic");
    }
    return {*topic};
}

void rejectArguments(Arguments rest) {
    if (!rest.empty()) {
        throw CLIArgumentError::unexpectedArgument(rest[0]);
    }
}

// The options of a command that takes a prefix and options: unknown options
// and flags with values are refused before any value is read.
Options commandOptions(Arguments rest, std::initializer_list<std::string_view> allowed,
                       std::initializer_list<std::string_view> flags) {
    Options options(rest.subspan(1));
    options.rejectUnknown(allowed);
    options.rejectValues(flags);
    return options;
}

Uuid jobID(const Options& options) {
    const auto id = Uuid::parse(options.required("--job"));
    if (!id) {
        throw CLIArgumentError::invalidValue("--job");
    }
    return *id;
}

// A guarded import writes only with "--apply" and every digest of its
// preview; without "--apply" no digest may be given.
bool guardedApply(const Options& options, std::initializer_list<std::string_view> digests,
                  const std::string& rule) {
    const bool applies = options.flag("--apply");
    const bool complete = applies ? std::all_of(digests.begin(), digests.end(),
                                                [&](std::string_view name) { return options.hasValue(name); })
                                  : std::none_of(digests.begin(), digests.end(), [&](std::string_view name) {
                                        return options.contains(name);
                                    });
    if (!complete) {
        throw CLIArgumentError::invalidValue(rule);
    }
    return applies;
}

command::Idle parseIdle(Arguments rest) {
    command::Idle result;
    result.projectID = projectID(rest);
    const Options options = commandOptions(
        rest, {"--min-ms", "--silence-db", "--track", "--keep-tail-ms", "--min-removal-ms"}, {});
    result.minimumMilliseconds = options.int64("--min-ms", 1500, 1, maximumMilliseconds);
    result.silenceDecibels = options.doubleValue("--silence-db", -42.0, -96.0, 0.0);
    if (const auto track = options.value("--track")) {
        result.track = audioTrack(*track);
    }
    result.keepTailMilliseconds = options.int64("--keep-tail-ms", 500, 0, maximumMilliseconds);
    // Shorter than one frame at 60 fps cannot be removed from the timeline.
    result.minimumRemovalMilliseconds = options.int64("--min-removal-ms", 150, 17, maximumMilliseconds);
    return result;
}

command::CaptionsPrepare parseCaptionsPrepare(Arguments rest) {
    command::CaptionsPrepare result;
    result.projectID = projectID(rest);
    const Options options = commandOptions(rest, {"--track"}, {});
    if (const auto track = options.value("--track")) {
        result.track = audioTrack(*track);
    }
    return result;
}

command::CaptionsImport parseCaptionsImport(Arguments rest) {
    CLICaptionImportRequest request;
    request.projectID = projectID(rest);
    const Options options =
        commandOptions(rest, {"--job", "--align-audio", "--apply", "--expect-timeline", "--expect-captions"},
                       {"--align-audio", "--apply"});
    request.jobID = jobID(options);
    request.alignsAudio = options.flag("--align-audio");
    request.appliesChanges = guardedApply(options, {"--expect-timeline", "--expect-captions"},
                                          "--apply/--expect-timeline/--expect-captions");
    request.expectedTimelineDigest = options.value("--expect-timeline");
    request.expectedCaptionsDigest = options.value("--expect-captions");
    return {std::move(request)};
}

command::EditPlan parseEditPlanPreview(Arguments rest) {
    CLIEditPlanRequest request;
    request.projectID = projectID(rest);
    const Options options = commandOptions(
        rest, {"--job", "--apply", "--expect-timeline", "--expect-captions", "--expect-plan"}, {"--apply"});
    request.jobID = jobID(options);
    request.appliesChanges =
        guardedApply(options, {"--expect-timeline", "--expect-captions", "--expect-plan"},
                     "--apply/--expect-timeline/--expect-captions/--expect-plan");
    request.expectedTimelineDigest = options.value("--expect-timeline");
    request.expectedCaptionsDigest = options.value("--expect-captions");
    request.expectedPlanDigest = options.value("--expect-plan");
    return {std::move(request)};
}

command::Mutate mutate(MutationOptions&& parsed, CLIMutation mutation) {
    return {{std::move(parsed.projectID), std::move(mutation), parsed.appliesChanges,
             std::move(parsed.expectedDigest)}};
}

CLITimeDomain domain(const Options& options) {
    return options.flag("--source") ? CLITimeDomain::source : CLITimeDomain::sequence;
}

command::Mutate parseCut(Arguments rest) {
    auto parsed = mutationOptions(rest, {"--range", "--source", "--apply", "--expect"});
    const Options& options = parsed.options;
    mutation::Cut cut{parseRange(options.required("--range")), domain(options)};
    return mutate(std::move(parsed), cut);
}

command::Mutate parseSpeed(Arguments rest) {
    auto parsed = mutationOptions(rest, {"--range", "--rate", "--source", "--apply", "--expect"});
    const Options& options = parsed.options;
    const CLIRange range = parseRange(options.required("--range"));
    const auto rate = TimelinePlaybackRate::fromMultiplier(options.doubleValue("--rate"));
    if (!rate || !rate->isValid()) {
        throw CLIArgumentError::invalidValue("--rate");
    }
    return mutate(std::move(parsed), mutation::Speed{range, domain(options), *rate});
}

command::Mutate parseZoomAdd(Arguments rest) {
    auto parsed = mutationOptions(rest, {"--range", "--source", "--level", "--at", "--apply", "--expect"});
    const Options& options = parsed.options;
    mutation::ZoomAdd zoom;
    zoom.range = parseRange(options.required("--range"));
    zoom.domain = domain(options);
    zoom.level = options.doubleValue("--level", 1.8);
    if (const auto at = options.value("--at")) {
        zoom.focus = parsePoint(*at);
    }
    return mutate(std::move(parsed), zoom);
}

command::Mutate parseZoomRemove(Arguments rest) {
    auto parsed = mutationOptions(rest, {"--index", "--all", "--apply", "--expect"});
    const Options& options = parsed.options;
    mutation::ZoomRemove removal{options.optionalInt("--index"), options.flag("--all")};
    if (removal.index.has_value() == removal.all) {
        throw CLIArgumentError::invalidValue("--index/--all");
    }
    return mutate(std::move(parsed), removal);
}

command::Mutate parseZoomRegenerate(Arguments rest) {
    return mutate(mutationOptions(rest, {"--apply", "--expect"}), mutation::ZoomRegenerate{});
}

command::Mutate parseRestore(Arguments rest) {
    auto parsed = mutationOptions(rest, {"--index", "--apply", "--expect"});
    const mutation::RestoreHistory restore{parsed.options.int64("--index")};
    return mutate(std::move(parsed), restore);
}

// Settings values may be anything, even text that looks like an option, so
// the pairs are read first and only the protocol tokens go through Options.
command::Mutate parseSet(Arguments rest) {
    const std::string id = projectID(rest);
    std::vector<std::string> protocol{id};
    mutation::Settings settings;
    const Arguments tokens = rest.subspan(1);
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const std::string& token = tokens[i];
        if (token == "--apply") {
            protocol.push_back(token);
            continue;
        }
        if (token == "--expect") {
            if (i + 1 == tokens.size()) {
                throw CLIArgumentError::missingValue(token);
            }
            protocol.push_back(token);
            protocol.push_back(tokens[++i]);
            continue;
        }
        const auto equals = token.find('=');
        if (equals == std::string::npos) {
            throw CLIArgumentError::invalidValue(token);
        }
        std::string key = token.substr(0, equals);
        if (settings.values.contains(key)) {
            throw CLIArgumentError::invalidValue(key);
        }
        settings.values.emplace(std::move(key), token.substr(equals + 1));
    }
    if (settings.values.empty()) {
        throw CLIArgumentError::missingValue("key=value");
    }
    return mutate(mutationOptions(protocol, {"--apply", "--expect"}), std::move(settings));
}

command::Frame parseFrame(Arguments rest) {
    command::Frame result;
    result.projectID = projectID(rest);
    const Options options = commandOptions(rest, {"--ms", "--out", "--width", "--replace"}, {"--replace"});
    result.milliseconds = options.int64("--ms", std::nullopt, 0, maximumMilliseconds);
    result.outputURL = outputURL(options.required("--out"));
    result.width = options.int64("--width", 1280, 2, 3840);
    result.replace = options.flag("--replace");
    return result;
}

command::Preview parsePreview(Arguments rest) {
    command::Preview result;
    result.projectID = projectID(rest);
    const Options options = commandOptions(rest, {"--range", "--out", "--replace"}, {"--replace"});
    result.range = parseRange(options.required("--range"));
    result.outputURL = outputURL(options.required("--out"));
    result.replace = options.flag("--replace");
    return result;
}

ExportPreset preset(std::string_view text) {
    if (text == "high") {
        return ExportPreset::high;
    }
    if (text == "standard") {
        return ExportPreset::standard;
    }
    if (text == "compact") {
        return ExportPreset::compact;
    }
    throw CLIArgumentError::invalidValue("--preset");
}

ExportQuality quality(std::string_view text) {
    if (text == "compact") {
        return ExportQuality::compact;
    }
    if (text == "standard") {
        return ExportQuality::standard;
    }
    if (text == "high") {
        return ExportQuality::high;
    }
    throw CLIArgumentError::invalidValue("--quality");
}

// The preset is read first; each of --res, --fps and --quality then replaces
// its own part of it.
command::Export parseExport(Arguments rest) {
    command::Export result;
    result.projectID = projectID(rest);
    const Options options =
        commandOptions(rest, {"--preset", "--res", "--fps", "--quality", "--hevc", "--out", "--replace"},
                       {"--hevc", "--replace"});
    const auto presetWord = options.value("--preset");
    ExportConfiguration& configuration = result.configuration;
    configuration = ExportConfiguration::preset(presetWord ? preset(*presetWord) : ExportPreset::standard);
    if (const auto res = options.value("--res")) {
        configuration.resolution = resolution(*res);
    }
    if (const auto fps = options.value("--fps")) {
        configuration.frameRate = frameRate(*fps);
    }
    if (const auto word = options.value("--quality")) {
        configuration.quality = quality(*word);
    }
    configuration.codec = options.flag("--hevc") ? ExportCodec::hevc : ExportCodec::h264;
    result.outputURL = outputURL(options.required("--out"));
    result.replace = options.flag("--replace");
    return result;
}

using CommandGrammar = CLICommand (*)(Arguments);

template <auto Parse>
CLICommand grammar(Arguments rest) {
    return Parse(rest);
}

template <class Command>
CLICommand exactProject(Arguments rest) {
    return Command{exactProjectID(rest)};
}

CLICommand list(Arguments rest) {
    rejectArguments(rest);
    return command::List{};
}

CLICommand systemInfo(Arguments rest) {
    rejectArguments(rest);
    return command::SystemInfo{};
}

// Every command word after "cli", with its grammar.
constexpr std::array<std::pair<std::string_view, CommandGrammar>, 23> commands{{
    {"help", grammar<parseHelp>},
    {"--help", grammar<parseHelp>},
    {"-h", grammar<parseHelp>},
    {"system-info", systemInfo},
    {"list", list},
    {"describe", exactProject<command::Describe>},
    {"idle", grammar<parseIdle>},
    {"history", exactProject<command::History>},
    {"captions-read", exactProject<command::CaptionsRead>},
    {"captions-prepare", grammar<parseCaptionsPrepare>},
    {"captions-import", grammar<parseCaptionsImport>},
    {"edit-plan-prepare", exactProject<command::EditPlanPrepare>},
    {"edit-plan-preview", grammar<parseEditPlanPreview>},
    {"cut", grammar<parseCut>},
    {"speed-set", grammar<parseSpeed>},
    {"zoom-add", grammar<parseZoomAdd>},
    {"zoom-rm", grammar<parseZoomRemove>},
    {"zoom-regen", grammar<parseZoomRegenerate>},
    {"set", grammar<parseSet>},
    {"restore", grammar<parseRestore>},
    {"frame", grammar<parseFrame>},
    {"preview", grammar<parsePreview>},
    {"export", grammar<parseExport>},
}};

} // namespace

CLICommand parse(const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        return command::Help{};
    }
    const std::string& word = arguments[0];
    const Arguments rest = Arguments(arguments).subspan(1);
    for (const auto& [candidate, grammar] : commands) {
        if (word == candidate) {
            return grammar(rest);
        }
    }
    throw CLIArgumentError::unknownCommand(word);
}

} // namespace CLIArgumentParser

} // namespace rilo::cli
