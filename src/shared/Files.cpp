#include "shared/Files.h"

#include "shared/Errors.h"

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

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) noexcept
        : fd_(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { close(); }
    int get() const noexcept { return fd_; }
    int close() noexcept {
        const int result = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return result;
    }

private:
    int fd_;
};
} // namespace

std::string readFileBytes(const std::filesystem::path& path) {
    // Plain reads, so that every failure is seen: a stream would read a
    // directory, or a file failing part way, as empty or short contents.
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throw FileError("无法读取文件：" + path.string());
    }
    std::string contents;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(file.get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw FileError("无法读取文件：" + path.string());
        }
        if (n == 0) {
            return contents;
        }
        contents.append(buffer, static_cast<std::size_t>(n));
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
    FileDescriptor directoryHandle(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directoryHandle.get() >= 0) {
        ::fsync(directoryHandle.get());
    }
}

} // namespace rilo
