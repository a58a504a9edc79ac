#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/UnixSocket.h"
#include "HeadlessCorvane.h"
#include "Support/SystemUnderTest.h"
#include "Support/UnknownUser.h"

namespace CorvaneTests {
namespace {

Ended headless(std::vector<std::string> arguments) {
  return run(CORVANE_HEADLESS, {.arguments = std::move(arguments)});
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode;
}

/// A socket file that nobody serves any more.
void leaveStaleSocket(const std::string& path) {
  const auto listener = CorvaneControl::UnixSocket::listen(path, 1);
  ASSERT_TRUE(listener);
  ::close(*listener);
}

TEST(Starting, printsHelpAndVersion) {
  const Ended help = headless({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.output.starts_with("corvane-headless: ")) << help.output;
  EXPECT_EQ(help.errors, "");
  const Ended version = headless({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(version.output.starts_with("corvane-headless ")) << version.output;
  EXPECT_EQ(std::ranges::count(version.output, '\n'), 1);
}

TEST(Starting, failsWhenHelpCannotBePrinted) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (full < 0) GTEST_SKIP() << "there is no /dev/full";
  const Ended ended = run(CORVANE_HEADLESS, {.arguments = {"--help"}, .given = {{1, full}}});
  ::close(full);
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: standard output: No space left on device\n");
}

TEST(Starting, saysThatItsOutputMayNotGrow) {
  const TemporaryFolder folder;
  const int file = ::open(folder.path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  const Ended ended =
      run(CORVANE_HEADLESS,
          {.arguments = {"--help"}, .given = {{1, file}}, .beforeExec = refuseFileGrowth});
  ::close(file);
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: standard output: File too large\n");
}

TEST(Starting, refusesBadWords) {
  const Ended ended = headless({"--socket"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.output, "");
  EXPECT_EQ(ended.errors,
            "corvane-headless: --socket needs a value. See corvane-headless --help.\n");
}

TEST(Starting, refusesABadWorkspacesFileAndLeavesNoSocket) {
  const TemporaryFolder folder;
  const std::string socket = folder.path("s");
  const std::string file = folder.write("w.json", "[\n  {\"name\": \"Mail\", \"windows\": -1}\n]");
  const Ended wrong = headless({"--socket", socket, "--workspaces", file});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_EQ(wrong.errors,
            "corvane-headless: " + file + ": [0].windows: not a whole number from 0 to 1000000\n");
  folder.write("w.json", "[\n  {\"name\": }\n]");
  const Ended broken = headless({"--socket", socket, "--workspaces", file});
  EXPECT_EQ(broken.status, 1);
  EXPECT_TRUE(broken.errors.starts_with("corvane-headless: " + file + ":2: not JSON: "))
      << broken.errors;
  EXPECT_EQ(std::ranges::count(broken.errors, '\n'), 1);
  const Ended missing = headless({"--socket", socket, "--workspaces", folder.path("none")});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.errors,
            "corvane-headless: " + folder.path("none") + ": No such file or directory\n");
  EXPECT_FALSE(folder.holds("s"));
}

TEST(Starting, servesTheWorkspacesOfAFile) {
  const TemporaryFolder files;
  HeadlessCorvane corvane(
      {.arguments = {"--workspaces", files.write("w.json", R"([{"name": "Only"}])")}});
  const auto answer = corvane.client().ask(R"({"command":"list"})");
  ASSERT_TRUE(answer);
  EXPECT_NE(answer->find(R"("name":"Only")"), std::string::npos) << *answer;
  EXPECT_TRUE(corvane.log().starts_with("Serving 1 workspace at " + corvane.socketPath() + "\n"));
}

TEST(Starting, keepsTheSocketToTheUser) {
  HeadlessCorvane corvane;
  corvane.client();
  EXPECT_EQ(modeOf(corvane.socketPath()), S_IFSOCK | S_IRUSR | S_IWUSR);
}

TEST(Starting, removesTheSocketAtTheEnd) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    HeadlessCorvane corvane;
    corvane.client();
    corvane.process().signal(signal);
    const Ended ended = corvane.process().wait();
    EXPECT_EQ(ended.status, 0) << signal;
    EXPECT_TRUE(ended.output.ends_with(" Stopped.\n")) << ended.output;
    EXPECT_FALSE(corvane.folder().holds("control.sock")) << signal;
  }
}

TEST(Starting, goesOnAfterAHangUpThatIsIgnored) {
  HeadlessCorvane corvane({.beforeExec = [] { std::signal(SIGHUP, SIG_IGN); }});
  corvane.client();
  corvane.process().signal(SIGHUP);
  EXPECT_TRUE(corvane.client().ask(R"({"command":"list"})"));
}

TEST(Starting, endsOnAnInterruptThatAShellIgnoredForIt) {
  HeadlessCorvane corvane({.beforeExec = [] { std::signal(SIGINT, SIG_IGN); }});
  corvane.client();
  corvane.process().signal(SIGINT);
  EXPECT_EQ(corvane.process().wait().status, 0);
}

TEST(Starting, leavesAFileThatTookThePlaceOfItsSocket) {
  HeadlessCorvane corvane;
  corvane.client();
  ::unlink(corvane.socketPath().c_str());
  corvane.folder().write("control.sock", "mine");
  corvane.log();
  EXPECT_EQ(corvane.folder().read("control.sock"), "mine");
}

TEST(Starting, leavesTheSocketOfWhoeverCameLater) {
  HeadlessCorvane first;
  first.client();
  ::unlink(first.socketPath().c_str());
  ChildProcess second(CORVANE_HEADLESS, HeadlessCorvane::served({}, first.socketPath()));
  ASSERT_TRUE(second.waitForOutput("Serving"));
  first.log();
  EXPECT_TRUE(first.client().ask(R"({"command":"list"})"));
}

TEST(Starting, refusesALiveSocket) {
  HeadlessCorvane first;
  first.client();
  const Ended second = headless({"--socket", first.socketPath()});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.output, "");
  EXPECT_EQ(second.errors, "corvane-headless: " + first.socketPath() +
                               ": another Corvane serves this socket already\n");
  EXPECT_TRUE(first.client().ask(R"({"command":"list"})")) << "the first one goes on";
}

TEST(Starting, takesOverAStaleSocket) {
  const TemporaryFolder folder;
  leaveStaleSocket(folder.path("s"));
  ChildProcess corvane(CORVANE_HEADLESS, HeadlessCorvane::served({}, folder.path("s")));
  ASSERT_TRUE(corvane.waitForOutput("Serving"));
  EXPECT_TRUE(ControlClient(folder.path("s")).ask(R"({"command":"list"})"));
}

TEST(Starting, takesOverTheSocketOfOneThatWasKilled) {
  const TemporaryFolder folder;
  ChildProcess first(CORVANE_HEADLESS, HeadlessCorvane::served({}, folder.path("s")));
  ASSERT_TRUE(first.waitForOutput("Serving"));
  first.signal(SIGKILL);
  first.wait();
  ASSERT_TRUE(folder.holds("s"));
  ChildProcess second(CORVANE_HEADLESS, HeadlessCorvane::served({}, folder.path("s")));
  EXPECT_TRUE(second.waitForOutput("Serving"));
}

/// A lock on a folder, as another process may hold it.
class LockedFolder {
 public:
  LockedFolder(const std::string& path, int kind)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    EXPECT_EQ(::flock(descriptor_, kind), 0);
  }
  ~LockedFolder() { ::close(descriptor_); }
  LockedFolder(const LockedFolder&) = delete;
  LockedFolder& operator=(const LockedFolder&) = delete;

 private:
  int descriptor_;
};

TEST(Starting, saysThatAnotherProcessKeepsTheFolderLocked) {
  const TemporaryFolder folder;
  const LockedFolder lock(folder.path(), LOCK_SH);  // which a lock for one alone has to wait for
  const Ended ended = headless({"--socket", folder.path("s")});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.output, "");
  EXPECT_EQ(ended.errors, "corvane-headless: " + folder.path("s") +
                              ": another process keeps its folder locked\n");
  EXPECT_FALSE(folder.holds("s"));
}

TEST(Starting, waitsForAFolderThatIsLockedForAMoment) {
  const TemporaryFolder folder;
  std::optional<LockedFolder> lock(std::in_place, folder.path(), LOCK_EX);
  ChildProcess corvane(CORVANE_HEADLESS, HeadlessCorvane::served({}, folder.path("s")));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(folder.holds("s"));
  lock.reset();
  EXPECT_TRUE(corvane.waitForOutput("Serving"));
}

TEST(Starting, endsWhileItWaitsForALock) {
  const TemporaryFolder folder;
  const LockedFolder lock(folder.path(), LOCK_EX);
  // Until it waits it takes its end from the system.
  for (;;) {
    ChildProcess corvane(CORVANE_HEADLESS, HeadlessCorvane::served({}, folder.path("s")));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    if (!corvane.running()) continue;  // a machine so busy that the wait was over
    corvane.signal(SIGTERM);
    const Ended ended = corvane.wait();
    if (ended.signal) continue;
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, "corvane-headless: " + folder.path("s") +
                                ": another process keeps its folder locked\n");
    break;
  }
  EXPECT_FALSE(folder.holds("s"));
}

TEST(Starting, makesItsSocketTheUsersAloneFromTheFirstMoment) {
  HeadlessCorvane corvane({.beforeExec = [] { ::umask(0); }});
  corvane.client();
  const std::string mask = fileCreationMask(corvane.process().pid());
  if (mask.empty()) GTEST_SKIP() << "this system does not show another process's mask";
  EXPECT_EQ(mask, "0077");
}

TEST(Starting, letsOneOfManyServe) {
  const TemporaryFolder folder;
  leaveStaleSocket(folder.path("s"));
  std::vector<std::unique_ptr<ChildProcess>> all;
  for (int number = 0; number < 8; ++number) {
    all.push_back(std::make_unique<ChildProcess>(CORVANE_HEADLESS,
                                                 HeadlessCorvane::served({}, folder.path("s"))));
  }
  int serving = 0;
  for (const auto& process : all) {
    // Each one either serves or ends.
    while (process->running() && process->output().find("Serving") == std::string::npos) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (process->running()) {
      ++serving;
    } else {
      EXPECT_EQ(process->wait().status, 1);
    }
  }
  EXPECT_EQ(serving, 1);
  EXPECT_TRUE(ControlClient(folder.path("s")).ask(R"({"command":"list"})"));
}

TEST(Starting, leavesOtherFilesAlone) {
  const TemporaryFolder folder;
  const std::string file = folder.write("file", "precious");
  const std::string link = folder.path("link");
  leaveStaleSocket(folder.path("stale"));
  ASSERT_EQ(::symlink(folder.path("stale").c_str(), link.c_str()), 0);
  for (const std::string& path : {file, link, folder.path()}) {
    const Ended ended = headless({"--socket", path});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, "corvane-headless: " + path +
                                ": there is a file that is no socket; it is left alone\n");
  }
  EXPECT_EQ(folder.read("file"), "precious");
  EXPECT_TRUE(S_ISLNK(modeOf(link)));
}

TEST(Starting, tellsWhyItCannotListen) {
  const TemporaryFolder folder;
  const std::string path = folder.path("none/s");
  const Ended ended = headless({"--socket", path});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: " + path + ": listen: No such file or directory\n");
}

TEST(Starting, tellsThatAFileIsInTheWayOfItsFolder) {
  const TemporaryFolder folder;
  const std::string file = folder.write("file", "precious");
  const Ended named = headless({"--socket", file + "/s"});
  EXPECT_EQ(named.status, 1);
  EXPECT_EQ(named.errors, "corvane-headless: " + file + "/s: Not a directory\n");
  const Ended usual = run(
      CORVANE_HEADLESS,
      {.environment = {{"HOME", file}}, .withoutEnvironment = {"CORVANE_SOCKET", "XDG_DATA_HOME"}});
  EXPECT_EQ(usual.status, 1);
  EXPECT_EQ(usual.errors, "corvane-headless: " + file +
                              (hasLibraryFolder ? "/Library" : "/.local") + ": Not a directory\n");
  EXPECT_EQ(folder.read("file"), "precious");
}

TEST(Starting, leavesASocketThatNobodyAcceptsConnectionsOf) {
  const TemporaryFolder folder;
  const std::string path = folder.path("s");
  const auto listener = CorvaneControl::UnixSocket::listen(path, 0);
  ASSERT_TRUE(listener);
  std::vector<int> waiting;
  for (;;) {  // fills the backlog
    const auto connection = CorvaneControl::UnixSocket::connect(path, 1);
    if (!connection) break;
    waiting.push_back(*connection);
  }
  const Ended ended = headless({"--socket", path});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: " + path +
                ": another Corvane serves this socket, but does not accept connections\n");
  EXPECT_TRUE(S_ISSOCK(modeOf(path)));
  for (const int connection : waiting) ::close(connection);
  ::close(*listener);
}

TEST(Starting, leavesASocketOfAnotherKind) {
  const TemporaryFolder folder;
  const std::string path = folder.path("s");
  const int other = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  const auto address = CorvaneControl::UnixSocket::unixAddress(path);
  ASSERT_TRUE(address);
  ASSERT_EQ(::bind(other, reinterpret_cast<const sockaddr*>(&address->storage), address->length),
            0);
  const Ended ended = headless({"--socket", path});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: " + path + ": connect: " + wrongSocketText() + "\n");
  EXPECT_TRUE(S_ISSOCK(modeOf(path)));
  ::close(other);
}

TEST(Starting, servesAPathOf103BytesAndNotOf104) {
  const TemporaryFolder folder;
  const std::string longest = folder.path(std::string(103 - folder.path("").size(), 'x'));
  ChildProcess corvane(CORVANE_HEADLESS, HeadlessCorvane::served({}, longest));
  EXPECT_TRUE(corvane.waitForOutput("Serving"));
  const Ended ended = headless({"--socket", longest + "x"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: The socket path is too long: " + longest + "x\n");
}

/// The socket that a program says it serves.
std::string servedBy(ChildProcess& process) {
  if (!process.waitForOutput("\n")) return {};
  const std::string_view before = " workspaces at ";
  const std::size_t begin = process.output().find(before) + before.size();
  return process.output().substr(begin, process.output().find('\n') - begin);
}

TEST(Starting, makesTheUsualFolderForTheUserAlone) {
  const TemporaryFolder home;
  ChildProcess corvane(CORVANE_HEADLESS,
                       {.environment = {{"HOME", home.path()}, {"CORVANE_SOCKET", ""}},
                        .withoutEnvironment = {"XDG_DATA_HOME"}});
  const std::string socket = servedBy(corvane);
  EXPECT_TRUE(socket.starts_with(home.path())) << socket;
  EXPECT_TRUE(socket.ends_with("/Corvane/control.sock")) << socket;
  EXPECT_TRUE(ControlClient(socket).ask(R"({"command":"list"})"));
  std::string folder = socket.substr(0, socket.rfind('/'));
  while (folder != home.path()) {
    EXPECT_EQ(modeOf(folder), S_IFDIR | S_IRWXU) << folder;
    folder.resize(folder.rfind('/'));
  }
}

TEST(Starting, aUserWithoutAHomeFolderHasToNameWhatItNeeds) {
  if (!canBeUnknownUser()) GTEST_SKIP() << "only root can be another user";
  const Ended serving = runAsUnknownUser(CORVANE_HEADLESS, {});
  EXPECT_EQ(serving.status, 1);
  EXPECT_EQ(serving.errors,
            "corvane-headless: there is no home folder to serve a socket in; use --socket PATH\n");
  const Ended hooks = runAsUnknownUser(CORVANE_HEADLESS, {"hooks"});
  EXPECT_EQ(hooks.status, 1);
  EXPECT_EQ(hooks.errors,
            "corvane-headless: there is no home folder to look for agents in; use --home DIR\n");
}

TEST(Starting, servesTheUsualFolderAgain) {
  const TemporaryFolder home;
  for (int start = 0; start < 2; ++start) {
    ChildProcess corvane(CORVANE_HEADLESS,
                         {.environment = {{"HOME", home.path()}},
                          .withoutEnvironment = {"CORVANE_SOCKET", "XDG_DATA_HOME"}});
    EXPECT_TRUE(ControlClient(servedBy(corvane)).ask(R"({"command":"list"})"));
  }
}

TEST(Starting, servesTheSocketThatTheEnvironmentNames) {
  const TemporaryFolder folder;
  ChildProcess corvane(CORVANE_HEADLESS, {.environment = {{"CORVANE_SOCKET", folder.path("s")}}});
  EXPECT_EQ(servedBy(corvane), folder.path("s"));
}

TEST(Starting, prefersTheSocketOfTheCommandLine) {
  const TemporaryFolder folder;
  ChildProcess corvane(CORVANE_HEADLESS, {.arguments = {"--socket", folder.path("a")},
                                          .environment = {{"CORVANE_SOCKET", folder.path("b")}}});
  EXPECT_EQ(servedBy(corvane), folder.path("a"));
}

TEST(Starting, servesWithoutStandardDescriptors) {
  HeadlessCorvane corvane({.closed = {0, 1, 2}});
  for (int round = 0; round < 3; ++round) {
    ControlClient client = corvane.client();
    const auto answer = client.ask(R"({"command":"current"})");
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->starts_with(R"({"ok":true)")) << *answer;
  }
}

TEST(Starting, withoutAFileForAClosedDescriptorNothingIsServed) {
  const TemporaryFolder folder;
  ChildOptions options = HeadlessCorvane::served({}, folder.path("s"));
  options.closed = {0};
  options.environment["ASAN_OPTIONS"] = "detect_leaks=0";  // which opens a folder
  options.beforeExec = [] {
    if (!refuseOpening()) ::_exit(99);
  };
  const Ended ended = run(CORVANE_HEADLESS, options);
  if (ended.status == 99) GTEST_SKIP() << "opening cannot be refused here";
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: standard descriptors: Permission denied\n");
  EXPECT_FALSE(folder.holds("s"));
}

/// Room for some clients, and not for forty. Safe after a fork.
void boundDescriptors() {
  const rlimit limit{.rlim_cur = 24, .rlim_max = 24};
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Starting, makesClientsWaitWhenThereIsNoRoom) {
  HeadlessCorvane corvane({.beforeExec = boundDescriptors});
  // The sanitizer takes descriptors for the first check of each kind, and not for the next ones.
  EXPECT_TRUE(corvane.client().ask(R"({"command":"current"})"));
  std::vector<ControlClient> clients;
  for (int number = 0; number < 40; ++number) clients.push_back(corvane.client());
  ASSERT_TRUE(corvane.process().waitForOutput("There is no room for more clients"));
  EXPECT_TRUE(clients.front().ask(R"({"command":"list"})")) << "who is in is served";
  // Each one that leaves makes room for another.
  for (ControlClient& client : clients) {
    EXPECT_TRUE(client.ask(R"({"command":"current"})"));
    client.close();
  }
}

TEST(Starting, letsAClientInWhenAnotherLeaves) {
  HeadlessCorvane corvane({.beforeExec = boundDescriptors});
  ControlClient witness = corvane.client();
  const auto mark = [](int number) {
    return R"({"command":"notify","kind":"done","cwd":"/home/ada/Projects/site","message":")" +
           std::to_string(number) + "\"}";
  };
  // What the last client that was let in has said; each question takes at least one round.
  const auto lastMark = [&] {
    for (int rounds = 0; rounds < 10; ++rounds) witness.ask(R"({"command":"current"})");
    return witness.ask(R"({"command":"current"})");
  };
  EXPECT_TRUE(witness.ask(mark(-1)));
  std::vector<ControlClient> clients;
  for (int number = 0; number < 40; ++number) {
    clients.push_back(corvane.client());
    clients.back().send(mark(number) + "\n");
  }
  ASSERT_TRUE(corvane.process().waitForOutput("There is no room for more clients"));
  auto before = lastMark();
  for (std::size_t leaving = 0; leaving < 8; ++leaving) {
    clients[leaving].close();
    const auto after = lastMark();
    EXPECT_NE(after, before) << leaving;
    before = after;
  }
}

TEST(Starting, saysOnceThatThereIsNoRoom) {
  HeadlessCorvane corvane({.beforeExec = boundDescriptors});
  ControlClient first = corvane.client();
  EXPECT_TRUE(first.ask(R"({"command":"subscribe"})"));
  std::vector<ControlClient> clients;
  for (int number = 0; number < 40; ++number) clients.push_back(corvane.client());
  const std::string said = "There is no room for more clients";
  ASSERT_TRUE(corvane.process().waitForOutput(said));
  std::this_thread::sleep_for(std::chrono::seconds(3));  // it tries again each second
  const std::string log = corvane.log();
  EXPECT_EQ(log.find(said), log.rfind(said)) << log;
}

TEST(Starting, doesNotTurnAndTurnWhileThereIsNoRoom) {
  HeadlessCorvane corvane({.beforeExec = [] {
    boundDescriptors();
    const rlimit seconds{.rlim_cur = 1, .rlim_max = 1};  // of computing
    ::setrlimit(RLIMIT_CPU, &seconds);
  }});
  EXPECT_TRUE(corvane.client().ask(R"({"command":"current"})"));
  std::vector<ControlClient> clients;
  for (int number = 0; number < 40; ++number) clients.push_back(corvane.client());
  ASSERT_TRUE(corvane.process().waitForOutput("There is no room for more clients"));
  std::this_thread::sleep_for(std::chrono::seconds(4));
  EXPECT_TRUE(corvane.process().running());
}

}  // namespace
}  // namespace CorvaneTests
