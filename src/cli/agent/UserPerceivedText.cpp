#include "cli/agent/UserPerceivedText.h"

#include <cstdint>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace rilo::cli {

namespace {

struct UTextCloser {
    void operator()(UText* text) const noexcept { utext_close(text); }
};

// Walks the character boundaries of the text, in bytes, until `visit`
// returns false. Without a working ICU break iterator the boundaries are
// those of code points, which still never split a UTF-8 sequence.
template <class Visit>
void forEachCharacterEnd(std::string_view text, Visit visit) {
    if (text.empty()) {
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, UTextCloser> unicode(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
    const std::unique_ptr<icu::BreakIterator> iterator(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_SUCCESS(status)) {
        iterator->setText(unicode.get(), status);
    }
    if (U_FAILURE(status)) {
        const auto length = static_cast<std::int64_t>(text.size());
        std::int64_t offset = 0;
        while (offset < length) {
            UChar32 codePoint = 0;
            U8_NEXT(text.data(), offset, length, codePoint);
            if (!visit(static_cast<std::size_t>(offset))) {
                return;
            }
        }
        return;
    }
    iterator->first();
    for (std::int32_t end = iterator->next(); end != icu::BreakIterator::DONE; end = iterator->next()) {
        if (!visit(static_cast<std::size_t>(end))) {
            return;
        }
    }
}

} // namespace

std::size_t userPerceivedCharacterCount(std::string_view text) {
    std::size_t count = 0;
    forEachCharacterEnd(text, [&](std::size_t) {
        ++count;
        return true;
    });
    return count;
}

std::string_view userPerceivedPrefix(std::string_view text, std::size_t maximumCharacters) {
    if (maximumCharacters == 0) {
        return text.substr(0, 0);
    }
    std::size_t count = 0;
    std::size_t prefixLength = text.size();
    forEachCharacterEnd(text, [&](std::size_t end) {
        if (++count == maximumCharacters) {
            prefixLength = end;
            return false;
        }
        return true;
    });
    return text.substr(0, prefixLength);
}

std::string_view trimmedWhiteSpace(std::string_view text) {
    const auto length = static_cast<std::int64_t>(text.size());
    std::int64_t start = 0;
    while (start < length) {
        std::int64_t next = start;
        UChar32 codePoint = 0;
        U8_NEXT(text.data(), next, length, codePoint);
        if (codePoint < 0 || !u_isUWhiteSpace(codePoint)) {
            break;
        }
        start = next;
    }
    std::int64_t end = length;
    while (end > start) {
        std::int64_t previous = end - 1;
        while (previous > start && (static_cast<unsigned char>(text[previous]) & 0xC0) == 0x80) {
            --previous;
        }
        std::int64_t next = previous;
        UChar32 codePoint = 0;
        U8_NEXT(text.data(), next, end, codePoint);
        if (codePoint < 0 || next != end || !u_isUWhiteSpace(codePoint)) {
            break;
        }
        end = previous;
    }
    return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

} // namespace rilo::cli
