#include "StandardInput.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Transfer.h"

namespace {

/// The only member of an agent's input that can be large and that nothing is made of.
constexpr std::string_view unused = "tool_response";

/// Bytes that a regular file still has to give; 0 for everything else.
std::size_t remainingInFile(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  const off_t position = ::lseek(descriptor, 0, SEEK_CUR);
  return position < status.st_size ? static_cast<std::size_t>(status.st_size - position) : 0;
}

}  // namespace

char StandardInput::small_[];

const CorvaneControl::JSON::Value* StandardInput::value() {
  if (!read_) {
    read_ = true;
    if (::isatty(STDIN_FILENO) == 0 && readAll()) {
      document_ = CorvaneControl::JSON::Document::parse({data_, size_}, unused);
    }
  }
  return document_ ? &document_->root() : nullptr;
}

bool StandardInput::grow(std::size_t capacity) {
  char* memory = nullptr;
  if (data_ == small_) {
    memory = CorvaneControl::System::mapMemory(capacity);
    if (memory) std::memcpy(memory, small_, size_);
  } else {
    memory = CorvaneControl::System::growMemory(data_, capacity_, capacity);
  }
  if (!memory) return false;
  data_ = memory;
  capacity_ = capacity;
  return true;
}

bool StandardInput::readAll() {
  for (;;) {
    if (size_ == capacity_) {
      // A file tells its size, so that it is read into its place at once. One byte more shows its
      // end.
      const std::size_t wanted = size_ + remainingInFile(STDIN_FILENO) + 1;
      if (!grow(std::max(wanted, capacity_ * 4))) return false;
    }
    const ssize_t count = CorvaneControl::Transfer::uninterrupted(
        [&] { return ::read(STDIN_FILENO, data_ + size_, capacity_ - size_); });
    if (count == 0) return true;
    if (count > 0) {
      size_ += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {  // somebody else made it non-blocking
      pollfd readable{STDIN_FILENO, POLLIN, 0};
      ::poll(&readable, 1, -1);
    } else {
      return false;
    }
  }
}
