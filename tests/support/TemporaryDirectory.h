#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace rilo::testing {

// A fresh directory under the system's temporary directory, removed with its
// contents when the object goes away.
class TemporaryDirectory {
public:
    TemporaryDirectory()
        : TemporaryDirectory(std::filesystem::temp_directory_path()) {}
    explicit TemporaryDirectory(const std::filesystem::path& parent) {
        std::random_device random;
        path_ = parent / ("rilo-test-" + std::to_string(random()) + "-" + std::to_string(random()));
        std::filesystem::create_directories(path_);
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

} // namespace rilo::testing
