#include "CorvaneControl/Platform/Markdown.h"

#include <cmark-gfm-core-extensions.h>
#include <cmark-gfm-extension_api.h>
#include <cmark-gfm.h>

#include <algorithm>
#include <cstddef>
#include <memory>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Markdown {

namespace {

constexpr std::size_t longestMarkdown = 32'768;  // bytes

/// Without one of these a text is its own reading, and the library need not be asked.
bool isSpecial(char character) {
  switch (character) {
    case '\\':
    case '`':
    case '*':
    case '_':
    case '[':
    case ']':
    case '<':
    case '&':
    case '~':
    case '\0':
      return true;
    default:
      return false;
  }
}

/// In front of a line, it keeps every block from starting while emphasis still sees white space.
constexpr std::string_view noBreakSpace = "\xC2\xA0";

using Parser = std::unique_ptr<cmark_parser, decltype(&cmark_parser_free)>;
using Node = std::unique_ptr<cmark_node, decltype(&cmark_node_free)>;
using Iterator = std::unique_ptr<cmark_iter, decltype(&cmark_iter_free)>;

/// The start of `line` that is read as Markdown: one line, not too long, whole characters.
std::string_view readable(std::string_view line) {
  line = line.substr(0, std::min(line.find('\r'), line.find('\n')));
  if (line.size() <= longestMarkdown) return line;
  std::size_t size = longestMarkdown;
  while (size > 0 && (static_cast<unsigned char>(line[size]) & 0xC0U) == 0x80) --size;
  const std::size_t characters = Text::characters(line.substr(0, size));
  const std::string_view whole = Text::prefix(line, characters);
  return whole.size() == size ? whole : Text::prefix(line, characters - 1);
}

/// The start of `line` without the white space that ends it, which the library would drop.
std::string_view withoutTrailingSpaces(std::string_view line) {
  return line.substr(0, line.find_last_not_of(" \t\v\f") + 1);
}

Node parsed(std::string_view line) {
  const Parser parser(cmark_parser_new(CMARK_OPT_VALIDATE_UTF8), cmark_parser_free);
  if (line.find('~') != std::string_view::npos) {
    cmark_gfm_core_extensions_ensure_registered();
    cmark_parser_attach_syntax_extension(parser.get(),
                                         cmark_find_syntax_extension("strikethrough"));
  }
  cmark_parser_feed(parser.get(), noBreakSpace.data(), noBreakSpace.size());
  cmark_parser_feed(parser.get(), line.data(), line.size());
  return {cmark_parser_finish(parser.get()), cmark_node_free};
}

/// The texts of all leaves, in order. What encloses them (emphasis, links, images, strikethrough)
/// has no text of its own.
std::string textOf(cmark_node* document) {
  std::string result;
  const Iterator iterator(cmark_iter_new(document), cmark_iter_free);
  while (cmark_iter_next(iterator.get()) != CMARK_EVENT_DONE) {
    const char* literal = cmark_node_get_literal(cmark_iter_get_node(iterator.get()));
    if (literal != nullptr) result += literal;
  }
  return result;
}

}  // namespace

std::string plainText(std::string_view line) {
  const std::string_view head = withoutTrailingSpaces(readable(line));
  if (std::ranges::none_of(head, isSpecial)) return std::string(line);
  const Node document = parsed(head);
  std::string result = textOf(document.get());
  result.erase(0, noBreakSpace.size());
  return result += line.substr(head.size());
}

}  // namespace CorvaneControl::Markdown
