#include "CorvaneControl/ControlProtocol.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneControl::Result;
using CorvaneTests::require;
namespace ControlCoding = CorvaneControl::ControlCoding;
namespace JSON = CorvaneControl::JSON;
namespace Text = CorvaneControl::Text;

namespace {

/// Longer than any place that a record has with any reason that there is.
constexpr std::size_t longestDescription = 400;

void checkFailure(const ControlCoding::Failure& failure, std::string_view text) {
  require(!failure.description.empty() && failure.description.size() <= longestDescription);
  require(!Text::hasLineBreak(failure.description));
  require(!failure.offset || *failure.offset <= text.size());
  std::string copy(text);
  require(failure.offset.has_value() == !JSON::Document::parse(copy));
}

/// A text that is read without a tree, because it has the form of what is written, is read as the
/// document that it is.
template <class Type>
void checkDocument(const Result<Type, ControlCoding::Failure>& record, std::string_view text) {
  std::string copy(text);
  const auto document = JSON::Document::parse(copy);
  require(document || !record);
  if (!document) return;
  const auto read = ControlCoding::decode<Type>(document->root());
  require(bool(read) == bool(record));
  if (read) return require(*read == *record);
  require(read.failure().description == record.failure().description);
}

/// What is read is written as one line, from which the same is read again.
template <class Type>
void check(std::string_view text) {
  const auto record = ControlCoding::decode<Type>(std::string(text));
  checkDocument(record, text);
  std::string place(text);
  const auto inPlace = ControlCoding::decodeInPlace<Type>(std::span<char>(place));
  require(bool(record) == bool(inPlace));
  // A text that is read without a tree tells what its tree does.
  std::string parsed(text);
  const auto document = JSON::Document::parse(parsed);
  const auto ofTree = document ? ControlCoding::decode<Type>(document->root()) : inPlace;
  require(bool(record) == bool(ofTree) && (!record || *record == *ofTree));
  if (!record) {
    require(record.failure().description == inPlace.failure().description &&
            record.failure().offset == inPlace.failure().offset);
    checkFailure(record.failure(), text);
    return;
  }
  require(*record == *inPlace);
  const std::string line = ControlCoding::line(*record);
  require(line.find('\n') == line.size() - 1 && Text::isUTF8(line));
  const auto again = ControlCoding::decode<Type>(line);
  require(again && *again == *record);
}

}  // namespace

/// Any bytes are refused with one line that says why, or give a record that survives writing and
/// reading.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  check<CorvaneControl::ControlRequest>(input.text());
  check<CorvaneControl::ControlResponse>(input.text());
  check<CorvaneControl::ControlEvent>(input.text());
  return 0;
}
