#include "CorvaneControl/CodexTranscript.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "CorvaneControl/JSON.h"
#include "Support/TemporaryFolder.h"

namespace {

/// Called before each read of a transcript, with the place and the number of bytes that are asked
/// for: what happens to the file between two reads.
std::function<void(off_t offset, std::size_t count)> beforeReading;

}  // namespace

/// In the place of the system's own.
extern "C" ssize_t pread(int file, void* bytes, std::size_t count, off_t offset) {
  if (beforeReading) beforeReading(offset, count);
  if (lseek(file, offset, SEEK_SET) < 0) return -1;
  return read(file, bytes, count);
}

namespace CorvaneControl::CodexTranscript {
namespace {

const std::uint64_t windowBytes = Reach().window;
const std::uint64_t mostBytesRead = Reach().mostInAll;
const std::size_t longestLine = 1'048'575;

class CodexTranscriptFile : public testing::Test {
 protected:
  std::string path(std::string_view name) const { return folder_.path(name); }
  std::string file(std::string_view content) const {
    return folder_.write("transcript.jsonl", content);
  }

 private:
  CorvaneTests::TemporaryFolder folder_{};
};

/// A descriptor of the test's own.
class Open {
 public:
  explicit Open(const std::string& path, int flags = O_RDONLY)
      : descriptor_(open(path.c_str(), flags | O_CLOEXEC)) {
    EXPECT_GE(descriptor_, 0) << std::strerror(errno);
  }
  ~Open() { close(descriptor_); }
  Open(const Open&) = delete;
  Open& operator=(const Open&) = delete;
  operator int() const { return descriptor_; }

 private:
  int descriptor_;
};

std::string record(const std::string& reviewer, const std::string& policy = R"("on-request")") {
  return R"({"timestamp":"2026-11-20T09:38:27.072Z","type":"turn_context","payload":)"
         R"({"cwd":"/home/user/project","approval_policy":)" +
         policy + R"(,"approvals_reviewer":")" + reviewer + R"("}})";
}
const std::string automatic = record("auto_review");
const std::string manual = record("user");
const std::string message = R"({"type":"response_item","payload":{"type":"message"}})";

/// A record with an automatic reviewer whose marker stands at byte `offset`.
std::string recordWithMarkerAt(std::size_t offset) {
  const std::string begin = R"({"pad":")";
  const std::string end = R"(",)";
  const std::string padding(offset - begin.size() - end.size(), 'x');
  return begin + padding + end + std::string(marker) +
         R"(,"payload":{"approvals_reviewer":"auto_review","approval_policy":"on-request"}})";
}

/// A record with an automatic reviewer of exactly `size` bytes.
std::string recordOfSize(std::size_t size) {
  const std::string begin = R"({"type":"turn_context","payload":{"approvals_reviewer":)"
                            R"("auto_review","approval_policy":"on-request","pad":")";
  const std::string end = R"("}})";
  return begin + std::string(size - begin.size() - end.size(), 'x') + end;
}

/// Lines that tell nothing, `size` bytes in all, the last of them a line feed.
std::string filler(std::size_t size) {
  std::string text;
  while (size - text.size() > 100) text += std::string(98, '.') + "\n";
  return text + std::string(size - text.size() - 1, '.') + "\n";
}

const auto named = [](const auto& row) { return std::string(row.param.name); };

// What a turn's settings say

struct SettingsCase {
  const char* name;
  std::string line;
  bool reviewed;
};

std::string payload(const std::string& members) {
  return R"({"type":"turn_context","payload":{)" + members + "}}";
}
std::string reviewer(const std::string& json) {
  return payload(R"("approval_policy":"on-request","approvals_reviewer":)" + json);
}
std::string policy(const std::string& json) {
  return payload(R"("approvals_reviewer":"auto_review","approval_policy":)" + json);
}

const SettingsCase settingsCases[] = {
    {"autoReview", reviewer(R"("auto_review")"), true},
    {"guardianSubagent", reviewer(R"("guardian_subagent")"), true},
    {"theUser", reviewer(R"("user")"), false},
    {"anEmptyReviewer", reviewer(R"("")"), false},
    {"aReviewerInCapitals", reviewer(R"("AUTO_REVIEW")"), false},
    {"aReviewerWithABlank", reviewer(R"("auto_review ")"), false},
    {"aReviewerWithANul", reviewer(R"("auto_review\u0000")"), false},
    {"anEscapedReviewer", reviewer(R"("\u0061uto_review")"), true},
    {"aReviewerThatIsNull", reviewer("null"), false},
    {"aReviewerThatIsABoolean", reviewer("true"), false},
    {"aReviewerThatIsANumber", reviewer("1"), false},
    {"aReviewerThatIsAList", reviewer(R"(["auto_review"])"), false},
    {"aReviewerThatIsAnObject", reviewer(R"({"auto_review":true})"), false},
    {"noReviewer", payload(R"("approval_policy":"on-request")"), false},
    {"onRequest", policy(R"("on-request")"), true},
    {"onFailure", policy(R"("on-failure")"), true},
    {"never", policy(R"("never")"), false},
    {"untrusted", policy(R"("untrusted")"), false},
    {"granularAsText", policy(R"("granular")"), false},
    {"granular", policy(R"({"granular":{"rules":true}})"), true},
    {"granularAndMore", policy(R"({"a":1,"granular":{}})"), true},
    {"granularOfAnyType", policy(R"({"granular":null})"), true},
    {"granularDeeperDown", policy(R"({"policy":{"granular":{}}})"), false},
    {"anEmptyPolicy", policy("{}"), false},
    {"aPolicyThatIsNull", policy("null"), false},
    {"aPolicyThatIsABoolean", policy("true"), false},
    {"aPolicyThatIsANumber", policy("1"), false},
    {"aPolicyThatIsAList", policy(R"(["on-request"])"), false},
    {"noPolicy", payload(R"("approvals_reviewer":"auto_review")"), false},
    {"noPayload", R"({"type":"turn_context"})", false},
    {"aPayloadThatIsAText", R"({"type":"turn_context","payload":"auto_review"})", false},
    {"aPayloadThatIsAList",
     R"({"type":"turn_context","payload":[{"approvals_reviewer":"auto_review"}]})", false},
    {"aPayloadThatIsNull", R"({"type":"turn_context","payload":null})", false},
    {"settingsBesideThePayload",
     R"({"type":"turn_context","payload":{},"approvals_reviewer":"auto_review",)"
     R"("approval_policy":"on-request"})",
     false},
    {"theLastOfTwoReviewers",
     payload(R"("approvals_reviewer":"user","approval_policy":"on-request",)"
             R"("approvals_reviewer":"auto_review")"),
     true},
    {"aCarriageReturnAtTheEnd", automatic + "\r", true},
    {"nothing", "", false},
    {"blanks", "  ", false},
    {"aList", "[" + automatic + "]", false},
    {"aText", R"("turn_context")", false},
    {"twoRecords", automatic + automatic, false},
    {"invalidUTF8", reviewer("\"auto_review\xFF\""), false},
    {"deepNesting", std::string(100'000, '['), false},
};

class TurnSettings : public CodexTranscriptFile,
                     public testing::WithParamInterface<SettingsCase> {};
TEST_P(TurnSettings, tellWhoReviews) {
  EXPECT_EQ(autoReviewed(file(GetParam().line)), GetParam().reviewed);
  EXPECT_EQ(autoReviewed(file(manual + "\n" + GetParam().line + "\n")), GetParam().reviewed);
}
INSTANTIATE_TEST_SUITE_P(CodexTranscript, TurnSettings, testing::ValuesIn(settingsCases), named);

TEST_F(CodexTranscriptFile, noBeginningOfARecordIsReviewed) {
  for (std::size_t size = 0; size < automatic.size(); ++size) {
    EXPECT_FALSE(autoReviewed(file(automatic.substr(0, size)))) << size;
  }
}

// Which record counts

struct TranscriptCase {
  const char* name;
  std::string content;
  bool reviewed;
};

const TranscriptCase transcriptCases[] = {
    {"anEmptyFile", "", false},
    {"oneLineFeed", "\n", false},
    {"onlyOtherRecords", message + "\n" + message + "\n", false},
    {"anAutomaticReviewer", message + "\n" + automatic + "\n" + message + "\n", true},
    {"theGuardian", record("guardian_subagent") + "\n", true},
    {"theGuardianWhoNeverAsks", record("guardian_subagent", R"("never")") + "\n", false},
    {"aGranularPolicy", record("guardian_subagent", R"({"granular":{"rules":true}})") + "\n", true},
    {"theUser", manual + "\n", false},
    {"aLaterUser", automatic + "\n" + manual + "\n", false},
    {"aLaterReviewer", manual + "\n" + automatic + "\n", true},
    {"aLaterRecordWithoutSettings", automatic + "\n" + R"({"type":"turn_context"})" + "\n", false},
    {"noFinalLineFeed", manual + "\n" + automatic, true},
    {"theFirstLine", automatic + "\n" + message + "\n", true},
    {"emptyLinesAround", "\n\n" + automatic + "\n\n\n", true},
    {"carriageReturns", message + "\r\n" + automatic + "\r\n" + message + "\r\n", true},
    {"aHalfWrittenLine", automatic + "\n" + manual.substr(0, manual.size() - 1), true},
    {"aHalfWrittenMarker", automatic + "\n" + R"({"type":"turn_con)", true},
    {"theMarkerInAnotherRecord",
     automatic + "\n" + R"({"payload":{"type":"turn_context","approvals_reviewer":"user"}})" + "\n",
     true},
    {"theMarkerInAnEscapedText",
     automatic + "\n" + R"({"type":"x","text":"{\"type\":\"turn_context\"}"})" + "\n", true},
    {"theMarkerInTextThatIsNoJSON", automatic + "\n" + R"(a "type":"turn_context" b)" + "\n", true},
    {"theMarkerBesideAnotherType",
     automatic + "\n" + R"({"a":{"type":"turn_context"},"type":"event_msg"})" + "\n", true},
    {"aRecordInsideAList", automatic + "\n[" + manual + "]\n", true},
    {"blanksInTheMarker", automatic + "\n" + R"({"type": "turn_context","payload":{}})" + "\n",
     true},
    {"theTypeTwice", manual + "\n" + R"({"type":"x",)" + automatic.substr(1) + "\n", true},
    {"theTypeOverruled",
     automatic + "\n" + manual.substr(0, manual.size() - 1) + R"(,"type":"x"})" + "\n", true},
    {"anInvalidLine", automatic + "\n" + R"({"type":"turn_context","x":)" + "\xFF}\n", true},
    {"aNulByteInALine",
     automatic + "\n" + R"({"type":"turn_context")" + std::string(1, '\0') + "}\n", true},
    {"blanksAndEscapesInTheRecord",
     manual + "\n" + R"({ "type":"turn_context", "pad":"\u0041\n\/", "payload": )" +
         R"({"approval_policy":"on-request" , "approvals_reviewer" : "auto_review"} } )" + "\n",
     true},
    {"manyMarkersInALine",
     automatic + "\n" + R"({"a":[{"type":"turn_context"},{"type":"turn_context"}]})" + "\n", true},
};

class Transcript : public CodexTranscriptFile,
                   public testing::WithParamInterface<TranscriptCase> {};
TEST_P(Transcript, tellsWhoReviews) {
  EXPECT_EQ(autoReviewed(file(GetParam().content)), GetParam().reviewed);
}
TEST_P(Transcript, readsTheSameThroughWindowsOfAnySize) {
  const std::string& content = GetParam().content;
  const std::string name = file(content);
  for (std::uint64_t window = 1; window <= content.size() + 1; ++window) {
    EXPECT_EQ(autoReviewed(name, {.window = window}), GetParam().reviewed) << window;
  }
}
INSTANTIATE_TEST_SUITE_P(CodexTranscript, Transcript, testing::ValuesIn(transcriptCases), named);

TEST_F(CodexTranscriptFile, transcriptsOfRealSessionsTellWhoReviews) {
  const std::string folder = CORVANE_SOURCE_DIR "/Tests/Fixtures/hooks/codex/";
  EXPECT_TRUE(autoReviewed(folder + "transcript-auto-review.jsonl"));
  EXPECT_FALSE(autoReviewed(folder + "transcript-user.jsonl"));
  EXPECT_FALSE(autoReviewed(folder + "transcript-older.jsonl"));
  // That one holds settings, though they tell nothing: they overrule an earlier reviewer.
  std::ifstream older(folder + "transcript-older.jsonl", std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(older), {}};
  EXPECT_FALSE(autoReviewed(file(automatic + "\n" + content)));
}

// What is no transcript

TEST_F(CodexTranscriptFile, aMissingFileIsNotReviewed) {
  EXPECT_FALSE(autoReviewed(path("missing.jsonl")));
  EXPECT_FALSE(autoReviewed(""));
}

TEST_F(CodexTranscriptFile, aPathThroughAFileIsNotReviewed) {
  EXPECT_FALSE(autoReviewed(file(automatic) + "/transcript.jsonl"));
}

TEST_F(CodexTranscriptFile, aPathBeyondTheSystemsLimitIsNotReviewed) {
  EXPECT_FALSE(autoReviewed(path(std::string(100'000, 'x'))));
}

TEST_F(CodexTranscriptFile, aPathWithANulIsNotReviewed) {
  const std::string name = file(automatic);
  ASSERT_TRUE(autoReviewed(name));
  EXPECT_FALSE(autoReviewed(name + std::string("\0x", 2)));
}

TEST_F(CodexTranscriptFile, aFolderIsNotReviewed) { EXPECT_FALSE(autoReviewed(path("."))); }

TEST_F(CodexTranscriptFile, aFIFOIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(autoReviewed(path("fifo")));
}

TEST_F(CodexTranscriptFile, aFIFOWithARecordInItIsNotRead) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const Open fifo(path("fifo"), O_RDWR);
  const std::string line = automatic + "\n";
  ASSERT_EQ(write(fifo, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  EXPECT_FALSE(autoReviewed(path("fifo")));
}

TEST_F(CodexTranscriptFile, devicesAreNotReviewed) {
  EXPECT_FALSE(autoReviewed("/dev/null"));
  EXPECT_FALSE(autoReviewed("/dev/zero"));
  EXPECT_FALSE(autoReviewed("/dev/tty"));
}

TEST_F(CodexTranscriptFile, aSocketIsNotReviewed) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = path("socket");
  ASSERT_LT(name.size(), sizeof address.sun_path);
  name.copy(address.sun_path, name.size());
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_FALSE(autoReviewed(name));
  close(socketDescriptor);
}

TEST_F(CodexTranscriptFile, anUnreadableFileIsNotReviewed) {
  if (geteuid() == 0) GTEST_SKIP() << "nothing is unreadable for root";
  const std::string name = file(automatic);
  ASSERT_EQ(chmod(name.c_str(), 0), 0);
  EXPECT_FALSE(autoReviewed(name));
}

TEST_F(CodexTranscriptFile, aSymbolicLinkIsFollowed) {
  std::filesystem::create_symlink(file(automatic), path("link"));
  EXPECT_TRUE(autoReviewed(path("link")));
  std::filesystem::create_symlink(path("nowhere"), path("dangling"));
  EXPECT_FALSE(autoReviewed(path("dangling")));
  std::filesystem::create_symlink(path("loop"), path("loop"));
  EXPECT_FALSE(autoReviewed(path("loop")));
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) ++count;
  }
  return count;
}

TEST_F(CodexTranscriptFile, theFileIsClosedOnEveryWayOut) {
  const std::string good = file(automatic);
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const std::size_t before = openDescriptors();
  EXPECT_TRUE(autoReviewed(good));
  EXPECT_FALSE(autoReviewed(file("")));
  EXPECT_FALSE(autoReviewed(file(message)));
  EXPECT_FALSE(autoReviewed(path("missing")));
  EXPECT_FALSE(autoReviewed(path(".")));
  EXPECT_FALSE(autoReviewed(path("fifo")));
  EXPECT_FALSE(autoReviewed(good, {.window = 0}));
  EXPECT_FALSE(autoReviewed(good, {.mostInAll = 0}));
  EXPECT_EQ(openDescriptors(), before);
}

// Looking back for the beginning of a line

struct LookBackCase {
  const char* name;
  std::size_t marker;  ///< Where the marker stands in its line, in bytes.
  std::string before;  ///< What precedes the line.
  bool usable;
};
const LookBackCase lookBackCases[] = {
    {"usableAt159Bytes", 159, "x\n", true},
    {"lostAt160Bytes", 160, "x\n", false},
    {"lostAt161Bytes", 161, "x\n", false},
    {"lostAt160BytesBehindALineFeedAlone", 160, "\n", false},
    {"usableAt159BytesBehindALineFeedAlone", 159, "\n", true},
    {"usableAt160BytesOfTheFile", 160, "", true},
    {"lostAt161BytesOfTheFile", 161, "", false},
    {"usableAt159BytesOfTheFile", 159, "", true},
    {"lostFarBehind", 100'000, "x\n", false},
};

class LookBack : public CodexTranscriptFile, public testing::WithParamInterface<LookBackCase> {};
TEST_P(LookBack, reachesAsFarAsItMust) {
  const std::string& before = GetParam().before;
  const std::string expected = recordWithMarkerAt(GetParam().marker);
  ASSERT_EQ(expected.find(marker), GetParam().marker);
  const std::string name = file(before + expected + "\n" + message + "\n");
  EXPECT_EQ(autoReviewed(name), GetParam().usable);
  // With the marker at every place of a window, at its very beginning too.
  for (std::uint64_t window = 1; window < 500; ++window) {
    EXPECT_EQ(autoReviewed(name, {.window = window}), GetParam().usable) << window;
  }
}
TEST_P(LookBack, fallsBackToAnEarlierRecord) {
  const std::string name =
      file(manual + "\n" + GetParam().before + recordWithMarkerAt(GetParam().marker) + "\n");
  // Behind another line none of them begins the file any more.
  EXPECT_EQ(autoReviewed(name), GetParam().marker < 160);
}
INSTANTIATE_TEST_SUITE_P(CodexTranscript, LookBack, testing::ValuesIn(lookBackCases), named);

// A line in the file

TEST_F(CodexTranscriptFile, theLineAroundAMarkerIsFoundWhereverBothStand) {
  for (std::size_t offset = 10; offset < 160; ++offset) {
    const std::string record = recordWithMarkerAt(offset);
    ASSERT_EQ(record.find(marker), offset);
    for (const std::string& content :
         {record, record + "\n", record + "\n\n" + message, "\n" + record + "\n",
          manual + "\n\n" + record + "\n" + message + "\n", manual + "\n" + record}) {
      EXPECT_TRUE(autoReviewed(file(content))) << content;
    }
  }
}

struct LineCase {
  const char* name;
  std::size_t size;  ///< Bytes, without the line feed.
  bool lineFeed;
  bool usable;
};
const LineCase lineCases[] = {
    {"oneByteShortOfAPiece", 65'535, true, true},
    {"aPiece", 65'536, true, true},
    {"oneByteMoreThanAPiece", 65'537, true, true},
    {"aPieceAtTheEndOfTheFile", 65'536, false, true},
    {"twoPieces", 131'072, true, true},
    {"aWindow", 262'144, true, true},
    {"oneByteShortOfTheLongest", longestLine - 1, true, true},
    {"theLongest", longestLine, true, true},
    {"oneByteMoreThanTheLongest", longestLine + 1, true, false},
    {"twoBytesMoreThanTheLongest", longestLine + 2, true, false},
    {"theLongestAtTheEndOfTheFile", longestLine, false, true},
    {"oneByteMoreAtTheEndOfTheFile", longestLine + 1, false, false},
    {"muchMore", 3 * longestLine, true, false},
};

class Line : public CodexTranscriptFile, public testing::WithParamInterface<LineCase> {};
TEST_P(Line, isReadUpToTheLongest) {
  const std::string expected = recordOfSize(GetParam().size);
  ASSERT_EQ(expected.size(), GetParam().size);
  const std::string content =
      manual + "\n" + expected + (GetParam().lineFeed ? "\n" + message + "\n" : "");
  const std::string name = file(content);
  EXPECT_EQ(autoReviewed(name), GetParam().usable);
}
TEST_P(Line, isMeasuredTheSameInOneWindow) {
  const std::string expected = recordOfSize(GetParam().size);
  const std::string name = file(expected + (GetParam().lineFeed ? "\n" + message + "\n" : ""));
  EXPECT_EQ(autoReviewed(name, {.window = 4 * mostBytesRead}), GetParam().usable);
}
INSTANTIATE_TEST_SUITE_P(CodexTranscript, Line, testing::ValuesIn(lineCases), named);

// Windows

TEST_F(CodexTranscriptFile, aMarkerAcrossTwoWindowsIsFound) {
  const std::string record = automatic + "\n";
  const std::string before = manual + "\n" + record;
  const std::size_t behind = record.size() - record.find(marker) - marker.size();
  for (std::size_t inLaterWindow = 0; inLaterWindow <= marker.size(); ++inLaterWindow) {
    const std::string after = filler(windowBytes - behind - inLaterWindow);
    EXPECT_TRUE(autoReviewed(file(before + after))) << inLaterWindow;
  }
}

TEST_F(CodexTranscriptFile, aLineAcrossTwoWindowsIsReadWhole) {
  const std::string record = recordOfSize(5000);
  const std::string before = manual + "\n" + record + "\n";
  for (const std::size_t inLaterWindow : {1U, 20U, 22U, 160U, 2500U, 4978U, 4999U}) {
    const std::string name = file(before + filler(windowBytes - inLaterWindow - 1));
    EXPECT_TRUE(autoReviewed(name)) << inLaterWindow;
  }
}

TEST_F(CodexTranscriptFile, anEarlierRecordIsFoundBehindManyWindows) {
  EXPECT_TRUE(autoReviewed(file(automatic + "\n" + filler(5 * windowBytes + 17))));
}

struct LimitCase {
  const char* name;
  std::uint64_t window;
  std::uint64_t limit;
  bool found;
};
/// For a marker that ends 250 bytes before the end of the file and begins 271 bytes before it.
const LimitCase limitCases[] = {
    {"noWindow", 0, mostBytesRead, false},
    {"noLimit", 100, 0, false},
    {"oneWindowOfAByte", 1, 1, false},
    {"oneByteOfAWindowIsAWholeWindow", 1000, 1, true},
    {"aWindowThatReachesTheMarker", 271, 1, true},
    {"aWindowThatMissesItByAByte", 270, 1, false},
    {"aWindowThatMissesItByAByteAndAnother", 270, 271, true},
    {"noThirdWindowOnceTheLimitIsRead", 100, 200, false},
    {"aThirdWindowOneByteBeforeTheLimit", 100, 201, true},
    {"aThirdWindowForALimitWithinIt", 100, 299, true},
    {"manySmallWindows", 1, 271, true},
    {"oneSmallWindowTooFew", 1, 270, false},
    {"theLargestNumbers", UINT64_MAX, UINT64_MAX, true},
    {"theLargestLimit", 1, UINT64_MAX, true},
};

class Limit : public CodexTranscriptFile, public testing::WithParamInterface<LimitCase> {};
TEST_P(Limit, noWindowIsBegunOnceItIsReached) {
  const std::string record = recordWithMarkerAt(17);
  const std::string rest = record.substr(17 + marker.size());
  const std::string name = file(message + "\n" + record + "\n" + filler(250 - rest.size() - 1));
  ASSERT_EQ(std::filesystem::file_size(name) - message.size() - 1 - record.find(marker), 271U);
  EXPECT_EQ(autoReviewed(name, {.window = GetParam().window, .mostInAll = GetParam().limit}),
            GetParam().found);
}
INSTANTIATE_TEST_SUITE_P(CodexTranscript, Limit, testing::ValuesIn(limitCases), named);

TEST_F(CodexTranscriptFile, sixtyFourMebibytesAreRead) {
  const std::string name = file(automatic + "\n");
  const std::uint64_t atMost = mostBytesRead + automatic.find(marker);
  std::filesystem::resize_file(name, atMost);
  EXPECT_TRUE(autoReviewed(name));
  std::filesystem::resize_file(name, atMost + 1);
  EXPECT_FALSE(autoReviewed(name));
}

// The cost

/// The bytes that this process has read so far; absent where the system does not count them.
std::optional<std::uint64_t> bytesReadSoFar() {
  std::ifstream stream("/proc/self/io");
  std::string key;
  std::uint64_t bytes = 0;
  if (stream >> key >> bytes && key == "rchar:") return bytes;
  return std::nullopt;
}

struct CostCase {
  const char* name;
  std::string line;  ///< What the file is full of.
  std::size_t size;
};
const CostCase costCases[] = {
    {"aLineFullOfMarkers", R"("type":"turn_context",)", 8 << 20},
    {"markersThatShareAQuotationMark", R"("type":"turn_context)", 8 << 20},
    {"shortLinesWithAMarkerEach", "\"type\":\"turn_context\"\n", 8 << 20},
    {"shortRecordsOfAnotherType", "{\"a\":{\"type\":\"turn_context\"}}\n", 8 << 20},
    {"longLinesWithAMarkerEach",
     R"({"a":{"type":"turn_context"},"b":")" + std::string(900'000, 'x') + "\"}\n", 8 << 20},
    {"tooLongLinesWithAMarkerEach",
     R"({"a":{"type":"turn_context"},"b":")" + std::string(1'100'000, 'x') + "\"}\n", 8 << 20},
    {"lineFeeds", "\n", 8 << 20},
};

class Cost : public CodexTranscriptFile, public testing::WithParamInterface<CostCase> {};
TEST_P(Cost, isAFewTimesTheSizeOfTheFile) {
  std::string content = automatic + "\n";
  while (content.size() < GetParam().size) content += GetParam().line;
  const std::string name = file(content);
  const auto before = bytesReadSoFar();
  EXPECT_TRUE(autoReviewed(name));
  const auto after = bytesReadSoFar();
  if (!before || !after) GTEST_SKIP() << "this system does not count the bytes that are read";
  EXPECT_LT(*after - *before, 3 * content.size());
}
INSTANTIATE_TEST_SUITE_P(CodexTranscript, Cost, testing::ValuesIn(costCases), named);

TEST_F(CodexTranscriptFile, onlyTheEndOfALongFileIsRead) {
  const std::string name = file(filler(20 * windowBytes) + automatic + "\n" + message + "\n");
  const auto before = bytesReadSoFar();
  EXPECT_TRUE(autoReviewed(name));
  const auto after = bytesReadSoFar();
  if (!before || !after) GTEST_SKIP() << "this system does not count the bytes that are read";
  EXPECT_LT(*after - *before, windowBytes + 10'000);
}

// A file that changes

void append(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count < 0) std::abort();
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

TEST_F(CodexTranscriptFile, mayBeAppendedToWhileItIsRead) {
  const std::string name = file(automatic + "\n");
  std::atomic<bool> reading = true;
  std::thread writer([&] {
    const Open descriptor(name, O_WRONLY | O_APPEND);
    std::minstd_rand random(1);
    for (std::size_t size = 0; reading && size < (48 << 20);) {
      std::string line = random() % 4 == 0 ? automatic + "\n" : message + "\n";
      if (random() % 16 == 0) line = filler(300'000);
      size += line.size();
      // In two halves, so that a reader sees half a line.
      const std::size_t half = random() % line.size();
      append(descriptor, std::string_view(line).substr(0, half));
      append(descriptor, std::string_view(line).substr(half));
    }
    append(descriptor, manual + "\n");
  });
  for (int round = 0; round < 300; ++round) EXPECT_TRUE(autoReviewed(name)) << round;
  reading = false;
  writer.join();
  EXPECT_FALSE(autoReviewed(name));
}

/// Cuts a file with `content` short and writes the rest again, over and over, as long as `read`
/// runs. At least the first `kept` bytes stay.
template <class Read>
void whileCutShort(const std::string& name, const std::string& content, std::size_t kept,
                   Read read) {
  std::atomic<bool> reading = true;
  std::thread writer([&] {
    std::minstd_rand random(2);
    const Open descriptor(name, O_RDWR | O_APPEND);
    while (reading) {
      const std::size_t size = kept + random() % (content.size() - kept);
      if (ftruncate(descriptor, static_cast<off_t>(size)) != 0) std::abort();
      append(descriptor, std::string_view(content).substr(size));
    }
  });
  for (int round = 0; round < 300; ++round) read(round);
  reading = false;
  writer.join();
}

TEST_F(CodexTranscriptFile, mayBeCutShortWhileItIsRead) {
  // What is never cut off has the answer, and so has what comes and goes.
  for (const std::string& record : {automatic, manual}) {
    const std::string content = record + "\n" + filler(700'000) + record + "\n" + filler(300'000);
    const std::string name = file(content);
    whileCutShort(name, content, record.size() + 1, [&](int round) {
      EXPECT_EQ(autoReviewed(name, {.window = 10'000}), record == automatic) << round;
    });
    EXPECT_EQ(autoReviewed(name), record == automatic);
  }
}

TEST_F(CodexTranscriptFile, mayBeEmptiedWhileItIsRead) {
  const std::string content = manual + "\n" + filler(700'000) + automatic + "\n" + filler(300'000);
  const std::string name = file(content);
  whileCutShort(name, content, 0, [&](int) { autoReviewed(name, {.window = 10'000}); });
  EXPECT_TRUE(autoReviewed(name));
}

// Two roads that agree

/// The same search over the whole file in memory, as simply as it can be put.
std::optional<std::string> searchedInMemory(const std::string& content) {
  for (std::size_t hit = content.rfind(marker); hit != std::string::npos;
       hit = hit == 0 ? std::string::npos : content.rfind(marker, hit - 1)) {
    const std::size_t feed = hit == 0 ? std::string::npos : content.rfind('\n', hit - 1);
    const std::size_t start = feed == std::string::npos ? 0 : feed + 1;
    if (feed == std::string::npos ? hit > 160 : hit - feed > 160) continue;
    const std::string found = content.substr(start, content.find('\n', start) - start);
    std::string scratch = found;
    const auto document = JSON::Document::parse(scratch);
    if (document && document->root().string("type") == "turn_context") return found;
  }
  return std::nullopt;
}

TEST_F(CodexTranscriptFile, randomFilesReadTheSameInMemory) {
  std::mt19937 random(20261120);
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 2000; ++round) {
    std::string content;
    for (std::size_t lines = below(12); lines > 0; --lines) {
      switch (below(8)) {
        case 0:
          content += automatic;
          break;
        case 1:
          content += recordWithMarkerAt(140 + below(40));
          break;
        case 2:
          content += R"({"type":"turn_context","n":)" + std::to_string(below(1000)) +
                     (below(2) == 0 ? "," + automatic.substr(1) : "}");
          break;
        case 3:
          content += R"({"a":[{"type":"turn_context"},{"type":"turn_context"}]})";
          break;
        case 4:
          content += std::string(below(200), ' ') + manual;
          break;
        case 5:
          content += std::string(below(300), 'x');
          break;
        case 6:
          content += std::string(marker).substr(below(20));
          break;
        default:
          content += message;
          break;
      }
      if (below(10) > 0) content += '\n';
    }
    content.resize(content.size() - std::min(content.size(), below(3) * below(60)));
    const std::string name = file(content);
    const std::uint64_t window = 1 + below(1 + below(2 * content.size() + 2));
    const auto settings = searchedInMemory(content);
    EXPECT_EQ(autoReviewed(name, {.window = window}),
              settings && settings->find("\"auto_review\"") != std::string::npos)
        << "a window of " << window << " bytes of:\n"
        << content;
  }
}

TEST(CodexTranscript, theMarkerIsTheCompactMember) {
  EXPECT_EQ(marker, "\"type\":\"turn_context\"");
  EXPECT_EQ(marker.size(), 21U);
}

// A file that shrinks between two reads

/// Does something before certain reads, as long as it is there.
class BeforeReading {
 public:
  explicit BeforeReading(std::function<void(off_t offset, std::size_t count)> action) {
    beforeReading = std::move(action);
  }
  ~BeforeReading() { beforeReading = nullptr; }
  BeforeReading(const BeforeReading&) = delete;
  BeforeReading& operator=(const BeforeReading&) = delete;
};

/// Two windows of a thousand bytes, the second with a record of which only the settings lie in it.
TEST_F(CodexTranscriptFile, whatAnEarlierWindowHeldIsNotReadAgainWhenTheFileIsCutShort) {
  const std::string start = std::string(19, 'a') + "\n";
  const std::string settings = recordOfSize(979);
  const std::string content =
      start + std::string(980, 'x') + std::string(20, 'x') + settings + "\n";
  ASSERT_EQ(content.size(), 2000U);
  const std::string name = file(content);
  ASSERT_FALSE(autoReviewed(name, {.window = 1000}));
  const BeforeReading cut([&](off_t offset, std::size_t count) {
    if (offset == 0 && count == 1000) std::filesystem::resize_file(name, start.size());
  });
  EXPECT_FALSE(autoReviewed(name, {.window = 1000}));
}

TEST_F(CodexTranscriptFile, aLineWhoseStartIsCutOffMeanwhileIsNone) {
  const std::string before = std::string(992, 'a') + "\n";
  const std::string settings = recordWithMarkerAt(10);
  const std::string content =
      before + settings + "\n" + std::string(2000 - 993 - settings.size() - 1, ' ');
  ASSERT_EQ(content.size(), 2000U);
  const std::string name = file(content);
  ASSERT_TRUE(autoReviewed(name, {.window = 1000}));
  const BeforeReading cut([&](off_t, std::size_t count) {
    if (count == 160) std::filesystem::resize_file(name, before.size());
    if (count > 1000) file(content);  // the line itself would be there again
  });
  EXPECT_FALSE(autoReviewed(name, {.window = 1000}));
}

}  // namespace
}  // namespace CorvaneControl::CodexTranscript
