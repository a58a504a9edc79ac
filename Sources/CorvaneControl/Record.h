#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <tuple>

#include "CorvaneControl/Hash.h"

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

/// A record: it lists its fields, and compares by value.
template <class Type>
concept Record = requires {
  Type::fields;
};

/// Fields of a record that never travel; a record that has some lists them in `unsent`.
template <class Type>
concept HasUnsentFields = requires {
  Type::unsent;
};

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

/// Every record can be hashed, by every field.
template <CorvaneControl::Record Type>
struct std::hash<Type> {
  std::size_t operator()(const Type& record) const {
    std::uint64_t combined = 0;
    const auto add = [&](const auto&... field) {
      ((combined =
            CorvaneControl::combinedHash(combined, CorvaneControl::hashOf(record.*field.member))),
       ...);
    };
    std::apply(add, Type::fields);
    if constexpr (CorvaneControl::HasUnsentFields<Type>) std::apply(add, Type::unsent);
    return static_cast<std::size_t>(combined);
  }
};
