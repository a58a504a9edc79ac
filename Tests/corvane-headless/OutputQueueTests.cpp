#include "corvane-headless/OutputQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Support/CountedMemory.h"

namespace CorvaneControl::Headless {
namespace {

using Outcome = OutputQueue::Outcome;

/// The two ends of a pipe or of a connection; the second one is written to.
class Ends {
 public:
  enum class Kind : std::uint8_t { pipe, sockets };

  explicit Ends(Kind kind) {
    if (kind == Kind::pipe) {
      EXPECT_EQ(::pipe(descriptors_.data()), 0);
    } else {
      EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, descriptors_.data()), 0);
      ::fcntl(in(), F_SETFL, O_NONBLOCK);
    }
  }
  ~Ends() {
    closeOut();
    ::close(in());
  }
  Ends(const Ends&) = delete;
  Ends& operator=(const Ends&) = delete;

  int out() const { return descriptors_[0]; }
  int in() const { return descriptors_[1]; }
  void closeOut() {
    if (descriptors_[0] >= 0) ::close(descriptors_[0]);
    descriptors_[0] = -1;
  }
  /// What is there to read now, at most 4096 bytes.
  std::string take() const {
    std::array<char, 4096> chunk;
    const ssize_t count = ::read(out(), chunk.data(), chunk.size());
    return count > 0 ? std::string(chunk.data(), static_cast<std::size_t>(count)) : std::string();
  }

 private:
  std::array<int, 2> descriptors_{-1, -1};
};

TEST(OutputQueue, isEmptyAtFirst) {
  OutputQueue queue;
  EXPECT_TRUE(queue.isEmpty());
  const Ends ends(Ends::Kind::sockets);
  EXPECT_EQ(queue.writeToSocket(ends.in()), Outcome::empty);
}

TEST(OutputQueue, writesWhatWasAppended) {
  OutputQueue queue;
  queue.append("ab");
  queue.append("c");
  EXPECT_EQ(queue.size(), 3U);
  const Ends ends(Ends::Kind::sockets);
  EXPECT_EQ(queue.writeToSocket(ends.in()), Outcome::empty);
  EXPECT_TRUE(queue.isEmpty());
  EXPECT_EQ(ends.take(), "abc");
}

/// Fills a queue with more than its other end takes, and empties both little by little.
template <class Write>
void passesEverythingOn(const Ends& ends, Write write) {
  OutputQueue queue;
  std::string expected;
  for (int number = 0; number < 200'000; ++number) {
    const std::string piece = std::to_string(number) + ",";
    expected += piece;
    queue.append(piece);
  }
  EXPECT_EQ(write(queue), Outcome::blocked);
  EXPECT_LT(queue.size(), expected.size());
  queue.append("end");
  expected += "end";
  std::string received;
  while (received.size() < expected.size()) {
    const std::string piece = ends.take();
    ASSERT_FALSE(piece.empty());
    received += piece;
    ASSERT_NE(write(queue), Outcome::failed);
  }
  EXPECT_TRUE(received == expected);
  EXPECT_TRUE(queue.isEmpty());
}

TEST(OutputQueue, keepsWhatASocketDoesNotTake) {
  const Ends ends(Ends::Kind::sockets);
  passesEverythingOn(ends, [&](OutputQueue& queue) { return queue.writeToSocket(ends.in()); });
}

TEST(OutputQueue, doesNotWaitForAFullPipe) {
  const Ends ends(Ends::Kind::pipe);  // a blocking one
  passesEverythingOn(ends, [&](OutputQueue& queue) { return queue.writeWhileReady(ends.in()); });
}

TEST(OutputQueue, failsWithoutASignalWhenThePeerIsGone) {
  Ends ends(Ends::Kind::sockets);
  ends.closeOut();
  OutputQueue queue;
  queue.append("x");
  EXPECT_EQ(queue.writeToSocket(ends.in()), Outcome::failed);
  EXPECT_EQ(errno, EPIPE);
}

TEST(OutputQueue, givesBackTheMemoryOfAHugeAnswer) {
  const std::string answer(1'000'000, 'x');
  const Ends ends(Ends::Kind::sockets);
  const std::size_t before = CorvaneTests::heldBytes();
  OutputQueue queue;
  queue.append(answer);
  EXPECT_GE(CorvaneTests::heldBytes(), before + answer.size());
  while (queue.writeToSocket(ends.in()) == Outcome::blocked) ASSERT_FALSE(ends.take().empty());
  EXPECT_TRUE(queue.isEmpty());
  EXPECT_LT(CorvaneTests::heldBytes(), before + 1000U);
}

TEST(OutputQueue, keepsLittleOfWhatWasWrittenThoughItIsNeverEmpty) {
  const std::string piece(4096, 'x');  // as much as is taken at once
  const Ends ends(Ends::Kind::sockets);
  OutputQueue queue;
  while (queue.writeToSocket(ends.in()) != Outcome::blocked) queue.append(piece);
  for (int pieces = 0; pieces < 50; ++pieces) queue.append(piece);
  CorvaneTests::forgetMostHeld();
  const std::size_t before = CorvaneTests::heldBytes();
  for (int pieces = 0; pieces < 1000; ++pieces) {
    ASSERT_FALSE(ends.take().empty());
    queue.append(piece);
    ASSERT_EQ(queue.writeToSocket(ends.in()), Outcome::blocked);
  }
  EXPECT_LT(CorvaneTests::mostHeldBytes(), before + 1'000'000U);
}

TEST(OutputQueue, forgetsWhenCleared) {
  OutputQueue queue;
  queue.append("x");
  queue.clear();
  EXPECT_TRUE(queue.isEmpty());
}

}  // namespace
}  // namespace CorvaneControl::Headless
