#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include <unistd.h>

namespace CorvaneTests {

/// A file whose contents change often; gone when this object is. Whatever fails ends the process.
class TemporaryFile {
 public:
  TemporaryFile() : descriptor_(::mkstemp(path_.data())) {
    if (descriptor_ < 0) std::abort();
  }
  ~TemporaryFile() {
    ::unlink(path_.c_str());
    ::close(descriptor_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string& path() const { return path_; }

  /// Makes `bytes` all that the file holds.
  void hold(std::string_view bytes) const {
    const auto size = static_cast<ssize_t>(bytes.size());
    if (::ftruncate(descriptor_, 0) != 0 ||
        ::pwrite(descriptor_, bytes.data(), bytes.size(), 0) != size) {
      std::abort();
    }
  }

 private:
  std::string path_ = "/tmp/cvXXXXXX";
  int descriptor_;
};

}  // namespace CorvaneTests
