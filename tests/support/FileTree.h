#pragma once

#include "shared/Files.h"

#include <filesystem>
#include <map>
#include <string>
#include <utility>

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

} // namespace rilo::testing
