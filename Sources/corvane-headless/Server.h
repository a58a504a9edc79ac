#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>

#include "corvane-headless/Application.h"
#include "corvane-headless/CommandLine.h"
#include "corvane-headless/Connection.h"
#include "corvane-headless/Console.h"
#include "corvane-headless/SocketFile.h"
#include "corvane-headless/Workspaces.h"

namespace CorvaneControl::Headless {

/// Serves the control socket and the console from one loop that waits for nothing but poll(2):
/// whoever is slow, silent or gone keeps nobody else waiting.
class Server final : private Clients {
 public:
  /// `end` is a descriptor that becomes readable when it is time to end.
  Server(SocketFile socket, Workspaces workspaces, CommandLine::Answering answering,
         Console& console, int end);

  /// Bytes of requests that all clients together have sent and that are not taken yet. Beyond it
  /// the client that has sent most of them is not served.
  static constexpr std::size_t mostUntaken = 64U << 20U;

  /// Runs until it is time to end, or until standard output is gone. Absent then, else why it can't
  /// go on. A client that there is no memory for is given up.
  std::optional<std::string> run();

 private:
  using Clock = std::chrono::steady_clock;

  void answer(ConnectionID id, const ControlResponse& response) override;
  void subscribe(ConnectionID id, const ControlEvent& first) override;
  void publish(const ControlEvent& event) override;

  /// What one round waits for: the descriptors, and which client each of the last ones belongs to.
  struct Waiting {
    std::vector<pollfd> polled{};
    std::vector<ConnectionID> clients{};
    int timeout = -1;  ///< Milliseconds; -1 waits for ever.
  };
  /// Waits, and gives everybody a turn. Why there can be no further round; absent otherwise.
  std::optional<std::string> serveRound();
  Waiting whatToWaitFor() const;
  void serveConsole(const Waiting& waiting);
  void takeAnswers();
  void acceptClients();
  void welcome(int socket);
  void pauseAccepting(int code);
  void serve(ConnectionID id, Connection& connection, short events);
  void takeRequests(ConnectionID id, Connection& connection);
  void take(ConnectionID id, Connection& connection, std::string_view line);
  void refuse(ConnectionID id, Connection& connection, const std::string& why);
  void boundUntaken();
  /// Gives up the client that holds most memory, and whoever waits for an answer.
  void spareMemory();
  void finishRound();
  bool isOver(const Connection& connection) const;

  SocketFile socket_;
  Console& console_;
  const int end_;
  std::map<ConnectionID, std::unique_ptr<Connection>> connections_{};
  Application application_;
  ConnectionID lastID_ = 0;
  std::size_t untaken_ = 0;  // bytes, or less: what was taken is not always subtracted yet
  std::optional<Clock::time_point> acceptsAgain_{};  // when there is room for clients, perhaps
  bool isFull_ = false;                              // there was no room for the last client
  bool stops_ = false;
};

}  // namespace CorvaneControl::Headless
