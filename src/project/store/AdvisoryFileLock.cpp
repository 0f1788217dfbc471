#include "project/store/AdvisoryFileLock.h"

#include "project/store/ProjectStoreError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace rilo {

AdvisoryFileLock::AdvisoryFileLock(const std::filesystem::path& path) {
    int fd = -1;
    do {
        fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    } while (fd < 0 && errno == EINTR);
    file_ = FileDescriptor(fd);
    if (!file_.isOpen()) {
        throw ProjectStoreError::timelineLockUnavailable();
    }
    int result = 0;
    do {
        result = ::flock(file_.get(), LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        throw ProjectStoreError::timelineLockUnavailable();
    }
}

AdvisoryFileLock::~AdvisoryFileLock() {
    // Closing releases the lock too; unlocking first says so plainly.
    ::flock(file_.get(), LOCK_UN);
}

} // namespace rilo
