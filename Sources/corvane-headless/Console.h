#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneControl/UnixSocket.h"
#include "corvane-headless/OutputQueue.h"

namespace CorvaneControl::Headless {

/// How text may be drawn where it goes.
struct Style {
  bool colours = false;
  std::size_t columns = 80;
  bool operator==(const Style&) const = default;
};

/// Standard output and standard input: the log, the cards, and what the user types. Nothing here
/// waits: output is queued until somebody takes it, input is read when there is some.
class Console {
 public:
  explicit Console(bool quiet);

  /// Adds a line with the time to the log, unless it is quiet. `text` is visible already. On a
  /// terminal a long line goes on further right, so that no row but the first begins with a time.
  void log(std::string_view text);
  /// Puts out a drawn text as it is, quiet or not.
  void show(std::string_view text);
  /// How to draw now: a terminal may change its width.
  Style style() const;

  bool hasOutput() const { return !output_.isEmpty(); }
  /// Writes what standard output takes. False when it is gone, or broken; whatever is no reader
  /// that went away is told once on standard error, and nothing is put out from then on.
  [[nodiscard]] bool writeOutput();
  /// Whether standard output is broken.
  bool hasFailed() const { return isBroken_; }
  /// Writes the rest at the end; gives up on a standard output that takes nothing for a second.
  void finishOutput();

  /// Whether to wait for input now. Input that is no terminal is only read while somebody is asked,
  /// so that each answer goes to a question.
  bool wantsInput(bool asking) const;
  /// Whether the terminal belongs to another job at the moment: it can't be read, and nobody tells
  /// when that is over.
  bool isInBackground() const;
  /// Reads what has been typed; only after poll(2) says that there is something. False at the end.
  [[nodiscard]] bool readInput();
  /// The next line that was typed, without its line feed. The view holds until the next reading.
  std::optional<std::string_view> nextLine();
  /// Forgets what was typed on a terminal before a question was there to be read.
  void forgetTypedAhead();

 private:
  const bool quiet_;
  const bool inputIsTerminal_;
  const bool outputIsTerminal_;
  const bool colours_;
  bool outputFailed_ = false;
  bool isBroken_ = false;
  bool inputEnded_ = false;
  std::size_t lostLines_ = 0;  // since the queue was full
  OutputQueue output_{};
  LineBuffer input_{};
};

}  // namespace CorvaneControl::Headless
