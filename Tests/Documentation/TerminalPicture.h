#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace CorvaneTests {

/// What a terminal shows, as an SVG: a window with `title`, and in it what a program printed, in
/// its colours, with the cursor behind it. Light or dark as the reader's page is. Of the sequences
/// that drive a terminal it knows those that choose colours, bold and dim ("\x1b[1;32m"), and line
/// feeds; absent when there is anything else. Every character counts as one column.
std::optional<std::string> terminalPicture(std::string_view title, std::string_view printed,
                                           std::size_t columns);

}  // namespace CorvaneTests
