#include "CorvaneControl/CardLines.h"

#include <algorithm>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::CardLines {

namespace {

/// With one character more than this, a text is certainly cut, even if its last character grows or
/// its first joins what stands before it.
constexpr std::size_t enoughCharacters = mostCharacters + 2;

/// As much of a text as a line may show, and a little more, so that one sees that it was longer.
std::string_view beginning(std::string_view text) {
  return text.size() <= enoughCharacters ? text : Text::prefix(text, enoughCharacters);
}

/// The same of the pieces one after the other.
std::string beginning(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (const auto piece : pieces) {
    const auto part = beginning(piece);
    text += part;
    if (part.size() < piece.size()) break;
  }
  return text;
}

/// What a text of so many bytes is likely to have.
std::size_t expectedLines(std::size_t bytes) {
  constexpr std::size_t usualLine = 32;  // bytes
  return std::min(mostLines, bytes / usualLine + 1);
}

/// Whether the lines of a text are one empty line.
bool isOneEmptyLine(std::string_view text) {
  Walk walk(text);
  if (const auto first = walk.next(); !first->empty()) return false;
  if (walk.ended()) return true;
  const auto second = walk.next();
  return second->empty() && walk.ended();
}

/// The beginning of a written value.
class Excerpt final : public JSON::Sink {
 public:
  void append(std::string_view piece) override {
    if (full_) return;
    const auto part = beginning(piece);
    text_ += part;
    full_ = part.size() < piece.size();
    if (full_ || text_.size() < nextCheck_) return;
    full_ = beginning(text_).size() < text_.size();
    nextCheck_ = 2 * text_.size();  // not at every piece: a character may be megabytes long
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_{};
  std::size_t nextCheck_ = 4 * enoughCharacters;
  bool full_ = false;
};

}  // namespace

std::string shortened(std::string_view text, bool* cut) {
  if (text.size() <= mostCharacters) return std::string(text);  // no more characters than bytes
  return Text::shortened(text, mostCharacters, cut);
}

std::string shortened(std::initializer_list<std::string_view> pieces, bool* cut) {
  return shortened(beginning(pieces), cut);
}

bool List::add(std::string_view text, Line::Kind kind) {
  const bool hasRoom = lines_.size() < mostLines;
  bool cut = !hasRoom;
  if (hasRoom) lines_.push_back({shortened(text, &cut), kind});
  if (cut) complete_ = false;
  return hasRoom;
}

/// The lines that `walk` has left, without a last one that is empty: it comes of the line feed that
/// ends the text.
bool List::addRest(Walk& walk, Line::Kind kind) {
  while (const auto line = walk.next()) {
    if (walk.ended() && line->empty()) break;
    if (!add(*line, kind)) return false;
  }
  return true;
}

bool List::addText(std::string_view text, Line::Kind kind) {
  if (lines_.empty()) lines_.reserve(expectedLines(text.size()));
  Walk walk(text);
  return add(*walk.next(), kind) && addRest(walk, kind);
}

bool List::addEdit(const JSON::Value* old, const JSON::Value* replacement) {
  const auto removed = old ? old->asString() : std::nullopt;
  const auto added = replacement ? replacement->asString() : std::nullopt;
  if (removed && !isOneEmptyLine(*removed) && !addText(*removed, Line::Kind::removed)) return false;
  return !added || addText(*added, Line::Kind::added);
}

/// The lines of "key: value", which is never put together as a whole.
bool List::addArgument(std::string_view key, std::string_view value) {
  if (const auto feed = key.rfind('\n'); feed != std::string_view::npos) {
    Walk walk(key.substr(0, feed));
    while (const auto line = walk.next()) {
      if (!add(*line, Line::Kind::plain)) return false;
    }
    key.remove_prefix(feed + 1);
  }
  Walk walk(value);
  return add(beginning({key, ": ", *walk.next()}), Line::Kind::plain) &&
         addRest(walk, Line::Kind::plain);
}

bool List::addArguments(const JSON::Value& input) {
  for (const auto& [key, value] : input.members()) {
    Excerpt written;
    const auto text = value.asString();
    if (!text) JSON::write(value, JSON::Slashes::escaped, written);
    if (!addArgument(key, text ? *text : written.text())) return false;
  }
  return true;
}

}  // namespace CorvaneControl::CardLines
