#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo::cli {

// An output file of `frame`, `preview` or `export` that cannot be written
// where it was asked for. Reported as "execution" (exit 5), before the
// project is opened.
class CLIOutputError : public LocalizedError {
public:
    enum class Case { outputExists, parentMissing };

    static CLIOutputError outputExists(const std::string& path) {
        return {Case::outputExists, "输出已存在，使用--replace才能覆盖：" + path};
    }
    static CLIOutputError parentMissing(const std::string& path) {
        return {Case::parentMissing, "输出目录不存在：" + path};
    }

    Case errorCase() const noexcept { return case_; }

private:
    CLIOutputError(Case errorCase, const std::string& message)
        : LocalizedError(message)
        , case_(errorCase) {}

    Case case_;
};

} // namespace rilo::cli
