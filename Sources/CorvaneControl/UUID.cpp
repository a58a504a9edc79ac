#include "CorvaneControl/UUID.h"

#include <cstring>

#include "CorvaneControl/Hash.h"
#include "CorvaneControl/Hexadecimal.h"

namespace CorvaneControl {

namespace {

/// Where the first digit of each byte stands in the text form.
constexpr std::array<std::uint8_t, 16> places = {0,  2,  4,  6,  9,  11, 14, 16,
                                                 19, 21, 24, 26, 28, 30, 32, 34};
constexpr std::array<std::uint8_t, 4> hyphens = {8, 13, 18, 23};

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
  UUID identifier;
  std::uint8_t all = 0;
  for (std::size_t index = 0; index < places.size(); ++index) {
    const std::uint8_t high = Hexadecimal::value(text[places[index]]);
    const std::uint8_t low = Hexadecimal::value(text[places[index] + 1U]);
    identifier.bytes[index] = static_cast<std::uint8_t>(high << 4 | low);
    all |= high | low;
  }
  if ((all & Hexadecimal::noDigit) != 0) return std::nullopt;
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
