#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/OrderedJSON.h"
#include "Fuzz/Input.h"

using CorvaneTests::require;
namespace JSON = CorvaneControl::JSON;

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t deepestNesting = 512;
constexpr std::string_view unused = "u";

/// Strings lie in the text that was parsed, and members are sorted, each key once.
class Check {
 public:
  explicit Check(std::string_view source) : source_(source) {}

  void value(const JSON::Value& value) const {
    if (const auto string = value.asString()) view(*string);
    for (const JSON::Value& element : value.elements()) this->value(element);
    const JSON::Member* previous = nullptr;
    for (const JSON::Member& member : value.members()) {
      view(member.key);
      this->value(member.value);
      require(previous == nullptr || previous->key < member.key);
      require(value.find(member.key) == &member.value);
      previous = &member;
    }
  }

 private:
  void view(std::string_view string) const {
    require(string.data() >= source_.data() &&
            string.data() + string.size() <= source_.data() + source_.size());
  }

  std::string_view source_;
};

std::string written(const JSON::Value& value, std::string_view without = {}) {
  std::string text;
  if (without.empty() || !value.isObject()) {
    JSON::write(value, JSON::Slashes::escaped, text);
    return text;
  }
  std::vector<JSON::Member> members(value.members().begin(), value.members().end());
  std::erase_if(members, [&](const JSON::Member& member) { return member.key == without; });
  JSON::write(JSON::Value::ofObject(members), JSON::Slashes::escaped, text);
  return text;
}

/// What is written reads as the same, and has the hash that the value has.
void checkWriting(const JSON::Value& value, const std::string& text) {
  std::string copy = text;
  const auto again = JSON::Document::parse(copy);
  require(again && written(again->root()) == text);
  JSON::Hash ofText;
  ofText.append(text);
  JSON::Hash ofValue;
  JSON::write(value, JSON::Slashes::escaped, ofValue);
  require(ofText.value() == ofValue.value());
}

/// The reader of users' files takes what this one takes, but for a byte-order mark and what the
/// innermost container may hold.
void checkOtherReader(std::string_view text) {
  const auto openings = std::ranges::count(text, '[') + std::ranges::count(text, '{');
  if (text.starts_with(byteOrderMark) || openings >= std::ptrdiff_t{deepestNesting}) return;
  require(bool(CorvaneControl::OrderedJSON::parse(text)));
}

}  // namespace

/// Any bytes are refused at a place that they have, or give a document whose strings lie within
/// them and which survives writing and reading; leaving a member out changes nothing else.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  std::vector<char> source(input.text().begin(), input.text().end());
  std::vector<char> other = source;
  JSON::SyntaxError error;
  const auto document = JSON::Document::parse(source, {}, &error);
  const auto shorter = JSON::Document::parse(other, unused);
  require(document.has_value() == shorter.has_value());
  if (!document) {
    require(error.offset <= size && !error.reason.empty());
    return 0;
  }
  Check({source.data(), source.size()}).value(document->root());
  const std::string text = written(document->root());
  checkWriting(document->root(), text);
  require(written(document->root(), unused) == written(shorter->root()));
  checkOtherReader(input.text());
  return 0;
}
