#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneControl/ControlProtocol.h"
#include "corvane-headless/CardAnswers.h"
#include "corvane-headless/CommandLine.h"
#include "corvane-headless/Console.h"
#include "corvane-headless/Turns.h"
#include "corvane-headless/Workspaces.h"

namespace CorvaneControl::Headless {

using ConnectionID = std::uint64_t;

/// What the application asks of whoever holds the connections.
class Clients {
 public:
  /// Sends the answer to the request that the connection waits for.
  virtual void answer(ConnectionID connection, const ControlResponse& response) = 0;
  /// Answers a request to subscribe: with an event, and from now on each one that is published.
  virtual void subscribe(ConnectionID connection, const ControlEvent& first) = 0;
  virtual void publish(const ControlEvent& event) = 0;

 protected:
  ~Clients() = default;
};

/// What Corvane does, without sockets: the requests of its clients in, answers and events out, and
/// the user at the console who decides about permission cards.
///
/// Each request is answered exactly once; a card's request when the user has decided, unless its
/// connection goes away before.
class Application {
 public:
  Application(Workspaces workspaces, CommandLine::Answering answering, Console& console,
              Clients& clients);

  /// A request has arrived. One connection has at most one that is not answered.
  void request(ConnectionID connection, const ControlRequest& request);
  /// The connection is gone: its card, if it has one, is withdrawn.
  void disconnected(ConnectionID connection);

  /// Whether the user is the one who decides about cards.
  bool wantsUser() const { return answering_ == CommandLine::Answering::ask; }
  /// Whether a card is shown and waits for an answer.
  bool isAsking() const { return dialog_.has_value(); }
  /// The user has typed a line.
  void typed(const TypedLine& line);
  /// The user will type nothing more, or sees nothing: all cards, now and later, are left to the
  /// agents.
  void inputEnded();
  /// The terminal may have changed its size: a card that no longer fits is drawn anew.
  void windowChanged();

 private:
  /// A card that waits for the user. The first one is the one that is shown.
  struct Card {
    ConnectionID connection = 0;
    ControlRequest request{};
    std::string agent{};  ///< Visible: "Claude".
    std::string what{};   ///< Visible, for the log: "Run npm test".
    Attention mark{};     ///< What it puts on its workspace.
  };
  /// Whose card put the mark on a workspace.
  struct CardMark {
    std::string session{};
    std::optional<std::string> call{};
  };

  ControlResponse list();
  ControlResponse current();
  ControlResponse switchTo(std::string_view name);
  ControlResponse launch(std::string_view name);
  ControlResponse stop(std::string_view name);
  /// `why` is visible.
  ControlResponse refusal(std::string_view command, const std::string& why);
  ControlResponse about(std::size_t position) const;
  void windowsChanged(std::size_t position, std::string_view verb, std::int64_t before);

  void subscribe(ConnectionID connection);
  void notify(ConnectionID connection, const ControlRequest& request);
  void progress(const ControlRequest& request);
  /// An agent wants the user's attention, without a card.
  void attend(const ControlRequest& request);
  void logAttention(const ControlRequest& request, const Attention& attention);
  /// Puts a mark on the workspace of its folder; it is that of a card when there is one.
  void mark(const Attention& attention, const std::optional<CardMark>& card);
  void clearMark(std::size_t position);
  /// Whether a card of that session waits for the user.
  bool asks(const std::string& session) const;
  /// Takes the marks of a session off, or puts those of cards that still wait in their place.
  void clearMarksOf(const ControlRequest& request);
  std::string placeOf(const ControlRequest& request) const;

  void permission(ConnectionID connection, const ControlRequest& request);
  /// Sends what was decided about a card; nothing is decided without a reply.
  void settle(const Card& card, const std::optional<PermissionReply>& reply, std::string_view how);
  /// Takes a card off the list.
  Card removed(std::size_t index);
  /// Settles the card that is shown, and shows the next one.
  void settleFirst(const std::optional<PermissionReply>& reply);
  /// A tool call is finished: the card that asked for it was answered at the agent.
  void settleElsewhere(const ControlRequest& report);
  void sessionEnded(const ControlRequest& report);
  void settleWithoutUser(std::size_t index);
  void showFirst();
  std::string drawnFirst();

  Workspaces workspaces_;
  CommandLine::Answering answering_;
  Console& console_;
  Clients& clients_;
  Turns turns_{};
  std::deque<Card> cards_{};
  std::optional<CardDialog> dialog_{};           // about the first card
  Style drawnStyle_{};                           // which the card that is shown was drawn for
  std::deque<std::string> allowed_{};            // tool calls that are not reported as finished yet
  std::map<std::size_t, CardMark> cardMarks_{};  // marks that cards have put on workspaces
};

}  // namespace CorvaneControl::Headless
