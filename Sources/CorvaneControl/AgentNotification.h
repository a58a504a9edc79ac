#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"

/// Turns an agent's hook input into an attention mark or a permission request. Pure and total:
/// input that calls for neither, or is no usable input at all, gives nothing. Members of the wrong
/// JSON type count as missing; event names are compared exactly.
namespace CorvaneControl::AgentNotification {

struct Event {
  AttentionKind kind = AttentionKind::needsInput;
  std::optional<std::string> cwd{};  ///< The agent's working folder.
  /// Shown with the mark. Neither cut nor on one line where it repeats a tool's name or the subject
  /// of a card.
  std::optional<std::string> message{};
  std::optional<std::string> session{};
  std::optional<AgentPermission> permission{};
  std::optional<std::string> toolCall{};  ///< The fingerprint of the call that awaits permission.

  bool operator==(const Event&) const = default;
};

/// The user's home folder; absent when there is none.
using HomeFolder = std::function<std::optional<std::string>()>;
/// Whether the Codex session with that transcript has its approvals reviewed automatically.
using AutoReviewed = std::function<bool(const std::string& path)>;

/// What an event may depend on beside its input. Each is called only when the input asks for it; a
/// missing one stands for no home folder, and for a user who reviews everything.
struct Surroundings {
  HomeFolder homeFolder{};
  AutoReviewed autoReviewed{};
};

/// The event of an agent's hook input, read by the agent's own function of those below.
std::optional<Event> event(Agent agent, const JSON::Value& input, const Surroundings& surroundings);

std::optional<Event> claude(const JSON::Value& input, const Surroundings& surroundings);
std::optional<Event> codex(const JSON::Value& input, const Surroundings& surroundings);
std::optional<Event> cursor(const JSON::Value& input);

/// The event of a permission request. `isClaude` chooses only whether questions and plans get cards
/// of their own.
Event permissionRequest(const JSON::Value& input, std::optional<std::string> cwd,
                        std::optional<std::string> session, bool isClaude,
                        const Surroundings& surroundings);

/// "Needs your approval: " and the command, or for the tool, or by itself.
std::string approval(const JSON::Value& input);

/// The text of `value` when it is a string of 1 to 128 ASCII letters, digits, "_" or "-". `value`
/// may be null, here and below.
std::optional<std::string> identifier(const JSON::Value* value);

/// A text on one line of at most 120 characters, the last of them "…" when it was cut; absent for a
/// blank text, and for a value that is no string.
std::optional<std::string> summary(const JSON::Value* value);
std::optional<std::string> summary(std::optional<std::string_view> text);

/// The summary of an agent's message, its Markdown taken off: headings, code fences, list and quote
/// marks, and inline marks.
std::optional<std::string> messagePreview(std::optional<std::string_view> text);

/// What Claude says, taken out of the tag around a message from another session.
std::optional<std::string_view> claudeMessageBody(std::optional<std::string_view> text);

/// The task in a prompt to Codex; absent for a reply to the agent's own question.
std::optional<std::string_view> codexTaskBody(std::optional<std::string_view> text);

/// Whether a final message of Codex is a list of follow-up suggestions, not a finished answer.
bool isCodexSuggestion(const JSON::Value* value);

/// Whether `path` can be a working folder: absolute, without NUL and line breaks. It need not
/// exist.
bool validFolder(std::string_view path);

/// Cursor's working folder: the first valid one of "workspace_roots".
std::optional<std::string> cursorFolder(const JSON::Value& input);

}  // namespace CorvaneControl::AgentNotification
