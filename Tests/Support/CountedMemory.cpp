#include "Support/CountedMemory.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace CorvaneTests {

namespace {

std::size_t allocated = 0;
std::size_t takings = 0;
std::size_t held = 0;
std::size_t mostHeld = 0;

/// Stands before all memory that is handed out, and keeps it aligned.
struct alignas(std::max_align_t) Header {
  std::size_t size;
};

void* take(std::size_t size) {
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
  if (header == nullptr) return nullptr;
  header->size = size;
  allocated += size;
  ++takings;
  held += size;
  mostHeld = std::max(mostHeld, held);
  return header + 1;
}

void giveBack(void* memory) {
  if (memory == nullptr) return;
  Header* const header = static_cast<Header*>(memory) - 1;
  held -= header->size;
  std::free(header);
}

}  // namespace

std::size_t allocatedBytes() { return allocated; }
std::size_t allocations() { return takings; }
std::size_t heldBytes() { return held; }
std::size_t mostHeldBytes() { return mostHeld; }
void forgetMostHeld() { mostHeld = held; }

}  // namespace CorvaneTests

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return CorvaneTests::take(size);
}
void* operator new(std::size_t size) {
  if (void* const memory = operator new(size, std::nothrow)) return memory;
  std::abort();
}
void operator delete(void* memory) noexcept { CorvaneTests::giveBack(memory); }
void operator delete(void* memory, std::size_t) noexcept { CorvaneTests::giveBack(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  CorvaneTests::giveBack(memory);
}
