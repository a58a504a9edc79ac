#include "CorvaneControl/UUID.h"

#include <bit>
#include <cstring>

#include "CorvaneControl/Hash.h"
#include "CorvaneControl/Hexadecimal.h"

namespace CorvaneControl {

namespace {

/// Where the first digit of each byte stands in the text form.
constexpr std::array<std::uint8_t, 16> places = {0,  2,  4,  6,  9,  11, 14, 16,
                                                 19, 21, 24, 26, 28, 30, 32, 34};
constexpr std::array<std::uint8_t, 4> hyphens = {8, 13, 18, 23};

/// Sixteen bytes that are looked at together, and the same as eight pairs; what is done with them
/// becomes the vector instructions that every processor of a kind has.
using Bytes [[gnu::vector_size(16)]] = std::uint8_t;
using Pairs [[gnu::vector_size(16)]] = std::uint16_t;

/// What sixteen digits are worth; `Hexadecimal::noDigit` for what is none.
Bytes valuesOf(Bytes digits) {
  const Bytes decimal = digits - '0';
  const Bytes letter = (digits | 0x20) - 'a';
  const Bytes isDecimal = std::bit_cast<Bytes>(decimal < 10);
  const Bytes isLetter = std::bit_cast<Bytes>(letter < 6);
  return (decimal & isDecimal) | ((letter + 10) & isLetter) |
         (~(isDecimal | isLetter) & Hexadecimal::noDigit);
}

/// The byte that each two digits stand for, alone in its pair.
Pairs joined(Bytes values) {
  const auto pairs = std::bit_cast<Pairs>(values);
  if constexpr (std::endian::native == std::endian::little) {
    return (pairs << 4 | pairs >> 8) & 0xFF;
  } else {
    return (pairs >> 4 | pairs) & 0xFF;
  }
}

/// The two digits of every byte.
constexpr auto capitalPairs = [] {
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte) {
    pairs[byte] = {Hexadecimal::capitalDigits[byte >> 4U], Hexadecimal::capitalDigits[byte & 15U]};
  }
  return pairs;
}();

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != textSize) return std::nullopt;
  for (const std::uint8_t place : hyphens) {
    if (text[place] != '-') return std::nullopt;
  }
  std::array<char, 32> allDigits;
  std::memcpy(allDigits.data(), text.data(), 8);
  std::memcpy(allDigits.data() + 8, text.data() + 9, 4);
  std::memcpy(allDigits.data() + 12, text.data() + 14, 4);
  std::memcpy(allDigits.data() + 16, text.data() + 19, 4);
  std::memcpy(allDigits.data() + 20, text.data() + 24, 12);
  const auto digits = std::bit_cast<std::array<Bytes, 2>>(allDigits);
  const std::array values = {valuesOf(digits[0]), valuesOf(digits[1])};
  const auto wrong =
      std::bit_cast<std::array<std::uint64_t, 2>>((values[0] | values[1]) & Hexadecimal::noDigit);
  if ((wrong[0] | wrong[1]) != 0) return std::nullopt;
  const auto pairs = std::bit_cast<std::array<std::uint16_t, 16>>(
      std::array{joined(values[0]), joined(values[1])});
  UUID identifier;
  for (std::size_t index = 0; index < pairs.size(); ++index) {
    identifier.bytes[index] = static_cast<std::uint8_t>(pairs[index]);
  }
  return identifier;
}

std::string UUID::text() const {
  std::string text(textSize, '\0');
  write(text.data());
  return text;
}

void UUID::write(char* place) const {
  for (const std::uint8_t hyphen : hyphens) place[hyphen] = '-';
  for (std::size_t index = 0; index < places.size(); ++index) {
    std::memcpy(place + places[index], capitalPairs[bytes[index]].data(), 2);
  }
}

}  // namespace CorvaneControl

std::size_t std::hash<CorvaneControl::UUID>::operator()(
    const CorvaneControl::UUID& identifier) const noexcept {
  std::uint64_t halves[2];
  static_assert(sizeof halves == sizeof identifier.bytes);
  std::memcpy(halves, identifier.bytes.data(), sizeof halves);
  return static_cast<std::size_t>(CorvaneControl::combinedHash(halves[0], halves[1]));
}
