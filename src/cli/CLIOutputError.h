#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo::cli {

// The cases of CLIOutputError.
enum class CLIOutputErrorCase { outputExists, parentMissing };

// An output file of `frame`, `preview` or `export` that cannot be written
// where it was asked for. Reported as "execution" (exit 5), before the
// project is opened.
class CLIOutputError : public CaseError<CLIOutputErrorCase> {
public:
    static CLIOutputError outputExists(const std::string& path) {
        return {Case::outputExists, "输出已存在，使用--replace才能覆盖：" + path};
    }
    static CLIOutputError parentMissing(const std::string& path) {
        return {Case::parentMissing, "输出目录不存在：" + path};
    }

private:
    CLIOutputError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}
};

} // namespace rilo::cli
