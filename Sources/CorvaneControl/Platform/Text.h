#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Text as people see it: UTF-8 in and out, counted and cut in characters. A character is an
/// extended grapheme cluster (UAX #29); CR LF is one. All work is linear in the text.
namespace CorvaneControl::Text {

/// `bytes` with every malformed sequence replaced by U+FFFD (as Unicode recommends: one for each
/// maximal part of a sequence); a text that is already UTF-8 comes back unchanged.
std::string repaired(std::string bytes);

/// Whether no sequence in it is malformed.
bool isUTF8(std::string_view bytes);

/// The number of characters.
std::size_t characters(std::string_view text);

/// The first `count` characters; the whole text when it has no more than that. Looks no further
/// than it has to, so asking for the first few characters of megabytes is cheap.
std::string_view prefix(std::string_view text, std::size_t count);

/// The beginning of `text`, of at most `limit` bytes, that ends with a whole scalar value.
std::string_view cutAtScalar(std::string_view text, std::size_t limit);

/// `text` when it has at most `limit` characters, else its first `limit` characters and "…".
/// `cut`, when given, becomes true when something was cut, and is left alone otherwise.
std::string shortened(std::string_view text, std::size_t limit, bool* cut = nullptr);

/// Without white space (TAB and the space separators, Zs) at both ends.
std::string_view trimmed(std::string_view text);
/// Without white space and line breaks at both ends.
std::string_view trimmedOfLines(std::string_view text);
/// Whether nothing but white space (TAB, Zs) is in it; true for the empty text.
bool isBlank(std::string_view text);

/// The first of the pieces between line breaks (U+000A to U+000D, U+0085, U+2028, U+2029; CR LF is
/// one), empty ones left out; absent when there is none.
std::optional<std::string_view> firstLine(std::string_view text);
/// The same, and takes it off the front of `text` with all before it and the line break behind it.
std::optional<std::string_view> nextLine(std::string_view& text);
/// Whether a line break is in it.
bool hasLineBreak(std::string_view text);
/// The pieces between runs of Unicode White_Space joined with single spaces, nothing at the ends.
/// Stops reading when the result has more than `limit` characters; it is then longer than `limit`.
std::string collapsed(std::string_view text, std::size_t limit);

/// The words of a range, with `separator` between two of them.
template <class Words>
std::string joined(const Words& words, std::string_view separator = " ") {
  std::string text;
  std::string_view before;
  for (const std::string_view word : words) {
    text += before;
    text += word;
    before = separator;
  }
  return text;
}

/// With the ASCII letters A to Z as small letters, the rest as it is.
std::string lowercasedASCII(std::string_view text);
/// With the first character upper-cased, the rest unchanged.
std::string capitalized(std::string_view text);
/// The simple case folding of every scalar, for comparisons that ignore case.
std::string caseFolded(std::string_view text);

/// Whether both are the same text under canonical equivalence: a precomposed "é" equals "e" with a
/// combining accent.
bool canonicallyEqual(std::string_view left, std::string_view right);

/// One Unicode scalar value at an end of a text; U+FFFD where the text is no UTF-8.
struct Scalar {
  char32_t value = 0;
  std::size_t size = 0;  ///< Bytes; 0 at the end of the text.
};
Scalar firstScalar(std::string_view text);
Scalar lastScalar(std::string_view text);
/// Appends one scalar; U+FFFD for a number that is none.
void append(std::string& text, char32_t scalar);

/// TAB and the space separators (Zs).
bool isSpace(char32_t scalar);
bool isLineBreak(char32_t scalar);
/// What `\s` matches: U+0009 to U+000D, U+0020, U+0085, Zs, Zl, Zp.
bool isPatternSpace(char32_t scalar);
/// What `\d` matches: decimal digits of any script (Nd).
bool isDigit(char32_t scalar);
/// Whether a terminal would not show this scalar as itself but obey it or let it reorder what
/// stands around it: controls, bidirectional controls, line separators, and the like (Cc, Cf but
/// the joiners within emoji, Zl, Zp, Cs, Co, Cn).
bool isDeceptive(char32_t scalar);
/// What an emoji begins with, and goes on with after a joiner (Extended_Pictographic).
bool isPictographic(char32_t scalar);

}  // namespace CorvaneControl::Text
