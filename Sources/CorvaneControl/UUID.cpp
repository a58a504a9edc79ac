#include "CorvaneControl/UUID.h"

#include <cstddef>
#include <cstring>

namespace CorvaneControl {

namespace {

constexpr std::size_t textSize = 36;  // bytes

/// Whether a hyphen stands at this place of the text form: 8, 4, 4, 4 and 12 digits.
bool isHyphenPlace(std::size_t place) {
  return place == 8 || place == 13 || place == 18 || place == 23;
}

std::optional<std::uint8_t> hexadecimalDigit(char character) {
  if (character >= '0' && character <= '9') return static_cast<std::uint8_t>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<std::uint8_t>(character - 'a' + 10);
  if (character >= 'A' && character <= 'F') return static_cast<std::uint8_t>(character - 'A' + 10);
  return std::nullopt;
}

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != textSize) return std::nullopt;
  UUID identifier;
  std::size_t digits = 0;
  for (std::size_t place = 0; place < textSize; ++place) {
    if (isHyphenPlace(place)) {
      if (text[place] != '-') return std::nullopt;
      continue;
    }
    const auto digit = hexadecimalDigit(text[place]);
    if (!digit) return std::nullopt;
    std::uint8_t& byte = identifier.bytes[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | *digit);
  }
  return identifier;
}

std::string UUID::text() const {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string result;
  result.reserve(textSize);
  for (const std::uint8_t byte : bytes) {
    if (isHyphenPlace(result.size())) result += '-';
    result += digits[byte >> 4];
    result += digits[byte & 0x0F];
  }
  return result;
}

}  // namespace CorvaneControl

std::size_t std::hash<CorvaneControl::UUID>::operator()(
    const CorvaneControl::UUID& identifier) const noexcept {
  std::uint64_t halves[2];
  static_assert(sizeof halves == sizeof identifier.bytes);
  std::memcpy(halves, identifier.bytes.data(), sizeof halves);
  // Multiplying one half by an odd constant keeps equal halves from cancelling each other out.
  return static_cast<std::size_t>(halves[0] ^ halves[1] * 0x9E3779B97F4A7C15);
}
