#include "CorvaneControl/UUID.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <set>
#include <string>
#include <unordered_set>

namespace {

using CorvaneControl::UUID;

const auto named = [](const auto& row) { return std::string(row.param.name); };

const std::string canonical = "0123ABCD-4567-89AB-CDEF-0123456789EF";

struct UUIDCase {
  const char* name;
  std::string text;
  std::optional<std::string> written;
};
const UUIDCase uuidCases[] = {
    {"readsUpperCase", canonical, canonical},
    {"readsLowerCase", "0123abcd-4567-89ab-cdef-0123456789ef", canonical},
    {"readsMixedCase", "0123aBcD-4567-89aB-cDeF-0123456789Ef", canonical},
    {"readsZeros", "00000000-0000-0000-0000-000000000000", "00000000-0000-0000-0000-000000000000"},
    {"readsOnes", "ffffffff-ffff-ffff-ffff-ffffffffffff", "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF"},
    {"asksForNoVersion", "12345678-1234-F234-0234-123456789012",
     "12345678-1234-F234-0234-123456789012"},
    {"refusesTheEmptyText", "", std::nullopt},
    {"refusesOneDigitLess", "0123ABCD-4567-89AB-CDEF-0123456789E", std::nullopt},
    {"refusesOneDigitMore", "0123ABCD-4567-89AB-CDEF-0123456789EFF", std::nullopt},
    {"refusesBraces", "{0123ABCD-4567-89AB-CDEF-0123456789EF}", std::nullopt},
    {"refusesTheFormWithoutHyphens", "0123ABCD456789ABCDEF0123456789EF", std::nullopt},
    {"refusesHyphensElsewhere", "0123ABC-D4567-89AB-CDEF-0123456789EF", std::nullopt},
    {"refusesAHyphenForADigit", "0123ABCD-4567-89AB-CDEF-0123456789E-", std::nullopt},
    {"refusesADigitForAHyphen", "0123ABCD-4567-89AB-CDEF00123456789EF", std::nullopt},
    {"refusesALetterBeyondF", "0123ABCG-4567-89AB-CDEF-0123456789EF", std::nullopt},
    {"refusesASpaceInFront", " 0123ABCD-4567-89AB-CDEF-0123456789E", std::nullopt},
    {"refusesALineFeedAtTheEnd", "0123ABCD-4567-89AB-CDEF-0123456789EF\n", std::nullopt},
    {"refusesANul", std::string("0123ABCD-4567-89AB-CDEF-0123456789E\0", 36), std::nullopt},
    {"refusesDigitsOfOtherScripts", "0123ABCD-4567-89AB-CDEF-01234567\xD9\xA1\xD9\xA2",
     std::nullopt},
    {"refusesASign", "+123ABCD-4567-89AB-CDEF-0123456789EF", std::nullopt},
};

class UUIDText : public testing::TestWithParam<UUIDCase> {};
TEST_P(UUIDText, isReadInEitherCaseAndWrittenInUpperCase) {
  const auto identifier = UUID::parse(GetParam().text);
  ASSERT_EQ(identifier.has_value(), GetParam().written.has_value());
  if (identifier) {
    EXPECT_EQ(identifier->text(), *GetParam().written);
  }
}
INSTANTIATE_TEST_SUITE_P(UUID, UUIDText, testing::ValuesIn(uuidCases), named);

TEST(UUIDText, hasTheFirstDigitInTheHighHalfOfTheFirstByte) {
  const auto identifier = UUID::parse(canonical);
  ASSERT_TRUE(identifier);
  EXPECT_EQ(identifier->bytes[0], 0x01);
  EXPECT_EQ(identifier->bytes[15], 0xEF);
}

TEST(UUIDText, refusesEveryOtherByteAtEveryPlace) {
  const std::string digits = "0123456789abcdefABCDEF";
  for (std::size_t place = 0; place < canonical.size(); ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string text = canonical;
      text[place] = static_cast<char>(byte);
      const bool hyphen = canonical[place] == '-';
      const bool good = hyphen ? text[place] == '-' : digits.find(text[place]) != std::string::npos;
      EXPECT_EQ(UUID::parse(text).has_value(), good) << text;
    }
  }
}

TEST(UUIDText, comesBackAsTheSameValue) {
  std::mt19937 random(1);
  for (int round = 0; round < 1000; ++round) {
    UUID identifier;
    for (auto& byte : identifier.bytes) byte = static_cast<std::uint8_t>(random());
    EXPECT_EQ(UUID::parse(identifier.text()), identifier);
  }
}

TEST(UUIDValue, isOrderedAsItsText) {
  std::mt19937 random(2);
  std::set<UUID> identifiers;
  for (int round = 0; round < 200; ++round) {
    UUID identifier;
    for (auto& byte : identifier.bytes) byte = static_cast<std::uint8_t>(random() % 4 * 85);
    identifiers.insert(identifier);
  }
  EXPECT_TRUE(std::ranges::is_sorted(identifiers, {}, &UUID::text));
}

TEST(UUIDValue, hashesEqualValuesAlikeAndOthersApart) {
  EXPECT_EQ(std::hash<UUID>()(*UUID::parse(canonical)), std::hash<UUID>()(*UUID::parse(canonical)));
  std::unordered_set<std::size_t> hashes;
  for (int byte = 0; byte < 256; ++byte) {
    UUID identifier;
    identifier.bytes.fill(static_cast<std::uint8_t>(byte));  // both halves alike
    hashes.insert(std::hash<UUID>()(identifier));
  }
  EXPECT_EQ(hashes.size(), 256U);
}

}  // namespace
