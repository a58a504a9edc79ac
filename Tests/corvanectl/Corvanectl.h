#pragma once

#include <filesystem>
#include <fstream>
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

inline ScriptedPeer::Script sending(std::string bytes) {
  return [bytes = std::move(bytes)](Conversation& talk) { talk.send(bytes); };
}

inline std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), {});
}

}  // namespace CorvaneTests
