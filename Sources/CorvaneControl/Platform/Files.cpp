#include "CorvaneControl/Platform/Files.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Transfer.h"

namespace CorvaneControl::Files {

using Transfer::uninterrupted;

namespace {

constexpr mode_t allPermissions = 07777;
constexpr mode_t newPermissions = 0600;  // the owner alone reads and writes
constexpr int mostLinks = 40;
constexpr int mostTemporaryFiles = 100;
constexpr std::size_t longestLink = 4096;  // bytes
constexpr gid_t unchangedGroup = static_cast<gid_t>(-1);

Failure failed(std::string_view call, const std::string& path) { return {call, errno, path}; }

Failure tooLarge(const std::string& path) {
  static const std::string text = "larger than " + std::to_string(largestFileMiB) + " MiB";
  return {text, std::nullopt, path};
}

Failure noRegularFile(const std::string& path) {
  return {"not a regular file", std::nullopt, path};
}

/// Whether the call that just failed found nothing there, be it that a folder on the way is none.
bool foundNothing() { return errno == ENOENT || errno == ENOTDIR; }

/// Opens without ever waiting for the other end of a pipe, and without becoming a terminal's.
int openToRead(int folder, const std::string& name, int flags, Calls& calls) {
  return uninterrupted([&] {
    return calls.openAt(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags,
                        0);
  });
}

/// Reads to the end, which may be further than `expected` when the file grows meanwhile.
Result<std::string, Failure> readBytes(int file, std::size_t expected, const std::string& path,
                                       Calls& calls) {
  std::string bytes(expected + 1, '\0');  // one more, for the read that finds the end
  std::size_t size = 0;
  while (true) {
    const ssize_t count = Transfer::readAll(
        bytes.data() + size, bytes.size() - size,
        [&](char* part, std::size_t most) { return calls.read(file, part, most); });
    if (count < 0) return failed("read", path);
    size += static_cast<std::size_t>(count);
    if (size > largestFile) return tooLarge(path);
    if (size < bytes.size()) break;
    bytes.resize(2 * size);
  }
  bytes.resize(size);
  return bytes;
}

Result<Contents, Failure> readContents(int file, const std::string& path, Calls& calls) {
  struct stat status {};
  if (uninterrupted([&] { return calls.status(file, status); }) != 0) return failed("fstat", path);
  if (!S_ISREG(status.st_mode)) return noRegularFile(path);
  const auto size = static_cast<std::uintmax_t>(status.st_size);
  if (size > largestFile) return tooLarge(path);
  auto bytes = readBytes(file, static_cast<std::size_t>(size), path, calls);
  if (!bytes) return bytes.failure();
  return Contents{*std::move(bytes), status.st_uid, status.st_gid,
                  static_cast<mode_t>(status.st_mode & allPermissions)};
}

/// `folder`/`name`; the folder alone without a name.
std::string joined(std::string folder, const std::string& name) {
  if (!name.empty() && !folder.ends_with('/')) folder += '/';
  return folder += name;
}

/// Follows symbolic links from `path` to what is none, or to where nothing is. Links among its
/// folders stay: the system follows those.
Result<std::string, Failure> followed(std::string path, Calls& calls) {
  for (int links = 0; links <= mostLinks; ++links) {
    std::string target(longestLink, '\0');
    const ssize_t size = calls.readLink(path.c_str(), target.data(), target.size());
    if (size < 0 && (errno == EINVAL || foundNothing())) return path;
    if (size < 0) return failed("readlink", path);
    target.resize(static_cast<std::size_t>(size));
    if (target.size() == longestLink) return Failure{"readlink", ENAMETOOLONG, path};
    if (!target.starts_with('/')) target = joined(split(path).folder, target);
    path = std::move(target);
  }
  return Failure{"readlink", ELOOP, path};
}

/// Holds back the signals that would end the process; those that came meanwhile are delivered at
/// its end. It is about the calling thread only.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t held;
    sigfillset(&held);
    // What our own instructions cause can't wait.
    for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
      sigdelset(&held, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &held, &before_);
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

/// Takes away the signal that a write beyond the limit for files raises beside its failure. It is
/// held back.
void dropFileSizeSignal() {
  sigset_t pending;
  ::sigpending(&pending);
  if (sigismember(&pending, SIGXFSZ) != 1) return;
  sigset_t dropped;
  sigemptyset(&dropped);
  sigaddset(&dropped, SIGXFSZ);
  int signal = 0;
  ::sigwait(&dropped, &signal);
}

}  // namespace

std::string Failure::description() const {
  std::string text(what);
  if (code) text += ": " + System::errorText(*code);
  return text;
}

int Calls::openAt(int folder, const char* path, int flags, mode_t mode) {
  return ::openat(folder, path, flags, mode);
}
int Calls::close(int descriptor) { return ::close(descriptor); }
int Calls::status(int descriptor, struct stat& status) { return ::fstat(descriptor, &status); }
int Calls::pathStatus(const char* path, struct stat& status) { return ::stat(path, &status); }
char* Calls::realPath(const char* path) { return ::realpath(path, nullptr); }
ssize_t Calls::readLink(const char* path, char* target, std::size_t size) {
  return ::readlink(path, target, size);
}
ssize_t Calls::read(int descriptor, void* bytes, std::size_t count) {
  return ::read(descriptor, bytes, count);
}
ssize_t Calls::write(int descriptor, const void* bytes, std::size_t count) {
  return ::write(descriptor, bytes, count);
}
int Calls::setOwner(int descriptor, uid_t owner, gid_t group) {
  return ::fchown(descriptor, owner, group);
}
int Calls::copyAttributes(int from, int to, System::Group group, mode_t& permissions) {
  return System::copyFileAttributes(from, to, group, permissions);
}
int Calls::setPermissions(int descriptor, mode_t permissions) {
  return ::fchmod(descriptor, permissions);
}
int Calls::sync(int descriptor) { return System::syncToDisk(descriptor); }
int Calls::renameAt(int folder, const char* from, const char* to) {
  return ::renameat(folder, from, folder, to);
}
int Calls::unlinkAt(int folder, const char* name) { return ::unlinkat(folder, name, 0); }

Calls& systemCalls() {
  static Calls calls;
  return calls;
}

Parts split(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {path.substr(0, slash == 0 ? 1 : slash), path.substr(slash + 1)};
}

Result<bool, Failure> isFolder(const std::string& path, Calls& calls) {
  struct stat status {};
  if (uninterrupted([&] { return calls.pathStatus(path.c_str(), status); }) == 0) {
    return bool(S_ISDIR(status.st_mode));
  }
  if (foundNothing()) return false;
  return failed("stat", path);
}

std::string resolvedFolder(const std::string& path, Calls& calls) {
  std::string existing = path;
  std::string missing;
  while (true) {
    const std::unique_ptr<char, decltype(&std::free)> real(calls.realPath(existing.c_str()),
                                                           &std::free);
    if (real) return joined(real.get(), missing);
    auto [folder, name] = split(existing);
    if (!foundNothing() || folder == existing) return path;
    missing = joined(name, missing);
    existing = std::move(folder);
  }
}

Result<std::optional<Contents>, Failure> read(const std::string& path, Calls& calls) {
  const int number = openToRead(AT_FDCWD, path, 0, calls);
  if (number < 0 && foundNothing()) return std::optional<Contents>();
  if (number < 0) return failed("open", path);
  const Descriptor file(number, calls);
  auto contents = readContents(number, path, calls);
  if (!contents) return contents.failure();
  return std::optional(*std::move(contents));
}

/// A file with a name of its own beside the one that is edited. It goes away at its end, unless it
/// was given another name.
class Edit::Temporary {
 public:
  Temporary(int folder, std::string name, Descriptor descriptor, Calls& calls)
      : folder_(folder),
        name_(std::move(name)),
        descriptor_(std::move(descriptor)),
        calls_(&calls) {}
  Temporary(Temporary&& other) noexcept
      : folder_(other.folder_),
        name_(std::exchange(other.name_, {})),
        descriptor_(std::move(other.descriptor_)),
        calls_(other.calls_) {}
  Temporary& operator=(Temporary&&) = delete;
  ~Temporary() {
    if (!name_.empty()) calls_->unlinkAt(folder_, name_.c_str());
  }

  int number() const { return descriptor_.number(); }
  /// 0, or -1 and `errno`.
  int rename(const std::string& name) {
    const int result = calls_->renameAt(folder_, name_.c_str(), name.c_str());
    if (result == 0) name_.clear();
    return result;
  }

 private:
  int folder_;
  std::string name_;  // empty: it has another name now, or was moved
  Descriptor descriptor_;
  Calls* calls_;
};

Edit::Edit(std::string path, std::string name, Descriptor folder, std::optional<File> file,
           Calls& calls)
    : path_(std::move(path)),
      name_(std::move(name)),
      folder_(std::move(folder)),
      file_(std::move(file)),
      calls_(&calls) {}

Result<Edit, Failure> Edit::begin(const std::string& path, Calls& calls) {
  const auto target = followed(path, calls);
  if (!target) return target.failure();
  const auto [writtenFolder, name] = split(*target);
  if (name.empty()) return noRegularFile(*target);
  const std::string folder = resolvedFolder(writtenFolder, calls);
  const int number = openToRead(AT_FDCWD, folder, O_DIRECTORY, calls);
  if (number < 0) return failed("open", folder);
  Descriptor descriptor(number, calls);
  const std::string file = joined(folder, name);
  auto old = open(number, name, file, calls);
  if (!old) return old.failure();
  return Edit(file, name, std::move(descriptor), *std::move(old), calls);
}

/// Absent when there is no file.
Result<std::optional<Edit::File>, Failure> Edit::open(int folder, const std::string& name,
                                                      const std::string& path, Calls& calls) {
  const int number = openToRead(folder, name, O_NOFOLLOW, calls);
  if (number < 0 && errno == ENOENT) return std::optional<File>();
  if (number < 0) return failed("open", path);
  Descriptor descriptor(number, calls);
  auto contents = readContents(number, path, calls);
  if (!contents) return contents.failure();
  return std::optional(File{std::move(descriptor), *std::move(contents)});
}

std::string_view Edit::before() const {
  return file_ ? std::string_view(file_->contents.bytes) : std::string_view();
}

std::optional<Failure> Edit::backUp(std::string_view suffix) {
  if (!file_) return std::nullopt;
  const HeldSignals held;
  const std::string added(suffix);
  auto temporary = written(file_->contents.bytes, added);
  if (!temporary) return temporary.failure();
  return place(*temporary, added);
}

std::optional<Failure> Edit::replace(std::string_view after) {
  if (after.size() > largestFile) return tooLarge(path_);
  const HeldSignals held;
  auto temporary = written(after, "");
  if (!temporary) return temporary.failure();
  const auto isDone = holdsAlready(after);
  if (!isDone) return isDone.failure();
  if (*isDone) return std::nullopt;
  return place(*temporary, "");
}

/// Makes an empty file that may be read by fewer than the file may, never by more.
Result<Edit::Temporary, Failure> Edit::makeTemporary() const {
  const mode_t permissions = file_ ? file_->contents.permissions : newPermissions;
  const auto mode = static_cast<mode_t>(permissions & newPermissions);
  for (int attempt = 0; attempt < mostTemporaryFiles; ++attempt) {
    std::string name =
        name_ + ".corvane-new." + std::to_string(::getpid()) + "." + std::to_string(attempt);
    const int number = uninterrupted([&] {
      return calls_->openAt(folder_.number(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                            mode);
    });
    if (number >= 0) {
      return Temporary(folder_.number(), std::move(name), Descriptor(number, *calls_), *calls_);
    }
    if (errno != EEXIST) break;
  }
  return failed("open", split(path_).folder);
}

/// A whole file that is ready to become the one whose name has `suffix` added.
Result<Edit::Temporary, Failure> Edit::written(std::string_view bytes,
                                               const std::string& suffix) const {
  auto temporary = makeTemporary();
  if (!temporary) return temporary.failure();
  if (auto failure = fill(temporary->number(), bytes, path_ + suffix)) return *std::move(failure);
  return temporary;
}

/// Writes the bytes and what goes with them; a failure is said to be about the file at `path`.
std::optional<Failure> Edit::fill(int number, std::string_view bytes,
                                  const std::string& path) const {
  const auto write = [&](const char* part, std::size_t count) {
    return calls_->write(number, part, count);
  };
  if (!Transfer::writeAll(bytes, write)) {
    Failure failure = failed("write", path);
    if (failure.code == EFBIG) dropFileSizeSignal();
    return failure;
  }
  const auto permissions = copyAttributes(number, path);
  if (!permissions) return permissions.failure();
  if (uninterrupted([&] { return calls_->setPermissions(number, *permissions); }) != 0) {
    return failed("fchmod", path);
  }
  if (uninterrupted([&] { return calls_->sync(number); }) != 0) return failed("fsync", path);
  return std::nullopt;
}

/// Gives a new file what the old one has, but for the permissions, which are the result.
Result<mode_t, Failure> Edit::copyAttributes(int number, const std::string& path) const {
  if (!file_) return mode_t{newPermissions};
  const Contents& old = file_->contents;
  const auto setOwner = [&](gid_t group) {
    return uninterrupted([&] { return calls_->setOwner(number, old.owner, group); });
  };
  System::Group group = System::Group::same;
  if (setOwner(old.group) != 0) {
    // The user is not in that group, or it has no number in this container.
    if ((errno != EPERM && errno != EINVAL) || setOwner(unchangedGroup) != 0) {
      return failed("fchown", path);
    }
    group = System::Group::other;
  }
  mode_t permissions = old.permissions;
  if (calls_->copyAttributes(file_->descriptor.number(), number, group, permissions) != 0) {
    return failed("setting attributes", path);
  }
  return permissions;
}

/// Whether another program has written `after` meanwhile; fails when it has written anything else.
Result<bool, Failure> Edit::holdsAlready(std::string_view after) const {
  const auto now = open(folder_.number(), name_, path_, *calls_);
  if (!now) return now.failure();
  if (now->has_value() && (*now)->contents.bytes == after) return true;
  const bool isAsRead =
      now->has_value() == file_.has_value() && (!file_ || (*now)->contents == file_->contents);
  if (!isAsRead) return Failure{"changed by another program meanwhile", std::nullopt, path_};
  return false;
}

/// Makes the temporary file the one whose name has `suffix` added.
std::optional<Failure> Edit::place(Temporary& temporary, const std::string& suffix) const {
  if (temporary.rename(name_ + suffix) != 0) return failed("rename", path_ + suffix);
  // The file is in place and whole. Should this fail, then a power cut may bring back the old one,
  // also whole; to report it would be to say that nothing has changed.
  uninterrupted([&] { return calls_->sync(folder_.number()); });
  return std::nullopt;
}

}  // namespace CorvaneControl::Files
