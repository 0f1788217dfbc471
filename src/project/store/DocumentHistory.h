#pragma once

// The bounded history of a committed document: a directory of whole copies
// of earlier versions, named "<stamp>-<UUID>.json". The stamp is the UTC time
// of the commit with milliseconds and '-' in place of ':', so names sort by
// time, and the fresh UUID keeps two commits of the same millisecond apart.
// Hidden files and names without the extension "json" are not entries.

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace rilo::DocumentHistory {

inline constexpr std::size_t retainedEntryCount = 20;

// "2026-03-02T08-15-30.123Z" for that moment (milliseconds truncated).
std::string stamp(std::chrono::system_clock::time_point moment);

// "<stamp of now>-<fresh upper-case UUID>.json".
std::string newEntryName();

// Creates the history directory with its parents; throws FileError.
void createDirectory(const std::filesystem::path& directory);

// Creates the directory with its parents and writes the bytes atomically to
// a new entry; returns its path. Throws FileError.
std::filesystem::path writeEntry(const std::filesystem::path& directory, std::string_view bytes);

// The entries, sorted by file name ascending (oldest first); empty when the
// directory does not exist. Throws FileError when it cannot be listed.
std::vector<std::filesystem::path> entries(const std::filesystem::path& directory);

// Removes the oldest entries until at most retainedEntryCount remain. The
// first failure stops the trimming and is thrown as FileError.
void trim(const std::filesystem::path& directory);

} // namespace rilo::DocumentHistory
