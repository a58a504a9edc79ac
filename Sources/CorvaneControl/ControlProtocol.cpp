#include "CorvaneControl/ControlProtocol.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "CorvaneControl/JSONStrings.h"
#include "CorvaneControl/JSONTokens.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {

namespace {

template <class Type>
concept Enumeration = std::is_enum_v<Type>;

template <class Type>
constexpr bool isOptional = false;
template <class Type>
constexpr bool isOptional<std::optional<Type>> = true;

/// The positions of a record's fields in the order of their keys.
template <Record Type>
constexpr auto fieldOrder = [] {
  constexpr std::size_t count = std::tuple_size_v<decltype(Type::fields)>;
  const auto keys = std::apply(
      [](const auto&... field) { return std::array<std::string_view, count>{field.key...}; },
      Type::fields);
  std::array<std::size_t, count> order{};
  for (std::size_t index = 0; index < count; ++index) order[index] = index;
  std::ranges::sort(order, {}, [&](std::size_t index) { return keys[index]; });
  return order;
}();

/// What stands before the value of a record's field: the key between quotation marks, and a colon.
template <Record Type, std::size_t index>
constexpr auto fieldStart = [] {
  constexpr std::string_view key = std::get<index>(Type::fields).key;
  std::array<char, key.size() + 3> text{'"'};
  std::ranges::copy(key, text.begin() + 1);
  text[key.size() + 1] = '"';
  text[key.size() + 2] = ':';
  return text;
}();

/// Writes values of every type that a record's field can have.
class Encoder final : private JSON::Sink {
 public:
  Encoder() = default;
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  /// What was written, as a line.
  std::string line() {
    append('\n');
    return {text_, size_};
  }

  void write(bool value) { append(value ? std::string_view("true") : "false"); }
  void write(std::int32_t value) { write(std::int64_t{value}); }
  void write(std::int64_t value) {
    char* const place = room(longestInteger);
    size_ +=
        static_cast<std::size_t>(std::to_chars(place, place + longestInteger, value).ptr - place);
  }

  void write(const std::string& value) {
    char* const place = room(value.size() + 2 + JSON::Block::size);
    std::memcpy(place + 1, value.data(), value.size());
    const JSON::Content content = JSON::contentOf(place + 1, value.size());
    if (content.isBeyondASCII && !Text::isUTF8(value)) return write(Text::repaired(value));
    if (content.needsEscapes) {
      return JSON::write(JSON::Value::ofString(value), JSON::Slashes::plain, *this);
    }
    place[0] = place[value.size() + 1] = '"';
    size_ += value.size() + 2;
  }

  /// A value whose text has a fixed size: an identifier, a date.
  template <class Type>
  requires requires { Type::textSize; }
  void write(const Type& value) {
    char* const place = room(Type::textSize + 2);
    place[0] = '"';
    value.write(place + 1);
    place[Type::textSize + 1] = '"';
    size_ += Type::textSize + 2;
  }

  template <Enumeration Type>
  void write(Type value) {
    append('"');
    append(wireName(value));
    append('"');
  }

  template <class Element>
  void write(const std::vector<Element>& elements) {
    append('[');
    for (const Element& element : elements) {
      if (&element != elements.data()) append(',');
      write(element);
    }
    append(']');
  }

  template <Record Type>
  void write(const Type& record) {
    append('{');
    const std::size_t first = size_;
    [&]<std::size_t... place>(std::index_sequence<place...>) {
      (writeField<fieldOrder<Type>[place]>(record, first), ...);
    }
    (std::make_index_sequence<fieldOrder<Type>.size()>());
    append('}');
  }

 private:
  static constexpr std::size_t longestInteger = 20;  // bytes of one of 64 bits

  /// Where the next `count` bytes go.
  [[gnu::always_inline]] char* room(std::size_t count) {
    if (count > capacity_ - size_) [[unlikely]] {
      grow(count);
    }
    return text_ + size_;
  }

  [[gnu::noinline]] void grow(std::size_t count) {
    capacity_ = 2 * (capacity_ + count);
    auto grown = std::make_unique_for_overwrite<char[]>(capacity_);
    std::memcpy(grown.get(), text_, size_);
    large_ = std::move(grown);
    text_ = large_.get();
  }

  void append(std::string_view piece) override {
    std::memcpy(room(piece.size()), piece.data(), piece.size());
    size_ += piece.size();
  }
  void append(char byte) {
    *room(1) = byte;
    ++size_;
  }

  /// `first` is the size of the text where the record's first field begins.
  template <std::size_t index, Record Type>
  void writeField(const Type& record, std::size_t first) {
    const auto& value = record.*std::get<index>(Type::fields).member;
    constexpr bool mayBeAbsent = isOptional<std::remove_cvref_t<decltype(value)>>;
    if constexpr (mayBeAbsent) {
      if (!value) return;
    }
    constexpr auto& start = fieldStart<Type, index>;
    char* const place = room(start.size() + 1);
    const std::size_t comma = size_ == first ? 0 : 1;
    *place = ',';
    std::memcpy(place + comma, start.data(), start.size());
    size_ += comma + start.size();
    if constexpr (mayBeAbsent) {
      write(*value);
    } else {
      write(value);
    }
  }

  char small_[4096];  // not cleared: most lines fit
  std::unique_ptr<char[]> large_{};
  char* text_ = small_;
  std::size_t size_ = 0;
  std::size_t capacity_ = sizeof small_;
};

/// Reads what the encoder writes in the form in which it writes it: no white space, keys in their
/// order and none besides, no escapes. Nearly every line has that form, and it needs no tree. Says
/// false for every other text, good or bad, which then is read as a document.
class FormReader {
 public:
  explicit FormReader(std::string_view line) : tokens_(line) {}

  template <Record Type>
  bool readLine(Type& record) {
    return read(record) && tokens_.isAtEnd();
  }

 private:
  bool read(bool& value) {
    value = tokens_.skip(std::string_view("true"));
    return value || tokens_.skip(std::string_view("false"));
  }

  template <std::signed_integral Type>
  bool read(Type& value) {
    JSON::NumberToken number;
    if (!tokens_.readNumber(number) || !number.isWhole) return false;
    if (!std::in_range<std::int64_t>(number.magnitude)) return false;
    const auto magnitude = static_cast<std::int64_t>(number.magnitude);
    const std::int64_t integer = number.isNegative ? -magnitude : magnitude;
    value = static_cast<Type>(integer);
    return std::in_range<Type>(integer);
  }

  bool read(std::string& value) {
    std::string_view string;
    if (!tokens_.readUnescapedString(string)) return false;
    value = std::string(string);  // cheaper than to change the empty one
    return true;
  }

  /// A value whose text has a fixed size.
  template <class Type>
  requires requires { Type::textSize; }
  bool read(Type& value) {
    if (!tokens_.skip('"')) return false;
    const auto read = Type::parse(tokens_.take(Type::textSize));
    if (read) value = *read;
    return read && tokens_.skip('"');
  }

  template <Enumeration Type>
  bool read(Type& value) {
    std::string_view string;
    if (!tokens_.readUnescapedString(string)) return false;
    const auto named = wireValue<Type>(string);
    if (named) value = *named;
    return named.has_value();
  }

  /// Turns into an element at its place in a vector. `emplace_back()` without an argument would
  /// first fill all of its bytes with zeros.
  template <class Element>
  struct Empty {
    explicit(false) operator Element() const { return {}; }
  };

  template <class Element>
  bool read(std::vector<Element>& elements) {
    if (!tokens_.skip('[')) return false;
    if (tokens_.skip(']')) return true;
    elements.reserve(expectedElements);
    do {
      if (!read(elements.emplace_back(Empty<Element>()))) return false;
    } while (tokens_.skip(','));
    return tokens_.skip(']');
  }

  template <Record Type>
  bool read(Type& record) {
    if (!tokens_.skip('{')) return false;
    bool isMemberNext = true;
    const bool areGood = [&]<std::size_t... place>(std::index_sequence<place...>) {
      return (readField<fieldOrder<Type>[place]>(record, isMemberNext) && ...);
    }
    (std::make_index_sequence<fieldOrder<Type>.size()>());
    return areGood && !isMemberNext && tokens_.skip('}');
  }

  /// `isMemberNext`: whether a comma, or the brace of the object, was read last.
  template <std::size_t index, Record Type>
  bool readField(Type& record, bool& isMemberNext) {
    auto& value = record.*std::get<index>(Type::fields).member;
    constexpr bool mayBeAbsent = isOptional<std::remove_cvref_t<decltype(value)>>;
    constexpr auto& start = fieldStart<Type, index>;
    if (!isMemberNext || !tokens_.skip({start.data(), start.size()})) return mayBeAbsent;
    bool isGood = false;
    if constexpr (mayBeAbsent) {
      isGood = read(value.emplace());
    } else {
      isGood = read(value);
    }
    isMemberNext = isGood && tokens_.skip(',');
    return isGood;
  }

  static constexpr std::size_t expectedElements = 16;

  JSON::Tokens<JSON::ofTheWire> tokens_;
};

/// The value of each field of a record in an object, in the order of the record's fields; null for
/// those that are missing. Fields and members are both sorted: both are walked once, side by side.
template <Record Type>
auto valuesOf(const JSON::Value& object) {
  std::array<const JSON::Value*, fieldOrder<Type>.size()> values{};
  auto members = object.members();
  const auto take = [&]<std::size_t index>(std::integral_constant<std::size_t, index>) {
    constexpr std::string_view key = std::get<index>(Type::fields).key;
    for (; !members.empty(); members = members.subspan(1)) {
      const JSON::Member& member = members.front();
      if (member.key == key) {
        values[index] = member.value.type() == JSON::Value::Type::null ? nullptr : &member.value;
        members = members.subspan(1);
        return;
      }
      if (member.key > key) return;
    }
  };
  [&]<std::size_t... place>(std::index_sequence<place...>) {
    (take(std::integral_constant<std::size_t, fieldOrder<Type>[place]>()), ...);
  }
  (std::make_index_sequence<fieldOrder<Type>.size()>());
  return values;
}

/// Reads values of every type that a record's field can have. A failed read leaves where and what
/// in `place` and `problem`.
struct Decoder {
  /// Elements that room is made for before they are seen to be good.
  static constexpr std::size_t mostReserved = 1024;

  std::string place{};
  std::string problem{};

  bool fail(std::string what) {
    problem = std::move(what);
    return false;
  }

  bool at(std::string_view step) {
    place.insert(0, step);
    return false;
  }

  template <class Type>
  bool take(const std::optional<Type>& read, Type& value, const char* otherwise) {
    if (!read) return fail(otherwise);
    value = *read;
    return true;
  }

  bool read(const JSON::Value& json, bool& value) {
    return take(json.asBoolean(), value, "neither true nor false");
  }

  bool read(const JSON::Value& json, std::int64_t& value) {
    return take(json.asInteger(), value, "not an integer of 64 bits");
  }

  bool read(const JSON::Value& json, std::int32_t& value) {
    const auto integer = json.asInteger();
    if (!integer || !std::in_range<std::int32_t>(*integer)) {
      return fail("not an integer of 32 bits");
    }
    value = static_cast<std::int32_t>(*integer);
    return true;
  }

  bool read(const JSON::Value& json, std::string& value) {
    const auto string = json.asString();
    if (!string) return fail("not a string");
    value.assign(*string);
    return true;
  }

  bool read(const JSON::Value& json, UUID& value) {
    return take(UUID::parse(json.asString().value_or("")), value, "not a UUID");
  }

  bool read(const JSON::Value& json, Date& value) {
    return take(Date::parse(json.asString().value_or("")), value, "not an ISO 8601 date");
  }

  template <Enumeration Type>
  bool read(const JSON::Value& json, Type& value) {
    const auto string = json.asString();
    const auto named = string ? wireValue<Type>(*string) : std::nullopt;
    if (named) {
      value = *named;
      return true;
    }
    std::string names;
    for (const auto& entry : wireNames(Type{})) {
      names.append(names.empty() ? "\"" : ", \"").append(entry.name).append("\"");
    }
    return fail("not one of " + names);
  }

  template <class Element>
  bool read(const JSON::Value& json, std::vector<Element>& elements) {
    if (!json.isArray()) return fail("not an array");
    elements.clear();
    for (const JSON::Value& element : json.elements()) {
      if (elements.empty()) elements.reserve(std::min(json.elements().size(), mostReserved));
      if (!read(element, elements.emplace_back())) {
        return at("[" + std::to_string(elements.size() - 1) + "]");
      }
    }
    return true;
  }

  template <Record Type>
  bool read(const JSON::Value& json, Type& record) {
    if (!json.isObject()) return fail("not an object");
    const auto values = valuesOf<Type>(json);
    return [&]<std::size_t... index>(std::index_sequence<index...>) {
      return (readField(values[index], record, std::get<index>(Type::fields)) && ...);
    }
    (std::make_index_sequence<values.size()>());
  }

  /// `json` is null for a field that is missing.
  template <class Owner, class Member>
  bool readField(const JSON::Value* json, Owner& record, const Field<Owner, Member>& field) {
    bool good = false;
    if constexpr (isOptional<Member>) {
      good = !json || read(*json, (record.*field.member).emplace());
    } else {
      good = json ? read(*json, record.*field.member) : fail("missing");
    }
    return good || at("." + std::string(field.key));
  }
};

}  // namespace

std::optional<CmuxPane> CmuxPane::fromEnvironment(const Environment& environment) {
  const auto identifier = [&](std::string_view name) -> std::optional<UUID> {
    const auto value = environment(name);
    return value ? UUID::parse(*value) : std::nullopt;
  };
  const auto tab = identifier("CMUX_WORKSPACE_ID");
  if (!tab) return std::nullopt;
  const auto pane = identifier("CMUX_SURFACE_ID");
  if (!pane) return std::nullopt;
  return CmuxPane{*tab, *pane};
}

std::string Attention::phrase() const {
  return Text::capitalized(agent) + (kind == AttentionKind::done ? " is done" : " asks for you");
}

std::vector<UUID> Attention::waiting(const std::vector<UUID>& ids,
                                     const std::unordered_map<UUID, Attention>& marks) {
  std::vector<UUID> marked;
  std::ranges::copy_if(ids, std::back_inserter(marked),
                       [&](const UUID& id) { return marks.contains(id); });
  std::ranges::stable_sort(marked, {}, [&](const UUID& id) {
    const Attention& mark = marks.find(id)->second;
    return std::pair(mark.kind == AttentionKind::done, mark.since);
  });
  return marked;
}

ControlResponse ControlResponse::failure(std::string message) {
  ControlResponse response;
  response.error = std::move(message);
  return response;
}

namespace ControlCoding {

template <Record Type>
std::string line(const Type& record) {
  Encoder encoder;
  encoder.write(record);
  return encoder.line();
}

template <Record Type>
Result<Type, Failure> decode(const JSON::Value& value) {
  Decoder decoder;
  Result<Type, Failure> result{Type{}};
  if (decoder.read(value, *result)) return result;
  std::string where = decoder.place.starts_with('.') ? decoder.place.substr(1) : decoder.place;
  if (!where.empty()) where += ": ";
  return Failure{where + decoder.problem, std::nullopt};
}

template <Record Type>
Result<Type, Failure> decodeInPlace(std::span<char> text) {
  Type record;
  if (FormReader({text.data(), text.size()}).readLine(record)) return record;
  JSON::SyntaxError error;
  const auto document = JSON::Document::parse(text, {}, &error);
  if (!document) return Failure{"not JSON: " + error.reason, error.offset};
  return decode<Type>(document->root());
}

template <Record Type>
Result<Type, Failure> decode(std::string text) {
  return decodeInPlace<Type>(text);
}

#define CORVANE_CODED(Type)                                            \
  template std::string line(const Type&);                              \
  template Result<Type, Failure> decode<Type>(std::string text);       \
  template Result<Type, Failure> decodeInPlace<Type>(std::span<char>); \
  template Result<Type, Failure> decode<Type>(const JSON::Value& value)
CORVANE_CODED(ControlRequest);
CORVANE_CODED(ControlResponse);
CORVANE_CODED(ControlEvent);
CORVANE_CODED(WorkspaceSummary);
CORVANE_CODED(Attention);
CORVANE_CODED(CmuxPane);
CORVANE_CODED(AgentPermission);
CORVANE_CODED(AgentPermission::Line);
CORVANE_CODED(AgentPermission::Question);
CORVANE_CODED(AgentPermission::Question::Option);
#undef CORVANE_CODED

}  // namespace ControlCoding

}  // namespace CorvaneControl
