#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneTests {

/// Only root can be another user.
inline bool canBeUnknownUser() { return ::geteuid() == 0; }

/// What a copy of a program says to a user that no database knows, and that nothing tells of a home
/// folder.
inline Ended runAsUnknownUser(const std::string& program, std::vector<std::string> words) {
  const TemporaryFolder folder;
  EXPECT_EQ(::chmod(folder.path().c_str(), 0711), 0);
  std::filesystem::copy_file(program, folder.path("program"));
  return run(folder.path("program"),
             {.arguments = std::move(words),
              .withoutEnvironment = {"CORVANE_SOCKET", "HOME", "XDG_DATA_HOME"},
              .folder = "/",
              .beforeExec = [] {
                if (::setgid(4'000'000) != 0 || ::setuid(4'000'000) != 0) ::_exit(126);
              }});
}

}  // namespace CorvaneTests
