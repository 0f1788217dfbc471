#include "project/store/ChunkStore.h"

#include "shared/Errors.h"
#include "shared/Files.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <system_error>
#include <unistd.h>

namespace rilo::ChunkFiles {

namespace {

constexpr std::string_view chunkExtension = ".json";

// The chunk's number when the name is decimal digits before ".json".
std::optional<std::int64_t> chunkNumber(const std::filesystem::path& file) {
    const std::string stem = file.stem().string();
    if (stem.empty() || !std::all_of(stem.begin(), stem.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(stem.data(), stem.data() + stem.size(), number);
    if (error != std::errc() || end != stem.data() + stem.size() ||
        number == std::numeric_limits<std::int64_t>::max()) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::string chunkFileName(std::int64_t index) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%06lld", static_cast<long long>(index));
    return std::string(digits) + std::string(chunkExtension);
}

std::vector<std::filesystem::path> list(const std::filesystem::path& directory) {
    std::error_code error;
    if (!std::filesystem::exists(directory, error)) {
        if (error) {
            throw FileError("无法读取目录：" + directory.string());
        }
        return {};
    }
    std::vector<std::filesystem::path> files;
    std::filesystem::directory_iterator entries(directory, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        const auto& entry = *entries;
        const std::string name = entry.path().filename().string();
        if (name.starts_with('.') || entry.path().extension() != chunkExtension) {
            continue;
        }
        std::error_code typeError;
        if (entry.is_regular_file(typeError)) {
            files.push_back(entry.path());
        }
    }
    if (error) {
        throw FileError("无法读取目录：" + directory.string());
    }
    std::sort(files.begin(), files.end(),
              [](const auto& a, const auto& b) { return a.filename().string() < b.filename().string(); });
    return files;
}

std::int64_t prepareDirectory(const std::filesystem::path& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error || !std::filesystem::is_directory(directory, error)) {
        throw FileError("无法创建目录：" + directory.string());
    }
    std::int64_t next = 0;
    for (const auto& file : list(directory)) {
        if (const auto number = chunkNumber(file)) {
            next = std::max(next, *number + 1);
        }
    }
    return next;
}

void write(const std::filesystem::path& directory, std::int64_t index, std::string_view bytes) {
    const auto active = directory / activeFileName;
    const auto final = directory / chunkFileName(index);
    writeFileAtomically(active, bytes);
    // rename replaces a file of the same name in one step, so the numbered
    // name never shows a partial chunk.
    if (::rename(active.c_str(), final.c_str()) != 0) {
        const int error = errno;
        throw FileError("无法写入文件：" + final.string() + "（" + std::strerror(error) + "）");
    }
    syncDirectory(directory);
}

} // namespace rilo::ChunkFiles
