#include <cstdio>
#include <string>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/ControlSocket.h"
#include "CorvaneControl/UnixSocket.h"

namespace Control = CorvaneControl;

int main() {
  const auto socket = Control::ControlSocket::connect(10);  // seconds to wait for an answer
  if (!socket) {
    std::fputs("Corvane isn't running.\n", stderr);
    return 3;
  }
  const Control::ControlRequest request{.command = Control::ControlRequest::Command::list};
  if (!Control::UnixSocket::write(Control::ControlCoding::line(request), *socket)) return 3;
  Control::LineReader reader(*socket);
  const auto line = reader.next();
  if (!line) return 1;
  const auto answer = Control::ControlCoding::decode<Control::ControlResponse>(std::string(*line));
  if (!answer || !answer->workspaces) return 1;
  for (const auto& workspace : *answer->workspaces) std::puts(workspace.name.c_str());
}
