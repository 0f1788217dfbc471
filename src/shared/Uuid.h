#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rilo {

// A 128-bit identifier, written in upper case with dashes.
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    // A fresh random (version 4) identifier.
    static Uuid random();
    // Accepts the 36-character form with dashes, in either case.
    static std::optional<Uuid> parse(std::string_view text) noexcept;

    std::string string() const;

    friend constexpr auto operator<=>(const Uuid&, const Uuid&) = default;
};

} // namespace rilo
