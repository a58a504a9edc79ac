#include "CorvaneControl/Platform/PropertyList.h"

#include <expat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/UTF8.h"
#include "CorvaneControl/Unreachable.h"

namespace CorvaneControl::PropertyList {

namespace {

using Members = std::map<std::string, std::string>;

/// The number in `bytes`, of which there are at most eight.
std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8U | static_cast<std::uint8_t>(byte);
  return number;
}

/// UTF-16 as UTF-8; a surrogate without its other half and half a unit at the end become U+FFFD.
std::string fromUTF16(std::string_view bytes, bool littleEndian = false) {
  std::string result;
  char32_t high = 0;
  for (; bytes.size() >= 2; bytes.remove_prefix(2)) {
    const std::uint64_t number = bigEndian(bytes.substr(0, 2));
    const auto unit =
        static_cast<char32_t>(littleEndian ? (number & 0xFFU) << 8U | number >> 8U : number);
    const bool isLow = (unit & 0xFC00U) == 0xDC00;
    if (high != 0 && isLow) {
      Text::append(result, 0x10000 + ((high & 0x3FFU) << 10U) + (unit & 0x3FFU));
      high = 0;
      continue;
    }
    if (high != 0) Text::append(result, high);
    high = (unit & 0xFC00U) == 0xD800 ? unit : 0;
    if (high == 0) Text::append(result, unit);
  }
  if (high != 0) Text::append(result, high);
  if (!bytes.empty()) Text::append(result, UTF8::replacement);
  return result;
}

// ---- The XML form -------------------------------------------------------------------------------
//
// The platform's own reader is no XML parser, and real files show it: white space before the
// declaration, a declaration that names another encoding than the byte-order mark, comments with
// "--" in them. `Source` turns those into XML, and Expat is as strict as ever.

constexpr std::string_view whiteSpace = " \t\r\n";

struct Section {
  std::string_view begin;
  std::string_view end;
};
constexpr Section comment{.begin = "<!--", .end = "-->"};
constexpr Section characterSection{.begin = "<![CDATA[", .end = "]]>"};
constexpr Section instruction{.begin = "<?", .end = "?>"};

/// `text` with nothing in its comments. What looks like a comment within another section stays.
std::string withEmptyComments(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    std::size_t size = std::min(text.find('<', 1), text.size());
    for (const Section& section : {comment, characterSection, instruction}) {
      if (!text.starts_with(section.begin)) continue;
      const std::size_t end = text.find(section.end, section.begin.size());
      if (end == std::string_view::npos) return result.append(text);
      size = end + section.end.size();
    }
    if (text.starts_with(comment.begin)) {
      result.append(comment.begin).append(comment.end);
    } else {
      result += text.substr(0, size);
    }
    text.remove_prefix(size);
  }
  return result;
}

/// A document as Expat takes it.
struct Source {
  std::string text;
  const char* encoding = nullptr;  ///< Null when the document's declaration decides.

  explicit Source(std::string_view bytes);
};

Source::Source(std::string_view bytes) {
  const bool littleEndian =
      bytes.starts_with("\xFF\xFE") || bytes.starts_with(std::string_view("<\0", 2));
  if (littleEndian || bytes.starts_with("\xFE\xFF") ||
      bytes.starts_with(std::string_view("\0<", 2))) {
    text = fromUTF16(bytes, littleEndian);
    bytes = text;
    encoding = "UTF-8";
  }
  if (bytes.starts_with(UTF8::byteOrderMark)) {
    bytes.remove_prefix(UTF8::byteOrderMark.size());
    encoding = "UTF-8";
  }
  bytes.remove_prefix(std::min(bytes.find_first_not_of(whiteSpace), bytes.size()));
  text = withEmptyComments(bytes);
}

constexpr std::size_t deepestNesting = 512;  // dictionaries and arrays within each other

/// What a tag stands for. Numbers, dates, data and booleans are all `scalar`: their text does not
/// matter here.
enum class Element { plist, dictionary, array, key, string, scalar };

std::optional<Element> element(std::string_view tag) {
  if (tag == "plist") return Element::plist;
  if (tag == "dict") return Element::dictionary;
  if (tag == "array") return Element::array;
  if (tag == "key") return Element::key;
  if (tag == "string") return Element::string;
  for (const std::string_view scalar : {"integer", "real", "true", "false", "date", "data"}) {
    if (tag == scalar) return Element::scalar;
  }
  return std::nullopt;
}

bool isCollection(Element element) {
  return element == Element::dictionary || element == Element::array;
}

/// Follows the tags of a document and collects the strings of its outermost dictionary. Every
/// function says false at the first thing that has no place in a property list.
class Reader {
 public:
  bool start(std::string_view tag);
  bool end();
  bool text(std::string_view characters);

  Members members() && { return std::move(members_); }

 private:
  /// An element whose end tag has not come yet.
  struct Open {
    Element element{};
    bool expectsValue = false;  ///< A dictionary after a key, a "plist" before its value.
  };

  bool mayBegin(Element element);
  /// Whether the innermost element is a member of the outermost dictionary or its key.
  bool isOutermost() const { return collections_ == 1; }

  std::vector<Open> open_;
  std::size_t collections_ = 0;
  std::string key_;
  std::string text_;  ///< Of the key or string that is being read.
  Members members_;
};

bool Reader::mayBegin(Element element) {
  if (open_.empty()) return element == Element::plist || element == Element::dictionary;
  Open& parent = open_.back();
  switch (parent.element) {
    case Element::plist:
      return std::exchange(parent.expectsValue, false) && element == Element::dictionary;
    case Element::dictionary:
      if (element == Element::plist) return false;
      return std::exchange(parent.expectsValue, false) != (element == Element::key);
    case Element::array:
      return element != Element::plist && element != Element::key;
    case Element::key:
    case Element::string:
    case Element::scalar:
      return false;
  }
  unreachable();
}

bool Reader::start(std::string_view tag) {
  const auto begun = element(tag);
  if (!begun || !mayBegin(*begun)) return false;
  if (isCollection(*begun) && ++collections_ > deepestNesting) return false;
  open_.push_back({.element = *begun, .expectsValue = *begun == Element::plist});
  text_.clear();
  return true;
}

bool Reader::end() {
  const Open ended = open_.back();
  open_.pop_back();
  if (ended.expectsValue) return false;
  if (isCollection(ended.element)) --collections_;
  if (open_.empty() || open_.back().element != Element::dictionary) return true;
  if (ended.element == Element::key) {
    open_.back().expectsValue = true;
    if (isOutermost()) key_ = std::move(text_);
  } else if (isOutermost()) {
    if (ended.element == Element::string) {
      members_.insert_or_assign(std::move(key_), std::move(text_));
    } else {
      members_.erase(key_);
    }
  }
  return true;
}

bool Reader::text(std::string_view characters) {
  const Element parent = open_.back().element;
  if (parent == Element::plist || isCollection(parent)) {
    return characters.find_first_not_of(whiteSpace) == std::string_view::npos;
  }
  if (isOutermost() && parent != Element::scalar) text_ += characters;
  return true;
}

/// What Expat's handlers work on. After a handler stopped the parser Expat may still call others.
struct Parsing {
  XML_Parser parser = nullptr;
  Reader reader{};
  bool refused = false;

  void require(bool condition) {
    if (condition) return;
    refused = true;
    XML_StopParser(parser, XML_FALSE);
  }
};

Parsing& parsing(void* data) { return *static_cast<Parsing*>(data); }

void startElement(void* data, const XML_Char* tag, const XML_Char**) {
  Parsing& state = parsing(data);
  if (!state.refused) state.require(state.reader.start(tag));
}

void endElement(void* data, const XML_Char*) {
  Parsing& state = parsing(data);
  if (!state.refused) state.require(state.reader.end());
}

void characterData(void* data, const XML_Char* characters, int size) {
  Parsing& state = parsing(data);
  if (state.refused) return;
  state.require(state.reader.text({characters, static_cast<std::size_t>(size)}));
}

void entityDeclaration(void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                       const XML_Char*, const XML_Char*, const XML_Char*) {
  parsing(data).require(false);
}

void skippedEntity(void* data, const XML_Char*, int) { parsing(data).require(false); }

std::optional<Members> readXML(std::string_view bytes) {
  const Source source(bytes);
  if (source.text.size() > std::numeric_limits<int>::max()) return std::nullopt;  // Expat's limit
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(source.encoding), XML_ParserFree);
  if (!parser) return std::nullopt;
  Parsing state{.parser = parser.get()};
  XML_SetUserData(parser.get(), &state);
  XML_SetElementHandler(parser.get(), startElement, endElement);
  XML_SetCharacterDataHandler(parser.get(), characterData);
  XML_SetEntityDeclHandler(parser.get(), entityDeclaration);
  XML_SetSkippedEntityHandler(parser.get(), skippedEntity);
  const auto status =
      XML_Parse(parser.get(), source.text.data(), static_cast<int>(source.text.size()), XML_TRUE);
  if (status != XML_STATUS_OK || state.refused) return std::nullopt;
  return std::move(state.reader).members();
}

// ---- The binary form ----------------------------------------------------------------------------
//
// "bplist00", the objects, a table of their offsets, and a trailer of 32 bytes. An object begins
// with a marker byte: its type in the high half and its count in the low one; a low half of 15 says
// that the count follows as an integer object. A dictionary holds the numbers of its keys' objects
// and then those of its values' objects. All numbers are big-endian.

constexpr std::string_view magic = "bplist0";
constexpr std::size_t headerSize = 8;                 // bytes: the magic and a digit
constexpr std::size_t trailerSize = 32;               // bytes
constexpr std::size_t mostText = 16UL * 1024 * 1024;  // bytes

constexpr std::uint8_t integerType = 0x1;
constexpr std::uint8_t asciiType = 0x5;
constexpr std::uint8_t utf16Type = 0x6;
constexpr std::uint8_t dictionaryType = 0xD;

/// An object's marker, read: what comes after it and how much of it there is.
struct Object {
  std::uint8_t type = 0;
  std::uint64_t count = 0;   ///< Characters or members; nothing in what is neither.
  std::string_view payload;  ///< From behind the marker and the count to the end of all objects.
};

bool isString(const Object& object) { return object.type == asciiType || object.type == utf16Type; }

/// Finds its way through the bytes by numbers that it checks, and never from one collection into
/// another, so that nothing can lead it in circles.
class BinaryReader {
 public:
  /// Absent when the trailer does not fit the file.
  static std::optional<BinaryReader> open(std::string_view bytes);

  std::optional<Members> members() const;

 private:
  /// The object of this number; absent when there is none, or it does not lie among the objects.
  std::optional<Object> object(std::uint64_t number) const;

  std::string_view objects_;  ///< With the header, since offsets are counted from there.
  std::string_view offsets_;
  std::size_t offsetSize_ = 0;     ///< Bytes of an entry in the table.
  std::size_t referenceSize_ = 0;  ///< Bytes of an object's number in a dictionary.
  std::uint64_t top_ = 0;          ///< The number of the outermost object.
};

std::optional<BinaryReader> BinaryReader::open(std::string_view bytes) {
  if (bytes.size() < headerSize + trailerSize) return std::nullopt;
  const std::string_view body = bytes.substr(0, bytes.size() - trailerSize);
  const std::string_view trailer = bytes.substr(body.size());
  BinaryReader reader;
  reader.offsetSize_ = bigEndian(trailer.substr(6, 1));
  reader.referenceSize_ = bigEndian(trailer.substr(7, 1));
  const std::uint64_t count = bigEndian(trailer.substr(8, 8));
  reader.top_ = bigEndian(trailer.substr(16, 8));
  const std::uint64_t table = bigEndian(trailer.substr(24, 8));
  if (reader.offsetSize_ < 1 || reader.offsetSize_ > 8) return std::nullopt;
  if (reader.referenceSize_ < 1 || reader.referenceSize_ > 8) return std::nullopt;
  if (table > body.size()) return std::nullopt;
  if (count > (body.size() - table) / reader.offsetSize_) return std::nullopt;
  reader.objects_ = body.substr(0, table);
  reader.offsets_ = body.substr(table, count * reader.offsetSize_);
  return reader;
}

std::optional<Object> BinaryReader::object(std::uint64_t number) const {
  if (number >= offsets_.size() / offsetSize_) return std::nullopt;
  const std::uint64_t offset = bigEndian(offsets_.substr(number * offsetSize_, offsetSize_));
  if (offset < headerSize || offset >= objects_.size()) return std::nullopt;
  const auto marker = static_cast<std::uint8_t>(objects_[offset]);
  Object object{.type = static_cast<std::uint8_t>(marker >> 4U),
                .count = marker & 0x0FU,
                .payload = objects_.substr(offset + 1)};
  constexpr std::uint8_t countFollows = 0x0F;
  // Only what is read has to make sense: a number or a date that is wrong is beside the point.
  const bool isRead = isString(object) || object.type == dictionaryType;
  if (!isRead || object.count != countFollows) return object;
  if (object.payload.empty()) return std::nullopt;
  const auto integer = static_cast<std::uint8_t>(object.payload.front());
  const std::size_t width = std::size_t{1} << (integer & 0x0FU);
  if (integer >> 4U != integerType || width > 8) return std::nullopt;
  if (object.payload.size() - 1 < width) return std::nullopt;
  object.count = bigEndian(object.payload.substr(1, width));
  object.payload.remove_prefix(1 + width);
  return object;
}

/// The text of a string; absent when it is none, when it does not lie among the objects, or when it
/// has more bytes than `budget`, from which they are taken.
std::optional<std::string> text(const Object& object, std::size_t& budget) {
  if (!isString(object)) return std::nullopt;
  const std::size_t unit = object.type == asciiType ? 1 : 2;
  if (object.count > object.payload.size() / unit) return std::nullopt;
  const std::string_view bytes = object.payload.substr(0, object.count * unit);
  if (bytes.size() > budget) return std::nullopt;
  budget -= bytes.size();
  return unit == 1 ? Text::repaired(std::string(bytes)) : fromUTF16(bytes);
}

std::optional<Members> BinaryReader::members() const {
  const auto dictionary = object(top_);
  if (!dictionary || dictionary->type != dictionaryType) return std::nullopt;
  if (dictionary->count > dictionary->payload.size() / (2 * referenceSize_)) return std::nullopt;
  const std::size_t count = dictionary->count;
  const auto referred = [&](std::size_t index) {
    const std::size_t position = index * referenceSize_;
    return object(bigEndian(dictionary->payload.substr(position, referenceSize_)));
  };
  Members members;
  std::size_t budget = mostText;
  for (std::size_t index = 0; index < count; ++index) {
    const auto key = referred(index);
    const auto value = referred(count + index);
    if (!key || !value) return std::nullopt;
    auto keyText = text(*key, budget);
    if (!keyText) return std::nullopt;
    if (!isString(*value)) {
      members.erase(*keyText);
      continue;
    }
    auto valueText = text(*value, budget);
    if (!valueText) return std::nullopt;
    members.insert_or_assign(std::move(*keyText), std::move(*valueText));
  }
  return members;
}

}  // namespace

std::optional<std::map<std::string, std::string>> strings(std::string_view bytes) {
  if (!bytes.starts_with(magic)) return readXML(bytes);
  const auto reader = BinaryReader::open(bytes);
  return reader ? reader->members() : std::nullopt;
}

}  // namespace CorvaneControl::PropertyList
