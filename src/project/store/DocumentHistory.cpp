#include "project/store/DocumentHistory.h"

#include "shared/Errors.h"
#include "shared/Files.h"
#include "shared/Uuid.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

namespace rilo::DocumentHistory {

std::string stamp(std::chrono::system_clock::time_point moment) {
    using namespace std::chrono;
    const auto milliseconds = floor<std::chrono::milliseconds>(moment);
    const sys_days day = floor<days>(milliseconds);
    const year_month_day date{day};
    const hh_mm_ss time{milliseconds - day};
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d-%02d-%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
    return buffer;
}

std::string newEntryName() {
    return stamp(std::chrono::system_clock::now()) + "-" + Uuid::random().string() + ".json";
}

void createDirectory(const std::filesystem::path& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw FileError("无法创建目录：" + directory.string() + "（" + error.message() + "）");
    }
}

std::filesystem::path writeEntry(const std::filesystem::path& directory, std::string_view bytes) {
    createDirectory(directory);
    const std::filesystem::path entry = directory / newEntryName();
    writeFileAtomically(entry, bytes);
    return entry;
}

std::vector<std::filesystem::path> entries(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> found;
    std::error_code error;
    if (!std::filesystem::exists(directory, error)) {
        return found;
    }
    std::filesystem::directory_iterator iterator(directory, error);
    if (error) {
        throw FileError("无法读取目录：" + directory.string() + "（" + error.message() + "）");
    }
    while (iterator != std::filesystem::directory_iterator()) {
        const std::filesystem::path& path = iterator->path();
        if (!path.filename().string().starts_with(".") && path.extension() == ".json") {
            found.push_back(path);
        }
        iterator.increment(error);
        if (error) {
            throw FileError("无法读取目录：" + directory.string() + "（" + error.message() + "）");
        }
    }
    std::sort(found.begin(), found.end(),
              [](const auto& a, const auto& b) { return a.filename().string() < b.filename().string(); });
    return found;
}

void trim(const std::filesystem::path& directory) {
    const std::vector<std::filesystem::path> all = entries(directory);
    if (all.size() <= retainedEntryCount) {
        return;
    }
    const std::size_t excess = all.size() - retainedEntryCount;
    for (std::size_t i = 0; i < excess; ++i) {
        std::error_code error;
        std::filesystem::remove(all[i], error);
        if (error) {
            throw FileError("无法删除文件：" + all[i].string() + "（" + error.message() + "）");
        }
    }
}

} // namespace rilo::DocumentHistory
