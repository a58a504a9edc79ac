#include "CorvaneControl/Platform/Files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/ScriptedCalls.h"
#include "Support/TemporaryFolder.h"

namespace {

namespace Files = CorvaneControl::Files;
using CorvaneTests::ScriptedCalls;
using CorvaneTests::TemporaryFolder;

const auto named = [](const auto& row) { return std::string(row.param.name); };

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}
mode_t permissionsOf(const std::string& path) { return statusOf(path).st_mode & 07777; }

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

/// A file with a given text and permissions, whatever the process's mask.
std::string file(const TemporaryFolder& folder, std::string_view name, std::string_view text,
                 mode_t permissions) {
  std::string path = folder.write(name, text);
  EXPECT_EQ(::chmod(path.c_str(), permissions), 0);
  return path;
}

/// A whole change: reading, backing up, replacing.
std::optional<Files::Failure> change(const std::string& path, std::string_view after,
                                     Files::Calls& calls = Files::systemCalls()) {
  auto edit = Files::Edit::begin(path, calls);
  if (!edit) return edit.failure();
  if (auto failure = edit->backUp(".backup")) return failure;
  return edit->replace(after);
}

std::string text(const std::optional<Files::Failure>& failure) {
  return failure ? failure->path + ": " + failure->description() : "no failure";
}

// Reading

TEST(Files, readsAFileWithItsOwnerAndPermissions) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", std::string("a\0b\n", 4), 0640);
  const auto contents = Files::read(path);
  ASSERT_TRUE(contents);
  ASSERT_TRUE(contents->has_value());
  EXPECT_EQ((*contents)->bytes, std::string("a\0b\n", 4));
  EXPECT_EQ((*contents)->permissions, mode_t{0640});
  EXPECT_EQ((*contents)->owner, ::geteuid());
}

TEST(Files, aMissingFileIsAbsent) {
  const TemporaryFolder folder;
  const auto contents = Files::read(folder.path("settings.json"));
  ASSERT_TRUE(contents);
  EXPECT_FALSE(contents->has_value());
}

TEST(Files, aFileInAMissingFolderIsAbsent) {
  const TemporaryFolder folder;
  const auto contents = Files::read(folder.path("none/settings.json"));
  ASSERT_TRUE(contents);
  EXPECT_FALSE(contents->has_value());
}

TEST(Files, aFileUnderWhatIsNoFolderIsAbsent) {
  const TemporaryFolder folder;
  folder.write("file", "");
  const auto contents = Files::read(folder.path("file/settings.json"));
  ASSERT_TRUE(contents);
  EXPECT_FALSE(contents->has_value());
}

TEST(Files, readsThroughSymbolicLinks) {
  const TemporaryFolder folder;
  folder.write("real/settings.json", "text");
  std::filesystem::create_symlink("real/settings.json", folder.path("link"));
  std::filesystem::create_symlink("link", folder.path("link to link"));
  const auto contents = Files::read(folder.path("link to link"));
  ASSERT_TRUE(contents && contents->has_value());
  EXPECT_EQ((*contents)->bytes, "text");
}

TEST(Files, aLinkThatLeadsNowhereIsAbsent) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("nowhere", folder.path("link"));
  const auto contents = Files::read(folder.path("link"));
  ASSERT_TRUE(contents);
  EXPECT_FALSE(contents->has_value());
}

struct NoFileCase {
  const char* name;
  std::function<void(const std::string& path)> make;
  std::string description;
};
const NoFileCase noFileCases[] = {
    {"folder", [](const std::string& path) { std::filesystem::create_directory(path); },
     "not a regular file"},
    {"linkToAFolder", [](const std::string& path) { std::filesystem::create_symlink("/", path); },
     "not a regular file"},
    {"pipe", [](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
     "not a regular file"},
    {"device", [](const std::string& path) { std::filesystem::create_symlink("/dev/null", path); },
     "not a regular file"},
    {"fileThatIsTooLarge",
     [](const std::string& path) {
       const int number = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
       ASSERT_EQ(::ftruncate(number, static_cast<off_t>(Files::largestFile) + 1), 0);
       ::close(number);
     },
     "larger than 64 MiB"},
};
class NoFile : public testing::TestWithParam<NoFileCase> {};
TEST_P(NoFile, isRefusedAtOnce) {
  const TemporaryFolder folder;
  const std::string path = folder.path("settings.json");
  GetParam().make(path);
  const auto contents = Files::read(path);
  ASSERT_FALSE(contents);
  EXPECT_EQ(contents.failure().description(), GetParam().description);
  EXPECT_EQ(contents.failure().path, path);
  const auto edit = Files::Edit::begin(path);
  ASSERT_FALSE(edit);
  EXPECT_EQ(edit.failure().description(), GetParam().description);
  EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"settings.json"});
}
INSTANTIATE_TEST_SUITE_P(Files, NoFile, testing::ValuesIn(noFileCases), named);

TEST(Files, readsTheLargestFile) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "");
  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(Files::largestFile)), 0);
  const auto contents = Files::read(path);
  ASSERT_TRUE(contents && contents->has_value());
  EXPECT_EQ((*contents)->bytes.size(), Files::largestFile);
}

TEST(Files, readsToTheEndOfAFileThatGrows) {
  const TemporaryFolder folder;
  const std::string bytes(10'000, 'x');
  const std::string path = folder.write("settings.json", bytes);
  ScriptedCalls calls;
  calls.claimedSize = 3;
  const auto contents = Files::read(path, calls);
  ASSERT_TRUE(contents && contents->has_value());
  EXPECT_EQ((*contents)->bytes, bytes);
}

TEST(Files, refusesAFileThatGrowsTooLarge) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "");
  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(Files::largestFile) + 1), 0);
  ScriptedCalls calls;
  calls.claimedSize = 0;
  const auto contents = Files::read(path, calls);
  ASSERT_FALSE(contents);
  EXPECT_EQ(contents.failure().description(), "larger than 64 MiB");
}

TEST(Files, tellsAFolderFromEverythingElse) {
  const TemporaryFolder folder;
  folder.write("file", "");
  std::filesystem::create_symlink(".", folder.path("link"));
  const auto isFolder = [](const std::string& path) {
    const auto found = Files::isFolder(path);
    EXPECT_TRUE(found) << path;
    return found && *found;
  };
  EXPECT_TRUE(isFolder(folder.path()));
  EXPECT_TRUE(isFolder(folder.path("link")));
  EXPECT_FALSE(isFolder(folder.path("file")));
  EXPECT_FALSE(isFolder(folder.path("file/below")));
  EXPECT_FALSE(isFolder(folder.path("none")));
  EXPECT_FALSE(isFolder(""));
}

TEST(Files, whatKeepsFromLookingAtAFolderIsAFailure) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("circle", folder.path("circle"));
  const auto circle = Files::isFolder(folder.path("circle"));
  ASSERT_FALSE(circle);
  EXPECT_EQ(text(circle.failure()),
            folder.path("circle") + ": stat: Too many levels of symbolic links");
  for (const int code : {EACCES, EIO}) {
    ScriptedCalls calls;
    calls.before = [&](std::string_view call) { return call == "stat" ? code : 0; };
    const auto denied = Files::isFolder(folder.path(), calls);
    ASSERT_FALSE(denied);
    EXPECT_EQ(denied.failure().code, code);
  }
}

// Replacing

TEST(FilesEdit, replacesAFileAndKeepsTheOldTextBesideIt) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0640);
  EXPECT_FALSE(change(path, "new"));
  EXPECT_EQ(folder.read("settings.json"), "new");
  EXPECT_EQ(folder.read("settings.json.backup"), "old");
  EXPECT_EQ(namesIn(folder.path()),
            (std::set<std::string>{"settings.json", "settings.json.backup"}));
}

// A power cut must not find the name on a text that is still on its way to the disk, and nobody may
// read the text before it has the old one's permissions.
TEST(FilesEdit, givesTheNameAwayLast) {
  const TemporaryFolder folder;
  std::vector<std::string> made;
  ScriptedCalls calls;
  auto edit = Files::Edit::begin(folder.write("settings.json", "old"), calls);
  ASSERT_TRUE(edit);
  calls.before = [&](std::string_view call) {
    made.emplace_back(call);
    return 0;
  };
  EXPECT_FALSE(edit->replace("new"));
  EXPECT_EQ(made, (std::vector<std::string>{"open", "write", "fchown", "setting attributes",
                                            "fchmod", "fsync", "open", "fstat", "read", "read",
                                            "close",  // is it still what was read?
                                            "rename", "fsync", "close"}));
}

TEST(FilesEdit, overwritesAnOlderBackup) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "1", 0600);
  EXPECT_FALSE(change(path, "2"));
  EXPECT_FALSE(change(path, "3"));
  EXPECT_EQ(folder.read("settings.json.backup"), "2");
}

TEST(FilesEdit, saysWhatWasThere) {
  const TemporaryFolder folder;
  const auto some = Files::Edit::begin(folder.write("settings.json", "old"));
  ASSERT_TRUE(some);
  EXPECT_TRUE(some->exists());
  EXPECT_EQ(some->before(), "old");
  EXPECT_EQ(some->path(), folder.path("settings.json"));
  const auto none = Files::Edit::begin(folder.path("none"));
  ASSERT_TRUE(none);
  EXPECT_FALSE(none->exists());
  EXPECT_EQ(none->before(), "");
}

TEST(FilesEdit, makesANewFileForItsOwnerAloneWithoutABackup) {
  const TemporaryFolder folder;
  const mode_t mask = ::umask(0);
  EXPECT_FALSE(change(folder.path("settings.json"), "new"));
  ::umask(mask);
  EXPECT_EQ(folder.read("settings.json"), "new");
  EXPECT_EQ(permissionsOf(folder.path("settings.json")), mode_t{0600});
  EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"settings.json"});
}

TEST(FilesEdit, tellsThePathThatItReallyHas) {
  const TemporaryFolder folder;
  folder.write("real/deep/place", "");
  folder.write("real/target.json", "old");
  std::filesystem::create_symlink("../target.json", folder.path("real/deep/settings.json"));
  std::filesystem::create_symlink("real/deep", folder.path("claude"));
  const auto edit = Files::Edit::begin(folder.path("claude/../deep/./settings.json"));
  ASSERT_TRUE(edit);
  EXPECT_EQ(edit->path(), folder.path("real/target.json"));
}

TEST(FilesEdit, tellsThePathAsItIsWrittenWhenItCannotBeResolved) {
  const TemporaryFolder folder;
  folder.write("settings.json", "old");
  ScriptedCalls calls;
  calls.before = [](std::string_view call) { return call == "realpath" ? EACCES : 0; };
  auto edit = Files::Edit::begin(folder.path("./settings.json"), calls);
  ASSERT_TRUE(edit);
  EXPECT_EQ(edit->path(), folder.path("./settings.json"));
  EXPECT_FALSE(edit->replace("new"));
  EXPECT_EQ(folder.read("settings.json"), "new");
}

TEST(Files, resolvesAFolderAsFarAsItIsThere) {
  const TemporaryFolder folder;
  folder.write("real/deep/place", "");
  std::filesystem::create_symlink("real/deep", folder.path("link"));
  EXPECT_EQ(Files::resolvedFolder(folder.path("link/..//deep/.")), folder.path("real/deep"));
  EXPECT_EQ(Files::resolvedFolder(folder.path("link/../none/../x")), folder.path("real/none/../x"));
  EXPECT_EQ(Files::resolvedFolder("/"), "/");
  EXPECT_EQ(Files::resolvedFolder("/none here/x"), "/none here/x");
  EXPECT_EQ(Files::resolvedFolder(""), std::filesystem::current_path().string());
}

TEST(FilesEdit, writesTheEmptyTextAndALongOne) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  EXPECT_FALSE(change(path, ""));
  EXPECT_EQ(folder.read("settings.json"), "");
  const std::string longText(3'000'000, 'x');
  EXPECT_FALSE(change(path, longText));
  EXPECT_EQ(folder.read("settings.json"), longText);
}

TEST(FilesEdit, writesNothingThatItCouldNotReadAgain) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  const auto failure = change(path, std::string(Files::largestFile + 1, 'x'));
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "larger than 64 MiB");
  EXPECT_EQ(folder.read("settings.json"), "old");
  EXPECT_FALSE(change(path, std::string(Files::largestFile, 'x')));
}

TEST(FilesEdit, pathsNeedNoSlash) {
  const TemporaryFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  EXPECT_FALSE(change("settings.json", "new"));
  std::filesystem::current_path(before);
  EXPECT_EQ(folder.read("settings.json"), "new");
}

struct PermissionsCase {
  const char* name;
  mode_t permissions;
};
const PermissionsCase permissionsCases[] = {
    {"0600", 0600}, {"0644", 0644}, {"0666", 0666}, {"0400", 0400}, {"0444", 0444},
    {"0640", 0640}, {"0755", 0755}, {"0604", 0604}, {"0000", 0000},
};
class Permissions : public testing::TestWithParam<PermissionsCase> {};
TEST_P(Permissions, areKeptAndNeverWiderAtAnyMoment) {
  const mode_t permissions = GetParam().permissions;
  if ((permissions & 0400) == 0 && ::geteuid() != 0) GTEST_SKIP() << "only root can read this file";
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
    const TemporaryFolder folder;
    const std::string path = file(folder, "settings.json", "secret", permissions);
    ScriptedCalls calls;
    std::size_t looks = 0;
    calls.before = [&](std::string_view call) {
      for (const std::string& name : namesIn(folder.path())) {
        EXPECT_EQ(permissionsOf(folder.path(name)) & ~permissions, mode_t{0})
            << name << " before " << call;
        ++looks;
      }
      return 0;
    };
    const mode_t before = ::umask(mask);
    EXPECT_FALSE(change(path, "new secret", calls));
    ::umask(before);
    EXPECT_GT(looks, 20U);
    EXPECT_EQ(permissionsOf(path), permissions);
    EXPECT_EQ(permissionsOf(path + ".backup"), permissions);
  }
}
INSTANTIATE_TEST_SUITE_P(FilesEdit, Permissions, testing::ValuesIn(permissionsCases), named);

TEST(FilesEdit, aBackupThatOthersCouldReadIsClosedToThem) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "secret", 0600);
  file(folder, "settings.json.backup", "", 0666);
  EXPECT_FALSE(change(path, "new"));
  EXPECT_EQ(permissionsOf(path + ".backup"), mode_t{0600});
}

TEST(FilesEdit, keepsTheOwnerAndTheGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0640);
  ASSERT_EQ(::chown(path.c_str(), 1234, 5678), 0);
  EXPECT_FALSE(change(path, "new"));
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_EQ(statusOf(name).st_uid, uid_t{1234}) << name;
    EXPECT_EQ(statusOf(name).st_gid, gid_t{5678}) << name;
    EXPECT_EQ(permissionsOf(name), mode_t{0640}) << name;
  }
}

/// The calls of a user who may give files to nobody, nor to the group that the file has.
class OtherGroup : public Files::Calls {
 public:
  int setOwner(int descriptor, uid_t owner, gid_t group) override {
    if (owner == ::geteuid() && group == static_cast<gid_t>(-1)) {
      return Calls::setOwner(descriptor, owner, group);
    }
    errno = code;
    return -1;
  }
  int code = EPERM;
};

struct OtherGroupCase {
  const char* name;
  mode_t before;
  mode_t after;
};
// What was the former group's is now another group's: its members were "others" before. Members of
// the former group are "others" now.
const OtherGroupCase otherGroupCases[] = {
    {"theGroupHadMore", 0664, 0644},
    {"theGroupHadAll", 0660, 0600},
    {"theGroupCouldRead", 0640, 0600},
    {"theGroupHadLessThanOthers", 0604, 0600},
    {"theGroupCouldWriteWhatOthersCouldRead", 0624, 0600},
    {"bothHadTheSame", 0644, 0644},
    {"bothHadAll", 0666, 0666},
    {"nobodyElseHadAny", 0600, 0600},
    {"theGroupsRightsToRun", 0750, 0700},
    {"runsAsTheGroup", 02755, 0755},
};
class OtherGroupPermissions : public testing::TestWithParam<OtherGroupCase> {};
TEST_P(OtherGroupPermissions, giveNobodyMoreThanBefore) {
  for (const int code : {EPERM, EINVAL}) {  // the latter: it has no number in this container
    const TemporaryFolder folder;
    const std::string path = file(folder, "settings.json", "old", GetParam().before);
    OtherGroup calls;
    calls.code = code;
    const auto failure = change(path, "new", calls);
    ASSERT_FALSE(failure) << text(failure);
    EXPECT_EQ(folder.read("settings.json"), "new");
    EXPECT_EQ(permissionsOf(path), GetParam().after);
    EXPECT_EQ(permissionsOf(path + ".backup"), GetParam().after);
  }
}
INSTANTIATE_TEST_SUITE_P(FilesEdit, OtherGroupPermissions, testing::ValuesIn(otherGroupCases),
                         named);

TEST(FilesEdit, aFileOfSomebodyElseIsLeftAlone) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0644);
  ScriptedCalls calls;
  calls.before = [](std::string_view call) { return call == "fchown" ? EPERM : 0; };
  const auto failure = change(path, "new", calls);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "fchown: Operation not permitted");
  EXPECT_EQ(failure->path, path + ".backup");
  EXPECT_EQ(folder.read("settings.json"), "old");
  EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"settings.json"});
}

TEST(FilesEdit, aRealUserKeepsTheOwnGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0664);
  ASSERT_EQ(::chown(folder.path().c_str(), 1234, 1234), 0);
  ASSERT_EQ(::chown(path.c_str(), 1234, 5678), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool isUser = ::setgroups(0, nullptr) == 0 && ::setgid(1234) == 0 && ::setuid(1234) == 0;
    ::_exit(isUser && !change(path, "new") ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_EQ(statusOf(name).st_uid, uid_t{1234}) << name;
    EXPECT_EQ(statusOf(name).st_gid, gid_t{1234}) << name;
    EXPECT_EQ(permissionsOf(name), mode_t{0644}) << name;
  }
}

/// Runs Python, for what POSIX has no call for, with `path` as the path of the file; false when it
/// or the file system can't do what `code` says.
bool python(const std::string& path, const std::string& code) {
  const std::string command =
      "python3 -c 'import os, struct, sys\npath = sys.argv[1]\n" + code + "' '" + path + "'";
  return std::system((command + " 2>/dev/null").c_str()) == 0;
}

TEST(FilesEdit, keepsTheUsersExtendedAttributes) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  if (!python(path,
              "os.setxattr(path, \"user.colour\", b\"blue\")\n"
              "os.setxattr(path, \"user.empty\", b\"\")")) {
    GTEST_SKIP() << "no extended attributes here, or no Python to set them";
  }
  EXPECT_FALSE(change(path, "new"));
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_TRUE(python(name,
                       "assert os.getxattr(path, \"user.colour\") == b\"blue\"\n"
                       "assert os.getxattr(path, \"user.empty\") == b\"\""))
        << name;
  }
}

// An access control list as Linux stores it: its version, then a tag, permissions and an id for
// each entry. This one lets user 1234 read and write, and the owning group nothing.
const std::string accessList =
    "access = struct.pack(\"<I\", 2) + b\"\".join(struct.pack(\"<HHI\", *entry) for entry in "
    "[(1, 6, 2**32 - 1), (2, 6, 1234), (4, 0, 2**32 - 1), (16, 6, 2**32 - 1), (32, 0, 2**32 - "
    "1)])\n";

TEST(FilesEdit, keepsTheAccessControlList) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0600);
  if (!python(path, accessList + "os.setxattr(path, \"system.posix_acl_access\", access)")) {
    GTEST_SKIP() << "no access control lists here, or no Python to set them";
  }
  EXPECT_FALSE(change(path, "new"));
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_TRUE(python(
        name, accessList + "assert os.getxattr(path, \"system.posix_acl_access\") == access"))
        << name;
  }
}

// The list's entries for the file's group and for others speak of other people when the group is
// another one; those that name users and groups do not.
TEST(FilesEdit, inAnotherGroupTheAccessControlListLetsInOnlyWhomItNames) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0600);
  const auto list = [](int group, int others) {
    return "access = struct.pack(\"<I\", 2) + b\"\".join(struct.pack(\"<HHI\", *entry) for entry "
           "in "
           "[(1, 6, 2**32 - 1), (2, 6, 1234), (4, " +
           std::to_string(group) + ", 2**32 - 1), (8, 4, 5678), (16, 6, 2**32 - 1), (32, " +
           std::to_string(others) + ", 2**32 - 1)])\n";
  };
  if (!python(path, list(6, 4) + "os.setxattr(path, \"system.posix_acl_access\", access)")) {
    GTEST_SKIP() << "no access control lists here, or no Python to set them";
  }
  OtherGroup calls;
  const auto failure = change(path, "new", calls);
  ASSERT_FALSE(failure) << text(failure);
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_TRUE(python(
        name, list(0, 0) + "assert os.getxattr(path, \"system.posix_acl_access\") == access"))
        << name;
    EXPECT_EQ(permissionsOf(name), mode_t{0660}) << "the list's mask, and nothing for others";
  }
}

TEST(FilesEdit, takesNoAccessControlListFromTheFolder) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0640);
  if (!python(folder.path(),
              accessList + "os.setxattr(path, \"system.posix_acl_default\", access)")) {
    GTEST_SKIP() << "no access control lists here, or no Python to set them";
  }
  EXPECT_FALSE(change(path, "new"));
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_TRUE(python(name, "assert \"system.posix_acl_access\" not in os.listxattr(path)"))
        << name;
  }
}

// Symbolic links

TEST(FilesEdit, replacesTheFileBehindALinkAndLeavesTheLink) {
  const TemporaryFolder folder;
  folder.write("dotfiles/claude.json", "old");
  std::filesystem::create_directory(folder.path("home"));
  std::filesystem::create_symlink("../dotfiles/link.json", folder.path("home/settings.json"));
  std::filesystem::create_symlink(folder.path("dotfiles/claude.json"),
                                  folder.path("dotfiles/link.json"));
  EXPECT_FALSE(change(folder.path("home/settings.json"), "new"));
  EXPECT_EQ(folder.read("dotfiles/claude.json"), "new");
  EXPECT_EQ(folder.read("dotfiles/claude.json.backup"), "old");
  EXPECT_EQ(std::filesystem::read_symlink(folder.path("home/settings.json")),
            "../dotfiles/link.json");
  EXPECT_EQ(namesIn(folder.path("home")), std::set<std::string>{"settings.json"});
}

TEST(FilesEdit, aRelativeLinkInALinkedFolderStartsWhereTheFolderReallyIs) {
  const TemporaryFolder folder;
  folder.write("real/deep/place", "");
  folder.write("real/target.json", "old");
  std::filesystem::create_symlink("../target.json", folder.path("real/deep/settings.json"));
  std::filesystem::create_symlink("real/deep", folder.path("claude"));
  EXPECT_FALSE(change(folder.path("claude/settings.json"), "new"));
  EXPECT_EQ(folder.read("real/target.json"), "new");
}

TEST(FilesEdit, makesTheFileThatALinkLeadsTo) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("target.json", folder.path("settings.json"));
  EXPECT_FALSE(change(folder.path("settings.json"), "new"));
  EXPECT_EQ(folder.read("target.json"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("settings.json")));
}

TEST(FilesEdit, aLinkIntoAMissingFolderFails) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("none/target.json", folder.path("settings.json"));
  const auto failure = change(folder.path("settings.json"), "new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "open: No such file or directory");
}

TEST(FilesEdit, linksInACircleFail) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("b", folder.path("a"));
  std::filesystem::create_symlink("a", folder.path("b"));
  const auto failure = change(folder.path("a"), "new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->code, ELOOP);
  EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{"a", "b"}));
}

TEST(FilesEdit, aPathThatEndsInASlashIsNoFile) {
  const TemporaryFolder folder;
  std::filesystem::create_symlink("target/", folder.path("settings.json"));
  std::filesystem::create_directory(folder.path("target"));
  const auto failure = change(folder.path("settings.json"), "new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "not a regular file");
}

TEST(FilesEdit, aBackupThatIsALinkIsReplacedNotFollowed) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  folder.write("other", "untouched");
  std::filesystem::create_symlink("other", folder.path("settings.json.backup"));
  EXPECT_FALSE(change(path, "new"));
  EXPECT_EQ(folder.read("other"), "untouched");
  EXPECT_TRUE(std::filesystem::is_regular_file(
      std::filesystem::symlink_status(folder.path("settings.json.backup"))));
}

// What is in the way

TEST(FilesEdit, aMissingFolderFailsAndIsNotMade) {
  const TemporaryFolder folder;
  const auto failure = change(folder.path("none/settings.json"), "new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "open: No such file or directory");
  EXPECT_EQ(failure->path, folder.path("none"));
  EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{});
}

TEST(FilesEdit, namesTheFolderThatMayNotBeWritten) {
  class ReadOnlyFolder : public Files::Calls {
    int openAt(int folder, const char* path, int flags, mode_t mode) override {
      if ((flags & O_CREAT) == 0) return Calls::openAt(folder, path, flags, mode);
      errno = EROFS;
      return -1;
    }
  } calls;
  const TemporaryFolder folder;
  const auto failure = change(folder.write("settings.json", "old"), "new", calls);
  ASSERT_TRUE(failure);
  EXPECT_EQ(text(failure), folder.path() + ": open: Read-only file system");
}

TEST(FilesEdit, namesTheFileWhoseTextHasNoRoom) {
  const TemporaryFolder folder;
  ScriptedCalls calls;
  calls.before = [](std::string_view call) { return call == "write" ? ENOSPC : 0; };
  const auto failure = change(folder.path("settings.json"), "new", calls);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->path, folder.path("settings.json"));
}

TEST(FilesEdit, aFolderInTheBackupsPlaceFailsTheChange) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  std::filesystem::create_directory(folder.path("settings.json.backup"));
  const auto failure = change(path, "new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->path, path + ".backup");
  EXPECT_EQ(folder.read("settings.json"), "old");
  EXPECT_EQ(namesIn(folder.path()),
            (std::set<std::string>{"settings.json", "settings.json.backup"}));
}

TEST(FilesEdit, stepsAroundATemporaryFileThatAKillLeft) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  const std::string left = "settings.json.corvane-new." + std::to_string(::getpid()) + ".0";
  folder.write(left, "part");
  EXPECT_FALSE(change(path, "new"));
  EXPECT_EQ(folder.read("settings.json"), "new");
  EXPECT_EQ(folder.read(left), "part");
}

TEST(FilesEdit, givesUpWhenEveryTemporaryNameIsTaken) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  ScriptedCalls calls;
  auto edit = Files::Edit::begin(path, calls);
  ASSERT_TRUE(edit);
  calls.before = [](std::string_view call) { return call == "open" ? EEXIST : 0; };
  const auto failure = edit->replace("new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "open: File exists");
  EXPECT_EQ(folder.read("settings.json"), "old");
}

// Somebody else's change meanwhile

struct MeanwhileCase {
  const char* name;
  std::function<void(const TemporaryFolder&)> change;
  bool isRefused = true;
  bool existsBefore = true;
};
const MeanwhileCase meanwhileCases[] = {
    {"aLongerText", [](const auto& folder) { folder.write("settings.json", "longer"); }},
    {"aTextOfTheSameSize", [](const auto& folder) { folder.write("settings.json", "OLD"); }},
    {"theEmptyText", [](const auto& folder) { folder.write("settings.json", ""); }},
    {"aNewFile",
     [](const auto& folder) {
       folder.write("other", "their");
       std::filesystem::rename(folder.path("other"), folder.path("settings.json"));
     }},
    {"noFile", [](const auto& folder) { std::filesystem::remove(folder.path("settings.json")); }},
    {"narrowerPermissions",
     [](const auto& folder) { ::chmod(folder.path("settings.json").c_str(), 0400); }},
    {"aFileWhereNoneWas", [](const auto& folder) { folder.write("settings.json", "their"); }, true,
     false},
    {"anEmptyFileWhereNoneWas", [](const auto& folder) { folder.write("settings.json", ""); }, true,
     false},
    {"aLinkWhereNoneWas",
     [](const auto& folder) {
       std::filesystem::create_symlink("nowhere", folder.path("settings.json"));
     },
     true, false},
    {"aFolderWhereNoneWas",
     [](const auto& folder) { std::filesystem::create_directory(folder.path("settings.json")); },
     true, false},
    {"theSameTextWrittenAgain", [](const auto& folder) { folder.write("settings.json", "old"); },
     false},
};
class Meanwhile : public testing::TestWithParam<MeanwhileCase> {};
TEST_P(Meanwhile, isNeverLost) {
  const TemporaryFolder folder;
  const std::string path = folder.path("settings.json");
  if (GetParam().existsBefore) file(folder, "settings.json", "old", 0600);
  std::set<std::string> names;
  std::string theirs;
  ScriptedCalls calls;
  auto edit = Files::Edit::begin(path, calls);
  ASSERT_TRUE(edit);
  calls.before = [&](std::string_view call) {
    // The last call before the file is looked at again.
    if (call == "fsync" && names.empty()) {
      GetParam().change(folder);
      if (std::filesystem::is_regular_file(path)) theirs = folder.read("settings.json");
      names = namesIn(folder.path());
    }
    return 0;
  };
  const auto failure = edit->replace("new");
  ASSERT_EQ(failure.has_value(), GetParam().isRefused) << text(failure);
  if (!GetParam().isRefused) {
    EXPECT_EQ(folder.read("settings.json"), "new");
    return;
  }
  if (std::filesystem::is_regular_file(path)) {
    EXPECT_EQ(folder.read("settings.json"), theirs);
  }
  std::erase_if(names, [](const std::string& name) {
    return name.find(".corvane-new.") != std::string::npos;
  });
  EXPECT_EQ(namesIn(folder.path()), names);
}
INSTANTIATE_TEST_SUITE_P(FilesEdit, Meanwhile, testing::ValuesIn(meanwhileCases), named);

TEST(FilesEdit, aRefusedChangeSaysThatAnotherProgramWasThere) {
  const TemporaryFolder folder;
  auto edit = Files::Edit::begin(folder.write("settings.json", "old"));
  ASSERT_TRUE(edit);
  folder.write("settings.json", "theirs");
  const auto failure = edit->replace("new");
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "changed by another program meanwhile");
  EXPECT_FALSE(failure->code);
}

TEST(FilesEdit, twoThatWantTheSameTextBothSucceed) {
  for (const bool exists : {true, false}) {
    const TemporaryFolder folder;
    const std::string path = folder.path("settings.json");
    if (exists) file(folder, "settings.json", "old", 0600);
    auto first = Files::Edit::begin(path);
    auto second = Files::Edit::begin(path);
    ASSERT_TRUE(first && second);
    for (auto* edit : {&*first, &*second}) {
      EXPECT_FALSE(edit->backUp(".backup"));
      const auto failure = edit->replace("new");
      EXPECT_FALSE(failure) << text(failure);
    }
    EXPECT_EQ(folder.read("settings.json"), "new");
    std::set<std::string> names{"settings.json"};
    if (exists) names.insert("settings.json.backup");
    EXPECT_EQ(namesIn(folder.path()), names);
    if (exists) {
      EXPECT_EQ(folder.read("settings.json.backup"), "old");
    }
  }
}

// Failing calls

struct Scene {
  explicit Scene(bool existsBefore) : exists(existsBefore) {
    if (exists) file(folder, "settings.json", oldText, 0600);
    if (exists) file(folder, "settings.json.backup", "older", 0600);
  }

  /// Whether the file is one of the two texts, whole, and nothing stray is there. Says why not.
  void expect(bool isNew, const std::string& when) const {
    std::set<std::string> names;
    if (exists || isNew) names.insert("settings.json");
    if (exists) names.insert("settings.json.backup");
    EXPECT_EQ(namesIn(folder.path()), names) << when;
    if (exists || isNew) {
      EXPECT_EQ(folder.read("settings.json"), isNew ? newText : oldText) << when;
      EXPECT_EQ(permissionsOf(folder.path("settings.json")), mode_t{0600}) << when;
    }
    if (exists) {
      const std::string backup = folder.read("settings.json.backup");
      EXPECT_TRUE(backup == oldText || (backup == "older" && !isNew)) << when << backup;
      EXPECT_EQ(permissionsOf(folder.path("settings.json.backup")), mode_t{0600}) << when;
    }
  }

  const std::string oldText = "the old text, of some length";
  const std::string newText = "the new text, of some other length";
  const bool exists;
  const TemporaryFolder folder{};
};

struct FaultCase {
  const char* name;
  int code;
};
const FaultCase faultCases[] = {{"EIO", EIO}, {"ENOSPC", ENOSPC}, {"EACCES", EACCES}};
const FaultCase interruption[] = {{"EINTR", EINTR}};

class Fault : public testing::TestWithParam<FaultCase> {};

// Calls after the renaming and calls of no consequence may fail; the change then succeeds.
TEST_P(Fault, atAnyCallLeavesTheOldFileOrTheNewOne) {
  for (const bool exists : {true, false}) {
    bool wasReached = true;
    std::size_t failures = 0;
    for (int faulty = 0; wasReached; ++faulty) {
      const Scene scene(exists);
      ScriptedCalls calls;
      calls.mostBytes = 16;
      wasReached = false;
      std::string when;
      calls.before = [&, made = 0](std::string_view call) mutable {
        if (made++ != faulty) return 0;
        wasReached = true;
        when = std::string(call) + " as call " + std::to_string(faulty);
        return GetParam().code;
      };
      const auto failure = change(scene.folder.path("settings.json"), scene.newText, calls);
      scene.expect(!failure, when + ", " + text(failure));
      EXPECT_EQ(calls.openDescriptors, 0) << when;
      EXPECT_FALSE(calls.opensInheritably);
      if (failure) {
        EXPECT_TRUE(when.starts_with(failure->what)) << when << ", " << text(failure);
        EXPECT_EQ(failure->code, GetParam().code);
        ++failures;
      }
    }
    // A signal only interrupts: nearly all calls are made again.
    if (GetParam().code != EINTR) {
      EXPECT_GT(failures, exists ? 20U : 8U);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(FilesEdit, Fault, testing::ValuesIn(faultCases), named);
INSTANTIATE_TEST_SUITE_P(FilesEditInterrupted, Fault, testing::ValuesIn(interruption), named);

// EINTR is left out: a call that is always interrupted never ends.
class LastingFault : public testing::TestWithParam<FaultCase> {};
TEST_P(LastingFault, ofOneCallLeavesTheOldFile) {
  for (const std::string_view faulty : {"open", "fstat", "readlink", "read", "write", "fchown",
                                        "setting attributes", "fchmod", "fsync", "rename"}) {
    const Scene scene(true);
    ScriptedCalls calls;
    calls.before = [&](std::string_view call) { return call == faulty ? GetParam().code : 0; };
    const auto failure = change(scene.folder.path("settings.json"), scene.newText, calls);
    ASSERT_TRUE(failure) << faulty;
    EXPECT_EQ(failure->what, faulty);
    scene.expect(false, std::string(faulty));
  }
}
INSTANTIATE_TEST_SUITE_P(FilesEdit, LastingFault, testing::ValuesIn(faultCases), named);

TEST(FilesEdit, aDiskThatIsFullInTheMiddleLeavesTheOldFile) {
  const Scene scene(true);
  ScriptedCalls calls;
  calls.mostBytes = 5;
  calls.before = [writes = 0](std::string_view call) mutable {
    return call == "write" && ++writes > 8 ? ENOSPC : 0;
  };
  const auto failure = change(scene.folder.path("settings.json"), scene.newText, calls);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->description(), "write: No space left on device");
  scene.expect(false, "");
}

TEST(FilesEdit, shortWritesAndSignalsAreGoneOnAfter) {
  const Scene scene(true);
  ScriptedCalls calls;
  calls.mostBytes = 1;
  const std::set<std::string_view> interrupted = {"open",   "fstat",  "read", "write",
                                                  "fchown", "fchmod", "fsync"};
  calls.before = [&, made = 0](std::string_view call) mutable {
    return interrupted.contains(call) && ++made % 2 == 1 ? EINTR : 0;
  };
  EXPECT_FALSE(change(scene.folder.path("settings.json"), scene.newText, calls));
  scene.expect(true, "");
}

TEST(FilesEdit, aDiskThatTakesNothingIsAFailureAndNotALoop) {
  class TakesNothing : public Files::Calls {
    ssize_t write(int, const void*, std::size_t) override { return 0; }
  } calls;
  const Scene scene(true);
  const auto failure = change(scene.folder.path("settings.json"), scene.newText, calls);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->code, EIO);
  scene.expect(false, "");
}

// Kills

/// What a kill may leave: the old file or the new one, the backup before or after, and temporary
/// files that are nobody else's to read.
void expectWholeAfterKill(const Scene& scene, const std::string& when) {
  const std::string text = scene.folder.read("settings.json");
  EXPECT_TRUE(text == scene.oldText || text == scene.newText) << when << text;
  const std::string backup = scene.folder.read("settings.json.backup");
  EXPECT_TRUE(backup == "older" || backup == scene.oldText || backup == scene.newText)
      << when << backup;
  for (const std::string& name : namesIn(scene.folder.path())) {
    EXPECT_TRUE(name.starts_with("settings.json")) << when << name;
    EXPECT_EQ(permissionsOf(scene.folder.path(name)) & ~mode_t{0600}, mode_t{0}) << when << name;
  }
}

TEST(FilesEdit, aKillAtAnyCallLeavesTheOldFileOrTheNewOne) {
  bool wasKilled = true;
  int kills = 0;
  for (int fatal = 0; wasKilled; ++fatal) {
    const Scene scene(true);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ScriptedCalls calls;
      calls.mostBytes = 16;
      calls.before = [&, made = 0](std::string_view) mutable {
        if (made++ == fatal) ::kill(::getpid(), SIGKILL);
        return 0;
      };
      ::_exit(change(scene.folder.path("settings.json"), scene.newText, calls) ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    wasKilled = WIFSIGNALED(status);
    kills += wasKilled ? 1 : 0;
    expectWholeAfterKill(scene, "killed at call " + std::to_string(fatal) + ": ");
    EXPECT_TRUE(wasKilled || WEXITSTATUS(status) == 0);
    EXPECT_FALSE(change(scene.folder.path("settings.json"), scene.newText));
    EXPECT_EQ(scene.folder.read("settings.json"), scene.newText);
  }
  EXPECT_GT(kills, 30);
}

/// Sends `signal` to a child right before one of its calls, for each call in turn; `check` looks at
/// what it leaves.
template <class Check>
void signalAtEachCall(int signal, Check check) {
  bool wasReached = true;
  for (int fatal = 0; wasReached; ++fatal) {
    const Scene scene(true);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      bool isReached = false;
      ScriptedCalls calls;
      calls.mostBytes = 16;
      calls.before = [&, made = 0](std::string_view) mutable {
        if (made++ == fatal) {
          isReached = true;
          ::kill(::getpid(), signal);
        }
        return 0;
      };
      if (change(scene.folder.path("settings.json"), scene.newText, calls)) ::_exit(1);
      ::_exit(isReached ? 2 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    wasReached = WIFSIGNALED(status);
    EXPECT_TRUE(wasReached ? WTERMSIG(status) == signal : WEXITSTATUS(status) == 0) << status;
    check(scene, "signal " + std::to_string(signal) + " at call " + std::to_string(fatal) + ": ");
  }
}

TEST(FilesEdit, aSignalThatCanBeCaughtLeavesNothingStray) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGXFSZ, SIGQUIT, SIGUSR1}) {
    signalAtEachCall(signal, [](const Scene& scene, const std::string& when) {
      scene.expect(scene.folder.read("settings.json") == scene.newText, when);
    });
  }
}

TEST(FilesEdit, aFileSizeLimitIsAFailureThatEndsNoProcess) {
  const Scene scene(true);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const rlimit limit{.rlim_cur = 16, .rlim_max = 16};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const auto failure = change(scene.folder.path("settings.json"), scene.newText);
    ::_exit(failure && failure->code == EFBIG ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  scene.expect(false, "");
}

TEST(FilesEdit, signalsThatTheCallerHoldsBackStayHeldBack) {
  sigset_t held;
  sigset_t before;
  sigemptyset(&held);
  sigaddset(&held, SIGUSR2);
  ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &held, &before), 0);
  const Scene scene(true);
  EXPECT_FALSE(change(scene.folder.path("settings.json"), scene.newText));
  sigset_t after;
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &before, &after), 0);
  EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
  EXPECT_EQ(sigismember(&after, SIGTERM), sigismember(&before, SIGTERM));
}

TEST(FilesEdit, killsAtAnyMomentLeaveTheOldFileOrTheNewOne) {
  const Scene scene(true);
  const std::string path = scene.folder.path("settings.json");
  std::mt19937 random(4711);
  for (int round = 0; round < 100; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      while (!change(path, scene.newText) && !change(path, scene.oldText)) continue;
      ::_exit(1);
    }
    ::usleep(static_cast<useconds_t>(random() % 8'000));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << "a change failed";
    expectWholeAfterKill(scene, "round " + std::to_string(round) + ": ");
  }
}

TEST(FilesEdit, leavesAttributesThatAreNotTheUsersWhereTheyAre) {
  const TemporaryFolder folder;
  const std::string path = folder.write("settings.json", "old");
  if (!python(path,
              "os.setxattr(path, \"security.corvane\", b\"label\")\n"
              "os.setxattr(path, \"user.colour\", b\"blue\")")) {
    GTEST_SKIP() << "such attributes cannot be set here, or there is no Python to set them";
  }
  EXPECT_FALSE(change(path, "new"));
  for (const std::string& name : {path, path + ".backup"}) {
    EXPECT_TRUE(python(name,
                       "assert \"security.corvane\" not in os.listxattr(path)\n"
                       "assert os.getxattr(path, \"user.colour\") == b\"blue\""))
        << name;
  }
}

/// Sees what others may do with a new file before its permissions are set.
class OtherGroupWatched : public OtherGroup {
 public:
  int setPermissions(int descriptor, mode_t permissions) override {
    struct stat status {};
    if (Calls::status(descriptor, status) == 0) forOthers |= status.st_mode & S_IRWXO;
    return OtherGroup::setPermissions(descriptor, permissions);
  }
  mode_t forOthers = 0;
};

TEST(FilesEdit, inAnotherGroupNobodyElseIsLetInEvenForAMoment) {
  const TemporaryFolder folder;
  const std::string path = file(folder, "settings.json", "old", 0600);
  if (!python(
          path,
          "access = struct.pack(\"<I\", 2) + b\"\".join(struct.pack(\"<HHI\", *entry) for entry "
          "in [(1, 6, 2**32 - 1), (2, 6, 1234), (4, 6, 2**32 - 1), (16, 6, 2**32 - 1), "
          "(32, 4, 2**32 - 1)])\n"
          "os.setxattr(path, \"system.posix_acl_access\", access)")) {
    GTEST_SKIP() << "no access control lists here, or no Python to set them";
  }
  OtherGroupWatched calls;
  const auto failure = change(path, "new", calls);
  ASSERT_FALSE(failure) << text(failure);
  EXPECT_EQ(calls.forOthers, mode_t{0});
}

TEST(FilesEdit, followsFortyLinksAndNoMore) {
  const TemporaryFolder folder;
  std::string target = folder.write("settings.json", "old");
  for (int link = 1; link <= 41; ++link) {
    const std::string path = folder.path("link" + std::to_string(link));
    std::filesystem::create_symlink(target, path);
    target = path;
  }
  const auto followed = Files::Edit::begin(folder.path("link40"));
  ASSERT_TRUE(followed) << followed.failure().description();
  EXPECT_EQ(followed->path(), folder.path("settings.json"));
  const auto refused = Files::Edit::begin(folder.path("link41"));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.failure().code, ELOOP);
}

}  // namespace
