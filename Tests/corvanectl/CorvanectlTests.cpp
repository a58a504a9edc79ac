// Every command but `notify`, run as users run it.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/ControlCommandLine.h"
#include "Corvanectl.h"
#include "Support/UnknownUser.h"

namespace CorvaneTests {
namespace {

constexpr auto named = [](const auto& row) { return std::string(row.param.name); };

const std::string usageText(CorvaneControl::ControlCommandLine::usage);
const std::string absent = "Corvane isn't running, or is too old for corvanectl.\n";
const std::string silent = "Corvane didn't answer.\n";

std::string workspace(std::string_view name, bool active, int windows,
                      std::string_view shortcut = "") {
  return R"({"active":)" + std::string(active ? "true" : "false") +
         R"(,"id":"00000000-0000-4000-8000-000000000001","name":")" + std::string(name) +
         R"(","section":"Work",)" +
         (shortcut.empty() ? "" : R"("shortcut":")" + std::string(shortcut) + R"(",)") +
         R"("windows":)" + std::to_string(windows) + "}";
}

TEST(Corvanectl, withoutWordsShowsTheUsage) {
  const Ended ended = run(corvanectl());
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.errors, usageText + "\n");
  EXPECT_EQ(ended.output, "");
}

TEST(Corvanectl, aWrongWordShowsAMessageAndTheUsage) {
  const Ended ended = run(corvanectl(), {.arguments = {"frob"}});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.errors, "Unknown command: frob\n\n" + usageText + "\n");
  EXPECT_EQ(ended.output, "");
}

TEST(Corvanectl, aWordThatIsNotUTF8IsRepairedBeforeItIsShown) {
  const Ended ended = run(corvanectl(), {.arguments = {"fr\xFFob"}});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.errors, "Unknown command: fr\xEF\xBF\xBDob\n\n" + usageText + "\n");
}

TEST(Corvanectl, helpGoesToStandardOutput) {
  for (const char* const word : {"help", "--help", "-h"}) {
    const Ended ended = run(corvanectl(), {.arguments = {word}});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, usageText + "\n");
    EXPECT_EQ(ended.errors, "");
  }
}

TEST(Corvanectl, outsideABundleTheVersionIsADevelopmentBuild) {
  for (const char* const word : {"version", "--version", "-v"}) {
    const Ended ended = run(corvanectl(), {.arguments = {word}});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, "development build\n");
    EXPECT_EQ(ended.errors, "");
  }
}

struct AnswerCase {
  const char* name;
  std::vector<std::string> words;
  std::string answer;  ///< What the application sends before it closes the connection.
  std::string request;
  int status;
  std::string output;
  std::string errors;
};

const std::string mailAndReview = R"({"ok":true,"workspaces":[)" +
                                  workspace("Mail", true, 2, "⌥1") + "," +
                                  workspace("Code Review", false, 1) + "]}";
const std::string list = R"({"command":"list"})";

const AnswerCase answerCases[] = {
    {"listPrintsATable",
     {"list"},
     mailAndReview + "\n",
     list,
     0,
     "* Mail         2 windows  ⌥1\n  Code Review  1 window\n",
     ""},
    {"listPrintsJSON", {"list", "--json"}, mailAndReview + "\n", list, 0, mailAndReview + "\n", ""},
    {"listOfNone", {"list"}, "{\"ok\":true}\n", list, 0, "", ""},
    {"listOfAnEmptyList", {"list"}, "{\"ok\":true,\"workspaces\":[]}\n", list, 0, "", ""},
    {"listPadsByCharacters",
     {"list"},
     R"({"ok":true,"workspaces":[)" + workspace("Café", false, 0) + "," +
         workspace("Cafe\\u0301s", false, 3) + "," +
         workspace("👩‍👩‍👧", true, -1, "x") + "]}\n",
     list,
     0,
     "  Café   0 windows\n  Cafe\xCC\x81s  3 windows\n* 👩‍👩‍👧      -1 windows  x\n",
     ""},
    {"listKeepsAnEmptyShortcut",
     {"list"},
     R"({"ok":true,"workspaces":[{"active":false,"id":"00000000-0000-4000-8000-000000000001",)"
     R"("name":"","section":"","shortcut":"","windows":1}]})"
     "\n",
     list,
     0,
     "    1 window  \n",
     ""},
    {"currentPrintsTheName",
     {"current"},
     R"({"ok":true,"workspace":)" + workspace("Mail", true, 2) + "}\n",
     R"({"command":"current"})",
     0,
     "Mail\n",
     ""},
    {"currentOfNone", {"current"}, "{\"ok\":true}\n", R"({"command":"current"})", 0, "", ""},
    {"switchPrintsNothing",
     {"switch", "My", "Project"},
     R"({"ok":true,"workspace":)" + workspace("My Project", true, 2) + "}\n",
     R"({"command":"switch","workspace":"My Project"})",
     0,
     "",
     ""},
    {"switchPrintsJSON",
     {"switch", "-", "--json"},
     "{\"ok\":true}\n",
     R"({"command":"switch","workspace":"-"})",
     0,
     "{\"ok\":true}\n",
     ""},
    {"launch",
     {"launch", "a/b"},
     "{\"ok\":true}\n",
     R"({"command":"launch","workspace":"a/b"})",
     0,
     "",
     ""},
    {"stop",
     {"stop", "caf\xFF"},
     "{\"ok\":true}\n",
     "{\"command\":\"stop\",\"workspace\":\"caf\xEF\xBF\xBD\"}",
     0,
     "",
     ""},
    {"refusedWithoutAReason",
     {"switch", "x"},
     "{\"ok\":false}\n",
     R"({"command":"switch","workspace":"x"})",
     1,
     "",
     "Corvane refused.\n"},
    {"refusedWithAReason",
     {"switch", "x"},
     "{\"ok\":false,\"error\":\"No such workspace.\"}\n",
     R"({"command":"switch","workspace":"x"})",
     1,
     "",
     "No such workspace.\n"},
    {"refusedWithAnEmptyReason",
     {"list", "--json"},
     "{\"ok\":false,\"error\":\"\"}\n",
     list,
     1,
     "",
     "\n"},
    {"aWarning",
     {"list", "--json"},
     "{\"ok\":true,\"error\":\"Old.\"}\n",
     list,
     0,
     "{\"error\":\"Old.\",\"ok\":true}\n",
     "Old.\n"},
    {"anEmptyWarning",
     {"switch", "x"},
     "{\"ok\":true,\"error\":\"\"}\n",
     R"({"command":"switch","workspace":"x"})",
     0,
     "",
     "\n"},
    {"theAnswerMayEndInCRLF", {"list"}, "{\"ok\":true}\r\n", list, 0, "", ""},
    {"onlyTheFirstLineCounts", {"list"}, "{\"ok\":true}\n{\"ok\":false}\n", list, 0, "", ""},
    {"unknownKeysAreIgnored",
     {"current"},
     "{\"ok\":true,\"extra\":[1]}\n",
     R"({"command":"current"})",
     0,
     "",
     ""},
    {"garbage", {"list"}, "garbage\n", list, 1, "", silent},
    {"anEmptyLine", {"list"}, "\n{\"ok\":true}\n", list, 1, "", silent},
    {"notUTF8", {"list"}, "{\"ok\":true,\"error\":\"\xFF\"}\n", list, 1, "", silent},
    {"noLineFeed", {"list"}, "{\"ok\":true}", list, 1, "", silent},
    {"nothing", {"list"}, "", list, 1, "", silent},
    {"anAnswerOfTheWrongShape", {"list"}, "{\"ok\":1}\n", list, 1, "", silent},
    {"nestedTooDeep", {"list"}, std::string(100'000, '[') + "\n", list, 1, "", silent},
};

class Answer : public testing::TestWithParam<AnswerCase> {};
TEST_P(Answer, decidesOutputAndStatus) {
  std::string request;
  const Ended ended = exchange(GetParam().words, sending(GetParam().answer), &request);
  EXPECT_EQ(request, GetParam().request);
  EXPECT_EQ(ended.status, GetParam().status);
  EXPECT_EQ(ended.output, GetParam().output);
  EXPECT_EQ(ended.errors, GetParam().errors);
}
INSTANTIATE_TEST_SUITE_P(Corvanectl, Answer, testing::ValuesIn(answerCases), named);

TEST(Corvanectl, anAnswerMayComeInPieces) {
  const Ended ended = exchange({"list", "--json"}, [](Conversation& talk) {
    for (const char byte : mailAndReview + "\n") {
      talk.send({&byte, 1});
      if (byte == ',') std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, mailAndReview + "\n");
}

TEST(Corvanectl, anAnswerMayComeLate) {
  const Ended ended = exchange({"list"}, [](Conversation& talk) {
    std::this_thread::sleep_for(std::chrono::seconds(3));
    talk.send("{\"ok\":true}\n");
  });
  EXPECT_EQ(ended.status, 0);
}

TEST(Corvanectl, anAnswerMayHaveTenMegabytes) {
  const std::string name(10'000'000, 'x');
  const Ended ended = exchange(
      {"current"}, sending(R"({"ok":true,"workspace":)" + workspace(name, true, 1) + "}\n"));
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output.size(), name.size() + 1);
}

TEST(Corvanectl, anApplicationThatNeverAnswersIsGivenUpAfterTenSeconds) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), [](Conversation& talk) { talk.waitForEnd(); });
  ChildProcess child(corvanectl(), against(peer.path(), {"list"}));
  const auto start = std::chrono::steady_clock::now();
  const Ended ended = child.wait();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(9'900));
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, silent);
}

struct TimeOutCase {
  const char* name;
  std::vector<std::string> words;
  long seconds;
};
const TimeOutCase timeOutCases[] = {
    {"list", {"list"}, 10},           {"current", {"current"}, 10}, {"switch", {"switch", "x"}, 10},
    {"launch", {"launch", "x"}, 240}, {"stop", {"stop", "x"}, 60},  {"subscribe", {"subscribe"}, 0},
};
class ReadTimeOut : public testing::TestWithParam<TimeOutCase> {};
TEST_P(ReadTimeOut, isChosenByTheCommand) {
  Ended ended;
  const auto seconds = readTimeoutOf(
      [](const std::string& socket) { return against(socket, GetParam().words); }, ended);
  EXPECT_NE(ended.status, 0);
  if (!seconds) GTEST_SKIP() << "this system does not show another process's sockets";
  EXPECT_EQ(seconds, GetParam().seconds);
}
INSTANTIATE_TEST_SUITE_P(Corvanectl, ReadTimeOut, testing::ValuesIn(timeOutCases), named);

TEST(Corvanectl, sinceAnApplicationThatClosesAtOnceTheCommandFails) {
  const TemporaryFolder folder;
  ScriptedPeer peer(
      folder.path("s"), [](Conversation& talk) { talk.close(); }, false);
  for (int round = 0; round < 20; ++round) {
    // Whether the request is written before or after the closing is a race; both are failures.
    const Ended ended = run(corvanectl(), against(peer.path(), {"list"}));
    if (ended.status == 3) {
      EXPECT_EQ(ended.errors, "Corvane closed the connection.\n");
    } else {
      EXPECT_EQ(ended.status, 1);
      EXPECT_EQ(ended.errors, silent);
    }
    EXPECT_EQ(ended.output, "");
  }
}

TEST(Corvanectl, aRequestThatCannotBeWrittenIsSaid) {
  const TemporaryFolder folder;
  // The longest word a process may get does not fit into a socket that nobody reads.
  ScriptedPeer peer(
      folder.path("s"), [](Conversation& talk) { talk.close(); }, false);
  std::vector<std::string> words = {"switch"};
  for (int count = 0; count < 12; ++count) words.emplace_back(100'000, 'x');
  const Ended ended = run(corvanectl(), against(peer.path(), words));
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.errors, "Corvane closed the connection.\n");
}

TEST(Corvanectl, withoutAnApplicationEveryCommandSaysSo) {
  const TemporaryFolder folder;
  for (const std::vector<std::string>& words : {std::vector<std::string>{"list"},
                                                {"current"},
                                                {"switch", "x"},
                                                {"launch", "x"},
                                                {"stop", "x"},
                                                {"subscribe"},
                                                {"list", "--json"}}) {
    const Ended ended = run(corvanectl(), against(folder.path("none"), words));
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.errors, absent);
    EXPECT_EQ(ended.output, "");
  }
}

TEST(Corvanectl, aSocketPathHasAtMost103Bytes) {
  const TemporaryFolder folder;
  const std::string start = folder.path("");
  const std::string fits = start + std::string(103 - start.size(), 'a');
  ScriptedPeer peer(fits, sending("{\"ok\":true}\n"));
  EXPECT_EQ(run(corvanectl(), against(fits, {"list"})).status, 0);
  const Ended ended = run(corvanectl(), against(fits + "a", {"list"}));
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.errors, absent);
}

TEST(Corvanectl, aRelativeSocketPathStartsAtTheCurrentFolder) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  ChildOptions options = against("s", {"list"});
  options.folder = folder.path();
  EXPECT_EQ(run(corvanectl(), options).status, 0);
}

/// A home folder with an application listening under one name.
struct Home {
  explicit Home(const std::string& application) {
    std::filesystem::create_directories(support + "/" + application);
    peer.emplace(support + "/" + application + "/control.sock",
                 sending("{\"ok\":false,\"error\":\"" + application + "\"}\n"));
  }
  ChildOptions listing() const {
    return {.arguments = {"list"},
            .environment = {{"HOME", folder.path()}, {"XDG_DATA_HOME", ""}},
            .withoutEnvironment = {"CORVANE_SOCKET"}};
  }
  TemporaryFolder folder{};
  std::string support = folder.path("Library/Application Support");
  std::optional<ScriptedPeer> peer{};
};

TEST(Corvanectl, outsideABundleBothApplicationsAreTried) {
  for (const char* const application : {"Corvane", "Corvane Dev"}) {
    const Home home(application);
    EXPECT_EQ(run(corvanectl(), home.listing()).errors, std::string(application) + "\n");
    ChildOptions empty = home.listing();
    empty.environment["CORVANE_SOCKET"] = "";  // counts as not set
    empty.withoutEnvironment.clear();
    EXPECT_EQ(run(corvanectl(), empty).errors, std::string(application) + "\n");
    ChildOptions other = home.listing();
    other.environment["CORVANE_SOCKET"] = home.folder.path("other");  // then it is the only one
    other.withoutEnvironment.clear();
    EXPECT_EQ(run(corvanectl(), other).errors, absent);
  }
}

TEST(Corvanectl, withoutALibraryFolderTheDataFolderOfTheSystemIsUsed) {
  if (hasLibraryFolder) GTEST_SKIP() << "this system has no other folder";
  const TemporaryFolder home;
  for (const char* const data : {".local/share", "data"}) {
    std::filesystem::create_directories(home.path(data) + "/Corvane");
    ScriptedPeer peer(home.path(data) + "/Corvane/control.sock", sending("{\"ok\":true}\n"));
    const bool isDefault = std::string_view(data) == ".local/share";
    const ChildOptions options = {
        .arguments = {"list"},
        .environment = {{"HOME", home.path()},
                        {"XDG_DATA_HOME", isDefault ? "relative" : home.path(data)}},
        .withoutEnvironment = {"CORVANE_SOCKET"}};
    EXPECT_EQ(run(corvanectl(), options).status, 0) << data;
  }
}

TEST(Corvanectl, aUserWithoutAHomeFolderHasNoApplication) {
  if (!canBeUnknownUser()) GTEST_SKIP() << "only root can be another user";
  const Ended ended = runAsUnknownUser(corvanectl(), {"list"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.errors, absent);
}

/// An application bundle with a copy of the executable in it.
struct Bundle {
  explicit Bundle(const std::string& plist, const std::string& place = "MacOS") {
    executable = folder.path("X.app/Contents/" + place + "/corvanectl");
    std::filesystem::create_directories(std::filesystem::path(executable).parent_path());
    std::filesystem::copy_file(corvanectl(), executable);
    if (!plist.empty()) folder.write("X.app/Contents/Info.plist", plist);
  }
  TemporaryFolder folder{};
  std::string executable{};
};

std::string xmlPlist(const std::string& members) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n<dict>\n" +
         members + "</dict>\n</plist>\n";
}
const std::string versionMember =
    "<key>CFBundleShortVersionString</key>\n<string>1.2 &amp; 3</string>\n";
std::string identifierMember(const std::string& identifier) {
  return "<key>CFBundleIdentifier</key><string>" + identifier + "</string>";
}

/// {"CFBundleShortVersionString": "2.5", "CFBundleIdentifier": "com.example.corvane.dev",
///  "Nested": {"a": [1, 2.5, true]}} in the binary form.
std::string binaryPlist() {
  constexpr std::string_view hexadecimal =
      "62706c6973743030d30102030405065f1012434642756e646c654964656e7469666965725f101a434642756e646c"
      "65"
      "53686f727456657273696f6e537472696e67564e65737465645f1017636f6d2e6578616d706c652e636f7276616e"
      "65"
      "2e64657653322e35d107085161a3090a0b100123400400000000000009080f2441486266696b6f717a0000000000"
      "00"
      "0101000000000000000c0000000000000000000000000000007b";
  std::string bytes;
  for (std::size_t at = 0; at < hexadecimal.size(); at += 2) {
    bytes.push_back(
        static_cast<char>(std::stoi(std::string(hexadecimal.substr(at, 2)), nullptr, 16)));
  }
  return bytes;
}

struct VersionCase {
  const char* name;
  std::string plist;
  std::string version;
};
const VersionCase versionCases[] = {
    {"xml", xmlPlist(versionMember), "1.2 & 3"},
    {"binary", binaryPlist(), "2.5"},
    {"missingKey", xmlPlist(identifierMember("com.example")), "development build"},
    {"wrongType", xmlPlist("<key>CFBundleShortVersionString</key><integer>1</integer>"),
     "development build"},
    {"missingFile", "", "development build"},
    {"garbage", "garbage", "development build"},
    {"noDictionary", "<plist><array/></plist>", "development build"},
    {"cut", binaryPlist().substr(0, 100), "development build"},
};
class BundleVersion : public testing::TestWithParam<VersionCase> {};
TEST_P(BundleVersion, isWhatTheBundleSays) {
  for (const char* const place : {"MacOS", "Resources"}) {
    const Bundle bundle(GetParam().plist, place);
    const Ended ended = run(bundle.executable, {.arguments = {"version"}});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, GetParam().version + "\n");
    EXPECT_EQ(ended.errors, "");
    const std::string link = bundle.folder.path("link");
    std::filesystem::create_symlink(bundle.executable, link);
    EXPECT_EQ(run(link, {.arguments = {"version"}}).output, GetParam().version + "\n");
  }
}
INSTANTIATE_TEST_SUITE_P(Corvanectl, BundleVersion, testing::ValuesIn(versionCases), named);

TEST(Corvanectl, aBundleThatCannotBeReadSaysNothing) {
  const Bundle bundle("");
  const std::string plist = bundle.folder.path("X.app/Contents/Info.plist");
  std::filesystem::create_symlink("Info.plist", plist);  // a link to itself
  EXPECT_EQ(run(bundle.executable, {.arguments = {"version"}}).output, "development build\n");
  std::filesystem::remove(plist);
  std::filesystem::create_directory(plist);
  EXPECT_EQ(run(bundle.executable, {.arguments = {"version"}}).output, "development build\n");
}

TEST(Corvanectl, aFolderOfAnotherNameIsNoBundle) {
  const TemporaryFolder folder;
  std::filesystem::create_directories(folder.path("X.app/contents/MacOS"));
  folder.write("X.app/contents/Info.plist", xmlPlist(versionMember));
  const std::string executable = folder.path("X.app/contents/MacOS/corvanectl");
  std::filesystem::copy_file(corvanectl(), executable);
  EXPECT_EQ(run(executable, {.arguments = {"version"}}).output, "development build\n");
}

struct BundleCase {
  const char* name;
  std::string plist;
  bool talksToCorvane;
  bool talksToDev;
};
const BundleCase bundleCases[] = {
    {"release", xmlPlist(identifierMember("com.example.corvane")), true, false},
    {"dev", xmlPlist(identifierMember("com.example.corvane.dev")), false, true},
    {"devInTheMiddle", xmlPlist(identifierMember("com.dev.corvane")), true, false},
    {"devWithoutAPoint", xmlPlist(identifierMember("corvanedev")), true, false},
    {"binaryDev", binaryPlist(), false, true},
    {"noIdentifier", xmlPlist(versionMember), true, true},
    {"noList", "", true, true},
};
class BundleIdentifier : public testing::TestWithParam<BundleCase> {};
TEST_P(BundleIdentifier, choosesTheApplication) {
  const Bundle bundle(GetParam().plist);
  const Home corvane("Corvane");
  EXPECT_EQ(run(bundle.executable, corvane.listing()).errors,
            GetParam().talksToCorvane ? "Corvane\n" : absent);
  const Home dev("Corvane Dev");
  EXPECT_EQ(run(bundle.executable, dev.listing()).errors,
            GetParam().talksToDev ? "Corvane Dev\n" : absent);
}
INSTANTIATE_TEST_SUITE_P(Corvanectl, BundleIdentifier, testing::ValuesIn(bundleCases), named);

TEST(Subscribe, copiesEveryLineUntilTheApplicationQuits) {
  std::string request;
  for (const char* const flag : {"--json", ""}) {
    std::vector<std::string> words = {"subscribe"};
    if (*flag) words.emplace_back(flag);
    const Ended ended = exchange(
        words, sending("{\"event\":\"workspace\"}\nnot JSON\n\n\xFF\r\nunfinished"), &request);
    EXPECT_EQ(request, R"({"command":"subscribe"})");
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.output, "{\"event\":\"workspace\"}\nnot JSON\n\n\xFF\r\n");
    EXPECT_EQ(ended.errors, "Corvane quit.\n");
  }
}

TEST(Subscribe, passesEachLineOnTheMomentItHasArrivedWhole) {
  const TemporaryFolder folder;
  std::promise<void> seenFirst;
  std::promise<void> seenSecond;
  ScriptedPeer peer(folder.path("s"), [&](Conversation& talk) {
    talk.send("first\nsec");
    seenFirst.get_future().wait();
    talk.send("ond\n");
    seenSecond.get_future().wait();
  });
  ChildProcess child(corvanectl(), against(peer.path(), {"subscribe"}));
  ASSERT_TRUE(child.waitForOutput("first\n"));
  EXPECT_EQ(child.output(), "first\n");
  seenFirst.set_value();
  ASSERT_TRUE(child.waitForOutput("second\n"));
  seenSecond.set_value();
  EXPECT_EQ(child.wait().output, "first\nsecond\n");
}

TEST(Subscribe, passesTenMegabytesInOneLineAndAHundredThousandLines) {
  std::string bytes = std::string(10'000'000, 'x') + "\n";
  for (int count = 0; count < 100'000; ++count) bytes += "line " + std::to_string(count) + "\n";
  const Ended ended = exchange({"subscribe"}, sending(bytes));
  EXPECT_EQ(ended.status, 3);
  EXPECT_TRUE(ended.output == bytes);
}

TEST(Subscribe, endsWhenNobodyReadsItsOutputAnyMore) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), [](Conversation& talk) {
    talk.send("first\n");
    talk.waitForEnd();  // and no line ever comes
  });
  ChildProcess child(corvanectl(), against(peer.path(), {"subscribe"}));
  ASSERT_TRUE(child.waitForOutput("first\n"));
  child.closeOutput();
  const Ended ended = child.wait();
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.errors, "");
}

TEST(Subscribe, diesOfItsClosedOutputLikeAnyFilter) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), [](Conversation& talk) {
    while (talk.send("a line\n")) {
    }
  });
  ChildOptions options = {.arguments = {"-c", "\"$0\" subscribe | head -1", corvanectl()},
                          .environment = {{"CORVANE_SOCKET", peer.path()}}};
  const Ended ended = run("/bin/sh", options);
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, "a line\n");
}

TEST(Subscribe, writesToAPipeThatSomebodyElseMadeNonBlocking) {
  const TemporaryFolder folder;
  std::string bytes;
  for (int count = 0; count < 50'000; ++count) bytes += "line " + std::to_string(count) + "\n";
  ScriptedPeer peer(folder.path("s"), sending(bytes));
  ChildOptions options = against(peer.path(), {"subscribe"});
  options.beforeExec = [] { ::fcntl(1, F_SETFL, ::fcntl(1, F_GETFL) | O_NONBLOCK); };
  const Ended ended = run(corvanectl(), options);
  EXPECT_TRUE(ended.output == bytes);
}

TEST(Subscribe, waitsForAPipeThatIsFullAndThatSomebodyElseMadeNonBlocking) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("a line\n"));
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  ::fcntl(pipe[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(pipe[1], F_SETFD, FD_CLOEXEC);
  ::fcntl(pipe[1], F_SETFL, O_NONBLOCK);
  std::string expected;
  while (::write(pipe[1], "x", 1) == 1) expected += 'x';
  ChildOptions options = against(peer.path(), {"subscribe"});
  options.given = {{1, pipe[1]}};
  ChildProcess child(corvanectl(), options);
  ::close(pipe[1]);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // until it waits
  std::string output;
  std::array<char, 4096> chunk{};
  for (ssize_t count = 0; (count = ::read(pipe[0], chunk.data(), chunk.size())) > 0;) {
    output.append(chunk.data(), static_cast<std::size_t>(count));
  }
  ::close(pipe[0]);
  EXPECT_TRUE(output == expected + "a line\n");
  EXPECT_EQ(child.wait().errors, "Corvane quit.\n");
}

TEST(Corvanectl, outputThatCannotBeWrittenIsNoSuccess) {
  if (!fullDevice) GTEST_SKIP() << "this system has no device that is full";
  const int full = ::open(fullDevice, O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending(mailAndReview + "\n"));
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"list"}, {"list", "--json"}, {"help"}, {"version"}}) {
    ChildOptions options = against(peer.path(), words);
    options.given = {{1, full}};
    EXPECT_EQ(run(corvanectl(), options).status, 1);
  }
  ScriptedPeer refusing(folder.path("r"), sending("{\"ok\":false}\n"));
  ChildOptions options = against(refusing.path(), {"list"});
  options.given = {{1, full}, {2, full}};
  EXPECT_EQ(run(corvanectl(), options).status, 1);
  ScriptedPeer lines(folder.path("l"), sending("line\n"));
  ChildOptions following = against(lines.path(), {"subscribe"});
  following.given = {{1, full}};
  EXPECT_EQ(run(corvanectl(), following).status, 3);
  ::close(full);
}

/// What a command says whose output goes to a device that is full.
Ended intoAFullDevice(const std::string& socket, std::vector<std::string> words) {
  const int full = ::open(fullDevice, O_WRONLY | O_CLOEXEC);
  ChildOptions options = against(socket, std::move(words));
  options.given = {{1, full}};
  const Ended ended = run(corvanectl(), options);
  ::close(full);
  return ended;
}

TEST(Corvanectl, saysThatItsOutputCannotBeWritten) {
  if (!fullDevice) GTEST_SKIP() << "this system has no device that is full";
  const std::string message = "The output can't be written: No space left on device\n";
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending(mailAndReview + "\n"));
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"list"}, {"list", "--json"}, {"help"}, {"version"}}) {
    const Ended ended = intoAFullDevice(peer.path(), words);
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, message);
  }
  ScriptedPeer lines(folder.path("l"), sending("line\n"));
  const Ended ended = intoAFullDevice(lines.path(), {"subscribe"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.errors, message);
}

TEST(Corvanectl, saysThatItsOutputMayNotGrow) {
  const std::string message = "The output can't be written: File too large\n";
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending(mailAndReview + "\n"));
  const int file = ::open(folder.path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  for (const auto& [words, status] :
       {std::pair{std::vector<std::string>{"list"}, 1}, {{"help"}, 1}, {{"subscribe"}, 3}}) {
    ChildOptions options = against(peer.path(), words);
    options.given = {{1, file}};
    options.beforeExec = refuseFileGrowth;
    const Ended ended = run(corvanectl(), options);
    EXPECT_EQ(ended.status, status);
    EXPECT_EQ(ended.errors, message);
  }
  ::close(file);
}

TEST(Corvanectl, saysThatNobodyReadsItsOutput) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending(mailAndReview + "\n"));
  std::array<int, 2> broken{};
  ASSERT_EQ(::pipe(broken.data()), 0);
  ::close(broken[0]);
  ChildOptions options = against(peer.path(), {"list"});
  options.given = {{1, broken[1]}};
  options.beforeExec = [] { std::signal(SIGPIPE, SIG_IGN); };
  const Ended ended = run(corvanectl(), options);
  ::close(broken[1]);
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors, "The output can't be written: Broken pipe\n");
}

TEST(Subscribe, endsInSilenceWhenItsReaderIsGoneAndNoSignalSaysSo) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("line\n"));
  std::array<int, 2> broken{};
  ASSERT_EQ(::pipe(broken.data()), 0);
  ::close(broken[0]);
  ChildOptions options = against(peer.path(), {"subscribe"});
  options.given = {{1, broken[1]}};
  options.beforeExec = [] { std::signal(SIGPIPE, SIG_IGN); };
  const Ended ended = run(corvanectl(), options);
  ::close(broken[1]);
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.errors, "");
}

/// A call of `subscribe` whose output goes into a FIFO. The application sends "first", and "second"
/// once it may.
class SubscribeIntoFIFO : public testing::Test {
 protected:
  SubscribeIntoFIFO() {
    EXPECT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    openToRead();
    const int writer = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    ChildOptions options = against(peer_.path(), {"subscribe"});
    options.given = {{1, writer}};
    child_.emplace(corvanectl(), options);
    ::close(writer);
  }
  ~SubscribeIntoFIFO() override { ::close(reader_); }

  void openToRead() { reader_ = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }
  void closeReader() {
    ::close(std::exchange(reader_, -1));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // time to see it
  }
  void expectLine(std::string_view line) {
    std::array<char, 64> bytes{};
    pollfd readable{reader_, POLLIN, 0};
    ::poll(&readable, 1, 10'000);
    const ssize_t count = ::read(reader_, bytes.data(), bytes.size());
    EXPECT_EQ(std::string_view(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0),
              line);
  }
  void sendSecond() { mayGoOn_.set_value(); }
  Ended ended() { return child_->wait(); }

 private:
  TemporaryFolder folder_;
  std::string path_ = folder_.path("fifo");
  std::promise<void> mayGoOn_;
  ScriptedPeer peer_{folder_.path("s"), [this](Conversation& talk) {
                       talk.send("first\n");
                       mayGoOn_.get_future().wait();
                       talk.send("second\n");
                     }};
  int reader_ = -1;
  std::optional<ChildProcess> child_;
};

TEST_F(SubscribeIntoFIFO, goesOnWhenItsReaderComesBack) {
  expectLine("first\n");
  closeReader();
  openToRead();
  sendSecond();
  expectLine("second\n");
  const Ended end = ended();
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.errors, "Corvane quit.\n");
}

TEST_F(SubscribeIntoFIFO, saysThatItsReaderHasNotComeBack) {
  expectLine("first\n");
  closeReader();
  sendSecond();
  const Ended end = ended();
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.errors, "The output can't be written: Broken pipe\n");
}

TEST(Corvanectl, saysThatThereIsNotEnoughMemory) {
  if (!canBoundMemory) GTEST_SKIP() << "memory cannot be bounded here";
  const std::string answer =
      R"({"ok":true,"workspaces":[],"error":")" + std::string(4 << 20, 'x') + "\"}\n";
  bool starts = false;  // with less memory than it takes to start, the system ends it
  bool saysSo = false;
  std::optional<int> last;
  for (rlim_t limit = rlim_t{1} << 20; limit <= rlim_t{32} << 20; limit += rlim_t{1} << 20) {
    SCOPED_TRACE(limit);
    const TemporaryFolder folder;
    ScriptedPeer peer(folder.path("s"), sending(answer));
    ChildOptions options = against(peer.path(), {"list"});
    options.beforeExec = [limit] {
      const rlimit bound{limit, limit};
      ::setrlimit(RLIMIT_AS, &bound);
    };
    const Ended ended = run(corvanectl(), options);
    EXPECT_NE(ended.signal, SIGABRT) << ended.errors;
    if (ended.status == 1) {
      EXPECT_EQ(ended.errors, "There is not enough memory.\n");
      saysSo = true;
    }
    starts = starts || ended.status == 0 || ended.status == 1;
    EXPECT_FALSE(starts && ended.signal);
    last = ended.status;
  }
  EXPECT_TRUE(saysSo);
  EXPECT_EQ(last, 0) << "with enough of it the answer is printed";
}

TEST(Corvanectl, withoutAFileForAClosedDescriptorNothingIsSent) {
  const TemporaryFolder folder;
  std::atomic<bool> received = false;
  ScriptedPeer peer(
      folder.path("s"),
      [&](Conversation& talk) {
        if (talk.readLine()) received = true;
        talk.send(mailAndReview + "\n");
        if (talk.readLine()) received = true;
      },
      false);
  const auto bounded = [&](std::vector<std::string> words, int closed) {
    ChildOptions options = against(peer.path(), std::move(words));
    if (closed >= 0) options.closed = {closed};
    options.beforeExec = [] {
      if (!refuseOpening()) ::_exit(99);
    };
    return run(corvanectl(), options);
  };
  if (bounded({"help"}, -1).status == 99) GTEST_SKIP() << "opening cannot be refused here";
  for (const int closed : {0, 1, 2}) {
    const Ended ended = bounded({"list"}, closed);
    EXPECT_EQ(ended.status, 3) << closed;
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, closed == 2 ? "" : absent);
    const Ended notified = bounded({"notify", "--kind", "done"}, closed);
    EXPECT_EQ(notified.status, 0) << closed;
    EXPECT_EQ(notified.output + notified.errors, "");
  }
  EXPECT_FALSE(received);
}

TEST(Corvanectl, descriptorsThatAreClosedAreNeverTheSocket) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), [](Conversation& talk) {
    talk.send("{\"ok\":true,\"error\":\"warning\",\"workspaces\":[" + workspace("Mail", true, 1) +
              "]}\n");
    EXPECT_EQ(talk.readLine(), std::nullopt);  // nothing that was printed comes back
  });
  for (const std::set<int>& closed :
       {std::set<int>{0}, {1}, {2}, {0, 1}, {1, 2}, {0, 2}, {0, 1, 2}}) {
    ChildOptions options = against(peer.path(), {"list"});
    options.closed = closed;
    const Ended ended = run(corvanectl(), options);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, closed.contains(1) ? "" : "* Mail  1 window\n");
    EXPECT_EQ(ended.errors, closed.contains(2) ? "" : "warning\n");
  }
}

TEST(Corvanectl, doesNotReadStandardInput) {
  const TemporaryFolder folder;
  ScriptedPeer peer(folder.path("s"), sending("{\"ok\":true}\n"));
  ChildOptions options = against(peer.path(), {"list"});
  options.keepInputOpen = true;
  EXPECT_EQ(run(corvanectl(), options).status, 0);
}

TEST(Corvanectl, aFolderWhoseNameEndsAlikeIsNoBundle) {
  const TemporaryFolder folder;
  folder.write("X.app/MyContents/Info.plist", xmlPlist(versionMember));
  const std::string executable = folder.path("X.app/MyContents/MacOS/corvanectl");
  std::filesystem::create_directories(folder.path("X.app/MyContents/MacOS"));
  std::filesystem::copy_file(corvanectl(), executable);
  EXPECT_EQ(run(executable, {.arguments = {"version"}}).output, "development build\n");
}

}  // namespace
}  // namespace CorvaneTests
