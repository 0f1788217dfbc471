#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo::cli {

// The cases of CLIArgumentError.
enum class CLIArgumentErrorCase {
    unknownCommand,
    missingValue,
    invalidValue,
    unexpectedArgument,
    missingCommand
};

// A command line that does not follow the grammar. Always reported as
// "invalid_arguments" with exit code 1, before any project is opened.
class CLIArgumentError : public CaseError<CLIArgumentErrorCase> {
public:
    static CLIArgumentError unknownCommand(const std::string& value) {
        return {Case::unknownCommand, "未知命令：" + value};
    }
    static CLIArgumentError missingValue(const std::string& value) {
        return {Case::missingValue, "缺少参数：" + value};
    }
    static CLIArgumentError invalidValue(const std::string& value) {
        return {Case::invalidValue, "参数无效：" + value};
    }
    static CLIArgumentError unexpectedArgument(const std::string& value) {
        return {Case::unexpectedArgument, "无法识别参数：" + value};
    }
    static CLIArgumentError missingCommand() { return {Case::missingCommand, "缺少命令。"}; }

private:
    CLIArgumentError(Case errorCase, const std::string& message)
        : CaseError(errorCase, message) {}
};

// A command that this build parses but cannot run yet.
class CLICommandUnavailableError : public LocalizedError {
public:
    explicit CLICommandUnavailableError(const std::string& command)
        : LocalizedError("此版本尚未提供该命令：" + command) {}
};

} // namespace rilo::cli
