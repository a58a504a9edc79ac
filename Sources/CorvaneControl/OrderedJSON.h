#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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
///
/// Takes eight bytes, which hold scalars of up to seven bytes themselves; longer ones, and arrays
/// and objects that are not empty, lie elsewhere. A file of short numbers so takes not much more
/// memory than the four bytes that are its share at least.
class OrderedJSON {
 public:
  class Member;
  /// A number as it is spelled, never converted: "1.50", "-0" and "1E+2" stay what they are.
  struct Number {
    std::string_view text{};
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
  explicit OrderedJSON(std::same_as<bool> auto boolean)
      : word_((boolean ? truth : 0) | static_cast<std::uint64_t>(Tag::boolean)) {}
  explicit OrderedJSON(Number number);
  explicit OrderedJSON(std::string_view string);
  explicit OrderedJSON(Array elements);
  explicit OrderedJSON(Object members);

  OrderedJSON(const OrderedJSON& other);
  OrderedJSON(OrderedJSON&& other) noexcept : word_(std::exchange(other.word_, 0)) {}
  OrderedJSON& operator=(OrderedJSON other) noexcept {
    std::swap(word_, other.word_);
    return *this;
  }
  ~OrderedJSON() {
    if (tag() >= Tag::string) release();
  }

  /// Reads exactly one value with nothing but white space around it (RFC 8259). Containers nest 512
  /// deep at most, and the innermost may then only be empty. Strings that are no valid UTF-8 are
  /// repaired with U+FFFD; a byte-order mark is an error. One leniency is kept on purpose: the four
  /// digits after "\u" may begin with a sign, "+" always and "-" before zero, so "\u+041" is "A".
  static Result<OrderedJSON, SyntaxError> parse(std::string_view text);

  /// The alternatives; absent for every value of another type. Texts are valid until the value
  /// changes or moves.
  std::optional<bool> boolean() const;
  std::optional<std::string_view> number() const;  ///< As it is spelled.
  std::optional<std::string_view> string() const;
  /// Null pointers for every value of another type.
  const Array* array() const;
  const Object* object() const;
  Array* array();
  Object* object();

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
  bool operator==(const OrderedJSON& other) const;

 private:
  /// The lowest three bits of `word_`. The short ones have their size in the other bits of that
  /// byte and their text in the other seven bytes; those from `string` on are the address of what
  /// they own, which is null for an empty container.
  enum class Tag : std::uint8_t {
    null,
    boolean,
    shortNumber,
    shortString,
    string,
    number,
    array,
    object
  };
  static constexpr std::uint64_t truth = 8;

  Tag tag() const { return static_cast<Tag>(word_ & 7U); }
  void setText(std::string_view text, Tag shortTag, Tag longTag);
  std::string_view shortText() const;
  std::string_view longText() const;
  template <class Owned>
  Owned* owned() const;
  void own(const void* owned, Tag tag);
  template <class List>
  const List* list(Tag tag) const;
  template <class List>
  List* list(Tag tag);
  void release();

  std::uint64_t word_ = 0;
};

/// A key, which stays what it is, and its value.
class OrderedJSON::Member {
 public:
  Member(std::string_view key, OrderedJSON given) : value(std::move(given)), key_(key) {}

  std::string_view key() const { return *key_.string(); }
  bool operator==(const Member&) const = default;

  OrderedJSON value{};

 private:
  friend class OrderedJSONBuilder;
  Member(OrderedJSON key, OrderedJSON given) : value(std::move(given)), key_(std::move(key)) {}

  OrderedJSON key_{};  // a string
};

}  // namespace CorvaneControl
