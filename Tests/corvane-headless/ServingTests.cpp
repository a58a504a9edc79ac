#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/UnixSocket.h"
#include "HeadlessCorvane.h"
#include "Support/PseudoTerminal.h"
#include "Support/SystemUnderTest.h"

namespace CorvaneTests {
namespace {

using CorvaneControl::ControlEvent;
using CorvaneControl::ControlRequest;
using CorvaneControl::ControlResponse;
using CorvaneControl::WorkspaceSummary;

namespace ControlCoding = CorvaneControl::ControlCoding;

template <class Record>
Record decoded(const std::optional<std::string>& line) {
  if (!line) {
    ADD_FAILURE() << "there is no line";
    return {};
  }
  auto record = ControlCoding::decode<Record>(*line);
  if (!record) {
    ADD_FAILURE() << *line << ": " << record.failure().description;
    return {};
  }
  return *std::move(record);
}

ControlResponse ask(ControlClient& client, const std::string& request) {
  return decoded<ControlResponse>(client.ask(request));
}
ControlEvent nextEvent(ControlClient& client) { return decoded<ControlEvent>(client.line()); }

std::string switchTo(const std::string& name) {
  return R"({"command":"switch","workspace":")" + name + "\"}";
}
std::string notify(const std::string& folder, const std::string& more) {
  return R"({"command":"notify","agent":"claude","cwd":")" + folder + "\"," + more + "}";
}

TEST(Serving, listsTheSample) {
  HeadlessCorvane corvane;
  EXPECT_EQ(
      corvane.client().ask(R"({"command":"list"})"),
      R"({"ok":true,"workspaces":[{"active":true,"id":"7863AB24-E776-880E-888E-7BE55F3EFD3E",)"
      R"("name":"Site","project":"/home/ada/Projects/site","section":"Work","shortcut":"⌥1",)"
      R"("windows":3},{"active":false,"id":"04AE3C13-E8C6-8FEE-B16B-C2140E66A15E","name":"Store",)"
      R"("project":"/home/ada/Projects/store","section":"Work","shortcut":"⌥2","windows":2},)"
      R"({"active":false,"id":"49E765AE-D008-8B0E-819B-F77EF570C47E","name":"Mail",)"
      R"("section":"Every day","shortcut":"⌥3","windows":1},)"
      R"({"active":false,"id":"005053D8-2B71-8E0A-90CA-C88D4215D5DA","name":"Notes",)"
      R"("project":"/home/ada/Notes","section":"Every day","windows":0}]})");
}

TEST(Serving, switches) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const ControlResponse noPrevious = ask(client, switchTo("-"));
  EXPECT_FALSE(noPrevious.ok);
  EXPECT_EQ(noPrevious.error, "There is no previous workspace yet.");
  EXPECT_EQ(ask(client, switchTo("ma")).workspace->name, "Mail");
  EXPECT_EQ(ask(client, R"({"command":"current"})").workspace->name, "Mail");
  EXPECT_EQ(ask(client, switchTo("-")).workspace->name, "Site");
  EXPECT_EQ(ask(client, switchTo("-")).workspace->name, "Mail");
  EXPECT_EQ(ask(client, switchTo("s")).error, "\"s\" could be Site or Store.");
  EXPECT_EQ(ask(client, switchTo("x")).error,
            "No workspace is called \"x\". There are Site, Store, Mail and Notes.");
  EXPECT_EQ(ask(client, R"({"command":"switch"})").error,
            "Which workspace? There are Site, Store, Mail and Notes.");
  EXPECT_EQ(ask(client, R"({"command":"current"})").workspace->name, "Mail");
  EXPECT_EQ(corvane.log(), "Serving 4 workspaces at " + corvane.socketPath() +
                               "\n"
                               "Agents that ask for permission ask by themselves: there is no "
                               "terminal to ask on.\n"
                               "Refused switch: There is no previous workspace yet.\n"
                               "Switched to Mail.\n"
                               "Told the current workspace: Mail.\n"
                               "Switched to Site.\n"
                               "Switched to Mail.\n"
                               "Refused switch: \"s\" could be Site or Store.\n"
                               "Refused switch: No workspace is called \"x\". There are Site, "
                               "Store, Mail and Notes.\n"
                               "Refused switch: Which workspace? There are Site, Store, Mail and "
                               "Notes.\n"
                               "Told the current workspace: Mail.\n"
                               "Stopped.\n");
}

TEST(Serving, launchesAndStops) {
  HeadlessCorvane corvane({.arguments = {}});
  ControlClient client = corvane.client();
  const ControlResponse launched = ask(client, R"({"command":"launch","workspace":"notes"})");
  EXPECT_TRUE(launched.ok);
  EXPECT_EQ(launched.workspace->windows, 1);
  const ControlResponse stopped = ask(client, R"({"command":"stop","workspace":"Site"})");
  EXPECT_EQ(stopped.workspace->windows, 0);
  EXPECT_FALSE(stopped.error);
  const ControlResponse again = ask(client, R"({"command":"stop","workspace":"Site"})");
  EXPECT_TRUE(again.ok);
  EXPECT_EQ(again.error, "Site has no windows.");
  EXPECT_EQ(ask(client, R"({"command":"launch","workspace":"Site"})").workspace->windows, 3);
  EXPECT_FALSE(ask(client, R"({"command":"launch","workspace":"s"})").ok);
  EXPECT_FALSE(ask(client, R"({"command":"stop","workspace":"x"})").ok);
  const std::string log = corvane.log();
  EXPECT_NE(log.find("Launched Notes: 1 window instead of 0.\n"
                     "Stopped Site: 0 windows instead of 3.\n"
                     "Warned: Site has no windows.\n"
                     "Launched Site: 3 windows instead of 0.\n"
                     "Refused launch: \"s\" could be Site or Store.\n"
                     "Refused stop: No workspace is called \"x\"."),
            std::string::npos)
      << log;
}

TEST(Serving, refusesTheCurrentWorkspaceOfNone) {
  const TemporaryFolder files;
  HeadlessCorvane corvane(
      {.arguments = {"--workspaces", files.write("w.json", R"([{"name":"Mail"}])")}});
  ControlClient client = corvane.client();
  EXPECT_EQ(ask(client, R"({"command":"current"})").error, "No workspace is active.");
  EXPECT_EQ(client.ask(R"({"command":"subscribe"})"), R"({"event":"workspace"})");
}

TEST(Serving, tellsSubscribersOfEachChange) {
  HeadlessCorvane corvane;
  ControlClient subscriber = corvane.client();
  ControlClient client = corvane.client();
  const ControlEvent first = decoded<ControlEvent>(subscriber.ask(R"({"command":"subscribe"})"));
  EXPECT_EQ(first.event, ControlEvent::Kind::workspace);
  EXPECT_EQ(first.workspace->name, "Site");

  ask(client, notify("/home/ada/Projects/store/x", R"("kind":"needs-input","message":"Look")"));
  const ControlEvent marked = nextEvent(subscriber);
  EXPECT_EQ(marked.event, ControlEvent::Kind::attention);
  EXPECT_EQ(marked.workspace->name, "Store");
  EXPECT_EQ(marked.workspace->attention->message, "Look");

  ask(client, switchTo("Store"));
  const ControlEvent switched = nextEvent(subscriber);
  EXPECT_EQ(switched.event, ControlEvent::Kind::workspace);
  EXPECT_EQ(switched.workspace->name, "Store");
  EXPECT_TRUE(switched.workspace->active);
  EXPECT_FALSE(switched.workspace->attention);
  const ControlEvent cleared = nextEvent(subscriber);
  EXPECT_EQ(cleared.event, ControlEvent::Kind::attention);
  EXPECT_FALSE(cleared.workspace->attention);

  ask(client, switchTo("Store"));                             // nothing changes
  ask(client, R"({"command":"launch","workspace":"Mail"})");  // not the current one
  ask(client, R"({"command":"launch","workspace":"Store"})");
  const ControlEvent launched = nextEvent(subscriber);
  EXPECT_EQ(launched.event, ControlEvent::Kind::workspace);
  EXPECT_EQ(launched.workspace->name, "Store");
  EXPECT_EQ(launched.workspace->windows, 3);
}

TEST(Serving, answersSubscribersToo) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  client.ask(R"({"command":"subscribe"})");
  client.send(switchTo("Mail") + "\n");
  EXPECT_EQ(nextEvent(client).workspace->name, "Mail") << "the event comes before the answer";
  EXPECT_TRUE(decoded<ControlResponse>(client.line()).ok);
}

TEST(Serving, keepsSendingToASubscriberThatSaysNothingMore) {
  HeadlessCorvane corvane;
  ControlClient subscriber = corvane.client();
  subscriber.ask(R"({"command":"subscribe"})");
  subscriber.finishSending();
  ControlClient client = corvane.client();
  ask(client, switchTo("Mail"));
  EXPECT_EQ(nextEvent(subscriber).workspace->name, "Mail");
  subscriber.close();
  EXPECT_TRUE(corvane.process().waitForOutput("A client no longer follows the workspaces."));
}

struct MarkCase {
  const char* name;
  std::string folder;
  const char* marked;  // the workspace; empty for none
};

const MarkCase markCases[] = {
    {"theProject", "/home/ada/Projects/site", "Site"},
    {"insideTheProject", "/home/ada/Projects/site/src", "Site"},
    {"theDeepestProject", "/home/ada/Projects/site/docs/x", "Docs"},
    {"notBesideTheProject", "/home/ada/Projects/site-2", ""},
    {"nowhere", "/", ""},
};

class Marks : public testing::TestWithParam<MarkCase> {};
TEST_P(Marks, goToTheDeepestProject) {
  const TemporaryFolder files;
  HeadlessCorvane corvane({.arguments = {"--workspaces", files.write("w.json", R"([
      {"name": "Site", "project": "~/Projects/site"},
      {"name": "Docs", "project": "~/Projects/site/docs"},
      {"name": "Mail"}])")}});
  ControlClient client = corvane.client();
  EXPECT_EQ(client.ask(notify(GetParam().folder, R"("kind":"done","session":"s","message":"Hi")")),
            R"({"ok":true})");
  std::string marked;
  const ControlResponse list = ask(client, R"({"command":"list"})");
  for (const WorkspaceSummary& workspace : *list.workspaces) {
    if (!workspace.attention) continue;
    marked += workspace.name;
    EXPECT_EQ(workspace.attention->agent, "claude");
    EXPECT_EQ(workspace.attention->kind, CorvaneControl::AttentionKind::done);
    EXPECT_EQ(workspace.attention->message, "Hi");
    EXPECT_EQ(workspace.attention->session, "s");
    EXPECT_EQ(workspace.attention->folder, GetParam().folder);
  }
  EXPECT_EQ(marked, GetParam().marked);
}
INSTANTIATE_TEST_SUITE_P(Serving, Marks, testing::ValuesIn(markCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Serving, logsMarksAndTurnsInOneLineEach) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const auto report = [&](const std::string& more) {
    EXPECT_EQ(client.ask(notify("/home/ada/Projects/site", R"("session":"s",)" + more)),
              R"({"ok":true})");
  };
  report(R"("activity":"started","task":"Fix\nit\u001b[2J")");
  report(R"("activity":"working","toolCall":"1")");
  report(R"("activity":"working","toolCall":"2")");
  report(R"("kind":"done","message":"Fixed \u202Eit")");
  report(R"("activity":"working")");
  report(R"("activity":"working")");
  report(R"("activity":"ended")");
  EXPECT_EQ(client.ask(R"({"command":"notify","kind":"needs-input"})"), R"({"ok":true})");
  EXPECT_EQ(client.ask(R"({"command":"notify"})"),
            R"({"error":"notify needs a kind, an activity or a permission.","ok":false})");
  const std::string log = corvane.log();
  EXPECT_NE(log.find("Claude works in Site: Fix\\u{A}it\\u{1B}[2J\n"
                     "Claude is done in Site (2 tool calls): Fixed \\u{202E}it\n"
                     "Claude works in Site.\n"
                     "Claude has ended in Site.\n"
                     "An agent asks for you in no folder.\n"
                     "Refused notify: notify needs a kind, an activity or a permission.\n"),
            std::string::npos)
      << log;
}

TEST(Serving, clearsTheMarkOfASessionThatStartsATurn) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const auto isMarked = [&] {
    return ask(client, R"({"command":"current"})").workspace->attention.has_value();
  };
  client.ask(notify("/home/ada/Projects/site", R"("session":"s","kind":"done")"));
  client.ask(notify("/home/ada/Projects/site", R"("session":"other","activity":"started")"));
  EXPECT_TRUE(isMarked());
  client.ask(notify("/home/ada/Projects/site", R"("session":"s","activity":"started")"));
  EXPECT_FALSE(isMarked());
}

TEST(Serving, tellsAgentsWithoutASessionApartByTheirFolders) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const auto isMarked = [&] {
    return ask(client, R"({"command":"current"})").workspace->attention.has_value();
  };
  client.ask(notify("/home/ada/Projects/site", R"("kind":"done")"));
  client.ask(notify("/home/ada/Projects/store", R"("activity":"started")"));
  EXPECT_TRUE(isMarked());
  client.ask(notify("/home/ada/Projects/site", R"("activity":"started")"));
  EXPECT_FALSE(isMarked());
}

TEST(Serving, clearsTheMarkOfTheWorkspaceThatIsSwitchedToAgain) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  client.ask(notify("/home/ada/Projects/site", R"("kind":"done")"));
  ControlClient subscriber = corvane.client();
  EXPECT_TRUE(
      decoded<ControlEvent>(subscriber.ask(R"({"command":"subscribe"})")).workspace->attention);
  EXPECT_FALSE(ask(client, switchTo("Site")).workspace->attention);
  const ControlEvent cleared = nextEvent(subscriber);
  EXPECT_EQ(cleared.event, ControlEvent::Kind::attention);
  EXPECT_FALSE(cleared.workspace->attention);
  ask(client, switchTo("Site"));  // there is none any more, and nothing to be told
  ask(client, switchTo("Mail"));
  EXPECT_EQ(nextEvent(subscriber).workspace->name, "Mail");
}

TEST(Serving, isSilentWhenQuiet) {
  HeadlessCorvane corvane({.arguments = {"--quiet"}});
  ControlClient client = corvane.client();
  ask(client, switchTo("Mail"));
  ask(client, switchTo("x"));
  EXPECT_EQ(corvane.log(), "");
}

TEST(Serving, takesRequestsInPieces) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  for (const char byte : std::string(R"({"command":"switch","workspace":"Mail"})")) {
    client.send(std::string(1, byte));
  }
  EXPECT_FALSE(client.isReadable(std::chrono::milliseconds(50))) << "the line is not complete";
  client.send("\n");
  EXPECT_EQ(decoded<ControlResponse>(client.line()).workspace->name, "Mail");
}

TEST(Serving, takesCarriageReturnsForBlanks) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  EXPECT_TRUE(ask(client, "{\"command\":\"list\"}\r").ok);
}

TEST(Serving, forgetsHalfARequestOfAClientThatLeaves) {
  HeadlessCorvane corvane;
  {
    ControlClient client = corvane.client();
    client.send(switchTo("Mail"));
  }
  ControlClient client = corvane.client();
  EXPECT_EQ(ask(client, R"({"command":"current"})").workspace->name, "Site");
}

/// A connection that is closed with bytes unread ends with an error at the other end.
TEST(Serving, goesOnAfterAClientThatLeavesItsAnswersUnread) {
  HeadlessCorvane corvane;
  {
    ControlClient subscriber = corvane.client();
    subscriber.ask(R"({"command":"subscribe"})");
    ControlClient client = corvane.client();
    EXPECT_TRUE(ask(client, switchTo("Mail")).ok);
    ASSERT_TRUE(subscriber.isReadable(patience));
    client.send("{\"command\":\"list\"}\n");
    ASSERT_TRUE(client.isReadable(patience));
  }
  EXPECT_TRUE(corvane.process().waitForOutput("A client no longer follows the workspaces."));
  ControlClient client = corvane.client();
  EXPECT_EQ(ask(client, R"({"command":"current"})").workspace->name, "Mail");
}

TEST(Serving, doesWhatAClientAskedBeforeItLeft) {
  HeadlessCorvane corvane;
  ControlClient subscriber = corvane.client();
  subscriber.ask(R"({"command":"subscribe"})");
  {
    ControlClient client = corvane.client();
    client.send(switchTo("Mail") + "\n" + switchTo("Store") + "\n" + switchTo("Notes") + "\n");
  }
  for (const char* const name : {"Mail", "Store", "Notes"}) {
    EXPECT_EQ(nextEvent(subscriber).workspace->name, name);
  }
}

TEST(Serving, answersWhatIsNoRequestAndGoesOn) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const std::string lines[] = {"",
                               "x",
                               "{",
                               "[]",
                               "{}",
                               R"({"command":"Switch"})",
                               R"({"command":"list","process":1.5})",
                               "\xff",
                               std::string(100'000, '['),
                               std::string("{\0}", 3)};
  for (const std::string& line : lines) {
    const ControlResponse response = ask(client, line);
    EXPECT_FALSE(response.ok);
    EXPECT_NE(response.error.value_or(""), "");
  }
  EXPECT_TRUE(ask(client, R"({"command":"list"})").ok);
  const std::string log = corvane.log();
  EXPECT_NE(log.find("A client sent what is no request: command: missing\n"), std::string::npos)
      << log;
}

TEST(Serving, answersInOrder) {
  HeadlessCorvane corvane({.arguments = {"--quiet"}});
  ControlClient client = corvane.client();
  const std::array<std::string, 4> names{"Site", "Store", "Mail", "Notes"};
  std::string requests;
  constexpr std::size_t count = 2000;
  for (std::size_t number = 0; number < count; ++number) {
    requests += number % 5 == 4 ? "x\n" : switchTo(names[number % 4]) + "\n";
  }
  ASSERT_TRUE(client.send(requests));
  client.finishSending();
  for (std::size_t number = 0; number < count; ++number) {
    const ControlResponse response = decoded<ControlResponse>(client.line());
    ASSERT_EQ(response.ok, number % 5 != 4);
    if (response.ok) {
      ASSERT_EQ(response.workspace->name, names[number % 4]);
    }
  }
  EXPECT_FALSE(client.line()) << "then the connection ends";
}

TEST(Serving, takesALineOfTenMegabytes) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const std::string message(10'000'000, 'x');
  EXPECT_EQ(client.ask(
                notify("/home/ada/Projects/site", R"("kind":"done","message":")" + message + "\"")),
            R"({"ok":true})");
  const auto answer = client.ask(R"({"command":"current"})");
  ASSERT_TRUE(answer);
  EXPECT_GT(answer->size(), message.size());
  EXPECT_LT(corvane.log().size(), 2000U) << "the log tells only the start of it";
}

TEST(Serving, refusesALineWithoutEnd) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const std::string piece(1 << 20, 'x');
  int pieces = 0;
  while (pieces < 20 && client.send(piece)) ++pieces;
  EXPECT_GE(pieces, 16);
  EXPECT_LT(pieces, 20) << "nobody reads it any more";
  EXPECT_EQ(client.line(), R"({"error":"The request is too long.","ok":false})");
  EXPECT_FALSE(client.line());
  ControlClient other = corvane.client();
  EXPECT_TRUE(ask(other, R"({"command":"list"})").ok);
}

/// A request for permission, as an agent's hook sends it.
std::string permission(const std::string& command) {
  return notify("/home/ada/Projects/site",
                R"("kind":"needs-input","permission":{"action":"run","subject":")" + command +
                    R"(","lines":[{"text":")" + command + R"(","kind":"plain"}],"complete":true})");
}

TEST(Serving, withdrawsTheCardOfAClientThatSendsALineWithoutEndBehindIt) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}, .keepInputOpen = true});
  ControlClient first = corvane.client();
  first.send(permission("first") + "\n");
  ASSERT_TRUE(corvane.process().waitForOutput("  first"));
  ControlClient second = corvane.client();
  second.send(permission("second") + "\n");
  ASSERT_TRUE(corvane.process().waitForOutput("(1 more waiting.)"));
  const std::string piece(1 << 20, 'x');
  for (int pieces = 0; pieces < 20 && first.send(piece); ++pieces) {
  }
  EXPECT_EQ(first.line(), R"({"error":"The request is too long.","ok":false})");
  ASSERT_TRUE(corvane.process().waitForOutput("Withdrawn by Claude: Run first"));
  ASSERT_TRUE(corvane.process().waitForOutput("  second\n"));
  corvane.process().write("d\n");
  EXPECT_EQ(second.line(), R"({"decision":"denied","ok":true})");
}

TEST(Serving, boundsTheRequestsOfAllClientsTogether) {
  HeadlessCorvane corvane;
  ControlClient patient = corvane.client();
  patient.send(R"({"command":"current",)");
  const std::string piece(15 << 20, 'x');
  std::vector<ControlClient> clients;
  std::size_t refused = 0;
  for (int number = 0; number < 20; ++number) {
    clients.push_back(corvane.client());
    clients.back().send(piece);
    ControlClient other = corvane.client();
    EXPECT_TRUE(ask(other, R"({"command":"list"})").ok);
  }
  for (ControlClient& client : clients) {
    if (!client.isReadable(std::chrono::milliseconds(0))) continue;
    ++refused;
    EXPECT_EQ(client.line(),
              R"({"error":"The request is too long, beside those of others.","ok":false})");
    EXPECT_FALSE(client.line());
  }
  EXPECT_EQ(refused, 16U) << "64 MiB hold four of them";
  EXPECT_TRUE(ask(patient, R"("process":1})").ok) << "small ones are not the ones that are refused";
  EXPECT_TRUE(corvane.process().waitForOutput(
      "Clients sent requests that are too long together: the longest is refused."));
}

TEST(Serving, refusesAClientThatThereIsNoMemoryFor) {
  if (!canBoundMemory) GTEST_SKIP() << "memory cannot be bounded here";
  HeadlessCorvane corvane({.beforeExec = [] {
    const rlimit bound{40 << 20, 40 << 20};
    ::setrlimit(RLIMIT_AS, &bound);
  }});
  const std::string piece(15 << 20, 'x');
  std::vector<ControlClient> clients;
  for (int number = 0; number < 4; ++number) {
    clients.push_back(corvane.client());
    clients.back().send(piece);
    ControlClient other = corvane.client();
    EXPECT_TRUE(ask(other, R"({"command":"list"})").ok);
  }
  EXPECT_TRUE(std::ranges::any_of(clients, [](const ControlClient& client) {
    return client.isReadable(std::chrono::milliseconds(0));
  }));
  for (ControlClient& client : clients) {
    if (!client.isReadable(std::chrono::milliseconds(0))) continue;
    const auto line = client.line();  // absent when not even an answer found room
    EXPECT_EQ(line.value_or("").find("enough memory") == std::string::npos, !line) << *line;
  }
  corvane.log();  // it ends as ever
  EXPECT_FALSE(corvane.folder().holds("control.sock"));
}

TEST(Serving, isNotHeldUpByAClientThatDoesNotRead) {
  HeadlessCorvane corvane({.arguments = {"--quiet"}});
  ControlClient silent = corvane.client();
  const std::string request = R"({"command":"list"})"
                              "\n";
  std::string flood;
  while (flood.size() < 1'000'000) flood += request;
  std::size_t sent = 0;
  // Until the server takes no more from it.
  while (sent < flood.size()) {
    const std::size_t count = silent.sendWithoutWaiting(std::string_view(flood).substr(sent));
    sent += count;
    if (count == 0 && silent.isReadable(std::chrono::seconds(0))) break;
    ControlClient other = corvane.client();
    ASSERT_TRUE(ask(other, R"({"command":"current"})").ok);
  }
  // Now it reads after all, and has lost nothing.
  const std::size_t complete = sent / request.size();
  ASSERT_GT(complete, 100U);
  for (std::size_t number = 0; number < complete; ++number) {
    ASSERT_TRUE(decoded<ControlResponse>(silent.line()).ok) << number;
  }
}

TEST(Serving, takesNoFurtherRequestOfAClientThatTakesNoAnswers) {
  HeadlessCorvane corvane;
  ControlClient other = corvane.client();
  const std::string message(1'000'000, 'x');
  other.ask(notify("/home/ada/Projects/site", R"("kind":"done","message":")" + message + "\""));
  ControlClient silent = corvane.client();
  constexpr std::size_t count = 20;
  std::string requests;
  for (std::size_t number = 0; number < count; ++number) requests += "{\"command\":\"current\"}\n";
  silent.send(requests);
  for (int number = 0; number < 5; ++number) EXPECT_FALSE(ask(other, switchTo("x")).ok);
  for (std::size_t number = 0; number < count; ++number) {
    EXPECT_TRUE(silent.line().value_or("").find(message) != std::string::npos) << number;
  }
  const std::string log = corvane.log();
  const std::string told = "Told the current workspace";
  const std::size_t first = log.find(told);
  ASSERT_NE(first, std::string::npos);
  EXPECT_GT(log.find(told, first + 1), log.rfind("Refused switch")) << log;
}

/// Has a program see all at once what `act` does: it is stopped meanwhile.
template <class Act>
void whileStopped(const ChildProcess& process, Act act) {
  process.signal(SIGSTOP);
  siginfo_t stopped{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process.pid()), &stopped, WSTOPPED | WNOWAIT), 0);
  act();
  process.signal(SIGCONT);
}

TEST(Serving, givesEverybodyATurn) {
  HeadlessCorvane corvane;
  ControlClient busy = corvane.client();
  EXPECT_TRUE(ask(busy, switchTo("Store")).ok);
  ControlClient other = corvane.client();
  EXPECT_TRUE(ask(other, switchTo("Site")).ok);
  constexpr std::size_t count = 100;
  whileStopped(corvane.process(), [&] {
    std::string requests;
    for (std::size_t number = 0; number < count; ++number) {
      requests += "{\"command\":\"current\"}\n";
    }
    busy.send(requests);
    other.send(switchTo("Mail") + "\n");
  });
  std::string last;
  for (std::size_t number = 0; number < count; ++number) {
    last = decoded<ControlResponse>(busy.line()).workspace->name;
  }
  EXPECT_EQ(last, "Mail") << "the other one waited for all that was asked before";
}

TEST(Serving, doesAllOfTheManyThingsThatAClientAskedBeforeItLeft) {
  HeadlessCorvane corvane;
  ControlClient subscriber = corvane.client();
  subscriber.ask(R"({"command":"subscribe"})");
  ControlClient client = corvane.client();
  EXPECT_TRUE(ask(client, R"({"command":"current"})").ok);
  constexpr int count = 100;
  whileStopped(corvane.process(), [&] {
    std::string requests;
    for (int number = 0; number < count; ++number) {
      requests += switchTo(number % 2 == 0 ? "Mail" : "Store") + "\n";
    }
    client.send(requests);
    client.close();
  });
  for (int number = 0; number < count; ++number) {
    ASSERT_EQ(nextEvent(subscriber).workspace->name, number % 2 == 0 ? "Mail" : "Store");
  }
}

TEST(Serving, tellsNothingMoreToASubscriberThatItRefuses) {
  HeadlessCorvane corvane;
  ControlClient subscriber = corvane.client();
  subscriber.ask(R"({"command":"subscribe"})");
  ControlClient other = corvane.client();
  const std::string longest(16 << 20, 'x');
  ASSERT_TRUE(subscriber.send(longest));
  for (int number = 0; number < 20; ++number) {  // until all of it has been read
    EXPECT_TRUE(ask(other, R"({"command":"current"})").ok);
  }
  whileStopped(corvane.process(), [&] {
    subscriber.send("x");
    other.send(switchTo("Mail") + "\n");
  });
  EXPECT_EQ(subscriber.line(), R"({"error":"The request is too long.","ok":false})");
  EXPECT_FALSE(subscriber.line());
}

TEST(Serving, dropsASubscriberThatDoesNotRead) {
  HeadlessCorvane corvane;
  ControlClient silent = corvane.client();
  ControlClient reading = corvane.client();
  silent.ask(R"({"command":"subscribe"})");
  reading.ask(R"({"command":"subscribe"})");
  ControlClient client = corvane.client();
  const std::string message(100'000, 'x');
  for (int number = 0; number < 60; ++number) {
    client.ask(notify("/home/ada/Projects/site", R"("kind":"done","message":")" + message + "\""));
    EXPECT_EQ(nextEvent(reading).workspace->attention->message, message);
  }
  EXPECT_TRUE(corvane.process().waitForOutput("does not read: it is disconnected."));
  std::size_t received = 0;
  while (silent.line()) ++received;
  EXPECT_LT(received, 60U);
}

TEST(Serving, serves200ClientsAtOnceAndLosesNothing) {
  HeadlessCorvane corvane({.arguments = {"--quiet"}});
  constexpr std::size_t count = 200;
  constexpr std::size_t rounds = 10;
  std::vector<ControlClient> subscribers;
  for (std::size_t number = 0; number < 20; ++number) {
    subscribers.push_back(corvane.client());
    ASSERT_TRUE(subscribers.back().ask(R"({"command":"subscribe"})"));
  }
  std::vector<ControlClient> clients;
  for (std::size_t number = 0; number < count; ++number) clients.push_back(corvane.client());
  // Each request comes in two halves, all first halves before the second ones.
  for (std::size_t round = 0; round < rounds; ++round) {
    const auto request = [&](std::size_t number) {
      return notify("/home/ada/Notes", R"("kind":"done","message":")" + std::to_string(number) +
                                           "." + std::to_string(round) + "\"") +
             "\n" + R"({"command":"list"})" + "\n";
    };
    for (std::size_t number = 0; number < count; ++number) {
      ASSERT_TRUE(clients[number].send(request(number).substr(0, 30)));
    }
    for (std::size_t number = 0; number < count; ++number) {
      ASSERT_TRUE(clients[number].send(request(number).substr(30)));
    }
    for (ControlClient& client : clients) {
      ASSERT_EQ(client.line(), R"({"ok":true})");
      ASSERT_EQ(decoded<ControlResponse>(client.line()).workspaces->size(), 4U);
    }
  }
  for (ControlClient& subscriber : subscribers) {
    std::set<std::string> messages;
    for (std::size_t number = 0; number < count * rounds; ++number) {
      messages.insert(nextEvent(subscriber).workspace->attention->message.value_or(""));
    }
    EXPECT_EQ(messages.size(), count * rounds);
  }
}

TEST(Serving, serves200CommandsAtOnce) {
  HeadlessCorvane corvane({.arguments = {"--quiet"}});
  constexpr std::size_t count = 200;
  ControlClient subscriber = corvane.client();
  subscriber.ask(R"({"command":"subscribe"})");
  std::vector<std::unique_ptr<ChildProcess>> commands;
  for (std::size_t number = 0; number < count; ++number) {
    commands.push_back(std::make_unique<ChildProcess>(
        CORVANECTL,
        ChildOptions{.arguments = {"notify", "--kind", "done", "--cwd", "/home/ada/Notes",
                                   "--message", std::to_string(number)},
                     .environment = {{"CORVANE_SOCKET", corvane.socketPath()}}}));
  }
  for (const auto& command : commands) {
    const Ended ended = command->wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output + ended.errors, "");
  }
  std::set<std::string> messages;
  for (std::size_t number = 0; number < count; ++number) {
    messages.insert(nextEvent(subscriber).workspace->attention->message.value_or(""));
  }
  EXPECT_EQ(messages.size(), count);
}

TEST(Serving, survivesClientsThatComeAndGo) {
  HeadlessCorvane corvane({.arguments = {"--quiet"}});
  for (int number = 0; number < 500; ++number) {
    ControlClient client = corvane.client();
    if (number % 4 == 1) client.send("{\"comm");
    if (number % 4 == 2)
      client.send(R"({"command":"subscribe"})"
                  "\n");
    if (number % 4 == 3)
      client.send(R"({"command":"list"})"
                  "\n"
                  R"({"command":"list"})"
                  "\n");
  }
  ControlClient client = corvane.client();
  EXPECT_TRUE(ask(client, R"({"command":"list"})").ok);
}

TEST(Serving, turnsAwayOtherUsers) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  HeadlessCorvane corvane;
  corvane.client();
  // A door that somebody left open: the check must hold all the same.
  ASSERT_EQ(::chmod(corvane.socketPath().c_str(), 0666), 0);
  ASSERT_EQ(::chmod(corvane.folder().path().c_str(), 0711), 0);
  const std::string path = corvane.socketPath();
  const pid_t stranger = ::fork();
  if (stranger == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(1);
    const auto connection = CorvaneControl::UnixSocket::connect(path, 60);
    if (!connection) ::_exit(2);
    const std::string_view request = "{\"command\":\"list\"}\n";
    // The connection may be gone before the request is written.
    (void)CorvaneControl::UnixSocket::write(request, *connection);
    char byte = 0;
    ::_exit(::read(*connection, &byte, 1) > 0 ? 3 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(stranger, &status, 0), stranger);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: no other user, 2: not connected, 3: answered";
  EXPECT_TRUE(corvane.process().waitForOutput("Turned away a process of another user."));
  ControlClient own = corvane.client();
  EXPECT_TRUE(ask(own, R"({"command":"list"})").ok);
}

TEST(Serving, endsWhenItsStandardOutputIsGone) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  corvane.process().closeOutput();
  client.send(R"({"command":"list"})"
              "\n");
  const Ended ended = corvane.process().wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "");
  EXPECT_FALSE(corvane.folder().holds("control.sock"));
}

TEST(Serving, goesOnWhenNobodyReadsItsLog) {
  HeadlessCorvane corvane;
  ControlClient client = corvane.client();
  const std::string name(3000, 'x');  // refused with the start of it
  for (int number = 0; number < 8'000; ++number) {
    ASSERT_FALSE(ask(client, switchTo(name)).ok);
  }
  const std::string log = corvane.log();
  EXPECT_TRUE(log.ends_with("Stopped.\n"));
  EXPECT_NE(log.find(" lines of the log were lost: nobody took them.)\n"), std::string::npos);
}

TEST(Serving, goesOnWithoutALogThatCannotBeWritten) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (full < 0) GTEST_SKIP() << "there is no /dev/full";
  HeadlessCorvane corvane({.given = {{1, full}}});
  ::close(full);
  ControlClient client = corvane.client();
  EXPECT_TRUE(ask(client, R"({"command":"list"})").ok);
  EXPECT_TRUE(ask(client, R"({"command":"list"})").ok);
  corvane.process().signal(SIGTERM);
  const Ended ended = corvane.process().wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors,
            "corvane-headless: standard output: No space left on device; there is no log from now "
            "on.\n");
}

TEST(Serving, saysThatItsLogIsBroken) {
  const int broken = ::open("/proc/self/mem", O_WRONLY | O_CLOEXEC);  // nothing is at its beginning
  if (broken < 0) GTEST_SKIP() << "there is no /proc/self/mem";
  HeadlessCorvane corvane({.given = {{1, broken}}});
  ::close(broken);
  const Ended ended = corvane.process().wait();
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: standard output: " + CorvaneTests::brokenText() + "\n");
  EXPECT_FALSE(corvane.folder().holds("control.sock"));
}

TEST(Serving, saysThatItCannotWait) {
  // Looking for leaks opens a folder.
  HeadlessCorvane corvane({.environment = {{"ASAN_OPTIONS", "detect_leaks=0"}}});
  ControlClient client = corvane.client();
  EXPECT_TRUE(ask(client, R"({"command":"list"})").ok);
  if (!boundPolling(corvane.process().pid(), 3)) GTEST_SKIP() << "waiting cannot be bounded here";
  client.send(R"({"command":"list"})"
              "\n");
  const Ended ended = corvane.process().wait();
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "corvane-headless: poll: Invalid argument\n");
  EXPECT_FALSE(corvane.folder().holds("control.sock"));
}

class ServingInATerminal : public InATerminal {};

TEST_F(ServingInATerminal, goesOnWhenTheTerminalTakesNoOutput) {
  TemporaryFolder folder;
  PseudoTerminal terminal;  // nobody reads what it shows
  const ChildOptions options = terminal.lentTo(HeadlessCorvane::served({}, folder.path("s")));
  termios modes{};
  ASSERT_EQ(::tcgetattr(options.given.at(1), &modes), 0);
  modes.c_oflag |= OPOST | ONLCR;  // as shells have it
  ASSERT_EQ(::tcsetattr(options.given.at(1), TCSANOW, &modes), 0);
  ChildProcess corvane(CORVANE_HEADLESS, options);
  ControlClient client(folder.path("s"));
  for (int number = 0; number < 2000; ++number) {
    ASSERT_TRUE(ask(client, R"({"command":"current"})").ok) << number;
  }
  ASSERT_TRUE(terminal.waitFor("Told the current workspace: Site.\r\n"));
  corvane.signal(SIGTERM);
  terminal.waitFor("Stopped.\r\n");
  EXPECT_EQ(corvane.wait().status, 0);
}

TEST_F(ServingInATerminal, leavesTheModeOfTheShellsTerminalAlone) {
  TemporaryFolder folder;
  PseudoTerminal terminal;
  ChildOptions options = terminal.lentTo(HeadlessCorvane::served({}, folder.path("s")));
  ChildProcess corvane(CORVANE_HEADLESS, options);
  ASSERT_TRUE(terminal.waitFor("Serving"));
  EXPECT_EQ(::fcntl(options.given.at(1), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(ServingInATerminal, takesAnswersWhereThereAreNoJobs) {
  TemporaryFolder folder;
  PseudoTerminal terminal;
  ChildOptions options = terminal.lentTo(HeadlessCorvane::served({}, folder.path("s")));
  options.beforeExec = [] { ::setsid(); };  // of a session without a terminal of its own
  ChildProcess corvane(CORVANE_HEADLESS, options);
  ControlClient agent(folder.path("s"));
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(terminal.waitFor("[d] deny"));
  // What is typed as soon as the card is there does not count.
  for (int tries = 0; tries < 60 && !agent.isReadable(std::chrono::seconds(1)); ++tries) {
    terminal.type("d\n");
  }
  EXPECT_EQ(agent.line(), R"({"decision":"denied","ok":true})");
}

TEST_F(ServingInATerminal, leavesCardsToTheAgentsWhenItIsClosed) {
  TemporaryFolder folder;
  PseudoTerminal terminal;
  ChildOptions options = terminal.lentTo(HeadlessCorvane::served({}, folder.path("s")));
  options.beforeExec = [] {
    ::setsid();
    ::ioctl(0, TIOCSCTTY, 0);
    std::signal(SIGHUP, SIG_IGN);
  };
  ChildProcess corvane(CORVANE_HEADLESS, options);
  ControlClient agent(folder.path("s"));
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(terminal.waitFor("[d] deny"));
  terminal.hangUp();
  EXPECT_EQ(agent.line().value_or(R"({"ok":true})"), R"({"ok":true})");
}

}  // namespace
}  // namespace CorvaneTests
