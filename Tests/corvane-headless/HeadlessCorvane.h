#pragma once

#include <string>
#include <utility>

#include "Support/ChildProcess.h"
#include "Support/ControlClient.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneTests {

/// A running corvane-headless with a socket and a home folder of its own. Its home is "/home/ada"
/// in name only, so that folders in tests read well.
class HeadlessCorvane {
 public:
  explicit HeadlessCorvane(ChildOptions options = {})
      : process_(CORVANE_HEADLESS, served(std::move(options), socketPath())) {}

  /// What makes the program serve `socket`.
  static ChildOptions served(ChildOptions options, const std::string& socket) {
    options.arguments.insert(options.arguments.begin(), {"--socket", socket});
    options.environment.insert({{"HOME", "/home/ada"}, {"TZ", "UTC"}, {"TERM", "xterm"}});
    options.withoutEnvironment.insert({"NO_COLOR", "CORVANE_SOCKET"});
    return options;
  }

  const TemporaryFolder& folder() const { return folder_; }
  std::string socketPath() const { return folder_.path("control.sock"); }
  ChildProcess& process() { return process_; }
  ControlClient client() const { return ControlClient(socketPath()); }

  /// Asks it to end, and gives what it printed, each line of the log without its time.
  std::string log() {
    process_.signal(SIGTERM);
    const Ended ended = process_.wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.errors, "");
    return withoutTimes(ended.output);
  }

  /// Takes "12:34:56 " off each line that begins with a time.
  static std::string withoutTimes(const std::string& output) {
    std::string result;
    for (std::size_t begin = 0; begin < output.size();) {
      const std::size_t end = std::min(output.find('\n', begin), output.size() - 1) + 1;
      const std::string line = output.substr(begin, end - begin);
      const bool hasTime = line.size() > 9 && line[2] == ':' && line[5] == ':' && line[8] == ' ';
      result += hasTime ? line.substr(9) : line;
      begin = end;
    }
    return result;
  }

 private:
  TemporaryFolder folder_{};
  ChildProcess process_;
};

}  // namespace CorvaneTests
