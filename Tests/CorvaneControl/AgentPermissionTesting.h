#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"

/// What the tests of cards, questions and replies share.
namespace CorvaneControl {

/// The name of a row.
inline constexpr auto named = [](const auto& info) { return std::string(info.param.name); };

/// A JSON text with its value; a text that is no JSON fails the test.
class Parsed {
 public:
  explicit Parsed(std::string text) : text_(std::move(text)) {
    const std::string source = text_;
    document_ = JSON::Document::parse(text_);
    EXPECT_TRUE(document_) << "no JSON: " << source.substr(0, 200);
  }
  Parsed(const Parsed&) = delete;
  Parsed& operator=(const Parsed&) = delete;

  const JSON::Value& operator*() const { return document_->root(); }
  const JSON::Value* operator->() const { return &document_->root(); }
  const JSON::Value* get() const { return &document_->root(); }

 private:
  std::string text_;
  std::optional<JSON::Document> document_;
};

/// `{"key": "value", ...}` with the escapes that the values need.
inline std::string object(
    std::initializer_list<std::pair<std::string_view, std::string_view>> all) {
  std::string text = "{";
  for (const auto& [key, value] : all) {
    if (text.size() > 1) text += ',';
    JSON::write(JSON::Value::ofString(key), JSON::Slashes::plain, text);
    text += ':';
    JSON::write(JSON::Value::ofString(value), JSON::Slashes::plain, text);
  }
  return text + "}";
}

inline std::string repeated(std::string_view text, std::size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  for (std::size_t index = 0; index < count; ++index) all += text;
  return all;
}

/// Lines from their short form: the kind (" ", "+" or "-") and the text.
inline std::vector<AgentPermission::Line> lines(const std::vector<std::string>& shortForms) {
  using Kind = AgentPermission::Line::Kind;
  std::vector<AgentPermission::Line> all;
  for (const auto& form : shortForms) {
    const auto kind = form[0] == '+' ? Kind::added : form[0] == '-' ? Kind::removed : Kind::plain;
    all.push_back({form.substr(1), kind});
  }
  return all;
}

/// So many lines of the same text.
inline std::vector<AgentPermission::Line> linesOf(std::size_t count, std::string_view text) {
  return std::vector<AgentPermission::Line>(count, {std::string(text)});
}

namespace CardLines {
inline void PrintTo(const Line& line, std::ostream* out) {
  *out << wireName(line.kind) << ' ' << testing::PrintToString(line.text.substr(0, 500));
}
}  // namespace CardLines

inline void PrintTo(const AgentPermission::Question::Option& option, std::ostream* out) {
  *out << testing::PrintToString(option.label) << (option.recommended ? " recommended " : " ")
       << testing::PrintToString(option.detail);
}

inline void PrintTo(const AgentPermission::Question& question, std::ostream* out) {
  *out << testing::PrintToString(question.header) << ": " << testing::PrintToString(question.text)
       << (question.multiSelect ? " several of " : " one of ")
       << testing::PrintToString(question.options);
}

inline void PrintTo(const AgentPermission& card, std::ostream* out) {
  *out << wireName(card.action) << ' ' << testing::PrintToString(card.subject.substr(0, 500))
       << ", note " << testing::PrintToString(card.note) << ", folder "
       << testing::PrintToString(card.folder) << (card.complete ? ", complete, " : ", cut, ")
       << card.lines.size() << " lines " << testing::PrintToString(card.lines) << ", questions "
       << testing::PrintToString(card.questions);
}

}  // namespace CorvaneControl
