#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace rilo {

// SHA-256 of bytes, as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);
// SHA-256 of the parts' bytes one after another, as if they were one buffer.
std::string sha256Hex(std::span<const std::string_view> parts);
// SHA-256 of a file's bytes on disk; throws FileError when it cannot be read.
std::string sha256HexOfFile(const std::filesystem::path& path);

} // namespace rilo
