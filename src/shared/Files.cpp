#include "shared/Files.h"

#include "shared/Errors.h"
#include "shared/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rilo {

namespace {
std::string describe(const std::filesystem::path& path, int error) {
    return "无法写入文件：" + path.string() + "（" + std::strerror(error) + "）";
}

} // namespace

std::string readFileBytes(const std::filesystem::path& path) {
    std::string contents;
    readFileBytes(path, contents, 0);
    return contents;
}

void readFileBytes(const std::filesystem::path& path, std::string& contents, std::size_t spareCapacity) {
    // Plain reads, so that every failure is seen: a stream would read a
    // directory, or a file failing part way, as empty or short contents.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        throw FileError("无法读取文件：" + path.string());
    }
    contents.clear();
    // The size is a hint: a file that grows or shrinks meanwhile is read to its end.
    constexpr std::size_t step = 65536;
    contents.reserve(static_cast<std::size_t>(std::max<off_t>(status.st_size, 0)) + step + spareCapacity);
    for (;;) {
        const std::size_t used = contents.size();
        if (contents.capacity() < used + step + spareCapacity) {
            contents.reserve(2 * (used + step + spareCapacity));
        }
        contents.resize(used + step);
        const ssize_t n = ::read(file.get(), contents.data() + used, step);
        contents.resize(used + static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw FileError("无法读取文件：" + path.string());
        }
        if (n == 0) {
            return;
        }
    }
}

void syncDirectory(const std::filesystem::path& directory) noexcept {
    const FileDescriptor handle(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (handle.isOpen()) {
        ::fsync(handle.get());
    }
}

void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes) {
    const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
    std::string pattern = (directory / ("." + path.filename().string() + ".XXXXXX")).string();
    FileDescriptor file(::mkstemp(pattern.data()));
    if (file.get() < 0) {
        throw FileError(describe(path, errno));
    }
    const std::string temporary = pattern;
    const auto fail = [&](int error) {
        file.close();
        ::unlink(temporary.c_str());
        throw FileError(describe(path, error));
    };
    ::fchmod(file.get(), 0644);
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(file.get(), bytes.data() + written, bytes.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(errno);
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(file.get()) != 0) {
        fail(errno);
    }
    if (file.close() != 0) {
        fail(errno);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throw FileError(describe(path, error));
    }
    // Make the rename itself durable.
    syncDirectory(directory);
}

} // namespace rilo
