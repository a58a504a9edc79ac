#include "CorvaneControl/Platform/Markdown.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneControl/AgentNotification.h"

#include "CorvaneControl/Patterns.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneTests::require;
namespace AgentNotification = CorvaneControl::AgentNotification;
namespace Markdown = CorvaneControl::Markdown;
namespace Patterns = CorvaneControl::Patterns;
namespace Text = CorvaneControl::Text;

namespace {

/// The largest growth there is: of a NUL to U+FFFD.
constexpr std::size_t mostGrowth = 3;

bool isPunctuation(char byte) {
  return (byte >= '!' && byte <= '/') || (byte >= ':' && byte <= '@') ||
         (byte >= '[' && byte <= '`') || (byte >= '{' && byte <= '~');
}

std::string escaped(std::string_view line) {
  std::string result;
  for (const char byte : line) {
    if (isPunctuation(byte)) result += '\\';
    result += byte;
  }
  return result;
}

/// Escaped in Markdown's way, a line reads as itself. (A NUL does not, nor does the white space
/// that stands for a carriage return.)
void checkEscaped(std::string_view line) {
  if (line.find_first_of(std::string_view("\0\v\f", 3)) != line.npos) return;
  const std::string text = escaped(line);
  if (text.size() <= Markdown::mostRead) require(Markdown::plainText(text) == line);
}

void checkPlain(std::string_view text) {
  const std::string plain = Markdown::plainText(text);
  require(Text::isUTF8(plain) && plain.size() <= mostGrowth * text.size());
  const std::string_view line = text.substr(0, text.find('\n'));
  if (line.size() > Markdown::mostRead) return;
  // What follows the line stays as it is, whatever the line is.
  require(plain == Markdown::plainText(line) + std::string(text.substr(line.size())));
  checkEscaped(line);
}

/// A message of one line without a mark of a block is previewed as the line reads as a whole,
/// however little of it was looked at.
void checkPreviewOfLine(std::string_view text) {
  const std::string_view line = Text::trimmed(text);
  if (Text::hasLineBreak(line) || Patterns::blockMark(line) > 0 || line.starts_with("```") ||
      line.starts_with("~~~")) {
    return;
  }
  require(AgentNotification::messagePreview(line) ==
          AgentNotification::summary(std::optional<std::string_view>(Markdown::plainText(line))));
}

/// What is settled by the start of a line is what the whole line says there.
void checkSettled(std::string_view text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  const std::size_t space = line.find(' ', line.size() / 2);
  if (space == line.npos || line.size() > Markdown::mostRead) return;
  const Markdown::Reading start = Markdown::read(line.substr(0, space));
  require(start.settled <= start.text.size());
  require(Markdown::plainText(line).starts_with(start.text.substr(0, start.settled)));
}

void checkPreview(const std::optional<std::string>& preview) {
  if (!preview) return;
  require(!preview->empty() && Text::isUTF8(*preview) && !Text::hasLineBreak(*preview));
  require(Text::characters(*preview) <= 120 && Text::trimmedOfLines(*preview) == *preview);
}

}  // namespace

/// Any text has a plain reading that is no longer than it may be, and of which one line of at most
/// 120 characters is shown.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  const std::string text = Text::repaired(std::string(input.text()));
  checkPlain(text);
  checkPreviewOfLine(text);
  checkSettled(text);
  checkPreview(AgentNotification::messagePreview(text));
  checkPreview(AgentNotification::messagePreview(AgentNotification::claudeMessageBody(text)));
  checkPreview(AgentNotification::summary(AgentNotification::codexTaskBody(text)));
  return 0;
}
