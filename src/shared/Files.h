#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace rilo {

// Reads a whole file; throws FileError naming the file when it cannot.
std::string readFileBytes(const std::filesystem::path& path);

// The same into `contents`, whose capacity is reused, leaving at least
// `spareCapacity` bytes of room after the end (parsers that read past the
// end of their input ask for that).
void readFileBytes(const std::filesystem::path& path, std::string& contents, std::size_t spareCapacity);

// Makes the renames and creations within a directory durable; best effort.
void syncDirectory(const std::filesystem::path& directory) noexcept;

// Replaces the file in one step: the bytes go to a temporary file in the same
// directory, are flushed to disk, and the temporary file is renamed over the
// target. A reader sees the old or the new content, never a mixture; on any
// failure the old file is untouched and the temporary file is removed.
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes);

} // namespace rilo
