#include "CorvaneControl/OrderedJSON.h"

#include <algorithm>
#include <cstddef>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {
namespace {

/// How deep containers nest; a value inside the innermost of them would be one too deep.
constexpr int deepestNesting = 512;
constexpr std::string_view ordinaryIndentation = "  ";

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

std::optional<unsigned> hexadecimalDigit(char byte) {
  if (isDigit(byte)) return static_cast<unsigned>(byte - '0');
  if (byte >= 'a' && byte <= 'f') return static_cast<unsigned>(byte - 'a' + 10);
  if (byte >= 'A' && byte <= 'F') return static_cast<unsigned>(byte - 'A' + 10);
  return std::nullopt;
}

bool isHighSurrogate(unsigned unit) { return (unit & 0xFC00U) == 0xD800U; }
bool isLowSurrogate(unsigned unit) { return (unit & 0xFC00U) == 0xDC00U; }

void appendUTF8(std::string& text, unsigned scalar) {
  const auto append = [&text](unsigned byte) { text.push_back(static_cast<char>(byte)); };
  const auto continuation = [&](unsigned shift) { append(0x80U | ((scalar >> shift) & 0x3FU)); };
  if (scalar < 0x80) {
    append(scalar);
  } else if (scalar < 0x800) {
    append(0xC0U | (scalar >> 6U));
    continuation(0);
  } else if (scalar < 0x10000) {
    append(0xE0U | (scalar >> 12U));
    continuation(6);
    continuation(0);
  } else {
    append(0xF0U | (scalar >> 18U));
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

/// A cursor over the text that only moves forward. Each reader leaves it behind what it read, or
/// says false and leaves it at the byte that is wrong, which is where the error's line comes from.
class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  Result<OrderedJSON, OrderedJSON::SyntaxError> document() {
    OrderedJSON root;
    skipWhitespace();
    if (!readValue(root, 0)) return error();
    skipWhitespace();
    if (index_ != text_.size()) return error();
    return root;
  }

 private:
  OrderedJSON::SyntaxError error() const {
    return {.line = 1 + std::ranges::count(text_.substr(0, index_), '\n')};
  }

  /// NUL at the end: no token has one, so it fails there like every other wrong byte.
  char current() const { return index_ < text_.size() ? text_[index_] : '\0'; }

  bool skip(char expected) {
    if (current() != expected) return false;
    ++index_;
    return true;
  }

  bool skip(std::string_view literal) {
    if (!text_.substr(index_).starts_with(literal)) return false;
    index_ += literal.size();
    return true;
  }

  void skipWhitespace() {
    while (current() == ' ' || current() == '\t' || current() == '\n' || current() == '\r') {
      ++index_;
    }
  }

  bool readValue(OrderedJSON& value, int depth) {
    if (depth >= deepestNesting) return false;
    switch (current()) {
      case '{':
        return readObject(value, depth);
      case '[':
        return readArray(value, depth);
      case '"':
        return readStringValue(value);
      case 't':
        value = OrderedJSON(true);
        return skip("true");
      case 'f':
        value = OrderedJSON(false);
        return skip("false");
      case 'n':
        value = OrderedJSON();
        return skip("null");
      default:
        return readNumber(value);
    }
  }

  bool readObject(OrderedJSON& value, int depth) {
    OrderedJSON::Object members;
    if (!readList('}', [&] { return readMember(members.emplace_back(), depth); })) return false;
    value = OrderedJSON(std::move(members));
    return true;
  }

  bool readArray(OrderedJSON& value, int depth) {
    OrderedJSON::Array elements;
    if (!readList(']', [&] { return readValue(elements.emplace_back(), depth + 1); })) return false;
    value = OrderedJSON(std::move(elements));
    return true;
  }

  /// Reads from the opening bracket to `closing`, with commas between the items.
  template <class ReadItem>
  bool readList(char closing, ReadItem readItem) {
    ++index_;
    skipWhitespace();
    if (skip(closing)) return true;
    while (true) {
      if (!readItem()) return false;
      skipWhitespace();
      if (skip(closing)) return true;
      if (!skip(',')) return false;
      skipWhitespace();
    }
  }

  bool readMember(OrderedJSON::Member& member, int depth) {
    if (!readString(member.key)) return false;
    skipWhitespace();
    if (!skip(':')) return false;
    skipWhitespace();
    return readValue(member.value, depth + 1);
  }

  bool readStringValue(OrderedJSON& value) {
    std::string string;
    if (!readString(string)) return false;
    value = OrderedJSON(std::move(string));
    return true;
  }

  bool readString(std::string& string) {
    if (!skip('"')) return false;
    while (true) {
      appendPlainBytes(string);
      if (skip('"')) break;
      if (!skip('\\')) return false;
      if (!readEscape(string)) return false;
    }
    string = Text::repaired(std::move(string));
    return true;
  }

  /// Everything up to the next quotation mark, backslash or control character.
  void appendPlainBytes(std::string& string) {
    const std::size_t start = index_;
    while (index_ < text_.size() && static_cast<unsigned char>(text_[index_]) > 0x1F &&
           text_[index_] != '"' && text_[index_] != '\\') {
      ++index_;
    }
    string.append(text_.substr(start, index_ - start));
  }

  bool readEscape(std::string& string) {
    constexpr std::string_view letters = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    if (skip('u')) return readUnicodeEscape(string);
    const std::size_t which = letters.find(current());
    if (which == std::string_view::npos) return false;
    string.push_back(meanings[which]);
    ++index_;
    return true;
  }

  bool readUnicodeEscape(std::string& string) {
    const std::optional<unsigned> first = readFourHexadecimals();
    if (!first || isLowSurrogate(*first)) return false;
    if (!isHighSurrogate(*first)) {
      appendUTF8(string, *first);
      return true;
    }
    if (!skip("\\u")) return false;
    const std::optional<unsigned> second = readFourHexadecimals();
    if (!second || !isLowSurrogate(*second)) return false;
    appendUTF8(string, 0x10000U + ((*first - 0xD800U) << 10U) + (*second - 0xDC00U));
    return true;
  }

  /// Four characters, the first of which may be a sign: what a general reader of integers takes,
  /// and what files in use may therefore hold.
  std::optional<unsigned> readFourHexadecimals() {
    constexpr std::size_t count = 4;
    std::string_view digits = text_.substr(index_, count);
    if (digits.size() < count) return std::nullopt;
    const char sign = digits.front() == '+' || digits.front() == '-' ? digits.front() : '\0';
    if (sign != '\0') digits.remove_prefix(1);
    unsigned value = 0;
    for (const char byte : digits) {
      const std::optional<unsigned> digit = hexadecimalDigit(byte);
      if (!digit) return std::nullopt;
      value = value * 16 + *digit;
    }
    if (sign == '-' && value != 0) return std::nullopt;
    index_ += count;
    return value;
  }

  bool readNumber(OrderedJSON& value) {
    const std::size_t start = index_;
    skip('-');
    if (!skip('0') && !skipDigits()) return false;
    if (skip('.') && !skipDigits()) return false;
    if (skip('e') || skip('E')) {
      if (!skip('+')) skip('-');
      if (!skipDigits()) return false;
    }
    value = OrderedJSON(OrderedJSON::Number{std::string(text_.substr(start, index_ - start))});
    return true;
  }

  /// One digit or more.
  bool skipDigits() {
    const std::size_t start = index_;
    while (isDigit(current())) ++index_;
    return index_ > start;
  }

  std::string_view text_;
  std::size_t index_ = 0;
};

class Writer {
 public:
  explicit Writer(std::string_view indent) : indent_(indent) {}

  void write(const OrderedJSON& value, std::size_t level) {
    if (const auto* members = value.object()) {
      writeList('{', '}', *members, level, [&](const OrderedJSON::Member& member) {
        writeString(member.key);
        text += ": ";
        write(member.value, level + 1);
      });
    } else if (const auto* elements = value.array()) {
      writeList('[', ']', *elements, level,
                [&](const OrderedJSON& element) { write(element, level + 1); });
    } else if (const auto* string = value.string()) {
      writeString(*string);
    } else if (const auto* number = value.number()) {
      text += number->text;
    } else if (const auto* boolean = value.boolean()) {
      text += *boolean ? "true" : "false";
    } else {
      text += "null";
    }
  }

  std::string text{};

 private:
  template <class Items, class WriteItem>
  void writeList(char opening, char closing, const Items& items, std::size_t level,
                 WriteItem writeItem) {
    text += opening;
    for (std::size_t index = 0; index < items.size(); ++index) {
      text += index == 0 ? "\n" : ",\n";
      writeIndentation(level + 1);
      writeItem(items[index]);
    }
    if (!items.empty()) {
      text += '\n';
      writeIndentation(level);
    }
    text += closing;
  }

  void writeIndentation(std::size_t level) {
    for (std::size_t count = 0; count < level; ++count) text += indent_;
  }

  void writeString(std::string_view string) {
    text += '"';
    std::size_t plain = 0;  // where the bytes begin that are not yet written
    for (std::size_t index = 0; index < string.size(); ++index) {
      const char byte = string[index];
      if (byte != '"' && byte != '\\' && static_cast<unsigned char>(byte) > 0x1F) continue;
      text += string.substr(plain, index - plain);
      writeEscaped(byte);
      plain = index + 1;
    }
    text += string.substr(plain);
    text += '"';
  }

  void writeEscaped(char byte) {
    constexpr std::string_view bytes = "\"\\\b\t\n\f\r";
    constexpr std::string_view letters = "\"\\btnfr";
    constexpr std::string_view digits = "0123456789abcdef";
    const std::size_t which = bytes.find(byte);
    if (which != std::string_view::npos) {
      text += '\\';
      text += letters[which];
      return;
    }
    const auto value = static_cast<unsigned char>(byte);
    text += "\\u00";
    text += digits[value >> 4U];
    text += digits[value & 0xFU];
  }

  std::string_view indent_;
};

bool isASCII(std::string_view text) {
  return std::ranges::all_of(text,
                             [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

/// Whether two keys are the same text; different ASCII texts never are, which settles nearly all.
bool sameKey(std::string_view left, std::string_view right) {
  if (left == right) return true;
  if (isASCII(left) && isASCII(right)) return false;
  return Text::canonicallyEqual(left, right);
}

/// The last member with that key; the end when there is none.
OrderedJSON::Object::const_iterator findMember(const OrderedJSON::Object& members,
                                               std::string_view key) {
  const auto found =
      std::find_if(members.rbegin(), members.rend(),
                   [&](const OrderedJSON::Member& member) { return sameKey(member.key, key); });
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
OrderedJSON::OrderedJSON(Number number) : value_(std::move(number)) {}
OrderedJSON::OrderedJSON(std::string string) : value_(std::move(string)) {}
OrderedJSON::OrderedJSON(Array elements) : value_(std::move(elements)) {}
OrderedJSON::OrderedJSON(Object members) : value_(std::move(members)) {}

Result<OrderedJSON, OrderedJSON::SyntaxError> OrderedJSON::parse(std::string_view text) {
  return Parser(text).document();
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
    if (value) members->push_back({std::string(key), *std::move(value)});
  } else if (value) {
    (*members)[static_cast<std::size_t>(member - members->begin())].value = *std::move(value);
  } else {
    members->erase(member);
  }
}

std::string OrderedJSON::text(std::string_view indent) const {
  Writer writer(indent);
  writer.write(*this, 0);
  return std::move(writer.text);
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
