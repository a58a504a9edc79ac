#include "corvane-headless/LineEditor.h"

#include <utility>

namespace CorvaneControl::Headless {

namespace {

constexpr char endOfInput = 0x04;  // Ctrl-D
constexpr char killLine = 0x15;    // Ctrl-U
constexpr char killWord = 0x17;    // Ctrl-W

constexpr bool isErase(char key) { return key == '\b' || key == 0x7F; }
constexpr bool isLineEnd(char key) { return key == '\n' || key == '\r'; }
/// No answer has other characters, so what they look like matters to nobody.
constexpr char shownAs(char key) { return key >= ' ' && key < 0x7F ? key : '?'; }

/// Bytes of the last word of a line and of the blanks behind it.
std::size_t sizeOfLastWord(std::string_view line) {
  const std::size_t last = line.find_last_not_of(" \t");
  if (last == std::string_view::npos) return line.size();
  const std::size_t before = line.find_last_of(" \t", last);
  return line.size() - (before == std::string_view::npos ? 0 : before + 1);
}

}  // namespace

std::string LineEditor::take(std::string_view keys, bool tooEarly) {
  std::string echo;
  for (const char key : keys) {
    if (isErase(key)) {
      erase(current_.text.empty() ? 0 : 1, echo);
    } else if (key == killLine) {
      erase(current_.text.size(), echo);
    } else if (key == killWord) {
      erase(sizeOfLastWord(current_.text), echo);
    } else if (key == endOfInput) {
      ended_ = ended_ || current_.text.empty();
    } else if (typed_ == mostTyped) {
      continue;
    } else if (isLineEnd(key)) {
      current_.tooEarly = current_.tooEarly || tooEarly;
      lines_.push_back(std::exchange(current_, {}));
      shown_.clear();
      echo += '\n';
      ++typed_;
    } else {
      current_.tooEarly = current_.tooEarly || tooEarly;
      current_.text += key;
      shown_ += shownAs(key);
      echo += shownAs(key);
      ++typed_;
    }
  }
  return echo;
}

void LineEditor::erase(std::size_t count, std::string& echo) {
  current_.text.resize(current_.text.size() - count);
  shown_.resize(current_.text.size());
  typed_ -= count;
  if (current_.text.empty()) current_.tooEarly = false;  // those keys are gone
  for (; count > 0; --count) echo += "\b \b";
}

std::optional<TypedLine> LineEditor::nextLine() {
  if (lines_.empty()) return std::nullopt;
  TypedLine line = std::move(lines_.front());
  lines_.pop_front();
  typed_ -= line.text.size() + 1;
  return line;
}

void LineEditor::forget() {
  lines_.clear();
  current_ = {};
  shown_.clear();
  typed_ = 0;
}

}  // namespace CorvaneControl::Headless
