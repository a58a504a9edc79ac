#pragma once

#include <string>
#include <string_view>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/JSON.h"

/// What the agents read from their hook's standard output: one line of JSON with sorted keys and
/// "\/", ending in a line feed. `ControlResponse::hookOutput` chooses among these.
namespace CorvaneControl::HookReply {

/// The reply that carries `decision`, an object.
std::string output(const JSON::Value& decision);
/// A denial with a message for the agent; Claude is also told to stop its turn.
std::string refusal(std::string_view agent, std::string_view message);
/// Plain allowing or denying, as for a command or a file.
std::string hookOutput(PermissionAnswer answer, std::string_view agent);

}  // namespace CorvaneControl::HookReply
