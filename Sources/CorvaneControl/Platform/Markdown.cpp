#include "CorvaneControl/Platform/Markdown.h"

#include <cmark-gfm-core-extensions.h>
#include <cmark-gfm-extension_api.h>
#include <cmark-gfm.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <setjmp.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Markdown {

namespace {

/// Without one of these a text is its own reading, and the library need not be asked.
bool isSpecial(char character) {
  switch (character) {
    case '\\':
    case '`':
    case '*':
    case '_':
    case '[':
    case ']':
    case '<':
    case '&':
    case '~':
    case '\0':
      return true;
    default:
      return false;
  }
}

/// What the library reads instead of a carriage return, at which it would end the line: white space
/// that nobody writes.
constexpr std::string_view carriageReturn = "\f\v\f";

/// In front of a line, it keeps every block from starting while emphasis still sees white space.
constexpr std::string_view noBreakSpace = "\xC2\xA0";

/// What stands in front of memory that the library has, which does not tell its size again.
struct alignas(std::max_align_t) Header {
  std::size_t size;  // bytes that were asked for
};

/// The bytes that the library may ask for at once: so few that no sum overflows.
constexpr std::size_t largest = std::size_t{1} << 30;

/// All the memory that the library takes for one reading, given back at once: a reading is a
/// thousand small pieces, and a third of its time went into `malloc` and `free`.
///
/// The library cannot be told that memory ran out: it writes to what it is given, and it is C,
/// which no exception may pass through. So the arena leaves it with `siglongjmp`. That is sound
/// because the frames in between are the library's own, and hold nothing but memory of this arena.
/// (The mask of signals is not part of the jump: restoring it would be a system call.)
class Arena {
 public:
  /// For a line of `size` bytes. A short one needs no more than what is on the stack.
  explicit Arena(std::size_t size) : blockSize_(std::max(size * usualShare, first_.size())) {}
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  ~Arena() {
    while (blocks_ != nullptr) {
      Block* const block = std::exchange(blocks_, blocks_->previous);
      System::unmapMemory(reinterpret_cast<char*>(block), block->size);
    }
  }

  /// Bytes of no certain value; leaves when there are none left.
  void* allocate(std::size_t size) {
    if (size > largest) leave();
    const std::size_t whole = sizeof(Header) + rounded(size);
    if (whole > left_) addBlock(whole);
    last_ = new (next_) Header{size};
    next_ += whole;
    left_ -= whole;
    return last_ + 1;
  }

  /// The same with all bytes zero, which those of mapped memory are: none is used twice.
  void* allocateZeroed(std::size_t size) {
    void* const memory = allocate(size);
    return blocks_ == nullptr ? std::memset(memory, 0, size) : memory;
  }

  /// As `realloc`. What was allocated last grows where it is.
  void* reallocate(void* memory, std::size_t size) {
    if (memory == nullptr) return allocate(size);
    Header* const header = static_cast<Header*>(memory) - 1;
    if (size <= header->size) return memory;
    if (header == last_ && size <= largest) {
      const std::size_t more = rounded(size) - rounded(header->size);
      if (more <= left_) {
        next_ += more;
        left_ -= more;
        header->size = size;
        return memory;
      }
    }
    return std::memcpy(allocate(size), memory, header->size);
  }

  /// Where to go when memory runs out.
  [[noreturn]] void leave() { siglongjmp(outOfMemory, 1); }

  sigjmp_buf outOfMemory{};  ///< Set by `appendReading`, whose frame is there as long as the
                             ///< library works.

 private:
  struct alignas(std::max_align_t) Block {
    Block* previous;
    std::size_t size;
  };

  static constexpr std::size_t usualShare = 24;  // bytes of memory for a byte of an agent's message

  static constexpr std::size_t rounded(std::size_t size) {
    return (size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
  }

  /// What is left in the block before is given up.
  void addBlock(std::size_t needed) {
    const std::size_t size = std::max(blockSize_, sizeof(Block) + needed);
    char* const memory = System::mapMemory(size);
    if (memory == nullptr) leave();
    blocks_ = new (memory) Block{blocks_, size};
    next_ = reinterpret_cast<std::byte*>(memory) + sizeof(Block);
    left_ = size - sizeof(Block);
    blockSize_ *= 2;
  }

  Block* blocks_ = nullptr;
  Header* last_ = nullptr;
  alignas(std::max_align_t) std::array<std::byte, 8192> first_;
  std::byte* next_ = first_.data();
  std::size_t left_ = first_.size();
  std::size_t blockSize_;
};

/// The arena of the reading that goes on in this thread: the library's allocators have no argument
/// that could name it.
thread_local Arena* arena = nullptr;

/// The bytes of `count` things; leaves when they are too many.
std::size_t bytesOf(std::size_t count, std::size_t size) {
  if (size != 0 && count > largest / size) arena->leave();
  return count * size;
}

void* allocate(std::size_t count, std::size_t size) {
  return arena->allocateZeroed(bytesOf(count, size));
}
void* reallocate(void* memory, std::size_t size) { return arena->reallocate(memory, size); }
void release(void* /*memory*/) {}

cmark_mem arenaMemory = {allocate, reallocate, release};

// What the library keeps for as long as the process runs, its extensions, comes from where
// everything else does.

void* allocateForGood(std::size_t count, std::size_t size) {
  const std::size_t bytes = bytesOf(count, size);
  void* const memory = ::operator new(sizeof(Header) + bytes, std::nothrow);
  if (memory == nullptr) arena->leave();
  return std::memset(new (memory) Header{bytes} + 1, 0, bytes);
}

void releaseForGood(void* memory) {
  if (memory != nullptr) ::operator delete(static_cast<Header*>(memory) - 1);
}

void* reallocateForGood(void* memory, std::size_t size) {
  void* const moved = allocateForGood(1, size);
  if (memory == nullptr) return moved;
  const std::size_t kept = (static_cast<Header*>(memory) - 1)->size;
  std::memcpy(moved, memory, std::min(kept, size));
  releaseForGood(memory);
  return moved;
}

/// The start of `line` that is read as Markdown: one line, not too long, whole characters.
std::string_view readable(std::string_view line) {
  line = line.substr(0, line.find('\n'));
  if (line.size() <= mostRead) return line;
  const std::string_view scalars = Text::cutAtScalar(line, mostRead);
  const std::size_t characters = Text::characters(scalars);
  const std::string_view whole = Text::prefix(line, characters);
  return whole.size() == scalars.size() ? whole : Text::prefix(line, characters - 1);
}

/// The start of `line` without the white space that ends it, which the library would drop.
std::string_view withoutDroppedEnd(std::string_view line) {
  return line.substr(0, line.find_last_not_of(" \t\v\f\r") + 1);
}

/// `text` with each `from` as `to`.
std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  while (true) {
    const auto at = text.find(from);
    result += text.substr(0, at);
    if (at == std::string_view::npos) return result;
    result += to;
    text.remove_prefix(at + from.size());
  }
}

void attachStrikethrough(cmark_parser* parser) {
  *cmark_get_default_mem_allocator() = {allocateForGood, reallocateForGood, releaseForGood};
  cmark_gfm_core_extensions_ensure_registered();
  cmark_parser_attach_syntax_extension(parser, cmark_find_syntax_extension("strikethrough"));
}

/// The document that `line` is. Neither it nor the parser has to be freed: they are in the arena.
cmark_node* parsed(std::string_view line) {
  cmark_parser* const parser = cmark_parser_new_with_mem(CMARK_OPT_DEFAULT, &arenaMemory);
  if (line.find('~') != std::string_view::npos) attachStrikethrough(parser);
  cmark_parser_feed(parser, noBreakSpace.data(), noBreakSpace.size());
  cmark_parser_feed(parser, line.data(), line.size());
  return cmark_parser_finish(parser);
}

/// What may begin or end what encloses a text, and is left in it while its other half is missing.
/// (A backslash and the start of an entity need nothing that comes behind white space.)
constexpr const char* marksOfPairs = "`*_[]<~";

/// Appends the texts of all leaves, in order. What encloses them (emphasis, links, images,
/// strikethrough) has no text of its own.
///
/// Marks are matched from the left, and those within brackets before those around them. So what
/// comes later can change nothing before the outermost node in which a mark is left.
void appendText(cmark_node* document, Reading& reading) {
  cmark_node* const paragraph = cmark_node_first_child(document);
  std::size_t outermostAt = 0;
  bool isSettled = true;
  cmark_iter* const iterator = cmark_iter_new(document);
  while (cmark_iter_next(iterator) != CMARK_EVENT_DONE) {
    cmark_node* const node = cmark_iter_get_node(iterator);
    const bool isOutermost = cmark_node_parent(node) == paragraph;
    if (isOutermost) outermostAt = reading.text.size();
    const char* const literal = cmark_node_get_literal(node);
    if (literal == nullptr) continue;
    if (isSettled && cmark_node_get_type(node) == CMARK_NODE_TEXT) {
      std::size_t before = std::strcspn(literal, marksOfPairs);
      isSettled = literal[before] == '\0';
      // The mark of an image begins with one that means nothing by itself.
      if (literal[before] == '[' && before > 0 && literal[before - 1] == '!') --before;
      reading.settled = outermostAt + (isOutermost ? before : 0);
    }
    reading.text += literal;
  }
  if (isSettled) reading.settled = reading.text.size();
}

/// Appends what `line` says; false when memory ran out. The jump ends here and passes over nothing
/// that has a destructor: the reading and the arena are the caller's.
bool appendReading(std::string_view line, Reading& reading) {
  if (sigsetjmp(arena->outOfMemory, 0) != 0) return false;
  appendText(parsed(line), reading);
  return true;
}

}  // namespace

std::string plainText(std::string_view line) { return read(line).text; }

Reading read(std::string_view line) {
  const std::string_view head = withoutDroppedEnd(readable(line));
  if (std::ranges::none_of(head, isSpecial)) return {std::string(line), head.size()};
  const bool hasReturns = head.find('\r') != std::string_view::npos;
  const std::string replacing = hasReturns ? replaced(head, "\r", carriageReturn) : std::string();
  const std::string_view source = hasReturns ? replacing : head;
  Reading result;
  result.text.reserve(noBreakSpace.size() + line.size());
  Arena own(source.size());
  arena = &own;
  if (!appendReading(source, result)) throw std::bad_alloc();
  std::string& text = result.text;
  text.erase(0, noBreakSpace.size());
  result.settled -= std::min(result.settled, noBreakSpace.size());
  if (hasReturns) {
    const std::string_view settled(text.data(), result.settled);
    result.settled = replaced(settled, carriageReturn, "\r").size();
    text = replaced(text, carriageReturn, "\r");
  }
  text += line.substr(head.size());
  return result;
}

}  // namespace CorvaneControl::Markdown
