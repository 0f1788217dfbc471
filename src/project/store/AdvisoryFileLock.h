#pragma once

// An exclusive advisory lock (flock) on a file, held for the life of the
// object. Other processes that lock the same file wait until it is released;
// the system releases it when the holding process dies. Waiting has no time
// limit. Within one process two locks on the same file also exclude each
// other, so one thread must never take the same lock twice.

#include "shared/FileDescriptor.h"

#include <filesystem>

namespace rilo {

class AdvisoryFileLock {
public:
    // Opens the file for reading and writing, creating it empty with owner
    // read and write permission, and waits for the exclusive lock. Throws
    // ProjectStoreError::timelineLockUnavailable when the file cannot be opened
    // or locked.
    explicit AdvisoryFileLock(const std::filesystem::path& path);
    ~AdvisoryFileLock();

    AdvisoryFileLock(const AdvisoryFileLock&) = delete;
    AdvisoryFileLock& operator=(const AdvisoryFileLock&) = delete;

private:
    FileDescriptor file_;
};

} // namespace rilo
