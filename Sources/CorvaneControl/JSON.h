#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// JSON as the control socket and the agents write it (RFC 8259, strict): reading for looking
/// things up, and writing compactly with sorted keys. The order and the spelling of the source are
/// not kept; files that belong to the user are the business of OrderedJSON.
namespace CorvaneControl::JSON {

struct Member;

/// One value of a parsed `Document`: a plain handle, valid as long as the document is.
///
/// The typed look-ups give nothing for a missing member and for one of another type alike:
///
///     input.string("cwd")          // the text, or nothing
///     input.object("tool_input")   // the object, or a null pointer
class Value {
 public:
  enum class Type : std::uint8_t {
    null,
    boolean,
    integer,
    unsignedInteger,
    real,
    string,
    array,
    object
  };

  Value() = default;
  static Value ofBoolean(bool value);
  static Value ofInteger(std::int64_t value);
  /// A whole number beyond the signed range; smaller ones are `ofInteger`.
  static Value ofUnsignedInteger(std::uint64_t value);
  static Value ofReal(double value);
  /// The text is not copied and has to outlive the value; so have elements and members.
  static Value ofString(std::string_view text);
  static Value ofArray(std::span<const Value> elements);
  /// `members` sorted by key, each key once.
  static Value ofObject(std::span<const Member> members);

  Type type() const { return type_; }
  bool isObject() const { return type_ == Type::object; }
  bool isArray() const { return type_ == Type::array; }

  std::optional<std::string_view> asString() const;
  std::optional<bool> asBoolean() const;
  /// A number whose value is an integer within 64 signed bits, however it is written (3, 3.0, 3e0).
  /// The ends of that range themselves only without fraction and exponent.
  std::optional<std::int64_t> asInteger() const;
  /// The number as a double; 0 for every other type. Integers beyond 2^53 are rounded.
  double asReal() const;
  /// The exact value of an `unsignedInteger`.
  std::uint64_t asUnsigned() const { return scalar_.unsignedInteger; }
  /// The elements of an array; empty for every other type.
  std::span<const Value> elements() const;
  /// The members of an object, sorted by key (UTF-8 bytes), each key once; empty for other types.
  std::span<const Member> members() const;

  /// The member of that name; null when there is none, or when this is no object.
  const Value* find(std::string_view key) const;
  std::optional<std::string_view> string(std::string_view key) const;
  const Value* object(std::string_view key) const;
  const Value* array(std::string_view key) const;

 private:
  union Scalar {
    std::int64_t integer = 0;
    std::uint64_t unsignedInteger;
    double real;
    bool boolean;
    const char* text;
    const Value* elements;
    const Member* members;
  };

  Value(Type type, Scalar scalar, std::size_t size = 0)
      : scalar_(scalar), size_(size), type_(type) {}

  Scalar scalar_{};
  std::size_t size_ = 0;
  Type type_ = Type::null;
};

struct Member {
  std::string_view key{};
  Value value{};
};

/// Where and why a text is no JSON.
struct SyntaxError {
  std::size_t offset = 0;  ///< Bytes before the place where parsing stopped.
  std::string reason{};    ///< A short text for people, without a final full stop.
};

/// A parsed text. Reading is strict: UTF-8 is validated, a lone surrogate is an error, nothing may
/// follow the value, containers nest 512 deep at most, numbers beyond the range of a double are an
/// error. A UTF-8 byte-order mark before the value is skipped. Of duplicate keys the last counts.
class Document {
 public:
  /// Parses `text` in place. The document's strings are views into `text`, which is overwritten
  /// where escapes are resolved, has to outlive the document, and must not be read again as JSON.
  ///
  /// Members of the outermost object whose key is `unused` are checked but not kept: an agent's
  /// input may carry megabytes that nobody looks at.
  ///
  /// Costs no memory but 24 bytes for each value that is kept (40 in an object). Absent for a text
  /// that is not JSON; `error`, when given, then says where.
  static std::optional<Document> parse(std::span<char> text, std::string_view unused = {},
                                       SyntaxError* error = nullptr);

  Document(Document&&) noexcept = default;
  Document& operator=(Document&&) noexcept = default;

  const Value& root() const { return root_; }

 private:
  friend class DocumentBuilder;
  /// Memory with values in it. The blocks of a document form a chain, the last one first.
  struct Block {
    Block* previous = nullptr;
  };
  struct FreeBlocks {
    void operator()(Block* last) const noexcept;
  };
  Document() = default;

  Value root_{};
  std::unique_ptr<Block, FreeBlocks> blocks_{};
};

/// How "/" is written inside strings: as it is (the control socket, users' files), or as "\/" (the
/// agents' hook reply, the fingerprint of a tool call, a tool's arguments).
enum class Slashes : std::uint8_t { plain, escaped };

/// Takes written JSON piece by piece.
class Sink {
 public:
  virtual void append(std::string_view piece) = 0;

 protected:
  ~Sink() = default;
};

/// 64-bit FNV-1a over everything that is appended.
class Hash {
 public:
  Hash() = default;
  /// Begins with another number than FNV-1a does, to be independent of its value.
  explicit Hash(std::uint64_t start) : value_(start) {}

  void append(char byte) { value_ = (value_ ^ static_cast<unsigned char>(byte)) * prime; }
  void append(std::string_view bytes);
  std::uint64_t value() const { return value_; }

 private:
  static constexpr std::uint64_t prime = 0x100000001b3;

  std::uint64_t value_ = 0xcbf29ce484222325;
};

/// Writes `value` compactly with sorted keys. Integers within 64 bits keep their value exactly.
/// Every other number is written as ECMAScript writes it (RFC 8785), except that a negative zero
/// keeps its sign: the shortest digits that read back as the same double, without a fraction when
/// integral, with an exponent from 1e21 on and below 1e-6. What is not finite, which no text gives,
/// is null. In strings only quotation mark, backslash, the controls below U+0020 and, by `slashes`,
/// "/" are escaped.
void write(const Value& value, Slashes slashes, std::string& text);
void write(const Value& value, Slashes slashes, Sink& sink);
void write(const Value& value, Slashes slashes, Hash& hash);
void writeInteger(std::int64_t integer, std::string& text);

}  // namespace CorvaneControl::JSON
