#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "corvane-headless/CardAnswers.h"
#include "corvane-headless/Console.h"

namespace CorvaneControl::Headless {

/// Scalars of a text that are drawn before the user asks for everything.
inline constexpr std::size_t longestDrawn = 1000;

/// Draws a card for the terminal, line feeds included. Everything that the agent sent is made
/// visible and stands in rows that begin with blanks; what begins at the edge, the numbers of the
/// preview's lines and the signs beside them are ours, also where a long line goes on in a further
/// row. `agent` and `place` are visible texts: who asks, and where it works. `waiting` cards come
/// after this one. The dialog learns how much of the card is shown.
std::string draw(CardDialog& dialog, std::string_view agent, std::string_view place,
                 std::size_t waiting, const Style& style);

}  // namespace CorvaneControl::Headless
