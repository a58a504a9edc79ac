#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <sys/types.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Result.h"

/// Files that belong to the user: read whole, and replaced so that at every moment the old text or
/// the new one is there, complete, and nobody can read it who could not before.
namespace CorvaneControl::Files {

/// The size of the largest file that is read or written; a larger one is a failure.
inline constexpr std::size_t largestFileMiB = 64;
inline constexpr std::size_t largestFile = largestFileMiB * 1024 * 1024;  // bytes

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
  virtual int pathStatus(const char* path, struct stat& status);
  virtual char* realPath(const char* path);  ///< To be freed.
  virtual ssize_t readLink(const char* path, char* target, std::size_t size);
  virtual ssize_t read(int descriptor, void* bytes, std::size_t count);
  virtual ssize_t write(int descriptor, const void* bytes, std::size_t count);
  virtual int setOwner(int descriptor, uid_t owner, gid_t group);
  virtual int copyAttributes(int from, int to, System::Group group, mode_t& permissions);
  virtual int setPermissions(int descriptor, mode_t permissions);
  virtual int sync(int descriptor);
  virtual int renameAt(int folder, const char* from, const char* to);
  virtual int unlinkAt(int folder, const char* name);
};
/// The calls themselves.
Calls& systemCalls();

/// What a path says of where a file is; nothing is looked up.
struct Parts {
  std::string folder{};  ///< "." for a name alone.
  std::string name{};    ///< Empty behind a last slash.
};
Parts split(const std::string& path);

/// Whether `path` is a folder, or a symbolic link to one. It is none where "no such file" or "not a
/// folder" is on the way; whatever else keeps one from looking is a failure.
Result<bool, Failure> isFolder(const std::string& path, Calls& calls = systemCalls());

/// The path of a folder without symbolic links, "." and ".."; what of it isn't there stays as it is
/// written, and so does all of it when that can't be told.
std::string resolvedFolder(const std::string& path, Calls& calls = systemCalls());

/// What is in a regular file, and who may do what with it.
struct Contents {
  std::string bytes{};
  uid_t owner{};
  gid_t group{};
  mode_t permissions{};  ///< The nine bits and set-user-ID, set-group-ID, sticky.
  bool operator==(const Contents&) const = default;
};

/// The regular file at `path`, through symbolic links; absent when there is none, also where one of
/// its folders is no folder. Anything else there (a folder, a pipe, a device) is a failure, and
/// never waited for.
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
/// and no temporary file. Neither does a signal: the calling thread holds back those that can be
/// held back as long as there is a temporary file, and takes them afterwards. (One that another
/// thread takes may end the process in between.) SIGXFSZ becomes a failure. A kill may leave a
/// temporary file, which nothing reads; it can be deleted.
///
/// A new text gets the owner, the group, the permissions, the access control list and the user's
/// extended attributes of the file it replaces, or the change fails; until it has them, at most the
/// owner can read it. Only a group that the user may not give does not forbid the change: the new
/// text then has the user's own group, and of what the group and all others may do with it, only
/// what both the group and all others could do before (entries of an access control list that name
/// users and groups stay). Not kept: other hard links to the file, which go on naming the old text,
/// times, and attributes that are the system's (security labels).
class Edit {
 public:
  /// Reads the file that `path` leads to through symbolic links. There need not be one yet, but its
  /// folder must exist. The calls must outlive the edit.
  static Result<Edit, Failure> begin(const std::string& path, Calls& calls = systemCalls());

  /// The file's path with symbolic links and ".." resolved: it is replaced, while the links stay.
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
  /// another program wrote meanwhile; when it holds `after` already, nothing is left to be done.
  /// This is looked at right before the renaming; only what is written between these two calls goes
  /// unnoticed.
  [[nodiscard]] std::optional<Failure> replace(std::string_view after);

 private:
  struct File {
    Descriptor descriptor;
    Contents contents;
  };
  class Temporary;

  Edit(std::string path, std::string name, Descriptor folder, std::optional<File> file,
       Calls& calls);
  static Result<std::optional<File>, Failure> open(int folder, const std::string& name,
                                                   const std::string& path, Calls& calls);
  Result<Temporary, Failure> makeTemporary() const;
  Result<Temporary, Failure> written(std::string_view bytes, const std::string& suffix) const;
  std::optional<Failure> fill(int number, std::string_view bytes, const std::string& path) const;
  Result<mode_t, Failure> copyAttributes(int number, const std::string& path) const;
  Result<bool, Failure> holdsAlready(std::string_view after) const;
  std::optional<Failure> place(Temporary& temporary, const std::string& suffix) const;

  std::string path_;
  std::string name_;  // within the folder
  Descriptor folder_;
  std::optional<File> file_;
  Calls* calls_;
};

}  // namespace CorvaneControl::Files
