#pragma once

// A JSON object whose members are all strings: the settings of an edit plan,
// the capability instructions of an editing template.

#include "shared/Json.h"
#include "shared/ValueCodecs.h"

#include <map>
#include <string>

namespace rilo::json {

template <>
struct Codec<std::map<std::string, std::string>> {
    static std::map<std::string, std::string> decode(const Json& value, const std::string& path) {
        if (!value.is_object()) {
            throwTypeMismatch(path, "对象");
        }
        std::map<std::string, std::string> result;
        for (const auto& [key, member] : value.items()) {
            result.emplace(key, Codec<std::string>::decode(member, joinPath(path, key)));
        }
        return result;
    }
    static Json encode(const std::map<std::string, std::string>& values) {
        Json object = Json::object();
        for (const auto& [key, value] : values) {
            object[key] = value;
        }
        return object;
    }
};

} // namespace rilo::json
