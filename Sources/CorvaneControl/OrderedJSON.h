#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "CorvaneControl/Result.h"

namespace CorvaneControl {

/// A JSON value that keeps what a person wrote: the order of an object's members, duplicate keys,
/// and every number's spelling. It is meant for files that belong to the user, so that a change to
/// one member leaves all others as they were; only the white space between tokens is not kept.
///
///     auto settings = OrderedJSON::parse(text);
///     if (!settings) return report(settings.failure().line);
///     settings->set("theme", OrderedJSON(std::string("dark")));
///     write(settings->text(OrderedJSON::indentation(text)) + "\n");
///
/// A plain value, compared member by member and number text by number text. All texts are UTF-8.
/// Copying, comparing, writing and destroying recurse as deep as the value is nested: 512 levels at
/// most for a value that was parsed.
class OrderedJSON {
 public:
  struct Member;
  struct Null {
    bool operator==(const Null&) const = default;
  };
  /// A number as it is spelled, never converted: "1.50", "-0" and "1E+2" stay what they are.
  struct Number {
    std::string text{};
    bool operator==(const Number&) const = default;
  };
  using Array = std::vector<OrderedJSON>;
  using Object = std::vector<Member>;

  /// Where a text is no JSON: the line (the first is 1) on which parsing stopped. Lines end at line
  /// feeds; a line feed where none may be belongs to the line that it ends.
  struct SyntaxError {
    std::int64_t line = 1;
    bool operator==(const SyntaxError&) const = default;
  };

  OrderedJSON() = default;  ///< `null`
  explicit OrderedJSON(std::same_as<bool> auto boolean) : value_(boolean) {}
  explicit OrderedJSON(Number number);
  explicit OrderedJSON(std::string string);
  explicit OrderedJSON(Array elements);
  explicit OrderedJSON(Object members);

  /// Reads exactly one value with nothing but white space around it (RFC 8259). Containers nest 512
  /// deep at most, and the innermost may then only be empty. Strings that are no valid UTF-8 are
  /// repaired with U+FFFD; a byte-order mark is an error. One leniency is kept on purpose: the four
  /// digits after "\u" may begin with a sign, "+" always and "-" before zero, so "\u+041" is "A".
  static Result<OrderedJSON, SyntaxError> parse(std::string_view text);

  bool isNull() const { return std::holds_alternative<Null>(value_); }
  /// The alternatives; null pointers for every value of another type.
  const bool* boolean() const { return std::get_if<bool>(&value_); }
  const Number* number() const { return std::get_if<Number>(&value_); }
  const std::string* string() const { return std::get_if<std::string>(&value_); }
  const Array* array() const { return std::get_if<Array>(&value_); }
  const Object* object() const { return std::get_if<Object>(&value_); }
  Array* array() { return std::get_if<Array>(&value_); }
  Object* object() { return std::get_if<Object>(&value_); }

  /// The value of the last member with that key; null when there is none, and when this is no
  /// object. Keys are equal under canonical equivalence. Valid until the object changes.
  const OrderedJSON* find(std::string_view key) const;
  OrderedJSON* find(std::string_view key);

  /// Gives the member that `find` finds a new value in its place, or removes that one member when
  /// `value` is absent. Without such a member a present value becomes the new last member. Does
  /// nothing when this is no object.
  void set(std::string_view key, std::optional<OrderedJSON> value);

  /// The value written over lines, each level indented by one more `indent`, without a line feed at
  /// the end. Empty containers are "{}" and "[]". Strings escape only what they must; "/" and
  /// everything beyond ASCII stay as they are.
  std::string text(std::string_view indent) const;

  /// The indentation that `text` was written with: the spaces and tabs before its first indented
  /// line, the first line left aside; two spaces when there is none. A text with CR LF at the end
  /// of its lines counts as one line.
  static std::string indentation(std::string_view of);

  /// Without canonical equivalence: byte for byte.
  bool operator==(const OrderedJSON&) const = default;

 private:
  std::variant<Null, bool, Number, std::string, Array, Object> value_;
};

struct OrderedJSON::Member {
  std::string key{};
  OrderedJSON value{};
  bool operator==(const Member&) const = default;
};

}  // namespace CorvaneControl
