#include "CorvaneControl/Date.h"

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace CorvaneControl {

namespace {

using std::chrono::day;
using std::chrono::month;
using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month_day;

constexpr std::int64_t secondsOfDay = 86'400;

constexpr std::int64_t startOfDay(year_month_day date) {
  return std::int64_t{sys_days(date).time_since_epoch().count()} * secondsOfDay;
}
constexpr std::int64_t earliest = startOfDay(year(0) / month(1) / day(1));
constexpr std::int64_t latest = startOfDay(year(9999) / month(12) / day(31)) + secondsOfDay - 1;

/// Takes `count` ASCII digits off the front of `text`, as a number.
std::optional<int> takeNumber(std::string_view& text, std::size_t count) {
  if (text.size() < count) return std::nullopt;
  int number = 0;
  for (const char digit : text.substr(0, count)) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  text.remove_prefix(count);
  return number;
}

bool take(std::string_view& text, char expected) {
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<std::int64_t> takeDay(std::string_view& text) {
  const auto years = takeNumber(text, 4);
  if (!years || !take(text, '-')) return std::nullopt;
  const auto months = takeNumber(text, 2);
  if (!months || !take(text, '-')) return std::nullopt;
  const auto days = takeNumber(text, 2);
  if (!days) return std::nullopt;
  const year_month_day date =
      year(*years) / month(static_cast<unsigned>(*months)) / day(static_cast<unsigned>(*days));
  if (!date.ok()) return std::nullopt;
  return startOfDay(date);
}

/// Hours and minutes ("09:26"), in seconds.
std::optional<std::int64_t> takeMinutes(std::string_view& text) {
  const auto hours = takeNumber(text, 2);
  if (!hours || *hours > 23 || !take(text, ':')) return std::nullopt;
  const auto minutes = takeNumber(text, 2);
  if (!minutes || *minutes > 59) return std::nullopt;
  return std::int64_t{*hours} * 3600 + std::int64_t{*minutes} * 60;
}

/// Hours, minutes and seconds ("09:26:53"), in seconds.
std::optional<std::int64_t> takeTime(std::string_view& text) {
  const auto minutes = takeMinutes(text);
  if (!minutes || !take(text, ':')) return std::nullopt;
  const auto seconds = takeNumber(text, 2);
  if (!seconds || *seconds > 59) return std::nullopt;
  return *minutes + *seconds;
}

/// "Z" or an offset from UTC ("+01:00"), in seconds.
std::optional<std::int64_t> takeOffset(std::string_view& text) {
  if (take(text, 'Z')) return 0;
  const bool ahead = take(text, '+');
  if (!ahead && !take(text, '-')) return std::nullopt;
  const auto offset = takeMinutes(text);
  if (!offset) return std::nullopt;
  return ahead ? *offset : -*offset;
}

/// Writes `number` with so many digits, and gives the place behind them.
char* writeNumber(char* place, std::int64_t number, int digits) {
  for (int digit = digits - 1; digit >= 0; --digit, number /= 10) {
    place[digit] = static_cast<char>('0' + number % 10);
  }
  return place + digits;
}

}  // namespace

Date Date::now() {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  const nanoseconds elapsed = std::chrono::system_clock::now().time_since_epoch();
  const auto whole = std::chrono::floor<seconds>(elapsed);
  return {whole.count(), static_cast<std::uint32_t>((elapsed - whole).count())};
}

std::optional<Date> Date::parse(std::string_view text) {
  const auto day = takeDay(text);
  if (!day || !take(text, 'T')) return std::nullopt;
  const auto time = takeTime(text);
  if (!time) return std::nullopt;
  const auto offset = takeOffset(text);
  if (!offset || !text.empty()) return std::nullopt;
  const std::int64_t seconds = *day + *time - *offset;
  if (seconds < earliest || seconds > latest) return std::nullopt;
  return Date{seconds};
}

std::string Date::text() const {
  std::string text(textSize, '\0');
  write(text.data());
  return text;
}

void Date::write(char* place) const {
  const std::int64_t written = std::clamp(seconds, earliest, latest);
  const auto days = std::chrono::floor<std::chrono::days>(std::chrono::seconds(written));
  const year_month_day date{sys_days(days)};
  const std::int64_t time = written - startOfDay(date);
  place = writeNumber(place, int{date.year()}, 4);
  *place++ = '-';
  place = writeNumber(place, unsigned{date.month()}, 2);
  *place++ = '-';
  place = writeNumber(place, unsigned{date.day()}, 2);
  *place++ = 'T';
  place = writeNumber(place, time / 3600, 2);
  *place++ = ':';
  place = writeNumber(place, time / 60 % 60, 2);
  *place++ = ':';
  place = writeNumber(place, time % 60, 2);
  *place = 'Z';
}

}  // namespace CorvaneControl
