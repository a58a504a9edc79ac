#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace CorvaneControl::Headless {

/// A line that was typed.
struct TypedLine {
  std::string text{};     ///< Without its line feed.
  bool tooEarly = false;  ///< One of its keys came before the user can have read the card.
  bool operator==(const TypedLine&) const = default;
};

/// The line that somebody types on a terminal which passes on each key: so each is held against the
/// card that it was typed for, and output does not run into a line that is half typed. Pure: it
/// says what to show. Backspace takes the last byte off, Ctrl-W the last word, Ctrl-U all, and
/// Ctrl-D in an empty line is the end.
class LineEditor {
 public:
  /// Bytes of lines that wait; what is typed beyond them is dropped.
  static constexpr std::size_t mostTyped = 4096;

  /// Takes what was typed, too early for the card or not, and gives what the terminal shows of it.
  std::string take(std::string_view keys, bool tooEarly);

  /// The next line that is complete.
  std::optional<TypedLine> nextLine();
  /// What the terminal shows of the line that is not complete yet.
  std::string_view shown() const { return shown_; }
  /// Whether nothing was typed that was not taken as a line.
  bool isEmpty() const { return lines_.empty() && current_.text.empty(); }
  /// Whether the user said that this is the end.
  bool hasEnded() const { return ended_; }
  /// Forgets everything that was typed, but not that it was the end.
  void forget();

 private:
  void erase(std::size_t count, std::string& echo);

  std::deque<TypedLine> lines_{};
  TypedLine current_{};
  std::string shown_{};    // of it; one column for each of its bytes
  std::size_t typed_ = 0;  // bytes in all of them, line ends included
  bool ended_ = false;
};

}  // namespace CorvaneControl::Headless
