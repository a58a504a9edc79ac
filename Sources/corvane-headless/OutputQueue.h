#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace CorvaneControl::Headless {

/// Bytes on their way to a descriptor that may not take them all at once. Each byte is moved a
/// bounded number of times, however small the pieces are that the descriptor takes.
class OutputQueue {
 public:
  enum class Outcome : std::uint8_t {
    empty,    ///< Everything is written.
    blocked,  ///< The descriptor takes no more for now.
    failed,   ///< It never will; `errno` says why.
  };

  void append(std::string_view bytes);
  std::size_t size() const { return bytes_.size() - written_; }
  bool isEmpty() const { return size() == 0; }
  void clear();

  /// Writes to a socket that doesn't block until it takes no more; a peer that went away is a
  /// failure and never a signal.
  Outcome writeToSocket(int socket);

  /// Writes to an open file that may block: only while the system says that it takes something, and
  /// then no more than a pipe surely takes.
  Outcome writeWhileReady(int descriptor);

 private:
  void took(std::size_t count);
  /// Passes the bytes to `write` until it has taken them all or fails.
  template <class Write>
  Outcome pass(Write write);

  std::string bytes_{};
  std::size_t written_ = 0;
};

}  // namespace CorvaneControl::Headless
