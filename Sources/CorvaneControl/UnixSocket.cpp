#include "CorvaneControl/UnixSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Transfer.h"

namespace CorvaneControl {

namespace UnixSocket {

namespace {

/// Whether a file can have that path. Otherwise some systems take the address for a name of another
/// kind, which no file's permissions guard.
bool isFilePath(std::string_view path) {
  return !path.empty() && path.find('\0') == std::string_view::npos;
}

/// Closes `descriptor` and tells why, keeping the error number from what closing does to it.
Failure closing(int descriptor, std::string_view call) {
  const int code = errno;
  ::close(descriptor);
  return Failure::system(call, code);
}

timeval timeValue(double seconds) {
  // The first double beyond what the seconds field holds.
  constexpr double limit =
      std::numeric_limits<time_t>::max() > 0x7fffffff ? 9223372036854775808.0 : 2147483648.0;
  if (!std::isfinite(seconds) || seconds >= limit || seconds < -limit) std::abort();
  const double whole = std::floor(seconds);
  timeval value{};
  value.tv_sec = static_cast<decltype(value.tv_sec)>(whole);
  value.tv_usec = static_cast<decltype(value.tv_usec)>((seconds - whole) * 1'000'000);
  return value;
}

int connectTo(int descriptor, const Address& address) {
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address.storage);
  int result = ::connect(descriptor, generic, address.length);
  while (result != 0 && errno == EINTR) {
    result = ::connect(descriptor, generic, address.length);
    if (result != 0 && errno == EISCONN) return 0;  // the interrupted call went through
  }
  return result;
}

}  // namespace

std::string Failure::description() const {
  if (!code) return "The socket path is too long: " + path;
  return std::string(call) + ": " + System::errorText(*code);
}

Result<Address, Failure> unixAddress(std::string_view path) {
  Address address;
  static_assert(longestPath < sizeof address.storage.sun_path);
  if (path.size() > longestPath) return Failure::pathTooLong(path);
  address.length = System::completeAddress(address.storage);
  std::memcpy(address.storage.sun_path, path.data(), path.size());
  return address;
}

Result<int, Failure> connect(std::string_view path, double timeout) {
  const auto address = unixAddress(path);
  if (!address) return address.failure();
  if (!isFilePath(path)) return Failure::system("connect", ENOENT);
  const int descriptor = System::openStreamSocket();
  if (descriptor < 0) return Failure::system("socket", errno);
  // Set before connecting: where connecting waits for a full backlog, the write time-out bounds it.
  configure(descriptor, timeout, connectionWriteTimeout);
  if (connectTo(descriptor, *address) != 0) return closing(descriptor, "connect");
  return descriptor;
}

Result<int, Failure> listen(std::string_view path, int backlog) {
  const auto address = unixAddress(path);
  if (!address) return address.failure();
  if (!isFilePath(path)) return Failure::system("listen", ENOENT);
  const int descriptor = System::openStreamSocket();
  if (descriptor < 0) return Failure::system("socket", errno);
  const std::string file(path);
  ::unlink(file.c_str());
  // One call name for all three: the error number tells them apart.
  if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address->storage), address->length) !=
          0 ||
      ::chmod(file.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(descriptor, backlog) != 0) {
    return closing(descriptor, "listen");
  }
  return descriptor;
}

void configure(int descriptor, double readTimeout, double writeTimeout) {
  const timeval read = timeValue(readTimeout);
  const timeval write = timeValue(writeTimeout);
  System::disableBrokenPipeSignal(descriptor);
  ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &read, sizeof read);
  ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &write, sizeof write);
}

bool makeNonBlocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags >= 0 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool peerIsCurrentUser(int descriptor) { return System::peerUser(descriptor) == ::getuid(); }

bool write(std::string_view bytes, int descriptor) {
  return Transfer::writeAll(bytes, [&](const char* next, std::size_t count) {
    return System::write(descriptor, next, count);
  });
}

}  // namespace UnixSocket

void LineBuffer::append(std::string_view bytes) {
  if (start_ > 0 && start_ >= pending_.size() - start_) {
    // What was returned is dropped once it is at least half: each byte is moved a bounded number of
    // times.
    pending_.erase(0, start_);
    scanned_ = scanned_ > start_ ? scanned_ - start_ : 0;
    start_ = 0;
  }
  pending_.append(bytes);
}

std::optional<std::string_view> LineBuffer::nextLine() {
  const std::size_t end = pending_.find('\n', std::max(start_, scanned_));
  if (end == std::string::npos) {
    scanned_ = pending_.size();
    return std::nullopt;
  }
  const std::string_view line = std::string_view(pending_).substr(start_, end - start_);
  start_ = end + 1;
  return line;
}

std::string_view LineBuffer::nextLines() {
  const std::string_view unseen = std::string_view(pending_).substr(std::max(start_, scanned_));
  const std::size_t last = unseen.rfind('\n');
  scanned_ = pending_.size();
  if (last == std::string_view::npos) return {};
  const std::size_t end = pending_.size() - unseen.size() + last + 1;
  const std::string_view lines = std::string_view(pending_).substr(start_, end - start_);
  start_ = end;
  return lines;
}

void LineBuffer::reset() {
  std::string().swap(pending_);  // one that is assigned to keeps its memory
  start_ = 0;
  scanned_ = 0;
}

bool LineReader::read() {
  std::array<char, 4096> chunk;
  const ssize_t count =
      Transfer::uninterrupted([&] { return ::read(fd, chunk.data(), chunk.size()); });
  if (count <= 0) return false;
  buffer.append({chunk.data(), static_cast<std::size_t>(count)});
  return true;
}

std::optional<std::string_view> LineReader::next() {
  for (;;) {
    if (const auto line = buffer.nextLine()) return line;
    if (!read()) return std::nullopt;
  }
}

std::optional<std::string_view> LineReader::nextLines() {
  for (;;) {
    if (const auto lines = buffer.nextLines(); !lines.empty()) return lines;
    if (!read()) return std::nullopt;
  }
}

}  // namespace CorvaneControl
