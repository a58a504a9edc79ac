#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace CorvaneControl {

/// A point in time, in whole seconds.
struct Date {
  std::int64_t seconds = 0;  ///< Since 1970-01-01T00:00:00Z, leap seconds not counted.

  static Date now();
  /// Reads ISO 8601 with "Z" or an offset ("2025-03-14T09:26:53Z", "2025-03-14T10:26:53+01:00") in
  /// the years 0 to 9999 of UTC. Fractions of a second, other forms and impossible dates are
  /// absent.
  static std::optional<Date> parse(std::string_view text);
  /// ISO 8601 in UTC with "Z". A point in time outside the years 0 to 9999 is written as the
  /// nearest within, so that whatever is written can be read.
  std::string text() const;

  auto operator<=>(const Date&) const = default;
};

}  // namespace CorvaneControl
