#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

#include "CorvaneControl/Result.h"

namespace CorvaneControl {

/// Stream sockets of the Unix domain, blocking, for both ends of the control connection. The caller
/// owns every descriptor that an operation returns and closes it; all are closed on exec.
namespace UnixSocket {

/// Why a socket could not be made.
struct Failure {
  /// The system call that failed ("socket", "connect" or "listen"); empty for a path that is too
  /// long.
  std::string_view call{};
  /// The system error number; absent for a path that is too long.
  std::optional<std::int32_t> code{};
  std::string path{};  ///< The path that is too long.

  static Failure pathTooLong(std::string_view path) { return {{}, {}, std::string(path)}; }
  static Failure system(std::string_view call, std::int32_t code) { return {call, code, {}}; }

  /// "connect: Connection refused", or "The socket path is too long: " and the path.
  std::string description() const;
  bool operator==(const Failure&) const = default;
};

/// The longest path, in bytes, on every system, whatever the local address structure would hold: a
/// path that works on one machine works on all.
inline constexpr std::size_t longestPath = 103;

/// Seconds that a connection made here may take to accept what is written to it.
inline constexpr double connectionWriteTimeout = 5;

struct Address {
  sockaddr_un storage{};
  socklen_t length = 0;  ///< Bytes, to be passed along with `storage`.
};
/// The address of a path; fails with `pathTooLong` beyond `longestPath` bytes. Does not ask whether
/// a file can have that path; `connect` and `listen` do.
Result<Address, Failure> unixAddress(std::string_view path);

/// Connects a new socket to the listener at `path`. Reads on it time out after `timeout` seconds
/// (0: never), writes after `connectionWriteTimeout`; so does the connecting itself where the
/// system waits for a listener whose backlog is full. At an empty path and one with a NUL there is
/// no file: `system("connect", ENOENT)`.
Result<int, Failure> connect(std::string_view path, double timeout);

/// Listens at `path`, in the place of whatever file is there; the socket file is the owner's alone
/// (mode 600). Failures of binding and of the permissions are `system("listen", code)` as well; so
/// is a path that no file can have (ENOENT), and nothing is removed then. A file that was made
/// before a failure stays.
Result<int, Failure> listen(std::string_view path, int backlog);

/// Keeps a broken pipe on `descriptor` from raising a signal and sets its time-outs in seconds; 0
/// waits for ever. Failures are ignored. A time-out that is not finite or does not fit the system's
/// time value is a programming error that ends the process.
void configure(int descriptor, double readTimeout, double writeTimeout);

/// Makes reading and writing fail with EAGAIN where they would wait; false and `errno` at failure.
[[nodiscard]] bool makeNonBlocking(int descriptor);

/// Whether the other end runs (effectively) as the user that this process belongs to; false for
/// whatever has no other end, such as a listening socket.
bool peerIsCurrentUser(int descriptor);

/// Writes every byte to a descriptor of any kind; false at any failure, an expired time-out
/// included. The descriptor stays open.
[[nodiscard]] bool write(std::string_view bytes, int descriptor);

}  // namespace UnixSocket

/// Splits a stream of bytes into lines. A line is the bytes before a line feed, without it; a
/// carriage return is a byte like any other; a line has no limit in length. Costs linear time in
/// what is appended, however small the pieces are.
class LineBuffer {
 public:
  void append(std::string_view bytes);

  /// The bytes not yet returned as lines.
  std::size_t count() const { return pending_.size() - start_; }

  /// Takes the next complete line off the front; absent when there is none. The view holds until
  /// the next call of `append`.
  std::optional<std::string_view> nextLine();

  /// The bytes of the line that was taken last, to be changed where they stand.
  std::span<char> inPlace(std::string_view line) {
    return std::span(pending_).subspan(static_cast<std::size_t>(line.data() - pending_.data()),
                                       line.size());
  }

  /// Takes all complete lines off the front at once, with their line feeds; empty when there is
  /// none. The view holds until the next call of `append`.
  std::string_view nextLines();

  /// Forgets everything, and gives the memory back.
  void reset();

 private:
  std::string pending_{};
  std::size_t start_ = 0;    // where the first line not yet returned begins
  std::size_t scanned_ = 0;  // no line feed stands in [start_, scanned_)
};

/// Reads lines from a descriptor, which it does not own.
class LineReader {
 public:
  explicit LineReader(int descriptor) : fd(descriptor) {}

  /// The next line; absent at the end of the stream, at an error and when a read times out. Bytes
  /// after the last line feed are no line. The view holds until the next call.
  std::optional<std::string_view> next();

  /// Everything up to the last line feed that has arrived, at least one line, with the line feeds;
  /// absent as for `next`. The view holds until the next call.
  std::optional<std::string_view> nextLines();

  const int fd;
  LineBuffer buffer{};

 private:
  bool read();
};

}  // namespace CorvaneControl
