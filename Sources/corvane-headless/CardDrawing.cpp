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

  /// Our own words, in pieces that stay whole where a row has room for them.
  void own(const std::vector<std::string>& pieces, std::string_view colour = {}) {
    const std::string text = flowed(pieces, "  ", style_.columns - 1);
    drawing_.append(coloured(text.substr(0, text.size() - 1), colour)).append("\n");
  }
  void own(const std::string& text, std::string_view colour = {}) {
    own(std::vector<std::string>{text}, colour);
  }

  /// A text of the agent's behind `first`, and behind `further` in the rows that it goes on in;
  /// neither is wider than `width` columns, but that a terminal may draw `goesOn` in two.
  void agents(std::string_view first, std::string_view further, std::size_t width,
              std::string_view text, std::string_view colour = {}) {
    const std::string shown = whole_ ? visible(text) : visibleStart(text, longestDrawn);
    // One more would show more of what is cut; all of it may be megabytes.
    hides = hides || (!whole_ && text.size() > longestDrawn &&
                      shown != visibleStart(text, longestDrawn + 1));
    // One column stays free: terminals differ in what they do after the last one.
    const std::size_t columns = std::max(style_.columns, width + 1 + fewestTextColumns) - width - 1;
    const std::string_view beginning = rows(shown, columns).front();
    row(first, beginning, colour);
    if (beginning.size() == shown.size()) return;
    for (const std::string_view rest :
         rows(std::string_view(shown).substr(beginning.size()), columns - 1)) {
      row(further, rest, colour);
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

  std::size_t height() const {
    return static_cast<std::size_t>(std::ranges::count(drawing_, '\n'));
  }
  std::string take() { return std::move(drawing_); }

  bool hides = false;  ///< Something is left out until the user asks for it.

 private:
  void row(std::string_view margin, std::string_view text, std::string_view colour) {
    drawing_.append(margin).append(coloured(text, colour)).append("\n");
  }

  Style style_;
  bool whole_;
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
      page.hides = true;
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

/// What the agent wants to do, and where. What another row tells as well is left out.
void drawHead(const AgentPermission& card, std::string_view place, Page& page) {
  const bool isItsLine = card.lines.size() == 1 && card.lines.front().kind == Line::Kind::plain &&
                         Text::trimmed(card.lines.front().text) == card.subject;
  if (card.action != Action::ask && !isItsLine) page.phrase(indent, card.subject, bold);
  if (card.note && card.note != card.subject) page.phrase(indent, *card.note);
  if (card.folder) page.phrase("  in ", *card.folder, dim);
  if (!place.empty()) page.own("  workspace " + std::string(place), dim);
}

/// What can be typed, after what the user should know before.
void drawPrompt(const CardDialog& dialog, std::string_view agent, std::size_t waiting, Page& page) {
  for (const std::string& caution : dialog.cautions()) page.own(caution, bold);
  std::vector<std::string> pieces = dialog.prompt(agent);
  if (waiting > 0) pieces.push_back("(" + std::to_string(waiting) + " more waiting)");
  page.own(pieces, bold);
}

}  // namespace

std::string draw(CardDialog& dialog, std::string_view agent, std::string_view place,
                 std::size_t waiting, const Style& style) {
  const AgentPermission& card = dialog.card();
  Page page(style, dialog.showsAll());
  page.own(std::string(agent) + " · " + std::string(title(card.action)), bold);
  drawHead(card, place, page);
  drawPreview(card, dialog.showsAll(), page);
  drawQuestions(dialog, page);
  if (!card.complete) {
    page.own(card.action == Action::ask
                 ? "  (cut: the agent sent more, so it can only be answered there)"
                 : "  (cut: the agent sent more)",
             bold);
  }

  const auto withPrompt = [&](LeftOut leftOut) {
    dialog.leavesOut(leftOut);
    Page whole = page;
    drawPrompt(dialog, agent, waiting, whole);
    return whole;
  };
  // Questions that were cut are not answered here, which is said where they stand.
  LeftOut leftOut{.untilAsked = page.hides,
                  .forGood = !card.complete && card.action != Action::ask};
  Page drawn = withPrompt(leftOut);
  // The row below the last one is where the user types.
  if (!leftOut.any() && style.rows && drawn.height() >= *style.rows) {
    leftOut.forGood = true;
    drawn = withPrompt(leftOut);
  }
  return "\n" + drawn.take();
}

}  // namespace CorvaneControl::Headless
