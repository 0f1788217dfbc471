#pragma once

// Owns one open file descriptor and closes it once: the one owner of raw
// descriptors in the program (files, locks, signal and event descriptors).

#include <unistd.h>

namespace rilo {

class FileDescriptor {
public:
    FileDescriptor() noexcept = default;
    // Takes `fd` (negative means none).
    explicit FileDescriptor(int fd) noexcept
        : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = other.release();
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { close(); }

    bool isOpen() const noexcept { return fd_ >= 0; }
    int get() const noexcept { return fd_; }

    // Gives the descriptor up without closing it.
    int release() noexcept {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    // Closes now; answers close(2)'s result (0 when nothing was open), which
    // matters to writers that must know their data reached the file.
    int close() noexcept {
        const int result = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return result;
    }

private:
    int fd_ = -1;
};

} // namespace rilo
