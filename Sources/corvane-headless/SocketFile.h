#pragma once

#include <optional>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <sys/types.h>

#include "CorvaneControl/Result.h"

namespace CorvaneControl::Headless {

/// A listening socket and its file, which goes away with it.
class SocketFile {
 public:
  /// Why there is no socket, in one line for the user.
  struct Problem {
    std::string description{};
  };

  /// Listens at `path`, without ever waiting for a client. A socket file that nobody serves any
  /// more is taken over; one that somebody serves, and every other kind of file, is left alone and
  /// a problem.
  ///
  /// Waits a few seconds for others that start at the same time, but not once the descriptor `end`
  /// is readable.
  static Result<SocketFile, Problem> claim(const std::string& path, int end);

  /// Removes the file, unless another one has taken its place by now.
  ~SocketFile();
  SocketFile(SocketFile&& other) noexcept
      : path_(std::move(other.path_)),
        descriptor_(std::exchange(other.descriptor_, -1)),
        device_(other.device_),
        inode_(other.inode_) {}
  SocketFile& operator=(SocketFile&&) = delete;

  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }

 private:
  SocketFile(std::string path, int descriptor, const struct stat& status);

  std::string path_;
  int descriptor_;
  dev_t device_{};
  ino_t inode_{};
};

/// Makes the folder that `path` lies in, and those above it, for the user alone. Absent when it is
/// there afterwards, else why not.
std::optional<SocketFile::Problem> makeFolderOf(const std::string& path);

}  // namespace CorvaneControl::Headless
