#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo::app {

// The cases of AppUpdateError.
enum class AppUpdateErrorCase {
    httpStatus,
    invalidMetadata,
    invalidCurrentVersion,
    invalidResponse,
    cannotOpenBrowser,
};

// A failure of the update check or of opening the download.
class AppUpdateError : public CaseError<AppUpdateErrorCase> {
public:
    static AppUpdateError httpStatus(long statusCode) {
        return {Case::httpStatus, "更新服务器返回错误（HTTP " + std::to_string(statusCode) + "）。",
                statusCode};
    }
    static AppUpdateError invalidMetadata() { return {Case::invalidMetadata, "服务器返回的更新信息无效。"}; }
    static AppUpdateError invalidCurrentVersion() {
        return {Case::invalidCurrentVersion, "无法识别当前应用版本。"};
    }
    static AppUpdateError invalidResponse() {
        return {Case::invalidResponse, "服务器返回了无法识别的响应。"};
    }
    static AppUpdateError cannotOpenBrowser() {
        return {Case::cannotOpenBrowser, "无法打开默认浏览器，请稍后重试。"};
    }

    // The HTTP status of httpStatus; 0 for the other cases.
    long statusCode() const noexcept { return statusCode_; }

private:
    AppUpdateError(Case errorCase, const std::string& message, long statusCode = 0)
        : CaseError(errorCase, message)
        , statusCode_(statusCode) {}

    long statusCode_;
};

// The endpoint could not be reached at all: no connection, no secure
// connection, or no complete answer within the time allowed. The message is
// the one a person sees after a manual check.
class AppUpdateConnectionError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

} // namespace rilo::app
