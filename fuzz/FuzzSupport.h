#pragma once

// What the fuzz targets share. A target hands its input to the code that
// reads that kind of file, the way the program does, and lets through only
// the errors that code documents. Anything else is a finding: an exception
// that escapes, a sanitizer report, a broken promise reported by finding(),
// a hang or a runaway allocation, all of which libFuzzer keeps as a crash.

#include "shared/Json.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace rilo::fuzz {

inline std::string_view inputText(const std::uint8_t* data, std::size_t size) noexcept {
    return {reinterpret_cast<const char*>(data), size};
}

// A promise of the code under test that the input broke.
[[noreturn]] inline void finding(const std::string& what) noexcept {
    std::fprintf(stderr, "finding: %s\n", what.c_str());
    std::fflush(stderr);
    std::abort();
}

// What the program writes it must read back unchanged: a value that was read
// (and, where the program does so, normalised and validated) is encoded as the
// program would write it, and decoding those bytes must give the same value.
template <class T>
void requireRoundTrip(const T& value, std::string_view document) {
    const std::string bytes = json::encodeDocument(value);
    if (!(json::decodeDocument<T>(bytes) == value)) {
        finding(std::string(document) + " reads back differently after it is written:\n" + bytes);
    }
}

// A directory of the process's own for targets whose code under test reads
// files, removed when the process ends normally.
class ScratchDirectory {
public:
    explicit ScratchDirectory(std::string_view name)
        : path_(std::filesystem::temp_directory_path() /
                ("rilo-fuzz-" + std::string(name) + "-" + std::to_string(::getpid()))) {
        std::filesystem::create_directories(path_);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }

    // Replaces the file's contents. Without the flush and rename of
    // writeFileAtomically: nothing here has to survive a crash, and a sync per
    // input would make the target a disk benchmark.
    void write(const std::string& fileName, std::string_view bytes) const {
        std::FILE* file = std::fopen((path_ / fileName).c_str(), "wb");
        if (file == nullptr) {
            finding("cannot write the scratch file " + (path_ / fileName).string());
        }
        const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        if (std::fclose(file) != 0 || !written) {
            finding("cannot write the scratch file " + (path_ / fileName).string());
        }
    }

private:
    std::filesystem::path path_;
};

} // namespace rilo::fuzz
