#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneControl/OrderedJSON.h"
#include "Fuzz/Input.h"

using CorvaneControl::OrderedJSON;
using CorvaneTests::require;

namespace {

/// A unit is written once for every line and level, so a long one makes the output explode.
bool isShort(std::string_view indentation) { return indentation.size() <= 16; }

}  // namespace

/// Any bytes parse to a value that survives writing and reading, whose written form is a fixed
/// point, or fail at a line that they have.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  const std::string indentation = OrderedJSON::indentation(input.text());
  require(!indentation.empty() && indentation.find_first_not_of(" \t") == std::string::npos);
  const auto value = OrderedJSON::parse(input.text());
  if (!value) {
    const auto lines = 1 + std::ranges::count(input.text(), '\n');
    require(value.failure().line >= 1 && value.failure().line <= lines);
    return 0;
  }
  if (!isShort(indentation)) return 0;
  const std::string text = value->text(indentation);
  const auto again = OrderedJSON::parse(text);
  require(bool(again) && *again == *value);
  require(again->text(OrderedJSON::indentation(text)) == text);
  return 0;
}
