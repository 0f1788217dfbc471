#pragma once

#include <optional>

namespace rilo::testing {

// The error of type Error that the body throws, or none when it returns.
// Other exceptions pass through and fail the test.
template <typename Error, typename Body>
std::optional<Error> thrown(Body body) {
    try {
        body();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

} // namespace rilo::testing
