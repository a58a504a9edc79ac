#include "CorvaneControl/UnixSocket.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneControl {
namespace {

using CorvaneTests::TemporaryFolder;

constexpr auto named = [](const auto& row) { return std::string(row.param.name); };

/// A descriptor that is closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  operator int() const { return number_; }
  void close() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }

 private:
  int number_;
};

struct Pair {
  Pair() : Pair(ends()) {}
  Descriptor left;
  Descriptor right;

 private:
  explicit Pair(std::array<int, 2> both) : left(both[0]), right(both[1]) {}
  static std::array<int, 2> ends() {
    std::array<int, 2> both{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, both.data()), 0);
    return both;
  }
};

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (int number = 0; number < 1024; ++number) count += ::fcntl(number, F_GETFD) != -1;
  return count;
}

bool closedOnExec(int descriptor) { return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0; }

timeval option(int descriptor, int name) {
  timeval value{};
  socklen_t size = sizeof value;
  EXPECT_EQ(::getsockopt(descriptor, SOL_SOCKET, name, &value, &size), 0);
  return value;
}

TEST(UnixSocket, takesAPathOf103BytesAndNoMore) {
  EXPECT_TRUE(UnixSocket::unixAddress(std::string(103, 'a')));
  EXPECT_TRUE(UnixSocket::unixAddress(""));
  const std::string tooLong(104, 'a');
  const auto refused = UnixSocket::unixAddress(tooLong);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.failure(), UnixSocket::Failure::pathTooLong(tooLong));
  EXPECT_EQ(refused.failure().description(), "The socket path is too long: " + tooLong);
  EXPECT_EQ(refused.failure().code, std::nullopt);
  // Bytes count, not characters.
  std::string accented;
  for (int count = 0; count < 52; ++count) accented += "é";
  EXPECT_FALSE(UnixSocket::unixAddress(accented));
}

TEST(UnixSocket, theAddressHoldsThePathAndATerminator) {
  const auto address = UnixSocket::unixAddress("/tmp/x");
  ASSERT_TRUE(address);
  EXPECT_EQ(address->storage.sun_family, AF_UNIX);
  EXPECT_STREQ(address->storage.sun_path, "/tmp/x");
  EXPECT_EQ(address->length, sizeof(sockaddr_un));
}

TEST(UnixSocket, refusesToConnectWhereNothingIs) {
  const TemporaryFolder folder;
  const std::size_t before = openDescriptors();
  const auto missing = UnixSocket::connect(folder.path("none"), 1);
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.failure(), UnixSocket::Failure::system("connect", ENOENT));
  EXPECT_EQ(missing.failure().description(), "connect: No such file or directory");

  const std::string stale = folder.path("stale");
  {
    const auto listener = UnixSocket::listen(stale, 1);
    ASSERT_TRUE(listener);
    ::close(*listener);
  }
  const auto refused = UnixSocket::connect(stale, 1);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.failure(), UnixSocket::Failure::system("connect", ECONNREFUSED));
  EXPECT_EQ(refused.failure().description(), "connect: Connection refused");
  EXPECT_EQ(refused.failure().code, ECONNREFUSED);

  EXPECT_FALSE(UnixSocket::connect(std::string(104, 'a'), 1));
  EXPECT_EQ(openDescriptors(), before);
}

TEST(UnixSocket, aPathThatNoFileCanHaveIsAnError) {
  const TemporaryFolder folder;
  const std::size_t before = openDescriptors();
  const std::string withNul = folder.path("a") + std::string("\0b", 2);
  for (const std::string& path : {std::string(), std::string("\0abstract", 9), withNul}) {
    const auto listener = UnixSocket::listen(path, 1);
    ASSERT_FALSE(listener);
    EXPECT_EQ(listener.failure(), UnixSocket::Failure::system("listen", ENOENT));
    const auto connection = UnixSocket::connect(path, 1);
    ASSERT_FALSE(connection);
    EXPECT_EQ(connection.failure(), UnixSocket::Failure::system("connect", ENOENT));
  }
  EXPECT_FALSE(folder.holds("a"));
  EXPECT_EQ(openDescriptors(), before);
}

TEST(UnixSocket, aFileBeforeANulIsLeftAlone) {
  const TemporaryFolder folder;
  folder.write("a", "x");
  EXPECT_FALSE(UnixSocket::listen(folder.path("a") + std::string("\0b", 2), 1));
  EXPECT_EQ(folder.read("a"), "x");
}

TEST(UnixSocket, failuresCompareByCaseAndPayload) {
  using UnixSocket::Failure;
  EXPECT_EQ(Failure::system("connect", 2), Failure::system("connect", 2));
  EXPECT_NE(Failure::system("connect", 2), Failure::system("listen", 2));
  EXPECT_NE(Failure::system("connect", 2), Failure::system("connect", 3));
  EXPECT_NE(Failure::pathTooLong("a"), Failure::pathTooLong("b"));
  EXPECT_NE(Failure::pathTooLong(""), Failure::system("socket", 1));
}

TEST(UnixSocket, saysThatNoSocketCouldBeMade) {
  const pid_t child = ::fork();
  if (child == 0) {
    for (int number = 3; number < 1024; ++number) ::close(number);
    while (::dup(0) >= 0) {
    }
    const auto connection = UnixSocket::connect("/tmp/none", 1);
    const auto listener = UnixSocket::listen("/tmp/none/x", 1);
    ::_exit(!connection && connection.failure() == UnixSocket::Failure::system("socket", EMFILE) &&
                    !listener && listener.failure() == UnixSocket::Failure::system("socket", EMFILE)
                ? 0
                : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(UnixSocket, listensInThePlaceOfAStaleFileForTheOwnerAlone) {
  const TemporaryFolder folder;
  const std::string path = folder.path("socket");
  for (int round = 0; round < 2; ++round) {
    const auto listener = UnixSocket::listen(path, 1);
    ASSERT_TRUE(listener);
    const Descriptor closing(*listener);
    EXPECT_TRUE(closedOnExec(*listener));
    struct stat status {};
    ASSERT_EQ(::lstat(path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0600U);
  }
  folder.write("file", "x");
  const auto listener = UnixSocket::listen(folder.path("file"), 1);
  ASSERT_TRUE(listener);
  ::close(*listener);
}

TEST(UnixSocket, allFailuresOfListeningHaveOneName) {
  const TemporaryFolder folder;
  const std::size_t before = openDescriptors();
  const auto missing = UnixSocket::listen(folder.path("none/socket"), 1);
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.failure(), UnixSocket::Failure::system("listen", ENOENT));

  std::filesystem::create_directory(folder.path("taken"));
  const auto taken = UnixSocket::listen(folder.path("taken"), 1);
  ASSERT_FALSE(taken);
  EXPECT_EQ(taken.failure(), UnixSocket::Failure::system("listen", EADDRINUSE));

  EXPECT_FALSE(UnixSocket::listen(std::string(104, 'a'), 1));
  EXPECT_EQ(openDescriptors(), before);
}

TEST(UnixSocket, connectsWithItsTimeOutsAndNotBeyondAnExec) {
  const TemporaryFolder folder;
  const std::string path = folder.path("socket");
  const Descriptor listener(*UnixSocket::listen(path, 1));
  const auto connection = UnixSocket::connect(path, 10);
  ASSERT_TRUE(connection);
  const Descriptor closing(*connection);
  EXPECT_TRUE(closedOnExec(*connection));
  EXPECT_EQ(option(*connection, SO_RCVTIMEO).tv_sec, 10);
  EXPECT_EQ(option(*connection, SO_SNDTIMEO).tv_sec, 5);
  EXPECT_TRUE(UnixSocket::peerIsCurrentUser(*connection));
}

TEST(UnixSocket, tellsNothingOfAPeerThatIsNone) {
  EXPECT_FALSE(UnixSocket::peerIsCurrentUser(-1));
  const Descriptor file(::open("/dev/null", O_RDONLY));
  EXPECT_FALSE(UnixSocket::peerIsCurrentUser(file));
  const Descriptor alone(::socket(AF_UNIX, SOCK_STREAM, 0));
  EXPECT_FALSE(UnixSocket::peerIsCurrentUser(alone));
  const TemporaryFolder folder;
  const Descriptor listener(*UnixSocket::listen(folder.path("socket"), 1));
  EXPECT_FALSE(UnixSocket::peerIsCurrentUser(listener));
}

TEST(UnixSocket, tellsAPeerOfAnotherUser) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become another user";
  const TemporaryFolder folder;
  const std::string path = folder.path("socket");
  const Descriptor listener(*UnixSocket::listen(path, 1));
  ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const bool ready = ::setuid(65534) == 0;
    const auto connection = UnixSocket::connect(path, 5);
    char byte = 0;
    const bool isReached = ready && connection && ::read(*connection, &byte, 1) == 1;
    ::_exit(isReached ? 0 : 1);
  }
  const Descriptor accepted(::accept(listener, nullptr, nullptr));
  EXPECT_FALSE(UnixSocket::peerIsCurrentUser(accepted));
  ASSERT_TRUE(UnixSocket::write("x", accepted));
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

struct TimeCase {
  const char* name;
  double seconds;
  time_t whole;
  suseconds_t micro;
};
const TimeCase timeCases[] = {
    {"never", 0, 0, 0},        {"whole", 240, 240, 0},
    {"half", 1.5, 1, 500'000}, {"aQuarter", 0.25, 0, 250'000},
    {"card", 590, 590, 0},
};
class TimeOut : public testing::TestWithParam<TimeCase> {};
TEST_P(TimeOut, isSetInSecondsAndMicroseconds) {
  const Pair pair;
  UnixSocket::configure(pair.left, GetParam().seconds, GetParam().seconds);
  for (const int name : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    EXPECT_EQ(option(pair.left, name).tv_sec, GetParam().whole);
    // The system keeps time-outs in ticks of at most 10 ms.
    EXPECT_NEAR(static_cast<double>(option(pair.left, name).tv_usec),
                static_cast<double>(GetParam().micro), 10'000);
  }
}
INSTANTIATE_TEST_SUITE_P(UnixSocket, TimeOut, testing::ValuesIn(timeCases), named);

TEST(UnixSocketDeathTest, aTimeOutBeyondReasonEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const Pair pair;
  for (const double seconds : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e19}) {
    EXPECT_DEATH(UnixSocket::configure(pair.left, seconds, 1), "");
    EXPECT_DEATH(UnixSocket::configure(pair.left, 1, seconds), "");
  }
}

TEST(UnixSocket, ignoresFailuresOfConfiguring) { UnixSocket::configure(-1, 1, 1); }

TEST(UnixSocket, aReadTimesOut) {
  const Pair pair;
  UnixSocket::configure(pair.left, 0.1, 5);
  char byte = 0;
  EXPECT_EQ(::read(pair.left, &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(UnixSocket, connectingToAFullBacklogFailsInsteadOfHanging) {
  const TemporaryFolder folder;
  const std::string path = folder.path("socket");
  const Descriptor listener(*UnixSocket::listen(path, 0));
  std::vector<int> connections;
  std::optional<UnixSocket::Failure> failure;
  while (!failure && connections.size() < 64) {
    const auto connection = UnixSocket::connect(path, 1);
    if (connection) {
      connections.push_back(*connection);
    } else {
      failure = connection.failure();
    }
  }
  EXPECT_TRUE(failure);
  for (const int connection : connections) ::close(connection);
}

TEST(UnixSocket, connectsThoughSignalsInterruptIt) {
  const CorvaneTests::TemporaryFolder folder;
  const auto listener = UnixSocket::listen(folder.path("s"), 0);
  ASSERT_TRUE(listener);
  std::vector<int> waiting;  // fill the backlog
  for (int number = 0; number < 8; ++number) {
    const int client = CorvaneControl::System::openStreamSocket();
    ASSERT_TRUE(UnixSocket::makeNonBlocking(client));
    const auto address = UnixSocket::unixAddress(folder.path("s"));
    waiting.push_back(client);
    if (::connect(client, reinterpret_cast<const sockaddr*>(&address->storage), address->length) !=
        0) {
      break;
    }
  }
  static std::atomic<int> interruptions = 0;
  interruptions = 0;
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++interruptions; };  // without SA_RESTART
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  std::atomic<bool> isConnected = false;
  const pthread_t connecting = ::pthread_self();
  std::thread others([&] {
    while (!isConnected) {
      ::pthread_kill(connecting, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (interruptions < 5) continue;
      const int accepted = ::accept(*listener, nullptr, nullptr);  // there is room again
      if (accepted >= 0) ::close(accepted);
      if (accepted >= 0) break;
    }
  });
  const auto connection = UnixSocket::connect(folder.path("s"), 1);
  isConnected = true;
  others.join();
  ::sigaction(SIGUSR1, &before, nullptr);
  EXPECT_TRUE(connection) << connection.failure().description();
  if (connection) ::close(*connection);
  for (const int client : waiting) ::close(client);
  ::close(*listener);
}

TEST(UnixSocket, makesReadingFailWhereItWouldWait) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  EXPECT_TRUE(UnixSocket::makeNonBlocking(ends[0]));
  char byte = 0;
  EXPECT_EQ(::read(ends[0], &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  for (const int end : ends) ::close(end);
  EXPECT_FALSE(UnixSocket::makeNonBlocking(-1));
}

TEST(UnixSocket, writingNothingSucceedsWithoutTheSystem) { EXPECT_TRUE(UnixSocket::write("", -1)); }

TEST(UnixSocket, writingToAClosedConnectionFailsAndTheProcessGoesOn) {
  const auto disposition = std::signal(SIGPIPE, SIG_DFL);
  Pair pair;
  UnixSocket::configure(pair.left, 1, 1);
  pair.right.close();
  EXPECT_FALSE(UnixSocket::write("x", pair.left));
  EXPECT_EQ(errno, EPIPE);
  EXPECT_FALSE(UnixSocket::write("x", -1));
  std::signal(SIGPIPE, disposition);
}

TEST(UnixSocket, writesToAnyDescriptor) {
  const TemporaryFolder folder;
  const Descriptor file(::open(folder.path("file").c_str(), O_WRONLY | O_CREAT, 0600));
  EXPECT_TRUE(UnixSocket::write("some bytes", file));
  EXPECT_EQ(folder.read("file"), "some bytes");
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const Descriptor out(ends[0]);
  const Descriptor in(ends[1]);
  ASSERT_TRUE(UnixSocket::write("a line\n", in));
  EXPECT_EQ(LineReader(out).next(), "a line");
}

TEST(UnixSocket, writesMoreThanTheSystemTakesAtOnce) {
  const Pair pair;
  std::string bytes;
  for (int count = 0; bytes.size() < 3'000'000; ++count) bytes += std::to_string(count);
  std::string received;
  std::thread reader([&] {
    std::array<char, 777> chunk;
    while (received.size() < bytes.size()) {
      const ssize_t count = ::read(pair.right, chunk.data(), chunk.size());
      if (count <= 0) break;
      received.append(chunk.data(), static_cast<std::size_t>(count));
    }
  });
  EXPECT_TRUE(UnixSocket::write(bytes, pair.left));
  reader.join();
  EXPECT_EQ(received, bytes);
}

TEST(UnixSocket, aWriteThatNobodyTakesTimesOut) {
  const Pair pair;
  UnixSocket::configure(pair.left, 1, 0.1);
  EXPECT_FALSE(UnixSocket::write(std::string(10'000'000, 'x'), pair.left));
}

void doNothing(int) {}

TEST(UnixSocket, signalsDoNotEndReadingAndWriting) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = doNothing;  // and no SA_RESTART: calls end with EINTR
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  const itimerval often{{0, 2000}, {0, 2000}};
  const itimerval never{};
  const Pair pair;
  std::string line(2'000'000, 'x');
  const pid_t child = ::fork();
  if (child == 0) {
    // One that reads slowly, then answers slowly.
    std::size_t total = 0;
    std::array<char, 65536> chunk;
    while (total < line.size() + 1) {
      ::usleep(3000);
      const ssize_t count = ::read(pair.right, chunk.data(), chunk.size());
      if (count <= 0) ::_exit(1);
      total += static_cast<std::size_t>(count);
    }
    ::usleep(30'000);
    static_cast<void>(!::write(pair.right, "ans", 3));
    ::usleep(30'000);
    static_cast<void>(!::write(pair.right, "wer\n", 4));
    ::_exit(0);
  }
  ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
  EXPECT_TRUE(UnixSocket::write(line + "\n", pair.left));
  LineReader reader(pair.left);
  EXPECT_EQ(reader.next(), "answer");
  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(::sigaction(SIGALRM, &before, nullptr), 0);
}

struct LinesCase {
  const char* name;
  std::string bytes;
  std::vector<std::string> lines;
  std::size_t rest;
};
const LinesCase linesCases[] = {
    {"none", "", {}, 0},
    {"two", "a\nb\n", {"a", "b"}, 0},
    {"theCarriageReturnIsKept", "a\r\n", {"a\r"}, 0},
    {"emptyLines", "\n\n", {"", ""}, 0},
    {"unfinished", "a\nx", {"a"}, 1},
    {"onlyUnfinished", "xyz", {}, 3},
    {"nul", std::string("a\0b\n", 4), {std::string("a\0b", 3)}, 0},
    {"notUTF8", "\xFF\n", {"\xFF"}, 0},
};
class Lines : public testing::TestWithParam<LinesCase> {};

TEST_P(Lines, areSplitHoweverTheBytesArrive) {
  const auto& row = GetParam();
  for (std::size_t piece = 1; piece <= std::max<std::size_t>(1, row.bytes.size()); ++piece) {
    LineBuffer buffer;
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < row.bytes.size(); at += piece) {
      buffer.append(std::string_view(row.bytes).substr(at, piece));
      while (const auto line = buffer.nextLine()) lines.emplace_back(*line);
    }
    EXPECT_EQ(lines, row.lines) << "in pieces of " << piece;
    EXPECT_EQ(buffer.count(), row.rest);
    EXPECT_EQ(buffer.nextLine(), std::nullopt);
  }
}

TEST_P(Lines, areTakenTogetherWithTheirLineFeeds) {
  const auto& row = GetParam();
  std::string whole;
  for (const std::string& line : row.lines) whole += line + "\n";
  for (std::size_t piece = 1; piece <= std::max<std::size_t>(1, row.bytes.size()); ++piece) {
    LineBuffer buffer;
    std::string taken;
    for (std::size_t at = 0; at < row.bytes.size(); at += piece) {
      buffer.append(std::string_view(row.bytes).substr(at, piece));
      taken += buffer.nextLines();
    }
    EXPECT_EQ(taken, whole) << "in pieces of " << piece;
    EXPECT_EQ(buffer.count(), row.rest);
    EXPECT_EQ(buffer.nextLines(), "");
  }
}

TEST_P(Lines, areReadFromADescriptorUntilItsEnd) {
  Pair pair;
  ASSERT_TRUE(UnixSocket::write(GetParam().bytes, pair.right));
  pair.right.close();
  LineReader reader(pair.left);
  std::vector<std::string> lines;
  while (const auto line = reader.next()) lines.emplace_back(*line);
  EXPECT_EQ(lines, GetParam().lines);
}
INSTANTIATE_TEST_SUITE_P(LineBuffer, Lines, testing::ValuesIn(linesCases), named);

TEST(LineBuffer, bothWaysOfTakingLinesMix) {
  LineBuffer buffer;
  buffer.append("a\nb\nc\nd");
  EXPECT_EQ(buffer.nextLine(), "a");
  EXPECT_EQ(buffer.nextLines(), "b\nc\n");
  EXPECT_EQ(buffer.nextLine(), std::nullopt);
  EXPECT_EQ(buffer.count(), 1U);
  buffer.append("\ne\n");
  EXPECT_EQ(buffer.nextLine(), "d");
  EXPECT_EQ(buffer.nextLine(), "e");
  EXPECT_EQ(buffer.count(), 0U);
}

TEST(LineBuffer, aLineOfTensOfMegabytesInSmallPiecesIsLinearWork) {
  LineBuffer buffer;
  const std::string piece(4096, 'x');
  for (int count = 0; count < 8192; ++count) {
    buffer.append(piece);
    ASSERT_EQ(buffer.nextLine(), std::nullopt);
  }
  buffer.append("\n");
  const auto line = buffer.nextLine();
  ASSERT_TRUE(line);
  EXPECT_EQ(line->size(), 4096U * 8192U);
}

TEST(LineBuffer, aMillionLinesTakenOneByOneAreLinearWork) {
  LineBuffer buffer;
  std::string bytes;
  for (int count = 0; count < 1'000'000; ++count) bytes += "x\n";
  buffer.append(bytes);
  int lines = 0;
  while (buffer.nextLine()) {
    ++lines;
    if (lines % 1000 == 0) buffer.append("y");  // an unfinished line behind them
  }
  EXPECT_EQ(lines, 1'000'000);
  EXPECT_EQ(buffer.count(), 1000U);
}

TEST(LineBuffer, looksAtEachByteOnce) {
  LineBuffer buffer;
  buffer.append("x\nabcdef");
  const auto first = buffer.nextLine();
  ASSERT_EQ(first, "x");
  const std::string_view behind(first->data() + 2, 6);
  EXPECT_FALSE(buffer.nextLine());
  // A line feed where it has looked is none that it finds.
  buffer.inPlace(behind)[1] = '\n';
  buffer.append("g");
  EXPECT_FALSE(buffer.nextLine());
  EXPECT_EQ(buffer.nextLines(), "");
  buffer.append("h\n");
  EXPECT_EQ(buffer.nextLine(), "a\ncdefgh");
}

TEST(LineBuffer, remembersWhatItHasSeenWhenItDropsLines) {
  LineBuffer buffer;
  buffer.append("xxxxxxxx\nabc");
  const auto first = buffer.nextLine();
  ASSERT_EQ(first, "xxxxxxxx");
  EXPECT_FALSE(buffer.nextLine());
  buffer.inPlace({first->data() + 9, 3})[1] = '\n';
  buffer.append("d\n");  // moves what is left to the front
  EXPECT_EQ(buffer.nextLine(), "a\ncd");
}

TEST(LineBuffer, movesNoBytesWhileLinesAreTaken) {
  LineBuffer buffer;
  buffer.append("a\nbc\nd\n");
  const auto first = buffer.nextLine();
  const auto second = buffer.nextLine();
  const auto third = buffer.nextLine();
  ASSERT_TRUE(first && second && third);
  EXPECT_EQ(second->data(), first->data() + 2);
  EXPECT_EQ(third->data(), first->data() + 5);
  EXPECT_EQ(*first, "a");
}

TEST(LineBuffer, movesNoBytesForTheFewThatWereTaken) {
  LineBuffer buffer;
  buffer.append("a\n" + std::string(600, 'x'));
  buffer.append(std::string(400, 'x'));  // with room for more
  const auto first = buffer.nextLine();
  ASSERT_EQ(first, "a");
  buffer.append("\n");
  const auto second = buffer.nextLine();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->data(), first->data() + 2);
}

TEST(LineReader, returnsALineThatArrivesInManyReads) {
  Pair pair;
  const std::string line(10'000, 'x');
  std::thread writer([&] {
    EXPECT_TRUE(UnixSocket::write(line.substr(0, 5000), pair.right));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(UnixSocket::write(line.substr(5000) + "\nnext\n", pair.right));
  });
  LineReader reader(pair.left);
  EXPECT_EQ(reader.next(), line);
  writer.join();
  EXPECT_EQ(reader.next(), "next");
}

TEST(LineReader, returnsTheSecondLineOfAReadWithoutReadingAgain) {
  Pair pair;
  ASSERT_TRUE(UnixSocket::write("a\nb\n", pair.right));
  LineReader reader(pair.left);
  EXPECT_EQ(reader.next(), "a");
  ASSERT_EQ(::shutdown(pair.left, SHUT_RDWR), 0);
  pair.left.close();  // a read would fail now
  EXPECT_EQ(reader.next(), "b");
  EXPECT_EQ(reader.next(), std::nullopt);
}

TEST(LineReader, givesUpWhenAReadTimesOutAndKeepsWhatItHas) {
  Pair pair;
  UnixSocket::configure(pair.left, 0.1, 1);
  ASSERT_TRUE(UnixSocket::write("half", pair.right));
  LineReader reader(pair.left);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(reader.buffer.count(), 4U);
  ASSERT_TRUE(UnixSocket::write(" a line\n", pair.right));
  EXPECT_EQ(reader.next(), "half a line");
}

TEST(LineReader, doesNotCloseTheDescriptor) {
  const Pair pair;
  { const LineReader reader(pair.left); }
  EXPECT_NE(::fcntl(pair.left, F_GETFD), -1);
}

/// Signals that do nothing but interrupt the calls of one thread.
class Interrupting {
 public:
  Interrupting() {
    struct sigaction action {};
    action.sa_handler = doNothing;  // and no SA_RESTART: calls end with EINTR
    ::sigaction(SIGUSR1, &action, &before_);
  }
  ~Interrupting() { ::sigaction(SIGUSR1, &before_, nullptr); }
  Interrupting(const Interrupting&) = delete;
  Interrupting& operator=(const Interrupting&) = delete;

  /// So often that some come while the thread waits.
  static void interrupt(std::thread& thread) {
    for (int count = 0; count < 100; ++count) {
      ::pthread_kill(thread.native_handle(), SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

 private:
  struct sigaction before_ {};
};

TEST(UnixSocket, connectingGoesOnAfterASignal) {
  const TemporaryFolder folder;
  const std::string path = folder.path("socket");
  const Descriptor listener(*UnixSocket::listen(path, 0));
  const Descriptor first(*UnixSocket::connect(path, 1));  // the backlog is full
  const Interrupting signals;
  std::optional<Result<int, UnixSocket::Failure>> connection;
  std::thread connecting([&] { connection = UnixSocket::connect(path, 1); });
  Interrupting::interrupt(connecting);
  const Descriptor accepted(::accept(listener, nullptr, nullptr));
  connecting.join();
  ASSERT_TRUE(*connection) << connection->failure().description();
  ::close(**connection);
}

}  // namespace
}  // namespace CorvaneControl
