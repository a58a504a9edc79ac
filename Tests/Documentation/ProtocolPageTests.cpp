#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"
#include "Documentation/Pages.h"

namespace CorvaneControl {
namespace {

using CorvaneTests::Block;
using CorvaneTests::Markdown;

const std::string path = "Documentation/protocol.md";

/// Examples are broken into indented lines for reading; this is the one line that they stand for.
std::string joined(const std::string& text) {
  std::string line;
  for (const std::string& piece : CorvaneTests::linesOf(text)) {
    line += piece.substr(std::min(piece.find_first_not_of(' '), piece.size()));
  }
  return line;
}

/// The examples of the page, each as one line, in their order.
std::vector<Block> examples() {
  std::vector<Block> found;
  for (Block& block : Markdown(CorvaneTests::page(path)).blocks) {
    if (!block.kind.starts_with("json")) continue;
    block.text = joined(block.text);
    found.push_back(std::move(block));
  }
  return found;
}

template <class Record>
void expectWireForm(const Block& block) {
  const auto record = ControlCoding::decode<Record>(block.text);
  ASSERT_TRUE(record) << record.failure().description;
  EXPECT_EQ(ControlCoding::line(*record), block.text + "\n");
}

TEST(ProtocolPage, showsEveryMessageAsItTravels) {
  std::map<std::string, int> counts;
  for (const Block& block : examples()) {
    SCOPED_TRACE(path + ":" + std::to_string(block.line));
    ++counts[block.kind];
    if (block.kind == "json request") {
      expectWireForm<ControlRequest>(block);
    } else if (block.kind == "json response") {
      expectWireForm<ControlResponse>(block);
    } else if (block.kind == "json event") {
      expectWireForm<ControlEvent>(block);
    } else {
      EXPECT_TRUE(block.kind == "json hook-input" || block.kind == "json hook-reply") << block.kind;
    }
  }
  for (const char* const kind : {"request", "response", "event", "hook-input", "hook-reply"}) {
    EXPECT_GT(counts["json " + std::string(kind)], 0) << kind;
  }
}

TEST(ProtocolPage, hasAnExampleOfEveryCommandUnderItsName) {
  for (const auto& command : wireNames(ControlRequest::Command{})) {
    SCOPED_TRACE(command.name);
    const auto all = examples();
    EXPECT_TRUE(std::ranges::any_of(all, [&](const Block& block) {
      if (block.kind != "json request") return false;
      const auto request = ControlCoding::decode<ControlRequest>(block.text);
      if (!request || request->command != command.value) return false;
      // Those of `notify` stand under headings of the next level.
      return block.section == "## " + std::string(command.name) ||
             command.value == ControlRequest::Command::notify;
    }));
  }
}

/// What `corvanectl notify --agent <agent>` sends for a hook's input.
std::optional<ControlRequest> sent(const std::string& agent, std::string input) {
  const auto document = JSON::Document::parse(input);
  if (!document) return std::nullopt;
  const ControlCommandLine::Process process{
      .standardInput = [&] { return &document->root(); },
      .currentDirectory = [] { return std::string(); },
      .parentProcess = [] { return std::optional<std::int32_t>(4711); },
      .autoReviewed = [](const std::string&) { return false; },
      .environment = [](std::string_view) { return std::optional<std::string>(); },
  };
  const auto parsed = ControlCommandLine::parse({"notify", "--agent", agent}, process);
  const auto* const run = std::get_if<ControlCommandLine::Run>(&parsed);
  if (run == nullptr) return std::nullopt;
  return run->request;
}

// An input is followed by the request made of it, and that, when it asks for permission, by the
// answer and the reply made of all three.
TEST(ProtocolPage, tellsStoriesThatHappenLikeThat) {
  const std::vector<Block> all = examples();
  std::size_t inputs = 0;
  std::size_t replies = 0;
  for (std::size_t index = 0; index < all.size(); ++index) {
    if (all[index].kind != "json hook-input") continue;
    SCOPED_TRACE(path + ":" + std::to_string(all[index].line));
    ++inputs;
    ASSERT_LT(index + 1, all.size());
    ASSERT_EQ(all[index + 1].kind, "json request");
    const auto request = ControlCoding::decode<ControlRequest>(all[index + 1].text);
    ASSERT_TRUE(request && request->agent);
    EXPECT_EQ(sent(*request->agent, all[index].text), *request);
    if (!request->permission) continue;

    ASSERT_LT(index + 3, all.size());
    ASSERT_EQ(all[index + 2].kind, "json response");
    ASSERT_EQ(all[index + 3].kind, "json hook-reply");
    ++replies;
    const auto response = ControlCoding::decode<ControlResponse>(all[index + 2].text);
    ASSERT_TRUE(response);
    std::string hookInput = all[index].text;
    const auto document = JSON::Document::parse(hookInput);
    ASSERT_TRUE(document);
    EXPECT_EQ(response->hookOutput(*request, &document->root()), all[index + 3].text + "\n");
  }
  EXPECT_GE(inputs, 8U);
  EXPECT_GE(replies, 4U);
}

/// What a table calls the type of a field.
template <class Type>
struct Described {
  static constexpr std::string_view word = "object";  // a record
};
template <>
struct Described<bool> {
  static constexpr std::string_view word = "boolean";
};
template <>
struct Described<std::string> {
  static constexpr std::string_view word = "string";
};
template <>
struct Described<std::int32_t> {
  static constexpr std::string_view word = "integer (32 bits)";
};
template <>
struct Described<std::int64_t> {
  static constexpr std::string_view word = "integer (64 bits)";
};
template <>
struct Described<UUID> {
  static constexpr std::string_view word = "UUID";
};
template <>
struct Described<Date> {
  static constexpr std::string_view word = "date";
};
template <class Element>
struct Described<std::vector<Element>> {
  static constexpr std::string_view word = "array of";
};

template <class Type>
void expectType(const std::string& cell) {
  if constexpr (std::is_enum_v<Type>) {
    std::vector<std::string> names;
    for (const auto& entry : wireNames(Type{})) names.emplace_back(entry.name);
    EXPECT_EQ(CorvaneTests::between(cell, '"'), names);
  } else {
    EXPECT_TRUE(cell.starts_with(Described<Type>::word)) << cell;
  }
}

template <class Type>
struct MayBeAbsent : std::false_type {
  using Value = Type;
};
template <class Type>
struct MayBeAbsent<std::optional<Type>> : std::true_type {
  using Value = Type;
};

/// The rows of the table of fields in a section, by the field's key.
std::map<std::string, std::vector<std::string>> rowsOf(const Markdown& page,
                                                       const std::string& section) {
  std::map<std::string, std::vector<std::string>> rows;
  for (const Markdown::Line& line : page.lines) {
    if (line.section != section) continue;
    const auto cells = CorvaneTests::cellsOf(line.text);
    if (cells.empty() || !cells[0].starts_with('`')) continue;
    EXPECT_EQ(cells.size(), 4U) << line.text;
    EXPECT_TRUE(rows.try_emplace(CorvaneTests::between(cells[0], '`').at(0), cells).second)
        << cells[0] << " has two rows";
  }
  return rows;
}

/// The table of a record has a row for each field, with its type and whether it may be absent, and
/// no other.
template <class Record>
void expectTable(const std::string& section) {
  SCOPED_TRACE(section);
  const auto rows = rowsOf(Markdown(CorvaneTests::page(path)), section);
  std::set<std::string> keys;
  std::apply(
      [&](const auto&... field) {
        const auto check = [&]<class Owner, class Member>(const Field<Owner, Member>& one) {
          SCOPED_TRACE(one.key);
          keys.insert(std::string(one.key));
          const auto row = rows.find(std::string(one.key));
          ASSERT_NE(row, rows.end()) << "has no row";
          expectType<typename MayBeAbsent<Member>::Value>(row->second[1]);
          EXPECT_EQ(row->second[2] != "never", MayBeAbsent<Member>::value) << row->second[2];
        };
        (check(field), ...);
      },
      Record::fields);
  for (const auto& [key, cells] : rows) EXPECT_TRUE(keys.contains(key)) << key << " is no field";
}

TEST(ProtocolPage, describesEveryFieldOfEveryRecord) {
  expectTable<ControlRequest>("## The request");
  expectTable<ControlResponse>("## The answer");
  expectTable<ControlEvent>("## subscribe");
  expectTable<WorkspaceSummary>("## A workspace");
  expectTable<Attention>("## A mark");
  expectTable<CmuxPane>("## A cmux pane");
  expectTable<AgentPermission>("## A permission card");
  expectTable<AgentPermission::Line>("### A line");
  expectTable<AgentPermission::Question>("### A question");
  expectTable<AgentPermission::Question::Option>("### An option");
}

}  // namespace
}  // namespace CorvaneControl
