#pragma once

// Lengths of texts that people type, counted as they see them. A text is
// UTF-8; a "character" is a user-perceived character (an extended grapheme
// cluster): one Chinese character, one letter with its accents, or one
// composed emoji each count once. Cutting a text at a character boundary
// never splits a UTF-8 sequence or a cluster.

#include <cstddef>
#include <string_view>

namespace rilo::cli {

std::size_t userPerceivedCharacterCount(std::string_view text);

// The first `maximumCharacters` characters of the text, or all of it.
std::string_view userPerceivedPrefix(std::string_view text, std::size_t maximumCharacters);

// The text without the Unicode white space and line breaks around it.
std::string_view trimmedWhiteSpace(std::string_view text);

} // namespace rilo::cli
