#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rilo {

// A moment at second precision, written as ISO 8601 in UTC ("2026-03-02T08:15:30Z").
struct IsoDate {
    std::int64_t secondsSinceEpoch = 0;

    static IsoDate now() noexcept;
    // Accepts "YYYY-MM-DDTHH:MM:SSZ" or a numeric zone "+hh:mm" / "-hh:mm".
    static std::optional<IsoDate> parse(std::string_view text) noexcept;
    std::string string() const;

    friend constexpr auto operator<=>(const IsoDate&, const IsoDate&) = default;
};

} // namespace rilo
