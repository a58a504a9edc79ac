#include "CorvaneControl/Platform/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <vector>

#include "CorvaneControl/UTF8.h"

namespace CorvaneControl::Text {

namespace {

constexpr std::string_view ellipsis = "\xE2\x80\xA6";

std::uint8_t byte(char character) { return static_cast<std::uint8_t>(character); }
bool isASCII(char character) { return byte(character) < 0x80; }
char lowercased(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}
bool isContinuation(char character) { return (byte(character) & 0xC0U) == 0x80; }

// Eight bytes at once, for the long stretches of every ordinary text. The tests below are exact for
// the lowest byte that they find, which is all that matters.
using Word = std::uint64_t;
constexpr Word ones = 0x0101010101010101;
constexpr Word highBits = 0x8080808080808080;

bool isASCIIWithoutCR(Word word) {
  const Word carriageReturns = word ^ (ones * '\r');  // a CR becomes a zero byte
  return ((word | (carriageReturns - ones)) & highBits) == 0;
}

bool isASCIIBeyondLineBreaks(Word word) {
  return ((word | (word - ones * ('\r' + 1))) & highBits) == 0;
}

/// The bytes at the start of `text` in whole words for which `isPlain` holds.
template <class Predicate>
std::size_t leadingWords(std::string_view text, Predicate isPlain) {
  std::size_t position = 0;
  Word word = 0;
  for (; text.size() - position >= sizeof word; position += sizeof word) {
    std::memcpy(&word, text.data() + position, sizeof word);
    if (!isPlain(word)) break;
  }
  return position;
}

/// The bytes at the start of `text` that are well-formed.
std::size_t wellFormedBytes(std::string_view text) {
  std::size_t position = 0;
  while (position < text.size()) {
    position += leadingWords(text.substr(position), isASCIIWithoutCR);
    if (position == text.size()) break;
    const UTF8::Sequence sequence = UTF8::first(text.substr(position));
    if (!sequence.isWellFormed) break;
    position += sequence.size;
  }
  return position;
}

utf8proc_category_t category(char32_t scalar) {
  return utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
}

/// The bytes at the start of `text` each of which is a character by itself, because it is ASCII, no
/// CR, and what follows it is ASCII as well or the end. Nothing but a combining scalar or the LF of
/// a CR LF could join it, and neither is such a follower.
std::size_t loneCharacters(std::string_view text) {
  std::size_t position = leadingWords(text, isASCIIWithoutCR);
  while (position < text.size() && isASCII(text[position]) && text[position] != '\r') ++position;
  if (position == text.size()) return position;
  return position == 0 ? 0 : position - 1;
}

/// The bytes of the first character of a text that is not empty.
std::size_t firstCharacter(std::string_view text) {
  Scalar scalar = firstScalar(text);
  std::size_t size = scalar.size;
  utf8proc_int32_t state = 0;
  while (size < text.size()) {
    const Scalar next = firstScalar(text.substr(size));
    if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(scalar.value),
                                         static_cast<utf8proc_int32_t>(next.value), &state)) {
      break;
    }
    scalar = next;
    size += next.size;
  }
  return size;
}

template <class Predicate>
std::string_view trimmedOf(std::string_view text, Predicate isTrimmed) {
  while (!text.empty()) {
    const Scalar scalar = firstScalar(text);
    if (!isTrimmed(scalar.value)) break;
    text.remove_prefix(scalar.size);
  }
  while (!text.empty()) {
    const Scalar scalar = lastScalar(text);
    if (!isTrimmed(scalar.value)) break;
    text.remove_suffix(scalar.size);
  }
  return text;
}

/// The bytes of the line break at the start of `text`; 0 when there is none. CR LF may count as
/// two, because what lies between them is empty.
std::size_t lineBreak(std::string_view text) {
  const std::uint8_t first = byte(text.front());
  if (first >= '\n' && first <= '\r') return 1;
  if (first == 0xC2) return text.starts_with("\xC2\x85") ? 2 : 0;
  if (first != 0xE2) return 0;
  return text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9") ? 3 : 0;
}

/// The bytes before the first line break, all of them when there is none.
std::size_t bytesBeforeLineBreak(std::string_view text) {
  std::size_t position = 0;
  while (position < text.size()) {
    position += leadingWords(text.substr(position), isASCIIBeyondLineBreaks);
    const std::size_t end = std::min(text.size(), position + sizeof(Word));
    for (; position < end; ++position) {
      if (lineBreak(text.substr(position)) > 0) return position;
    }
  }
  return position;
}

/// A mapping of one scalar to several: none in Unicode gives more than four.
struct Mapped {
  utf8proc_int32_t scalars[4]{};
  std::size_t count = 0;
};

Mapped mapped(char32_t scalar, utf8proc_option_t options) {
  Mapped result;
  int boundary = 0;
  const auto count = utf8proc_decompose_char(static_cast<utf8proc_int32_t>(scalar), result.scalars,
                                             std::size(result.scalars), options, &boundary);
  if (count >= 1 && count <= static_cast<utf8proc_ssize_t>(std::size(result.scalars))) {
    result.count = static_cast<std::size_t>(count);
  } else {
    result.scalars[0] = static_cast<utf8proc_int32_t>(scalar);
    result.count = 1;
  }
  return result;
}

/// Upper-cases one scalar. The library only maps one to one, while some ("ß", "ﬁ") become several.
/// Upper-casing the full folding gives those, and the same as the library for all others, except
/// that a capital letter has to be left alone.
void appendUpperCased(std::string& text, char32_t scalar) {
  if (category(scalar) == UTF8PROC_CATEGORY_LU) return append(text, scalar);
  const Mapped letters = mapped(scalar, UTF8PROC_CASEFOLD);
  for (std::size_t index = 0; index < letters.count; ++index) {
    append(text, static_cast<char32_t>(utf8proc_toupper(letters.scalars[index])));
  }
}

/// The library only knows the full folding. Where that gives several scalars, the simple one is the
/// small letter ("ẞ" gives "ß"), except for "İ", which is left alone.
char32_t simpleFolding(char32_t scalar) {
  constexpr char32_t capitalIWithDot = 0x130;
  const Mapped folded = mapped(scalar, UTF8PROC_CASEFOLD);
  if (folded.count == 1) return static_cast<char32_t>(folded.scalars[0]);
  if (scalar == capitalIWithDot) return scalar;
  return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar)));
}

/// A scalar of a decomposed text with the class by which combining scalars are ordered.
struct Decomposed {
  utf8proc_int32_t scalar = 0;
  utf8proc_propval_t combiningClass = 0;

  bool operator==(const Decomposed&) const = default;
};

/// The canonical decomposition. Not the library's own: its ordering of combining scalars takes
/// quadratic time on a long run of them.
std::vector<Decomposed> decomposed(std::string_view text) {
  std::vector<Decomposed> result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Scalar scalar = firstScalar(text);
    text.remove_prefix(scalar.size);
    const Mapped parts = mapped(scalar.value, UTF8PROC_DECOMPOSE);
    for (std::size_t index = 0; index < parts.count; ++index) {
      const utf8proc_int32_t part = parts.scalars[index];
      result.push_back({part, utf8proc_get_property(part)->combining_class});
    }
  }
  const auto isStarter = [](const Decomposed& part) { return part.combiningClass == 0; };
  for (auto run = result.begin(); run != result.end();) {
    run = std::find_if_not(run, result.end(), isStarter);
    const auto end = std::find_if(run, result.end(), isStarter);
    std::stable_sort(run, end, [](const Decomposed& left, const Decomposed& right) {
      return left.combiningClass < right.combiningClass;
    });
    run = end;
  }
  return result;
}

}  // namespace

std::string repaired(std::string bytes) {
  const std::size_t good = wellFormedBytes(bytes);
  if (good == bytes.size()) return bytes;
  std::string result = bytes.substr(0, good);
  std::string_view rest = std::string_view(bytes).substr(good);
  while (!rest.empty()) {
    append(result, UTF8::replacement);
    rest.remove_prefix(UTF8::first(rest).size);
    const std::size_t next = wellFormedBytes(rest);
    result += rest.substr(0, next);
    rest.remove_prefix(next);
  }
  return result;
}

bool isUTF8(std::string_view bytes) { return wellFormedBytes(bytes) == bytes.size(); }

std::size_t characters(std::string_view text) {
  std::size_t count = 0;
  while (!text.empty()) {
    const std::size_t lone = loneCharacters(text);
    count += lone;
    text.remove_prefix(lone);
    if (text.empty()) break;
    text.remove_prefix(firstCharacter(text));
    ++count;
  }
  return count;
}

std::string_view prefix(std::string_view text, std::size_t count) {
  std::string_view rest = text;
  while (count > 0 && !rest.empty()) {
    // One byte more than could be needed, so that the last one's follower is seen.
    const std::size_t window = std::min(rest.size() - 1, count) + 1;
    const std::size_t lone = std::min(loneCharacters(rest.substr(0, window)), count);
    rest.remove_prefix(lone);
    count -= lone;
    if (count == 0 || rest.empty()) break;
    rest.remove_prefix(firstCharacter(rest));
    --count;
  }
  return text.substr(0, text.size() - rest.size());
}

std::string_view cutAtScalar(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && isContinuation(text[limit])) --limit;
  return text.substr(0, limit);
}

std::string shortened(std::string_view text, std::size_t limit, bool* cut) {
  const std::string_view kept = prefix(text, limit);
  std::string result(kept);
  if (kept.size() == text.size()) return result;
  if (cut != nullptr) *cut = true;
  return result += ellipsis;
}

std::string_view trimmed(std::string_view text) { return trimmedOf(text, isSpace); }

std::string_view trimmedOfLines(std::string_view text) {
  return trimmedOf(text, [](char32_t scalar) { return isSpace(scalar) || isLineBreak(scalar); });
}

bool isBlank(std::string_view text) {
  while (!text.empty()) {
    const Scalar scalar = firstScalar(text);
    if (!isSpace(scalar.value)) return false;
    text.remove_prefix(scalar.size);
  }
  return true;
}

std::optional<std::string_view> firstLine(std::string_view text) { return nextLine(text); }

std::optional<std::string_view> nextLine(std::string_view& text) {
  while (!text.empty()) {
    const std::string_view piece = text.substr(0, bytesBeforeLineBreak(text));
    text.remove_prefix(piece.size());
    if (!text.empty()) text.remove_prefix(lineBreak(text));
    if (!piece.empty()) return piece;
  }
  return std::nullopt;
}

bool hasLineBreak(std::string_view text) { return bytesBeforeLineBreak(text) < text.size(); }

std::string collapsed(std::string_view text, std::size_t limit) {
  std::string result;
  result.reserve(std::min(text.size(), limit) + 1);
  bool pieceEnded = false;
  // No text has more characters than bytes. Counting again only after the result has doubled keeps
  // this linear even where a single character is megabytes long.
  std::size_t enough = limit;
  while (!text.empty()) {
    const Scalar scalar = firstScalar(text);
    if (isPatternSpace(scalar.value)) {  // the same scalars as White_Space
      pieceEnded = true;
    } else {
      if (pieceEnded && !result.empty()) result += ' ';
      pieceEnded = false;
      result.append(text.data(), scalar.size);
      if (result.size() > enough) {
        if (characters(result) > limit) return result;
        enough = 2 * result.size();
      }
    }
    text.remove_prefix(scalar.size);
  }
  return result;
}

std::string lowercasedASCII(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), lowercased);
  return result;
}

std::string capitalized(std::string_view text) {
  std::string_view first = prefix(text, 1);
  text.remove_prefix(first.size());
  std::string result;
  while (!first.empty()) {
    const Scalar scalar = firstScalar(first);
    appendUpperCased(result, scalar.value);
    first.remove_prefix(scalar.size);
  }
  return result += text;
}

std::string caseFolded(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Scalar scalar = firstScalar(text);
    if (scalar.value < 0x80) {
      result += lowercased(text.front());
    } else {
      append(result, simpleFolding(scalar.value));
    }
    text.remove_prefix(scalar.size);
  }
  return result;
}

bool canonicallyEqual(std::string_view left, std::string_view right) {
  if (left == right) return true;
  if (std::ranges::all_of(left, isASCII) && std::ranges::all_of(right, isASCII)) return false;
  return decomposed(left) == decomposed(right);
}

Scalar firstScalar(std::string_view text) {
  if (text.empty()) return {};
  const UTF8::Sequence sequence = UTF8::first(text);
  return {.value = sequence.scalar, .size = sequence.size};
}

Scalar lastScalar(std::string_view text) {
  if (text.empty()) return {};
  constexpr std::size_t longest = 4;
  for (std::size_t size = 1; size <= std::min(longest, text.size()); ++size) {
    const std::string_view end = text.substr(text.size() - size);
    if (isContinuation(end.front())) continue;
    const UTF8::Sequence sequence = UTF8::first(end);
    if (sequence.size == size) return {.value = sequence.scalar, .size = size};
    break;
  }
  return {.value = UTF8::replacement, .size = 1};
}

void append(std::string& text, char32_t scalar) {
  char bytes[4];
  text.append(bytes, UTF8::encode(scalar, bytes));
}

bool isSpace(char32_t scalar) {
  if (scalar < 0x80) return scalar == ' ' || scalar == '\t';
  return category(scalar) == UTF8PROC_CATEGORY_ZS;
}

bool isLineBreak(char32_t scalar) {
  return (scalar >= '\n' && scalar <= '\r') || scalar == 0x85 || scalar == 0x2028 ||
         scalar == 0x2029;
}

bool isPatternSpace(char32_t scalar) { return isSpace(scalar) || isLineBreak(scalar); }

bool isDigit(char32_t scalar) {
  if (scalar < 0x80) return scalar >= '0' && scalar <= '9';
  return category(scalar) == UTF8PROC_CATEGORY_ND;
}

bool isDeceptive(char32_t scalar) {
  constexpr char32_t zeroWidthJoiner = 0x200D;
  if (scalar < 0x80) return scalar < 0x20 || scalar == 0x7F;
  if (scalar == zeroWidthJoiner) return false;
  constexpr utf8proc_category_t deceptive[] = {
      UTF8PROC_CATEGORY_CC, UTF8PROC_CATEGORY_CF, UTF8PROC_CATEGORY_CS, UTF8PROC_CATEGORY_CO,
      UTF8PROC_CATEGORY_CN, UTF8PROC_CATEGORY_ZL, UTF8PROC_CATEGORY_ZP};
  return std::ranges::find(deceptive, category(scalar)) != std::end(deceptive);
}

bool isPictographic(char32_t scalar) {
  return utf8proc_get_property(static_cast<utf8proc_int32_t>(scalar))->boundclass ==
         UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC;
}

}  // namespace CorvaneControl::Text
