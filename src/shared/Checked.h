#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace rilo {

// Overflow of time or size arithmetic on validated values is a programming
// fault, never an error value: the process stops with a message.
[[noreturn]] inline void programmingFault(const char* what) noexcept {
    std::fprintf(stderr, "rilo: programming fault: %s\n", what);
    std::abort();
}

constexpr std::int64_t checkedAdd(std::int64_t a, std::int64_t b) noexcept {
    std::int64_t result = 0;
    if (__builtin_add_overflow(a, b, &result)) {
        programmingFault("integer overflow in addition");
    }
    return result;
}

constexpr std::int64_t checkedSubtract(std::int64_t a, std::int64_t b) noexcept {
    std::int64_t result = 0;
    if (__builtin_sub_overflow(a, b, &result)) {
        programmingFault("integer overflow in subtraction");
    }
    return result;
}

constexpr std::int64_t checkedMultiply(std::int64_t a, std::int64_t b) noexcept {
    std::int64_t result = 0;
    if (__builtin_mul_overflow(a, b, &result)) {
        programmingFault("integer overflow in multiplication");
    }
    return result;
}

} // namespace rilo
