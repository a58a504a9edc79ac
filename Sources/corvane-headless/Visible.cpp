#include "corvane-headless/Visible.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

#include "CorvaneControl/Hexadecimal.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Headless {

namespace {

constexpr char32_t tabSymbol = U'\u21E5';
/// Begins a number of blanks, as in "⟨400 blanks⟩".
constexpr char32_t countSymbol = U'\u27E8';

/// Blanks and TABs in a row that are shown as they are.
constexpr std::size_t mostIndentation = 16;  // at the beginning of a text
constexpr std::size_t mostBlanks = 4;        // before more of it

/// Scalars that show nothing although they are no controls.
constexpr bool isBlankOrInvisible(char32_t scalar) {
  constexpr std::array<char32_t, 13> single{0x034F, 0x115F, 0x1160, 0x17B4, 0x17B5, 0x180B, 0x180C,
                                            0x180D, 0x180F, 0x2800, 0x3164, 0xFFA0, 0x1D159};
  return std::ranges::find(single, scalar) != single.end() ||
         (scalar >= 0xFE00 && scalar <= 0xFE0D) || (scalar >= 0xE0100 && scalar <= 0xE01EF);
}

constexpr char32_t zeroWidthJoiner = 0x200D;
constexpr bool isVariationSelector(char32_t scalar) { return scalar == 0xFE0E || scalar == 0xFE0F; }
constexpr bool isSkinTone(char32_t scalar) { return scalar >= 0x1F3FB && scalar <= 0x1F3FF; }

/// Follows a text through its emoji: what joins or colours one shows nothing anywhere else.
class EmojiWalk {
 public:
  /// Whether `scalar`, which comes next and has `rest` behind it, is such a one within an emoji.
  bool joins(char32_t scalar, std::string_view rest) const {
    if (scalar == zeroWidthJoiner) {
      return place_ != Place::outside && Text::isPictographic(Text::firstScalar(rest).value);
    }
    return place_ == Place::picture && isVariationSelector(scalar);
  }
  void pass(char32_t scalar) {
    if (Text::isPictographic(scalar)) {
      place_ = Place::picture;
    } else if (place_ == Place::picture && (isVariationSelector(scalar) || isSkinTone(scalar))) {
      place_ = Place::behind;
    } else {
      place_ = Place::outside;
    }
  }

 private:
  enum class Place : std::uint8_t { outside, picture, behind };

  Place place_ = Place::outside;
};

/// Whether `scalar` is written out as a number; what may stand within emoji is another question.
bool isWrittenOut(char32_t scalar) {
  if (scalar < 0x7F) return scalar < U' ' && scalar != U'\t';
  return scalar == tabSymbol || scalar == countSymbol || scalar == zeroWidthJoiner ||
         isVariationSelector(scalar) || Text::isDeceptive(scalar) || isBlankOrInvisible(scalar) ||
         Text::isSpace(scalar);
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

/// Appends blanks and TABs, of which at most `most` are shown as they are.
void appendBlanks(std::string_view run, std::size_t most, std::string& result) {
  while (!run.empty()) {
    const bool isTab = run.front() == '\t';
    const std::size_t count = std::min(run.find_first_not_of(run.front()), run.size());
    if (run.size() > most) {
      most = 0;  // so that the rest of them is counted, too
      result.append("\u27E8").append(std::to_string(count)).append(isTab ? " tab" : " blank");
      result.append(count == 1 ? "\u27E9" : "s\u27E9");
    } else {
      for (std::size_t index = 0; index < count; ++index) result.append(isTab ? "\u21E5 " : " ");
      most -= count;
    }
    run.remove_prefix(count);
  }
}

enum class Blanks : std::uint8_t { counted, kept };

/// Makes a text that is valid UTF-8 visible.
std::string visibleValid(std::string_view text, Blanks blanks = Blanks::counted) {
  std::string result;
  result.reserve(text.size());
  std::size_t backslashes = 0;  // that stand right before the current place
  EmojiWalk emoji;
  for (bool isBeginning = true; !text.empty(); isBeginning = false) {
    const std::size_t run = std::min(text.find_first_not_of(" \t"), text.size());
    if (run > 0) {
      const std::size_t most =
          run == text.size() ? 0 : (isBeginning ? mostIndentation : mostBlanks);
      appendBlanks(text.substr(0, run), blanks == Blanks::kept ? run : most, result);
      text.remove_prefix(run);
      backslashes = 0;
      emoji = {};
      continue;
    }
    const Text::Scalar scalar = Text::firstScalar(text);
    const std::string_view rest = text.substr(scalar.size);
    const bool writtenOut = isWrittenOut(scalar.value) && !emoji.joins(scalar.value, rest);
    if (writtenOut || text.starts_with("u{")) result.append(backslashes, '\\');
    if (writtenOut) {
      appendNumber(scalar.value, result);
      emoji = {};
    } else {
      result.append(text.substr(0, scalar.size));
      emoji.pass(scalar.value);
    }
    backslashes = scalar.value == U'\\' ? backslashes + 1 : 0;
    text = rest;
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

bool isVisible(std::string_view text) {
  return visibleValid(Text::repaired(std::string(text)), Blanks::kept) == text;
}

std::size_t columnsOf(std::string_view visibleText) {
  // A scalar has one byte that continues none.
  std::size_t columns = 0;
  for (const char byte : visibleText) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80) columns += 1;
    if (value >= 0xC0) columns += 2;
  }
  return columns;
}

std::vector<std::string_view> rows(std::string_view visibleText, std::size_t columns) {
  std::vector<std::string_view> result;
  std::size_t begin = 0;
  std::size_t width = 0;
  const auto take = [&](std::size_t at, std::string_view piece) {
    const std::size_t pieceWidth = columnsOf(piece);
    if (width + pieceWidth > columns && at > begin) {
      result.push_back(visibleText.substr(begin, at - begin));
      begin = at;
      width = 0;
    }
    width += pieceWidth;
  };
  for (std::size_t at = 0; at < visibleText.size();) {
    // Whole characters, so that no accent is torn from its letter; but a character has no limit.
    const std::string_view character = Text::prefix(visibleText.substr(at), 1);
    const std::size_t end = at + character.size();
    if (columnsOf(character) <= columns)
      take(at, character);
    else {
      for (std::size_t inside = at; inside < end;) {
        const std::size_t size = Text::firstScalar(visibleText.substr(inside, end - inside)).size;
        take(inside, visibleText.substr(inside, size));
        inside += size;
      }
    }
    at = end;
  }
  result.push_back(visibleText.substr(begin));
  return result;
}

namespace {

/// Sets pieces in rows; `further` begins each row but the first.
std::string flowedBehind(const std::vector<std::string>& pieces, std::string_view between,
                         std::size_t columns, std::string_view further) {
  std::string text;
  std::size_t width = 0;  // of the row that is being set
  bool isFirst = true;
  for (const std::string& piece : pieces) {
    const std::size_t pieceWidth = columnsOf(piece);
    const bool fits = width + between.size() + pieceWidth <= columns;
    const std::string_view before = isFirst ? "" : (fits ? between : further);
    if (!isFirst && !fits) {
      text.append("\n");
      width = 0;
    }
    isFirst = false;
    text.append(before);
    width += before.size();
    text.append(piece);
    width += pieceWidth;
  }
  return text;
}

/// The words of a sentence, none of which has more than `widest` columns: a wider one is cut.
std::vector<std::string> wordsOf(std::string_view sentence,
                                 std::size_t widest = std::string_view::npos) {
  std::vector<std::string> words;
  while (!sentence.empty()) {
    const std::size_t end = std::min(sentence.find(' '), sentence.size());
    for (const std::string_view row : rows(sentence.substr(0, end), widest)) {
      words.emplace_back(row);
    }
    sentence.remove_prefix(std::min(end + 1, sentence.size()));
  }
  return words;
}

}  // namespace

std::string flowed(const std::vector<std::string>& pieces, std::string_view between,
                   std::size_t columns) {
  constexpr std::string_view further = "    ";
  const std::size_t widest = std::max(columns, further.size() + 1) - further.size();
  std::vector<std::string> fitting;
  fitting.reserve(pieces.size());
  for (const std::string& piece : pieces) {
    fitting.push_back(columnsOf(piece) <= columns
                          ? piece
                          : flowedBehind(wordsOf(piece, widest), " ", columns, further));
  }
  return flowedBehind(fitting, between, columns, "") + "\n";
}

std::string flowed(std::string_view sentence, std::size_t columns) {
  return flowed(wordsOf(sentence), " ", columns);
}

}  // namespace CorvaneControl::Headless
