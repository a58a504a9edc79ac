#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

#include <fcntl.h>
#include <link.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/SystemDifferences.h"

namespace CorvaneControl::System {

const bool usesLibraryFolderAlways = false;

namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

}  // namespace

// getpwuid would load shared libraries into a static program, so the file is read directly.
std::optional<std::string> homeInUserDatabase() {
  const std::unique_ptr<FILE, CloseFile> file(std::fopen("/etc/passwd", "re"));
  if (!file) return std::nullopt;
  const uid_t user = ::getuid();
  while (const passwd* const entry = ::fgetpwent(file.get())) {
    if (entry->pw_uid == user) return std::string(entry->pw_dir);
  }
  return std::nullopt;
}

// The kernel has resolved the links already.
std::optional<std::string> executablePath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
  if (size <= 0) return std::nullopt;
  path.resize(static_cast<std::size_t>(size));
  return path;
}

std::optional<double> readDouble(std::string_view number) {
  double value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec != std::errc()) return std::nullopt;
  return value;
}

// musl leaves this to its loader, which a static program has not; glibc has done it.
void protectConstants() {
#ifndef __GLIBC__
  const auto at = static_cast<std::uintptr_t>(::getauxval(AT_PHDR));
  const std::span headers(reinterpret_cast<const ElfW(Phdr)*>(at), ::getauxval(AT_PHNUM));
  const auto page = static_cast<std::uintptr_t>(::getauxval(AT_PAGESZ));
  std::uintptr_t moved = 0;  // only what may be moved has to say where it was linked for
  for (const auto& header : headers) {
    if (header.p_type == PT_PHDR) moved = at - header.p_vaddr;
    if (header.p_type != PT_GNU_RELRO) continue;
    const std::uintptr_t from = (moved + header.p_vaddr) / page * page;
    const std::uintptr_t to = (moved + header.p_vaddr + header.p_memsz) / page * page;
    ::mprotect(reinterpret_cast<void*>(from), to - from, PROT_READ);  // without it, nothing breaks
  }
#endif
}

int openStreamSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

int acceptConnection(int listener) { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); }

// There is no such option here: each write asks for no signal.
void disableBrokenPipeSignal(int) {}

ssize_t write(int descriptor, const void* bytes, std::size_t count) noexcept {
  const ssize_t sent = ::send(descriptor, bytes, count, MSG_NOSIGNAL);
  if (sent >= 0 || errno != ENOTSOCK) return sent;
  return ::write(descriptor, bytes, count);
}

// A pipe has no path: its link leads to "pipe:" and a number.
bool isFIFO(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode)) return false;
  char start = '\0';
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  return ::readlink(link.c_str(), &start, 1) == 1 && start == '/';
}

std::optional<uid_t> peerUser(int socket) {
  int listens = 0;
  socklen_t listensSize = sizeof listens;
  if (::getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listens, &listensSize) != 0 ||
      listens != 0) {
    return std::nullopt;  // a listening socket would tell of this process
  }
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return std::nullopt;
  if (credentials.uid == static_cast<uid_t>(-1)) return std::nullopt;  // not connected
  return credentials.uid;
}

socklen_t completeAddress(sockaddr_un& address) {
  address.sun_family = AF_UNIX;
  return sizeof address;
}

namespace {

constexpr std::string_view accessControlList = "system.posix_acl_access";

// The list's form: a version, then for each entry a tag, permissions and an id, little-endian.
constexpr std::size_t listHeaderSize = 4;
constexpr std::size_t listEntrySize = 8;
constexpr std::size_t entryPermissions = 2;  // offset; the tag is at 0
constexpr char groupTag = 4;
constexpr char othersTag = 32;

/// Leaves the file's group and all others nothing; users and groups that are named keep theirs.
void narrowToNamed(std::string& list) {
  for (std::size_t entry = listHeaderSize; entry + listEntrySize <= list.size();
       entry += listEntrySize) {
    if (list[entry] == groupTag || list[entry] == othersTag) list[entry + entryPermissions] = 0;
  }
}

/// 0, or -1 and `errno`.
int readAttribute(int file, const std::string& name, std::string& value) {
  const ssize_t size = ::fgetxattr(file, name.c_str(), nullptr, 0);
  if (size < 0) return -1;
  value.resize(static_cast<std::size_t>(size));
  const ssize_t length = ::fgetxattr(file, name.c_str(), value.data(), value.size());
  if (length < 0) return -1;
  value.resize(static_cast<std::size_t>(length));
  return 0;
}

}  // namespace

int copyFileAttributes(int from, int to, Group group, mode_t& permissions) {
  // A new file may have got a list from its folder, which would let in others than the old file
  // did.
  if (::fremovexattr(to, accessControlList.data()) != 0 && errno != ENODATA && errno != ENOTSUP) {
    return -1;
  }
  const mode_t original = permissions;
  if (group == Group::other) permissions = permissionsInOtherGroup(original);
  const ssize_t size = ::flistxattr(from, nullptr, 0);
  if (size < 0) return errno == ENOTSUP ? 0 : -1;
  std::string names(static_cast<std::size_t>(size), '\0');
  const ssize_t length = ::flistxattr(from, names.data(), names.size());
  if (length < 0) return -1;
  names.resize(static_cast<std::size_t>(length));
  for (std::size_t start = 0; start < names.size();) {
    const std::string name = names.c_str() + start;  // each ends with a NUL
    start += name.size() + 1;
    const bool isList = name == accessControlList;
    if (!isList && !name.starts_with("user.")) continue;
    std::string value;
    if (readAttribute(from, name, value) != 0) return -1;
    if (isList && group == Group::other) {
      narrowToNamed(value);
      // With a list the group's bits are what those that it names have at most.
      permissions = original & ~mode_t{S_ISGID | S_IRWXO};
    }
    if (::fsetxattr(to, name.c_str(), value.data(), value.size(), 0) != 0) return -1;
  }
  return 0;
}

int syncToDisk(int descriptor) { return ::fsync(descriptor); }

namespace {

/// Asks for large pages where there is room for one. Only advice: without it, it is merely slower.
char* inLargePages(void* memory, std::size_t size) {
  if (memory == MAP_FAILED) return nullptr;
  constexpr std::size_t largePage = std::size_t{2} << 20;
  if (size >= largePage) ::madvise(memory, size, MADV_HUGEPAGE);
  return static_cast<char*>(memory);
}

}  // namespace

char* mapMemory(std::size_t size) {
  void* const memory =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return inLargePages(memory, size);
}

// Moves the pages, not the bytes.
char* growMemory(char* memory, std::size_t size, std::size_t grown) {
  return inLargePages(::mremap(memory, size, grown, MREMAP_MAYMOVE), grown);
}

void unmapMemory(char* memory, std::size_t size) { ::munmap(memory, size); }

}  // namespace CorvaneControl::System
