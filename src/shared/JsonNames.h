#pragma once

// The names that values carry in JSON, apart from any JSON library, so that a
// value header can give them beside its type: the raw words of enumerations
// and the keys of records. Json.h turns both into codecs.

#include <array>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace rilo::json {

// Enumerations are stored as their raw strings. A type opts in by
// specialising EnumNames with a constexpr array `entries` of (case, raw) pairs.
template <class E>
struct EnumNames;

template <class E>
concept NamedEnum = requires {
    EnumNames<E>::entries;
};

template <NamedEnum E>
constexpr std::string_view rawValue(E value) noexcept {
    for (const auto& [candidate, raw] : EnumNames<E>::entries) {
        if (candidate == value) {
            return raw;
        }
    }
    return {};
}

template <NamedEnum E>
constexpr std::optional<E> enumFromRaw(std::string_view raw) noexcept {
    for (const auto& [candidate, name] : EnumNames<E>::entries) {
        if (name == raw) {
            return candidate;
        }
    }
    return std::nullopt;
}

// Records: value types whose JSON form is an object with one key per member.
// A type opts in by specialising RecordFields with a constexpr tuple `fields`
// of field(key, &Type::member), which is then the one spelling of its keys:
// the encoder below, the decoder below and the sample chunk reader all walk
// it. Fields are decoded in the order listed, so a document missing several
// keys is reported for the first of them. A member of type std::optional is
// an optional key: left out when empty, and empty when absent or null.
template <class Owner, class Value>
struct Field {
    std::string_view key;
    Value Owner::*member;
};

template <class Owner, class Value>
constexpr Field<Owner, Value> field(std::string_view key, Value Owner::*member) noexcept {
    return {key, member};
}

template <class T>
struct RecordFields;

template <class T>
concept Record = requires {
    RecordFields<T>::fields;
};

} // namespace rilo::json
