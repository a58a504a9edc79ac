#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CorvaneControl/AgentHooks.h"

/// Turns the words of the command line into one decision. Pure: looks at nothing but the words.
namespace CorvaneControl::Headless::CommandLine {

/// What happens to an agent's permission card.
enum class Answering : std::uint8_t {
  allow,  ///< It is allowed at once.
  deny,   ///< It is denied at once.
  ask,    ///< It is shown on the terminal, which gives the answer.
  leave,  ///< It is answered without a decision: the agent asks by itself.
};

/// Serve the control socket.
struct Serve {
  std::optional<std::string> socket{};      ///< Absent: where corvanectl looks for it.
  std::optional<std::string> workspaces{};  ///< The file; absent: the sample.
  std::optional<Answering> answering{};     ///< Absent: `ask` on a terminal, else `leave`.
  bool quiet = false;                       ///< Without a log.
  bool operator==(const Serve&) const = default;
};

/// Look after the agents' hook files.
struct Hooks {
  enum class Action : std::uint8_t { status, add, remove, show };

  Action action = Action::status;
  std::vector<Agent> agents{};        ///< As named, each once; empty: all.
  std::optional<std::string> home{};  ///< Absent: the user's own.
  std::optional<std::string> tool{};  ///< Absent: the corvanectl beside this program.
  bool operator==(const Hooks&) const = default;
};

struct Help {
  bool operator==(const Help&) const = default;
};
struct Version {
  bool operator==(const Version&) const = default;
};
/// Words that make no sense, and one line that says which and why.
struct Usage {
  std::string message{};
  bool operator==(const Usage&) const = default;
};

using Parsed = std::variant<Serve, Hooks, Help, Version, Usage>;

/// Never fails. `parse({"--frob"})` is `Usage{"There is no option --frob."}`. The words are any
/// bytes, and paths come back as they are; a usage message is UTF-8.
Parsed parse(const std::vector<std::string>& words);

/// What `--help` prints, line feed included.
extern const std::string_view help;

}  // namespace CorvaneControl::Headless::CommandLine
