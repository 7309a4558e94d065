#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Text is UTF-8. A character is an extended grapheme cluster, a scalar a code point.
namespace kelvadrome::Text {

enum class EmptyPieces { keep, drop };

bool isValidUTF8(std::string_view bytes);
/// Each maximal ill-formed subpart becomes U+FFFD; valid text comes back as it is.
std::string repairUTF8(std::string_view bytes);

/// The code points of valid UTF-8; ill-formed bytes read as U+FFFD.
std::u32string scalars(std::string_view text);
std::string fromScalars(std::u32string_view scalars);

std::size_t characterCount(std::string_view text);
/// The first `count` characters, never half of one.
std::string_view prefix(std::string_view text, std::size_t count);
/// The text without its first `count` characters.
std::string_view dropFirst(std::string_view text, std::size_t count);

/// The columns that a terminal gives it: 2 for a wide scalar, none for one that joins the scalar before it.
std::size_t columns(std::string_view text);

/// Canonical composition. Text that can't be normalised (ill-formed) comes back as it is.
std::string normalizedNFC(std::string_view text);
/// Equality of canonically equivalent texts.
bool canonicallyEqual(std::string_view left, std::string_view right);

/// Full lower case by simple Unicode mappings. For words of a person; a protocol's words are
/// `lowercasedASCII`.
std::string lowercased(std::string_view text);
/// A to Z only: "İ" and the Kelvin sign don't turn into letters of a header's or a scheme's name.
std::string lowercasedASCII(std::string_view text);
/// The first character upper-cased, the rest as it is.
std::string uppercasedFirst(std::string_view text);
/// "two wORDS" gives "Two Words": each word's first letter upper-cased, the others lower-cased.
std::string capitalized(std::string_view text);

/// Blanks and tabs only.
std::string_view trimBlanks(std::string_view text);
/// Unicode white space and line ends.
std::string_view trimWhitespace(std::string_view text);
bool isWhitespace(char32_t scalar);

/// At most `maxSplits` cuts; with dropped empty pieces, an empty piece uses up no cut.
std::vector<std::string_view> split(std::string_view text, char separator,
    EmptyPieces empty = EmptyPieces::keep, std::size_t maxSplits = SIZE_MAX);
std::string join(const std::vector<std::string>& pieces, std::string_view separator);
std::string replaceAll(std::string_view text, std::string_view what, std::string_view with);
/// The last piece of a path that isn't empty, or the text itself when there is none.
std::string_view lastPathComponent(std::string_view path);

/// A whole decimal (or base-16) integer with an optional leading "+" or "-"; absent otherwise and on
/// overflow.
std::optional<std::int64_t> parseInteger(std::string_view text, int base = 10);

} // namespace kelvadrome::Text
