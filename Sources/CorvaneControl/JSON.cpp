#include "CorvaneControl/JSON.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "CorvaneControl/JSONStrings.h"
#include "CorvaneControl/JSONTokens.h"
#include "CorvaneControl/Platform/System.h"

namespace CorvaneControl::JSON {

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
  constexpr std::size_t few = 32;  // where most keys are told apart by their lengths alone
  if (all.size() <= few) {
    const auto found = std::ranges::find(all, key, &Member::key);
    return found != all.end() ? &found->value : nullptr;
  }
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

namespace {

/// A stack of plain values which lies within the builder, and so on the program's own stack, until
/// it gets deep.
template <class Item, std::size_t inside>
class Stack {
 public:
  static_assert(std::is_trivially_copyable_v<Item>);

  Stack() = default;
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  std::size_t size() const { return size_; }
  Item* data() { return items_; }

  void push(const Item& item) {
    if (size_ == capacity_) grow();
    items_[size_++] = item;
  }
  void shrink(std::size_t size) { size_ = size; }

 private:
  void grow() {
    auto larger = std::make_unique_for_overwrite<std::byte[]>(2 * capacity_ * sizeof(Item));
    Item* const items = reinterpret_cast<Item*>(larger.get());
    std::uninitialized_copy_n(items_, size_, items);
    items_ = items;
    memory_ = std::move(larger);
    capacity_ *= 2;
  }

  alignas(Item) std::byte inside_[inside * sizeof(Item)];  // not cleared
  Item* items_ = reinterpret_cast<Item*>(inside_);
  std::size_t size_ = 0;
  std::size_t capacity_ = inside;
  std::unique_ptr<std::byte[]> memory_{};
};

/// Whether a number has a digit other than 0 and still is less than 1, as those are that a double
/// can't tell from zero. (Those that are beyond its range are the others.)
bool isBelowOne(std::string_view number) {
  constexpr std::int64_t farthest = 1'000'000'000'000;  // no text is so long
  const std::size_t exponentAt = std::min(number.find_first_of("eE"), number.size());
  const std::string_view digits = number.substr(0, exponentAt);
  const std::size_t first = digits.find_first_of("123456789");
  if (first == digits.npos) return false;
  const std::size_t point = std::min(digits.find('.'), digits.size());
  const auto places = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  std::int64_t exponent = 0;
  if (exponentAt < number.size()) {
    std::string_view text = number.substr(exponentAt + 1);
    if (text.starts_with('+')) text.remove_prefix(1);
    const auto read = std::from_chars(text.data(), text.data() + text.size(), exponent);
    if (read.ec != std::errc()) exponent = text.starts_with('-') ? -farthest : farthest;
  }
  return std::clamp(exponent, -farthest, farthest) + places <= 0;
}

/// The double that a number stands for, zero when it is too small to be told from that; absent when
/// it is out of range.
std::optional<double> realOf(std::string_view number) {
  const auto value = System::readDouble(number);
  if (!value && isBelowOne(number)) return 0;
  return value;
}

/// For members that are not kept: their numbers have to be in range all the same.
struct RangeChecking : Checking {
  bool number(const NumberToken& number) { return number.isWhole || realOf(number.text); }
};

}  // namespace

/// Builds a document's tree. Values are kept on a stack until their container ends, then copied to
/// their place. Below the values of a container lies one that holds that place: a number, which
/// says where those of the container around it begin.
class DocumentBuilder {
 public:
  static constexpr bool keepsStrings = true;
  static constexpr bool skipsMembers = true;
  using Skipping = RangeChecking;

  DocumentBuilder(std::span<char> source, std::string_view unused)
      : source_(source), unused_(unused) {}

  Document document() {
    Document document;
    document.root_ = *values_.data();
    document.blocks_ = std::move(blocks_);
    return document;
  }

  void beginObject() { begin(); }
  void beginArray() { begin(); }

  void endObject() {
    const std::size_t count = values_.size() - first_;
    const auto members = allocate<Member>(count);
    const std::string_view* const keys = keys_.data() + keys_.size() - count;
    const Value* const values = values_.data() + first_;
    for (std::size_t index = 0; index < count; ++index) {
      members[index] = {keys[index], values[index]};
    }
    keys_.shrink(keys_.size() - count);
    end(Value::ofObject(sortedWithoutDuplicates(members)));
  }

  void endArray() {
    const auto elements = allocate<Value>(values_.size() - first_);
    std::copy_n(values_.data() + first_, elements.size(), elements.begin());
    end(Value::ofArray(elements));
  }

  bool key(std::string_view key) {
    if (depth_ == 1 && !unused_.empty() && key == unused_) return false;
    keys_.push(key);
    return true;
  }

  void string(std::string_view string) { values_.push(Value::ofString(string)); }
  void boolean(bool boolean) { values_.push(Value::ofBoolean(boolean)); }
  void null() { values_.push(Value()); }

  bool number(const NumberToken& number) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!number.isWhole) return real(number.text);
    if (number.magnitude <= largest) {
      const auto integer = static_cast<std::int64_t>(number.magnitude);
      if (number.isNegative && integer == 0) {
        values_.push(Value::ofReal(-0.0));  // no integer has that
      } else {
        values_.push(Value::ofInteger(number.isNegative ? -integer : integer));
      }
      return true;
    }
    if (!number.isNegative) {
      values_.push(Value::ofUnsignedInteger(number.magnitude));
      return true;
    }
    if (number.magnitude != largest + 1) return real(number.text);
    values_.push(Value::ofInteger(std::numeric_limits<std::int64_t>::min()));
    return true;
  }

  /// Escapes are resolved where they stand.
  char* resolve(std::string_view characters) {
    return source_.data() + (characters.data() - source_.data()) + characters.size();
  }
  std::string_view repaired(std::string_view string) { return string; }

 private:
  static constexpr std::size_t expectedValues = 48;
  static constexpr std::size_t firstBlock = 1024;       // bytes
  static constexpr std::size_t largestBlock = 1 << 20;  // bytes

  void begin() {
    values_.push(Value::ofUnsignedInteger(first_));
    first_ = values_.size();
    ++depth_;
  }

  void end(const Value& container) {
    Value& place = values_.data()[first_ - 1];
    values_.shrink(first_);
    first_ = place.asUnsigned();
    place = container;
    --depth_;
  }

  bool real(std::string_view text) {
    const auto value = realOf(text);
    if (value) values_.push(Value::ofReal(*value));
    return value.has_value();
  }

  template <class Item>
  std::span<Item> allocate(std::size_t count) {
    const std::size_t bytes = count * sizeof(Item);
    if (bytes > available_) addBlock(bytes);
    Item* const items = reinterpret_cast<Item*>(next_);
    std::uninitialized_default_construct_n(items, count);
    next_ += bytes;
    available_ -= bytes;
    return {items, count};
  }

  /// The first block is large enough for the values of most texts, long ones included: theirs are
  /// long strings more often than many.
  void addBlock(std::size_t bytes) {
    nextBlock_ = blocks_ ? std::min(2 * nextBlock_, largestBlock) : firstBlock;
    available_ = std::max(bytes, nextBlock_);
    void* const memory = ::operator new(sizeof(Document::Block) + available_);
    auto* const block = new (memory) Document::Block{.previous = blocks_.release()};
    blocks_.reset(block);
    next_ = static_cast<std::byte*>(memory) + sizeof(Document::Block);
  }

  static std::span<Member> sortedWithoutDuplicates(std::span<Member> members) {
    const auto ordered =
        std::ranges::adjacent_find(members, [](const auto& left, const auto& right) {
          return left.key >= right.key;
        }) == members.end();
    if (ordered) return members;
    sort(members);
    std::size_t count = 0;
    for (const Member& member : members) {
      if (count > 0 && members[count - 1].key == member.key) --count;
      members[count++] = member;
    }
    return members.first(count);
  }

  /// Members of the same key stay in their order.
  static void sort(std::span<Member> members) {
    constexpr std::size_t few = 24;
    if (members.size() > few) {
      std::ranges::stable_sort(members, {}, &Member::key);
      return;
    }
    for (std::size_t index = 1; index < members.size(); ++index) {
      const Member member = members[index];
      std::size_t place = index;
      for (; place > 0 && member.key < members[place - 1].key; --place) {
        members[place] = members[place - 1];
      }
      members[place] = member;
    }
  }

  std::span<char> source_;
  std::string_view unused_;
  std::size_t depth_ = 0;
  std::size_t first_ = 0;  // where the values of the innermost container begin
  std::byte* next_ = nullptr;
  std::size_t available_ = 0;  // bytes
  std::size_t nextBlock_ = 0;  // bytes
  std::unique_ptr<Document::Block, Document::FreeBlocks> blocks_{};
  Stack<Value, expectedValues> values_{};
  Stack<std::string_view, expectedValues> keys_{};
};

void Document::FreeBlocks::operator()(Block* last) const noexcept {
  while (last != nullptr) ::operator delete(std::exchange(last, last->previous));
}

std::optional<Document> Document::parse(std::span<char> text, std::string_view unused,
                                        SyntaxError* error) {
  DocumentBuilder builder(text, unused);
  Tokens<ofTheWire> tokens({text.data(), text.size()});
  if (tokens.readDocument(builder)) return builder.document();
  if (error) *error = {.offset = tokens.offset(), .reason = std::string(tokens.reason())};
  return std::nullopt;
}

namespace {

template <class Output>
void writeDigits(std::integral auto value, const Output& output) {
  std::array<char, 24> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  output(std::string_view(text.data(), static_cast<std::size_t>(end - text.data())));
}

/// As ECMAScript's Number::toString, but for the sign of zero.
template <class Output>
void writeReal(double value, const Output& output) {
  if (!std::isfinite(value)) return output(std::string_view("null"));
  if (std::signbit(value)) output('-');
  if (value == 0) return output('0');

  std::array<char, 32> text;  // the shortest digits: "1.25e+02"
  const char* const end = std::to_chars(text.data(), text.data() + text.size(), std::abs(value),
                                        std::chars_format::scientific)
                              .ptr;
  const char* const mark = std::find(text.data(), text.data() + text.size(), 'e');
  int exponent = 0;
  std::from_chars(mark + (mark[1] == '+' ? 2 : 1), end, exponent);
  text[1] = text[0];  // in the place of the point
  const std::string_view digits(
      text.data() + 1, std::max<std::size_t>(static_cast<std::size_t>(mark - text.data()), 2) - 1);

  constexpr int largest = 21;
  constexpr std::string_view zeros = "000000000000000000000";
  const auto count = static_cast<int>(digits.size());
  const int point = exponent + 1;  // digits before the decimal point
  const auto size = [](int number) { return static_cast<std::size_t>(number); };
  if (count <= point && point <= largest) {
    output(digits);
    output(zeros.substr(0, size(point - count)));
  } else if (0 < point && point <= largest) {
    output(digits.substr(0, size(point)));
    output('.');
    output(digits.substr(size(point)));
  } else if (-6 < point && point <= 0) {
    output(std::string_view("0."));
    output(zeros.substr(0, size(-point)));
    output(digits);
  } else {
    output(digits.substr(0, 1));
    if (count > 1) output('.');
    output(digits.substr(1));
    output('e');
    output(exponent < 0 ? '-' : '+');
    writeDigits(std::abs(exponent), output);
  }
}

/// Recurses as deep as the value nests, which the parser bounds.
template <class Output>
void serialise(const Value& value, Slashes slashes, const Output& output) {
  switch (value.type()) {
    case Value::Type::null:
      return output(std::string_view("null"));
    case Value::Type::boolean:
      return output(std::string_view(*value.asBoolean() ? "true" : "false"));
    case Value::Type::integer:
      return writeDigits(*value.asInteger(), output);
    case Value::Type::unsignedInteger:
      return writeDigits(value.asUnsigned(), output);
    case Value::Type::real:
      return writeReal(value.asReal(), output);
    case Value::Type::string:
      return quote(*value.asString(), slashes, output);
    case Value::Type::array: {
      std::string_view separator = "[";
      for (const Value& element : value.elements()) {
        output(separator);
        serialise(element, slashes, output);
        separator = ",";
      }
      return output(std::string_view(value.elements().empty() ? "[]" : "]"));
    }
    case Value::Type::object: {
      std::string_view separator = "{";
      for (const Member& member : value.members()) {
        output(separator);
        quote(member.key, slashes, output);
        output(':');
        serialise(member.value, slashes, output);
        separator = ",";
      }
      return output(std::string_view(value.members().empty() ? "{}" : "}"));
    }
  }
}

struct SinkOutput {
  void operator()(char byte) const { sink.append(std::string_view(&byte, 1)); }
  void operator()(std::string_view piece) const { sink.append(piece); }

  Sink& sink;
};

struct HashOutput {
  void operator()(char byte) const { hash.append(byte); }
  void operator()(std::string_view piece) const { hash.append(piece); }

  Hash& hash;
};

}  // namespace

void Hash::append(std::string_view bytes) {
  std::uint64_t hash = value_;
  const char* next = bytes.data();
  const auto step = [&] { hash = (hash ^ static_cast<unsigned char>(*next++)) * prime; };
  const auto fourSteps = [&] { step(), step(), step(), step(); };
  std::size_t size = bytes.size();
  for (; size >= 8; size -= 8) fourSteps(), fourSteps();  // an agent waits for this at every call
  if (size >= 4) fourSteps(), size -= 4;
  for (; size > 0; --size) step();
  value_ = hash;
}

void write(const Value& value, Slashes slashes, std::string& text) {
  serialise(value, slashes, TextOutput{text});
}

void write(const Value& value, Slashes slashes, Sink& sink) {
  serialise(value, slashes, SinkOutput{sink});
}

void write(const Value& value, Slashes slashes, Hash& hash) {
  serialise(value, slashes, HashOutput{hash});
}

void writeInteger(std::int64_t integer, std::string& text) {
  writeDigits(integer, TextOutput{text});
}

}  // namespace CorvaneControl::JSON
