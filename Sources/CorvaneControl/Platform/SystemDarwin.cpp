#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include <copyfile.h>
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <pwd.h>
#include <sys/acl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xlocale.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/SystemDifferences.h"

namespace CorvaneControl::System {

const bool usesLibraryFolderAlways = true;

std::optional<std::string> homeInUserDatabase() {
  const passwd* const entry = ::getpwuid(::getuid());
  if (!entry) return std::nullopt;
  return std::string(entry->pw_dir);
}

std::optional<std::string> executablePath() {
  std::uint32_t size = 0;
  ::_NSGetExecutablePath(nullptr, &size);
  std::string path(size, '\0');
  if (::_NSGetExecutablePath(path.data(), &size) != 0) return std::nullopt;
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                             &std::free);
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

// The C++ library here has no from_chars for double.
std::optional<double> readDouble(std::string_view number) {
  const double value = ::strtod_l(std::string(number).c_str(), nullptr, nullptr);  // the C locale
  if (!std::isfinite(value)) return std::nullopt;
  // Too small to be told from zero, unless all its digits are zeros.
  const std::string_view digits = number.substr(0, number.find_first_of("eE"));
  if (value == 0 && digits.find_first_of("123456789") != digits.npos) return std::nullopt;
  return value;
}

namespace {

int closedOnExec(int descriptor) {
  if (descriptor >= 0) ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
}

}  // namespace

// The loader has done it.
void protectConstants() {}

int openStreamSocket() { return closedOnExec(::socket(AF_UNIX, SOCK_STREAM, 0)); }

int acceptConnection(int listener) { return closedOnExec(::accept(listener, nullptr, nullptr)); }

void disableBrokenPipeSignal(int socket) {
  const int on = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
}

// The socket's own option (disableBrokenPipeSignal) keeps the signal away.
ssize_t write(int descriptor, const void* bytes, std::size_t count) noexcept {
  return ::write(descriptor, bytes, count);
}

// A pipe has no path.
bool isFIFO(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode)) return false;
  std::array<char, PATH_MAX> path{};
  return ::fcntl(descriptor, F_GETPATH, path.data()) == 0;
}

std::optional<uid_t> peerUser(int socket) {
  uid_t user = 0;
  gid_t group = 0;
  if (::getpeereid(socket, &user, &group) != 0) return std::nullopt;
  return user;
}

socklen_t completeAddress(sockaddr_un& address) {
  address.sun_family = AF_UNIX;
  address.sun_len = sizeof address;
  return sizeof address;
}

namespace {

struct FreeList {
  void operator()(acl_t list) const { ::acl_free(list); }
};
using AccessControlList = std::unique_ptr<std::remove_pointer_t<acl_t>, FreeList>;

/// 0, or -1 and `errno`. Not by fcopyfile: it leaves a new file what that inherited from its
/// folder, which would let in others than the old file did, and copies nothing that the old one
/// inherited.
int copyAccessControlList(int from, int to) {
  AccessControlList list(::acl_get_fd_np(from, ACL_TYPE_EXTENDED));
  if (!list && errno == ENOENT) list.reset(::acl_init(1));  // it has none, so an empty one
  if (list && ::acl_set_fd_np(to, list.get(), ACL_TYPE_EXTENDED) == 0) return 0;
  return errno == ENOTSUP || errno == EOPNOTSUPP ? 0 : -1;  // the file system has no lists
}

}  // namespace

// The lists here name users and groups only, never "the file's group".
int copyFileAttributes(int from, int to, Group group, mode_t& permissions) {
  if (group == Group::other) permissions = permissionsInOtherGroup(permissions);
  if (copyAccessControlList(from, to) != 0) return -1;
  return ::fcopyfile(from, to, nullptr, COPYFILE_XATTR);
}

// Some file systems know only fsync.
int syncToDisk(int descriptor) {
  return ::fcntl(descriptor, F_FULLFSYNC) == 0 ? 0 : ::fsync(descriptor);
}

char* mapMemory(std::size_t size) {
  void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
}

char* growMemory(char* memory, std::size_t size, std::size_t grown) {
  char* const moved = mapMemory(grown);
  if (!moved) return nullptr;
  std::memcpy(moved, memory, size);
  unmapMemory(memory, size);
  return moved;
}

void unmapMemory(char* memory, std::size_t size) { ::munmap(memory, size); }

}  // namespace CorvaneControl::System
