#include "corvane-headless/Visible.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "CorvaneControl/Hexadecimal.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Headless {

namespace {

constexpr char32_t tabSymbol = U'\u21E5';

/// Scalars that show nothing although they are no controls.
constexpr bool isBlankOrInvisible(char32_t scalar) {
  constexpr std::array<char32_t, 13> single{0x034F, 0x115F, 0x1160, 0x17B4, 0x17B5, 0x180B, 0x180C,
                                            0x180D, 0x180F, 0x2800, 0x3164, 0xFFA0, 0x1D159};
  return std::ranges::find(single, scalar) != single.end() ||
         (scalar >= 0xFE00 && scalar <= 0xFE0D) || (scalar >= 0xE0100 && scalar <= 0xE01EF);
}

/// Scalars that join or colour an emoji, and show nothing anywhere else.
constexpr bool belongsToEmoji(char32_t scalar) {
  return scalar == 0x200D || scalar == 0xFE0E || scalar == 0xFE0F;
}

/// Whether `scalar` is written out as a number where it follows `before`.
bool isWrittenOut(char32_t scalar, char32_t before) {
  if (scalar == U'\t') return false;
  if (scalar == tabSymbol || Text::isDeceptive(scalar) || isBlankOrInvisible(scalar)) return true;
  if (belongsToEmoji(scalar)) return before < 0x80 || belongsToEmoji(before);
  return scalar != U' ' && Text::isSpace(scalar);
}

void appendNumber(char32_t scalar, std::string& result) {
  std::string number;
  for (; scalar != 0 || number.empty(); scalar >>= 4U) {
    number.insert(number.begin(), Hexadecimal::capitalDigits[scalar & 0xFU]);
  }
  result.append("\\u{").append(number).append("}");
}

/// The bytes of the first `limit` scalars of a text that is valid UTF-8.
std::size_t sizeOfScalars(std::string_view text, std::size_t limit) {
  std::size_t size = 0;
  for (; limit > 0 && size < text.size(); --limit) {
    size += Text::firstScalar(text.substr(size)).size;
  }
  return size;
}

/// Makes a text that is valid UTF-8 visible.
std::string visibleValid(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t backslashes = 0;  // that stand right before the current place
  char32_t before = U' ';
  while (!text.empty()) {
    const Text::Scalar scalar = Text::firstScalar(text);
    const bool writtenOut = isWrittenOut(scalar.value, before);
    if (writtenOut || text.starts_with("u{")) result.append(backslashes, '\\');
    if (writtenOut) {
      appendNumber(scalar.value, result);
    } else if (scalar.value == U'\t') {
      result.append("\u21E5 ");
    } else {
      result.append(text.substr(0, scalar.size));
    }
    backslashes = scalar.value == U'\\' ? backslashes + 1 : 0;
    before = scalar.value;
    text.remove_prefix(scalar.size);
  }
  return result;
}

std::string visibleStartOfValid(std::string_view text, std::size_t limit) {
  const std::size_t size = sizeOfScalars(text, limit);
  std::string result = visibleValid(text.substr(0, size));
  if (size < text.size()) {
    result.append("… (").append(std::to_string(text.size() - size)).append(" more bytes)");
  }
  return result;
}

}  // namespace

std::string visible(std::string_view text) {
  return visibleValid(Text::repaired(std::string(text)));
}

std::string visibleStart(std::string_view text, std::size_t limit) {
  return visibleStartOfValid(Text::repaired(std::string(text)), limit);
}

std::string visibleLine(std::string_view text, std::size_t limit) {
  return visibleStartOfValid(Text::trimmedOfLines(Text::repaired(std::string(text))), limit);
}

std::vector<std::string_view> rows(std::string_view visibleText, std::size_t columns) {
  std::vector<std::string_view> result;
  std::size_t begin = 0;
  std::size_t width = 0;
  for (std::size_t at = 0; at < visibleText.size();) {
    // Whole characters, so that no accent is torn from its letter.
    const std::string_view rest = visibleText.substr(at);
    const std::string_view character = Text::prefix(rest, 1);
    std::size_t characterWidth = 0;
    for (std::size_t inside = 0; inside < character.size();) {
      const Text::Scalar scalar = Text::firstScalar(character.substr(inside));
      characterWidth += scalar.value < 0x80 ? 1 : 2;
      inside += scalar.size;
    }
    if (width + characterWidth > columns && at > begin) {
      result.push_back(visibleText.substr(begin, at - begin));
      begin = at;
      width = 0;
    }
    width += characterWidth;
    at += character.size();
  }
  result.push_back(visibleText.substr(begin));
  return result;
}

}  // namespace CorvaneControl::Headless
