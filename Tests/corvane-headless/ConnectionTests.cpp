#include "corvane-headless/Connection.h"

#include <gtest/gtest.h>

#include <array>

#include <sys/socket.h>
#include <unistd.h>

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

}  // namespace
}  // namespace CorvaneControl::Headless
