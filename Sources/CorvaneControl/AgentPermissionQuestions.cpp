#include <algorithm>
#include <utility>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/CardLines.h"
#include "CorvaneControl/DisplayPath.h"
#include "CorvaneControl/Patterns.h"
#include "CorvaneControl/Platform/Markdown.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/ToolInput.h"

namespace CorvaneControl {

namespace {

using Question = AgentPermission::Question;
using Option = Question::Option;

constexpr std::size_t mostQuestions = 4;
constexpr std::size_t mostOptions = 6;
constexpr std::size_t mostPlanBytes = 20000;

/// `list` without what is beyond `most`; `complete` becomes false when that, or anything, is
/// missing.
std::span<const JSON::Value> cut(std::span<const JSON::Value> list, std::size_t most,
                                 bool& complete) {
  if (list.empty() || list.size() > most) complete = false;
  return list.first(std::min(list.size(), most));
}

/// A string without spaces and line breaks around it; absent when nothing is left.
std::optional<std::string_view> words(const JSON::Value& input, std::string_view key) {
  const auto text = Text::trimmedOfLines(input.string(key).value_or(""));
  return text.empty() ? std::nullopt : std::optional(text);
}

std::optional<Option> optionOf(const JSON::Value& input, bool& complete) {
  // A preview is shown by the agent only: who answers here would choose without having seen it.
  if (!input.string("preview").value_or("").empty()) complete = false;
  const auto label = input.string("label").value_or("");
  if (label.empty()) {
    complete = false;
    return std::nullopt;
  }
  auto reading = Option::reading(label);
  Option option{.label = CardLines::shortened(reading.label), .recommended = reading.recommended};
  if (const auto detail = words(input, "description"))
    option.detail = CardLines::shortened(*detail);
  return option;
}

std::optional<Question> questionOf(const JSON::Value& input, bool& complete) {
  const auto text = words(input, "question");
  if (!text) {
    complete = false;
    return std::nullopt;
  }
  Question question{.header = CardLines::shortened(input.string("header").value_or("")),
                    .text = CardLines::shortened(*text)};
  const auto options =
      ToolInput::objects(input.find("options")).value_or(std::span<const JSON::Value>{});
  for (const auto& option : cut(options, mostOptions, complete)) {
    if (auto read = optionOf(option, complete)) question.options.push_back(std::move(*read));
  }
  question.multiSelect = ToolInput::takesSeveral(input);
  return question;
}

/// The text from its first line that is not blank to the last such line; absent when all are blank.
std::optional<std::string_view> withoutBlankEnds(std::string_view text) {
  while (true) {
    const auto feed = text.find('\n');
    if (!Text::isBlank(*CardLines::Walk(text.substr(0, feed)).next())) break;
    if (feed == std::string_view::npos) return std::nullopt;
    text.remove_prefix(feed + 1);
  }
  while (true) {
    const auto feed = text.rfind('\n');
    const auto last = feed == std::string_view::npos ? text : text.substr(feed + 1);
    if (!Text::isBlank(*CardLines::Walk(last).next())) return text;
    text = text.substr(0, feed);
  }
}

/// A plan's first line without its heading mark and its Markdown.
std::string planTitle(std::string_view line) {
  // Beyond what the Markdown reader looks at, text stays as it is; of that, enough is left to tell
  // whether the title is too long, unless there is much white space around it.
  constexpr std::size_t mostRead = Markdown::mostRead + CardLines::mostCharacters + 2;
  const auto heading = line.substr(Patterns::indentedHeadingMark(line));
  const auto read = Text::prefix(heading, mostRead);
  bool cut = false;
  auto title = CardLines::shortened(Text::trimmed(Markdown::plainText(read)), &cut);
  if (cut || read.size() == heading.size()) return title;
  return CardLines::shortened(Text::trimmed(Markdown::plainText(heading)));
}

}  // namespace

Option::Reading Option::reading(std::string_view label) {
  const auto suffix = Patterns::recommendationSuffix(label);
  return {std::string(label.substr(0, suffix.value_or(label.size()))), suffix.has_value()};
}

std::optional<AgentPermission> AgentPermission::question(const JSON::Value& input,
                                                         const Folders& folders) {
  const auto list = ToolInput::objects(input.find("questions"));
  if (!list) return std::nullopt;

  AgentPermission card{.action = Action::ask};
  std::vector<Question> questions;
  for (const auto& question : cut(*list, mostQuestions, card.complete)) {
    if (auto read = questionOf(question, card.complete)) questions.push_back(std::move(*read));
  }
  if (questions.empty()) return std::nullopt;

  card.subject = questions.front().text;
  if (folders.cwd) card.folder = DisplayPath::abbreviated(*folders.cwd, folders.home);
  card.questions = std::move(questions);
  return card;
}

std::optional<AgentPermission> AgentPermission::plan(const JSON::Value& input,
                                                     const Folders& folders) {
  const auto text = input.string("plan");
  if (!text) return std::nullopt;
  const auto plan = withoutBlankEnds(*text);
  if (!plan) return std::nullopt;

  AgentPermission card{.action = Action::plan};
  card.subject = planTitle(*CardLines::Walk(*plan).next());
  auto room = mostPlanBytes;
  CardLines::Walk walk(*plan);
  while (const auto line = walk.next()) {
    if (card.lines.size() == CardLines::mostLines || line->size() > room) {
      card.complete = false;
      break;
    }
    room -= line->size();
    card.lines.push_back({std::string(*line), Line::Kind::plain});
  }
  if (folders.cwd) card.folder = DisplayPath::abbreviated(*folders.cwd, folders.home);
  return card;
}

std::size_t AgentPermission::steps() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      lines, [](const Line& line) { return Patterns::isNumberedStep(line.text); }));
}

}  // namespace CorvaneControl
