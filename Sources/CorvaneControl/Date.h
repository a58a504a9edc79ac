#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneControl/Hash.h"

namespace CorvaneControl {

/// A point in time. What is written has whole seconds only, so it reads back as the same point only
/// without a fraction: compare what was read with what was read.
struct Date {
  std::int64_t seconds = 0;       ///< Since 1970-01-01T00:00:00Z, leap seconds not counted.
  std::uint32_t nanoseconds = 0;  ///< After `seconds`, below 1,000,000,000.

  static constexpr std::size_t textSize = 20;  ///< Bytes of the text form.

  static Date now();
  /// Reads ISO 8601 with "Z" or an offset ("2025-03-14T09:26:53Z", "2025-03-14T10:26:53+01:00") in
  /// the years 0 to 9999 of UTC. Fractions of a second, other forms and impossible dates are
  /// absent.
  static std::optional<Date> parse(std::string_view text);
  /// ISO 8601 in UTC with "Z", without the fraction of the second. A point in time outside the
  /// years 0 to 9999 is written as the nearest within, so that whatever is written can be read.
  std::string text() const;
  /// Writes the `textSize` bytes of that text to `place`.
  void write(char* place) const;

  auto operator<=>(const Date&) const = default;
};

}  // namespace CorvaneControl

template <>
struct std::hash<CorvaneControl::Date> {
  std::size_t operator()(const CorvaneControl::Date& date) const noexcept {
    return static_cast<std::size_t>(
        CorvaneControl::combinedHash(static_cast<std::uint64_t>(date.seconds), date.nanoseconds));
  }
};
