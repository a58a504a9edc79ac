#pragma once

#include <string>
#include <vector>

#include "corvane-headless/CommandLine.h"

namespace CorvaneControl::Headless {

/// What looking after the hook files led to.
struct HooksReport {
  std::string output{};                 ///< Lines for standard output.
  std::vector<std::string> messages{};  ///< For standard error, without line feeds.
  bool hasProblem = false;              ///< Something could not be told or done.
};

/// Does what `options` ask for with the hook files in `home`, for `tool`, an absolute path. When
/// one of the files can't be understood, none is changed.
HooksReport lookAfterHooks(const CommandLine::Hooks& options, const std::string& home,
                           const std::string& tool);

}  // namespace CorvaneControl::Headless
