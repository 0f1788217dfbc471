#pragma once

#include "shared/Errors.h"

namespace rilo::cli {

enum class CaptionExchangeErrorCase { invalidDocument, documentTooLarge };

// Why a file of the caption exchange could not be taken: a job directory
// that could not be made safely, or a job or result file that is missing,
// leads out of the exchange directory, does not decode, or is too large.
class CaptionExchangeError : public CaseError<CaptionExchangeErrorCase> {
public:
    static CaptionExchangeError invalidDocument() {
        return {Case::invalidDocument, "Caption Exchange Schema 1文档无效。"};
    }
    static CaptionExchangeError documentTooLarge() {
        return {Case::documentTooLarge, "Caption Exchange文件超过安全上限。"};
    }

private:
    CaptionExchangeError(Case errorCase, const char* message)
        : CaseError(errorCase, message) {}
};

} // namespace rilo::cli
