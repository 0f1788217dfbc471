#include "app/updates/AppVersion.h"

#include <algorithm>
#include <charconv>

namespace rilo::app {
namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (true) {
        const auto end = text.find(separator, start);
        parts.push_back(
            text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) {
            return parts;
        }
        start = end + 1;
    }
}

bool isDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isIdentifierCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
    if (!isDigits(text)) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::strong_ordering compareIdentifiers(const AppVersionIdentifier& left, const AppVersionIdentifier& right) {
    const auto* leftNumber = std::get_if<std::uint64_t>(&left);
    const auto* rightNumber = std::get_if<std::uint64_t>(&right);
    if (leftNumber != nullptr && rightNumber != nullptr) {
        return *leftNumber <=> *rightNumber;
    }
    if (leftNumber != nullptr) {
        return std::strong_ordering::less;
    }
    if (rightNumber != nullptr) {
        return std::strong_ordering::greater;
    }
    const int textOrder = std::get<std::string>(left).compare(std::get<std::string>(right));
    return textOrder <=> 0;
}

} // namespace

std::optional<AppVersion> AppVersion::parse(std::string_view text) {
    if (!text.empty() && (text.front() == 'v' || text.front() == 'V')) {
        text.remove_prefix(1);
    }
    if (const auto plus = text.find('+'); plus != std::string_view::npos) {
        for (const auto part : split(text.substr(plus + 1), '.')) {
            if (part.empty() || !std::all_of(part.begin(), part.end(), isIdentifierCharacter)) {
                return std::nullopt;
            }
        }
        text = text.substr(0, plus);
    }
    AppVersion version;
    if (const auto dash = text.find('-'); dash != std::string_view::npos) {
        std::vector<AppVersionIdentifier> identifiers;
        for (const auto part : split(text.substr(dash + 1), '.')) {
            if (part.empty() || !std::all_of(part.begin(), part.end(), isIdentifierCharacter)) {
                return std::nullopt;
            }
            if (isDigits(part)) {
                const auto number = parseNumber(part);
                if (!number) {
                    return std::nullopt;
                }
                identifiers.emplace_back(*number);
            } else {
                identifiers.emplace_back(std::string(part));
            }
        }
        version.prerelease = std::move(identifiers);
        text = text.substr(0, dash);
    }
    for (const auto part : split(text, '.')) {
        const auto number = parseNumber(part);
        if (!number) {
            return std::nullopt;
        }
        version.core.push_back(*number);
    }
    return version;
}

std::string AppVersion::string() const {
    std::string text;
    for (std::size_t i = 0; i < core.size(); ++i) {
        text += (i == 0 ? "" : ".") + std::to_string(core[i]);
    }
    if (prerelease) {
        text += '-';
        for (std::size_t i = 0; i < prerelease->size(); ++i) {
            if (i != 0) {
                text += '.';
            }
            const auto& identifier = (*prerelease)[i];
            if (const auto* number = std::get_if<std::uint64_t>(&identifier)) {
                text += std::to_string(*number);
            } else {
                text += std::get<std::string>(identifier);
            }
        }
    }
    return text;
}

std::strong_ordering operator<=>(const AppVersion& left, const AppVersion& right) {
    const auto count = std::max(left.core.size(), right.core.size());
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t leftNumber = i < left.core.size() ? left.core[i] : 0;
        const std::uint64_t rightNumber = i < right.core.size() ? right.core[i] : 0;
        if (const auto order = leftNumber <=> rightNumber; order != 0) {
            return order;
        }
    }
    if (!left.prerelease || !right.prerelease) {
        // A version without a prerelease is the release itself, after its prereleases.
        return static_cast<int>(right.prerelease.has_value()) <=>
               static_cast<int>(left.prerelease.has_value());
    }
    const auto& leftIdentifiers = *left.prerelease;
    const auto& rightIdentifiers = *right.prerelease;
    const auto shared = std::min(leftIdentifiers.size(), rightIdentifiers.size());
    for (std::size_t i = 0; i < shared; ++i) {
        if (const auto order = compareIdentifiers(leftIdentifiers[i], rightIdentifiers[i]); order != 0) {
            return order;
        }
    }
    return leftIdentifiers.size() <=> rightIdentifiers.size();
}

} // namespace rilo::app
