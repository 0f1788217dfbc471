#include "cli/CLIArgumentParser.h"

#include <array>
#include <span>
#include <string_view>

namespace rilo::cli {

namespace {

using Arguments = std::span<const std::string>;

// Words of commands that are recognised, with their grammar still to come.
constexpr std::array<std::string_view, 14> pendingCommandWords{
    "idle",
    "captions-prepare",
    "captions-import",
    "edit-plan-preview",
    "cut",
    "speed-set",
    "zoom-add",
    "zoom-rm",
    "zoom-regen",
    "set",
    "restore",
    "frame",
    "preview",
    "export",
};

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

// The project prefix: the first argument, neither missing, empty, nor an option.
std::string projectID(Arguments rest) {
    if (rest.empty() || rest[0].empty() || rest[0].starts_with("--")) {
        throw CLIArgumentError::missingValue("id");
    }
    return rest[0];
}

std::string exactProjectID(Arguments rest) {
    std::string id = projectID(rest);
    rejectArguments(rest.subspan(1));
    return id;
}

} // namespace

CLICommand CLIArgumentParser::parse(const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        return command::Help{};
    }
    const std::string& word = arguments[0];
    const Arguments rest = Arguments(arguments).subspan(1);

    if (word == "help" || word == "--help" || word == "-h") {
        return parseHelp(rest);
    }
    if (word == "system-info") {
        rejectArguments(rest);
        return command::SystemInfo{};
    }
    if (word == "list") {
        rejectArguments(rest);
        return command::List{};
    }
    if (word == "describe") {
        return command::Describe{exactProjectID(rest)};
    }
    if (word == "history") {
        return command::History{exactProjectID(rest)};
    }
    if (word == "captions-read") {
        return command::CaptionsRead{exactProjectID(rest)};
    }
    if (word == "edit-plan-prepare") {
        return command::EditPlanPrepare{exactProjectID(rest)};
    }
    for (const std::string_view pending : pendingCommandWords) {
        if (word == pending) {
            return command::Unavailable{word, {rest.begin(), rest.end()}};
        }
    }
    throw CLIArgumentError::unknownCommand(word);
}

} // namespace rilo::cli
