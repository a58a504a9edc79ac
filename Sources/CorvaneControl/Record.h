#pragma once

#include <optional>
#include <string_view>

namespace CorvaneControl {

/// One field of a record: its key in JSON and the member that holds it. A record lists its fields
/// once, in `fields`, and the decoder and the encoder both walk that list (ControlCoding). A member
/// that is a `std::optional` may be absent; every other one is required.
template <class Owner, class Member>
struct Field {
  using Type = Member;
  std::string_view key;
  Member Owner::*member;
};
// Clang before 17 does not deduce these itself.
template <class Owner, class Member>
Field(std::string_view, Member Owner::*) -> Field<Owner, Member>;

/// One value of an enumeration and the text it travels as. An enumeration lists its values once, in
/// a function `wireNames` beside it, and both directions use that list.
template <class Enumeration>
struct WireName {
  Enumeration value;
  std::string_view name;
};
template <class Enumeration>
WireName(Enumeration, std::string_view) -> WireName<Enumeration>;

/// The text that a value of an enumeration travels as.
template <class Enumeration>
constexpr std::string_view wireName(Enumeration value) {
  for (const auto& entry : wireNames(value)) {
    if (entry.value == value) return entry.name;
  }
  return {};
}

/// The value of an enumeration that travels as `name`, compared byte for byte; absent for every
/// other text.
template <class Enumeration>
constexpr std::optional<Enumeration> wireValue(std::string_view name) {
  for (const auto& entry : wireNames(Enumeration{})) {
    if (entry.name == name) return entry.value;
  }
  return std::nullopt;
}

}  // namespace CorvaneControl
