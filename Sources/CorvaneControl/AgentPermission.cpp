#include "CorvaneControl/AgentPermission.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "CorvaneControl/AgentPermissionLines.h"
#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {

namespace {

using Action = AgentPermission::Action;
using Kind = AgentPermission::Line::Kind;
using Folder = std::optional<std::string_view>;
using Card::LineList;

/// A string that is not empty.
std::optional<std::string_view> pathValue(const JSON::Value& input, std::string_view key) {
  const auto text = input.string(key);
  return text && !text->empty() ? text : std::nullopt;
}

/// The value's elements joined with single spaces; absent unless it is a list of strings.
std::optional<std::string> joined(const JSON::Value& value) {
  if (!value.isArray()) return std::nullopt;
  std::string text;
  std::string_view separator;
  for (const auto& element : value.elements()) {
    const auto word = element.asString();
    if (!word) return std::nullopt;
    text += separator;
    text += *word;
    separator = " ";
  }
  return text;
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

/// The file name at the end of a path; slashes that follow it do not count. "/" itself for a path
/// of nothing else.
std::string_view lastComponent(std::string_view path) {
  const auto last = path.find_last_not_of('/');
  if (last == std::string_view::npos) return path.substr(0, 1);
  const auto name = path.substr(0, last + 1);
  const auto slash = name.rfind('/');
  return slash == std::string_view::npos ? name : name.substr(slash + 1);
}

/// A path as seen from the working folder; with the home abbreviated when it lies elsewhere.
std::string relativePath(std::string_view path, Folder cwd) {
  if (cwd && path.starts_with(*cwd)) {
    const auto rest = path.substr(cwd->size());
    if (cwd->ends_with('/')) return std::string(rest);
    if (rest.starts_with('/')) return std::string(rest.substr(1));
  }
  return Card::abbreviated(path);
}

/// "mcp__files__read__all" is the tool "read__all" of the server "files": "files · read__all".
std::string displayName(std::string_view tool) {
  constexpr std::string_view mark = "mcp__";
  constexpr std::string_view separator = "__";
  if (!tool.starts_with(mark)) return Card::shortened({tool});
  const auto rest = tool.substr(mark.size());
  const auto end = rest.find(separator);
  if (end == std::string_view::npos) return Card::shortened({tool});
  return Card::shortened({rest.substr(0, end), " · ", rest.substr(end + separator.size())});
}

// The bytes that may stand in the parts of a URL (RFC 3986).

bool isLetter(char byte) { return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'); }
bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool isHexadecimal(char byte) {
  return isDigit(byte) || (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F');
}

/// Whether the text consists of the unreserved bytes, the sub-delimiters, percent escapes, and the
/// bytes of `others`.
bool isMadeOf(std::string_view text, std::string_view others) {
  constexpr std::string_view marks = "-._~!$&'()*+,;=";
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char byte = text[index];
    if (byte == '%') {
      if (text.size() - index < 3) return false;
      if (!isHexadecimal(text[index + 1]) || !isHexadecimal(text[index + 2])) return false;
      index += 2;
    } else if (!isLetter(byte) && !isDigit(byte) && marks.find(byte) == std::string_view::npos &&
               others.find(byte) == std::string_view::npos) {
      return false;
    }
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, [](char byte) {
    return isLetter(byte) || isDigit(byte) || byte == '+' || byte == '-' || byte == '.';
  });
}

/// Takes off what stands before the first of the `marks`, or everything; the mark stays.
std::string_view takeUntil(std::string_view& rest, std::string_view marks) {
  const auto taken = rest.substr(0, rest.find_first_of(marks));
  rest.remove_prefix(taken.size());
  return taken;
}

/// What may stand between the brackets of a host: the digits of an IPv6 address.
bool isAddress(std::string_view text) {
  return std::ranges::count(text, ':') >= 2 && std::ranges::all_of(text, [](char byte) {
           return isHexadecimal(byte) || byte == ':' || byte == '.';
         });
}

/// The host of an authority, an IPv6 address with its brackets; empty when there is none, or when
/// the authority is malformed.
std::string_view hostOf(std::string_view authority) {
  if (const auto at = authority.find('@'); at != std::string_view::npos) {
    if (!isMadeOf(authority.substr(0, at), ":")) return {};
    authority.remove_prefix(at + 1);
  }
  std::string_view host;
  if (authority.starts_with('[')) {
    const auto end = authority.find(']');
    if (end == std::string_view::npos || !isAddress(authority.substr(1, end - 1))) return {};
    host = authority.substr(0, end + 1);
  } else {
    host = authority.substr(0, authority.find(':'));
    if (!isMadeOf(host, "")) return {};
  }
  const auto port = authority.substr(host.size());
  if (port.empty()) return host;
  return port.front() == ':' && std::ranges::all_of(port.substr(1), isDigit) ? host : "";
}

/// Where a page is: its host, and its path without a last slash, both as they are written.
struct Place {
  std::string_view host{};
  std::string_view path{};
};

/// Absent for a text that is no URL or names no host.
std::optional<Place> placeOf(std::string_view url) {
  const auto scheme = takeUntil(url, ":/?#");
  if (url.starts_with(':') && isScheme(scheme)) {
    url.remove_prefix(1);
  } else if (!scheme.empty()) {
    return std::nullopt;
  }
  if (!url.starts_with("//")) return std::nullopt;
  url.remove_prefix(2);

  const auto host = hostOf(takeUntil(url, "/?#"));
  auto path = takeUntil(url, "?#");
  const auto query = takeUntil(url, "#");
  const auto fragment = url.substr(url.empty() ? 0 : 1);
  const bool valid = isMadeOf(path, ":@/") && isMadeOf(query, ":@/?") && isMadeOf(fragment, ":@/?");
  if (host.empty() || !valid) return std::nullopt;
  if (path.ends_with('/')) path.remove_suffix(1);
  return Place{host, path};
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

std::optional<std::string> sentenceOf(Input input, std::string_view key) {
  const auto text = input.string(key);
  return text ? Card::sentence(*text) : std::nullopt;
}

/// The first line that is not blank, trimmed; empty when there is none.
std::string_view firstWords(std::string_view text) {
  Card::LineWalk walk(text);
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
  auto lines = LineList::cut();
  lines.addText(*command, Kind::plain);
  return cardOf(Action::run, Card::shortened({words}), std::move(note), std::move(lines));
}

/// The replacements of "MultiEdit", a separator between each two.
void addEdits(Input input, LineList& lines) {
  const auto* edits = input.array("edits");
  if (!edits || !std::ranges::all_of(edits->elements(), &JSON::Value::isObject)) return;
  for (const auto& edit : edits->elements()) {
    const bool first = &edit == &edits->elements().front();
    if (!first && !lines.add("⋯", Kind::plain)) return;
    if (!lines.addEdit(edit.find("old_string"), edit.find("new_string"))) return;
  }
}

std::optional<AgentPermission> fileCard(std::string_view tool, Input input, Folder cwd) {
  auto path = pathValue(input, "file_path");
  if (!path) path = pathValue(input, "notebook_path");
  if (!path) return std::nullopt;

  auto lines = LineList::cut();
  if (tool == "Edit") {
    lines.addEdit(input.find("old_string"), input.find("new_string"));
  } else if (tool == "MultiEdit") {
    addEdits(input, lines);
  } else {
    const auto content = input.string(tool == "Write" ? "content" : "new_source");
    lines.addText(content.value_or(""), Kind::added);
  }
  return cardOf(tool == "Write" ? Action::write : Action::edit,
                Card::shortened({lastComponent(*path)}), relativePath(*path, cwd),
                std::move(lines));
}

/// User, port, query and fragment of the URL are not in the subject, so that the place stands out.
std::optional<AgentPermission> fetchCard(Input input) {
  const auto url = pathValue(input, "url");
  if (!url) return std::nullopt;
  const auto place = placeOf(*url);
  auto subject = place ? Card::shortened({place->host, place->path}) : Card::shortened({*url});
  auto lines = LineList::cut();
  lines.add(*url, Kind::plain);
  return cardOf(Action::fetch, std::move(subject), sentenceOf(input, "prompt"), std::move(lines));
}

std::optional<AgentPermission> searchCard(Input input) {
  const auto query = pathValue(input, "query");
  if (!query) return std::nullopt;
  auto lines = LineList::cut();
  lines.add(*query, Kind::plain);
  return cardOf(Action::search, Card::shortened({*query}), std::nullopt, std::move(lines));
}

AgentPermission toolCard(std::string_view tool, Input input) {
  auto lines = LineList::cut();
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

std::optional<AgentPermission> patchCard(std::string_view text, Folder cwd, LineList lines) {
  std::string_view firstFile;
  std::size_t files = 0;
  Card::LineWalk walk(text);
  while (const auto line = walk.next()) {  // to the end: also when no line fits, files are counted
    if (const auto file = patchedFile(*line)) {
      if (files == 0) firstFile = *file;
      ++files;
    } else {
      addPatchLine(*line, lines);
    }
  }
  if (files == 0) return std::nullopt;

  auto subject = std::string(lastComponent(firstFile));
  if (files == 1) {
    return cardOf(Action::edit, std::move(subject), relativePath(firstFile, cwd), std::move(lines));
  }
  subject += " and " + std::to_string(files - 1) + " more";
  return cardOf(Action::edit, std::move(subject), "Edits " + std::to_string(files) + " files",
                std::move(lines));
}

/// The patch is what a command would be; older inputs have it under names of its own.
std::optional<AgentPermission> patchCard(Input input, Folder cwd) {
  std::string storage;
  auto text = commandValue(input, storage);
  if (!text) text = input.string("input");
  if (!text) text = input.string("patch");
  if (!text) return std::nullopt;
  auto card = patchCard(*text, cwd, LineList::cut());
  if (card) card->subject = Card::shortened({card->subject});
  return card;
}

std::optional<AgentPermission> toolCallCard(std::string_view tool, Input input, Folder cwd) {
  if (tool == "Bash" || tool == "write_stdin") return runCard(tool, input);
  if (tool == "Edit" || tool == "MultiEdit" || tool == "NotebookEdit" || tool == "Write") {
    return fileCard(tool, input, cwd);
  }
  if (tool == "apply_patch") return patchCard(input, cwd);
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

/// 64-bit FNV-1a over everything that is appended.
class Hash final : public JSON::Sink {
 public:
  void append(std::string_view piece) override {
    auto hash = value_;
    for (; piece.size() >= 8; piece.remove_prefix(8)) {  // an agent waits for this at every call
      hash = step(step(step(step(hash, piece[0]), piece[1]), piece[2]), piece[3]);
      hash = step(step(step(step(hash, piece[4]), piece[5]), piece[6]), piece[7]);
    }
    for (const char byte : piece) hash = step(hash, byte);
    value_ = hash;
  }

  /// In lower-case hexadecimal without leading zeros.
  std::string text() const {
    std::array<char, 16> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value_, 16).ptr;
    return {digits.data(), end};
  }

 private:
  static std::uint64_t step(std::uint64_t hash, char byte) {
    return (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  }

  std::uint64_t value_ = 0xcbf29ce484222325;
};

std::size_t count(const std::vector<AgentPermission::Line>& lines, Kind kind) {
  return static_cast<std::size_t>(std::ranges::count(lines, kind, &AgentPermission::Line::kind));
}

}  // namespace

std::optional<AgentPermission> AgentPermission::parse(std::string_view tool,
                                                      const JSON::Value& input,
                                                      std::optional<std::string_view> cwd) {
  if (hasNoCard(tool)) return std::nullopt;
  auto card = toolCallCard(tool, input, cwd);
  if (card && cwd) card->folder = Card::abbreviated(*cwd);
  return card;
}

std::optional<AgentPermission> AgentPermission::patch(std::string_view text,
                                                      std::optional<std::string_view> cwd) {
  auto card = patchCard(text, cwd, LineList::whole(Card::mostLines + 1));
  if (!card) return std::nullopt;
  if (cwd) card->folder = Card::abbreviated(*cwd);
  card->complete = true;  // cutting is up to others
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

  Hash hash;
  hash.append(tool);
  hash.append(std::string_view("\0", 1));
  JSON::write(hashed, JSON::Slashes::escaped, hash);
  return hash.text();
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

std::string_view verb(AgentPermission::Action action) {
  switch (action) {
    case Action::run:
      return "Run";
    case Action::edit:
      return "Edit";
    case Action::write:
      return "Write";
    case Action::fetch:
      return "Fetch";
    case Action::search:
      return "Search";
    case Action::tool:
      return "Use";
    case Action::ask:
      return "Answer";
    case Action::plan:
      return "Plan";
  }
  return {};
}

std::string_view title(AgentPermission::Action action) {
  switch (action) {
    case Action::run:
      return "Wants to run a command";
    case Action::edit:
      return "Wants to edit a file";
    case Action::write:
      return "Wants to write a file";
    case Action::fetch:
      return "Wants to fetch a page";
    case Action::search:
      return "Wants to search the web";
    case Action::tool:
      return "Wants to use a tool";
    case Action::ask:
      return "Asks you a question";
    case Action::plan:
      return "Wrote a plan and is ready to code";
  }
  return {};
}

namespace Card {

std::string abbreviated(std::string_view path) {
  const auto home = System::homeFolder();
  if (!home || !path.starts_with(*home)) return std::string(path);
  const auto rest = path.substr(home->size());
  if (!rest.empty() && rest.front() != '/') return std::string(path);
  std::string text("~");
  text += rest;
  return text;
}

std::optional<std::string> sentence(std::string_view text) {
  const auto line = Text::firstLine(text);
  if (!line) return std::nullopt;
  const auto words = Text::trimmed(*line);
  if (words.empty()) return std::nullopt;
  return std::string(words);
}

}  // namespace Card

}  // namespace CorvaneControl
