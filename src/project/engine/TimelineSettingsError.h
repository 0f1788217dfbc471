#pragma once

#include "shared/Errors.h"

#include <string>
#include <utility>

namespace rilo {

// The cases of TimelineSettingsError.
enum class TimelineSettingsErrorCase {
    unknownKey,
    invalidValue,
    webcamUnavailable,
};

// A setting of the settings vocabulary that cannot be applied. The texts name
// the key, never the value.
class TimelineSettingsError : public CaseError<TimelineSettingsErrorCase> {
public:
    static TimelineSettingsError unknownKey(const std::string& key) {
        return {Case::unknownKey, key, "不支持设置项：" + key};
    }
    static TimelineSettingsError invalidValue(const std::string& key) {
        return {Case::invalidValue, key, "设置项取值无效：" + key};
    }
    static TimelineSettingsError webcamUnavailable() {
        return {Case::webcamUnavailable, {}, "当前项目没有摄像头轨道。"};
    }

    // The refused key; empty for webcamUnavailable.
    const std::string& key() const noexcept { return key_; }

private:
    TimelineSettingsError(Case errorCase, std::string key, const std::string& message)
        : CaseError(errorCase, message)
        , key_(std::move(key)) {}

    std::string key_;
};

} // namespace rilo
