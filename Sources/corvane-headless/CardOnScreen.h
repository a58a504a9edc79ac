#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace CorvaneControl::Headless {

/// The card that is on the terminal, and whether the user can have read it: only then what is typed
/// is meant for it. Pure: it is told what was written, and when.
class CardOnScreen {
 public:
  using Clock = std::chrono::steady_clock;

  /// Nobody reads a card faster. What is typed before was meant for what stood there before.
  static constexpr std::chrono::milliseconds shortestLook{500};

  /// A card was put out, or another view of it; its last byte is that number `end` of all output.
  void drawn(std::uint64_t end) {
    end_ = end;
    wholeSince_.reset();
  }
  /// No card is up any more.
  void gone() { end_.reset(); }

  /// The first `bytes` of all output are written. True when that makes the card whole.
  bool written(std::uint64_t bytes, Clock::time_point now) {
    if (!isComing() || bytes < *end_) return false;
    wholeSince_ = now;
    return true;
  }

  /// Whether a card is up that was not written to its end yet.
  bool isComing() const { return end_ && !wholeSince_; }
  /// Whether a key that is typed now is dropped: there is a card, and nobody can have read it.
  bool isTooNew(Clock::time_point now) const {
    return end_ && (!wholeSince_ || now - *wholeSince_ < shortestLook);
  }

 private:
  std::optional<std::uint64_t> end_{};  // present while a card is up
  std::optional<Clock::time_point> wholeSince_{};
};

}  // namespace CorvaneControl::Headless
