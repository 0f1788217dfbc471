#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace rilo {

// SHA-256 of bytes, as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);
// SHA-256 of a file's bytes on disk; throws FileError when it cannot be read.
std::string sha256HexOfFile(const std::filesystem::path& path);

} // namespace rilo
