#include "CorvaneControl/AgentPermissionLines.h"

#include <algorithm>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Card {

namespace {

using Line = AgentPermission::Line;
using Kind = Line::Kind;

/// With one character more than this, a text is certainly cut, even if its last character grows or
/// its first joins what stands before it.
constexpr std::size_t enoughCharacters = mostCharacters + 2;

/// What a text of so many bytes is likely to have.
std::size_t expectedLines(std::size_t bytes) {
  constexpr std::size_t usualLine = 32;  // bytes
  return std::min(mostLines, bytes / usualLine + 1);
}

std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (const auto piece : pieces) text += piece;
  return text;
}

/// Whether the lines of a text are one empty line.
bool isOneEmptyLine(std::string_view text) {
  LineWalk walk(text);
  if (const auto first = walk.next(); !first->empty()) return false;
  if (walk.ended()) return true;
  const auto second = walk.next();
  return second->empty() && walk.ended();
}

/// The beginning of a written value: as much as a line may show, and a little more, so that one
/// sees that it was longer.
class Excerpt final : public JSON::Sink {
 public:
  void append(std::string_view piece) override {
    if (full_) return;
    const auto part = Text::prefix(piece, enoughCharacters);
    text_ += part;
    full_ = part.size() < piece.size();
    if (full_ || text_.size() < nextCheck_) return;
    full_ = Text::prefix(text_, enoughCharacters).size() < text_.size();
    nextCheck_ = 2 * text_.size();  // not at every piece: a character may be megabytes long
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_{};
  std::size_t nextCheck_ = 4 * enoughCharacters;
  bool full_ = false;
};

}  // namespace

std::string shortened(std::initializer_list<std::string_view> pieces, bool* cut) {
  std::size_t bytes = 0;
  for (const auto piece : pieces) bytes += piece.size();
  if (bytes <= mostCharacters) return joined(pieces);

  std::string text;
  for (const auto piece : pieces) {
    const auto part = Text::prefix(piece, enoughCharacters);
    text += part;
    if (part.size() < piece.size()) break;
  }
  return Text::shortened(text, mostCharacters, cut);
}

bool LineList::hasRoom() {
  if (lines_.size() < limit_) return true;
  complete_ = false;
  return false;
}

bool LineList::add(std::string_view text, Kind kind) {
  if (cutsTexts_ && text.size() > mostCharacters) return add({text}, kind);
  if (!hasRoom()) return false;
  lines_.push_back({std::string(text), kind});  // no more bytes, so no more characters either
  return true;
}

bool LineList::add(std::initializer_list<std::string_view> pieces, Kind kind) {
  if (!hasRoom()) return false;
  bool cut = false;
  lines_.push_back({cutsTexts_ ? shortened(pieces, &cut) : joined(pieces), kind});
  if (cut) complete_ = false;
  return true;
}

/// The lines that `walk` has left, without a last one that is empty: it comes of the line feed that
/// ends the text.
bool LineList::addRest(LineWalk& walk, Kind kind) {
  while (const auto line = walk.next()) {
    if (walk.ended() && line->empty()) break;
    if (!add(*line, kind)) return false;
  }
  return true;
}

bool LineList::addText(std::string_view text, Kind kind) {
  if (lines_.empty()) lines_.reserve(std::min(limit_, expectedLines(text.size())));
  LineWalk walk(text);
  return add(*walk.next(), kind) && addRest(walk, kind);
}

bool LineList::addEdit(const JSON::Value* old, const JSON::Value* replacement) {
  const auto removed = old ? old->asString() : std::nullopt;
  const auto added = replacement ? replacement->asString() : std::nullopt;
  if (removed && !isOneEmptyLine(*removed) && !addText(*removed, Kind::removed)) return false;
  return !added || addText(*added, Kind::added);
}

/// The lines of "key: value", which is never put together as a whole.
bool LineList::addArgument(std::string_view key, std::string_view value) {
  if (const auto feed = key.rfind('\n'); feed != std::string_view::npos) {
    LineWalk walk(key.substr(0, feed));
    while (const auto line = walk.next()) {
      if (!add(*line, Kind::plain)) return false;
    }
    key.remove_prefix(feed + 1);
  }
  LineWalk walk(value);
  return add({key, ": ", *walk.next()}, Kind::plain) && addRest(walk, Kind::plain);
}

bool LineList::addArguments(const JSON::Value& input) {
  for (const auto& [key, value] : input.members()) {
    if (const auto text = value.asString()) {
      if (!addArgument(key, *text)) return false;
    } else if (cutsTexts_) {
      Excerpt written;
      JSON::write(value, JSON::Slashes::escaped, written);
      if (!addArgument(key, written.text())) return false;
    } else {
      std::string written;
      JSON::write(value, JSON::Slashes::escaped, written);
      if (!addArgument(key, written)) return false;
    }
  }
  return true;
}

std::vector<Line> text(std::string_view text, Kind kind, std::size_t limit) {
  auto lines = LineList::whole(limit);
  lines.addText(text, kind);
  return std::move(lines).take();
}

std::vector<Line> edit(const JSON::Value* old, const JSON::Value* replacement, std::size_t limit) {
  auto lines = LineList::whole(limit);
  lines.addEdit(old, replacement);
  return std::move(lines).take();
}

std::vector<Line> arguments(const JSON::Value& input, std::size_t limit) {
  auto lines = LineList::whole(limit);
  lines.addArguments(input);
  return std::move(lines).take();
}

std::optional<AgentPermission> limited(std::optional<AgentPermission> card) {
  if (!card) return card;
  if (card->lines.size() > mostLines) {
    card->lines.resize(mostLines);
    card->complete = false;
  }
  for (auto& line : card->lines) {
    if (line.text.size() <= mostCharacters) continue;  // bytes, so no more characters either
    bool cut = false;
    auto text = Text::shortened(line.text, mostCharacters, &cut);
    if (!cut) continue;
    line.text = std::move(text);
    card->complete = false;
  }
  if (card->subject.size() > mostCharacters) {
    card->subject = Text::shortened(card->subject, mostCharacters);
  }
  return card;
}

}  // namespace CorvaneControl::Card
