#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "CorvaneControl/Hexadecimal.h"
#include "CorvaneControl/JSONStrings.h"
#include "CorvaneControl/UTF8.h"

/// The grammar of JSON (RFC 8259), said once for every reader. `Tokens` walks the bytes of a text
/// once and tells a builder what it finds; it is a template, so that the two become one loop.
namespace CorvaneControl::JSON {

/// Where the readers of JSON decide differently.
struct Dialect {
  /// A UTF-8 byte-order mark before the value is skipped; otherwise it is an error.
  bool skipsByteOrderMark = false;
  /// Malformed UTF-8 in strings is left to `Builder::repaired`; otherwise it is an error.
  bool repairsUTF8 = false;
  /// The four digits after "\u" may begin with a sign: "+" always, "-" before zero.
  bool takesSignsInEscapes = false;
  /// The innermost of the containers that may nest has to be empty.
  bool leavesTheInnermostEmpty = false;
};

/// What the control socket and the agents write, and the files of corvane-headless.
inline constexpr Dialect ofTheWire{.skipsByteOrderMark = true};
/// Files of users, which have to be understood as the programs that they are for understand them.
inline constexpr Dialect ofUsersFiles{
    .repairsUTF8 = true, .takesSignsInEscapes = true, .leavesTheInnermostEmpty = true};

/// How deep containers nest, in every dialect.
inline constexpr std::size_t deepestNesting = 512;

/// A number as it is written, and its value where that is a whole number of 64 bits at most and
/// written without fraction and exponent.
struct NumberToken {
  std::string_view text{};
  bool isWhole = false;
  bool isNegative = false;
  std::uint64_t magnitude = 0;  ///< Of a whole number.
};

/// A builder that keeps nothing: what it is given to is checked only. It shows what a builder has.
struct Checking {
  /// Whether it wants the characters of strings. Otherwise those that it gets have no meaning.
  static constexpr bool keepsStrings = false;
  /// Whether `key` may say no. Then `Builder::Skipping` names the builder that is given the
  /// member's value in its place.
  static constexpr bool skipsMembers = false;

  void beginObject() {}
  void endObject() {}
  void beginArray() {}
  void endArray() {}
  /// False when the member's value is only to be checked.
  bool key(std::string_view) { return true; }
  void string(std::string_view) {}
  /// False for a number out of range.
  bool number(const NumberToken&) { return true; }
  void boolean(bool) {}
  void null() {}
  /// Where the first escape of a string is met: `characters` are those before it. Gives the place
  /// behind their copy, with room for what is left of the text.
  char* resolve(std::string_view) { return nullptr; }
  /// The string without malformed UTF-8, if the dialect asks for that.
  std::string_view repaired(std::string_view string) { return string; }
};

/// A cursor over a text that only moves forward. Each reader leaves it behind what it read, or says
/// false and leaves it at the byte that is wrong. Nothing recurses with the depth of the text.
template <Dialect dialect>
class Tokens {
 public:
  explicit Tokens(std::string_view text)
      : begin_(text.data()), next_(begin_), end_(begin_ + text.size()) {}

  /// Reads exactly one value with nothing but white space around it.
  template <class Builder>
  bool readDocument(Builder& builder) {
    if constexpr (dialect.skipsByteOrderMark) skip(UTF8::byteOrderMark);
    if (!readValue(builder)) return false;
    skipWhitespace();
    return next_ == end_ || fail("something follows the value");
  }

  // For a reader that knows what comes next. Each steps over that, or says false.

  bool skip(char expected) {
    if (current() != expected) return false;
    ++next_;
    return true;
  }

  // Always inlined: a text of a known size is compared without a call.
  [[gnu::always_inline]] bool skip(std::string_view expected) {
    if (remaining() < expected.size()) return false;
    if (std::memcmp(next_, expected.data(), expected.size()) != 0) return false;
    next_ += expected.size();
    return true;
  }

  /// Any `size` bytes; empty when there are fewer.
  std::string_view take(std::size_t size) {
    if (remaining() < size) return {};
    return {std::exchange(next_, next_ + size), size};
  }

  /// A string in quotation marks, if it has no escapes; without them.
  bool readUnescapedString(std::string_view& string) { return skip('"') && readUnescaped(string); }

  bool readNumber(NumberToken& number) {
    const char* const start = next_;
    number.isNegative = skip('-');
    if (!skip('0')) {
      const char* const digits = next_;
      number.magnitude = readDigits();
      if (next_ == digits) return fail(unexpected);
      number.isWhole = fits(digits, number.magnitude);
    } else {
      number.isWhole = true;
    }
    if (current() == '.' || current() == 'e' || current() == 'E') {
      number.isWhole = false;
      if (skip('.') && !skipDigits()) return false;
      if (skip('e') || skip('E')) {
        if (!skip('+')) skip('-');
        if (!skipDigits()) return false;
      }
    }
    number.text = {start, static_cast<std::size_t>(next_ - start)};
    return true;
  }

  bool isAtEnd() const { return next_ == end_; }

  /// Where reading stopped, in bytes, and why: a short text for people without a final full stop.
  std::size_t offset() const { return static_cast<std::size_t>(next_ - begin_); }
  std::string_view reason() const { return reason_; }

 private:
  bool fail(std::string_view reason) {
    reason_ = next_ == end_ ? "the text ends too early" : reason;
    return false;
  }

  /// NUL at the end: no token has one, so it fails there like every other wrong byte.
  char current() const { return next_ != end_ ? *next_ : '\0'; }
  std::size_t remaining() const { return static_cast<std::size_t>(end_ - next_); }

  void skipWhitespace() {
    while (next_ != end_ && static_cast<unsigned char>(*next_) <= ' ') {
      if (*next_ != ' ' && *next_ != '\n' && *next_ != '\r' && *next_ != '\t') return;
      ++next_;
    }
  }

  bool isInObject() const { return isObject_[level_ - 1]; }

  /// Reads one value and everything in it.
  template <class Builder>
  bool readValue(Builder& builder) {
    const std::size_t outermost = level_;
    bool isComplete = false;  // else it is a container that was entered and holds something
    if (!readStart(builder, isComplete)) return false;
    while (true) {
      if (isComplete && !readEnds(builder, outermost)) return false;
      if (level_ == outermost) return true;
      bool isWanted = true;
      if (isInObject() && !readKey(builder, isWanted)) return false;
      if constexpr (Builder::skipsMembers) {
        if (!isWanted) {
          typename Builder::Skipping skipping;
          if (!readValue(skipping)) return false;
          isComplete = true;
          continue;
        }
      }
      if (!readStart(builder, isComplete)) return false;
    }
  }

  /// Reads a scalar or an empty container, or enters a container.
  template <class Builder>
  bool readStart(Builder& builder, bool& isComplete) {
    skipWhitespace();
    if constexpr (dialect.leavesTheInnermostEmpty) {
      if (level_ == deepestNesting) return fail("nested too deeply");
    }
    isComplete = true;
    switch (current()) {
      case '{':
        if (!enter(true)) return false;
        builder.beginObject();
        isComplete = skip('}');
        if (isComplete) leave(builder);
        return true;
      case '[':
        if (!enter(false)) return false;
        builder.beginArray();
        isComplete = skip(']');
        if (isComplete) leave(builder);
        return true;
      case '"': {
        std::string_view string;
        if (!readString(builder, string)) return false;
        builder.string(string);
        return true;
      }
      case 't':
        builder.boolean(true);
        return skip(std::string_view("true")) || fail(unexpected);
      case 'f':
        builder.boolean(false);
        return skip(std::string_view("false")) || fail(unexpected);
      case 'n':
        builder.null();
        return skip(std::string_view("null")) || fail(unexpected);
      default:
        return readNumber(builder);
    }
  }

  bool enter(bool isObject) {
    if (level_ == deepestNesting) return fail("nested too deeply");
    isObject_[level_++] = isObject;
    ++next_;
    skipWhitespace();
    return true;
  }

  template <class Builder>
  void leave(Builder& builder) {
    isInObject() ? builder.endObject() : builder.endArray();
    --level_;
  }

  /// Behind a value: leaves the containers that end here, up to a comma or out of them all.
  template <class Builder>
  bool readEnds(Builder& builder, std::size_t outermost) {
    while (level_ != outermost) {
      skipWhitespace();
      if (skip(',')) return true;
      if (!skip(isInObject() ? '}' : ']')) {
        return fail(isInObject() ? "expected a comma or \"}\"" : "expected a comma or \"]\"");
      }
      leave(builder);
    }
    return true;
  }

  /// Reads a member up to its value.
  template <class Builder>
  bool readKey(Builder& builder, bool& isWanted) {
    skipWhitespace();
    if (current() != '"') return fail("expected a key");
    std::string_view key;
    if (!readString(builder, key)) return false;
    skipWhitespace();
    if (!skip(':')) return fail("expected a colon");
    isWanted = builder.key(key);
    return true;
  }

  /// A string up to its first escape, which for most is the whole.
  template <class Builder>
  bool readString(Builder& builder, std::string_view& string) {
    const char* const start = ++next_;
    isMalformed_ = false;
    if (readUnescaped(string)) {
      string = wellFormed(builder, string);
      return true;
    }
    if (current() != '\\') return false;
    const std::string_view characters(start, static_cast<std::size_t>(next_ - start));
    char* const out = builder.resolve(characters);
    return readRest(builder, string, start, out);
  }

  /// From behind the quotation mark to behind the next; false at an escape or an error.
  bool readUnescaped(std::string_view& string) {
    const char* const start = next_;
    while (true) {
      skipPlain();
      if (skip('"')) {
        string = {start, static_cast<std::size_t>(next_ - 1 - start)};
        return true;
      }
      if (current() == '\\' || readBeyondASCII() == 0) return false;
    }
  }

  void skipPlain() {
    while (remaining() >= Block::size) {
      const std::size_t count = plainBytes(Block(next_));
      next_ += count;
      if (count < Block::size) return;
    }
    while (next_ != end_ && isPlain(*next_)) ++next_;
  }

  /// A string from its first escape on. What is resolved is written to `out`, which may lie in the
  /// text itself: it never takes more bytes than what it stands for, but blocks of it may.
  template <class Builder>
  bool readRest(Builder& builder, std::string_view& string, const char* start, char* out) {
    constexpr bool keeps = Builder::keepsStrings;
    const char* const first = keeps ? out - (next_ - start) : nullptr;
    while (true) {
      while (skip('\\')) {  // they often stand together
        if (const char meaning = meaningOfEscape(current())) {
          ++next_;
          if constexpr (keeps) *out++ = meaning;
        } else {
          char32_t scalar = 0;
          if (!readUnicodeEscape(scalar)) return false;
          if constexpr (keeps) out += UTF8::encode(scalar, out);
        }
      }
      if constexpr (keeps) {
        out = copyPlain(start, first, out);
      } else {
        skipPlain();
      }
      if (skip('"')) break;
      if (current() != '\\') {
        const std::size_t size = readBeyondASCII();
        if (size == 0) return false;
        if constexpr (keeps) {
          std::memmove(out, next_ - size, size);
          out += size;
        }
      }
    }
    if constexpr (keeps) {
      string = wellFormed(builder, {first, static_cast<std::size_t>(out - first)});
    }
    return true;
  }

  template <class Builder>
  std::string_view wellFormed(Builder& builder, std::string_view string) {
    return dialect.repairsUTF8 && isMalformed_ ? builder.repaired(string) : string;
  }

  /// Copies plain bytes and gives the place behind them.
  char* copyPlain(const char* start, const char* first, char* out) {
    while (remaining() >= Block::size) {
      const Block block(next_);
      const std::size_t count = plainBytes(block);
      // A whole block may only be written where it reaches no byte that is still to be read.
      if (count == Block::size || (next_ - start) - (out - first) >= std::ptrdiff_t{Block::size}) {
        std::memcpy(out, &block.bytes, Block::size);
      } else {
        for (std::size_t index = 0; index < count; ++index) out[index] = next_[index];
      }
      next_ += count;
      out += count;
      if (count < Block::size) return out;
    }
    while (next_ != end_ && isPlain(*next_)) *out++ = *next_++;
    return out;
  }

  /// Steps over one scalar value beyond ASCII, and gives its bytes; 0 for an error.
  std::size_t readBeyondASCII() {
    if (static_cast<signed char>(current()) >= 0) {
      fail("a control character");
      return 0;
    }
    const UTF8::Sequence sequence = UTF8::first({next_, remaining()});
    if (!sequence.isWellFormed) {
      isMalformed_ = true;
      if (!dialect.repairsUTF8) {
        fail("not UTF-8");
        return 0;
      }
    }
    next_ += sequence.size;
    return sequence.size;
  }

  /// What follows the backslash of an escape that is not of one letter.
  bool readUnicodeEscape(char32_t& scalar) {
    if (!skip('u')) return fail("no such escape");
    if (!readFourHexadecimals(scalar)) return false;
    if ((scalar & ~0x7FFU) != 0xD800) return true;
    char32_t second = 0;
    if (scalar >= 0xDC00 || !skip(std::string_view("\\u"))) return fail(halfOfAPair);
    if (!readFourHexadecimals(second)) return false;
    if ((second & ~0x3FFU) != 0xDC00) return fail(halfOfAPair);
    scalar = 0x10000 + ((scalar - 0xD800) << 10U) + (second - 0xDC00);
    return true;
  }

  bool readFourHexadecimals(char32_t& value) {
    constexpr std::size_t count = 4;
    constexpr std::string_view problem = "expected four hexadecimal digits";
    if (remaining() < count) return fail(problem);
    std::string_view digits(next_, count);
    char sign = '\0';
    if constexpr (dialect.takesSignsInEscapes) {
      if (*next_ == '+' || *next_ == '-') {
        sign = *next_;
        digits.remove_prefix(1);
      }
    }
    unsigned all = 0;
    value = 0;
    for (const char digit : digits) {
      const unsigned bits = Hexadecimal::value(digit);
      all |= bits;
      value = value << 4U | bits;
    }
    if (all > 0xF || (sign == '-' && value != 0)) return fail(problem);
    next_ += count;
    return true;
  }

  template <class Builder>
  bool readNumber(Builder& builder) {
    NumberToken number;
    if (!readNumber(number)) return false;
    return builder.number(number) || fail("a number out of range");
  }

  static bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

  /// The value of the digits here, modulo 2^64.
  std::uint64_t readDigits() {
    std::uint64_t value = 0;
    for (; next_ != end_ && isDigit(*next_); ++next_) {
      value = value * 10 + static_cast<std::uint64_t>(*next_ - '0');
    }
    return value;
  }

  /// Whether the value of the digits before the cursor is less than 2^64. That has twenty digits
  /// and begins with 1: a number of the same length that wraps around has fewer digits left.
  bool fits(const char* digits, std::uint64_t wrapped) const {
    constexpr std::ptrdiff_t most = 20;
    constexpr std::uint64_t smallestOfMost = 10'000'000'000'000'000'000U;
    const std::ptrdiff_t count = next_ - digits;
    return count < most || (count == most && *digits == '1' && wrapped >= smallestOfMost);
  }

  /// One digit or more.
  bool skipDigits() {
    if (!isDigit(current())) return fail("expected a digit");
    while (isDigit(current())) ++next_;
    return true;
  }

  static constexpr std::string_view unexpected = "expected a value";
  static constexpr std::string_view halfOfAPair = "half of a surrogate pair";

  const char* begin_;
  const char* next_;
  const char* end_;
  std::size_t level_ = 0;  // containers around the cursor
  bool isMalformed_ = false;
  std::string_view reason_{};
  bool isObject_[deepestNesting];  // not cleared: of every level that was entered
};

}  // namespace CorvaneControl::JSON
