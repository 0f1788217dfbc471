#include "shared/Json.h"

#include <charconv>
#include <cmath>

namespace rilo::json {

namespace {

struct Writer {
    JsonStyle style;
    std::string out;

    bool pretty() const { return style != JsonStyle::chunk; }
    bool escapeSlashes() const { return style != JsonStyle::commandLine; }

    void newline(int depth) {
        out.push_back('\n');
        out.append(static_cast<std::size_t>(depth) * 2, ' ');
    }

    void string(const std::string& text) {
        static constexpr char hex[] = "0123456789abcdef";
        out.push_back('"');
        for (const char c : text) {
            switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '/':
                out += escapeSlashes() ? "\\/" : "/";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    out += "\\u00";
                    out.push_back(hex[(c >> 4) & 0x0F]);
                    out.push_back(hex[c & 0x0F]);
                } else {
                    out.push_back(c);
                }
            }
        }
        out.push_back('"');
    }

    void number(double value) {
        if (!std::isfinite(value)) {
            throw EncodingError("无法编码非有限数值。");
        }
        char buffer[64];
        // The shortest form alone would write 100000.0 as "1e+05"; a whole
        // number that a double holds exactly is written with all its digits.
        const bool exactWholeNumber = std::trunc(value) == value && std::fabs(value) < 9007199254740992.0;
        const auto result =
            exactWholeNumber ? std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed)
                             : std::to_chars(buffer, buffer + sizeof buffer, value);
        out.append(buffer, result.ptr);
    }

    void value(const Json& node, int depth) {
        switch (node.type()) {
        case Json::value_t::null:
            out += "null";
            break;
        case Json::value_t::boolean:
            out += node.get<bool>() ? "true" : "false";
            break;
        case Json::value_t::number_integer:
            out += std::to_string(node.get<std::int64_t>());
            break;
        case Json::value_t::number_unsigned:
            out += std::to_string(node.get<std::uint64_t>());
            break;
        case Json::value_t::number_float:
            number(node.get<double>());
            break;
        case Json::value_t::string:
            string(node.get_ref<const std::string&>());
            break;
        case Json::value_t::array:
            array(node, depth);
            break;
        case Json::value_t::object:
            object(node, depth);
            break;
        default:
            throw EncodingError("无法编码的JSON值。");
        }
    }

    void array(const Json& node, int depth) {
        if (node.empty()) {
            out += "[]";
            return;
        }
        out.push_back('[');
        bool first = true;
        for (const auto& element : node) {
            if (!first) {
                out.push_back(',');
            }
            first = false;
            if (pretty()) {
                newline(depth + 1);
            }
            value(element, depth + 1);
        }
        if (pretty()) {
            newline(depth);
        }
        out.push_back(']');
    }

    // nlohmann::json keeps object members in a std::map, so iteration is
    // already in byte order of the keys.
    void object(const Json& node, int depth) {
        if (node.empty()) {
            out += "{}";
            return;
        }
        out.push_back('{');
        bool first = true;
        for (auto it = node.begin(); it != node.end(); ++it) {
            if (!first) {
                out.push_back(',');
            }
            first = false;
            if (pretty()) {
                newline(depth + 1);
            }
            string(it.key());
            out += pretty() ? " : " : ":";
            value(it.value(), depth + 1);
        }
        if (pretty()) {
            newline(depth);
        }
        out.push_back('}');
    }
};

} // namespace

std::string write(const Json& value, JsonStyle style) {
    Writer writer{style, {}};
    writer.value(value, 0);
    return std::move(writer.out);
}

Json parse(std::string_view bytes) {
    // The parser takes a NUL byte for the end of the text and would accept
    // whatever follows it; JSON has no place for one outside a string, and
    // there it must be escaped.
    if (const auto nul = bytes.find('\0'); nul != std::string_view::npos) {
        throw DecodingError("JSON格式无效：第" + std::to_string(nul + 1) + "个字节是空字符");
    }
    try {
        return Json::parse(bytes.begin(), bytes.end());
    } catch (const Json::exception& error) {
        // parse_error for malformed text, out_of_range for a number no double can hold.
        throw DecodingError(std::string("JSON格式无效：") + error.what());
    }
}

std::string joinPath(const std::string& path, std::string_view key) {
    if (path.empty()) {
        return std::string(key);
    }
    return path + "." + std::string(key);
}

std::string indexPath(const std::string& path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

void throwTypeMismatch(const std::string& path, std::string_view expected) {
    throw DecodingError("类型不符：" + (path.empty() ? std::string("文档") : path) + "应为" +
                        std::string(expected));
}

void throwUnknownEnumValue(const std::string& path, const std::string& raw) {
    throw DecodingError("无法识别的取值：" + path + " = \"" + raw + "\"");
}

ObjectReader::ObjectReader(const Json& value, std::string path)
    : object_(value)
    , path_(std::move(path)) {
    if (!object_.is_object()) {
        throwTypeMismatch(path_, "对象");
    }
}

const Json* ObjectReader::find(std::string_view key) const {
    const auto it = object_.find(key);
    if (it == object_.end() || it->is_null()) {
        return nullptr;
    }
    return &*it;
}

bool Codec<bool>::decode(const Json& value, const std::string& path) {
    if (!value.is_boolean()) {
        throwTypeMismatch(path, "布尔值");
    }
    return value.get<bool>();
}

double Codec<double>::decode(const Json& value, const std::string& path) {
    if (!value.is_number()) {
        throwTypeMismatch(path, "数值");
    }
    return value.get<double>();
}

std::string Codec<std::string>::decode(const Json& value, const std::string& path) {
    if (!value.is_string()) {
        throwTypeMismatch(path, "字符串");
    }
    return value.get<std::string>();
}

std::int64_t decodeInteger(const Json& value, const std::string& path, std::int64_t minimum,
                           std::int64_t maximum) {
    std::int64_t result = 0;
    if (value.is_number_integer() && !value.is_number_unsigned()) {
        result = value.get<std::int64_t>();
    } else if (value.is_number_unsigned()) {
        const auto unsignedValue = value.get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(maximum)) {
            throwTypeMismatch(path, "范围内的整数");
        }
        result = static_cast<std::int64_t>(unsignedValue);
    } else if (value.is_number_float()) {
        // A whole double such as 3.0 is accepted as the integer it names.
        const double number = value.get<double>();
        if (!std::isfinite(number) || std::trunc(number) != number || number < -9223372036854775808.0 ||
            number >= 9223372036854775808.0) {
            throwTypeMismatch(path, "整数");
        }
        result = static_cast<std::int64_t>(number);
    } else {
        throwTypeMismatch(path, "整数");
    }
    if (result < minimum || result > maximum) {
        throwTypeMismatch(path, "范围内的整数");
    }
    return result;
}

std::uint64_t decodeUnsigned(const Json& value, const std::string& path) {
    if (value.is_number_unsigned()) {
        return value.get<std::uint64_t>();
    }
    return static_cast<std::uint64_t>(
        decodeInteger(value, path, 0, std::numeric_limits<std::int64_t>::max()));
}

} // namespace rilo::json
