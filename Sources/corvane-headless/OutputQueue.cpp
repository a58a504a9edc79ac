#include "corvane-headless/OutputQueue.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <poll.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"

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

OutputQueue::Outcome OutputQueue::writeToSocket(int socket) {
  while (!isEmpty()) {
    const ssize_t count = System::writeToSocket(socket, bytes_.data() + written_, size());
    if (count >= 0) {
      took(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return Outcome::blocked;
    } else if (errno != EINTR) {
      return Outcome::failed;
    }
  }
  return Outcome::empty;
}

OutputQueue::Outcome OutputQueue::writeWhileReady(int descriptor) {
  while (!isEmpty()) {
    pollfd polled{.fd = descriptor, .events = POLLOUT, .revents = 0};
    const int ready = ::poll(&polled, 1, 0);
    if (ready < 0 && errno != EINTR) return Outcome::failed;
    if (ready == 0) return Outcome::blocked;
    if (ready < 0) continue;
    const ssize_t count =
        ::write(descriptor, bytes_.data() + written_, std::min<std::size_t>(size(), PIPE_BUF));
    if (count >= 0) {
      took(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return Outcome::blocked;
    } else if (errno != EINTR) {
      return Outcome::failed;
    }
  }
  return Outcome::empty;
}

}  // namespace CorvaneControl::Headless
