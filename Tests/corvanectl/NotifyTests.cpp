// `notify`, run as agents run it: whatever goes wrong, it ends with 0 and says nothing.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "CorvaneControl/CodexTranscript.h"
#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/System.h"
#include "Corvanectl.h"
#include "Support/PseudoTerminal.h"

namespace CorvaneTests {
namespace {

using CorvaneControl::ControlRequest;
using CorvaneControl::ControlCoding::line;
namespace ControlCommandLine = CorvaneControl::ControlCommandLine;
namespace JSON = CorvaneControl::JSON;

constexpr auto named = [](const auto& row) { return std::string(row.param.name); };

const std::string permission =
    R"({"session_id":"s1","cwd":"/home/user/project","hook_event_name":"PermissionRequest",)"
    R"("tool_name":"Bash","tool_input":{"command":"ls /tmp"}})";
const std::string question =
    R"json({"session_id":"s1","cwd":"/w","hook_event_name":"PermissionRequest",)json"
    R"json("tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which?",)json"
    R"json("options":[{"label":"A/B (Recommended)"},{"label":"C"}],"multiSelect":true}],)json"
    R"json("n":1.50}})json";
const std::string plan =
    R"({"session_id":"s1","cwd":"/w","hook_event_name":"PermissionRequest",)"
    R"("tool_name":"ExitPlanMode","tool_input":{"plan":"# Plan\n\n1. Do/it"}})";
const std::string stop = R"({"session_id":"s1","cwd":"/w","hook_event_name":"Stop"})";

ChildOptions hook(const std::string& socket, std::string input, std::string agent = "claude") {
  ChildOptions options = against(socket, {"notify", "--agent", std::move(agent)});
  options.input = std::move(input);
  return options;
}

void expectSilence(const Ended& ended) {
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, "");
  EXPECT_EQ(ended.errors, "");
}

struct ReplyCase {
  const char* name;
  std::string input;
  std::string agent;
  std::string answer;
  std::string reply;
};
const std::string allow =
    R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"
    "\n";
const ReplyCase replyCases[] = {
    {"allowed", permission, "claude", R"({"ok":true,"decision":"allowed"})", allow},
    {"allowedForCodex", permission, "codex", R"({"ok":true,"decision":"allowed"})", allow},
    {"denied", permission, "claude", R"({"ok":true,"decision":"denied"})",
     R"({"hookSpecificOutput":{"decision":{"behavior":"deny","interrupt":true,"message":)"
     R"("The user denied this from Corvane. Stop and wait for their instructions."},)"
     R"("hookEventName":"PermissionRequest"}})"
     "\n"},
    {"deniedForCodex", permission, "codex", R"({"ok":true,"decision":"denied"})",
     R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":)"
     R"("The user denied this from Corvane. Stop and wait for their instructions."},)"
     R"("hookEventName":"PermissionRequest"}})"
     "\n"},
    {"answered", question, "Claude", R"({"ok":true,"decision":"allowed","choices":[[0,1]]})",
     R"json({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":)json"
     R"json({"Which?":"A\/B (Recommended), C"},"n":1.5,"questions":[{"multiSelect":true,)json"
     R"json("options":[{"label":"A\/B (Recommended)"},{"label":"C"}],"question":"Which?"}]}},)json"
     R"json("hookEventName":"PermissionRequest"}})json"
     "\n"},
    {"answeredOutOfRange", question, "claude",
     R"({"ok":true,"decision":"allowed","choices":[[2]]})", ""},
    {"approved", plan, "claude", R"({"ok":true,"decision":"allowed","approval":"auto"})",
     R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"plan":)"
     R"("# Plan\n\n1. Do\/it"},"updatedPermissions":[{"destination":"session","mode":"auto",)"
     R"("type":"setMode"}]},"hookEventName":"PermissionRequest"}})"
     "\n"},
    {"keptPlanning", plan, "claude", R"({"ok":true,"decision":"denied"})",
     R"({"hookSpecificOutput":{"decision":{"behavior":"deny","interrupt":true,"message":)"
     R"("The user wants to keep planning. Stop and wait for what they want to change."},)"
     R"("hookEventName":"PermissionRequest"}})"
     "\n"},
    {"withoutADecision", permission, "claude", R"({"ok":true})", ""},
    {"theDecisionCountsWhateverOkSays", permission, "claude",
     R"({"ok":false,"error":"x","decision":"allowed"})", allow},
    {"refused", permission, "claude", R"({"ok":false,"error":"x"})", ""},
    {"aMarkHasNoReply", stop, "claude", R"({"ok":false,"error":"x","decision":"allowed"})", ""},
    {"anUnknownDecision", permission, "claude", R"({"ok":true,"decision":"maybe"})", ""},
    {"garbage", permission, "claude", "garbage", ""},
    {"nothing", permission, "claude", "", ""},
};
class Reply : public testing::TestWithParam<ReplyCase> {};
TEST_P(Reply, isWhatTheAgentReads) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending(GetParam().answer + "\n"));
  const Ended ended = run(corvanectl(), hook(peer.path(), GetParam().input, GetParam().agent));
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, GetParam().reply);
  EXPECT_EQ(ended.errors, "");
}
INSTANTIATE_TEST_SUITE_P(Notify, Reply, testing::ValuesIn(replyCases), named);

TEST(Notify, onlyTheFirstOfTwoAnswersCounts) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"
                                              "{\"ok\":true,\"decision\":\"denied\"}\n"));
  EXPECT_EQ(run(corvanectl(), hook(peer.path(), permission)).output, allow);
}

TEST(Notify, anAnswerAfterHalfAMinuteCounts) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), [](Conversation& talk) {
    std::this_thread::sleep_for(std::chrono::seconds(30));
    talk.send("{\"ok\":true,\"decision\":\"allowed\"}\n");
  });
  EXPECT_EQ(run(corvanectl(), hook(peer.path(), permission)).output, allow);
}

TEST(Notify, anApplicationThatEndsLeavesTheQuestionToTheAgent) {
  const TemporaryFolder folder;
  std::promise<void> asked;
  std::optional<ScriptedPeer> peer(std::in_place, folder.path("s"),
                                   [&](Conversation&) { asked.set_value(); });
  ChildProcess child(corvanectl(), hook(peer->path(), permission));
  waitFor(asked, child);
  peer.reset();
  peer.emplace(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"));  // restarted
  expectSilence(child.wait());
}

struct WaitCase {
  const char* name;
  std::string input;
  std::string agent;
  long seconds;
};
const WaitCase waitCases[] = {
    {"aCardWaitsForTheUser", permission, "claude", 590},
    {"aQuestionWaitsForTheUser", question, "claude", 590},
    {"aMarkDoesNot", stop, "claude", 1},
    {"aQuestionWithoutACardDoesNot", question, "codex", 1},
};
class Wait : public testing::TestWithParam<WaitCase> {};
TEST_P(Wait, dependsOnTheCard) {
  Ended ended;
  const auto seconds = readTimeoutOf(
      [](const std::string& socket) { return hook(socket, GetParam().input, GetParam().agent); },
      ended);
  expectSilence(ended);
  if (!seconds) GTEST_SKIP() << "this system does not show another process's sockets";
  EXPECT_EQ(seconds, GetParam().seconds);
}
INSTANTIATE_TEST_SUITE_P(Notify, Wait, testing::ValuesIn(waitCases), named);

TEST(Notify, givesUpOnASilentApplicationAfterASecond) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), [](Conversation& talk) { talk.waitForEnd(); });
  const auto start = std::chrono::steady_clock::now();
  expectSilence(run(corvanectl(), hook(peer.path(), stop)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
}

TEST(Notify, aHungApplicationWithAFullBacklogCostsSecondsOnly) {
  const TemporaryFolder folder;
  const auto listener = CorvaneControl::UnixSocket::listen(folder.path("s"), 0);
  ASSERT_TRUE(listener);
  std::vector<int> waiting;
  for (;;) {  // fills the backlog; where the system waits, the last one times out
    const auto connection = CorvaneControl::UnixSocket::connect(folder.path("s"), 1);
    if (!connection || waiting.size() > 16) break;
    waiting.push_back(*connection);
  }
  expectSilence(run(corvanectl(), hook(folder.path("s"), permission)));
  for (const int connection : waiting) ::close(connection);
  ::close(*listener);
}

TEST(Notify, withoutAnApplicationIsSilent) {
  const TemporaryFolder folder;
  for (const std::string& input : {permission, question, stop}) {
    expectSilence(run(corvanectl(), hook(folder.path("none"), input)));
  }
  expectSilence(run(corvanectl(), against(folder.path("none"), {"notify"})));
  expectSilence(run(corvanectl(), hook(folder.path(std::string(200, 'x')), permission)));
}

TEST(Notify, aClosedConnectionIsSilent) {
  const TemporaryFolder folder;
  ScriptedPeer peer(
      folder.path("s"), [](Conversation& talk) { talk.close(); }, false);
  for (int round = 0; round < 10; ++round) {
    expectSilence(run(corvanectl(), hook(peer.path(), permission)));
  }
}

TEST(Notify, usageErrorsAreSaidWithStatusZero) {
  struct Row {
    std::vector<std::string> words;
    std::string message;
  };
  const Row rows[] = {
      {{"--bogus"}, "Unknown option for notify: --bogus"},
      {{"x"}, "notify takes options only."},
      {{"--kind", "Done"}, "--kind is needs-input or done, not Done."},
      {{"--agent"}, "--agent needs a value."},
      {{"--agent", "gemini"}, "Unknown agent gemini: use claude, codex or cursor, or give --kind."},
  };
  for (const Row& row : rows) {
    ChildOptions options{.arguments = {"notify"}};
    options.arguments.insert(options.arguments.end(), row.words.begin(), row.words.end());
    const Ended ended = run(corvanectl(), options);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "corvanectl notify: " + row.message + "\n");
  }
}

TEST(Notify, byHandSendsAMark) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  ChildOptions options =
      against(peer.path(), {"notify", "--kind", "done", "--message", "Built\nit", "--json"});
  options.folder = folder.path();
  options.environment["CMUX_WORKSPACE_ID"] = "00000000-0000-4000-8000-00000000000a";
  options.environment["CMUX_SURFACE_ID"] = "00000000-0000-4000-8000-00000000000B";
  options.withoutEnvironment.clear();
  expectSilence(run(corvanectl(), options));
  ASSERT_EQ(peer.requests().size(), 1U);
  EXPECT_EQ(peer.requests().front(),
            R"({"agent":"agent","cmux":{"pane":"00000000-0000-4000-8000-00000000000B","tab":)"
            R"("00000000-0000-4000-8000-00000000000A"},"command":"notify","cwd":")" +
                folder.path() + R"(","kind":"done","message":"Built\nit","process":)" +
                std::to_string(::getpid()) + "}");
}

TEST(Notify, aFolderThatIsGoneIsTheEmptyText) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  const std::string gone = folder.path("gone");
  std::filesystem::create_directory(gone);
  ChildOptions options = against(peer.path(), {"notify"});
  options.folder = gone;
  options.beforeExec = [&] { ::rmdir(gone.c_str()); };
  expectSilence(run(corvanectl(), options));
  ASSERT_EQ(peer.requests().size(), 1U);
  EXPECT_NE(peer.requests().front().find(R"("cwd":"")"), std::string::npos);
}

TEST(Notify, aHomeWithASlashTooManyIsATildeAllTheSame) {
  for (const char* const home : {"/u/me", "/u/me/", "/u//me", "//u//me//"}) {
    const TemporaryFolder folder;
    ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
    ChildOptions options = against(peer.path(), {"notify", "--agent", "claude"});
    options.environment["HOME"] = home;
    options.input = R"({"hook_event_name":"PermissionRequest","cwd":"/u/me/x","tool_name":"Write",)"
                    R"("tool_input":{"file_path":"/u/me/a","content":""}})";
    expectSilence(run(corvanectl(), options));
    ASSERT_EQ(peer.requests().size(), 1U);
    EXPECT_NE(peer.requests().front().find(R"("folder":"~/x")"), std::string::npos) << home;
    EXPECT_NE(peer.requests().front().find(R"("note":"~/a")"), std::string::npos) << home;
  }
}

/// The request that the library makes of an input, with this process as the parent: the other road
/// to what the executable sends.
std::optional<std::string> expectedRequest(const std::string& agent, std::string input) {
  const auto document = JSON::Document::parse(input);
  const auto parsed = ControlCommandLine::parse(
      {"notify", "--agent", agent},
      {.standardInput = [&] { return document ? &document->root() : nullptr; },
       .currentDirectory = [] { return std::filesystem::current_path().string(); },
       .parentProcess = [] { return std::optional<std::int32_t>(::getpid()); },
       .homeFolder = CorvaneControl::System::homeFolder,
       .autoReviewed =
           [](const std::string& path) {
             return CorvaneControl::CodexTranscript::autoReviewed(path);
           },
       .environment = [](std::string_view) { return std::optional<std::string>(); }});
  const auto* const decision = std::get_if<ControlCommandLine::Run>(&parsed);
  if (!decision) return std::nullopt;
  std::string text = line(decision->request);
  text.pop_back();
  return text;
}

TEST(Notify, everyRealHookInputGoesThrough) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"denied\"}\n"));
  std::size_t files = 0;
  std::size_t sent = 0;
  for (const char* const agent : {"claude", "codex", "cursor"}) {
    const auto inputs = std::filesystem::path(CORVANE_SOURCE_DIR) / "Tests/Fixtures/hooks" / agent;
    for (const auto& entry : std::filesystem::directory_iterator(inputs)) {
      if (entry.path().extension() != ".json") continue;
      SCOPED_TRACE(entry.path());
      ++files;
      const std::string input = contents(entry.path());
      const Ended ended = run(corvanectl(), hook(peer.path(), input, agent));
      EXPECT_EQ(ended.status, 0);
      EXPECT_EQ(ended.errors, "");
      const auto expected = expectedRequest(agent, input);
      if (expected) ++sent;
      const auto requests = peer.requests();
      ASSERT_EQ(requests.size(), sent);
      if (!expected) continue;
      EXPECT_EQ(requests.back(), *expected);
      // The same tool input must read and write alike in everything that was sent.
      const bool hasCard = expected->find("\"permission\":") != std::string::npos;
      EXPECT_EQ(ended.output.empty(), !hasCard);
    }
  }
  EXPECT_GE(files, 40U);
  EXPECT_GE(sent, 30U);
}

TEST(Notify, readsWhateverKindOfStandardInputThereIs) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"));
  const std::string file = folder.write("input", "skipped" + permission);
  const int input = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::lseek(input, 7, SEEK_SET), 7);
  ChildOptions fromFile = against(peer.path(), {"notify", "--agent", "claude"});
  fromFile.given = {{0, input}};
  EXPECT_EQ(run(corvanectl(), fromFile).output, allow);  // from where the file stands
  ::close(input);

  std::array<int, 2> sockets{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()), 0);
  ASSERT_EQ(::write(sockets[1], permission.data(), permission.size()),
            static_cast<ssize_t>(permission.size()));
  ::close(sockets[1]);
  ChildOptions fromSocket = against(peer.path(), {"notify", "--agent", "claude"});
  fromSocket.given = {{0, sockets[0]}};
  EXPECT_EQ(run(corvanectl(), fromSocket).output, allow);
  ::close(sockets[0]);
}

/// A pipe does not tell how much there is to come, so room is made again and again.
TEST(Notify, readsAnInputOfAnySizeFromAPipe) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  std::size_t sent = 0;
  for (const std::size_t size : {8000U, 8192U, 32'768U, 100'000U, 131'072U, 5'000'000U}) {
    // The task is at the very end, behind what the input is mostly made of.
    const std::string input =
        R"({"session_id":"s1","cwd":"/w","hook_event_name":"UserPromptSubmit",)"
        R"("filler":")" +
        std::string(size, 'x') + R"(","prompt":"Go on"})";
    expectSilence(run(corvanectl(), hook(peer.path(), input)));
    ASSERT_EQ(peer.requests().size(), ++sent) << size;
    const auto request =
        CorvaneControl::ControlCoding::decode<ControlRequest>(peer.requests().back());
    ASSERT_TRUE(request) << size;
    EXPECT_EQ(request->task, "Go on") << size;
  }
}

TEST(Notify, waitsForInputOnAPipeThatSomebodyElseMadeNonBlocking) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"));
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  for (const int end : pipe) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  ::fcntl(pipe[0], F_SETFL, O_NONBLOCK);
  const std::string_view start = std::string_view(permission).substr(0, 40);
  const std::string_view rest = std::string_view(permission).substr(start.size());
  ASSERT_EQ(::write(pipe[1], start.data(), start.size()), static_cast<ssize_t>(start.size()));
  ChildOptions options = against(peer.path(), {"notify", "--agent", "claude"});
  options.given = {{0, pipe[0]}};
  ChildProcess child(corvanectl(), options);
  // Once it has read the start, it finds nothing for a while.
  for (int left = 1; left > 0;) {
    ASSERT_TRUE(child.running());
    ASSERT_EQ(::ioctl(pipe[0], FIONREAD, &left), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_EQ(::write(pipe[1], rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
  for (const int end : pipe) ::close(end);
  EXPECT_EQ(child.wait().output, allow);
}

class NotifyInATerminal : public CorvaneTests::InATerminal {};

TEST_F(NotifyInATerminal, readsNothing) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"));
  const PseudoTerminal terminal;
  terminal.type(permission + "\n");
  terminal.typeEndOfInput();
  expectSilence(
      run(corvanectl(), terminal.lentTo(against(peer.path(), {"notify", "--agent", "claude"}))));
  EXPECT_TRUE(peer.requests().empty());
}

TEST(Notify, inputThatIsNoneIsSilent) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  ChildOptions closed = against(peer.path(), {"notify", "--agent", "claude"});
  closed.closed = {0};
  expectSilence(run(corvanectl(), closed));

  const int directory = ::open(folder.path().c_str(), O_RDONLY | O_CLOEXEC);
  ChildOptions fromFolder = against(peer.path(), {"notify", "--agent", "claude"});
  fromFolder.given = {{0, directory}};
  expectSilence(run(corvanectl(), fromFolder));
  ::close(directory);

  const int unreadable = ::open(folder.path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ChildOptions fromUnreadable = against(peer.path(), {"notify", "--agent", "claude"});
  fromUnreadable.given = {{0, unreadable}};
  expectSilence(run(corvanectl(), fromUnreadable));
  ::close(unreadable);
  EXPECT_TRUE(peer.requests().empty());
}

/// Where a reply goes: what the hook writes to, and the end that the agent reads from.
struct ReplyEnds {
  int hook = -1;
  int agent = -1;
};

ReplyEnds pipeEnds() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  return {.hook = ends[1], .agent = ends[0]};
}
ReplyEnds socketEnds() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  ::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
  return {.hook = ends[0], .agent = ends[1]};
}
/// As some agents make it: each end of the connection goes one way only.
ReplyEnds halfClosedSocketEnds() {
  const ReplyEnds ends = socketEnds();
  ::shutdown(ends.hook, SHUT_RD);
  ::shutdown(ends.agent, SHUT_WR);
  return ends;
}
ReplyEnds terminalEnds() {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) return {};
  ::fcntl(master, F_SETFD, FD_CLOEXEC);
  const char* const name = ::ptsname(master);
  const int slave = name == nullptr ? -1 : ::open(name, O_RDWR | O_NOCTTY);
  termios modes{};
  ::tcgetattr(slave, &modes);
  modes.c_oflag &= ~static_cast<tcflag_t>(OPOST);  // line feeds stay line feeds
  ::tcsetattr(slave, TCSANOW, &modes);
  return {.hook = slave, .agent = master};
}
ReplyEnds fileEnds() {
  std::string path = "/tmp/corvanectl-reply.XXXXXX";
  const int file = ::mkstemp(path.data());
  ::unlink(path.c_str());
  return {.hook = file, .agent = -1};
}
ReplyEnds nullEnds() { return {.hook = ::open("/dev/null", O_WRONLY), .agent = -1}; }

struct ReplyEndsCase {
  const char* name;
  ReplyEnds (*make)();
};

/// A card that is asked about, and an agent that may go away meanwhile.
class Card : public testing::TestWithParam<ReplyEndsCase> {
 protected:
  Card() {
    if (ends_.hook < 0) return;
    ChildOptions options = hook(peer_.path(), permission);
    options.given = {{1, ends_.hook}};
    child_.emplace(corvanectl(), options);
    ::close(ends_.hook);
    waitFor(asked_, *child_);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // until it waits
  }
  ~Card() override {
    mayAnswer();
    agentGoes();
  }
  bool isThere() const { return child_.has_value(); }
  void agentGoes() {
    if (ends_.agent >= 0) ::close(std::exchange(ends_.agent, -1));
  }
  void mayAnswer() {
    if (!std::exchange(answered_, true)) answer_.set_value();
  }
  Ended ended() { return child_->wait(); }
  int agent() const { return ends_.agent; }

 private:
  ReplyEnds ends_ = GetParam().make();
  TemporaryFolder folder_;
  std::promise<void> asked_;
  std::promise<void> answer_;
  bool answered_ = false;
  ScriptedPeer peer_{folder_.path("s"), [this](Conversation& talk) {
                       asked_.set_value();
                       answer_.get_future().wait();
                       talk.send("{\"ok\":true,\"decision\":\"allowed\"}\n");
                     }};
  std::optional<ChildProcess> child_;
};

class CardOfAnAgent : public Card {};
TEST_P(CardOfAnAgent, isWithdrawnWhenTheAgentIsGone) {
  if (!isThere()) GTEST_SKIP() << "no terminal can be opened here";
  agentGoes();
  expectSilence(ended());
}
TEST_P(CardOfAnAgent, isAnsweredWhileTheAgentIsThere) {
  if (!isThere()) GTEST_SKIP() << "no terminal can be opened here";
  mayAnswer();
  std::array<char, 512> bytes{};
  const ssize_t count = ::read(agent(), bytes.data(), bytes.size());
  EXPECT_EQ(std::string_view(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))),
            allow);
  expectSilence(ended());
}
const ReplyEndsCase agentsEnds[] = {{"aPipe", pipeEnds},
                                    {"aSocket", socketEnds},
                                    {"aHalfClosedSocket", halfClosedSocketEnds},
                                    {"aTerminal", terminalEnds}};
INSTANTIATE_TEST_SUITE_P(Notify, CardOfAnAgent, testing::ValuesIn(agentsEnds), named);

class CardIntoAFile : public Card {};
TEST_P(CardIntoAFile, waitsForItsAnswer) {
  mayAnswer();
  expectSilence(ended());
}
const ReplyEndsCase filesEnds[] = {{"aFile", fileEnds}, {"theNullDevice", nullEnds}};
INSTANTIATE_TEST_SUITE_P(Notify, CardIntoAFile, testing::ValuesIn(filesEnds), named);

TEST(Notify, endsWithZeroWhenNobodyTakesTheReply) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"));
  ChildOptions closed = hook(peer.path(), permission);
  closed.closed = {1};
  expectSilence(run(corvanectl(), closed));
  ChildOptions none = hook(peer.path(), permission);
  none.closed = {1, 2};
  expectSilence(run(corvanectl(), none));

  std::array<int, 2> broken{};
  ASSERT_EQ(::pipe(broken.data()), 0);
  ::close(broken[0]);
  ChildOptions toBroken = hook(peer.path(), permission);
  toBroken.given = {{1, broken[1]}};
  expectSilence(run(corvanectl(), toBroken));
  ChildOptions usage{.arguments = {"notify", "--bogus"}};
  usage.given = {{2, broken[1]}};
  EXPECT_EQ(run(corvanectl(), usage).status, 0);
  ::close(broken[1]);
}

TEST(Notify, endsWithZeroWhenNoFileMayGrow) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true,\"decision\":\"allowed\"}\n"));
  const int file = ::open(folder.path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  ChildOptions reply = hook(peer.path(), permission);
  reply.given = {{1, file}};
  reply.beforeExec = refuseFileGrowth;
  expectSilence(run(corvanectl(), reply));
  ChildOptions usage{.arguments = {"notify", "--bogus"}};
  usage.given = {{2, file}};
  usage.beforeExec = refuseFileGrowth;
  EXPECT_EQ(run(corvanectl(), usage).status, 0);
  ::close(file);
  EXPECT_EQ(contents(folder.path("out")), "");
}

TEST(Notify, readsItsInputOnlyForAnAgentItKnows) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"notify"}, {"notify", "--agent", "gemini", "--kind", "done"}}) {
    ChildOptions options = against(peer.path(), words);
    options.keepInputOpen = true;
    expectSilence(run(corvanectl(), options));
  }
  EXPECT_EQ(peer.requests().size(), 2U);
}

/// Input that must never make `notify` fail, handed over as a file.
void expectNoHarm(const std::string& input, const std::string& agent, const std::string& socket,
                  const TemporaryFolder& folder) {
  const std::string path = folder.write("hostile", input);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ChildOptions options = against(socket, {"notify", "--agent", agent});
  options.given = {{0, file}};
  const Ended ended = run(corvanectl(), options);
  ::close(file);
  EXPECT_EQ(ended.status, 0) << input.substr(0, 500);
  EXPECT_EQ(ended.errors, "") << input.substr(0, 500);
  EXPECT_EQ(ended.output, "") << input.substr(0, 500);
}

TEST(Notify, hostileInputDoesNoHarm) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  const std::string start = permission.substr(0, permission.size() - 2);
  const std::string megabytes(50'000'000, 'x');
  const std::string inputs[] = {
      "",
      "\n",
      std::string(1, '\0'),
      "\xFF\xFE{",
      std::string(100'000, '['),
      std::string(100'000, '[') + std::string(100'000, ']'),
      start + R"(,"deep":)" + std::string(508, '[') + std::string(508, ']') + "}}",
      start + R"(,"deep":)" + std::string(100'000, '[') + "}}",
      start + R"(,"bad":")" + "\xFF" + "\"}}",
      R"({"hook_event_name":"PermissionRequest","tool_name":"Write","cwd":"/w","tool_input":)"
      R"({"file_path":"/w/a","content":")" +
          megabytes + "\"}}",
      R"({"hook_event_name":"Stop","last_assistant_message":")" + megabytes + "\"}",
      R"({"hook_event_name":"UserPromptSubmit","session_id":"s","cwd":"/w","prompt":")" +
          megabytes + "\"}",
  };
  for (const std::string& input : inputs) expectNoHarm(input, "claude", peer.path(), folder);
}

TEST(Notify, inputCutAtEveryByteIsSilent) {
  const TemporaryFolder folder;
  const std::string none = folder.path("none");
  for (std::size_t size = 0; size < permission.size(); ++size) {
    expectNoHarm(permission.substr(0, size), "claude", none, folder);
  }
}

/// The members of an object as text, the one at `at` replaced.
std::string replaced(const JSON::Value& object, std::size_t at, std::string_view replacement) {
  std::string text = "{";
  for (std::size_t index = 0; index < object.members().size(); ++index) {
    if (index > 0) text += ",";
    JSON::write(JSON::Value::ofString(object.members()[index].key), JSON::Slashes::plain, text);
    text += ":";
    if (index == at) {
      text += replacement;
    } else {
      JSON::write(object.members()[index].value, JSON::Slashes::plain, text);
    }
  }
  return text + "}";
}

TEST(Notify, membersOfEveryOtherTypeDoNoHarm) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  std::string source = permission;
  const auto document = JSON::Document::parse(source);
  ASSERT_TRUE(document);
  for (std::size_t at = 0; at < document->root().members().size(); ++at) {
    for (const char* const value : {"null", "true", "1", "1.5", "\"\"", "\"x\"", "[]", "[1,\"a\"]",
                                    "{}", "{\"command\":1}", "18446744073709551615"}) {
      expectNoHarm(replaced(document->root(), at, value), "claude", peer.path(), folder);
    }
  }
}

TEST(Notify, randomlyDamagedInputDoesNoHarm) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  std::mt19937 random(590);
  const std::string inputs[] = {permission, question, plan, stop};
  const char* const agents[] = {"claude", "codex", "cursor"};
  for (int round = 0; round < 150; ++round) {
    std::string input = inputs[random() % std::size(inputs)];
    for (auto left = 1 + random() % 3; left > 0; --left) {
      const auto at = static_cast<std::ptrdiff_t>(random() % input.size());
      switch (random() % 3) {
        case 0:
          input[static_cast<std::size_t>(at)] = static_cast<char>(random());
          break;
        case 1:
          input.erase(input.begin() + at);
          break;
        default:
          input.insert(static_cast<std::size_t>(at), 1, "\"{}[],:\\0"[random() % 9]);
      }
    }
    expectNoHarm(input, agents[random() % std::size(agents)], peer.path(), folder);
  }
}

TEST(Notify, sendsTheCurrentFolderHoweverLongItsPathIs) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  ChildOptions options = against(peer.path(), {"notify"});
  options.folder = folder.path();
  static const std::string name(200, 'n');
  options.beforeExec = [] {
    for (int depth = 0; depth < 22; ++depth) {
      if (::mkdir(name.c_str(), 0700) != 0 || ::chdir(name.c_str()) != 0) ::_exit(99);
    }
  };
  expectSilence(run(corvanectl(), options));
  ASSERT_EQ(peer.requests().size(), 1U);
  const auto request = CorvaneControl::ControlCoding::decode<ControlRequest>(peer.requests()[0]);
  ASSERT_TRUE(request);
  std::string path = folder.path();
  for (int depth = 0; depth < 22; ++depth) path += "/" + name;
  EXPECT_EQ(request->cwd, path);
}

TEST(Notify, runningOutOfMemoryIsSilent) {
  if (!canBoundMemory) GTEST_SKIP() << "memory cannot be bounded here";
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  std::string values = R"({"hook_event_name":"Stop","a":[1)";
  while (values.size() < 8'000'000) values += ",1";
  const std::string path = folder.write("large", values + "]}");
  for (const rlim_t limit : {rlim_t{8} << 20, rlim_t{16} << 20, rlim_t{64} << 20}) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ChildOptions options = against(peer.path(), {"notify", "--agent", "claude"});
    options.given = {{0, file}};
    options.beforeExec = [limit] {
      const rlimit bound{limit, limit};
      ::setrlimit(RLIMIT_AS, &bound);
    };
    expectSilence(run(corvanectl(), options));
    ::close(file);
  }
  EXPECT_TRUE(peer.requests().empty());
}

TEST(Notify, runningOutOfMemoryWithinMarkdownIsSilent) {
  if (!canBoundMemory) GTEST_SKIP() << "memory cannot be bounded here";
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  std::string message;
  while (message.size() < 30'000) message += " *a";  // reading it takes megabytes
  ChildOptions options =
      hook(peer.path(),
           R"({"hook_event_name":"Stop","cwd":"/w","last_assistant_message":")" + message + "\"}");
  bool starts = false;  // with less memory than it takes to start, the system ends it
  for (rlim_t limit = rlim_t{1} << 20; limit <= rlim_t{24} << 20; limit += rlim_t{128} << 10) {
    SCOPED_TRACE(limit);
    options.beforeExec = [limit] {
      const rlimit bound{limit, limit};
      ::setrlimit(RLIMIT_AS, &bound);
    };
    const Ended ended = run(corvanectl(), options);
    EXPECT_NE(ended.signal, SIGABRT) << ended.errors;
    starts = starts || ended.status == 0;
    if (starts) expectSilence(ended);
  }
  EXPECT_TRUE(starts);
  EXPECT_FALSE(peer.requests().empty());  // the last of them had all that it needs
}

}  // namespace
}  // namespace CorvaneTests
