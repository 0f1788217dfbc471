#include "recorder/RecorderArguments.h"

#include "cli/CLIArgumentError.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace rilo::recorder {
namespace {

using cli::CLIArgumentError;

double positiveNumber(const std::string& option, const std::string& text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value) || value <= 0) {
        throw CLIArgumentError::invalidValue(option + " " + text);
    }
    return value;
}

RectValue areaOf(const std::string& text) {
    std::vector<double> parts;
    std::stringstream stream(text);
    std::string part;
    while (std::getline(stream, part, ',')) {
        double value = 0;
        const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (error != std::errc{} || end != part.data() + part.size() || !std::isfinite(value)) {
            throw CLIArgumentError::invalidValue("--area " + text);
        }
        parts.push_back(value);
    }
    if (parts.size() != 4 || parts[0] < 0 || parts[1] < 0 || parts[2] < 2 || parts[3] < 2) {
        throw CLIArgumentError::invalidValue("--area " + text);
    }
    return {parts[0], parts[1], parts[2], parts[3]};
}

std::uint32_t windowOf(const std::string& text) {
    const bool hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char* begin = text.data() + (hexadecimal ? 2 : 0);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(begin, text.data() + text.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != text.data() + text.size() || begin == end || value == 0) {
        throw CLIArgumentError::invalidValue("--window " + text);
    }
    return value;
}

} // namespace

RecorderArguments parseRecorderArguments(const std::vector<std::string>& arguments) {
    RecorderArguments parsed;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        const auto value = [&]() -> const std::string& {
            if (i + 1 >= arguments.size() || arguments[i + 1].rfind("--", 0) == 0) {
                throw CLIArgumentError::missingValue(option);
            }
            return arguments[++i];
        };
        if (option == "--seconds") {
            parsed.seconds = positiveNumber(option, value());
        } else if (option == "--display") {
            parsed.display = value();
        } else if (option == "--fps") {
            const std::string& text = value();
            if (text != "30" && text != "60") {
                throw CLIArgumentError::invalidValue("--fps " + text);
            }
            parsed.framesPerSecond = text == "30" ? 30 : 60;
        } else if (option == "--area") {
            parsed.area = areaOf(value());
        } else if (option == "--window") {
            parsed.windowID = windowOf(value());
        } else if (option == "--system-audio") {
            parsed.capturesSystemAudio = true;
        } else if (option == "--microphone") {
            parsed.microphone = value();
        } else if (option == "--webcam") {
            parsed.webcam = value();
        } else {
            throw CLIArgumentError::unexpectedArgument(option);
        }
    }
    if (parsed.area && parsed.windowID) {
        throw CLIArgumentError::invalidValue("--area --window");
    }
    return parsed;
}

} // namespace rilo::recorder
