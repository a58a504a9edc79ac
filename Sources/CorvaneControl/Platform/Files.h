#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <sys/types.h>

#include "CorvaneControl/Result.h"

/// Files that belong to the user: read whole, and replaced so that at every moment the old text or
/// the new one is there, complete, and nobody can read it who could not before.
namespace CorvaneControl::Files {

/// Bytes of the largest file that is read; a larger one is a failure.
inline constexpr std::size_t largestFile = std::size_t{64} * 1024 * 1024;

/// Why a file could not be read or replaced.
struct Failure {
  /// The system call that failed ("open"); what is wrong with the file when no call failed.
  std::string_view what{};
  std::optional<std::int32_t> code{};  ///< The system error number of the call.
  std::string path{};                  ///< The file or folder that it is about.

  /// "open: Permission denied", or "not a regular file"; the path is the caller's to name.
  std::string description() const;
  bool operator==(const Failure&) const = default;
};

/// The system calls that stand behind this header, each with its system call's arguments, results
/// and `errno`. A test replaces some to see what a failure leaves behind.
class Calls {
 public:
  virtual ~Calls() = default;
  virtual int openAt(int folder, const char* path, int flags, mode_t mode);
  virtual int close(int descriptor);
  virtual int status(int descriptor, struct stat& status);
  virtual ssize_t readLink(const char* path, char* target, std::size_t size);
  virtual ssize_t read(int descriptor, void* bytes, std::size_t count);
  virtual ssize_t write(int descriptor, const void* bytes, std::size_t count);
  virtual int setOwner(int descriptor, uid_t owner, gid_t group);
  virtual int copyAttributes(int from, int to);
  virtual int setPermissions(int descriptor, mode_t permissions);
  virtual int sync(int descriptor);
  virtual int renameAt(int folder, const char* from, const char* to);
  virtual int unlinkAt(int folder, const char* name);
};
/// The calls themselves.
Calls& systemCalls();

/// Whether `path` is a folder, or a symbolic link to one.
bool isFolder(const std::string& path);

/// What is in a regular file, and who may do what with it.
struct Contents {
  std::string bytes{};
  uid_t owner{};
  gid_t group{};
  mode_t permissions{};  ///< The nine bits and set-user-ID, set-group-ID, sticky.
  bool operator==(const Contents&) const = default;
};

/// The regular file at `path`, through symbolic links; absent when there is none. Anything else
/// there (a folder, a pipe, a device) is a failure, and never waited for.
Result<std::optional<Contents>, Failure> read(const std::string& path,
                                              Calls& calls = systemCalls());

/// An open descriptor, closed at its end.
class Descriptor {
 public:
  Descriptor(int number, Calls& calls) : number_(number), calls_(&calls) {}
  Descriptor(Descriptor&& other) noexcept
      : number_(std::exchange(other.number_, -1)), calls_(other.calls_) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (number_ >= 0) calls_->close(number_);
  }

  int number() const { return number_; }

 private:
  int number_;  // -1: moved away
  Calls* calls_;
};

/// One change of one file, from its reading to its replacement.
///
///     auto edit = Files::Edit::begin(path);
///     if (!edit) return edit.failure();
///     const std::string after = changed(edit->before());
///     if (const auto failure = edit->backUp(".backup")) return *failure;
///     if (const auto failure = edit->replace(after)) return *failure;
///
/// What is written goes to a temporary file in the same folder ("settings.json.corvane-new.", the
/// process and a number), is synced, and is renamed into place. A failure leaves the file as it was
/// and no temporary file. A kill may leave a temporary file, which nothing reads; it can be
/// deleted.
///
/// A new text gets the owner, the permissions, the access control list and the user's extended
/// attributes of the file it replaces, or the change fails; until it has them, at most the owner
/// can read it. Not kept: other hard links to the file, which go on naming the old text, times, and
/// attributes that are the system's (security labels).
class Edit {
 public:
  /// Reads the file that `path` leads to through symbolic links. There need not be one yet, but its
  /// folder must exist. The calls must outlive the edit.
  static Result<Edit, Failure> begin(const std::string& path, Calls& calls = systemCalls());

  /// The file's path with symbolic links resolved: it is replaced, while the links stay.
  const std::string& path() const { return path_; }
  bool exists() const { return file_.has_value(); }
  /// The bytes of the file; empty when there is none.
  std::string_view before() const;

  /// Writes the old bytes beside the file, over an older backup, with the file's attributes;
  /// `suffix` is added to its name. Does nothing when there is no file.
  [[nodiscard]] std::optional<Failure> backUp(std::string_view suffix);

  /// Replaces the file by `after`. A file that is new is its owner's alone (mode 600): settings may
  /// hold secrets.
  ///
  /// Fails when the file is no longer what was read, so that nothing is lost that the user or
  /// another program wrote meanwhile. This is looked at right before the renaming; only what is
  /// written between these two calls goes unnoticed.
  [[nodiscard]] std::optional<Failure> replace(std::string_view after);

 private:
  struct File {
    Descriptor descriptor;
    Contents contents;
  };
  struct Temporary {
    std::string suffix;  // of its name
    Descriptor descriptor;
  };

  Edit(std::string path, std::string name, Descriptor folder, std::optional<File> file,
       Calls& calls);
  static Result<std::optional<File>, Failure> open(int folder, const std::string& name,
                                                   const std::string& path, Calls& calls);
  std::optional<Failure> write(const std::string& suffix, std::string_view bytes);
  Result<Temporary, Failure> makeTemporary() const;
  std::optional<Failure> fill(const Temporary& temporary, std::string_view bytes) const;
  std::optional<Failure> stillAsRead() const;

  std::string path_;
  std::string name_;  // within the folder
  Descriptor folder_;
  std::optional<File> file_;
  Calls* calls_;
};

}  // namespace CorvaneControl::Files
