#include "corvane-headless/CardOnScreen.h"

#include <gtest/gtest.h>

#include <chrono>

namespace CorvaneControl::Headless {
namespace {

using std::chrono::milliseconds;

/// A moment that many milliseconds after some other.
CardOnScreen::Clock::time_point at(int moment) {
  return CardOnScreen::Clock::time_point() + milliseconds(moment);
}

TEST(CardOnScreen, isThereAtFirstForNobody) {
  CardOnScreen card;
  EXPECT_FALSE(card.isComing());
  EXPECT_FALSE(card.isTooNew(at(0)));
  EXPECT_FALSE(card.written(10, at(0)));
}

TEST(CardOnScreen, isComingUntilItsLastByteIsWritten) {
  CardOnScreen card;
  card.drawn(100);
  EXPECT_TRUE(card.isComing());
  EXPECT_FALSE(card.written(99, at(0)));
  EXPECT_TRUE(card.isComing());
  EXPECT_TRUE(card.isTooNew(at(60'000))) << "nobody sees all of it, however long that takes";
  EXPECT_TRUE(card.written(100, at(60'000)));
  EXPECT_FALSE(card.isComing());
}

TEST(CardOnScreen, isWholeOnce) {
  CardOnScreen card;
  card.drawn(100);
  EXPECT_TRUE(card.written(300, at(0)));
  EXPECT_FALSE(card.written(400, at(400)));
  EXPECT_FALSE(card.isTooNew(at(500))) << "what is written behind it does not make it new";
}

TEST(CardOnScreen, isTooNewForHalfASecond) {
  CardOnScreen card;
  card.drawn(1);
  card.written(1, at(1000));
  EXPECT_TRUE(card.isTooNew(at(1000)));
  EXPECT_TRUE(card.isTooNew(at(1499)));
  EXPECT_FALSE(card.isTooNew(at(1500)));
}

TEST(CardOnScreen, isNewWhenItIsDrawnAgain) {
  CardOnScreen card;
  card.drawn(1);
  card.written(1, at(0));
  card.drawn(2);
  EXPECT_TRUE(card.isComing());
  EXPECT_TRUE(card.isTooNew(at(10'000)));
}

TEST(CardOnScreen, isGone) {
  CardOnScreen card;
  card.drawn(1);
  card.gone();
  EXPECT_FALSE(card.isComing());
  EXPECT_FALSE(card.isTooNew(at(0)));
}

}  // namespace
}  // namespace CorvaneControl::Headless
