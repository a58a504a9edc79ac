#include "CorvaneControl/Platform/Files.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"

namespace CorvaneControl::Files {
namespace {

constexpr mode_t allPermissions = 07777;
constexpr mode_t newPermissions = 0600;  // the owner alone reads and writes
constexpr int mostLinks = 40;
constexpr int mostTemporaryFiles = 100;
constexpr std::size_t longestLink = 4096;  // bytes
constexpr std::string_view tooLarge = "larger than 64 MiB";

/// The result of `call`, made again as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

Failure failed(std::string_view call, const std::string& path) { return {call, errno, path}; }

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
    const ssize_t count =
        uninterrupted([&] { return calls.read(file, bytes.data() + size, bytes.size() - size); });
    if (count < 0) return failed("read", path);
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
    if (size > largestFile) return Failure{tooLarge, std::nullopt, path};
    if (size == bytes.size()) bytes.resize(2 * size);
  }
  bytes.resize(size);
  return bytes;
}

Result<Contents, Failure> readContents(int file, const std::string& path, Calls& calls) {
  struct stat status {};
  if (uninterrupted([&] { return calls.status(file, status); }) != 0) return failed("fstat", path);
  if (!S_ISREG(status.st_mode)) return Failure{"not a regular file", std::nullopt, path};
  const auto size = static_cast<std::uintmax_t>(status.st_size);
  if (size > largestFile) return Failure{tooLarge, std::nullopt, path};
  auto bytes = readBytes(file, static_cast<std::size_t>(size), path, calls);
  if (!bytes) return bytes.failure();
  return Contents{*std::move(bytes), status.st_uid, status.st_gid, status.st_mode & allPermissions};
}

std::optional<Failure> writeAll(int file, std::string_view bytes, const std::string& path,
                                Calls& calls) {
  while (!bytes.empty()) {
    const ssize_t count =
        uninterrupted([&] { return calls.write(file, bytes.data(), bytes.size()); });
    if (count < 0) return failed("write", path);
    if (count == 0) return Failure{"write", EIO, path};  // or it would go on for ever
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

struct Place {
  std::string folder;
  std::string name;
};
Place placeOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {path.substr(0, slash == 0 ? 1 : slash), path.substr(slash + 1)};
}

/// Follows symbolic links from `path` to what is none, or to where nothing is. Links among its
/// folders stay: the system follows those.
Result<std::string, Failure> resolved(std::string path, Calls& calls) {
  for (int links = 0; links <= mostLinks; ++links) {
    std::string target(longestLink, '\0');
    const ssize_t size = calls.readLink(path.c_str(), target.data(), target.size());
    if (size < 0 && (errno == EINVAL || errno == ENOENT)) return path;
    if (size < 0) return failed("readlink", path);
    target.resize(static_cast<std::size_t>(size));
    if (target.size() == longestLink) return Failure{"readlink", ENAMETOOLONG, path};
    if (!target.starts_with('/')) target.insert(0, placeOf(path).folder + "/");
    path = std::move(target);
  }
  return Failure{"readlink", ELOOP, path};
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
int Calls::copyAttributes(int from, int to) { return System::copyFileAttributes(from, to); }
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

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Result<std::optional<Contents>, Failure> read(const std::string& path, Calls& calls) {
  const int number = openToRead(AT_FDCWD, path, 0, calls);
  if (number < 0 && errno == ENOENT) return std::optional<Contents>();
  if (number < 0) return failed("open", path);
  const Descriptor file(number, calls);
  auto contents = readContents(number, path, calls);
  if (!contents) return contents.failure();
  return std::optional(*std::move(contents));
}

Edit::Edit(std::string path, std::string name, Descriptor folder, std::optional<File> file,
           Calls& calls)
    : path_(std::move(path)),
      name_(std::move(name)),
      folder_(std::move(folder)),
      file_(std::move(file)),
      calls_(&calls) {}

Result<Edit, Failure> Edit::begin(const std::string& path, Calls& calls) {
  auto target = resolved(path, calls);
  if (!target) return target.failure();
  const auto [folder, name] = placeOf(*target);
  if (name.empty()) return Failure{"not a regular file", std::nullopt, *target};
  const int number = openToRead(AT_FDCWD, folder, O_DIRECTORY, calls);
  if (number < 0) return failed("open", folder);
  Descriptor descriptor(number, calls);
  auto file = open(number, name, *target, calls);
  if (!file) return file.failure();
  return Edit(*std::move(target), name, std::move(descriptor), *std::move(file), calls);
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
  return write(std::string(suffix), file_->contents.bytes);
}

std::optional<Failure> Edit::replace(std::string_view after) {
  if (after.size() > largestFile) return Failure{tooLarge, std::nullopt, path_};
  return write("", after);
}

/// Writes the file whose name has `suffix` added (none: the file itself), whole or not at all.
std::optional<Failure> Edit::write(const std::string& suffix, std::string_view bytes) {
  auto temporary = makeTemporary();
  if (!temporary) return temporary.failure();
  auto failure = fill(*temporary, bytes);
  if (!failure && suffix.empty()) failure = stillAsRead();
  const std::string name = name_ + temporary->suffix;
  if (!failure && calls_->renameAt(folder_.number(), name.c_str(), (name_ + suffix).c_str()) != 0) {
    failure = failed("rename", path_ + suffix);
  }
  if (failure) {
    calls_->unlinkAt(folder_.number(), name.c_str());
  } else {
    // The file is in place and whole. Should this fail, then a power cut may bring back the old
    // one, also whole; to report it would be to say that nothing has changed.
    uninterrupted([&] { return calls_->sync(folder_.number()); });
  }
  return failure;
}

/// Makes an empty file that may be read by fewer than the file may, never by more.
Result<Edit::Temporary, Failure> Edit::makeTemporary() const {
  const mode_t mode = (file_ ? file_->contents.permissions : newPermissions) & newPermissions;
  std::string suffix;
  for (int attempt = 0; attempt < mostTemporaryFiles; ++attempt) {
    suffix = ".corvane-new." + std::to_string(::getpid()) + "." + std::to_string(attempt);
    const int number = uninterrupted([&] {
      return calls_->openAt(folder_.number(), (name_ + suffix).c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    });
    if (number >= 0) return Temporary{suffix, Descriptor(number, *calls_)};
    if (errno != EEXIST) break;
  }
  return failed("open", path_ + suffix);
}

std::optional<Failure> Edit::fill(const Temporary& temporary, std::string_view bytes) const {
  const int number = temporary.descriptor.number();
  const std::string path = path_ + temporary.suffix;
  if (auto failure = writeAll(number, bytes, path, *calls_)) return failure;
  mode_t permissions = newPermissions;
  if (file_) {
    const Contents& old = file_->contents;
    if (uninterrupted([&] { return calls_->setOwner(number, old.owner, old.group); }) != 0) {
      return failed("fchown", path);
    }
    if (calls_->copyAttributes(file_->descriptor.number(), number) != 0) {
      return failed("setting attributes", path);
    }
    permissions = old.permissions;
  }
  if (uninterrupted([&] { return calls_->setPermissions(number, permissions); }) != 0) {
    return failed("fchmod", path);
  }
  if (uninterrupted([&] { return calls_->sync(number); }) != 0) return failed("fsync", path);
  return std::nullopt;
}

std::optional<Failure> Edit::stillAsRead() const {
  const auto now = open(folder_.number(), name_, path_, *calls_);
  if (!now) return now.failure();
  const bool isSame =
      now->has_value() == file_.has_value() && (!file_ || (*now)->contents == file_->contents);
  if (isSame) return std::nullopt;
  return Failure{"changed by another program meanwhile", std::nullopt, path_};
}

}  // namespace CorvaneControl::Files
