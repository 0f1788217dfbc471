#pragma once

// A program version as the update endpoint and the release notes write it:
// dot-separated numbers ("1.2.0"), optionally followed by a prerelease
// ("-beta.2") and build metadata ("+5f3a", ignored). Versions order as
// semantic versions do: the numbers one by one (a missing number counts as
// 0, so "1.2" equals "1.2.0"); a prerelease comes before the same version
// without one; prerelease identifiers compare in order, numbers numerically
// and before texts, texts by their bytes, and a shorter list first when one
// is the start of the other.

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace rilo::app {

// One prerelease identifier: a number ("10") or a text ("beta").
using AppVersionIdentifier = std::variant<std::uint64_t, std::string>;

struct AppVersion {
    std::vector<std::uint64_t> core;
    std::optional<std::vector<AppVersionIdentifier>> prerelease;

    // Accepts an optional leading "v". Empty when the text is not a version
    // (an empty number or identifier, a number too large, a stray character).
    static std::optional<AppVersion> parse(std::string_view text);

    // The version as written: "1.2.0-beta.2".
    std::string string() const;

    // Equality follows the ordering ("1.2" == "1.2.0"), so it is not the
    // member-wise comparison.
    friend std::strong_ordering operator<=>(const AppVersion& left, const AppVersion& right);
    friend bool operator==(const AppVersion& left, const AppVersion& right) { return (left <=> right) == 0; }
};

} // namespace rilo::app
