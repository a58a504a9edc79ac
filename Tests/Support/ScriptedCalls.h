#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

#include <fcntl.h>

#include "CorvaneControl/Platform/Files.h"

namespace CorvaneTests {

/// The real system calls, some of which fail as a test says.
///
///     ScriptedCalls calls;
///     calls.before = [](std::string_view call) { return call == "rename" ? EIO : 0; };
///     const auto edit = Files::Edit::begin(path, calls);
class ScriptedCalls : public CorvaneControl::Files::Calls {
 public:
  /// Asked before every call: the error that it is to fail with, without being made; 0 to make it.
  /// Closing is always made, and fails afterwards.
  std::function<int(std::string_view call)> before = [](std::string_view) { return 0; };
  /// The most bytes that one call reads or writes.
  std::size_t mostBytes = std::numeric_limits<std::size_t>::max();
  /// What every file claims to have as its size, when given.
  std::optional<off_t> claimedSize{};

  int openDescriptors = 0;
  bool opensInheritably = false;  ///< Whether a descriptor was not to be closed on exec.

  int openAt(int folder, const char* path, int flags, mode_t mode) override {
    opensInheritably = opensInheritably || (flags & O_CLOEXEC) == 0;
    const int descriptor =
        scripted("open", [&] { return Calls::openAt(folder, path, flags, mode); });
    if (descriptor >= 0) ++openDescriptors;
    return descriptor;
  }
  int close(int descriptor) override {
    --openDescriptors;
    const int code = before("close");
    const int result = Calls::close(descriptor);
    if (code == 0) return result;
    errno = code;
    return -1;
  }
  int status(int descriptor, struct stat& status) override {
    const int result = scripted("fstat", [&] { return Calls::status(descriptor, status); });
    if (result == 0 && claimedSize) status.st_size = *claimedSize;
    return result;
  }
  int pathStatus(const char* path, struct stat& status) override {
    return scripted("stat", [&] { return Calls::pathStatus(path, status); });
  }
  char* realPath(const char* path) override {
    if (const int code = before("realpath")) {
      errno = code;
      return nullptr;
    }
    return Calls::realPath(path);
  }
  ssize_t readLink(const char* path, char* target, std::size_t size) override {
    return scripted("readlink", [&] { return Calls::readLink(path, target, size); });
  }
  ssize_t read(int descriptor, void* bytes, std::size_t count) override {
    return scripted("read",
                    [&] { return Calls::read(descriptor, bytes, std::min(count, mostBytes)); });
  }
  ssize_t write(int descriptor, const void* bytes, std::size_t count) override {
    return scripted("write",
                    [&] { return Calls::write(descriptor, bytes, std::min(count, mostBytes)); });
  }
  int setOwner(int descriptor, uid_t owner, gid_t group) override {
    return scripted("fchown", [&] { return Calls::setOwner(descriptor, owner, group); });
  }
  int copyAttributes(int from, int to, CorvaneControl::System::Group group,
                     mode_t& permissions) override {
    return scripted("setting attributes",
                    [&] { return Calls::copyAttributes(from, to, group, permissions); });
  }
  int setPermissions(int descriptor, mode_t permissions) override {
    return scripted("fchmod", [&] { return Calls::setPermissions(descriptor, permissions); });
  }
  int sync(int descriptor) override {
    return scripted("fsync", [&] { return Calls::sync(descriptor); });
  }
  int renameAt(int folder, const char* from, const char* to) override {
    return scripted("rename", [&] { return Calls::renameAt(folder, from, to); });
  }
  int unlinkAt(int folder, const char* name) override {
    return scripted("unlink", [&] { return Calls::unlinkAt(folder, name); });
  }

 private:
  template <class Call>
  auto scripted(std::string_view name, Call call) -> decltype(call()) {
    if (const int code = before(name)) {
      errno = code;
      return -1;
    }
    return call();
  }
};

}  // namespace CorvaneTests
