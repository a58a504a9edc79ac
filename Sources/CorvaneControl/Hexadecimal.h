#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// The digits of base 16.
namespace CorvaneControl::Hexadecimal {

inline constexpr std::string_view smallDigits = "0123456789abcdef";
inline constexpr std::string_view capitalDigits = "0123456789ABCDEF";

/// What `value` gives for a byte that is no digit; no digit has its bits.
inline constexpr std::uint8_t noDigit = 0xF0;

/// What every byte is worth as a digit, in either case.
inline constexpr auto values = [] {
  std::array<std::uint8_t, 256> table{};
  table.fill(noDigit);
  for (std::size_t index = 0; index < 16; ++index) {
    table[static_cast<unsigned char>(smallDigits[index])] = static_cast<std::uint8_t>(index);
    table[static_cast<unsigned char>(capitalDigits[index])] = static_cast<std::uint8_t>(index);
  }
  return table;
}();

/// 0 to 15 for a digit in either case, `noDigit` for every other byte.
constexpr std::uint8_t value(char digit) { return values[static_cast<unsigned char>(digit)]; }

}  // namespace CorvaneControl::Hexadecimal
