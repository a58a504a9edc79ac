#include "CorvaneControl/AgentPermission.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "CorvaneControl/CardLines.h"
#include "CorvaneControl/DisplayPath.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/ToolInput.h"
#include "CorvaneControl/URL.h"

namespace CorvaneControl {

namespace {

using Action = AgentPermission::Action;
using Kind = AgentPermission::Line::Kind;
using Folders = AgentPermission::Folders;
using LineList = CardLines::List;

/// A string that is not empty.
std::optional<std::string_view> pathValue(const JSON::Value& input, std::string_view key) {
  const auto text = input.string(key);
  return text && !text->empty() ? text : std::nullopt;
}

/// The value's elements joined with single spaces; absent unless it is a list of strings.
std::optional<std::string> joined(const JSON::Value& value) {
  if (!value.isArray()) return std::nullopt;
  std::vector<std::string_view> words;
  for (const auto& element : value.elements()) {
    const auto word = element.asString();
    if (!word) return std::nullopt;
    words.push_back(*word);
  }
  return Text::joined(words);
}

/// The text of a tool's "command", a string or a list of words. A list has to be joined: `storage`
/// then holds the text.
std::optional<std::string_view> commandValue(const JSON::Value& input, std::string& storage) {
  const auto* command = input.find("command");
  if (!command) return std::nullopt;
  if (const auto text = command->asString()) return text;
  auto words = joined(*command);
  if (!words) return std::nullopt;
  storage = std::move(*words);
  return storage;
}

/// "mcp__files__read__all" is the tool "read__all" of the server "files": "files · read__all".
std::string displayName(std::string_view tool) {
  constexpr std::string_view mark = "mcp__";
  constexpr std::string_view separator = "__";
  if (!tool.starts_with(mark)) return CardLines::shortened(tool);
  const auto rest = tool.substr(mark.size());
  const auto end = rest.find(separator);
  if (end == std::string_view::npos) return CardLines::shortened(tool);
  return CardLines::shortened({rest.substr(0, end), " · ", rest.substr(end + separator.size())});
}

// The cards of the tools. `input` is the tool's input; what every card has in common is `parse`'s.

using Input = const JSON::Value&;

/// A card whose lines were cut as they were made.
AgentPermission cardOf(Action action, std::string subject, std::optional<std::string> note,
                       LineList lines) {
  AgentPermission card;
  card.action = action;
  card.subject = std::move(subject);
  card.note = std::move(note);
  card.complete = lines.complete();
  card.lines = std::move(lines).take();
  return card;
}

/// The first line of a text, trimmed; absent when that is empty, or when the member is no text.
std::optional<std::string> sentenceOf(Input input, std::string_view key) {
  const auto line = Text::firstLine(input.string(key).value_or(""));
  const auto words = line ? Text::trimmed(*line) : "";
  return words.empty() ? std::nullopt : std::optional<std::string>(words);
}

/// The first line that is not blank, trimmed; empty when there is none.
std::string_view firstWords(std::string_view text) {
  CardLines::Walk walk(text);
  while (const auto line = walk.next()) {
    if (const auto words = Text::trimmed(*line); !words.empty()) return words;
  }
  return {};
}

std::optional<AgentPermission> runCard(std::string_view tool, Input input) {
  std::string storage;
  auto command = commandValue(input, storage);
  if (!command) command = input.string("chars");
  const auto words = firstWords(command.value_or(""));
  if (words.empty()) return std::nullopt;

  auto note = sentenceOf(input, "description");
  if (!note && tool == "write_stdin") note = "Wants to type into a running command";
  LineList lines;
  lines.addText(*command, Kind::plain);
  return cardOf(Action::run, CardLines::shortened(words), std::move(note), std::move(lines));
}

/// The replacements of "MultiEdit", a separator between each two.
void addEdits(Input input, LineList& lines) {
  const auto edits = ToolInput::objects(input.find("edits"));
  if (!edits) return;
  for (const auto& edit : *edits) {
    if (&edit != &edits->front() && !lines.add("⋯", Kind::plain)) return;
    if (!lines.addEdit(edit.find("old_string"), edit.find("new_string"))) return;
  }
}

std::optional<AgentPermission> fileCard(std::string_view tool, Input input,
                                        const Folders& folders) {
  auto path = pathValue(input, "file_path");
  if (!path) path = pathValue(input, "notebook_path");
  if (!path) return std::nullopt;

  LineList lines;
  if (tool == "Edit") {
    lines.addEdit(input.find("old_string"), input.find("new_string"));
  } else if (tool == "MultiEdit") {
    addEdits(input, lines);
  } else {
    const auto content = input.string(tool == "Write" ? "content" : "new_source");
    lines.addText(content.value_or(""), Kind::added);
  }
  return cardOf(tool == "Write" ? Action::write : Action::edit,
                CardLines::shortened(DisplayPath::lastComponent(*path)),
                DisplayPath::relative(*path, folders.cwd, folders.home), std::move(lines));
}

/// Host and path of a URL, without a last slash: user, port, query and fragment are left out, so
/// that the place stands out. What is no URL, or names no host, stays as it is.
std::string pageName(std::string_view text) {
  const auto url = URL::parse(text);
  if (!url) return CardLines::shortened(text);
  const auto path = url->path.substr(0, url->path.size() - (url->path.ends_with('/') ? 1 : 0));
  return CardLines::shortened({url->host, path});
}

std::optional<AgentPermission> fetchCard(Input input) {
  const auto url = pathValue(input, "url");
  if (!url) return std::nullopt;
  auto subject = pageName(*url);
  LineList lines;
  lines.add(*url, Kind::plain);
  return cardOf(Action::fetch, std::move(subject), sentenceOf(input, "prompt"), std::move(lines));
}

std::optional<AgentPermission> searchCard(Input input) {
  const auto query = pathValue(input, "query");
  if (!query) return std::nullopt;
  LineList lines;
  lines.add(*query, Kind::plain);
  return cardOf(Action::search, CardLines::shortened(*query), std::nullopt, std::move(lines));
}

AgentPermission toolCard(std::string_view tool, Input input) {
  LineList lines;
  lines.addArguments(input);
  return cardOf(Action::tool, displayName(tool), sentenceOf(input, "reason"), std::move(lines));
}

/// The path that a line of a patch names: "*** Add File: a.c" and its like.
std::optional<std::string_view> patchedFile(std::string_view line) {
  for (const std::string_view mark : {"*** Update File: ", "*** Add File: ", "*** Delete File: "}) {
    if (line.starts_with(mark)) return line.substr(mark.size());
  }
  return std::nullopt;
}

/// What a line of a patch that names no file shows. A line without a known first letter is shown as
/// it is: nothing that may take effect stays hidden.
void addPatchLine(std::string_view line, LineList& lines) {
  if (line.empty() || line.starts_with("*** ") || line.starts_with("@@")) return;
  switch (line.front()) {
    case '+':
      lines.add(line.substr(1), Kind::added);
      return;
    case '-':
      lines.add(line.substr(1), Kind::removed);
      return;
    default:
      lines.add(line.front() == ' ' ? line.substr(1) : line, Kind::plain);
  }
}

/// The patch is what a command would be; older inputs have it under names of its own.
std::optional<AgentPermission> patchCard(Input input, const Folders& folders) {
  std::string storage;
  auto text = commandValue(input, storage);
  if (!text) text = input.string("input");
  if (!text) text = input.string("patch");

  LineList lines;
  std::string_view firstFile;
  std::size_t files = 0;
  CardLines::Walk walk(text.value_or(""));
  while (const auto line = walk.next()) {  // to the end: also when no line fits, files are counted
    if (const auto file = patchedFile(*line)) {
      if (files == 0) firstFile = *file;
      ++files;
    } else {
      addPatchLine(*line, lines);
    }
  }
  if (files == 0) return std::nullopt;

  const auto name = DisplayPath::lastComponent(firstFile);
  if (files == 1) {
    return cardOf(Action::edit, CardLines::shortened(name),
                  DisplayPath::relative(firstFile, folders.cwd, folders.home), std::move(lines));
  }
  const auto others = std::to_string(files - 1);
  return cardOf(Action::edit, CardLines::shortened({name, " and ", others, " more"}),
                "Edits " + std::to_string(files) + " files", std::move(lines));
}

std::optional<AgentPermission> toolCallCard(std::string_view tool, Input input,
                                            const Folders& folders) {
  if (tool == "Bash" || tool == "write_stdin") return runCard(tool, input);
  if (tool == "Edit" || tool == "MultiEdit" || tool == "NotebookEdit" || tool == "Write") {
    return fileCard(tool, input, folders);
  }
  if (tool == "apply_patch") return patchCard(input, folders);
  if (tool == "WebFetch") return fetchCard(input);
  if (tool == "WebSearch") return searchCard(input);
  return toolCard(tool, input);
}

/// Whether the tool gets no card here: a question or a plan (they have cards of their own), or a
/// change of mode that the user need not see.
bool hasNoCard(std::string_view tool) {
  return tool.empty() || tool == "ExitPlanMode" || tool == "EnterPlanMode" ||
         tool == "AskUserQuestion";
}

/// What is said of an action.
struct ActionTexts {
  Action action;
  std::string_view verb;
  std::string_view title;
};
constexpr std::array actionTexts = {
    ActionTexts{Action::run, "Run", "Wants to run a command"},
    ActionTexts{Action::edit, "Edit", "Wants to edit a file"},
    ActionTexts{Action::write, "Write", "Wants to write a file"},
    ActionTexts{Action::fetch, "Fetch", "Wants to fetch a page"},
    ActionTexts{Action::search, "Search", "Wants to search the web"},
    ActionTexts{Action::tool, "Use", "Wants to use a tool"},
    ActionTexts{Action::ask, "Answer", "Asks you a question"},
    ActionTexts{Action::plan, "Plan", "Wrote a plan and is ready to code"}};
static_assert(std::ranges::equal(actionTexts, wireNames(Action{}), {}, &ActionTexts::action,
                                 &WireName<Action>::value));

const ActionTexts& textsOf(Action action) {
  return *std::ranges::find(actionTexts, action, &ActionTexts::action);  // each is in the table
}

std::size_t count(const std::vector<AgentPermission::Line>& lines, Kind kind) {
  return static_cast<std::size_t>(std::ranges::count(lines, kind, &AgentPermission::Line::kind));
}

}  // namespace

std::optional<AgentPermission> AgentPermission::parse(std::string_view tool,
                                                      const JSON::Value& input,
                                                      const Folders& folders) {
  if (hasNoCard(tool)) return std::nullopt;
  auto card = toolCallCard(tool, input, folders);
  if (card && folders.cwd) card->folder = DisplayPath::abbreviated(*folders.cwd, folders.home);
  return card;
}

std::optional<std::string> AgentPermission::fingerprint(std::string_view tool,
                                                        const JSON::Value* input) {
  if (!input) return std::nullopt;
  JSON::Value hashed = *input;
  std::array<JSON::Member, 1> questions{};
  if (tool == "ExitPlanMode") {
    hashed =
        JSON::Value::ofObject({});  // all plans count as one call: they are revised while shown
  } else if (tool == "AskUserQuestion") {
    if (!input->isObject()) return std::nullopt;
    const auto* asked = input->find("questions");
    questions[0] = {"questions", asked ? *asked : JSON::Value::ofArray({})};
    hashed = JSON::Value::ofObject(questions);
  }
  if (!hashed.isObject() && !hashed.isArray()) return std::nullopt;

  JSON::Hash hash;
  hash.append(tool);
  hash.append(std::string_view("\0", 1));
  JSON::write(hashed, JSON::Slashes::escaped, hash);
  std::array<char, 16> digits{};  // hexadecimal in small letters, without leading zeros
  const auto end =
      std::to_chars(digits.data(), digits.data() + digits.size(), hash.value(), 16).ptr;
  return std::string(digits.data(), end);
}

std::size_t AgentPermission::rowsFor(const std::vector<Line>& lines) {
  std::size_t sum = 0;
  for (const auto& line : lines) {
    sum += std::max<std::size_t>(1, (Text::characters(line.text) + columns - 1) / columns);
  }
  return sum;
}

bool AgentPermission::fitsCard() const {
  if (!complete) return false;
  if (action == Action::ask || action == Action::plan) return true;
  return rowsFor(lines) <= rows;
}

AgentPermission::Preview AgentPermission::preview() const {
  if (lines.size() <= previewRows || fitsCard()) return {lines, 0};
  const auto end = lines.begin() + static_cast<std::ptrdiff_t>(previewRows);
  return {{lines.begin(), end}, lines.size() - previewRows};
}

std::size_t AgentPermission::added() const { return count(lines, Kind::added); }

std::size_t AgentPermission::removed() const { return count(lines, Kind::removed); }

std::string_view verb(AgentPermission::Action action) { return textsOf(action).verb; }

std::string_view title(AgentPermission::Action action) { return textsOf(action).title; }

}  // namespace CorvaneControl
