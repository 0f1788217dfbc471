#pragma once

#include "shared/Errors.h"

#include <cstdint>
#include <string>

namespace rilo {

// The cases of ProjectStoreError.
enum class ProjectStoreErrorCase {
    projectNotFound,
    ambiguousProjectPrefix,
    timelineDigestConflict,
    historyNotFound,
    captionsDigestConflict,
    invalidProjectLocation,
    timelineLockUnavailable,
};

// Failures of the project library and its commits.
class ProjectStoreError : public CaseError<ProjectStoreErrorCase> {
public:
    static ProjectStoreError projectNotFound(const std::string& prefix) {
        return {Case::projectNotFound, "找不到项目：" + prefix};
    }
    static ProjectStoreError ambiguousProjectPrefix(const std::string& prefix) {
        return {Case::ambiguousProjectPrefix, "项目ID前缀不唯一：" + prefix};
    }
    static ProjectStoreError timelineDigestConflict(const std::string& expected, const std::string& actual) {
        return {Case::timelineDigestConflict, "Timeline已被其他进程修改，请重新预演。", expected, actual};
    }
    static ProjectStoreError historyNotFound(std::int64_t index) {
        return {Case::historyNotFound, "找不到历史版本：" + std::to_string(index)};
    }
    static ProjectStoreError captionsDigestConflict(const std::string& expected, const std::string& actual) {
        return {Case::captionsDigestConflict, "字幕已被其他进程修改，请重新预演。", expected, actual};
    }
    static ProjectStoreError invalidProjectLocation() {
        return {Case::invalidProjectLocation, "项目不在 Rilo 项目目录中，拒绝删除。"};
    }
    static ProjectStoreError timelineLockUnavailable() {
        return {Case::timelineLockUnavailable, "无法锁定Timeline提交。"};
    }

    // The digests of a conflict: what the caller expected and what is on disk.
    const std::string& expectedDigest() const noexcept { return expected_; }
    const std::string& actualDigest() const noexcept { return actual_; }

private:
    ProjectStoreError(Case errorCase, const std::string& message, std::string expected = {},
                      std::string actual = {})
        : CaseError(errorCase, message)
        , expected_(std::move(expected))
        , actual_(std::move(actual)) {}

    std::string expected_;
    std::string actual_;
};

} // namespace rilo
