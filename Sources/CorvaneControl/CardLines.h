#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Record.h"

/// The lines of a card's preview, and how they are made. Agents send megabytes where a card shows a
/// few hundred lines, so what would be cut is never made: lines are counted and cut while their
/// text is being split.
namespace CorvaneControl::CardLines {

/// One line of the preview, without the line feed that ended it; a query and an address are one
/// line each, even with line feeds inside. A plain value.
struct Line {
  enum class Kind : std::uint8_t { plain, added, removed };

  std::string text{};
  Kind kind = Kind::plain;

  static constexpr auto fields = std::tuple{Field{"text", &Line::text}, Field{"kind", &Line::kind}};
  bool operator==(const Line&) const = default;
};

constexpr auto wireNames(Line::Kind) {
  using Kind = Line::Kind;
  return std::array{WireName{Kind::plain, "plain"}, WireName{Kind::added, "added"},
                    WireName{Kind::removed, "removed"}};
}

inline constexpr std::size_t mostLines = 300;
inline constexpr std::size_t mostCharacters = 400;  ///< Of a line, a subject, a question's text.

/// A text cut to 400 characters and "…". `cut`, when given, becomes true when something was cut.
std::string shortened(std::string_view text, bool* cut = nullptr);
/// The same for the pieces one after the other. Megabytes are never put together to be cut.
std::string shortened(std::initializer_list<std::string_view> pieces, bool* cut = nullptr);

/// Walks the lines of a text: the pieces between line feeds, one carriage return at the end of each
/// taken off. The empty text has one empty line; a final line feed is followed by one more.
class Walk {
 public:
  explicit Walk(std::string_view text) : rest_(text) {}

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

/// Lines in the making: at most 300 of 400 characters, "…" after those that were longer. What adds
/// lines is false when one had no room, and there will be none for others.
class List {
 public:
  /// Adds a line, which is not split.
  bool add(std::string_view text, Line::Kind kind);

  /// Adds the lines of a text, split at line feeds, one carriage return before each taken off. The
  /// empty text gives one empty line; a final line feed adds none.
  bool addText(std::string_view text, Line::Kind kind);

  /// Adds the removed lines of the old text, then the added lines of the new; a value that is null
  /// or no string gives none. An old text that is a single empty line is left out.
  bool addEdit(const JSON::Value* old, const JSON::Value* replacement);

  /// Adds each member of a tool's input as "key: value", in the order of the keys; a value of
  /// several lines gives several lines. Values that are no texts are written as JSON.
  bool addArguments(const JSON::Value& input);

  /// Whether every line found room and was added whole.
  bool complete() const { return complete_; }
  std::vector<Line> take() && { return std::move(lines_); }

 private:
  bool addRest(Walk& walk, Line::Kind kind);
  bool addArgument(std::string_view key, std::string_view value);

  std::vector<Line> lines_{};
  bool complete_ = true;
};

}  // namespace CorvaneControl::CardLines
