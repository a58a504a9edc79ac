#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/UnixSocket.h"
#include "Support/ChildProcess.h"

namespace CorvaneTests {

/// A client of the control socket that says what the test tells it to, byte by byte.
class ControlClient {
 public:
  explicit ControlClient(const std::string& path) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
      auto connection = CorvaneControl::UnixSocket::connect(path, 0);
      if (connection) {
        socket_ = *connection;
        return;
      }
      if (std::chrono::steady_clock::now() >= deadline) {
        ADD_FAILURE() << path << ": " << connection.failure().description();
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  ~ControlClient() { close(); }
  ControlClient(ControlClient&& other) noexcept
      : socket_(std::exchange(other.socket_, -1)), received_(std::move(other.received_)) {}
  ControlClient& operator=(ControlClient&&) = delete;

  void close() {
    if (socket_ >= 0) ::close(std::exchange(socket_, -1));
  }
  /// Says that nothing more will be sent; answers can still come.
  void finishSending() const { ::shutdown(socket_, SHUT_WR); }

  /// Sends all of it; false when the other end is gone, or takes nothing for long.
  bool send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = CorvaneControl::System::write(socket_, bytes.data(), bytes.size());
      if (count < 0 && errno != EINTR) return false;
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }
  /// Sends what is taken at once, and gives how many bytes that were.
  std::size_t sendWithoutWaiting(std::string_view bytes) const {
    ::fcntl(socket_, F_SETFL, ::fcntl(socket_, F_GETFL) | O_NONBLOCK);
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count =
          CorvaneControl::System::write(socket_, bytes.data() + sent, bytes.size() - sent);
      if (count <= 0) break;
      sent += static_cast<std::size_t>(count);
    }
    ::fcntl(socket_, F_SETFL, ::fcntl(socket_, F_GETFL) & ~O_NONBLOCK);
    return sent;
  }

  /// The next line without its line feed; absent when the other end has closed the connection.
  /// Fails the test when neither happens.
  std::optional<std::string> line() {
    std::size_t searched = 0;
    for (;;) {
      const std::size_t end = received_.find('\n', searched);
      if (end != std::string::npos) {
        std::string result = received_.substr(0, end);
        received_.erase(0, end + 1);
        return result;
      }
      searched = received_.size();
      if (!isReadable(patience)) {
        ADD_FAILURE() << "no answer; so far there is \"" << received_ << "\"";
        return std::nullopt;
      }
      std::array<char, 65536> chunk;
      const ssize_t count = ::read(socket_, chunk.data(), chunk.size());
      if (count <= 0) return std::nullopt;
      received_.append(chunk.data(), static_cast<std::size_t>(count));
    }
  }

  /// The answer to a request, which is sent with a line feed.
  std::optional<std::string> ask(std::string_view request) {
    EXPECT_TRUE(send(std::string(request) + "\n"));
    return line();
  }

  /// Whether there is something to read, or the end, within `limit`.
  bool isReadable(std::chrono::milliseconds limit) const {
    pollfd polled{.fd = socket_, .events = POLLIN, .revents = 0};
    return ::poll(&polled, 1, static_cast<int>(limit.count())) > 0;
  }

 private:
  int socket_ = -1;
  std::string received_{};
};

}  // namespace CorvaneTests
