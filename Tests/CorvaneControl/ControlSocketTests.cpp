#include "CorvaneControl/ControlSocket.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "CorvaneControl/Bundle.h"
#include "Support/TemporaryFolder.h"
#include "Support/Variable.h"

namespace CorvaneControl {
namespace {

using CorvaneTests::TemporaryFolder;
using CorvaneTests::Variable;
using Paths = std::vector<std::string>;

TEST(ControlSocket, liesInTheApplicationsFolder) {
  EXPECT_EQ(ControlSocket::path("Corvane", "/base"), "/base/Corvane/control.sock");
  EXPECT_EQ(ControlSocket::path("Corvane Dev", "/base"), "/base/Corvane Dev/control.sock");
  EXPECT_EQ(ControlSocket::path("Corvane", "/base/"), "/base/Corvane/control.sock");
  EXPECT_EQ(ControlSocket::path("Corvane", "/base//"), "/base/Corvane/control.sock");
  EXPECT_EQ(ControlSocket::path("Corvane", "/"), "/Corvane/control.sock");
}

/// A user with a home folder, and in it a folder for each application.
class User {
 public:
  User() {
    for (const char* const application : {"Corvane", "Corvane Dev"}) {
      std::filesystem::create_directories(support + "/" + application);
    }
  }
  std::string socketOf(const std::string& application) const {
    return support + "/" + application + "/control.sock";
  }

 private:
  TemporaryFolder home_{};
  Variable homeVariable_{"HOME", home_.path().c_str()};
  std::string support = home_.path("Library/Application Support");
};

TEST(ControlSocket, isTheOneThatTheEnvironmentNamesAndNoOther) {
  const User user;
  const Variable given("CORVANE_SOCKET", "/given.sock");
  EXPECT_EQ(ControlSocket::paths(), Paths{"/given.sock"});
}

TEST(ControlSocket, isOfEitherApplicationWhenTheEnvironmentNamesNone) {
  const User user;
  for (const char* const value : {static_cast<const char*>(nullptr), ""}) {
    const Variable none("CORVANE_SOCKET", value);
    EXPECT_EQ(ControlSocket::paths(),
              (Paths{user.socketOf("Corvane"), user.socketOf("Corvane Dev")}));
  }
}

TEST(ControlSocket, isReachedWhereTheFirstApplicationListens) {
  const User user;
  const Variable none("CORVANE_SOCKET", nullptr);
  const auto refused = ControlSocket::connect(1);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.failure(), UnixSocket::Failure::system("connect", ENOENT));

  for (const char* const application : {"Corvane Dev", "Corvane"}) {  // the latter comes first
    const auto listener = UnixSocket::listen(user.socketOf(application), 1);
    ASSERT_TRUE(listener);
    const auto connection = ControlSocket::connect(1);
    ASSERT_TRUE(connection) << application;
    const int accepted = ::accept(*listener, nullptr, nullptr);
    EXPECT_GE(accepted, 0);
    for (const int descriptor : {accepted, *connection, *listener}) ::close(descriptor);
  }
}

TEST(ControlSocket, isNotReachedWhereNobodyListensAnyMore) {
  const User user;
  const Variable none("CORVANE_SOCKET", nullptr);
  const auto listener = UnixSocket::listen(user.socketOf("Corvane Dev"), 1);
  ASSERT_TRUE(listener);
  ::close(*listener);
  const auto refused = ControlSocket::connect(1);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.failure(), UnixSocket::Failure::system("connect", ECONNREFUSED));
}

TEST(Bundle, isNoneAroundAProgramThatLiesElsewhere) { EXPECT_FALSE(enclosingAppInfo()); }

}  // namespace
}  // namespace CorvaneControl
