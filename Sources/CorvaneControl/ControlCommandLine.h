#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"

/// Turns the words of the command line into one decision. Pure: reads and writes nothing, and never
/// fails; what it has to know of the process comes in as functions that are called only when the
/// command needs them, and every problem comes back as `Usage`.
namespace CorvaneControl::ControlCommandLine {

enum class Format : std::uint8_t { text, json };

/// A request to send, and the format in which to print its answer.
struct Run {
  ControlRequest request{};
  Format format = Format::text;
  bool operator==(const Run&) const = default;
};
/// A usage error. An empty message stands for the usage text alone.
struct Usage {
  std::string message{};
  bool operator==(const Usage&) const = default;
};
/// There is nothing to send and nothing to print.
struct Nothing {
  bool operator==(const Nothing&) const = default;
};
struct Help {
  bool operator==(const Help&) const = default;
};
struct Version {
  bool operator==(const Version&) const = default;
};
using Parsed = std::variant<Run, Usage, Nothing, Help, Version>;

/// The usage text, without a line feed at its end.
extern const std::string_view usage;

/// What the process lends to the command line. A function that is missing counts as one that gives
/// nothing: null, an empty text, absent, no.
struct Process {
  /// What stands on standard input, parsed; null when there is nothing or when it is not JSON.
  std::function<const JSON::Value*()> standardInput{};
  /// The current folder; empty when it is gone.
  std::function<std::string()> currentDirectory{};
  /// The parent's process identifier.
  std::function<std::optional<std::int32_t>()> parentProcess{};
  AgentNotification::HomeFolder homeFolder{};
  AgentNotification::AutoReviewed autoReviewed{};
  Environment environment{};
};

/// `arguments` are the words without the program's own name, valid UTF-8. `parse({"frob"}, ...)` is
/// `Usage{"Unknown command: frob"}`.
Parsed parse(const std::vector<std::string>& arguments, const Process& process);

/// The decision for `notify`. `options` holds those that were given with their values, by name with
/// the leading dashes ("--agent"); `positional` the words that are neither options nor their
/// values.
Parsed notify(const std::map<std::string, std::string>& options,
              const std::vector<std::string>& positional, const Process& process);

}  // namespace CorvaneControl::ControlCommandLine
