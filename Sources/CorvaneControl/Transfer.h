#pragma once

#include <cerrno>
#include <cstddef>
#include <string_view>

#include <sys/types.h>

/// The loops around system calls that may be interrupted or do only part of their work. The call
/// itself comes from outside: write(2), a socket's, a test's.
namespace CorvaneControl::Transfer {

/// The result of `call`, made again as long as a signal interrupts it: as long as it is -1 with
/// `errno` EINTR.
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

/// Passes `bytes` to `write(const char* bytes, std::size_t count)` until it has taken them all.
/// False when it fails, with `errno`; a call that takes nothing fails with EIO, or this would go on
/// for ever.
///
///     Transfer::writeAll(text, [&](const char* bytes, std::size_t count) {
///       return ::write(file, bytes, count);
///     });
template <class Write>
bool writeAll(std::string_view bytes, Write write) {
  while (!bytes.empty()) {
    const ssize_t count = uninterrupted([&] { return write(bytes.data(), bytes.size()); });
    if (count == 0) errno = EIO;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Calls `read(char* bytes, std::size_t count)` until `count` bytes are there or the end is; gives
/// how many there are, -1 and `errno` at failure.
template <class Read>
ssize_t readAll(char* bytes, std::size_t count, Read read) {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t now = uninterrupted([&] { return read(bytes + done, count - done); });
    if (now < 0) return -1;
    if (now == 0) break;
    done += static_cast<std::size_t>(now);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace CorvaneControl::Transfer
