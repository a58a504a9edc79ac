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
/// is not the ordinary one is "\u{...}" with its number in hexadecimal, and so are "⇥" itself and
/// what joins or colours an emoji outside of one. Blanks and TABs that push what follows out of
/// sight, or that end the text, are counted: "⟨400 blanks⟩"; up to 16 at the beginning and 4 within
/// stay, and a "⟨" of the text's own is written out. No two texts look the same: backslashes that
/// stand before "u{" or before something written out are doubled, all others stay single. Malformed
/// UTF-8 is repaired first. Nothing is cut.
std::string visible(std::string_view text);

/// Whether a terminal may show `text` as it is. Blanks are not looked at.
bool isVisible(std::string_view text);

/// The first `limit` scalars of `text`, visible; what is left out is told by "… (N more bytes)".
std::string visibleStart(std::string_view text, std::size_t limit);

/// `text` as one line of a log: `visibleStart` of what is left when white space and line breaks at
/// both ends are gone.
std::string visibleLine(std::string_view text, std::size_t limit = 300);

/// Columns that a visible text surely fits into, whatever the terminal takes for the width of a
/// character: an ASCII character counts as one column, every other scalar as two.
std::size_t columnsOf(std::string_view visibleText);

/// Cuts a visible text into rows of at most `columns` columns, counted like that. At least one row.
/// Characters stay whole unless one alone is wider than a row; a row holds at least one scalar.
std::vector<std::string_view> rows(std::string_view visibleText, std::size_t columns);

/// Sets pieces of our own words, with `between` between them, in rows that end with line feeds. A
/// row has at most `columns` columns and begins with a piece; one that is wider than a row is
/// broken between its words, within those that are wider, too, and goes on behind four blanks.
std::string flowed(const std::vector<std::string>& pieces, std::string_view between,
                   std::size_t columns);
/// The same for a sentence, broken between its words.
std::string flowed(std::string_view sentence, std::size_t columns);

}  // namespace CorvaneControl::Headless
