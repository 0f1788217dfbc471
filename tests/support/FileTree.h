#pragma once

#include "shared/Files.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace rilo::testing {

// Every entry under a directory with, for files, their bytes, and for all,
// the time of their last change: equal states mean nothing was touched.
inline std::map<std::filesystem::path, std::pair<std::string, std::filesystem::file_time_type>>
fileTreeState(const std::filesystem::path& root) {
    std::map<std::filesystem::path, std::pair<std::string, std::filesystem::file_time_type>> state;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        state[entry.path()] = {entry.is_regular_file() ? readFileBytes(entry.path()) : std::string(),
                               std::filesystem::last_write_time(entry.path())};
    }
    return state;
}

// The names in a directory, hidden ones included, sorted.
inline std::vector<std::string> entryNames(const std::filesystem::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace rilo::testing
