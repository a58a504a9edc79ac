#include "corvane-headless/CardDrawing.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/Unreachable.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

using Action = AgentPermission::Action;
using Line = AgentPermission::Line;
using Question = AgentPermission::Question;

/// Terminal colours (ECMA-48, "select graphic rendition").
constexpr std::string_view bold = "1";
constexpr std::string_view dim = "2";
constexpr std::string_view red = "31";
constexpr std::string_view green = "32";

constexpr std::string_view indent = "  ";
/// Columns that are left for text, however narrow the terminal is.
constexpr std::size_t fewestTextColumns = 8;
constexpr std::size_t fewestDigits = 3;
constexpr std::string_view goesOn = "\u254E";  // a dashed bar

/// A drawing in the making: rows below each other.
class Page {
 public:
  Page(const Style& style, bool whole) : style_(style), whole_(whole) {}

  /// A row of our own words.
  void own(std::string_view text, std::string_view colour = {}) {
    drawing_.append(coloured(text, colour)).append("\n");
  }

  /// A text of the agent's behind `first`, and behind `further` in the rows that it goes on in;
  /// neither is wider than `width` columns.
  void agents(std::string_view first, std::string_view further, std::size_t width,
              std::string_view text, std::string_view colour = {}) {
    const std::string shown = whole_ ? visible(text) : visibleStart(text, longestDrawn);
    // One column stays free: terminals differ in what they do after the last one.
    const std::size_t columns = std::max(style_.columns, width + 1 + fewestTextColumns) - width - 1;
    std::string_view margin = first;
    for (const std::string_view row : rows(shown, columns)) {
      drawing_.append(margin).append(coloured(row, colour)).append("\n");
      margin = further;
    }
  }

  /// A text of the agent's that is no line of the preview, below other rows. It must not pass for
  /// one: where a number would have blanks before it, it begins at once or has the sign of going
  /// on.
  void phrase(std::string_view margin, std::string_view text, std::string_view colour = {}) {
    const std::string repaired = Text::repaired(std::string(text));
    std::string further(margin.size(), ' ');
    further.append(goesOn).append(" ");
    agents(margin, further, margin.size() + 2, Text::trimmedOfLines(repaired), colour);
  }

  std::string coloured(std::string_view text, std::string_view colour) const {
    if (!style_.colours || colour.empty() || text.empty()) return std::string(text);
    return std::string("\x1b[").append(colour).append("m").append(text).append("\x1b[m");
  }

  std::string take() { return std::move(drawing_); }

 private:
  const Style& style_;
  const bool whole_;
  std::string drawing_{};
};

/// The number with at least one blank before it, `width` wide when it is short enough.
std::string rightAligned(std::size_t number, std::size_t width) {
  const std::string digits = std::to_string(number);
  return std::string(std::max(width, digits.size() + 1) - digits.size(), ' ') + digits;
}

struct Sign {
  std::string_view text;
  std::string_view colour;
};

Sign signOf(Line::Kind kind) {
  switch (kind) {
    case Line::Kind::plain:
      return {" ", {}};
    case Line::Kind::added:
      return {"+", green};
    case Line::Kind::removed:
      return {"-", red};
  }
  unreachable();
}

void drawLines(const std::vector<Line>& lines, Page& page) {
  const std::size_t digits = std::max(fewestDigits, std::to_string(lines.size()).size() + 1);
  for (std::size_t index = 0; index < lines.size(); ++index) {
    const Sign sign = signOf(lines[index].kind);
    const std::string number = rightAligned(index + 1, digits);
    const std::string first = std::string(indent) + page.coloured(number, dim) + " " +
                              page.coloured(sign.text, sign.colour) + " ";
    const std::string further =
        std::string(indent) + std::string(digits, ' ') + " " + page.coloured(goesOn, dim) + " ";
    page.agents(first, further, indent.size() + digits + 3, lines[index].text, sign.colour);
  }
}

void drawPreview(const AgentPermission& card, bool whole, Page& page) {
  if (whole) {
    drawLines(card.lines, page);
  } else {
    const AgentPermission::Preview preview = card.preview();
    drawLines(preview.lines, page);
    if (preview.hidden > 0) {
      page.own("  … " + std::to_string(preview.hidden) +
                   (preview.hidden == 1 ? " more line" : " more lines") + " (s shows all)",
               bold);
    }
  }
}

void drawQuestion(const AgentPermission& card, std::size_t position, Page& page) {
  const Question& question = (*card.questions)[position];
  if (card.questions->size() > 1) {
    page.own("  Question " + std::to_string(position + 1) + " of " +
             std::to_string(card.questions->size()));
  }
  if (!question.header.empty()) page.phrase("  # ", question.header);
  page.phrase(indent, question.text, bold);
  for (std::size_t index = 0; index < question.options.size(); ++index) {
    const Question::Option& option = question.options[index];
    const std::string number = std::string(indent) + rightAligned(index + 1, 2) + "  ";
    const std::string margin(number.size(), ' ');
    page.phrase(number, option.label);
    if (option.recommended) page.own(margin + "(the agent recommends this)", dim);
    if (option.detail) page.phrase(margin + "- ", *option.detail, dim);
  }
}

void drawQuestions(const CardDialog& dialog, Page& page) {
  const AgentPermission& card = dialog.card();
  if (!card.questions) return;
  if (canBeAnswered(card)) {
    drawQuestion(card, dialog.question(), page);
  } else {
    for (std::size_t index = 0; index < card.questions->size(); ++index) {
      drawQuestion(card, index, page);
    }
  }
}

}  // namespace

std::string draw(const CardDialog& dialog, std::string_view agent, std::string_view place,
                 std::size_t waiting, const Style& style) {
  const AgentPermission& card = dialog.card();
  Page page(style, dialog.showsAll());
  page.own("");
  page.own(std::string(agent) + " · " + std::string(title(card.action)), bold);
  if (card.action != Action::ask) page.phrase(indent, card.subject, bold);
  if (card.note) page.phrase(indent, *card.note);
  if (card.folder) page.phrase("  in ", *card.folder, dim);
  if (!place.empty()) page.own("  workspace " + std::string(place), dim);
  drawPreview(card, dialog.showsAll(), page);
  drawQuestions(dialog, page);
  if (!card.complete) {
    page.own(card.action == Action::ask
                 ? "  (cut: the agent sent more, so it can only be answered there)"
                 : "  (cut: the agent sent more)",
             bold);
  }
  std::string prompt = dialog.prompt(agent);
  if (waiting > 0) prompt.append("  (").append(std::to_string(waiting)).append(" more waiting)");
  page.own(prompt, bold);
  return page.take();
}

}  // namespace CorvaneControl::Headless
