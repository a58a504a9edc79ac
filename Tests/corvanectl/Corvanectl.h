#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Support/ChildProcess.h"
#include "Support/ScriptedPeer.h"
#include "Support/SystemUnderTest.h"
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

/// Feeds a call its input until it has asked.
inline void waitFor(std::promise<void>& asked, ChildProcess& child) {
  const auto future = asked.get_future();
  while (future.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
    ASSERT_TRUE(child.running());
  }
}

inline ScriptedPeer::Script sending(std::string bytes) {
  return [bytes = std::move(bytes)](Conversation& talk) { talk.send(bytes); };
}

/// The read time-out, in seconds, of a call that has asked and waits for its answer, which it does
/// not get. `call` gives the call for a socket; how it ended comes back in `ended`. Absent where
/// the system does not let one look.
template <class Call>
std::optional<long> readTimeoutOf(const Call& call, Ended& ended) {
  const TemporaryFolder folder;
  std::promise<void> asked;
  std::promise<void> looked;
  ScriptedPeer peer(folder.path("s"), [&](Conversation&) {
    asked.set_value();
    looked.get_future().wait();
  });
  ChildProcess child(corvanectl(), call(peer.path()));
  waitFor(asked, child);
  const auto seconds = readTimeout(child.pid(), 5);
  looked.set_value();
  ended = child.wait();
  return seconds;
}

inline std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), {});
}

}  // namespace CorvaneTests
