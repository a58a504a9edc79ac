#include "corvane-headless/Turns.h"

#include <gtest/gtest.h>

#include <string>

namespace CorvaneControl::Headless {
namespace {

TEST(Turns, countTheCallsOfATurn) {
  Turns turns;
  turns.start("s");
  EXPECT_FALSE(turns.work("s"));
  EXPECT_FALSE(turns.work("s"));
  EXPECT_EQ(turns.end("s"), 2U);
  EXPECT_EQ(turns.end("s"), std::nullopt) << "it is over";
}

TEST(Turns, beginWithACallThatNobodyAnnounced) {
  Turns turns;
  EXPECT_TRUE(turns.work("s"));
  EXPECT_FALSE(turns.work("s"));
  EXPECT_EQ(turns.end("s"), 2U);
}

TEST(Turns, startAnew) {
  Turns turns;
  turns.start("s");
  turns.work("s");
  turns.start("s");
  EXPECT_EQ(turns.end("s"), 0U);
}

TEST(Turns, areKeptApart) {
  Turns turns;
  turns.start("a");
  turns.work("b");
  EXPECT_EQ(turns.end("a"), 0U);
  EXPECT_EQ(turns.end("b"), 1U);
}

TEST(Turns, ofSessionsThatVanishAreForgottenOneDay) {
  Turns turns;
  for (int number = 0; number < 10'000; ++number) turns.start(std::to_string(number));
  EXPECT_EQ(turns.end("0"), std::nullopt);
  EXPECT_EQ(turns.end("9999"), 0U);
}

TEST(Turns, ofSessionsThatAreKnownCostNoOtherItsTurn) {
  Turns turns;
  for (int number = 0; number < 4096; ++number) turns.start(std::to_string(number));
  turns.work("0");
  EXPECT_EQ(turns.end("0"), 1U);
  EXPECT_EQ(turns.end("4095"), 0U);
}

}  // namespace
}  // namespace CorvaneControl::Headless
