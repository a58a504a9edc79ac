#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/Platform/JSON.h"

/// How the lines of a card are made. Agents send megabytes where a card shows a few hundred lines,
/// so what would be cut is never made: lines are counted and cut while their text is being split.
/// Only the sources of `AgentPermission` use this.
namespace CorvaneControl::Card {

inline constexpr std::size_t mostLines = 300;
inline constexpr std::size_t mostCharacters = 400;  ///< Of a line, a subject, a question's text.

/// The pieces one after the other, cut to 400 characters and "…". Megabytes are never put together
/// to be cut. `cut`, when given, becomes true when something was cut.
std::string shortened(std::initializer_list<std::string_view> pieces, bool* cut = nullptr);

/// Walks the lines of a text: the pieces between line feeds, one carriage return at the end of each
/// taken off. The empty text has one empty line; a final line feed is followed by one more.
class LineWalk {
 public:
  explicit LineWalk(std::string_view text) : rest_(text) {}

  /// The next line, a view into the text; absent after the last.
  std::optional<std::string_view> next() {
    if (ended_) return std::nullopt;
    const auto feed = rest_.find('\n');
    ended_ = feed == std::string_view::npos;
    auto line = rest_.substr(0, feed);
    rest_.remove_prefix(ended_ ? rest_.size() : feed + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
  }
  /// Whether `next` has given the last line.
  bool ended() const { return ended_; }

 private:
  std::string_view rest_;
  bool ended_ = false;
};

/// Lines in the making.
class LineList {
 public:
  using Kind = AgentPermission::Line::Kind;

  /// For a card: at most 300 lines of 400 characters, "…" after those that were longer.
  static LineList cut() { return {mostLines, true}; }
  /// Whole lines, at most `limit`.
  static LineList whole(std::size_t limit) { return {limit, false}; }

  /// Adds a line; false when there was no room for it, and there will be none for others.
  bool add(std::string_view text, Kind kind);
  /// The same for a line that consists of `pieces`.
  bool add(std::initializer_list<std::string_view> pieces, Kind kind);

  // What the functions of the same names in `Card` make; false when something had no room.
  bool addText(std::string_view text, Kind kind);
  bool addEdit(const JSON::Value* old, const JSON::Value* replacement);
  bool addArguments(const JSON::Value& input);

  /// Whether every line found room and was added whole.
  bool complete() const { return complete_; }
  std::vector<AgentPermission::Line> take() && { return std::move(lines_); }

 private:
  LineList(std::size_t limit, bool cutsTexts) : limit_(limit), cutsTexts_(cutsTexts) {}

  bool hasRoom();
  bool addRest(LineWalk& walk, Kind kind);
  bool addArgument(std::string_view key, std::string_view value);

  std::vector<AgentPermission::Line> lines_{};
  std::size_t limit_;
  bool cutsTexts_;
  bool complete_ = true;
};

}  // namespace CorvaneControl::Card
