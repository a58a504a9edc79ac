#include "corvane-headless/Server.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <utility>

#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/UnixSocket.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

/// Turns that everybody gets before the first one gets another.
constexpr int acceptedPerRound = 128;
constexpr int requestsPerRound = 16;

/// How long to wait before trying again what nobody tells the end of.
constexpr int retryMilliseconds = 1000;

/// Where descriptors stand among the polled ones; -1 leaves a place empty.
namespace Place {
constexpr std::size_t end = 0;
constexpr std::size_t listener = 1;
constexpr std::size_t input = 2;
constexpr std::size_t window = 4;
constexpr std::size_t firstClient = 5;  // after standard output and the window
}  // namespace Place

pollfd polledFor(int descriptor, short events) {
  return {.fd = descriptor, .events = events, .revents = 0};
}

/// Sends a line, or gives the client up when there is no memory for it.
template <class Line>
void sendOrGiveUp(Connection& connection, Line line) {
  try {
    connection.send(line());
  } catch (const std::bad_alloc&) {
    connection.giveUp();
  }
}

}  // namespace

Server::Server(SocketFile socket, Workspaces workspaces, CommandLine::Answering answering,
               Console& console, int end)
    : socket_(std::move(socket)),
      console_(console),
      end_(end),
      application_(std::move(workspaces), answering, console, *this) {}

std::optional<std::string> Server::run() {
  std::optional<std::string> problem;
  while (!stops_ && !problem) {
    try {
      problem = serveRound();
    } catch (const std::bad_alloc&) {
      if (connections_.empty()) throw;
      spareMemory();
    }
  }
  return problem;
}

std::optional<std::string> Server::serveRound() {
  takeAnswers();
  Waiting waiting = whatToWaitFor();
  const auto count = static_cast<nfds_t>(waiting.polled.size());
  if (::poll(waiting.polled.data(), count, waiting.timeout) < 0) {
    if (errno == EINTR) return std::nullopt;
    return "poll: " + System::errorText(errno);
  }
  if (waiting.polled[Place::end].revents != 0) {
    stops_ = true;
    return std::nullopt;
  }
  serveConsole(waiting);
  // Clients that are here come before new ones, so that room is made first.
  for (std::size_t index = 0; index < waiting.clients.size(); ++index) {
    const ConnectionID id = waiting.clients[index];
    Connection& connection = *connections_.at(id);
    try {
      serve(id, connection, waiting.polled[Place::firstClient + index].revents);
    } catch (const std::bad_alloc&) {
      refuse(id, connection, "There is not enough memory for the request.");
    }
  }
  if (waiting.polled[Place::listener].revents != 0) acceptClients();
  finishRound();
  return std::nullopt;
}

void Server::spareMemory() {
  // What is shown to the user may be incomplete now: whoever waits for an answer asks by itself.
  const auto size = [](const auto& entry) {
    return entry.second->untaken() + entry.second->unsent();
  };
  const auto largest = std::ranges::max_element(connections_, {}, size);
  const ConnectionID id = largest->first;
  for (const auto& [other, connection] : connections_) {
    if (connection->awaitsAnswer) connection->giveUp();
  }
  connections_.erase(largest);
  try {
    application_.disconnected(id);
    console_.log("There is not enough memory: a client is disconnected.");
  } catch (const std::bad_alloc&) {
    return;  // the next round makes more room
  }
}

Server::Waiting Server::whatToWaitFor() const {
  Waiting waiting;
  const bool accepts = !acceptsAgain_ || Clock::now() >= *acceptsAgain_;
  bool mustTryAgain = !accepts || (application_.isAsking() && console_.isInBackground());
  const bool asks = application_.wantsUser() && console_.wantsInput(application_.isAsking());
  waiting.polled = {polledFor(end_, POLLIN), polledFor(accepts ? socket_.descriptor() : -1, POLLIN),
                    polledFor(asks ? STDIN_FILENO : -1, POLLIN),
                    polledFor(console_.hasOutput() ? STDOUT_FILENO : -1, POLLOUT),
                    polledFor(console_.windowChanges(), POLLIN)};
  for (const auto& [id, connection] : connections_) {
    // Who does not take answers gets no further ones to take.
    const bool takesRequests =
        !connection->hasMoreLines && connection->unsent() <= Connection::mostAnswers;
    // Who waits for an answer is listened to all the same: it may hang up.
    const bool reads = !connection->inputHasEnded() && (takesRequests || connection->awaitsAnswer);
    short events = reads ? POLLIN : POLLHUP;  // some systems tell of nothing when asked for nothing
    if (connection->unsent() > 0) events |= POLLOUT;
    waiting.polled.push_back(
        polledFor(connection->mustBeProbed ? -1 : connection->socket(), events));
    waiting.clients.push_back(id);
    mustTryAgain = mustTryAgain || connection->mustBeProbed;
    const bool canGoOn = connection->hasMoreLines && !connection->awaitsAnswer &&
                         connection->unsent() <= Connection::mostAnswers;
    if (canGoOn) waiting.timeout = 0;
  }
  if (waiting.timeout != 0 && mustTryAgain) waiting.timeout = retryMilliseconds;
  return waiting;
}

void Server::serveConsole(const Waiting& waiting) {
  if (waiting.polled[Place::input].revents != 0) console_.readInput();
  if (waiting.polled[Place::window].revents != 0) {
    console_.windowHasChanged();
    application_.windowChanged();
  }
}

void Server::takeAnswers() {
  if (application_.wantsUser()) console_.takeKeyboard();
  while (application_.wantsUser() && console_.wantsInput(application_.isAsking())) {
    const auto line = console_.nextLine();
    if (!line) break;
    application_.typed(*line);
  }
  const bool nobodyAnswers = console_.inputHasEnded() || console_.cannotShow();
  if (application_.wantsUser() && nobodyAnswers) application_.inputEnded();
}

void Server::acceptClients() {
  for (int count = 0; count < acceptedPerRound; ++count) {
    const int socket = System::acceptConnection(socket_.descriptor());
    if (socket >= 0) {
      isFull_ = false;
      welcome(socket);
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      pauseAccepting(errno);
      return;
    }
  }
}

void Server::welcome(int socket) {
  std::unique_ptr<Connection> connection(new (std::nothrow) Connection(socket));
  if (!connection) {
    ::close(socket);
    throw std::bad_alloc();
  }
  if (UnixSocket::peerIsCurrentUser(socket)) {
    connections_.emplace(++lastID_, std::move(connection));
  } else {
    console_.log("Turned away a process of another user.");
  }
}

void Server::pauseAccepting(int code) {
  acceptsAgain_ = Clock::now() + std::chrono::milliseconds(retryMilliseconds);
  if (std::exchange(isFull_, true)) return;
  console_.log("There is no room for more clients; they have to wait. (" + System::errorText(code) +
               ")");
}

void Server::serve(ConnectionID id, Connection& connection, short events) {
  if (connection.mustBeProbed) connection.probe();
  if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !connection.inputHasEnded()) {
    const std::size_t before = connection.untaken();
    connection.receive();
    untaken_ += connection.untaken() - before;
  } else if ((events & (POLLHUP | POLLERR)) != 0) {
    // Some systems report this for a client that only stopped sending: without a pause between, the
    // loop would turn and turn for it.
    connection.probe();
    connection.mustBeProbed = !connection.isGone();
  }
  takeRequests(id, connection);
  boundUntaken();
}

void Server::takeRequests(ConnectionID id, Connection& connection) {
  connection.hasMoreLines = false;
  for (int count = 0; !connection.closesWhenSent; ++count) {
    if (connection.awaitsAnswer || connection.unsent() > Connection::mostAnswers ||
        count == requestsPerRound) {
      connection.hasMoreLines = true;
      break;
    }
    const auto line = connection.nextLine();
    if (!line) break;
    take(id, connection, *line);
  }
  if (connection.isTooLong()) {
    console_.log("A client sent a request that is too long.");
    refuse(id, connection, "The request is too long.");
  }
}

void Server::boundUntaken() {
  if (untaken_ <= mostUntaken) return;
  untaken_ = 0;
  for (const auto& [id, connection] : connections_) untaken_ += connection->untaken();
  while (untaken_ > mostUntaken) {
    const auto largest = std::ranges::max_element(
        connections_, {}, [](const auto& entry) { return entry.second->untaken(); });
    untaken_ -= largest->second->untaken();
    console_.log("Clients sent requests that are too long together: the longest is refused.");
    refuse(largest->first, *largest->second, "The request is too long, beside those of others.");
  }
}

void Server::refuse(ConnectionID id, Connection& connection, const std::string& why) {
  connection.stopReceiving();  // frees memory
  connection.closesWhenSent = true;
  if (connection.awaitsAnswer) application_.disconnected(id);
  connection.awaitsAnswer = false;
  sendOrGiveUp(connection, [&] { return ControlCoding::line(ControlResponse::failure(why)); });
}

void Server::take(ConnectionID id, Connection& connection, std::string_view line) {
  connection.awaitsAnswer = true;
  const auto request = ControlCoding::decodeInPlace<ControlRequest>(connection.inPlace(line));
  if (request) {
    application_.request(id, *request);
    return;
  }
  const std::string& why = request.failure().description;
  console_.log("A client sent what is no request: " + visibleLine(why));
  answer(id, ControlResponse::failure(why));
}

void Server::answer(ConnectionID id, const ControlResponse& response) {
  const auto place = connections_.find(id);
  if (place == connections_.end()) return;
  place->second->awaitsAnswer = false;
  sendOrGiveUp(*place->second, [&] { return ControlCoding::line(response); });
}

void Server::subscribe(ConnectionID id, const ControlEvent& first) {
  const auto place = connections_.find(id);
  if (place == connections_.end()) return;
  place->second->awaitsAnswer = false;
  sendOrGiveUp(*place->second, [&] { return ControlCoding::line(first); });
  place->second->isSubscribed = true;
}

void Server::publish(const ControlEvent& event) {
  const std::string line = ControlCoding::line(event);
  for (const auto& [id, connection] : connections_) {
    if (!connection->isSubscribed || connection->closesWhenSent) continue;
    sendOrGiveUp(*connection, [&] { return std::string_view(line); });
    if (connection->unsent() <= Connection::mostEvents) continue;
    connection->transmit();
    if (connection->unsent() <= Connection::mostEvents) continue;
    console_.log("A client that follows the workspaces does not read: it is disconnected.");
    connection->giveUp();
  }
}

void Server::finishRound() {
  for (auto place = connections_.begin(); place != connections_.end();) {
    const ConnectionID id = place->first;
    Connection& connection = *place->second;
    connection.transmit();
    if (connection.isGone() && std::exchange(connection.awaitsAnswer, false)) {
      application_.disconnected(id);
    }
    if (!isOver(connection)) {
      ++place;
      continue;
    }
    if (connection.isSubscribed) console_.log("A client no longer follows the workspaces.");
    place = connections_.erase(place);
    acceptsAgain_.reset();
  }
  if (console_.hasOutput() && !console_.writeOutput()) stops_ = true;
}

bool Server::isOver(const Connection& connection) const {
  if (connection.closesWhenSent) return connection.unsent() == 0;
  if (!connection.inputHasEnded() || connection.hasMoreLines) return false;
  if (connection.isGone()) return true;
  return !connection.awaitsAnswer && !connection.isSubscribed && connection.unsent() == 0;
}

}  // namespace CorvaneControl::Headless
