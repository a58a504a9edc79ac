// The application's end of the control socket, as small as it can be: it has two workspaces, and
// answers `list`. Try it with
//
//   application /tmp/example.sock &
//   CORVANE_SOCKET=/tmp/example.sock corvanectl list

#include <cerrno>
#include <cstdio>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/UnixSocket.h"

namespace {

namespace Control = CorvaneControl;
using Control::ControlRequest;
using Control::ControlResponse;

constexpr int backlog = 16;              // connections that may wait to be accepted
constexpr double secondsOfPatience = 5;  // with a client that sends or takes nothing

ControlResponse answer(const std::string& line) {
  const auto request = Control::ControlCoding::decode<ControlRequest>(line);
  if (!request) return ControlResponse::failure(request.failure().description);
  if (request->command != ControlRequest::Command::list) {
    return ControlResponse::failure("This example can only list.");
  }
  return {.ok = true,
          .workspaces = {{{.name = "Garden", .section = "Home", .active = true, .windows = 2},
                          {.name = "Kitchen", .section = "Home", .windows = 1}}}};
}

/// Answers each request on a connection, until the client has no more.
void serve(int connection) {
  if (!Control::UnixSocket::peerIsCurrentUser(connection)) return;
  Control::UnixSocket::configure(connection, secondsOfPatience, secondsOfPatience);
  Control::LineReader reader(connection);
  while (const auto line = reader.next()) {
    const std::string reply = Control::ControlCoding::line(answer(std::string(*line)));
    if (!Control::UnixSocket::write(reply, connection)) return;
  }
}

}  // namespace

int main(int count, char** words) {
  if (count != 2) {
    std::fputs("usage: application SOCKET\n", stderr);
    return 2;
  }
  const auto listener = Control::UnixSocket::listen(words[1], backlog);
  if (!listener) {
    std::fputs((listener.failure().description() + "\n").c_str(), stderr);
    return 1;
  }
  std::printf("Serving at %s\n", words[1]);
  std::fflush(stdout);
  for (;;) {
    const int connection = ::accept(*listener, nullptr, nullptr);
    if (connection < 0 && errno == EINTR) continue;
    if (connection < 0) return 1;
    serve(connection);
    ::close(connection);
  }
}
