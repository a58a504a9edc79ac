#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
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

  /// Runs until it is time to end, or until standard output is gone.
  void run();

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
  Waiting whatToWaitFor() const;
  void serveConsole(const Waiting& waiting);
  void takeAnswers();
  void acceptClients();
  void pauseAccepting(int code);
  void serve(ConnectionID id, Connection& connection, short events);
  void takeRequests(ConnectionID id, Connection& connection);
  void take(ConnectionID id, Connection& connection, std::string_view line);
  void finishRound();
  bool isOver(const Connection& connection) const;

  SocketFile socket_;
  Console& console_;
  const int end_;
  std::map<ConnectionID, std::unique_ptr<Connection>> connections_{};
  Application application_;
  ConnectionID lastID_ = 0;
  std::optional<Clock::time_point> acceptsAgain_{};  // when there is room for clients, perhaps
  bool isFull_ = false;                              // there was no room for the last client
  bool stops_ = false;
};

}  // namespace CorvaneControl::Headless
