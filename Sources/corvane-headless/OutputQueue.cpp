#include "corvane-headless/OutputQueue.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <poll.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Transfer.h"

namespace CorvaneControl::Headless {

namespace {

/// Memory that an empty queue may keep, in bytes.
constexpr std::size_t keptCapacity = 64U << 10U;

}  // namespace

void OutputQueue::append(std::string_view bytes) {
  if (written_ > 0 && written_ >= size()) {
    bytes_.erase(0, written_);
    written_ = 0;
  }
  bytes_.append(bytes);
}

void OutputQueue::clear() {
  bytes_.clear();
  written_ = 0;
}

void OutputQueue::took(std::size_t count) {
  written_ += count;
  if (!isEmpty()) return;
  clear();
  if (bytes_.capacity() > keptCapacity) bytes_.shrink_to_fit();
}

template <class Write>
OutputQueue::Outcome OutputQueue::pass(Write write) {
  while (!isEmpty()) {
    const ssize_t count =
        Transfer::uninterrupted([&] { return write(bytes_.data() + written_, size()); });
    if (count < 0) {
      return errno == EAGAIN || errno == EWOULDBLOCK ? Outcome::blocked : Outcome::failed;
    }
    took(static_cast<std::size_t>(count));
  }
  return Outcome::empty;
}

OutputQueue::Outcome OutputQueue::writeToSocket(int socket) {
  return pass(
      [&](const char* bytes, std::size_t count) { return System::write(socket, bytes, count); });
}

OutputQueue::Outcome OutputQueue::writeWhileReady(int descriptor) {
  return pass([&](const char* bytes, std::size_t count) -> ssize_t {
    pollfd polled{.fd = descriptor, .events = POLLOUT, .revents = 0};
    const int ready = ::poll(&polled, 1, 0);
    if (ready == 0) errno = EAGAIN;
    if (ready <= 0) return -1;
    return ::write(descriptor, bytes, std::min<std::size_t>(count, PIPE_BUF));
  });
}

}  // namespace CorvaneControl::Headless
