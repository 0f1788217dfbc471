#pragma once

// The files that agents and the command line pass through "AgentExchange",
// beside the projects directory: one directory per job. Everything read
// from there is checked to lie where its name says: the job directory a real
// directory of the exchange root, the file a regular file and no symbolic
// link (also not one put in place between the check and the read), and no
// larger than its limit. Each exchange passes in how it reports a refusal.

#include "shared/Uuid.h"

#include <cstddef>
#include <exception>
#include <filesystem>
#include <string>

namespace rilo::cli::AgentExchangeFiles {

struct Failures {
    std::exception_ptr (*invalid)();  // not where or what it must be
    std::exception_ptr (*tooLarge)(); // over its limit
};

// <application data>/Rilo/AgentExchange, beside the projects directory.
std::filesystem::path rootDirectory(const std::filesystem::path& projectsDirectory);

// Creates the root when missing (FileError when it cannot) and a new job
// directory in it; a root that is a link, or a job directory that exists, is
// refused.
std::filesystem::path createJobDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID,
                                         const Failures& failures);

// Refuses a file that is not a regular file of a job directory of the root.
void checkFile(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
               const Failures& failures);

// The file's bytes, after checkFile, at most maximumBytes of them.
std::string read(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                 std::size_t maximumBytes, const Failures& failures);

} // namespace rilo::cli::AgentExchangeFiles
