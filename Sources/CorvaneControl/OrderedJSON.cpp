#include "CorvaneControl/OrderedJSON.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "CorvaneControl/JSONStrings.h"
#include "CorvaneControl/JSONTokens.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {

/// Builds the tree. Values lie in `pending_` until their container ends, in an object each behind
/// its key; then they move to where there is room for just as many.
class OrderedJSONBuilder {
 public:
  static constexpr bool keepsStrings = true;
  static constexpr bool skipsMembers = false;

  explicit OrderedJSONBuilder(std::string_view text) : text_(text) {}

  OrderedJSON root() { return std::move(pending_.front()); }

  void beginObject() { starts_.push_back(pending_.size()); }
  void beginArray() { starts_.push_back(pending_.size()); }

  void endObject() {
    const auto first = firstOfContainer();
    OrderedJSON::Object members;
    members.reserve(static_cast<std::size_t>(pending_.end() - first) / 2);
    for (auto key = first; key != pending_.end(); key += 2) {
      members.push_back(OrderedJSON::Member(std::move(key[0]), std::move(key[1])));
    }
    end(first, OrderedJSON(std::move(members)));
  }

  void endArray() {
    const auto first = firstOfContainer();
    OrderedJSON::Array elements(std::make_move_iterator(first),
                                std::make_move_iterator(pending_.end()));
    end(first, OrderedJSON(std::move(elements)));
  }

  bool key(std::string_view key) {
    string(key);
    return true;
  }
  void string(std::string_view string) { pending_.emplace_back(string); }
  bool number(const JSON::NumberToken& number) {
    pending_.emplace_back(OrderedJSON::Number{number.text});
    return true;
  }
  void boolean(bool boolean) { pending_.emplace_back(boolean); }
  void null() { pending_.emplace_back(); }

  char* resolve(std::string_view characters) {
    if (!resolved_) {
      const auto offset = static_cast<std::size_t>(characters.data() - text_.data());
      resolved_ = std::make_unique_for_overwrite<char[]>(text_.size() - offset);
    }
    std::ranges::copy(characters, resolved_.get());
    return resolved_.get() + characters.size();
  }

  std::string_view repaired(std::string_view string) {
    repaired_ = Text::repaired(std::string(string));
    return repaired_;
  }

 private:
  // Grows without a copy, and gives back its memory as it shrinks.
  using Pending = std::deque<OrderedJSON>;

  Pending::iterator firstOfContainer() {
    return pending_.begin() + static_cast<std::ptrdiff_t>(starts_.back());
  }

  void end(Pending::iterator first, OrderedJSON container) {
    starts_.pop_back();
    pending_.erase(first, pending_.end());
    pending_.push_back(std::move(container));
  }

  std::string_view text_;
  Pending pending_{};
  std::vector<std::size_t> starts_{};  // of the open containers in `pending_`
  std::unique_ptr<char[]> resolved_{};
  std::string repaired_{};
};

namespace {

constexpr std::string_view ordinaryIndentation = "  ";

/// Where in a value of eight bytes the text of a short one begins: the lowest byte is taken.
constexpr std::size_t shortTextAt = std::endian::native == std::endian::little ? 1 : 0;
constexpr std::size_t longestShortText = 7;
constexpr unsigned tagBits = 3;
constexpr std::uint64_t tagMask = 7;

/// Counts the bytes of what is written.
struct SizeOutput {
  void operator()(char) const { ++size; }
  void operator()(std::string_view piece) const { size += piece.size(); }

  std::size_t& size;
};

/// Writes a value to `output`, which takes it piece by piece and byte by byte.
template <class Output>
class Writer {
 public:
  Writer(std::string_view indent, Output output) : indent_(indent), output_(output) {}

  void write(const OrderedJSON& value, std::size_t level) const {
    if (const auto* members = value.object()) {
      writeList('{', '}', *members, level, [&](const OrderedJSON::Member& member) {
        JSON::quote(member.key(), JSON::Slashes::plain, output_);
        output_(std::string_view(": "));
        write(member.value, level + 1);
      });
    } else if (const auto* elements = value.array()) {
      writeList('[', ']', *elements, level,
                [&](const OrderedJSON& element) { write(element, level + 1); });
    } else if (const auto string = value.string()) {
      JSON::quote(*string, JSON::Slashes::plain, output_);
    } else if (const auto number = value.number()) {
      output_(*number);
    } else if (const auto boolean = value.boolean()) {
      output_(std::string_view(*boolean ? "true" : "false"));
    } else {
      output_(std::string_view("null"));
    }
  }

 private:
  template <class Items, class WriteItem>
  void writeList(char opening, char closing, const Items& items, std::size_t level,
                 WriteItem writeItem) const {
    output_(opening);
    std::string_view separator = "\n";
    for (const auto& item : items) {
      output_(separator);
      writeIndentation(level + 1);
      writeItem(item);
      separator = ",\n";
    }
    if (!items.empty()) {
      output_('\n');
      writeIndentation(level);
    }
    output_(closing);
  }

  void writeIndentation(std::size_t level) const {
    for (std::size_t count = 0; count < level; ++count) output_(indent_);
  }

  std::string_view indent_;
  Output output_;
};

/// The last member with that key; the end when there is none.
OrderedJSON::Object::const_iterator findMember(const OrderedJSON::Object& members,
                                               std::string_view key) {
  const auto found = std::find_if(
      members.rbegin(), members.rend(),
      [&](const OrderedJSON::Member& member) { return Text::canonicallyEqual(member.key(), key); });
  return found == members.rend() ? members.end() : found.base() - 1;
}

/// The end of the line that begins at `start`: its line feed, or the end of the text. In CR LF the
/// line feed is half of one character and ends no line.
std::size_t endOfLine(std::string_view text, std::size_t start) {
  std::size_t end = text.find('\n', start);
  while (end != std::string_view::npos && end > 0 && text[end - 1] == '\r') {
    end = text.find('\n', end + 1);
  }
  return std::min(end, text.size());
}

}  // namespace

// Not in the class, where a member is still an incomplete type.
OrderedJSON::OrderedJSON(Number number) { setText(number.text, Tag::shortNumber, Tag::number); }
OrderedJSON::OrderedJSON(std::string_view string) {
  setText(string, Tag::shortString, Tag::string);
}
OrderedJSON::OrderedJSON(Array elements) {
  own(elements.empty() ? nullptr : new Array(std::move(elements)), Tag::array);
}
OrderedJSON::OrderedJSON(Object members) {
  own(members.empty() ? nullptr : new Object(std::move(members)), Tag::object);
}

OrderedJSON::OrderedJSON(const OrderedJSON& other) {
  if (const Array* const elements = other.array()) {
    *this = OrderedJSON(Array(*elements));
  } else if (const Object* const members = other.object()) {
    *this = OrderedJSON(Object(*members));
  } else if (other.tag() >= Tag::string) {
    setText(other.longText(), other.tag(), other.tag());
  } else {
    word_ = other.word_;
  }
}

bool OrderedJSON::operator==(const OrderedJSON& other) const {
  if (tag() != other.tag()) return false;
  if (word_ == other.word_) return true;
  if (const Array* const elements = array()) return *elements == *other.array();
  if (const Object* const members = object()) return *members == *other.object();
  return tag() >= Tag::string && longText() == other.longText();
}

/// A long text is its size, and behind that its bytes.
void OrderedJSON::setText(std::string_view text, Tag shortTag, Tag longTag) {
  if (text.size() <= longestShortText) {
    word_ = text.size() << tagBits | static_cast<std::uint64_t>(shortTag);
    text.copy(reinterpret_cast<char*>(&word_) + shortTextAt, text.size());
    return;
  }
  const std::size_t size = text.size();
  void* const memory = ::operator new(sizeof size + size);
  std::memcpy(memory, &size, sizeof size);
  text.copy(static_cast<char*>(memory) + sizeof size, size);
  own(memory, longTag);
}

std::string_view OrderedJSON::shortText() const {
  return {reinterpret_cast<const char*>(&word_) + shortTextAt, (word_ & 0xFF) >> tagBits};
}

std::string_view OrderedJSON::longText() const {
  const char* const memory = owned<const char>();
  std::size_t size = 0;
  std::memcpy(&size, memory, sizeof size);
  return {memory + sizeof size, size};
}

template <class Owned>
Owned* OrderedJSON::owned() const {
  return reinterpret_cast<Owned*>(static_cast<std::uintptr_t>(word_ & ~tagMask));
}

void OrderedJSON::own(const void* owned, Tag tag) {
  word_ = reinterpret_cast<std::uintptr_t>(owned) | static_cast<std::uint64_t>(tag);
}

void OrderedJSON::release() {
  if (tag() == Tag::array) {
    delete owned<Array>();
  } else if (tag() == Tag::object) {
    delete owned<Object>();
  } else {
    ::operator delete(owned<void>());
  }
}

std::optional<bool> OrderedJSON::boolean() const {
  if (tag() != Tag::boolean) return std::nullopt;
  return (word_ & truth) != 0;
}

std::optional<std::string_view> OrderedJSON::number() const {
  if (tag() == Tag::shortNumber) return shortText();
  if (tag() == Tag::number) return longText();
  return std::nullopt;
}

std::optional<std::string_view> OrderedJSON::string() const {
  if (tag() == Tag::shortString) return shortText();
  if (tag() == Tag::string) return longText();
  return std::nullopt;
}

template <class List>
const List* OrderedJSON::list(Tag expected) const {
  static const List empty{};
  if (tag() != expected) return nullptr;
  const List* const items = owned<List>();
  return items != nullptr ? items : &empty;
}

template <class List>
List* OrderedJSON::list(Tag expected) {
  if (tag() != expected) return nullptr;
  if (owned<List>() == nullptr) own(new List(), expected);
  return owned<List>();
}

const OrderedJSON::Array* OrderedJSON::array() const { return list<Array>(Tag::array); }
const OrderedJSON::Object* OrderedJSON::object() const { return list<Object>(Tag::object); }
OrderedJSON::Array* OrderedJSON::array() { return list<Array>(Tag::array); }
OrderedJSON::Object* OrderedJSON::object() { return list<Object>(Tag::object); }

Result<OrderedJSON, OrderedJSON::SyntaxError> OrderedJSON::parse(std::string_view text) {
  OrderedJSONBuilder builder(text);
  JSON::Tokens<JSON::ofUsersFiles> tokens(text);
  if (tokens.readDocument(builder)) return builder.root();
  return SyntaxError{.line = 1 + std::ranges::count(text.substr(0, tokens.offset()), '\n')};
}

const OrderedJSON* OrderedJSON::find(std::string_view key) const {
  const Object* members = object();
  if (members == nullptr) return nullptr;
  const auto member = findMember(*members, key);
  return member == members->end() ? nullptr : &member->value;
}

OrderedJSON* OrderedJSON::find(std::string_view key) {
  return const_cast<OrderedJSON*>(std::as_const(*this).find(key));
}

void OrderedJSON::set(std::string_view key, std::optional<OrderedJSON> value) {
  Object* members = object();
  if (members == nullptr) return;
  const auto member = findMember(*members, key);
  if (member == members->end()) {
    if (value) members->push_back({key, *std::move(value)});
  } else if (value) {
    (*members)[static_cast<std::size_t>(member - members->begin())].value = *std::move(value);
  } else {
    members->erase(member);
  }
}

std::string OrderedJSON::text(std::string_view indent) const {
  std::size_t size = 1;  // what is written to a file gets a line feed
  Writer(indent, SizeOutput{size}).write(*this, 0);
  std::string text;
  text.reserve(size);
  Writer(indent, JSON::TextOutput{text}).write(*this, 0);
  return text;
}

std::string OrderedJSON::indentation(std::string_view of) {
  bool isFirst = true;
  for (std::size_t start = 0; start < of.size();) {
    const std::size_t end = endOfLine(of, start);
    const std::string_view line = of.substr(start, end - start);
    start = end + 1;
    if (line.empty()) continue;
    const std::size_t run = std::min(line.find_first_not_of(" \t"), line.size());
    if (!isFirst && run > 0) return std::string(line.substr(0, run));
    isFirst = false;
  }
  return std::string(ordinaryIndentation);
}

}  // namespace CorvaneControl
