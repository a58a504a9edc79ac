#include "CorvaneControl/Platform/JSON.h"

#include <algorithm>
#include <array>
#include <bit>
#include <boost/core/detail/string_view.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/system/error_code.hpp>
#include <charconv>
#include <cmath>
#include <cstring>

#include "CorvaneControl/Platform/System.h"

namespace CorvaneControl::JSON {

namespace {

constexpr std::size_t deepestNesting = 512;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

}  // namespace

Value Value::ofBoolean(bool value) { return {Type::boolean, {.boolean = value}}; }

Value Value::ofInteger(std::int64_t value) { return {Type::integer, {.integer = value}}; }

Value Value::ofUnsignedInteger(std::uint64_t value) {
  return {Type::unsignedInteger, {.unsignedInteger = value}};
}

Value Value::ofReal(double value) { return {Type::real, {.real = value}}; }

Value Value::ofString(std::string_view text) {
  return {Type::string, {.text = text.data()}, text.size()};
}

Value Value::ofArray(std::span<const Value> elements) {
  return {Type::array, {.elements = elements.data()}, elements.size()};
}

Value Value::ofObject(std::span<const Member> members) {
  return {Type::object, {.members = members.data()}, members.size()};
}

std::optional<std::string_view> Value::asString() const {
  if (type_ != Type::string) return std::nullopt;
  return std::string_view(scalar_.text, size_);
}

std::optional<bool> Value::asBoolean() const {
  if (type_ != Type::boolean) return std::nullopt;
  return scalar_.boolean;
}

std::optional<std::int64_t> Value::asInteger() const {
  if (type_ == Type::integer) return scalar_.integer;
  if (type_ != Type::real) return std::nullopt;
  const double value = scalar_.real;
  // 2^63: a double there may stand for a number that is out of range, at either end.
  constexpr double limit = 9223372036854775808.0;
  if (!(value > -limit && value < limit) || std::trunc(value) != value) return std::nullopt;
  return static_cast<std::int64_t>(value);
}

double Value::asReal() const {
  if (type_ == Type::real) return scalar_.real;
  if (type_ == Type::integer) return static_cast<double>(scalar_.integer);
  if (type_ == Type::unsignedInteger) return static_cast<double>(scalar_.unsignedInteger);
  return 0;
}

std::span<const Value> Value::elements() const {
  if (type_ != Type::array) return {};
  return {scalar_.elements, size_};
}

std::span<const Member> Value::members() const {
  if (type_ != Type::object) return {};
  return {scalar_.members, size_};
}

const Value* Value::find(std::string_view key) const {
  const auto all = members();
  const auto found = std::ranges::lower_bound(all, key, {}, &Member::key);
  return found != all.end() && found->key == key ? &found->value : nullptr;
}

std::optional<std::string_view> Value::string(std::string_view key) const {
  const Value* const value = find(key);
  return value ? value->asString() : std::nullopt;
}

const Value* Value::object(std::string_view key) const {
  const Value* const value = find(key);
  return value && value->isObject() ? value : nullptr;
}

const Value* Value::array(std::string_view key) const {
  const Value* const value = find(key);
  return value && value->isArray() ? value : nullptr;
}

/// Builds a document's tree from what the parser reports.
///
/// The parser hands out strings in pieces: views into the source up to the first escape, then what
/// it has resolved, from a buffer of its own. A string without escapes stays where it is. Of the
/// others the resolved pieces are put together in the source itself, behind the last string that is
/// kept (`kept_`): what is resolved is never longer than what it was resolved from, and the parser
/// has read past that.
class DocumentBuilder {
 public:
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

  using Error = boost::system::error_code;
  using Text = boost::core::string_view;

  DocumentBuilder(std::span<char> source, std::string_view unused)
      : source_(source), kept_(source.data()), unused_(unused) {
    values_.reserve(expectedValues);
    keys_.reserve(expectedValues);
  }

  Document document() {
    Document document;
    document.root_ = values_.back();
    document.blocks_ = std::move(blocks_);
    return document;
  }

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_comment_part(Text, Error&) { return true; }
  bool on_comment(Text, Error&) { return true; }

  bool on_object_begin(Error&) { return enter(); }
  bool on_array_begin(Error&) { return enter(); }

  bool on_object_end(std::size_t count, Error&) {
    leave();
    if (skipping()) return skipped();
    if (depth_ == 0) count = keys_.size();  // without those that were not kept
    const auto members = allocate<Member>(count);
    const auto firstKey = keys_.end() - static_cast<std::ptrdiff_t>(count);
    const auto firstValue = values_.end() - static_cast<std::ptrdiff_t>(count);
    for (std::size_t index = 0; index < count; ++index) {
      const auto at = static_cast<std::ptrdiff_t>(index);
      members[index] = {firstKey[at], firstValue[at]};
    }
    keys_.erase(firstKey, keys_.end());
    values_.erase(firstValue, values_.end());
    values_.push_back(Value::ofObject(sortedWithoutDuplicates(members)));
    return true;
  }

  bool on_array_end(std::size_t count, Error&) {
    leave();
    if (skipping()) return skipped();
    const auto elements = allocate<Value>(count);
    const auto first = values_.end() - static_cast<std::ptrdiff_t>(count);
    std::copy(first, values_.end(), elements.begin());
    values_.erase(first, values_.end());
    values_.push_back(Value::ofArray(elements));
    return true;
  }

  bool on_key_part(Text piece, std::size_t, Error&) { return skipping() || add(piece); }
  bool on_key(Text piece, std::size_t, Error&) {
    if (skipping()) return true;
    add(piece);
    const std::string_view key = takeString();
    if (depth_ == 1 && !unused_.empty() && key == unused_) {
      skippingBelow_ = depth_;
    } else {
      keys_.push_back(key);
    }
    return true;
  }

  bool on_string_part(Text piece, std::size_t, Error&) { return skipping() || add(piece); }
  bool on_string(Text piece, std::size_t, Error&) {
    if (skipping()) return skipped();
    add(piece);
    values_.push_back(Value::ofString(takeString()));
    return true;
  }

  bool on_number_part(Text, Error&) { return true; }
  bool on_int64(std::int64_t value, Text text, Error&) {
    if (value == 0 && text.starts_with('-'))
      return add(Value::ofReal(-0.0));  // no integer has that
    return add(Value::ofInteger(value));
  }
  bool on_uint64(std::uint64_t value, Text, Error&) { return add(Value::ofUnsignedInteger(value)); }
  bool on_double(double value, Text text, Error& error) {
    // The parser's own conversion may be off by a unit in the last place.
    const auto exact = System::readDouble(text);
    if (exact) return add(Value::ofReal(*exact));
    if (std::abs(value) < 1) return add(Value::ofReal(0));  // too small to be told from zero
    error = boost::json::error::exponent_overflow;
    return false;
  }
  bool on_bool(bool value, Error&) { return add(Value::ofBoolean(value)); }
  bool on_null(Error&) { return add(Value()); }

 private:
  static constexpr std::size_t expectedValues = 32;
  static constexpr std::size_t firstBlock = 2048;       // bytes
  static constexpr std::size_t largestBlock = 1 << 20;  // bytes
  static constexpr std::size_t notSkipping = static_cast<std::size_t>(-1);

  bool enter() {
    ++depth_;
    return true;
  }
  void leave() { --depth_; }

  bool skipping() const { return skippingBelow_ != notSkipping; }
  bool skipped() {
    if (depth_ == skippingBelow_) skippingBelow_ = notSkipping;
    return true;
  }

  bool add(const Value& value) {
    if (skipping()) return skipped();
    values_.push_back(value);
    return true;
  }

  bool add(Text piece) {
    const bool inSource =
        piece.data() >= source_.data() && piece.data() < source_.data() + source_.size();
    if (!string_) string_ = inSource ? source_.data() + (piece.data() - source_.data()) : kept_;
    if (piece.data() != string_ + size_) std::memmove(string_ + size_, piece.data(), piece.size());
    size_ += piece.size();
    return true;
  }

  std::string_view takeString() {
    const std::string_view string(string_, size_);
    kept_ = string_ + size_;
    string_ = nullptr;
    size_ = 0;
    return string;
  }

  template <class Item>
  std::span<Item> allocate(std::size_t count) {
    const std::size_t bytes = count * sizeof(Item);
    if (bytes > available_) {
      const std::size_t grown =
          std::min(firstBlock << std::min<std::size_t>(blocks_.size(), 9), largestBlock);
      available_ = std::max(bytes, grown);
      blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(available_));
      next_ = blocks_.back().get();
    }
    Item* const items = reinterpret_cast<Item*>(next_);
    std::uninitialized_default_construct_n(items, count);
    next_ += bytes;
    available_ -= bytes;
    return {items, count};
  }

  static std::span<Member> sortedWithoutDuplicates(std::span<Member> members) {
    const auto ordered =
        std::ranges::adjacent_find(members, [](const auto& left, const auto& right) {
          return left.key >= right.key;
        }) == members.end();
    if (ordered) return members;
    std::ranges::stable_sort(members, {}, &Member::key);
    std::size_t count = 0;
    for (const Member& member : members) {
      if (count > 0 && members[count - 1].key == member.key) --count;
      members[count++] = member;
    }
    return members.first(count);
  }

  std::span<char> source_;
  char* kept_;  // the end of the last string that is kept
  std::string_view unused_;
  char* string_ = nullptr;  // the string being read
  std::size_t size_ = 0;
  std::size_t depth_ = 0;
  std::size_t skippingBelow_ = notSkipping;
  std::vector<Value> values_{};
  std::vector<std::string_view> keys_{};
  std::vector<std::unique_ptr<std::byte[]>> blocks_{};
  std::byte* next_ = nullptr;
  std::size_t available_ = 0;
};

std::optional<Document> Document::parse(std::span<char> text, std::string_view unused,
                                        SyntaxError* error) {
  std::span<char> json = text;
  if (std::string_view(text.data(), text.size()).starts_with(byteOrderMark)) {
    json = text.subspan(byteOrderMark.size());
  }
  boost::json::parse_options options;
  options.max_depth = deepestNesting;
  boost::json::basic_parser<DocumentBuilder> parser(options, json, unused);
  boost::system::error_code code;
  const std::size_t read = parser.write_some(false, json.data(), json.size(), code);
  if (!code && read < json.size()) code = boost::json::error::extra_data;
  if (!code) return parser.handler().document();
  if (error) {
    error->offset = read + (text.size() - json.size());
    error->reason = code.message();
  }
  return std::nullopt;
}

namespace {

/// What a byte is written as inside a string: itself (0), a short escape (its letter), or \u00xx.
constexpr char asHexadecimal = 'u';
constexpr auto escapes = [] {
  std::array<char, 256> table{};
  for (std::size_t control = 0; control < 0x20; ++control) table[control] = asHexadecimal;
  table['\b'] = 'b';
  table['\f'] = 'f';
  table['\n'] = 'n';
  table['\r'] = 'r';
  table['\t'] = 't';
  table['"'] = '"';
  table['\\'] = '\\';
  table['/'] = '/';
  return table;
}();

constexpr bool isEscaped(char byte, Slashes slashes) {
  return escapes[static_cast<unsigned char>(byte)] != 0 &&
         (byte != '/' || slashes == Slashes::escaped);
}

/// The first byte that is written as an escape, or `end`; looks at eight bytes at once.
inline const char* firstEscaped(const char* next, const char* end, Slashes slashes) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t high = 0x8080808080808080;
  for (; end - next >= 8; next += 8) {
    std::uint64_t word;
    std::memcpy(&word, next, sizeof word);
    // The high bit of a byte of these tells that it is below, or equal to, what is asked for. A
    // borrow may set it wrongly only above a byte where it is right, which decides.
    const auto equal = [&](char byte) {
      const std::uint64_t difference = word ^ (ones * static_cast<unsigned char>(byte));
      return (difference - ones) & ~difference;
    };
    std::uint64_t found = ((word - ones * 0x20) & ~word) | equal('"') | equal('\\');
    if (slashes == Slashes::escaped) found |= equal('/');
    found &= high;
    if (found == 0) continue;
    if constexpr (std::endian::native == std::endian::little) {
      return next + std::countr_zero(found) / 8;
    } else {
      break;
    }
  }
  while (next != end && !isEscaped(*next, slashes)) ++next;
  return next;
}

/// Hands `string` between quotation marks to `append`, in as few pieces as there are escapes.
template <class Append>
void quote(std::string_view string, Slashes slashes, const Append& append) {
  append("\"");
  const char* next = string.data();
  const char* const end = string.data() + string.size();
  for (;;) {
    const char* const piece = next;
    next = firstEscaped(next, end, slashes);
    if (next != piece) append(std::string_view(piece, static_cast<std::size_t>(next - piece)));
    if (next == end) break;
    const auto byte = static_cast<unsigned char>(*next++);
    if (escapes[byte] == asHexadecimal) {
      constexpr std::string_view digits = "0123456789abcdef";
      const char text[] = {'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 15]};
      append(std::string_view(text, sizeof text));
    } else {
      const char text[] = {'\\', escapes[byte]};
      append(std::string_view(text, sizeof text));
    }
  }
  append("\"");
}

template <class Number, class Append>
void number(Number value, const Append& append) {
  std::array<char, 32> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  append(std::string_view(text.data(), static_cast<std::size_t>(end - text.data())));
}

/// Recurses as deep as the value nests, which the parser bounds.
template <class Append>
void serialise(const Value& value, Slashes slashes, const Append& append) {
  switch (value.type()) {
    case Value::Type::null:
      return append("null");
    case Value::Type::boolean:
      return append(*value.asBoolean() ? "true" : "false");
    case Value::Type::integer:
      return number(*value.asInteger(), append);
    case Value::Type::unsignedInteger:
      return number(value.asUnsigned(), append);
    case Value::Type::real:
      return number(value.asReal(), append);
    case Value::Type::string:
      return quote(*value.asString(), slashes, append);
    case Value::Type::array: {
      std::string_view separator = "[";
      for (const Value& element : value.elements()) {
        append(separator);
        serialise(element, slashes, append);
        separator = ",";
      }
      return append(value.elements().empty() ? "[]" : "]");
    }
    case Value::Type::object: {
      std::string_view separator = "{";
      for (const Member& member : value.members()) {
        append(separator);
        quote(member.key, slashes, append);
        append(":");
        serialise(member.value, slashes, append);
        separator = ",";
      }
      return append(value.members().empty() ? "{}" : "}");
    }
  }
}

}  // namespace

void write(const Value& value, Slashes slashes, Sink& sink) {
  serialise(value, slashes, [&](std::string_view piece) { sink.append(piece); });
}

void write(const Value& value, Slashes slashes, std::string& text) {
  serialise(value, slashes, [&](std::string_view piece) { text.append(piece); });
}

void writeString(std::string_view string, Slashes slashes, std::string& text) {
  quote(string, slashes, [&](std::string_view piece) { text.append(piece); });
}

void writeInteger(std::int64_t integer, std::string& text) {
  number(integer, [&](std::string_view piece) { text.append(piece); });
}

}  // namespace CorvaneControl::JSON
