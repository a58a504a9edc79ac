#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "CorvaneControl/CardLines.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Record.h"

namespace CorvaneControl {

/// A permission card: what an agent asks leave for, ready for display. It is built from the tool
/// call in the agent's hook input, and travels to the application inside a `ControlRequest`. Its
/// lines, its subject and the texts of its questions are bounded in characters whatever the agent
/// sent; `note` and `folder` are never cut. A plain value, compared field by field.
///
/// Building a card never fails: input that gives no card gives nothing. Members of the input that
/// have the wrong JSON type count as missing.
struct AgentPermission {
  enum class Action : std::uint8_t { run, edit, write, fetch, search, tool, ask, plan };

  using Line = CardLines::Line;

  /// A multiple-choice question of the agent.
  struct Question {
    struct Option {
      std::string label{};                  ///< Without the suffix that recommends it.
      std::optional<std::string> detail{};  ///< The agent's description of the option.
      bool recommended = false;

      static constexpr auto fields =
          std::tuple{Field{"label", &Option::label}, Field{"detail", &Option::detail},
                     Field{"recommended", &Option::recommended}};
      bool operator==(const Option&) const = default;

      /// Takes a suffix such as "(Recommended)" off a label, in six languages, ASCII or full-width
      /// parentheses; `recommended` tells whether there was one.
      struct Reading {
        std::string label{};
        bool recommended = false;
        bool operator==(const Reading&) const = default;
      };
      static Reading reading(std::string_view label);
    };

    std::string header{};  ///< A short tag above the question; empty when the agent gave none.
    std::string text{};
    std::vector<Option> options{};
    bool multiSelect = false;  ///< Whether more than one option may be chosen.

    static constexpr auto fields = std::tuple{
        Field{"header", &Question::header}, Field{"text", &Question::text},
        Field{"options", &Question::options}, Field{"multiSelect", &Question::multiSelect}};
    bool operator==(const Question&) const = default;
  };

  Action action = Action::run;
  std::string subject{};                ///< The main thing: command, file name, page, query, title.
  std::optional<std::string> note{};    ///< What explains it: the agent, or the path.
  std::vector<Line> lines{};            ///< The preview.
  std::optional<std::string> folder{};  ///< The agent's working folder, home abbreviated to "~".
  /// Whether nothing is missing from `lines` and their texts, and no question or option: a cut
  /// subject or text of a question leaves it true. False also when an option has a preview, which
  /// is not for this card.
  bool complete = true;
  std::optional<std::vector<Question>> questions{};  ///< Only for `ask`.

  static constexpr auto fields = std::tuple{
      Field{"action", &AgentPermission::action},      Field{"subject", &AgentPermission::subject},
      Field{"note", &AgentPermission::note},          Field{"lines", &AgentPermission::lines},
      Field{"folder", &AgentPermission::folder},      Field{"complete", &AgentPermission::complete},
      Field{"questions", &AgentPermission::questions}};
  bool operator==(const AgentPermission&) const = default;

  static constexpr std::size_t rows = 14;        ///< Display rows that a full card may use.
  static constexpr std::size_t columns = 50;     ///< Characters in a display row.
  static constexpr std::size_t previewRows = 8;  ///< Lines of a collapsed preview.

  /// What a card has to know of the process that the tool call does not say.
  struct Folders {
    std::optional<std::string_view> cwd{};   ///< The agent's working folder.
    std::optional<std::string_view> home{};  ///< The user's home, which is shown as "~".
  };

  /// The card of a tool call; absent when the call gets none. `input` is the tool's input object.
  static std::optional<AgentPermission> parse(std::string_view tool, const JSON::Value& input,
                                              const Folders& folders);
  /// The card of the agent's multiple-choice questions ("AskUserQuestion").
  static std::optional<AgentPermission> question(const JSON::Value& input, const Folders& folders);
  /// The card of a plan that waits for approval ("ExitPlanMode").
  static std::optional<AgentPermission> plan(const JSON::Value& input, const Folders& folders);

  /// Identifies a tool call among others: 64-bit FNV-1a over the tool's name, a zero byte, and the
  /// input's compact JSON with sorted keys and "\/"; in lower-case hexadecimal without leading
  /// zeros. Absent when `input` is null or neither object nor array. Of "AskUserQuestion" only the
  /// questions count; of "ExitPlanMode" nothing, so that all plans are one call.
  static std::optional<std::string> fingerprint(std::string_view tool, const JSON::Value* input);

  /// The display rows that the lines need: one for an empty line, else one for each `columns`
  /// characters begun.
  static std::size_t rowsFor(const std::vector<Line>& lines);
  /// Whether the whole card can be shown: complete, and within `rows` unless it asks or plans.
  bool fitsCard() const;

  struct Preview {
    std::vector<Line> lines{};
    std::size_t hidden = 0;  ///< How many lines were left out.
    bool operator==(const Preview&) const = default;
  };
  /// All lines of a card that fits, else the first `previewRows`.
  Preview preview() const;

  std::size_t added() const;    ///< The number of added lines.
  std::size_t removed() const;  ///< The number of removed lines.
  std::size_t steps() const;    ///< The number of lines that look like numbered steps.
};

constexpr auto wireNames(AgentPermission::Action) {
  using Action = AgentPermission::Action;
  return std::array{WireName{Action::run, "run"},       WireName{Action::edit, "edit"},
                    WireName{Action::write, "write"},   WireName{Action::fetch, "fetch"},
                    WireName{Action::search, "search"}, WireName{Action::tool, "tool"},
                    WireName{Action::ask, "ask"},       WireName{Action::plan, "plan"}};
}

/// What the user would allow, in one word: "Run", "Edit", ...
std::string_view verb(AgentPermission::Action action);
/// What the agent wants, in a sentence: "Wants to run a command", ...
std::string_view title(AgentPermission::Action action);

/// The user's answer to a permission card.
enum class PermissionAnswer : std::uint8_t { allowed, denied };

constexpr auto wireNames(PermissionAnswer) {
  return std::array{WireName{PermissionAnswer::allowed, "allowed"},
                    WireName{PermissionAnswer::denied, "denied"}};
}

/// How an approved plan goes on: without asking for further permissions, or asking as usual.
enum class PlanApproval : std::uint8_t { automatic, manual };

constexpr auto wireNames(PlanApproval) {
  return std::array{WireName{PlanApproval::automatic, "auto"},
                    WireName{PlanApproval::manual, "manual"}};
}

/// Everything that the user said to a card.
struct PermissionReply {
  PermissionAnswer answer = PermissionAnswer::denied;
  /// For each question, the indices of the chosen options.
  std::optional<std::vector<std::vector<std::int64_t>>> choices{};
  std::optional<PlanApproval> approval{};

  bool operator==(const PermissionReply&) const = default;
};

}  // namespace CorvaneControl
