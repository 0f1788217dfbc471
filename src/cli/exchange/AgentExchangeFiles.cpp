#include "cli/exchange/AgentExchangeFiles.h"

#include "shared/Errors.h"

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <system_error>
#include <unistd.h>

namespace rilo::cli::AgentExchangeFiles {
namespace {

// The path with every symbolic link resolved; none when it does not exist.
std::optional<std::filesystem::path> resolved(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path result = std::filesystem::canonical(path, error);
    if (error) {
        return std::nullopt;
    }
    return result;
}

// A directory that is where its name says: no symbolic link itself, and its
// resolved path is its resolved parent plus its own name. Links further up
// (a data directory reached through one) are the user's own.
bool isRealDirectory(const std::filesystem::path& directory) {
    std::error_code error;
    if (std::filesystem::symlink_status(directory, error).type() != std::filesystem::file_type::directory) {
        return false;
    }
    const auto self = resolved(directory);
    const auto parent = resolved(directory.parent_path());
    return self && parent && *self == *parent / directory.filename();
}

// Without a trailing separator, so that parent_path is the parent.
std::filesystem::path withoutTrailingSeparator(const std::filesystem::path& path) {
    std::filesystem::path normal = path.lexically_normal();
    if (!normal.has_filename() && normal.has_parent_path() && normal != normal.root_path()) {
        normal = normal.parent_path();
    }
    return normal;
}

[[noreturn]] void fail(std::exception_ptr (*failure)()) {
    std::rethrow_exception(failure());
}

} // namespace

std::filesystem::path rootDirectory(const std::filesystem::path& projectsDirectory) {
    return withoutTrailingSeparator(projectsDirectory).parent_path() / "AgentExchange";
}

std::filesystem::path createJobDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID,
                                         const Failures& failures) {
    std::error_code error;
    if (std::filesystem::symlink_status(exchangeRoot, error).type() ==
        std::filesystem::file_type::not_found) {
        std::filesystem::create_directories(exchangeRoot, error);
        if (error) {
            throw FileError("无法创建目录：" + exchangeRoot.string() + "（" + error.message() + "）");
        }
    }
    if (!isRealDirectory(exchangeRoot)) {
        fail(failures.invalid);
    }
    const std::filesystem::path jobDirectory = exchangeRoot / jobID.string();
    if (std::filesystem::symlink_status(jobDirectory, error).type() !=
        std::filesystem::file_type::not_found) {
        fail(failures.invalid);
    }
    if (!std::filesystem::create_directory(jobDirectory, error) || error) {
        fail(failures.invalid);
    }
    return jobDirectory;
}

void checkFile(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
               const Failures& failures) {
    const std::filesystem::path jobDirectory = file.parent_path();
    const auto root = resolved(exchangeRoot);
    const auto jobParent = resolved(jobDirectory.parent_path());
    if (!root || !jobParent || *root != *jobParent || !isRealDirectory(jobDirectory)) {
        fail(failures.invalid);
    }
    std::error_code error;
    if (std::filesystem::symlink_status(file, error).type() != std::filesystem::file_type::regular) {
        fail(failures.invalid);
    }
}

std::string read(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                 std::size_t maximumBytes, const Failures& failures) {
    checkFile(file, exchangeRoot, failures);
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error || size > maximumBytes) {
        fail(failures.tooLarge);
    }
    // O_NOFOLLOW: a link put in place since the check is refused as well.
    const int fd = ::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        fail(failures.invalid);
    }
    std::string bytes;
    // One byte more than allowed tells a file that grew since its size was read.
    bytes.resize(maximumBytes + 1);
    std::size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t n = ::read(fd, bytes.data() + length, bytes.size() - length);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ::close(fd);
            fail(failures.invalid);
        }
        if (n == 0) {
            break;
        }
        length += static_cast<std::size_t>(n);
    }
    ::close(fd);
    if (length > maximumBytes) {
        fail(failures.tooLarge);
    }
    bytes.resize(length);
    return bytes;
}

} // namespace rilo::cli::AgentExchangeFiles
