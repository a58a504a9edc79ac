#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>

namespace CorvaneControl::Headless {

/// The turns that agents are at, by their session. An agent reports each tool call that it has
/// finished; a log of all of them would be noise.
class Turns {
 public:
  /// A new turn of that session begins; one that was open is forgotten.
  void start(const std::string& session);
  /// A tool call is finished. True when it is the first that is heard of its turn.
  bool work(const std::string& session);
  /// The turn is over: how many tool calls it took. Absent when there was none.
  std::optional<std::size_t> end(const std::string& session);

 private:
  std::size_t& opened(const std::string& session);

  std::unordered_map<std::string, std::size_t> calls_{};
};

}  // namespace CorvaneControl::Headless
