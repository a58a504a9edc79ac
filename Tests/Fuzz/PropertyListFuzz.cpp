#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneControl/Platform/PropertyList.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneTests::require;
namespace PropertyList = CorvaneControl::PropertyList;
namespace Text = CorvaneControl::Text;

namespace {

bool isUTF8(const std::string& text) { return Text::repaired(text) == text; }

/// Whether XML can hold the text: it has no place for most controls and two other scalars.
bool fitsXML(std::string_view text) {
  const auto isControl = [](char byte) {
    return byte >= 0 && byte < ' ' && byte != '\t' && byte != '\n' && byte != '\r';
  };
  return std::ranges::none_of(text, isControl) && text.find("\xEF\xBF\xBE") == text.npos &&
         text.find("\xEF\xBF\xBF") == text.npos;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char byte : text) {
    if (byte == '<' || byte == '&' || byte == '>' || byte == '\r') {
      result += "&#" + std::to_string(static_cast<int>(byte)) + ";";
    } else {
      result += byte;
    }
  }
  return result;
}

}  // namespace

/// Any bytes give no members, or members of UTF-8 that come back when they are written as XML.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  const auto members = PropertyList::strings(input.text());
  if (!members) return 0;
  std::string written = "<plist><dict>";
  bool isWritable = true;
  for (const auto& [key, value] : *members) {
    require(isUTF8(key) && isUTF8(value));
    isWritable = isWritable && fitsXML(key) && fitsXML(value);
    written += "<key>" + escaped(key) + "</key><string>" + escaped(value) + "</string>";
  }
  written += "</dict></plist>";
  if (isWritable) require(PropertyList::strings(written) == members);
  return 0;
}
