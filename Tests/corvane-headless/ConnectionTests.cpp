#include "corvane-headless/Connection.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <iterator>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include "Support/CountedMemory.h"

namespace CorvaneControl::Headless {
namespace {

/// A connection, and its client's end.
struct Ends {
  Ends() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, descriptors.data()), 0); }
  std::array<int, 2> descriptors{};
};

TEST(Connection, takesWhatAClientSentBeforeItWentAway) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  ASSERT_EQ(::write(ends.descriptors[1], "a\nb\n", 4), 4);
  ::close(ends.descriptors[1]);
  connection.send("answer\n");
  connection.transmit();
  EXPECT_TRUE(connection.isGone());
  EXPECT_EQ(connection.unsent(), 0U);
  EXPECT_FALSE(connection.inputHasEnded());
  connection.receive();
  EXPECT_EQ(connection.nextLine(), "a");
  EXPECT_EQ(connection.nextLine(), "b");
}

TEST(Connection, isGivenUpWhenTheSystemCannotSend) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  Connection connection(pipe[0]);  // which nothing can be written to
  connection.send("answer\n");
  connection.transmit();
  EXPECT_TRUE(connection.isGone());
  EXPECT_TRUE(connection.inputHasEnded());
  EXPECT_EQ(connection.unsent(), 0U);
  ::close(pipe[1]);
}

TEST(Connection, forgetsWhatItHasReceivedWhenItIsToReceiveNoMore) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  ASSERT_EQ(::write(ends.descriptors[1], "a\nbc", 4), 4);
  connection.receive();
  EXPECT_EQ(connection.untaken(), 4U);
  connection.stopReceiving();
  EXPECT_EQ(connection.untaken(), 0U);
  EXPECT_FALSE(connection.nextLine());
  EXPECT_FALSE(connection.isGone());
  ::close(ends.descriptors[1]);
}

TEST(Connection, givesBackTheMemoryOfAHugeRequest) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  const std::size_t before = CorvaneTests::heldBytes();
  const auto takes = [&](const std::string& bytes) {
    ASSERT_EQ(::write(ends.descriptors[1], bytes.data(), bytes.size()), std::ssize(bytes));
    connection.receive();
  };
  for (int pieces = 0; pieces < 100; ++pieces) takes(std::string(10'000, 'x'));
  takes("\n");
  EXPECT_EQ(connection.nextLine()->size(), 1'000'000U);
  EXPECT_GE(CorvaneTests::heldBytes(), before + 1'000'000U);
  takes("a\n");
  EXPECT_EQ(connection.nextLine(), "a");
  EXPECT_LT(CorvaneTests::heldBytes(), before + 1000U);
  ::close(ends.descriptors[1]);
}

TEST(Connection, givesBackTheMemoryOfARequestThatItForgets) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  const std::string piece(10'000, 'x');
  const std::size_t before = CorvaneTests::heldBytes();
  for (int pieces = 0; pieces < 10; ++pieces) {
    ASSERT_EQ(::write(ends.descriptors[1], piece.data(), piece.size()), std::ssize(piece));
    connection.receive();
  }
  EXPECT_GE(CorvaneTests::heldBytes(), before + 100'000U);
  connection.stopReceiving();
  EXPECT_EQ(CorvaneTests::heldBytes(), before);
  ::close(ends.descriptors[1]);
}

TEST(Connection, knowsAtTheEndOfTheInputThatItsClientIsGone) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  ::close(ends.descriptors[1]);
  connection.receive();
  EXPECT_TRUE(connection.inputHasEnded());
  EXPECT_TRUE(connection.isGone());
}

TEST(Connection, keepsAClientThatOnlyStoppedSending) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  ::shutdown(ends.descriptors[1], SHUT_WR);
  connection.receive();
  EXPECT_TRUE(connection.inputHasEnded());
  EXPECT_FALSE(connection.isGone());
  ::close(ends.descriptors[1]);
}

TEST(Connection, isOverWhenItCannotBeRead) {
  const Ends ends;
  Connection connection(ends.descriptors[0]);
  connection.send("answer\n");
  connection.transmit();
  ::close(ends.descriptors[1]);  // a reset, because the answer was not read
  connection.receive();
  EXPECT_TRUE(connection.inputHasEnded());
  EXPECT_TRUE(connection.isGone());
}

}  // namespace
}  // namespace CorvaneControl::Headless
