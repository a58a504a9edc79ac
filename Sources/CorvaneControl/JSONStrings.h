#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "CorvaneControl/Hexadecimal.h"
#include "CorvaneControl/JSON.h"

/// What stands between the quotation marks of JSON, for the sources that read and write it: which
/// bytes stand for themselves, sixteen at once, and what the escapes are.
namespace CorvaneControl::JSON {

/// The bytes that have an escape of one letter, and their letters.
inline constexpr std::string_view escapedBytes = "\"\\/\b\f\n\r\t";
inline constexpr std::string_view escapeLetters = "\"\\/bfnrt";

/// A table in which every byte of `from` has the byte of `to` at the same place, all others NUL.
constexpr std::array<char, 256> translation(std::string_view from, std::string_view to) {
  std::array<char, 256> table{};
  for (std::size_t index = 0; index < from.size(); ++index) {
    table[static_cast<unsigned char>(from[index])] = to[index];
  }
  return table;
}
inline constexpr auto meaningsOfEscapes = translation(escapeLetters, escapedBytes);
inline constexpr auto lettersOfEscapes = translation(escapedBytes, escapeLetters);

/// What the letter after a backslash stands for; NUL for every other byte.
inline char meaningOfEscape(char letter) {
  return meaningsOfEscapes[static_cast<unsigned char>(letter)];
}

/// Sixteen bytes that are looked at together. The compilers turn what is done with them into the
/// vector instructions that every processor of a kind has, but for one of x86-64 (SSE2) that they
/// do not find, which gathers a bit of each byte. Nothing is chosen while the program runs.
struct Block {
  using Bytes [[gnu::vector_size(16)]] = signed char;  // negative: beyond ASCII

  static constexpr std::size_t size = sizeof(Bytes);

  explicit Block(const char* from) { std::memcpy(&bytes, from, size); }

  static constexpr Bytes all(char character) {
    const auto byte = static_cast<signed char>(character);
    return Bytes{byte, byte, byte, byte, byte, byte, byte, byte,
                 byte, byte, byte, byte, byte, byte, byte, byte};
  }
  auto isEqualTo(char byte) const { return bytes == all(byte); }
  auto isBelow(char byte) const { return all(byte) > bytes; }

  /// The number of bytes before the first that is marked (all of its bits are set).
  template <class Marks>
  static std::size_t before(const Marks& marks) {
    static_assert(sizeof(Marks) == size);
#ifdef __SSE2__
    return static_cast<std::size_t>(std::countr_zero(bits(marks) | 1U << size));
#else
    std::array<std::uint64_t, 2> halves;
    std::memcpy(halves.data(), &marks, size);
    if ((halves[0] | halves[1]) == 0) return size;
    const auto leading = [](std::uint64_t half) {
      const int bits = std::endian::native == std::endian::little ? std::countr_zero(half)
                                                                  : std::countl_zero(half);
      return static_cast<std::size_t>(bits) / 8;
    };
    return halves[0] != 0 ? leading(halves[0]) : sizeof halves[0] + leading(halves[1]);
#endif
  }

  /// A bit for each byte, the lowest for the first: whether it is marked (all of its bits are set).
  template <class Marks>
  static std::uint32_t bits(const Marks& marks) {
    static_assert(sizeof(Marks) == size);
#ifdef __SSE2__
    using Characters [[gnu::vector_size(16)]] = char;
    return static_cast<std::uint32_t>(__builtin_ia32_pmovmskb128(std::bit_cast<Characters>(marks)));
#else
    std::array<std::uint64_t, 2> halves;
    std::memcpy(halves.data(), &marks, size);
    const auto bitsOf = [](std::uint64_t half) {
      // Moves the lowest bit of every byte into the highest byte, the one of the first lowest.
      constexpr std::uint64_t lowest = 0x0101010101010101;
      constexpr std::uint64_t gather =
          std::endian::native == std::endian::little ? 0x0102040810204080 : 0x8040201008040201;
      return static_cast<std::uint32_t>(((half & lowest) * gather) >> 56U);
    };
    return bitsOf(halves[0]) | bitsOf(halves[1]) << 8U;
#endif
  }

  Bytes bytes;
};

/// Whether a byte of a string that is read stands for itself, whatever comes before and after it:
/// the ASCII characters but controls, quotation mark and backslash.
inline bool isPlain(char byte) {
  return static_cast<signed char>(byte) >= 0x20 && byte != '"' && byte != '\\';
}
/// The plain bytes at the start of a block.
inline std::size_t plainBytes(const Block& block) {
  return Block::before(block.isBelow(0x20) | block.isEqualTo('"') | block.isEqualTo('\\'));
}

/// What has to be known of a text before it is put between quotation marks.
struct Content {
  bool needsEscapes = false;  ///< Some byte does not stand for itself; "/" does.
  bool isBeyondASCII = false;
};

/// Looks through `size` bytes. The `Block::size` bytes behind them are overwritten.
inline Content contentOf(char* text, std::size_t size) {
  constexpr Block::Bytes filling = Block::all(' ');
  std::memcpy(text + size, &filling, Block::size);
  Block::Bytes all{};
  decltype(all < filling) escaped{};
  for (std::size_t position = 0; position < size; position += Block::size) {
    const Block block(text + position);
    all |= block.bytes;
    escaped |=
        (block.isBelow(0x20) & ~block.isBelow(0)) | block.isEqualTo('"') | block.isEqualTo('\\');
  }
  return {.needsEscapes = Block::before(escaped) < Block::size,
          .isBeyondASCII = Block::before(all < Block::Bytes{}) < Block::size};
}

/// Hands `string` between quotation marks to `output`, which takes pieces and single bytes. Only
/// what must be escaped is: quotation mark, backslash, controls below U+0020, and "/" when asked.
template <class Output>
void quote(std::string_view string, Slashes slashes, const Output& output) {
  const char slash = slashes == Slashes::escaped ? '/' : '"';
  const char* next = string.data();
  const char* const end = next + string.size();
  const char* piece = next;  // what is not written yet, up to the next escape
  const auto write = [&](const char* upTo) {
    if (piece != upTo) output(std::string_view(piece, static_cast<std::size_t>(upTo - piece)));
  };
  const auto escape = [&](const char* place) {
    write(place);
    piece = place + 1;
    output('\\');
    const auto byte = static_cast<unsigned char>(*place);
    if (const char letter = lettersOfEscapes[byte]) return output(letter);
    output(std::string_view("u00"));
    output(Hexadecimal::smallDigits[byte >> 4U]);
    output(Hexadecimal::smallDigits[byte & 0xFU]);
  };

  output('"');
  for (; static_cast<std::size_t>(end - next) >= Block::size; next += Block::size) {
    const Block block(next);
    const auto escaped = (block.isBelow(0x20) & ~block.isBelow(0)) | block.isEqualTo('"') |
                         block.isEqualTo('\\') | block.isEqualTo(slash);
    for (auto bits = Block::bits(escaped); bits != 0; bits &= bits - 1) {
      escape(next + std::countr_zero(bits));
    }
  }
  for (; next != end; ++next) {
    const char byte = *next;
    if (static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\' || byte == slash) {
      escape(next);
    }
  }
  write(end);
  output('"');
}

/// Appends what is written to a text.
struct TextOutput {
  void operator()(char byte) const { text.push_back(byte); }
  void operator()(std::string_view piece) const { text.append(piece); }

  std::string& text;
};

}  // namespace CorvaneControl::JSON
