#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Inline Markdown (CommonMark inlines and strikethrough).
namespace CorvaneControl::Markdown {

inline constexpr std::size_t mostRead = 32'768;  ///< Bytes.

/// The plain characters of one line of inline Markdown: emphasis, code and link marks disappear,
/// entities and backslash escapes are resolved, images give their alternative text, autolinks their
/// address; raw inline HTML stays as it is written, and so does white space. No block is ever
/// recognised: a leading "- ", "# " or "> " is plain text.
///
/// Only the first 32,768 bytes (cut at a character) are read as Markdown, what follows is appended
/// as it is: hostile input costs the reader more than linear time. `line` is valid UTF-8; should an
/// LF be in it, it and what follows are appended as they are, too. A CR is white space. Throws only
/// std::bad_alloc.
std::string plainText(std::string_view line);

/// What `plainText` gives, and how much of it is certain when the line is the start of a longer
/// one.
struct Reading {
  std::string text{};
  /// Bytes of `text` that stay as they are whatever follows `line`, if that begins with a space: up
  /// to the first mark that is still without its other half, or what encloses it.
  std::size_t settled = 0;
};
Reading read(std::string_view line);

}  // namespace CorvaneControl::Markdown
