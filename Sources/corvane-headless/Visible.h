#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Text that others sent, made fit for a terminal. What an agent sends must neither drive the
/// terminal nor pass for something that it is not.
namespace CorvaneControl::Headless {

/// `text` with everything that a terminal would obey, hide or reorder written out:
///
///     visible("a\x1b[2Jb")   // a\u{1B}[2Jb
///     visible("if x:\n\ty")  // if x:\u{A}⇥ y
///
/// A TAB is "⇥ "; every other control, bidirectional override, invisible character, or space that
/// is not the ordinary one is "\u{...}" with its number in hexadecimal, and so is "⇥" itself. No
/// two texts look the same: backslashes that stand before "u{" or before something written out are
/// doubled, all others stay single. Malformed UTF-8 is repaired first. Nothing is cut.
std::string visible(std::string_view text);

/// The first `limit` scalars of `text`, visible; what is left out is told by "… (N more bytes)".
std::string visibleStart(std::string_view text, std::size_t limit);

/// `text` as one line of a log: `visibleStart` of what is left when white space and line breaks at
/// both ends are gone.
std::string visibleLine(std::string_view text, std::size_t limit = 300);

/// Cuts a visible text into rows that surely fit into `columns` columns, whatever the terminal
/// takes for the width of a character: an ASCII character counts as one column, every other scalar
/// as two. At least one row; a row holds at least one character.
std::vector<std::string_view> rows(std::string_view visibleText, std::size_t columns);

}  // namespace CorvaneControl::Headless
