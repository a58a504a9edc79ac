#include "corvane-headless/CardAnswers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Headless {

namespace {

using Action = AgentPermission::Action;
using Question = AgentPermission::Question;

struct Key {
  std::string_view letter;
  std::string_view word;
  std::string_view meaning;
  PermissionReply reply;
};

PermissionReply allowed() { return {.answer = PermissionAnswer::allowed}; }
PermissionReply denied() { return {.answer = PermissionAnswer::denied}; }
PermissionReply approved(PlanApproval approval) {
  return {.answer = PermissionAnswer::allowed, .approval = approval};
}

/// The keys that decide about a card, beside the numbers of a question's options.
std::vector<Key> keysFor(const AgentPermission& card) {
  if (card.action == Action::ask) return {{"d", "decline", "decline to answer", denied()}};
  if (card.action == Action::plan) {
    return {{"a", "auto", "approve, and go on without asking", approved(PlanApproval::automatic)},
            {"m", "manual", "approve, and go on asking", approved(PlanApproval::manual)},
            {"k", "keep", "keep planning", denied()}};
  }
  return {{"a", "allow", "allow", allowed()}, {"d", "deny", "deny", denied()}};
}

/// Whether a key does what the agent asked leave for.
bool approves(const Key& key) { return key.reply.answer == PermissionAnswer::allowed; }

/// Whether the card stands for more than its lines can tell: of a patch, they show what is added
/// and removed, and nothing of files that are deleted or moved, nor where one file ends.
bool isPatchWithoutLines(const AgentPermission& card) {
  return card.action == Action::edit && card.lines.empty();
}
bool isPatchOfSeveralFiles(const AgentPermission& card) {
  return card.action == Action::edit && card.subject.ends_with(" more") && card.note &&
         card.note->starts_with("Edits ") && card.note->ends_with(" files");
}

constexpr std::string_view notAllCanBeShown =
    "Not all of it can be shown here; l shows it at the agent";
constexpr std::string_view notAllIsShown = "Not all of it is shown yet; s shows it";

/// The words of a line, separated by commas and white space.
std::vector<std::string_view> wordsOf(std::string_view line) {
  std::vector<std::string_view> words;
  constexpr std::string_view separators = ", \t\r";
  for (std::size_t begin = line.find_first_not_of(separators); begin != std::string_view::npos;) {
    const std::size_t end = std::min(line.find_first_of(separators, begin), line.size());
    words.push_back(line.substr(begin, end - begin));
    begin = line.find_first_not_of(separators, end);
  }
  return words;
}

/// The position of the option that a word numbers; absent when there is none.
std::optional<std::int64_t> optionOf(std::string_view word, const Question& question) {
  std::size_t number = 0;
  const auto read = std::from_chars(word.data(), word.data() + word.size(), number);
  if (read.ec != std::errc{} || read.ptr != word.data() + word.size()) return std::nullopt;
  if (number < 1 || number > question.options.size()) return std::nullopt;
  return static_cast<std::int64_t>(number - 1);
}

std::string numbersOf(const Question& question) {
  const std::string last = std::to_string(question.options.size());
  return last == "1" ? last : "1-" + last;
}

}  // namespace

bool canBeAnswered(const AgentPermission& card) {
  return card.complete && card.questions && !card.questions->empty() &&
         std::ranges::none_of(*card.questions,
                              [](const Question& question) { return question.options.empty(); });
}

std::optional<PermissionReply> automaticReply(const AgentPermission& card,
                                              PermissionAnswer answer) {
  if (answer == PermissionAnswer::denied) return denied();
  if (card.action == Action::plan) return approved(PlanApproval::automatic);
  if (card.action != Action::ask) return allowed();
  if (!canBeAnswered(card)) return std::nullopt;
  PermissionReply reply = allowed();
  reply.choices.emplace();
  for (const Question& question : *card.questions) {
    const auto recommended =
        std::ranges::find(question.options, true, &Question::Option::recommended);
    const auto chosen =
        recommended == question.options.end() ? question.options.begin() : recommended;
    reply.choices->push_back({chosen - question.options.begin()});
  }
  return reply;
}

CardDialog::Outcome CardDialog::typed(std::string_view line) {
  const std::string text =
      Text::lowercasedASCII(Text::trimmedOfLines(Text::repaired(std::string(line))));
  if (text.empty()) return DrawAgain{};
  if (text == "s" || text == "show") {
    showsAll_ = true;
    return DrawAgain{};
  }
  if (text == "l" || text == "leave") return LeftToAgent{};
  for (const Key& key : keysFor(card_)) {
    if (text == key.word) return Decided{key.reply};
    if (text != key.letter) continue;
    if (!leftOut_.any() || !approves(key)) return Decided{key.reply};
    return Hint{std::string(leftOut_.forGood ? notAllCanBeShown : notAllIsShown) + ". To " +
                (card_.action == Action::plan ? "approve" : "allow") +
                " it anyway, type the whole word " + std::string(key.word) + "."};
  }
  if (card_.action == Action::ask && canBeAnswered(card_)) return chosen(text);
  return hint();
}

CardDialog::Outcome CardDialog::chosen(std::string_view line) {
  const Question& question = (*card_.questions)[choices_.size()];
  std::vector<std::int64_t> options;
  for (const std::string_view word : wordsOf(line)) {
    const auto option = optionOf(word, question);
    if (!option) return hint();
    if (std::ranges::find(options, *option) == options.end()) options.push_back(*option);
  }
  if (options.empty() || (options.size() > 1 && !question.multiSelect)) return hint();
  choices_.push_back(std::move(options));
  if (choices_.size() < card_.questions->size()) return DrawAgain{};
  PermissionReply reply = allowed();
  reply.choices = choices_;
  return Decided{std::move(reply)};
}

std::vector<std::string> CardDialog::answers() const {
  std::vector<std::string> answers;
  for (const Key& key : keysFor(card_)) {
    answers.emplace_back(leftOut_.any() && approves(key) ? key.word : key.letter);
  }
  return answers;
}

CardDialog::Hint CardDialog::hint() const {
  std::string text = "That is no answer. Type ";
  if (card_.action == Action::ask && canBeAnswered(card_)) {
    const Question& question = (*card_.questions)[choices_.size()];
    text.append(question.multiSelect ? "one or more of the numbers " : "one of the numbers ");
    text.append(numbersOf(question)).append(question.multiSelect ? " (such as 1,2), " : ", ");
  }
  std::vector<std::string> words = answers();
  if (leftOut_.untilAsked) words.emplace_back("s");
  return {text + Text::joined(words, ", ") + " or l; Enter alone shows it again."};
}

std::vector<std::string> CardDialog::prompt(std::string_view agent) const {
  std::vector<std::string> pieces;
  if (card_.action == Action::ask && canBeAnswered(card_)) {
    const Question& question = (*card_.questions)[choices_.size()];
    pieces.push_back("[" + numbersOf(question) + "] " +
                     (question.multiSelect ? "choose one or more, such as 1,2" : "choose one"));
  }
  std::vector<std::string> words = answers();
  const std::vector<Key> keys = keysFor(card_);
  for (std::size_t index = 0; index < keys.size(); ++index) {
    pieces.push_back("[" + words[index] + "] " + std::string(keys[index].meaning));
  }
  if (leftOut_.untilAsked) pieces.emplace_back("[s] show all");
  const bool isBetterThere = isPatchWithoutLines(card_) || isPatchOfSeveralFiles(card_);
  pieces.push_back("[l] leave it to " + std::string(agent) +
                   (isBetterThere ? " (recommended)" : ""));
  return pieces;
}

std::vector<std::string> CardDialog::cautions() const {
  std::vector<std::string> sentences;
  if (isPatchWithoutLines(card_)) {
    sentences.emplace_back(
        "It has no lines to show: it may delete or move files; l shows it at the agent");
  } else if (isPatchOfSeveralFiles(card_)) {
    sentences.emplace_back(
        "It is about several files, not told apart here, and may delete or move some; l shows it "
        "at the agent");
  }
  if (leftOut_.any()) {
    sentences.emplace_back(leftOut_.forGood ? notAllCanBeShown : notAllIsShown);
  }
  return sentences;
}

}  // namespace CorvaneControl::Headless
