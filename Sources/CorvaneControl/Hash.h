#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <tuple>
#include <vector>

/// Hashes for `std::unordered_map` and the like. Equal values hash alike; the numbers themselves
/// mean nothing, and may differ from one version to the next.
namespace CorvaneControl {

/// One hash made of two, in which their order counts.
constexpr std::uint64_t combinedHash(std::uint64_t first, std::uint64_t second) {
  // Multiplied by an odd constant (and its high half mixed in), equal values do not cancel out.
  const std::uint64_t product = (first ^ (second + 0x9E3779B97F4A7C15)) * 0xFF51AFD7ED558CCD;
  return product ^ product >> 32;
}

/// The hash of a value; unlike `std::hash` also of lists.
template <class Value>
std::size_t hashOf(const Value& value) {
  return std::hash<Value>()(value);
}
template <class Value>
std::size_t hashOf(const std::optional<Value>& value);
template <class Element>
std::size_t hashOf(const std::vector<Element>& elements) {
  std::uint64_t hash = elements.size();
  for (const Element& element : elements) hash = combinedHash(hash, hashOf(element));
  return static_cast<std::size_t>(hash);
}
template <class Value>
std::size_t hashOf(const std::optional<Value>& value) {
  return value ? static_cast<std::size_t>(combinedHash(1, hashOf(*value))) : 0;
}

}  // namespace CorvaneControl
