#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>

namespace CorvaneTests {

/// A new empty folder of mode 0700 that goes away with everything in it at the end of its scope.
/// Its path is short, so that sockets fit into it, and has no symbolic links in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string name = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/cvXXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
      ADD_FAILURE() << "mkdtemp failed for " << name;
      std::abort();
    }
    path_ = std::filesystem::canonical(name).string();
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  /// The path of something inside the folder.
  std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

  /// Writes a file, folders on the way included, and gives its path.
  std::string write(std::string_view name, std::string_view contents) const {
    const std::filesystem::path file = path(name);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    stream.close();
    EXPECT_TRUE(stream) << "cannot write " << file;
    return file.string();
  }
  /// The contents of a file; fails the test when there is none.
  std::string read(std::string_view name) const {
    std::ifstream stream(path(name), std::ios::binary);
    EXPECT_TRUE(stream) << "cannot read " << path(name);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }
  bool holds(std::string_view name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(path(name)));
  }

 private:
  std::string path_{};
};

}  // namespace CorvaneTests
