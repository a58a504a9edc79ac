#include "CorvaneControl/Date.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ctime>
#include <functional>
#include <limits>
#include <random>
#include <string>

namespace {

using CorvaneControl::Date;

const auto named = [](const auto& row) { return std::string(row.param.name); };

struct DateCase {
  const char* name;
  std::string text;
  std::optional<std::int64_t> seconds;
};
// The seconds were computed with `date -u -d ... +%s`.
const DateCase dateCases[] = {
    {"readsTheEpoch", "1970-01-01T00:00:00Z", 0},
    {"readsUTC", "2025-03-14T09:26:53Z", 1741944413},
    {"readsAnOffsetAhead", "2025-03-14T10:26:53+01:00", 1741944413},
    {"readsAnOffsetBehind", "2025-03-13T21:56:53-11:30", 1741944413},
    {"readsAnOffsetOfNothing", "2025-03-14T09:26:53+00:00", 1741944413},
    {"readsTheLargestOffset", "2025-03-15T09:25:53+23:59", 1741944413},
    {"readsALeapDay", "2024-02-29T00:00:00Z", 1709164800},
    {"readsTheLeapDayOfACentury", "2000-02-29T00:00:00Z", 951782400},
    {"readsTheLastSecondOfADay", "1969-12-31T23:59:59Z", -1},
    {"readsYear0", "0000-01-01T00:00:00Z", -62167219200},
    {"readsYear9999", "9999-12-31T23:59:59Z", 253402300799},
    {"refusesTheEmptyText", "", std::nullopt},
    {"refusesAnOffsetOutOfYear0", "0000-01-01T00:00:00+00:01", std::nullopt},
    {"refusesAnOffsetOutOfYear9999", "9999-12-31T23:59:59-00:01", std::nullopt},
    {"refusesFractions", "2025-03-14T09:26:53.5Z", std::nullopt},
    {"refusesFractionsWithAComma", "2025-03-14T09:26:53,5Z", std::nullopt},
    {"refusesADateWithoutTime", "2025-03-14", std::nullopt},
    {"refusesADateWithoutZone", "2025-03-14T09:26:53", std::nullopt},
    {"refusesATimeWithoutSeconds", "2025-03-14T09:26Z", std::nullopt},
    {"refusesASpaceForTheT", "2025-03-14 09:26:53Z", std::nullopt},
    {"refusesASmallT", "2025-03-14t09:26:53Z", std::nullopt},
    {"refusesASmallZ", "2025-03-14T09:26:53z", std::nullopt},
    {"refusesTheBasicForm", "20250314T092653Z", std::nullopt},
    {"refusesAnOffsetWithoutColon", "2025-03-14T09:26:53+0100", std::nullopt},
    {"refusesAnOffsetOfHours", "2025-03-14T09:26:53+01", std::nullopt},
    {"refusesAnOffsetWithSeconds", "2025-03-14T09:26:53+01:00:00", std::nullopt},
    {"refusesAnOffsetOf24Hours", "2025-03-14T09:26:53+24:00", std::nullopt},
    {"refusesAnOffsetOf60Minutes", "2025-03-14T09:26:53+01:60", std::nullopt},
    {"refusesMonth0", "2025-00-14T09:26:53Z", std::nullopt},
    {"refusesMonth13", "2025-13-14T09:26:53Z", std::nullopt},
    {"refusesDay0", "2025-03-00T09:26:53Z", std::nullopt},
    {"refusesTheDayAfterAMonth", "2025-04-31T09:26:53Z", std::nullopt},
    {"refusesALeapDayInAnOrdinaryYear", "2025-02-29T09:26:53Z", std::nullopt},
    {"refusesALeapDayInAnOrdinaryCentury", "1900-02-29T09:26:53Z", std::nullopt},
    {"refusesHour24", "2025-03-14T24:00:00Z", std::nullopt},
    {"refusesMinute60", "2025-03-14T09:60:53Z", std::nullopt},
    {"refusesALeapSecond", "2016-12-31T23:59:60Z", std::nullopt},
    {"refusesASign", "+2025-03-14T09:26:53Z", std::nullopt},
    {"refusesFiveDigitsOfYear", "12025-03-14T09:26:53Z", std::nullopt},
    {"refusesASpaceInFront", " 2025-03-14T09:26:53Z", std::nullopt},
    {"refusesWhatFollows", "2025-03-14T09:26:53Z\n", std::nullopt},
    {"refusesANul", std::string("2025-03-14T09:26:53\0", 20), std::nullopt},
    {"refusesANumber", "1741944413", std::nullopt},
};

class DateText : public testing::TestWithParam<DateCase> {};
TEST_P(DateText, isReadExactlyOrRefused) {
  const auto date = Date::parse(GetParam().text);
  ASSERT_EQ(date.has_value(), GetParam().seconds.has_value());
  if (date) {
    EXPECT_EQ(date->seconds, *GetParam().seconds);
  }
}
INSTANTIATE_TEST_SUITE_P(Date, DateText, testing::ValuesIn(dateCases), named);

TEST(DateText, isWrittenInUTC) {
  EXPECT_EQ(Date{0}.text(), "1970-01-01T00:00:00Z");
  EXPECT_EQ(Date{-1}.text(), "1969-12-31T23:59:59Z");
  EXPECT_EQ(Date{1741944413}.text(), "2025-03-14T09:26:53Z");
  EXPECT_EQ(Date{951782400}.text(), "2000-02-29T00:00:00Z");
  EXPECT_EQ(Date{-62167219200}.text(), "0000-01-01T00:00:00Z");
  EXPECT_EQ(Date{253402300799}.text(), "9999-12-31T23:59:59Z");
}

TEST(DateText, beyondTheFourDigitsOfAYearIsTheNearestWithin) {
  EXPECT_EQ(Date{253402300800}.text(), "9999-12-31T23:59:59Z");
  EXPECT_EQ(Date{-62167219201}.text(), "0000-01-01T00:00:00Z");
  EXPECT_EQ(Date{std::numeric_limits<std::int64_t>::max()}.text(), "9999-12-31T23:59:59Z");
  EXPECT_EQ(Date{std::numeric_limits<std::int64_t>::min()}.text(), "0000-01-01T00:00:00Z");
}

TEST(DateText, cutAnywhereIsRefused) {
  for (const std::string text : {"2025-03-14T09:26:53Z", "2025-03-14T09:26:53+01:00"}) {
    for (std::size_t size = 0; size < text.size(); ++size) {
      EXPECT_FALSE(Date::parse(text.substr(0, size))) << size;
    }
  }
}

TEST(DateText, comesBackAsTheSamePointInTime) {
  std::mt19937_64 random(1);
  std::uniform_int_distribution<std::int64_t> seconds(-62167219200, 253402300799);
  for (int round = 0; round < 10000; ++round) {
    const Date date{seconds(random)};
    EXPECT_EQ(Date::parse(date.text()), date) << date.text();
  }
}

TEST(DateValue, nowIsTheSystemsTime) {
  const std::int64_t before = std::time(nullptr);
  const Date now = Date::now();
  EXPECT_GE(now.seconds, before - 1);  // the coarse clock behind time() may lag
  EXPECT_LE(now.seconds, std::time(nullptr) + 1);
}

TEST(DateValue, hasFractionsOfASecondThatAreNotWritten) {
  EXPECT_LT((Date{1}), (Date{1, 1}));
  EXPECT_LT((Date{1, 999'999'999}), (Date{2}));
  EXPECT_NE((Date{1}), (Date{1, 1}));
  EXPECT_EQ((Date{1741944413, 999'999'999}.text()), "2025-03-14T09:26:53Z");
  EXPECT_EQ((Date{-1, 500'000'000}.text()), "1969-12-31T23:59:59Z");
  EXPECT_EQ(Date::parse("2025-03-14T09:26:53Z"), (Date{1741944413, 0}));
}

TEST(DateValue, nowHasFractionsOfASecond) {
  // One of them may be none; that all are is no chance.
  bool hasFraction = false;
  for (int round = 0; round < 100 && !hasFraction; ++round) {
    const Date now = Date::now();
    EXPECT_LT(now.nanoseconds, 1'000'000'000U);
    hasFraction = now.nanoseconds > 0;
  }
  EXPECT_TRUE(hasFraction);
}

TEST(DateValue, hashesEqualValuesAlikeAndOthersApart) {
  EXPECT_EQ(std::hash<Date>()(Date{1, 2}), std::hash<Date>()(Date{1, 2}));
  EXPECT_NE(std::hash<Date>()(Date{1, 2}), std::hash<Date>()(Date{2, 1}));
}

TEST(DateValue, isOrderedByTime) {
  EXPECT_LT(Date{-1}, Date{0});
  EXPECT_GT(Date{1}, Date{0});
  EXPECT_EQ(Date{1}, Date{1});
}

}  // namespace
