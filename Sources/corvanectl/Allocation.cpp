// What `new` gives in this command. A call needs a few kilobytes for less than a millisecond, and
// the first use of an ordinary heap costs more than most of what a call computes: the system is
// asked for memory several times, and each size begins a page of its own. So memory comes from one
// block of the program, and only what finds no room there from the heap. A call that takes long, as
// that of `subscribe`, loses no more than the block: what comes from the heap goes back to it.
//
// There is one thread, as everywhere in this command. The aligned forms of `new` and `delete` are
// not replaced; they go to the heap by themselves.

#include "Allocation.h"

#include <cstdlib>
#include <new>

namespace {

/// Pages of it that are never touched cost nothing.
constinit MemoryBlock<65536> block;

void* allocateOnHeap(std::size_t size) {
  for (;;) {
    if (void* const memory = std::malloc(size)) return memory;
    const std::new_handler makeRoom = std::get_new_handler();
    if (!makeRoom) throw std::bad_alloc();
    makeRoom();
  }
}

}  // namespace

void* operator new(std::size_t size) {
  void* const piece = block.give(size);
  return piece ? piece : allocateOnHeap(std::max(size, std::size_t{1}));
}

void operator delete(void* memory) noexcept {
  if (!block.take(memory)) std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
