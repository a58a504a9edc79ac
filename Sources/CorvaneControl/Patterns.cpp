#include "CorvaneControl/Patterns.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Patterns {

namespace {

/// The bytes of the scalars at the start of `text` for which `matches` holds.
template <class Predicate>
std::size_t leading(std::string_view text, Predicate matches) {
  std::size_t size = 0;
  while (size < text.size()) {
    const Text::Scalar scalar = Text::firstScalar(text.substr(size));
    if (!matches(scalar.value)) break;
    size += scalar.size;
  }
  return size;
}

/// `\s*`
std::size_t spaces(std::string_view text) { return leading(text, Text::isPatternSpace); }

/// `\s*$`, read from the end: `text` without it.
std::string_view withoutTrailingSpaces(std::string_view text) {
  while (!text.empty()) {
    const Text::Scalar scalar = Text::lastScalar(text);
    if (!Text::isPatternSpace(scalar.value)) break;
    text.remove_suffix(scalar.size);
  }
  return text;
}

/// `^[-*+]`: the bytes of the mark of a list item; 0 when there is none.
std::size_t bulletMark(std::string_view text) {
  return text.starts_with('-') || text.starts_with('*') || text.starts_with('+') ? 1 : 0;
}

/// `^\d+[.)]`: the same for an item of a numbered list.
std::size_t numberMark(std::string_view text) {
  const std::size_t digits = leading(text, Text::isDigit);
  if (digits == 0 || digits == text.size()) return 0;
  return text[digits] == '.' || text[digits] == ')' ? digits + 1 : 0;
}

/// `mark` with the white space that has to follow it; 0 when there is no mark or no white space.
std::size_t withSpaces(std::string_view text, std::size_t mark) {
  if (mark == 0) return 0;
  const std::size_t after = spaces(text.substr(mark));
  return after == 0 ? 0 : mark + after;
}

bool beginsWithName(std::string_view text, std::string_view name) {
  return text.starts_with('<') && text.substr(1).starts_with(name);
}

/// The words of the recommendation suffix, folded: in English, French, Spanish or Portuguese,
/// German and Italian.
constexpr std::string_view recommendations[] = {
    "recommended", "recommand\u00E9", "recommand\u00E9e", "recommande",  "recommandee",
    "recomendado", "recomendada",     "empfohlen",        "consigliato", "consigliata",
};
constexpr std::size_t longestRecommendation = 11;  // scalars

/// Takes one of two parentheses off the end of `text`: the ASCII one or the full-width one.
bool takeLast(std::string_view& text, char32_t narrow, char32_t wide) {
  const Text::Scalar scalar = Text::lastScalar(text);
  if (scalar.size == 0 || (scalar.value != narrow && scalar.value != wide)) return false;
  text.remove_suffix(scalar.size);
  return true;
}

/// Takes one of the words above off the end of `text`, in any case.
bool takeRecommendation(std::string_view& text) {
  std::string_view before = text;
  for (std::size_t scalars = 0; scalars < longestRecommendation && !before.empty(); ++scalars) {
    const Text::Scalar scalar = Text::lastScalar(before);
    if (scalar.value == U'(' || scalar.value == U'\uFF08' || Text::isPatternSpace(scalar.value)) {
      break;
    }
    before.remove_suffix(scalar.size);
  }
  const std::string word = Text::caseFolded(text.substr(before.size()));
  if (std::ranges::find(recommendations, word) == std::end(recommendations)) return false;
  text = before;
  return true;
}

}  // namespace

std::size_t headingMark(std::string_view line) {
  constexpr std::size_t deepest = 6;
  const std::size_t marks = leading(line, [](char32_t scalar) { return scalar == U'#'; });
  return marks > deepest ? 0 : withSpaces(line, marks);
}

std::size_t indentedHeadingMark(std::string_view line) {
  const std::size_t indentation = spaces(line);
  const std::size_t mark = headingMark(line.substr(indentation));
  return mark == 0 ? 0 : indentation + mark;
}

std::size_t blockMark(std::string_view line) {
  if (line.empty()) return 0;
  if (const std::size_t mark = headingMark(line); mark > 0) return mark;
  if (const std::size_t mark = withSpaces(line, bulletMark(line)); mark > 0) return mark;
  if (const std::size_t mark = withSpaces(line, numberMark(line)); mark > 0) return mark;
  if (line.front() != '>') return 0;
  const Text::Scalar next = Text::firstScalar(line.substr(1));
  return Text::isPatternSpace(next.value) ? 1 + next.size : 1;
}

bool isNumberedStep(std::string_view line) {
  const std::string_view step = line.substr(spaces(line));
  const std::size_t mark = numberMark(step);
  return mark > 0 && Text::isPatternSpace(Text::firstScalar(step.substr(mark)).value);
}

bool beginsWithTag(std::string_view text, std::string_view name) {
  if (!beginsWithName(text, name)) return false;
  // A line break that ends the text is white space, too.
  const Text::Scalar next = Text::firstScalar(text.substr(1 + name.size()));
  return next.size == 0 || next.value == U'>' || Text::isPatternSpace(next.value);
}

std::optional<std::size_t> openingTag(std::string_view text, std::string_view name) {
  if (!beginsWithName(text, name)) return std::nullopt;
  std::size_t position = text.find_first_of(">\"'", 1 + name.size());
  while (position != std::string_view::npos && text[position] != '>') {
    const std::size_t closing = text.find(text[position], position + 1);
    if (closing == std::string_view::npos) return std::nullopt;
    position = text.find_first_of(">\"'", closing + 1);
  }
  if (position == std::string_view::npos) return std::nullopt;
  return position + 1 + spaces(text.substr(position + 1));
}

std::optional<std::size_t> recommendationSuffix(std::string_view label) {
  std::string_view rest = withoutTrailingSpaces(label);
  if (!takeLast(rest, U')', U'\uFF09')) return std::nullopt;
  rest = withoutTrailingSpaces(rest);
  if (!takeRecommendation(rest)) return std::nullopt;
  rest = withoutTrailingSpaces(rest);
  if (!takeLast(rest, U'(', U'\uFF08')) return std::nullopt;
  return withoutTrailingSpaces(rest).size();
}

}  // namespace CorvaneControl::Patterns
