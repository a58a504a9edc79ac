#include "CorvaneControl/Platform/System.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "Support/SystemUnderTest.h"
#include "Support/TemporaryFolder.h"
#include "Support/Variable.h"

namespace CorvaneControl::System {
namespace {

using CorvaneTests::TemporaryFolder;
using CorvaneTests::Variable;

TEST(System, environmentValuesAreRepaired) {
  const Variable set("CORVANE_TEST", "a\xFF");
  EXPECT_EQ(environmentValue("CORVANE_TEST"), "a\xEF\xBF\xBD");
  const Variable empty("CORVANE_TEST", "");
  EXPECT_EQ(environmentValue("CORVANE_TEST"), "");
  const Variable missing("CORVANE_TEST", nullptr);
  EXPECT_EQ(environmentValue("CORVANE_TEST"), std::nullopt);
}

TEST(System, theHomeFolderIsTheVariablesElseTheUserDatabases) {
  const Variable given("HOME", "/given");
  EXPECT_EQ(homeFolder(), "/given");
  const passwd* const entry = ::getpwuid(::getuid());
  if (!entry) GTEST_SKIP() << "this user is in no database";
  for (const char* const value : {static_cast<const char*>(nullptr), ""}) {
    const Variable none("HOME", value);
    EXPECT_EQ(homeFolder(), entry->pw_dir);
  }
}

TEST(System, applicationsKeepTheirDataInTheHomeFolder) {
  const TemporaryFolder home;
  const Variable given("HOME", home.path().c_str());
  const std::string library = home.path("Library/Application Support");
  if (!CorvaneTests::hasLibraryFolder) {
    const Variable unset("XDG_DATA_HOME", nullptr);
    EXPECT_EQ(applicationSupportFolder(), home.path(".local/share"));
    const Variable relative("XDG_DATA_HOME", "data");
    EXPECT_EQ(applicationSupportFolder(), home.path(".local/share"));
    const Variable absolute("XDG_DATA_HOME", "/data");
    EXPECT_EQ(applicationSupportFolder(), "/data");
    home.write("Library/Application Support", "a file is no folder");
    EXPECT_EQ(applicationSupportFolder(), "/data");
    std::filesystem::remove(library);
  }
  std::filesystem::create_directories(library);
  const Variable absolute("XDG_DATA_HOME", "/data");
  EXPECT_EQ(applicationSupportFolder(), library);
}

/// Whether `holds` is true in a process of its own, which it may do anything to.
template <class Condition>
bool inAChild(const Condition& holds) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(holds() ? 0 : 1);
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(System, theDataFolderCountsWithoutAHomeFolder) {
  if (CorvaneTests::hasLibraryFolder) GTEST_SKIP() << "this system has no other folder";
  if (::getuid() != 0) GTEST_SKIP() << "only root can become a user that is in no database";
  EXPECT_TRUE(inAChild([] {
    const Variable none("HOME", nullptr);
    const Variable absolute("XDG_DATA_HOME", "/data");
    return ::setuid(54'321) == 0 && !homeFolder() && applicationSupportFolder() == "/data";
  }));
  EXPECT_TRUE(inAChild([] {
    const Variable none("HOME", nullptr);
    const Variable relative("XDG_DATA_HOME", "data");
    return ::setuid(54'321) == 0 && !applicationSupportFolder();
  }));
}

TEST(System, theCurrentFolderIsToldHoweverLongItsPathIs) {
  const TemporaryFolder folder;
  EXPECT_TRUE(inAChild([&] {
    if (::chdir(folder.path().c_str()) != 0 || currentFolder() != folder.path()) return false;
    std::string path = folder.path();
    const std::string name(120, 'n');
    while (path.size() < 9000) {
      path += "/" + name;
      if (::mkdir(name.c_str(), 0700) != 0 || ::mkdir("other", 0700) != 0) return false;
      if (::chdir(name.c_str()) != 0 || currentFolder() != path) return false;
    }
    return true;
  }));
  EXPECT_TRUE(inAChild([] { return ::chdir("/") == 0 && currentFolder() == "/"; }));
}

TEST(System, aCurrentFolderThatIsGoneIsAbsent) {
  const TemporaryFolder folder;
  const std::string gone = folder.path("gone");
  EXPECT_TRUE(inAChild([&] {
    return ::mkdir(gone.c_str(), 0700) == 0 && ::chdir(gone.c_str()) == 0 &&
           ::rmdir(gone.c_str()) == 0 && !currentFolder();
  }));
}

TEST(System, theCurrentFolderIsToldAsItIsWritten) {
  const TemporaryFolder folder;
  const std::string path = folder.path("a\xFF");
  EXPECT_TRUE(inAChild([&] {
    return ::mkdir(path.c_str(), 0700) == 0 && ::chdir(path.c_str()) == 0 &&
           currentFolder() == path;
  }));
}

TEST(System, closedStandardDescriptorsAreOccupied) {
  EXPECT_TRUE(inAChild([] {
    for (const int descriptor : {0, 1, 2}) ::close(descriptor);
    return occupyStandardDescriptors() && ::write(1, "x", 1) == 1 && ::write(2, "x", 1) == 1 &&
           ::dup(0) > 2;
  }));
}

TEST(System, standardDescriptorsThatAreOpenAreLeftAlone) {
  EXPECT_TRUE(inAChild([] {
    struct stat before {};
    struct stat after {};
    return ::fstat(1, &before) == 0 && occupyStandardDescriptors() && ::fstat(1, &after) == 0 &&
           before.st_ino == after.st_ino;
  }));
}

TEST(System, standardDescriptorsThatCannotBeOccupiedAreSaid) {
  EXPECT_TRUE(inAChild([] {
    const rlimit none{0, 0};
    ::close(1);
    return ::setrlimit(RLIMIT_NOFILE, &none) == 0 && !occupyStandardDescriptors();
  }));
}

TEST(System, theExecutableIsFoundBehindEveryLink) {
  const auto path = executablePath();
  ASSERT_TRUE(path);
  EXPECT_EQ(*path, std::filesystem::canonical(*path));
  EXPECT_EQ(std::filesystem::path(*path).filename(), "SystemTests");
}

TEST(System, errorNumbersHaveATextEach) {
  EXPECT_EQ(errorText(ECONNREFUSED), "Connection refused");
  EXPECT_NE(errorText(ENOENT), errorText(EACCES));
}

TEST(System, doublesAreRoundedCorrectly) {
  EXPECT_EQ(readDouble("0.1"), 0.1);
  EXPECT_EQ(readDouble("-2.50E1"), -25.0);
  EXPECT_EQ(readDouble("1.7976931348623157e308"), 1.7976931348623157e308);
  EXPECT_EQ(readDouble("9007199254740993.0"), 9007199254740992.0);
  EXPECT_EQ(readDouble("1e400"), std::nullopt);
  EXPECT_EQ(readDouble("1e-400"), std::nullopt);
  EXPECT_EQ(readDouble("-1e-400"), std::nullopt);
  EXPECT_EQ(readDouble("0e-400"), 0.0);
  EXPECT_EQ(readDouble("0.000"), 0.0);
  EXPECT_EQ(readDouble("4.9406564584124654e-324"), 4.9406564584124654e-324);
}

TEST(System, socketsAreNewAndClosedOnExec) {
  const int socket = openStreamSocket();
  ASSERT_GE(socket, 0);
  EXPECT_NE(::fcntl(socket, F_GETFD) & FD_CLOEXEC, 0);
  ::close(socket);
  errno = 0;
  EXPECT_EQ(acceptConnection(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(System, writesToDescriptorsOfEveryKind) {
  const TemporaryFolder folder;
  const int file = ::open(folder.path("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  int pipe[2] = {-1, -1};
  ASSERT_EQ(::pipe(pipe), 0);
  int sockets[2] = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
  for (const int descriptor : {file, pipe[1], sockets[0]}) {
    EXPECT_EQ(write(descriptor, "abc", 3), 3);
  }
  EXPECT_EQ(folder.read("file"), "abc");
  for (const int descriptor : {pipe[0], sockets[1]}) {
    char text[4] = {};
    EXPECT_EQ(::read(descriptor, text, sizeof text), 3);
    EXPECT_STREQ(text, "abc");
  }
  for (const int descriptor : {file, pipe[0], pipe[1], sockets[0], sockets[1]}) {
    ::close(descriptor);
  }
  EXPECT_EQ(write(-1, "abc", 3), -1);
}

TEST(System, aFIFOIsToldFromAPipe) {
  const CorvaneTests::TemporaryFolder folder;
  const std::string path = folder.path("fifo");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int fifo = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_TRUE(isFIFO(fifo));
  ::close(fifo);
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  const int file = ::open(folder.path("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  for (const int other : {pipe[0], pipe[1], file}) {
    EXPECT_FALSE(isFIFO(other));
    ::close(other);
  }
  EXPECT_FALSE(isFIFO(-1));
}

TEST(System, memoryGrowsAndKeepsWhatIsInIt) {
  std::size_t size = 10'000;
  char* memory = mapMemory(size);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(memory[0], 0);
  EXPECT_EQ(memory[size - 1], 0);
  std::memset(memory, 'x', size);
  for (const std::size_t grown : {40'000U, 5'000'000U}) {
    memory = growMemory(memory, size, grown);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(memory[9'999], 'x');
    EXPECT_EQ(memory[10'000], 0);
    EXPECT_EQ(memory[grown - 1], 0);
    size = grown;
  }
  unmapMemory(memory, size);
}

TEST(System, memoryThatIsNotThereIsSaid) {
  EXPECT_EQ(mapMemory(static_cast<std::size_t>(-1) / 2), nullptr);
}

}  // namespace
}  // namespace CorvaneControl::System
