#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CorvaneControl/AgentPermission.h"

namespace CorvaneControl::Headless {

/// Whether every question of the card can be answered here. Questions that were cut can't: the
/// positions of their options would mean others to the agent.
bool canBeAnswered(const AgentPermission& card);

/// What the drawing of a card leaves out.
struct LeftOut {
  bool untilAsked = false;  ///< It is shown when the user asks for all.
  /// It can't be shown here: the agent sent more, or the terminal has too few rows.
  bool forGood = false;

  bool any() const { return untilAsked || forGood; }
};

/// What to say to a card without asking anybody. Allowing takes of each question the option that
/// the agent recommends, else the first, and approves a plan for going on by itself. Absent when a
/// card that asks can't be answered here.
std::optional<PermissionReply> automaticReply(const AgentPermission& card, PermissionAnswer answer);

/// The conversation about one card: understands what the user types, one line after the other.
class CardDialog {
 public:
  struct Decided {
    PermissionReply reply{};
    bool operator==(const Decided&) const = default;
  };
  /// The agent is to ask by itself.
  struct LeftToAgent {
    bool operator==(const LeftToAgent&) const = default;
  };
  /// The card is to be drawn again: the user asked for it, or the next question is up.
  struct DrawAgain {
    bool operator==(const DrawAgain&) const = default;
  };
  /// That was no answer; the text says what would be.
  struct Hint {
    std::string text{};
    bool operator==(const Hint&) const = default;
  };
  using Outcome = std::variant<Decided, LeftToAgent, DrawAgain, Hint>;

  explicit CardDialog(AgentPermission card) : card_(std::move(card)) {}

  Outcome typed(std::string_view line);

  /// Tells what the user has not seen of the card. When there is something, one letter approves
  /// nothing: that takes the whole word.
  void leavesOut(LeftOut leftOut) { leftOut_ = leftOut; }

  /// What can be typed now, piece by piece: "[a] allow", "[d] deny". `agent` is visible.
  std::vector<std::string> prompt(std::string_view agent) const;
  /// What the user should know before answering, in sentences of our own: that there is more than
  /// the card shows. Empty when there is not.
  std::vector<std::string> cautions() const;

  const AgentPermission& card() const { return card_; }
  /// The position of the question that is up.
  std::size_t question() const { return choices_.size(); }
  /// Whether the user wants to see everything.
  bool showsAll() const { return showsAll_; }

 private:
  Outcome chosen(std::string_view line);
  /// What can be typed, as the user may: "a", or the whole word.
  std::vector<std::string> answers() const;
  Hint hint() const;

  AgentPermission card_;
  std::vector<std::vector<std::int64_t>> choices_{};  // of the questions before the one that is up
  bool showsAll_ = false;
  LeftOut leftOut_{};
};

}  // namespace CorvaneControl::Headless
