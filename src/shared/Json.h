#pragma once

// JSON in and out. Parsing uses nlohmann::json; output goes through one
// deterministic writer so that the same value always gives the same bytes.
//
// Values are converted through Codec<T> specialisations that sit next to each
// type: decode(json, path) throws DecodingError naming the key path that
// failed; encode(value) builds a nlohmann::json whose objects are
// key-sorted maps. ObjectReader implements the decoding rules shared by every
// document: required keys, defaults for missing keys, absent optionals, and
// enumerations by their raw strings only. How values are named (enumeration
// words, record keys) is in JsonNames.h, which value headers include without
// this one.

#include "shared/Errors.h"
#include "shared/JsonNames.h"

#include <array>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace rilo::json {

using Json = nlohmann::json;

enum class JsonStyle {
    // Package documents and error responses: pretty printed, "key" : value,
    // two-space indent, slashes escaped as \/.
    document,
    // Command-line success responses: as document, but slashes left as they are.
    commandLine,
    // Sample chunk files: no white space, slashes escaped.
    chunk,
};

// Sorted keys, no trailing newline. Doubles in the shortest form that reads
// back to the same value; a whole double has no fraction. Throws
// EncodingError for a non-finite number.
std::string write(const Json& value, JsonStyle style);

class DecodingError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

class EncodingError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

// Parses bytes; throws DecodingError when they are not JSON.
Json parse(std::string_view bytes);

std::string joinPath(const std::string& path, std::string_view key);
std::string indexPath(const std::string& path, std::size_t index);
[[noreturn]] void throwTypeMismatch(const std::string& path, std::string_view expected);

template <class T>
struct Codec;

template <class T>
T decode(const Json& value, const std::string& path = {}) {
    return Codec<T>::decode(value, path);
}

template <class T>
Json encode(const T& value) {
    return Codec<T>::encode(value);
}

template <class T>
T decodeDocument(std::string_view bytes) {
    return decode<T>(parse(bytes));
}

template <class T>
std::string encodeDocument(const T& value, JsonStyle style = JsonStyle::document) {
    return write(encode(value), style);
}

// Reads the members of one JSON object.
class ObjectReader {
public:
    ObjectReader(const Json& value, std::string path);

    const std::string& path() const noexcept { return path_; }
    // The member, or null when the key is missing or its value is null.
    const Json* find(std::string_view key) const;
    bool contains(std::string_view key) const { return find(key) != nullptr; }

    template <class T>
    T required(std::string_view key) const {
        const Json* member = find(key);
        if (member == nullptr) {
            throw DecodingError("缺少必需的键：" + joinPath(path_, key));
        }
        return Codec<T>::decode(*member, joinPath(path_, key));
    }

    template <class T>
    std::optional<T> optional(std::string_view key) const {
        const Json* member = find(key);
        if (member == nullptr) {
            return std::nullopt;
        }
        return Codec<T>::decode(*member, joinPath(path_, key));
    }

    template <class T>
    T valueOr(std::string_view key, T fallback) const {
        const Json* member = find(key);
        if (member == nullptr) {
            return fallback;
        }
        return Codec<T>::decode(*member, joinPath(path_, key));
    }

private:
    const Json& object_;
    std::string path_;
};

// Builds one JSON object; optional members are left out when empty.
class ObjectBuilder {
public:
    ObjectBuilder()
        : object_(Json::object()) {}

    template <class T>
    ObjectBuilder& set(std::string_view key, const T& value) {
        object_[std::string(key)] = Codec<T>::encode(value);
        return *this;
    }

    template <class T>
    ObjectBuilder& setIfPresent(std::string_view key, const std::optional<T>& value) {
        if (value) {
            set(key, *value);
        }
        return *this;
    }

    Json build() { return std::move(object_); }

private:
    Json object_;
};

template <>
struct Codec<std::string> {
    static std::string decode(const Json& value, const std::string& path);
    static Json encode(const std::string& value) { return value; }
};

[[noreturn]] void throwUnknownEnumValue(const std::string& path, const std::string& raw);

template <NamedEnum E>
struct Codec<E> {
    static E decode(const Json& value, const std::string& path) {
        const auto raw = Codec<std::string>::decode(value, path);
        if (const auto parsed = enumFromRaw<E>(raw)) {
            return *parsed;
        }
        throwUnknownEnumValue(path, raw);
    }
    static Json encode(E value) { return std::string(rawValue(value)); }
};

template <>
struct Codec<bool> {
    static bool decode(const Json& value, const std::string& path);
    static Json encode(bool value) { return value; }
};

template <>
struct Codec<double> {
    static double decode(const Json& value, const std::string& path);
    static Json encode(double value) { return value; }
};

std::int64_t decodeInteger(const Json& value, const std::string& path, std::int64_t minimum,
                           std::int64_t maximum);
std::uint64_t decodeUnsigned(const Json& value, const std::string& path);

template <class I>
requires(std::is_integral_v<I> && !std::is_same_v<I, bool>) struct Codec<I> {
    static I decode(const Json& value, const std::string& path) {
        if constexpr (std::is_same_v<I, std::uint64_t>) {
            return decodeUnsigned(value, path);
        } else {
            return static_cast<I>(decodeInteger(value, path, std::numeric_limits<I>::min(),
                                                static_cast<std::int64_t>(std::numeric_limits<I>::max())));
        }
    }
    static Json encode(I value) { return value; }
};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <Record T>
struct Codec<T> {
    static T decode(const Json& value, const std::string& path) {
        const ObjectReader reader(value, path);
        T record{};
        std::apply([&](const auto&... fields) { (readField(reader, fields, record), ...); },
                   RecordFields<T>::fields);
        return record;
    }

    static Json encode(const T& record) {
        ObjectBuilder builder;
        std::apply([&](const auto&... fields) { (writeField(builder, fields, record), ...); },
                   RecordFields<T>::fields);
        return builder.build();
    }

private:
    template <class Value>
    static void readField(const ObjectReader& reader, const Field<T, Value>& field, T& record) {
        if constexpr (IsOptional<Value>::value) {
            record.*field.member = reader.optional<typename Value::value_type>(field.key);
        } else {
            record.*field.member = reader.required<Value>(field.key);
        }
    }

    template <class Value>
    static void writeField(ObjectBuilder& builder, const Field<T, Value>& field, const T& record) {
        if constexpr (IsOptional<Value>::value) {
            builder.setIfPresent(field.key, record.*field.member);
        } else {
            builder.set(field.key, record.*field.member);
        }
    }
};

template <class T>
struct Codec<std::vector<T>> {
    static std::vector<T> decode(const Json& value, const std::string& path) {
        if (!value.is_array()) {
            throwTypeMismatch(path, "数组");
        }
        std::vector<T> result;
        result.reserve(value.size());
        for (std::size_t i = 0; i < value.size(); ++i) {
            result.push_back(Codec<T>::decode(value[i], indexPath(path, i)));
        }
        return result;
    }
    static Json encode(const std::vector<T>& values) {
        Json array = Json::array();
        for (const auto& element : values) {
            array.push_back(Codec<T>::encode(element));
        }
        return array;
    }
};

} // namespace rilo::json
