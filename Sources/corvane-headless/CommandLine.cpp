#include "corvane-headless/CommandLine.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

#include "CorvaneControl/Platform/Text.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless::CommandLine {

const std::string_view help =
    R"(corvane-headless: Corvane's end of the control socket, without a desktop

Usage:
  corvane-headless [--socket PATH] [--workspaces FILE]
                   [--answer allow|deny|ask] [--quiet]
  corvane-headless hooks [status|add|remove|show] [claude|codex|cursor ...]
                   [--home DIR] [--tool PATH]
  corvane-headless --help | --version   (-h and -v in short)

It serves corvanectl until SIGINT (Ctrl-C), SIGTERM or SIGHUP:
  --socket PATH      Serve this socket. Otherwise the one that corvanectl looks
                     for: CORVANE_SOCKET when it is set and not empty, else
                     control.sock in Corvane's folder.
  --workspaces FILE  Take the workspaces from this JSON file. Otherwise there is
                     a sample. Only the names are needed:
                       [{"name": "Site", "section": "Work", "shortcut": "⌥1",
                         "windows": 3, "active": true,
                         "project": "~/Projects/site"}, {"name": "Mail"}]
  --answer HOW       What to say to agents that ask for permission:
                       allow  yes to everything; of a question's options the one
                              that the agent recommends, else the first; a plan
                              goes on without asking further
                       deny   no to everything
                       ask    show each request, and read the answer from
                              standard input
                     Otherwise "ask" when standard input and output are a
                     terminal. When they are not, nothing is decided here, and
                     the agents ask by themselves.
  --quiet            Print no log. With "ask" requests are still shown.

With hooks, it makes agents call "corvanectl notify" (all when none is named):
  status             Show for each agent whether its hooks are there. This is
                     what happens when nothing is said.
  add, remove        Add or update the hooks, or take them out. Other settings
                     stay as they are.
  show               Print what "add" would put into a new file.
  --home DIR         The home folder with the agents' folders.
  --tool PATH        The corvanectl that the hooks call. Otherwise the one
                     beside this program.

Exit status: 0 when it was told to end or everything is done, 1 when something
can't be done, 2 when the words make no sense.
)";

namespace {

std::string shown(std::string_view word) { return visibleStart(word, 100); }

constexpr std::array answers{std::pair<std::string_view, Answering>{"allow", Answering::allow},
                             std::pair<std::string_view, Answering>{"deny", Answering::deny},
                             std::pair<std::string_view, Answering>{"ask", Answering::ask}};

constexpr std::array actions{
    std::pair<std::string_view, Hooks::Action>{"status", Hooks::Action::status},
    std::pair<std::string_view, Hooks::Action>{"add", Hooks::Action::add},
    std::pair<std::string_view, Hooks::Action>{"remove", Hooks::Action::remove},
    std::pair<std::string_view, Hooks::Action>{"show", Hooks::Action::show}};

template <class Table>
auto lookedUp(const Table& table, std::string_view word)
    -> std::optional<typename Table::value_type::second_type> {
  const auto entry = std::ranges::find(table, word, &Table::value_type::first);
  if (entry == table.end()) return std::nullopt;
  return entry->second;
}

/// The words, taken one by one; an option is split from the value that follows "=".
class Words {
 public:
  explicit Words(const std::vector<std::string>& words) : words_(words) {}

  bool next() {
    if (position_ == words_.size()) return false;
    word_ = words_[position_++];
    inlineValue_.reset();
    const std::size_t sign = word_.find('=');
    if (isOption() && sign != std::string_view::npos) {
      inlineValue_ = word_.substr(sign + 1);
      word_ = word_.substr(0, sign);
    }
    return true;
  }

  std::string_view word() const { return word_; }
  bool isFirst() const { return position_ == 1; }
  bool isOption() const { return word_.starts_with('-'); }
  bool hasInlineValue() const { return inlineValue_.has_value(); }

  /// The value of the current option; absent when there is none.
  std::optional<std::string_view> value() {
    if (inlineValue_) return inlineValue_;
    if (position_ == words_.size()) return std::nullopt;
    return words_[position_++];
  }

 private:
  const std::vector<std::string>& words_;
  std::size_t position_ = 0;
  std::string_view word_{};
  std::optional<std::string_view> inlineValue_{};
};

// What misspelt words are compared with. Which of them there are is decided further down.
constexpr std::array<std::string_view, 7> serveWords = {
    "hooks", "--socket", "--workspaces", "--answer", "--quiet", "--help", "--version"};
constexpr std::array<std::string_view, 4> hooksOptions = {"--home", "--tool", "--help",
                                                          "--version"};

/// Bytes of a word beyond which it is taken for no misspelling; bounds the comparisons.
constexpr std::size_t longestMisspelling = 24;

/// How many letters to add, drop, replace, or swap with their neighbour make one word the other.
/// Neither is longer than `longestMisspelling`.
std::size_t distance(std::string_view left, std::string_view right) {
  // Three rows of the table of the distances of all beginnings.
  std::array<std::array<std::size_t, longestMisspelling + 1>, 3> rows{};
  for (std::size_t column = 0; column <= right.size(); ++column) rows[0][column] = column;
  for (std::size_t line = 1; line <= left.size(); ++line) {
    auto& row = rows[line % 3];
    const auto& above = rows[(line + 2) % 3];
    const auto& twoAbove = rows[(line + 1) % 3];
    row[0] = line;
    for (std::size_t column = 1; column <= right.size(); ++column) {
      const bool isSame = left[line - 1] == right[column - 1];
      row[column] = std::min(
          {above[column] + 1, row[column - 1] + 1, above[column - 1] + (isSame ? 0U : 1U)});
      if (line > 1 && column > 1 && left[line - 1] == right[column - 2] &&
          left[line - 2] == right[column - 1]) {
        row[column] = std::min(row[column], twoAbove[column - 2] + 1);
      }
    }
  }
  return rows[left.size() % 3][right.size()];
}

/// " Did you mean --quiet?", or nothing when no known word is near. A word that is known itself was
/// wrong for another reason.
std::string suggestion(std::string_view word, std::span<const std::string_view> known) {
  if (word.size() > longestMisspelling) return {};
  const std::string given = Text::lowercasedASCII(word);
  const std::size_t letters = given.size() - std::min(given.find_first_not_of('-'), given.size());

  std::size_t least = (letters + 2) / 3;  // a third of them may be wrong
  if (letters <= least) return {};        // but not all
  std::string_view nearest;
  for (const std::string_view candidate : known) {
    const std::size_t found = distance(given, candidate);
    if (found > least || (found == least && !nearest.empty())) continue;
    least = found;
    nearest = candidate;
  }
  if (nearest.empty() || nearest == word) return {};
  return " Did you mean " + std::string(nearest) + "?";
}

Usage noSuchOption(const Words& words, std::span<const std::string_view> known) {
  return {"There is no option " + shown(words.word()) + "." + suggestion(words.word(), known)};
}

/// The decision that an option makes by itself.
std::optional<Parsed> alone(const Words& words) {
  if (words.hasInlineValue()) return std::nullopt;
  if (words.word() == "--help" || words.word() == "-h") return Help{};
  if (words.word() == "--version" || words.word() == "-v") return Version{};
  return std::nullopt;
}

/// Takes the current option's value, which must be there and not empty.
std::optional<Usage> take(Words& words, std::optional<std::string>& value) {
  const auto given = words.value();
  if (!given || given->empty()) return Usage{std::string(words.word()) + " needs a value."};
  value = std::string(*given);
  return std::nullopt;
}

/// Understands the current word; what it doesn't understand is the result.
std::optional<Parsed> understand(Words& words, Serve& serve) {
  if (auto decision = alone(words)) return decision;
  if (words.word() == "--socket") return take(words, serve.socket);
  if (words.word() == "--workspaces") return take(words, serve.workspaces);
  if (words.word() == "--quiet" && !words.hasInlineValue()) {
    serve.quiet = true;
    return std::nullopt;
  }
  if (words.word() == "--answer") {
    std::optional<std::string> answer;
    if (auto problem = take(words, answer)) return problem;
    serve.answering = lookedUp(answers, *answer);
    if (serve.answering) return std::nullopt;
    return Usage{"--answer is allow, deny or ask, not \"" + shown(*answer) + "\"."};
  }
  if (words.isOption()) return noSuchOption(words, serveWords);
  // Only as the first word, hooks is a command.
  const auto known = std::span(serveWords).subspan(words.isFirst() ? 0 : 1);
  return Usage{"What is \"" + shown(words.word()) + "\"?" + suggestion(words.word(), known)};
}

std::optional<Parsed> understand(Words& words, Hooks& hooks, bool& hasAction) {
  if (auto decision = alone(words)) return decision;
  if (words.word() == "--home") return take(words, hooks.home);
  if (words.word() == "--tool") return take(words, hooks.tool);
  if (words.isOption()) return noSuchOption(words, hooksOptions);
  const auto action = lookedUp(actions, words.word());
  const bool takesAction = !hasAction && hooks.agents.empty();
  if (action && takesAction) {
    hooks.action = *action;
    hasAction = true;
    return std::nullopt;
  }
  if (const auto agent = wireValue<Agent>(words.word())) {
    if (std::ranges::find(hooks.agents, *agent) == hooks.agents.end()) {
      hooks.agents.push_back(*agent);
    }
    return std::nullopt;
  }
  std::vector<std::string_view> known;
  for (const auto& [name, value] : actions) {
    if (takesAction) known.push_back(name);
  }
  for (const auto& agent : wireNames(Agent{})) known.push_back(agent.name);
  return Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not \"" +
               shown(words.word()) + "\"." + suggestion(words.word(), known)};
}

}  // namespace

Parsed parse(const std::vector<std::string>& arguments) {
  Words words(arguments);
  if (!arguments.empty() && arguments.front() == "hooks") {
    words.next();
    Hooks hooks;
    bool hasAction = false;
    while (words.next()) {
      if (auto decision = understand(words, hooks, hasAction)) return *std::move(decision);
    }
    return hooks;
  }
  Serve serve;
  while (words.next()) {
    if (auto decision = understand(words, serve)) return *std::move(decision);
  }
  return serve;
}

}  // namespace CorvaneControl::Headless::CommandLine
