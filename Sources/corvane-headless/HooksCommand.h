#pragma once

#include <string>
#include <vector>

#include "CorvaneControl/Platform/Files.h"
#include "corvane-headless/CommandLine.h"

namespace CorvaneControl::Headless {

/// What looking after the hook files led to.
struct HooksReport {
  std::string output{};                 ///< Lines for standard output.
  std::vector<std::string> messages{};  ///< For standard error, without line feeds.
  bool hasProblem = false;              ///< Something could not be told or done.
};

/// Does what `options` ask for with the hook files in `home`, for `tool`, an absolute path. When
/// one of the files can't be understood, none is changed. Each agent is looked for once, and each
/// file is read once, but for the look at it right before it is replaced.
HooksReport lookAfterHooks(const CommandLine::Hooks& options, const std::string& home,
                           const std::string& tool, Files::Calls& calls = Files::systemCalls());

}  // namespace CorvaneControl::Headless
