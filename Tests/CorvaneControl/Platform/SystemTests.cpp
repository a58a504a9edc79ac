#include "CorvaneControl/Platform/System.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include "Support/SystemUnderTest.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneControl::System {
namespace {

using CorvaneTests::TemporaryFolder;

/// An environment variable with another value, or without one, until the end of the scope.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* const before = std::getenv(name)) before_ = before;
    set(value);
  }
  ~Variable() { set(before_ ? before_->c_str() : nullptr); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  void set(const char* value) {
    if (value) {
      ::setenv(name_, value, 1);
    } else {
      ::unsetenv(name_);
    }
  }
  const char* name_;
  std::optional<std::string> before_{};
};

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
