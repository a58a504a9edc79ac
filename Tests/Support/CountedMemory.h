#pragma once

#include <cstddef>

namespace CorvaneTests {

/// What this program has taken from the free store so far, in bytes, whether or not it gave it
/// back. For programs that have CountedMemory.cpp among their sources, which replaces `new`.
std::size_t allocatedBytes();
/// How often it took some.
std::size_t allocations();

/// What it holds at this moment.
std::size_t heldBytes();
/// The most that it held at one moment since `forgetMostHeld` was called.
std::size_t mostHeldBytes();
void forgetMostHeld();

}  // namespace CorvaneTests
