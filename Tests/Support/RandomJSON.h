#pragma once

#include <cstddef>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>

#include "CorvaneControl/OrderedJSON.h"

namespace CorvaneTests {

/// Documents for property tests, the same ones for the same seed.
class RandomJSON {
 public:
  explicit RandomJSON(std::uint64_t seed) : engine_(seed) {}

  /// A number from 0 to below `bound`.
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(engine_() % bound); }
  bool oneIn(std::size_t count) { return below(count) == 0; }
  template <class Value>
  Value pick(std::initializer_list<Value> values) {
    return values.begin()[below(values.size())];
  }

  /// Any value, its containers at most `depth` deep.
  CorvaneControl::OrderedJSON value(std::size_t depth) {
    using CorvaneControl::OrderedJSON;
    switch (below(depth > 0 ? 8 : 5)) {
      case 0:
        return OrderedJSON();
      case 1:
        return OrderedJSON(oneIn(2));
      case 2:
        return OrderedJSON(OrderedJSON::Number{number()});
      case 3:
      case 4:
        return OrderedJSON(string());
      case 5: {
        OrderedJSON::Array elements;
        for (std::size_t count = below(5); count > 0; --count) elements.push_back(value(depth - 1));
        return OrderedJSON(std::move(elements));
      }
      default:
        return object(depth - 1);
    }
  }

  /// An object of a few members; now and then a key comes twice.
  CorvaneControl::OrderedJSON object(std::size_t depthOfMembers) {
    CorvaneControl::OrderedJSON::Object members;
    for (std::size_t count = below(5); count > 0; --count) {
      const bool again = !members.empty() && oneIn(8);
      std::string key(again ? std::string(members.front().key()) : string());
      members.push_back({key, value(depthOfMembers)});
    }
    return CorvaneControl::OrderedJSON(std::move(members));
  }

  /// A spelling of a number that no conversion would give back.
  std::string number() {
    std::string text = pick({"", "-"});
    text += oneIn(3) ? std::string("0") : std::to_string(1 + engine_() / 2);
    if (oneIn(2)) text += "." + pick<std::string>({"0", "50", "000", "123456789012345678901"});
    if (oneIn(3)) text += pick<std::string>({"e0", "E+2", "e-007", "E999"});
    return text;
  }

  std::string string() {
    std::string text;
    for (std::size_t count = below(8); count > 0; --count) {
      text += pick<std::string>({"a",
                                 "Z",
                                 " ",
                                 "/",
                                 "\"",
                                 "\\",
                                 "\b",
                                 "\f",
                                 "\n",
                                 "\r",
                                 "\t",
                                 "\x1B",
                                 std::string(1, '\0'),
                                 "\x7F",
                                 "é",
                                 "e\u0301",
                                 "ß",
                                 "日本",
                                 "😀",
                                 "\u2028",
                                 "\uFEFF",
                                 "{",
                                 "]",
                                 ":",
                                 ","});
    }
    return text;
  }

 private:
  std::mt19937_64 engine_;  // the standard fixes its numbers, so a seed means the same everywhere
};

}  // namespace CorvaneTests
