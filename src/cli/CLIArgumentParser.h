#pragma once

// The strict grammar of the command line. Callers are agents: a mistyped
// option must fail with a stable code rather than do something else, so
// every rule refuses what it does not know. The first problem found ends the
// parse with a CLIArgumentError; nothing is collected. The parser touches no
// file and opens no project; it asks only for the application data directory
// when it resolves a bare output name (a failure there is passed on as it
// came).

#include "cli/CLIArgumentError.h"
#include "cli/CLICommand.h"

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo::cli {

namespace CLIArgumentParser {

using Arguments = std::span<const std::string>;

// Takes the arguments after "cli".
CLICommand parse(const std::vector<std::string>& arguments);

// Seven days: the largest time in milliseconds that the command line accepts.
inline constexpr std::int64_t maximumMilliseconds = 604'800'000;

// The option part of a command line: names starting with "--", each with an
// optional value, in the order typed. A token after an option that does not
// start with "--" is its value, so "-42" is a value.
class Options {
public:
    // Refuses a token that is no option (unexpectedArgument) and an option
    // given twice (invalidValue of its name).
    explicit Options(Arguments tokens);

    // An option outside `allowed`: unexpectedArgument(name).
    void rejectUnknown(std::initializer_list<std::string_view> allowed) const;
    // One of `flags` given with a value: invalidValue(flag).
    void rejectValues(std::initializer_list<std::string_view> flags) const;

    bool contains(std::string_view name) const noexcept;
    bool hasValue(std::string_view name) const noexcept;
    // Whether the flag is present; flags are checked by rejectValues first.
    bool flag(std::string_view name) const noexcept { return contains(name); }
    // None when absent; present without a value: missingValue(name).
    std::optional<std::string> value(std::string_view name) const;
    // Missing or without a value: missingValue(name).
    std::string required(std::string_view name) const;
    // A base-10 integer within the inclusive bounds, else invalidValue(name).
    // Without a default, a missing option is missingValue(name).
    std::int64_t int64(std::string_view name, std::optional<std::int64_t> defaultValue = std::nullopt,
                       std::int64_t minimum = std::numeric_limits<std::int64_t>::min(),
                       std::int64_t maximum = std::numeric_limits<std::int64_t>::max()) const;
    std::optional<std::int64_t> optionalInt(std::string_view name) const;
    // A finite number read in full and within the bounds, else invalidValue(name).
    double doubleValue(std::string_view name, std::optional<double> defaultValue = std::nullopt,
                       double minimum = -std::numeric_limits<double>::max(),
                       double maximum = std::numeric_limits<double>::max()) const;

    const std::vector<std::pair<std::string, std::optional<std::string>>>& entries() const noexcept {
        return entries_;
    }

private:
    const std::optional<std::string>* find(std::string_view name) const noexcept;

    std::vector<std::pair<std::string, std::optional<std::string>>> entries_;
};

// The project prefix, the first argument: missing, empty or an option gives
// missingValue("id").
std::string projectID(Arguments arguments);
// The prefix and nothing else.
std::string exactProjectID(Arguments arguments);

// The common part of the single-change commands.
struct MutationOptions {
    std::string projectID;
    Options options;
    bool appliesChanges = false;
    std::optional<std::string> expectedDigest;
};
// Takes the prefix and the options, refuses unknown options and flags with
// values, and requires "--apply" and a value of "--expect" together or not at
// all.
MutationOptions mutationOptions(Arguments arguments, std::initializer_list<std::string_view> allowed);

// "start,end" in milliseconds with 0 <= start < end <= seven days, else
// invalidValue("--range").
CLIRange parseRange(std::string_view text);
// "x,y", each a finite number from 0 to 1, else invalidValue("--at").
PointValue parsePoint(std::string_view text);
// "microphone" or "system-audio", else invalidValue("--track").
MediaTrackKind audioTrack(std::string_view text);
// "original", "720p", "1080p", "1440p" or "4k", else invalidValue("--res").
ExportResolution resolution(std::string_view text);
// "source", "30" or "60", else invalidValue("--fps").
ExportFrameRate frameRate(std::string_view text);
// An absolute path as it stands, or a bare file name under the default export
// directory (which need not exist yet); anything else is invalidValue("--out").
std::filesystem::path outputURL(std::string_view text);

} // namespace CLIArgumentParser

} // namespace rilo::cli
