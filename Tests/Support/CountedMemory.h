#pragma once

#include <cstddef>

namespace CorvaneTests {

/// What this program has taken from the free store so far, in bytes, whether or not it gave it
/// back. For programs that have CountedMemory.cpp among their sources, which replaces `new`.
std::size_t allocatedBytes();

}  // namespace CorvaneTests
