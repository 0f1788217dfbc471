#include "project/store/AdvisoryFileLock.h"

#include "project/store/ProjectStoreError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace rilo {

AdvisoryFileLock::AdvisoryFileLock(const std::filesystem::path& path) {
    do {
        fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    } while (fd_ < 0 && errno == EINTR);
    if (fd_ < 0) {
        throw ProjectStoreError::timelineLockUnavailable();
    }
    int result = 0;
    do {
        result = ::flock(fd_, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        ::close(fd_);
        throw ProjectStoreError::timelineLockUnavailable();
    }
}

AdvisoryFileLock::~AdvisoryFileLock() {
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
}

} // namespace rilo
