#include "Support/CountedMemory.h"

#include <cstdlib>
#include <new>

namespace CorvaneTests {

namespace {
std::size_t allocated = 0;
}

std::size_t allocatedBytes() { return allocated; }

}  // namespace CorvaneTests

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  CorvaneTests::allocated += size;
  return std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
  if (void* const memory = operator new(size, std::nothrow)) return memory;
  std::abort();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
