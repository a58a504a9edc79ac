#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <variant>
#include <vector>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/Date.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Record.h"
#include "CorvaneControl/Result.h"
#include "CorvaneControl/UUID.h"

/// The records of the control socket and their form in JSON. All are plain values, compared and
/// hashed field by field; their JSON keys are what `fields` lists. An absent field is left out of
/// the object and never written as null.
namespace CorvaneControl {

/// Looks up an environment variable; absent when it is not set.
using Environment = std::function<std::optional<std::string>(std::string_view name)>;

/// What an agent wants of the user: that they step in, or nothing more, its turn is over.
enum class AttentionKind : std::uint8_t { needsInput, done };

constexpr auto wireNames(AttentionKind) {
  return std::array{WireName{AttentionKind::needsInput, "needs-input"},
                    WireName{AttentionKind::done, "done"}};
}

/// How far an agent's turn is.
enum class AgentActivity : std::uint8_t { started, working, ended };

constexpr auto wireNames(AgentActivity) {
  return std::array{WireName{AgentActivity::started, "started"},
                    WireName{AgentActivity::working, "working"},
                    WireName{AgentActivity::ended, "ended"}};
}

/// The place of an agent inside cmux.
struct CmuxPane {
  UUID tab{};
  UUID pane{};

  static constexpr auto fields =
      std::tuple{Field{"tab", &CmuxPane::tab}, Field{"pane", &CmuxPane::pane}};
  bool operator==(const CmuxPane&) const = default;

  /// The pane that "CMUX_WORKSPACE_ID" (the tab) and "CMUX_SURFACE_ID" (the pane) name; absent
  /// unless both are identifiers.
  static std::optional<CmuxPane> fromEnvironment(const Environment& environment);
};

/// Where an agent runs. Kept in memory only.
struct ApplicationHost {
  std::string bundleID{};
  std::int32_t pid = 0;

  static constexpr auto fields = std::tuple{Field{"bundleID", &ApplicationHost::bundleID},
                                            Field{"pid", &ApplicationHost::pid}};
  bool operator==(const ApplicationHost&) const = default;
};
struct TmuxHost {
  std::string tty{};       ///< The pane's terminal device.
  std::int32_t shell = 0;  ///< The process identifier of the pane's shell.

  static constexpr auto fields =
      std::tuple{Field{"tty", &TmuxHost::tty}, Field{"shell", &TmuxHost::shell}};
  bool operator==(const TmuxHost&) const = default;
};
struct CmuxHost {
  std::int32_t pid = 0;
  CmuxPane pane{};

  static constexpr auto fields =
      std::tuple{Field{"pid", &CmuxHost::pid}, Field{"pane", &CmuxHost::pane}};
  bool operator==(const CmuxHost&) const = default;
};
using AgentHost = std::variant<ApplicationHost, TmuxHost, CmuxHost>;

/// A mark that an agent put on a workspace.
struct Attention {
  std::string agent{};  ///< As `notify` sent it: "claude", "codex", "cursor", ...
  AttentionKind kind = AttentionKind::needsInput;
  std::optional<std::string> message{};  ///< For the user; line breaks may be in it.
  Date since{};
  std::optional<std::string> session{};  ///< The agent's session identifier.
  std::optional<std::string> folder{};   ///< The agent's working folder.
  std::optional<AgentHost> host{};       ///< Off the wire on purpose.

  static constexpr auto fields =
      std::tuple{Field{"agent", &Attention::agent},     Field{"kind", &Attention::kind},
                 Field{"message", &Attention::message}, Field{"since", &Attention::since},
                 Field{"session", &Attention::session}, Field{"folder", &Attention::folder}};
  static constexpr auto unsent = std::tuple{Field{"host", &Attention::host}};
  bool operator==(const Attention&) const = default;

  /// "Claude asks for you" or "Claude is done"; the bare endings for an empty agent.
  std::string phrase() const;

  /// The workspaces of `ids` that have a mark, those that need input first, then by the mark's age,
  /// the oldest first; equals keep the order they have in `ids`, and duplicates stay.
  static std::vector<UUID> waiting(const std::vector<UUID>& ids,
                                   const std::unordered_map<UUID, Attention>& marks);
};

/// One workspace as the application reports it.
struct WorkspaceSummary {
  UUID id{};
  std::string name{};
  std::string section{};  ///< The group it is listed under.
  bool active = false;
  std::optional<std::string> shortcut{};  ///< As displayed, such as "⌥1".
  std::int64_t windows = 0;
  std::optional<std::string> project{};  ///< The project folder it belongs to.
  std::optional<Attention> attention{};

  static constexpr auto fields = std::tuple{Field{"id", &WorkspaceSummary::id},
                                            Field{"name", &WorkspaceSummary::name},
                                            Field{"section", &WorkspaceSummary::section},
                                            Field{"active", &WorkspaceSummary::active},
                                            Field{"shortcut", &WorkspaceSummary::shortcut},
                                            Field{"windows", &WorkspaceSummary::windows},
                                            Field{"project", &WorkspaceSummary::project},
                                            Field{"attention", &WorkspaceSummary::attention}};
  bool operator==(const WorkspaceSummary&) const = default;
};

/// What the command asks of the application.
struct ControlRequest {
  enum class Command : std::uint8_t { list, current, switchTo, launch, stop, subscribe, notify };

  Command command = Command::list;
  std::optional<std::string> workspace{};  ///< The workspace that `switch`, `launch`, `stop` name.
  std::optional<std::string> agent{};
  std::optional<std::string> cwd{};  ///< The agent's working folder.
  std::optional<AttentionKind> kind{};
  std::optional<std::string> message{};
  std::optional<std::string> session{};
  std::optional<std::int32_t> process{};  ///< The process identifier of the agent's host process.
  std::optional<CmuxPane> cmux{};
  std::optional<AgentActivity> activity{};
  std::optional<std::string> task{};
  std::optional<AgentPermission> permission{};  ///< A card to show and answer.
  std::optional<std::string> toolCall{};        ///< The fingerprint of the agent's tool call.

  static constexpr auto fields = std::tuple{
      Field{"command", &ControlRequest::command},  Field{"workspace", &ControlRequest::workspace},
      Field{"agent", &ControlRequest::agent},      Field{"cwd", &ControlRequest::cwd},
      Field{"kind", &ControlRequest::kind},        Field{"message", &ControlRequest::message},
      Field{"session", &ControlRequest::session},  Field{"process", &ControlRequest::process},
      Field{"cmux", &ControlRequest::cmux},        Field{"activity", &ControlRequest::activity},
      Field{"task", &ControlRequest::task},        Field{"permission", &ControlRequest::permission},
      Field{"toolCall", &ControlRequest::toolCall}};
  bool operator==(const ControlRequest&) const = default;
};

constexpr auto wireNames(ControlRequest::Command) {
  using Command = ControlRequest::Command;  // "switch" is a word of the language, hence `switchTo`
  return std::array{
      WireName{Command::list, "list"},       WireName{Command::current, "current"},
      WireName{Command::switchTo, "switch"}, WireName{Command::launch, "launch"},
      WireName{Command::stop, "stop"},       WireName{Command::subscribe, "subscribe"},
      WireName{Command::notify, "notify"}};
}

/// The application's answer.
struct ControlResponse {
  bool ok = false;
  std::optional<std::string> error{};  ///< Why not; with `ok`, a warning.
  std::optional<bool> paused{};
  std::optional<WorkspaceSummary> workspace{};
  std::optional<std::vector<WorkspaceSummary>> workspaces{};  ///< In the application's order.
  std::optional<PermissionAnswer> decision{};
  /// For each question of a card, the indices of the options that the user chose.
  std::optional<std::vector<std::vector<std::int64_t>>> choices{};
  std::optional<PlanApproval> approval{};

  static constexpr auto fields = std::tuple{Field{"ok", &ControlResponse::ok},
                                            Field{"error", &ControlResponse::error},
                                            Field{"paused", &ControlResponse::paused},
                                            Field{"workspace", &ControlResponse::workspace},
                                            Field{"workspaces", &ControlResponse::workspaces},
                                            Field{"decision", &ControlResponse::decision},
                                            Field{"choices", &ControlResponse::choices},
                                            Field{"approval", &ControlResponse::approval}};
  bool operator==(const ControlResponse&) const = default;

  /// The answer that refuses.
  static ControlResponse failure(std::string message);

  /// The agent's hook reply to this answer; absent when there is nothing to say, and the agent then
  /// asks by itself. `hookInput` is what the agent wrote on standard input, parsed; null when there
  /// was nothing. Allowing questions and plans returns the agent's own tool input to it.
  std::optional<std::string> hookOutput(const ControlRequest& request,
                                        const JSON::Value* hookInput) const;

  /// The chosen labels of each question by the question's text, labels of one question joined with
  /// ", "; absent when choices and questions do not fit together. `questions` may be null.
  static std::optional<std::map<std::string, std::string>> answers(
      const std::vector<std::vector<std::int64_t>>& choices, const JSON::Value* questions);
};

/// A change that the application pushes to a subscribed connection.
struct ControlEvent {
  enum class Kind : std::uint8_t { workspace, paused, attention };

  Kind event = Kind::workspace;
  std::optional<WorkspaceSummary> workspace{};

  static constexpr auto fields = std::tuple{Field{"event", &ControlEvent::event},
                                            Field{"workspace", &ControlEvent::workspace}};
  bool operator==(const ControlEvent&) const = default;
};

constexpr auto wireNames(ControlEvent::Kind) {
  using Kind = ControlEvent::Kind;
  return std::array{WireName{Kind::workspace, "workspace"}, WireName{Kind::paused, "paused"},
                    WireName{Kind::attention, "attention"}};
}

/// The line coding that both ends of the control socket share.
namespace ControlCoding {

/// Why a text is not the record that was asked for.
struct Failure {
  /// One line for people: where and what, such as "workspaces[2].windows: not an integer".
  std::string description{};
  /// Bytes before the place where the text stops being JSON; absent when it is JSON.
  std::optional<std::size_t> offset{};
};

/// A record as one line: a compact object with keys sorted by UTF-8 bytes at every level, plain
/// slashes, and one line feed. Never fails: text that is not UTF-8 is repaired with U+FFFD, so that
/// whatever is written can be read. `Type` is any record of this header.
template <Record Type>
std::string line(const Type& record);

/// Reads one record from one JSON text (a line without its terminator). Keys the record does not
/// know are ignored; a required field that is missing, and any field of the wrong type, fails the
/// whole. Null counts as missing. Integers may be written in any way that is integral.
template <Record Type>
Result<Type, Failure> decode(std::string text);

/// The same without a copy of the text, which is overwritten.
template <Record Type>
Result<Type, Failure> decodeInPlace(std::span<char> text);

/// The same from a value that is already parsed.
template <Record Type>
Result<Type, Failure> decode(const JSON::Value& value);

}  // namespace ControlCoding

}  // namespace CorvaneControl
