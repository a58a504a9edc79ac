#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "CorvaneControl/UnixSocket.h"
#include "corvane-headless/OutputQueue.h"

namespace CorvaneControl::Headless {

/// One client: its socket, which it owns and never waits for, and the bytes on their way in and
/// out.
class Connection {
 public:
  /// Bytes of a request that is not complete yet; a client that sends more is not served.
  static constexpr std::size_t longestRequest = 16U << 20U;
  /// Bytes of answers that wait for a client. Beyond it no more of its requests are taken.
  static constexpr std::size_t mostAnswers = 256U << 10U;
  /// Bytes of events that wait for a subscriber. One that does not read loses the connection.
  static constexpr std::size_t mostEvents = 4U << 20U;

  /// Takes over an accepted socket.
  explicit Connection(int socket);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int socket() const { return socket_; }

  /// Reads once, at most 64 KiB; only what is there already. Afterwards the input may have ended.
  void receive();
  /// The next whole line, when there is one. The view holds until the next `receive`.
  std::optional<std::string_view> nextLine();
  /// The bytes of that line, to be changed where they stand.
  std::span<char> inPlace(std::string_view line) { return input_.inPlace(line); }
  /// Bytes that have come in and are not taken yet.
  std::size_t untaken() const { return input_.count(); }
  /// Whether the request that is coming in is beyond `longestRequest`.
  bool isTooLong() const { return untaken() > longestRequest; }

  void send(std::string_view bytes) { output_.append(bytes); }
  std::size_t unsent() const { return output_.size(); }
  /// Writes what the socket takes. Gives up a client that the system can't send to.
  void transmit();

  /// The client will send nothing more. It may still wait for an answer.
  bool inputHasEnded() const { return inputEnded_; }
  /// Nobody takes answers any more. There may still be requests that were sent before.
  bool isGone() const { return gone_; }
  /// Finds out whether anybody is there, when the client will send nothing more.
  void probe();
  /// Takes nothing more from the client, and forgets what it has sent.
  void stopReceiving();
  /// Gives the client up: nothing more is read from it or sent to it.
  void giveUp();

  bool awaitsAnswer = false;    ///< A request was passed on that is not answered yet.
  bool isSubscribed = false;    ///< It gets every event.
  bool hasMoreLines = false;    ///< It had its turn, and has perhaps sent more.
  bool closesWhenSent = false;  ///< Nothing more is taken from it.
  /// The system says that it is gone, though it only stopped sending; looked after by time.
  bool mustBeProbed = false;

 private:
  const int socket_;
  LineBuffer input_{};
  OutputQueue output_{};
  bool inputEnded_ = false;
  bool gone_ = false;
};

}  // namespace CorvaneControl::Headless
