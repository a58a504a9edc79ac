#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CorvaneControl/UnixSocket.h"

namespace CorvaneTests {

/// One connection as the application's end sees it.
class Conversation {
 public:
  explicit Conversation(int connection) : connection_(connection), reader_(connection) {}
  ~Conversation() { close(); }
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  /// The next line from the other end; absent at its end.
  std::optional<std::string> readLine() {
    const auto line = reader_.next();
    if (!line) return std::nullopt;
    return std::string(*line);
  }
  /// Sends bytes; false when the other end no longer reads.
  bool send(std::string_view bytes) {
    return CorvaneControl::UnixSocket::write(bytes, connection_);
  }
  /// Waits until the other end is gone.
  void waitForEnd() {
    char byte = 0;
    while (::read(connection_, &byte, 1) > 0) {
    }
  }
  void close() {
    if (connection_ >= 0) ::close(std::exchange(connection_, -1));
  }

 private:
  int connection_;
  CorvaneControl::LineReader reader_;
};

/// An application's end that does what a test tells it: for each connection, in its order, it notes
/// the request line and plays the script.
///
///     ScriptedPeer peer(folder.path("socket"), [](Conversation& talk) {
///     talk.send("{\"ok\":true}\n"); });
class ScriptedPeer {
 public:
  using Script = std::function<void(Conversation&)>;

  /// With `readsRequest` false the script itself reads the request, or doesn't.
  ScriptedPeer(std::string path, Script script, bool readsRequest = true)
      : path_(std::move(path)), script_(std::move(script)), readsRequest_(readsRequest) {
    const auto listener = CorvaneControl::UnixSocket::listen(path_, 64);
    if (!listener) {
      ADD_FAILURE() << listener.failure().description() << " " << path_;
      return;
    }
    listener_ = *listener;
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedPeer() { stop(); }
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  const std::string& path() const { return path_; }

  /// The request lines so far, one for each connection that sent one.
  std::vector<std::string> requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

  /// Ends after the conversation that is going on; the socket file goes away.
  void stop() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
    if (listener_ >= 0) ::close(std::exchange(listener_, -1));
    ::unlink(path_.c_str());
  }

 private:
  void serve() {
    while (!stopping_) {
      pollfd waiting{listener_, POLLIN, 0};
      if (::poll(&waiting, 1, 10) <= 0) continue;
      const int connection = ::accept(listener_, nullptr, nullptr);
      if (connection < 0) continue;
      Conversation talk(connection);
      if (readsRequest_) {
        auto request = talk.readLine();
        if (!request) continue;
        const std::lock_guard lock(mutex_);
        requests_.push_back(std::move(*request));
      }
      script_(talk);
    }
  }

  std::string path_;
  Script script_;
  bool readsRequest_;
  int listener_ = -1;
  std::atomic<bool> stopping_ = false;
  std::mutex mutex_{};
  std::vector<std::string> requests_{};
  std::thread thread_{};
};

}  // namespace CorvaneTests
