#pragma once

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "Support/ChildProcess.h"
#include "Support/ScriptedPeer.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneTests {

/// The executable under test.
inline std::string corvanectl() { return CORVANECTL; }

/// Runs corvanectl against the socket at `socket`, away from everything else of the machine.
inline ChildOptions against(const std::string& socket, std::vector<std::string> words) {
  return {.arguments = std::move(words),
          .environment = {{"CORVANE_SOCKET", socket}},
          .withoutEnvironment = {"CMUX_WORKSPACE_ID", "CMUX_SURFACE_ID"}};
}

/// Plays a script to one call of corvanectl.
inline Ended exchange(std::vector<std::string> words, ScriptedPeer::Script script,
                      std::string* request = nullptr) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), std::move(script));
  const Ended ended = run(corvanectl(), against(peer.path(), std::move(words)));
  peer.stop();
  if (request) *request = peer.requests().empty() ? "" : peer.requests().front();
  return ended;
}

inline ScriptedPeer::Script sending(std::string bytes) {
  return [bytes = std::move(bytes)](Conversation& talk) { talk.send(bytes); };
}

/// The read time-out, in seconds, of the socket that a running corvanectl waits on; absent where
/// the system does not let one look.
inline std::optional<long> readTimeout(pid_t process) {
#if defined(SYS_pidfd_open) && defined(SYS_pidfd_getfd)
  const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (handle < 0) return std::nullopt;
  const auto socket = static_cast<int>(::syscall(SYS_pidfd_getfd, handle, 3, 0));
  ::close(handle);
  if (socket < 0) return std::nullopt;
  timeval value{};
  socklen_t size = sizeof value;
  const bool known = ::getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &value, &size) == 0;
  ::close(socket);
  if (known) return static_cast<long>(value.tv_sec);
#else
  static_cast<void>(process);
#endif
  return std::nullopt;
}

inline std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), {});
}

}  // namespace CorvaneTests
