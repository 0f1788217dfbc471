// The building blocks of the grammar: options, the project prefix and the
// values that several commands share.

#include "cli/CLIArgumentParser.h"
#include "shared/AppDirectories.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace rilo::cli::CLIArgumentParser {

namespace {

bool isOption(std::string_view token) noexcept {
    return token.starts_with("--");
}

// An optional sign and decimal digits, nothing else.
std::optional<std::int64_t> parseInteger(std::string_view text) noexcept {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    std::int64_t result = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
    if (error != std::errc{} || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return result;
}

// A decimal number read in full (an optional sign, no blanks); infinities
// and NaN are refused.
std::optional<double> parseFiniteDouble(std::string_view text) noexcept {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    double result = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
    if (error != std::errc{} || end != text.data() + text.size() || text.empty() || !std::isfinite(result)) {
        return std::nullopt;
    }
    return result;
}

// The parts between commas, empty ones included.
std::vector<std::string_view> splitAtCommas(std::string_view text) {
    std::vector<std::string_view> parts;
    while (true) {
        const auto comma = text.find(',');
        parts.push_back(text.substr(0, comma));
        if (comma == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(comma + 1);
    }
}

} // namespace

Options::Options(Arguments tokens) {
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const std::string& token = tokens[i];
        if (!isOption(token)) {
            throw CLIArgumentError::unexpectedArgument(token);
        }
        if (contains(token)) {
            throw CLIArgumentError::invalidValue(token);
        }
        std::optional<std::string> value;
        if (i + 1 < tokens.size() && !isOption(tokens[i + 1])) {
            value = tokens[++i];
        }
        entries_.emplace_back(token, std::move(value));
    }
}

const std::optional<std::string>* Options::find(std::string_view name) const noexcept {
    const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const auto& candidate) { return candidate.first == name; });
    return entry == entries_.end() ? nullptr : &entry->second;
}

void Options::rejectUnknown(std::initializer_list<std::string_view> allowed) const {
    for (const auto& [option, value] : entries_) {
        if (std::find(allowed.begin(), allowed.end(), option) == allowed.end()) {
            throw CLIArgumentError::unexpectedArgument(option);
        }
    }
}

void Options::rejectValues(std::initializer_list<std::string_view> flags) const {
    for (const auto& [option, value] : entries_) {
        if (value && std::find(flags.begin(), flags.end(), option) != flags.end()) {
            throw CLIArgumentError::invalidValue(option);
        }
    }
}

bool Options::contains(std::string_view name) const noexcept {
    return find(name) != nullptr;
}

bool Options::hasValue(std::string_view name) const noexcept {
    const auto* entry = find(name);
    return entry != nullptr && entry->has_value();
}

std::optional<std::string> Options::value(std::string_view option) const {
    const auto* entry = find(option);
    if (entry == nullptr) {
        return std::nullopt;
    }
    if (!entry->has_value()) {
        throw CLIArgumentError::missingValue(std::string(option));
    }
    return *entry;
}

std::string Options::required(std::string_view option) const {
    auto text = value(option);
    if (!text) {
        throw CLIArgumentError::missingValue(std::string(option));
    }
    return std::move(*text);
}

std::int64_t Options::int64(std::string_view option, std::optional<std::int64_t> defaultValue,
                            std::int64_t minimum, std::int64_t maximum) const {
    const auto text = defaultValue ? value(option) : required(option);
    if (!text) {
        return *defaultValue;
    }
    const auto number = parseInteger(*text);
    if (!number || *number < minimum || *number > maximum) {
        throw CLIArgumentError::invalidValue(std::string(option));
    }
    return *number;
}

std::optional<std::int64_t> Options::optionalInt(std::string_view option) const {
    const auto text = value(option);
    if (!text) {
        return std::nullopt;
    }
    const auto number = parseInteger(*text);
    if (!number) {
        throw CLIArgumentError::invalidValue(std::string(option));
    }
    return number;
}

double Options::doubleValue(std::string_view option, std::optional<double> defaultValue, double minimum,
                            double maximum) const {
    const auto text = defaultValue ? value(option) : required(option);
    if (!text) {
        return *defaultValue;
    }
    const auto number = parseFiniteDouble(*text);
    if (!number || *number < minimum || *number > maximum) {
        throw CLIArgumentError::invalidValue(std::string(option));
    }
    return *number;
}

std::string projectID(Arguments arguments) {
    if (arguments.empty() || arguments[0].empty() || isOption(arguments[0])) {
        throw CLIArgumentError::missingValue("id");
    }
    return arguments[0];
}

std::string exactProjectID(Arguments arguments) {
    std::string id = projectID(arguments);
    if (arguments.size() > 1) {
        throw CLIArgumentError::unexpectedArgument(arguments[1]);
    }
    return id;
}

MutationOptions mutationOptions(Arguments arguments, std::initializer_list<std::string_view> allowed) {
    MutationOptions result{projectID(arguments), Options(arguments.subspan(1)), false, std::nullopt};
    const Options& options = result.options;
    options.rejectUnknown(allowed);
    for (const std::string_view flag : {"--source", "--all", "--apply"}) {
        if (std::find(allowed.begin(), allowed.end(), flag) != allowed.end()) {
            options.rejectValues({flag});
        }
    }
    // A change is written only against the digest its preview answered with;
    // a stray "--expect" without "--apply" would silently preview instead.
    result.appliesChanges = options.flag("--apply");
    const bool paired = result.appliesChanges ? options.hasValue("--expect") : !options.contains("--expect");
    if (!paired) {
        throw CLIArgumentError::invalidValue("--apply必须与--expect同时提供");
    }
    if (result.appliesChanges) {
        result.expectedDigest = options.value("--expect");
    }
    return result;
}

CLIRange parseRange(std::string_view text) {
    const auto parts = splitAtCommas(text);
    if (parts.size() == 2) {
        const auto start = parseInteger(parts[0]);
        const auto end = parseInteger(parts[1]);
        if (start && end && *start >= 0 && *start < *end && *end <= maximumMilliseconds) {
            return {*start, *end};
        }
    }
    throw CLIArgumentError::invalidValue("--range");
}

PointValue parsePoint(std::string_view text) {
    const auto parts = splitAtCommas(text);
    if (parts.size() == 2) {
        const auto x = parseFiniteDouble(parts[0]);
        const auto y = parseFiniteDouble(parts[1]);
        const auto unit = [](double value) { return value >= 0 && value <= 1; };
        if (x && y && unit(*x) && unit(*y)) {
            return {*x, *y};
        }
    }
    throw CLIArgumentError::invalidValue("--at");
}

MediaTrackKind audioTrack(std::string_view text) {
    if (text == "microphone") {
        return MediaTrackKind::microphone;
    }
    if (text == "system-audio") {
        return MediaTrackKind::systemAudio;
    }
    throw CLIArgumentError::invalidValue("--track");
}

ExportResolution resolution(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, ExportResolution>, 5> words{{
        {"original", ExportResolution::original},
        {"720p", ExportResolution::p720},
        {"1080p", ExportResolution::p1080},
        {"1440p", ExportResolution::p1440},
        {"4k", ExportResolution::p2160},
    }};
    for (const auto& [word, value] : words) {
        if (text == word) {
            return value;
        }
    }
    throw CLIArgumentError::invalidValue("--res");
}

ExportFrameRate frameRate(std::string_view text) {
    if (text == "source") {
        return ExportFrameRate::source;
    }
    if (text == "30") {
        return ExportFrameRate::fps30;
    }
    if (text == "60") {
        return ExportFrameRate::fps60;
    }
    throw CLIArgumentError::invalidValue("--fps");
}

std::filesystem::path outputURL(std::string_view text) {
    if (text.starts_with('/')) {
        return std::filesystem::path(text);
    }
    if (text.empty() || text.find('/') != std::string_view::npos || text == "." || text == "..") {
        throw CLIArgumentError::invalidValue("--out");
    }
    return defaultExportsDirectory() / text;
}

} // namespace rilo::cli::CLIArgumentParser
