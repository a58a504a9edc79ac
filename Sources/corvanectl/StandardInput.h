#pragma once

#include <cstddef>
#include <optional>

#include "CorvaneControl/JSON.h"

/// What stands on standard input, read to its end and parsed when it is first asked for. The
/// process has one, for as long as it runs: its memory is never given back.
class StandardInput {
 public:
  StandardInput() = default;
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

  /// Null when standard input is a terminal, cannot be read, or is not JSON.
  const CorvaneControl::JSON::Value* value();

 private:
  bool readAll();
  bool grow(std::size_t capacity);

  bool read_ = false;
  /// Most inputs fit, and touch no more pages than they need: on the stack all would be touched,
  /// since the compiler probes large frames.
  static char small_[8192];
  char* data_ = small_;
  std::size_t size_ = 0;
  std::size_t capacity_ = sizeof small_;
  std::optional<CorvaneControl::JSON::Document> document_{};
};
