#include "CorvaneControl/AgentNotification.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "CorvaneControl/Patterns.h"
#include "CorvaneControl/Platform/Markdown.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/ToolInput.h"
#include "CorvaneControl/UTF8.h"
#include "CorvaneControl/Unreachable.h"

namespace CorvaneControl::AgentNotification {
namespace {

constexpr std::size_t summaryCharacters = 120;
constexpr std::size_t longestIdentifier = 128;  ///< Bytes.

/// How much of a message is read at first, in bytes: a few times a summary, as reading Markdown
/// costs more than anything else that is done with a message.
constexpr std::size_t startBytes = 512;
/// How much is read when that does not settle it. More than the Markdown reader reads, so that what
/// lies beyond can only be wanted when this much gives less than a summary.
constexpr std::size_t previewBytes = 65'536;

constexpr std::string_view crossSessionTag = "cross-session-message";
constexpr std::string_view crossSessionEnd = "</cross-session-message>";
constexpr std::string_view questionReplyTag = "send_user_message_question_reply";

bool isIdentifierCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '_' || character == '-';
}

/// Whether a text has more characters than a summary can hold.
bool exceedsSummary(std::string_view text) {
  return Text::prefix(text, summaryCharacters).size() < text.size();
}

/// The summary of a text whose white space is collapsed.
std::optional<std::string> shortened(std::string text) {
  if (text.empty()) return std::nullopt;
  if (!exceedsSummary(text)) return text;
  return std::string(Text::prefix(text, summaryCharacters - 1)).append("…");
}

std::optional<std::string_view> asString(const JSON::Value* value) {
  return value == nullptr ? std::nullopt : value->asString();
}

/// Walks the lines of a message that can hold text: trimmed, without empty ones and the marks of
/// code fences. One at a time, because a message may be megabytes of short lines.
class MessageLines {
 public:
  explicit MessageLines(std::string_view text) : rest_(text) {}

  std::optional<std::string_view> next() {
    while (const auto line = Text::nextLine(rest_)) {
      const std::string_view trimmed = Text::trimmed(*line);
      if (!trimmed.empty() && !trimmed.starts_with("```") && !trimmed.starts_with("~~~")) {
        return trimmed;
      }
    }
    return std::nullopt;
  }

 private:
  std::string_view rest_;
};

/// What a message says on one line: headings left out unless there is nothing else, the marks of
/// lists and quotes taken off.
struct JoinedMessage {
  std::string text{};
  bool whole = true;  ///< Whether no line was left out for the limit.
};

/// Takes lines until the text has `limit` bytes.
JoinedMessage joinedMessage(std::string_view message, std::size_t limit) {
  JoinedMessage joined;
  joined.text.reserve(std::min(message.size(), previewBytes));
  std::optional<std::string_view> firstLine;
  bool hasText = false;
  const auto append = [&joined, limit](std::string_view line) {
    line.remove_prefix(Patterns::blockMark(line));
    const std::string_view kept = Text::cutAtScalar(line, limit - joined.text.size());
    joined.whole = kept.size() == line.size();
    joined.text += kept;
  };
  MessageLines lines(message);
  while (const auto line = lines.next()) {
    if (!firstLine) firstLine = line;
    if (Patterns::headingMark(*line) > 0) continue;
    if (joined.text.size() >= limit) joined.whole = false;
    if (!joined.whole) return joined;
    if (hasText) joined.text += ' ';
    hasText = true;
    append(*line);
  }
  if (!hasText && firstLine) append(*firstLine);
  return joined;
}

/// The preview of every message that begins with the words of `start`, as long as they are more
/// than a preview holds; absent when what follows may change it. The last word may be half of one.
std::optional<std::string> settledPreview(std::string_view start) {
  const std::size_t space = start.rfind(' ');
  if (space == std::string_view::npos) return std::nullopt;
  const Markdown::Reading reading = Markdown::read(start.substr(0, space));
  const std::string_view settled(reading.text.data(), reading.settled);
  std::string preview = Text::collapsed(settled, summaryCharacters);
  if (!exceedsSummary(preview)) return std::nullopt;
  return preview;
}

/// Whether a text begins and ends as an object of suggestions does. An answer is prose as a rule,
/// and this tells it from JSON without the copy that parsing needs.
bool mayBeSuggestion(std::string_view text) {
  constexpr std::string_view space = " \t\n\r";
  if (text.starts_with(UTF8::byteOrderMark)) text.remove_prefix(UTF8::byteOrderMark.size());
  const std::size_t brace = text.find_first_not_of(space);
  if (brace == std::string_view::npos || text[brace] != '{') return false;
  if (text[text.find_last_not_of(space)] != '}') return false;
  const std::size_t quote = text.find_first_not_of(space, brace + 1);
  if (quote == std::string_view::npos || text[quote] != '"') return false;
  const std::string_view name = text.substr(quote + 1);
  if (name.starts_with("suggestion")) return true;
  const std::size_t nameEnd = name.find_first_of("\"\\");
  return nameEnd != std::string_view::npos && name[nameEnd] == '\\';  // it may, being escaped
}

struct NotificationKind {
  std::string_view type;
  AttentionKind kind;
};
constexpr NotificationKind notificationKinds[] = {
    {"permission_prompt", AttentionKind::needsInput},
    {"idle_prompt", AttentionKind::needsInput},
    {"elicitation_dialog", AttentionKind::needsInput},
    {"elicitation_url_dialog", AttentionKind::needsInput},
    {"agent_needs_input", AttentionKind::needsInput},
    {"agent_completed", AttentionKind::done},
};

/// Absent for a notification that calls for nobody's attention.
std::optional<AttentionKind> notificationKind(const JSON::Value& input) {
  const auto type = input.string("notification_type");
  if (!type) return AttentionKind::needsInput;
  const auto* known = std::ranges::find(notificationKinds, *type, &NotificationKind::type);
  if (known == std::end(notificationKinds)) return std::nullopt;
  return known->kind;
}

std::optional<std::string> owned(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  return std::string(*text);
}

std::optional<std::string> messageOfClaude(const JSON::Value& input, std::string_view key) {
  return messagePreview(claudeMessageBody(input.string(key)));
}

/// Whether a request of Codex is not the user's to decide.
bool isReviewed(const JSON::Value& input, const Surroundings& surroundings) {
  const auto transcript = input.string("transcript_path");
  return transcript && surroundings.autoReviewed &&
         surroundings.autoReviewed(std::string(*transcript));
}

/// The summary of the command in a tool's input: a string, or strings joined with spaces.
std::optional<std::string> commandSummary(const JSON::Value& input) {
  const JSON::Value toolInput = ToolInput::of(input);
  const JSON::Value* command = toolInput.find("command");
  if (command == nullptr) return std::nullopt;
  if (!command->isArray()) return summary(command);

  const auto words = command->elements();
  if (!std::ranges::all_of(words, [](const auto& word) { return word.asString().has_value(); })) {
    return std::nullopt;
  }
  // Few words make a whole summary: no two of the spaces between them share a character. (A word
  // may have none of its own, being joined to the space before or behind it.)
  constexpr std::size_t enoughWords = summaryCharacters + 2;
  std::vector<std::string> kept;
  for (const JSON::Value& word : words) {
    std::string text = Text::collapsed(*word.asString(), summaryCharacters);
    if (text.empty()) continue;
    kept.push_back(std::move(text));
    if (kept.size() == enoughWords) break;
  }
  return shortened(Text::joined(kept));
}

std::optional<AgentPermission> card(std::string_view tool, const JSON::Value& input,
                                    const AgentPermission::Folders& folders, bool isClaude) {
  if (isClaude && tool == "AskUserQuestion") return AgentPermission::question(input, folders);
  if (isClaude && tool == "ExitPlanMode") return AgentPermission::plan(input, folders);
  return AgentPermission::parse(tool, input, folders);
}

std::string permissionMessage(std::string_view tool, const std::optional<AgentPermission>& card,
                              const JSON::Value& input) {
  if (tool == "AskUserQuestion") return "Asks you a question";
  if (tool == "ExitPlanMode") return "Waits for you to approve its plan";
  if (!card || card->action == AgentPermission::Action::run) return approval(input);
  return std::string("Needs your approval: ")
      .append(verb(card->action))
      .append(" ")
      .append(card->subject);
}

/// The mark of an event of Claude or Codex, which name their folder and their session alike.
Event mark(AttentionKind kind, const JSON::Value& input, std::optional<std::string> message) {
  return {.kind = kind,
          .cwd = owned(input.string("cwd")),
          .message = std::move(message),
          .session = identifier(input.find("session_id"))};
}

}  // namespace

std::optional<Event> event(Agent agent, const JSON::Value& input,
                           const Surroundings& surroundings) {
  switch (agent) {
    case Agent::claude:
      return claude(input, surroundings);
    case Agent::codex:
      return codex(input, surroundings);
    case Agent::cursor:
      return cursor(input);
  }
  unreachable();
}

std::optional<Event> claude(const JSON::Value& input, const Surroundings& surroundings) {
  const auto name = input.string("hook_event_name");
  if (name == "PermissionRequest") {
    return permissionRequest(input, owned(input.string("cwd")),
                             identifier(input.find("session_id")), true, surroundings);
  }
  if (name == "Stop") {
    return mark(AttentionKind::done, input, messageOfClaude(input, "last_assistant_message"));
  }
  if (name == "Notification") {
    const auto kind = notificationKind(input);
    if (!kind) return std::nullopt;
    return mark(*kind, input, messageOfClaude(input, "message"));
  }
  return std::nullopt;
}

std::optional<Event> codex(const JSON::Value& input, const Surroundings& surroundings) {
  const auto name = input.string("hook_event_name");
  if (name == "PermissionRequest") {
    if (isReviewed(input, surroundings)) return std::nullopt;
    return permissionRequest(input, owned(input.string("cwd")),
                             identifier(input.find("session_id")), false, surroundings);
  }
  if (name == "Stop") {
    if (isCodexSuggestion(input.find("last_assistant_message"))) return std::nullopt;
    return mark(AttentionKind::done, input, messagePreview(input.string("last_assistant_message")));
  }
  return std::nullopt;
}

std::optional<Event> cursor(const JSON::Value& input) {
  if (input.string("hook_event_name") != "stop") return std::nullopt;
  auto cwd = cursorFolder(input);
  if (!cwd) return std::nullopt;
  Event event{.cwd = std::move(cwd), .session = identifier(input.find("conversation_id"))};
  const auto status = input.string("status");
  if (status == "completed") {
    event.kind = AttentionKind::done;
    return event;
  }
  if (status == "error") {
    event.kind = AttentionKind::needsInput;
    event.message = "Stopped with an error";
    return event;
  }
  return std::nullopt;
}

Event permissionRequest(const JSON::Value& input, std::optional<std::string> cwd,
                        std::optional<std::string> session, bool isClaude,
                        const Surroundings& surroundings) {
  const std::string_view tool = input.string("tool_name").value_or("");
  const JSON::Value toolInput = ToolInput::of(input);
  const auto home = surroundings.homeFolder ? surroundings.homeFolder() : std::nullopt;

  Event event{.kind = AttentionKind::needsInput, .session = std::move(session)};
  event.permission = card(tool, toolInput, {.cwd = cwd, .home = home}, isClaude);
  event.message = permissionMessage(tool, event.permission, input);
  event.toolCall = AgentPermission::fingerprint(tool, &toolInput);
  event.cwd = std::move(cwd);
  return event;
}

std::string approval(const JSON::Value& input) {
  if (const auto command = commandSummary(input)) return "Needs your approval: " + *command;
  if (const auto tool = input.string("tool_name")) {
    return std::string("Needs your approval for ").append(*tool);
  }
  return "Needs your approval";
}

std::optional<std::string> identifier(const JSON::Value* value) {
  const auto text = asString(value);
  if (!text || text->empty() || text->size() > longestIdentifier) return std::nullopt;
  if (!std::ranges::all_of(*text, isIdentifierCharacter)) return std::nullopt;
  return std::string(*text);
}

std::optional<std::string> summary(const JSON::Value* value) { return summary(asString(value)); }

std::optional<std::string> summary(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  return shortened(Text::collapsed(*text, summaryCharacters));
}

std::optional<std::string> messagePreview(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  JoinedMessage joined = joinedMessage(*text, startBytes);
  if (!joined.whole) {
    if (auto preview = settledPreview(joined.text)) return shortened(std::move(*preview));
    joined = joinedMessage(*text, previewBytes);
  }
  std::string preview = Text::collapsed(Markdown::plainText(joined.text), summaryCharacters);
  // Marks may take up all that was read, such as a link to a very long address.
  if (!joined.whole && !exceedsSummary(preview)) {
    joined = joinedMessage(*text, std::string::npos);
    preview = Text::collapsed(Markdown::plainText(joined.text), summaryCharacters);
  }
  return shortened(std::move(preview));
}

std::optional<std::string_view> claudeMessageBody(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  const std::string_view trimmed = Text::trimmedOfLines(*text);
  if (!Patterns::beginsWithTag(trimmed, crossSessionTag)) return text;
  const auto tag = Patterns::openingTag(trimmed, crossSessionTag);
  if (!tag) return std::nullopt;
  std::string_view body = Text::trimmedOfLines(trimmed.substr(*tag));
  if (body.ends_with(crossSessionEnd)) {
    body.remove_suffix(crossSessionEnd.size());
    body = Text::trimmedOfLines(body);
  }
  if (body.empty()) return std::nullopt;
  return body;
}

std::optional<std::string_view> codexTaskBody(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  if (Patterns::beginsWithTag(Text::trimmedOfLines(*text), questionReplyTag)) return std::nullopt;
  return text;
}

bool isCodexSuggestion(const JSON::Value* value) {
  const auto text = asString(value);
  if (!text || !mayBeSuggestion(*text)) return false;
  std::string bytes(*text);
  const auto document = JSON::Document::parse(bytes);
  if (!document || document->root().members().size() != 1) return false;
  const JSON::Member& only = document->root().members().front();
  return only.key == "suggestion" || (only.key == "suggestions" && only.value.isArray());
}

bool validFolder(std::string_view path) {
  return path.starts_with('/') && path.find('\0') == std::string_view::npos &&
         !Text::hasLineBreak(path);
}

std::optional<std::string> cursorFolder(const JSON::Value& input) {
  const JSON::Value* roots = input.array("workspace_roots");
  if (roots == nullptr) return std::nullopt;
  for (const JSON::Value& root : roots->elements()) {
    const auto path = root.asString();
    if (path && validFolder(*path)) return std::string(*path);
  }
  return std::nullopt;
}

}  // namespace CorvaneControl::AgentNotification
