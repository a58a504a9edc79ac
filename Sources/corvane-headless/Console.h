#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "CorvaneControl/UnixSocket.h"
#include "corvane-headless/CardOnScreen.h"
#include "corvane-headless/LineEditor.h"
#include "corvane-headless/OutputQueue.h"

namespace CorvaneControl::Headless {

/// How text may be drawn where it goes.
struct Style {
  bool colours = false;
  std::size_t columns = 80;
  std::optional<std::size_t> rows{};  ///< That can be seen at once; absent: any number.
  bool operator==(const Style&) const = default;
};

/// Standard output and standard input: the log, the cards, and what the user types. Nothing here
/// waits: output is queued until somebody takes it, input is read when there is some.
///
/// On a terminal an answer counts for the card that was on the screen, whole and for a moment, when
/// its keys were typed. All else that is typed while there is a card is dropped, with a word.
class Console {
 public:
  explicit Console(bool quiet);
  /// Leaves the terminal as it was.
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Adds a line with the time to the log, unless it is quiet. `text` is visible already. On a
  /// terminal a long line goes on further right, so that no row but the first begins with a time.
  void log(std::string_view text);
  /// Says a sentence of our own to the user, quiet or not.
  void say(std::string_view sentence);
  /// Puts out a drawn card that the user is to answer, or more of it: what was typed for something
  /// else is dropped.
  void ask(std::string_view drawing);
  /// Puts out the same card once more, because the window has changed; what is half typed stays.
  void askAgain(std::string_view drawing);
  /// The user is not to answer any more: the card is gone.
  void stopAsking() { card_.gone(); }
  /// Says that something was typed before the card could be read, and does not count.
  void sayDropped();
  /// How to draw now: a terminal may change its size.
  Style style() const;
  /// Readable when the terminal may have changed its size, or its owner; -1 when it never does.
  int windowChanges() const { return windowChanges_; }
  /// Takes in that it has.
  void windowHasChanged() const;

  bool hasOutput() const { return !output_.isEmpty(); }
  /// Whether nothing is put out any more, so that nobody sees a card.
  bool cannotShow() const { return outputFailed_; }
  /// Writes what standard output takes. False when it is gone, or broken; whatever is no reader
  /// that went away is told once on standard error, and nothing is put out from then on.
  [[nodiscard]] bool writeOutput();
  /// Whether standard output is broken.
  bool hasFailed() const { return isBroken_; }
  /// Writes the rest at the end; gives up on a standard output that takes nothing for a second.
  void finishOutput();

  /// Whether there is no input and never was, as with the null device. Waits for none.
  bool isWithoutInput();
  /// Lets the terminal pass on each key, while it is ours; so that it can be held against the card.
  void takeKeyboard();
  /// Whether to wait for input now. Input that is no terminal is only read while somebody is asked,
  /// so that each answer goes to a question that was put out.
  bool wantsInput(bool asking) const;
  /// Whether the terminal belongs to another job at the moment: it can't be read, and nobody tells
  /// when that is over.
  bool isInBackground() const;
  /// Reads what has been typed; only after poll(2) says that there is something.
  void readInput();
  /// Whether nothing comes after the lines that are there.
  bool inputHasEnded() const { return inputEnded_ || typed_.hasEnded(); }
  /// No more input is read; the terminal is as it was.
  void closeInput();
  /// The next line that was typed, to be taken now.
  std::optional<TypedLine> nextLine();

 private:
  /// Puts text out in rows of its own, whatever is half typed.
  void put(std::string_view text);
  void append(std::string_view bytes);
  std::uint64_t written() const { return appended_ - output_.size(); }
  /// Forgets what was typed on a terminal for what is not on it any more.
  void dropTyped();
  void leaveKeyboard();

  const bool quiet_;
  const bool inputIsTerminal_;
  const bool outputIsTerminal_;
  const bool colours_;
  int windowChanges_ = -1;
  bool outputFailed_ = false;
  bool isBroken_ = false;
  bool inputEnded_ = false;
  std::size_t lostLines_ = 0;  // since the queue was full
  OutputQueue output_{};
  std::uint64_t appended_ = 0;  // bytes that ever went into the queue
  CardOnScreen card_{};
  LineBuffer piped_{};      // input that is no terminal
  LineEditor typed_{};      // input that is one
  bool isRowOpen_ = false;  // what is half typed stands in the last row
};

}  // namespace CorvaneControl::Headless
