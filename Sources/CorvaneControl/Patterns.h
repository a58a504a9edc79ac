#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

/// The fixed patterns by which agents' texts are recognised, as matchers in linear time and without
/// recursion. Each function's comment holds the pattern as a regular expression; `\s` and `\d` are
/// Unicode-aware, `$` matches at the end of the text or before a line break that ends it.
namespace CorvaneControl::Patterns {

/// `^#{1,6}\s+`: the bytes of a heading mark; 0 when there is none.
std::size_t headingMark(std::string_view line);

/// `^\s*#{1,6}\s+`: the same with leading white space.
std::size_t indentedHeadingMark(std::string_view line);

/// `^(?:#{1,6}\s+|(?:[-*+]|\d+[.)])\s+|>\s?)`: the bytes of a heading, list or quote mark; 0 when
/// there is none.
std::size_t blockMark(std::string_view line);

/// `^\s*\d+[.)]\s`: whether the line looks like a numbered step.
bool isNumberedStep(std::string_view line);

/// `^<name(?=[\s>]|$)`: whether the text begins with an opening tag of that name.
bool beginsWithTag(std::string_view text, std::string_view name);

/// `^<name(?:[^>"']|"[^"]*"|'[^']*')*>\s*`: the bytes of the opening tag and the white space that
/// follows it; absent when the tag does not end.
std::optional<std::size_t> openingTag(std::string_view text, std::string_view name);

/// `\s*[(（]\s*(recommended|recommand[ée]e?|recomendad[oa]|empfohlen|consigliat[oa])\s*[)）]\s*$`,
/// ignoring case: the offset in bytes where a label's recommendation suffix begins; absent when the
/// label has none.
std::optional<std::size_t> recommendationSuffix(std::string_view label);

}  // namespace CorvaneControl::Patterns
