#pragma once

// Every failure the system reports is a typed exception carrying the exact
// text shown to people. Each error enumeration is one class derived from
// LocalizedError, with its case available to callers that classify it.

#include <stdexcept>
#include <string>

namespace rilo {

class LocalizedError : public std::runtime_error {
public:
    explicit LocalizedError(const std::string& message)
        : std::runtime_error(message) {}
    std::string message() const { return what(); }
};

// The shape of every typed error: one enumeration of cases, each with its
// fixed text (some with a value appended). Callers classify by errorCase().
template <class CaseEnumeration>
class CaseError : public LocalizedError {
public:
    using Case = CaseEnumeration;

    Case errorCase() const noexcept { return case_; }

protected:
    CaseError(Case errorCase, const std::string& message)
        : LocalizedError(message)
        , case_(errorCase) {}

private:
    Case case_;
};

// A document or file that cannot be read, decoded or written.
class FileError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

// The task was cancelled (by a signal, or by a newer task).
class CancellationError : public LocalizedError {
public:
    CancellationError()
        : LocalizedError("命令已取消。") {}
};

} // namespace rilo
