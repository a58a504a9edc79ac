#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace CorvaneTests {

/// `count` times `piece`.
inline std::string repeated(std::string_view piece, std::size_t count) {
  std::string text;
  text.reserve(piece.size() * count);
  for (; count > 0; --count) text += piece;
  return text;
}

}  // namespace CorvaneTests
