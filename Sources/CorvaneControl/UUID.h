#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace CorvaneControl {

/// A universally unique identifier (RFC 4122); compared by value.
struct UUID {
  std::array<std::uint8_t, 16> bytes{};

  /// Reads the canonical text form of 36 characters, in either case; absent for any other text.
  static std::optional<UUID> parse(std::string_view text);
  static constexpr std::size_t textSize = 36;  ///< Bytes of the text form.

  /// The canonical text form, upper case.
  std::string text() const;
  /// Writes the `textSize` bytes of that text to `place`.
  void write(char* place) const;

  bool operator==(const UUID&) const = default;
  auto operator<=>(const UUID&) const = default;
};

}  // namespace CorvaneControl

template <>
struct std::hash<CorvaneControl::UUID> {
  std::size_t operator()(const CorvaneControl::UUID& identifier) const noexcept;
};
