#pragma once

#include <optional>
#include <string>

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

// The case of the Error that the body throws, or none when it returns.
template <typename Error, typename Body>
std::optional<typename Error::Case> thrownCase(Body body) {
    const std::optional<Error> error = thrown<Error>(body);
    return error ? std::optional(error->errorCase()) : std::nullopt;
}

// The message of the Error that the body throws, or none when it returns.
template <typename Error, typename Body>
std::optional<std::string> thrownMessage(Body body) {
    const std::optional<Error> error = thrown<Error>(body);
    return error ? std::optional(error->message()) : std::nullopt;
}

} // namespace rilo::testing
