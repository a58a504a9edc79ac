#pragma once

#include <string>

#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"

/// What the answer to a command shows on standard output: in the format `json` the whole answer as
/// one line, else the active workspace's name for `current`, a table for `list`, and nothing for
/// every other command.
std::string printed(const CorvaneControl::ControlResponse& response,
                    CorvaneControl::ControlCommandLine::Format format,
                    CorvaneControl::ControlRequest::Command command);
