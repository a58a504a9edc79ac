#include "CorvaneControl/ControlProtocol.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <utility>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {

namespace {

template <class Type>
concept Record = requires {
  Type::fields;
};

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

/// What stands before the value of a record's field: a comma, the key between quotation marks, a
/// colon.
template <Record Type, std::size_t index>
constexpr auto fieldStart = [] {
  constexpr std::string_view key = std::get<index>(Type::fields).key;
  std::array<char, key.size() + 4> text{',', '"'};
  std::ranges::copy(key, text.begin() + 2);
  text[key.size() + 2] = '"';
  text[key.size() + 3] = ':';
  return text;
}();

/// Writes values of every type that a record's field can have.
struct Encoder {
  std::string& text;

  void write(bool value) { text.append(value ? "true" : "false"); }
  void write(std::int32_t value) { JSON::writeInteger(value, text); }
  void write(std::int64_t value) { JSON::writeInteger(value, text); }
  void write(const std::string& value) { JSON::writeString(value, JSON::Slashes::plain, text); }
  void write(const UUID& value) { write(value.text()); }
  void write(const Date& value) { write(value.text()); }

  template <Enumeration Type>
  void write(Type value) {
    text.push_back('"');
    text.append(wireName(value));
    text.push_back('"');
  }

  template <class Element>
  void write(const std::vector<Element>& elements) {
    text.push_back('[');
    bool first = true;
    for (const Element& element : elements) {
      if (!std::exchange(first, false)) text.push_back(',');
      write(element);
    }
    text.push_back(']');
  }

  template <Record Type>
  void write(const Type& record) {
    text.push_back('{');
    bool first = true;
    [&]<std::size_t... place>(std::index_sequence<place...>) {
      (writeField<fieldOrder<Type>[place]>(record, first), ...);
    }
    (std::make_index_sequence<fieldOrder<Type>.size()>());
    text.push_back('}');
  }

  template <std::size_t index, Record Type>
  void writeField(const Type& record, bool& first) {
    const auto& value = record.*std::get<index>(Type::fields).member;
    constexpr bool mayBeAbsent = isOptional<std::remove_cvref_t<decltype(value)>>;
    if constexpr (mayBeAbsent) {
      if (!value) return;
    }
    constexpr auto& start = fieldStart<Type, index>;
    const std::size_t comma = std::exchange(first, false) ? 0 : 1;
    text.append(start.data() + 1 - comma, start.size() - 1 + comma);
    if constexpr (mayBeAbsent) {
      write(*value);
    } else {
      write(value);
    }
  }
};

/// Reads values of every type that a record's field can have. A failed read leaves where and what
/// in `place` and `problem`.
struct Decoder {
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
    value = *string;
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
      if (!read(element, elements.emplace_back())) {
        return at("[" + std::to_string(elements.size() - 1) + "]");
      }
    }
    return true;
  }

  template <Record Type>
  bool read(const JSON::Value& json, Type& record) {
    if (!json.isObject()) return fail("not an object");
    return std::apply([&](const auto&... field) { return (readField(json, record, field) && ...); },
                      Type::fields);
  }

  template <class Owner, class Member>
  bool readField(const JSON::Value& json, Owner& record, const Field<Owner, Member>& field) {
    const JSON::Value* const value = json.find(field.key);
    const bool missing = !value || value->type() == JSON::Value::Type::null;
    bool good = false;
    if constexpr (isOptional<Member>) {
      good = missing || read(*value, (record.*field.member).emplace());
    } else {
      good = missing ? fail("missing") : read(*value, record.*field.member);
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

template <class Record>
std::string line(const Record& record) {
  std::string text;
  Encoder{text}.write(record);
  text.push_back('\n');
  return text;
}

template <class Record>
Result<Record, Failure> decode(const JSON::Value& value) {
  Decoder decoder;
  Record record;
  if (decoder.read(value, record)) return record;
  std::string where = decoder.place.starts_with('.') ? decoder.place.substr(1) : decoder.place;
  if (!where.empty()) where += ": ";
  return Failure{where + decoder.problem, std::nullopt};
}

template <class Record>
Result<Record, Failure> decode(std::string text) {
  JSON::SyntaxError error;
  const auto document = JSON::Document::parse(text, {}, &error);
  if (!document) return Failure{"not JSON: " + error.reason, error.offset};
  return decode<Record>(document->root());
}

#define CORVANE_CODED(Record)                                        \
  template std::string line(const Record&);                          \
  template Result<Record, Failure> decode<Record>(std::string text); \
  template Result<Record, Failure> decode<Record>(const JSON::Value& value)
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

namespace ControlSocket {

std::optional<std::string> path(std::string_view appName,
                                std::optional<std::string_view> applicationSupport) {
  std::optional<std::string> base;
  if (applicationSupport) {
    base = *applicationSupport;
  } else {
    base = System::applicationSupportFolder();
  }
  if (!base) return std::nullopt;
  return base->append("/").append(appName).append("/").append(fileName);
}

}  // namespace ControlSocket

}  // namespace CorvaneControl
