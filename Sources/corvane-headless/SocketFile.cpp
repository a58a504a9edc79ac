#include "corvane-headless/SocketFile.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/Platform/Files.h"
#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Transfer.h"
#include "CorvaneControl/UnixSocket.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

/// Connections that wait to be accepted; the system may allow fewer.
constexpr int backlog = 1024;
/// Seconds that whoever serves the socket already gets to show it.
constexpr double patience = 1;

/// How long to wait for a lock that another process holds, and after what time to look again.
constexpr int patienceForLock = 5000;  // milliseconds
constexpr int retryMilliseconds = 20;

/// A lock on a folder, so that of two that start at the same time the second sees the first. A
/// folder that can't be locked is none: sockets are taken over without, then.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : descriptor_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~FolderLock() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  /// False when another process keeps it for too long, or `end` becomes readable meanwhile.
  bool take(int end) const {
    if (descriptor_ < 0) return true;
    for (int waited = 0; isTaken(); waited += retryMilliseconds) {
      pollfd polled{.fd = end, .events = POLLIN, .revents = 0};
      if (waited >= patienceForLock || ::poll(&polled, 1, retryMilliseconds) > 0) return false;
    }
    return true;
  }

 private:
  bool isTaken() const {
    const int result =
        Transfer::uninterrupted([&] { return ::flock(descriptor_, LOCK_EX | LOCK_NB); });
    return result != 0 && errno == EWOULDBLOCK;
  }

  const int descriptor_;
};

SocketFile::Problem problem(const std::string& path, std::string_view what) {
  return {visible(path) + ": " + std::string(what)};
}

/// Why the file at `path` must not be replaced; absent when there is none, or a stale socket.
std::optional<SocketFile::Problem> obstacle(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return std::nullopt;
    return problem(path, System::errorText(errno));
  }
  if (!S_ISSOCK(status.st_mode)) {
    return problem(path, "there is a file that is no socket; it is left alone");
  }
  const auto connection = UnixSocket::connect(path, patience);
  if (connection) {
    ::close(*connection);
    return problem(path, "another Corvane serves this socket already");
  }
  const int code = connection.failure().code.value_or(0);
  // Refused: nobody listens. Gone: whoever did has just ended.
  if (code == ECONNREFUSED || code == ENOENT) return std::nullopt;
  if (code == EAGAIN || code == ETIMEDOUT) {
    return problem(path, "another Corvane serves this socket, but does not accept connections");
  }
  return problem(path, connection.failure().description());
}

}  // namespace

Result<SocketFile, SocketFile::Problem> SocketFile::claim(const std::string& path, int end) {
  if (const auto address = UnixSocket::unixAddress(path); !address) {
    return Problem{visible(address.failure().description())};
  }
  const FolderLock lock(Files::split(path).folder);
  if (!lock.take(end)) return problem(path, "another process keeps its folder locked");
  if (auto found = obstacle(path)) return *std::move(found);
  const auto listener = UnixSocket::listen(path, backlog);
  if (!listener) {
    if (!obstacle(path)) ::unlink(path.c_str());  // it was made, and nobody will ever listen there
    return problem(path, listener.failure().description());
  }
  struct stat status {};
  if (!UnixSocket::makeNonBlocking(*listener) || ::lstat(path.c_str(), &status) != 0) {
    const int code = errno;
    ::close(*listener);
    ::unlink(path.c_str());
    return problem(path, System::errorText(code));
  }
  return SocketFile(path, *listener, status);
}

SocketFile::SocketFile(std::string path, int descriptor, const struct stat& status)
    : path_(std::move(path)),
      descriptor_(descriptor),
      device_(status.st_dev),
      inode_(status.st_ino) {}

SocketFile::~SocketFile() {
  if (descriptor_ < 0) return;
  ::close(descriptor_);
  struct stat status {};
  if (::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_ &&
      S_ISSOCK(status.st_mode)) {
    ::unlink(path_.c_str());
  }
}

std::optional<SocketFile::Problem> makeFolderOf(const std::string& path) {
  const std::string folder = Files::split(path).folder;
  for (std::size_t end = folder.find('/', 1);; end = folder.find('/', end + 1)) {
    const std::string part = folder.substr(0, end);
    if (::mkdir(part.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      const int code = errno;
      // A folder above may be one that can't be written to and is there all the same.
      struct stat status {};
      if (::stat(part.c_str(), &status) != 0) return problem(part, System::errorText(code));
    }
    if (end == std::string::npos) return std::nullopt;
  }
}

}  // namespace CorvaneControl::Headless
