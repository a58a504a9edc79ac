#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// UTF-8, one scalar value at a time. For whole texts see Platform/Text.h.
namespace CorvaneControl::UTF8 {

inline constexpr char32_t replacement = 0xFFFD;
inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// The beginning of a text: a well-formed sequence, or else the maximal part of one (a byte at
/// least), which stands for U+FFFD.
struct Sequence {
  char32_t scalar = replacement;
  std::size_t size = 1;  ///< Bytes.
  bool isWellFormed = false;
};

/// The sequence at the start of a text that is not empty.
inline Sequence first(std::string_view text) {
  const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  const auto continues = [&](std::size_t index) { return (byte(index) & 0xC0U) == 0x80; };
  const std::uint8_t lead = byte(0);
  if (lead < 0x80) return {.scalar = lead, .size = 1, .isWellFormed = true};
  // Most of what is not ASCII: three bytes, the second of which may be any that continues.
  if (lead > 0xE0 && lead < 0xF0 && lead != 0xED && text.size() >= 3 && continues(1) &&
      continues(2)) {
    const char32_t scalar = (lead & 0xFU) << 12U | (byte(1) & 0x3FU) << 6U | (byte(2) & 0x3FU);
    return {.scalar = scalar, .size = 3, .isWellFormed = true};
  }
  if (lead < 0xC2 || lead > 0xF4) return {};
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // In the second byte overlong forms, surrogates, and what is beyond U+10FFFF are told.
  const std::uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const std::uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (text.size() < 2 || byte(1) < low || byte(1) > high) return {};
  char32_t scalar = (lead & (0x7FU >> size)) << 6U | (byte(1) & 0x3FU);
  for (std::size_t index = 2; index < size; ++index) {
    if (index == text.size() || !continues(index)) return {.size = index};
    scalar = scalar << 6U | (byte(index) & 0x3FU);
  }
  return {.scalar = scalar, .size = size, .isWellFormed = true};
}

/// Writes a scalar value to `bytes`, which has room for four, and gives their number. What is no
/// scalar value is written as U+FFFD.
inline std::size_t encode(char32_t scalar, char* bytes) {
  if (scalar > 0x10FFFF || (scalar & ~0x7FFU) == 0xD800) scalar = replacement;
  const auto continuation = [scalar](unsigned shift) {
    return static_cast<char>(0x80U | ((scalar >> shift) & 0x3FU));
  };
  if (scalar < 0x80) {
    bytes[0] = static_cast<char>(scalar);
    return 1;
  }
  if (scalar < 0x800) {
    bytes[0] = static_cast<char>(0xC0U | (scalar >> 6U));
    bytes[1] = continuation(0);
    return 2;
  }
  if (scalar < 0x10000) {
    bytes[0] = static_cast<char>(0xE0U | (scalar >> 12U));
    bytes[1] = continuation(6);
    bytes[2] = continuation(0);
    return 3;
  }
  bytes[0] = static_cast<char>(0xF0U | (scalar >> 18U));
  bytes[1] = continuation(12);
  bytes[2] = continuation(6);
  bytes[3] = continuation(0);
  return 4;
}

}  // namespace CorvaneControl::UTF8
