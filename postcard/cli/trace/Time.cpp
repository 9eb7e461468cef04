#include "postcard/cli/trace/Time.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>

namespace Postcard::Cli::Trace {

namespace {

constexpr Microseconds second = 1'000'000;
constexpr double latest = 253'402'300'799; // the last second of the year 9999

// Reads the parts of a text from left to right. After the first part that is not as expected,
// `atEnd` returns false for ever and the numbers returned have no meaning. So a caller reads all
// parts and asks once, at the end.
class Scanner {
 public:
   explicit Scanner(std::string_view text) : left_{text} {}

   // A number of exactly `count` digits, from `low` to `high`.
   int digits(std::size_t count, int low, int high) {
      int number = -1;
      if (left_.size() >= count && left_.find_first_not_of("0123456789") >= count) {
         std::from_chars(left_.data(), left_.data() + count, number);
         left_.remove_prefix(count);
      }
      good_ = good_ && number >= low && number <= high;
      return number;
   }
   // The next character, which must be one of `characters`.
   char oneOf(std::string_view characters) {
      const char c = left_.empty() ? '\0' : left_.front();
      good_ = good_ && c != '\0' && characters.find(c) != std::string_view::npos;
      left_.remove_prefix(left_.empty() ? 0 : 1);
      return c;
   }
   // A fraction of a second, which is `.` and at least one digit, or nothing. Digits behind the
   // sixth count as 0: `unit` is 0 for them.
   Microseconds fraction() {
      if (left_.empty() || left_.front() != '.') {
         return 0;
      }
      left_.remove_prefix(1);
      good_ = good_ && !left_.empty() && left_.front() >= '0' && left_.front() <= '9';
      Microseconds value = 0;
      Microseconds unit = second;
      for (; !left_.empty() && left_.front() >= '0' && left_.front() <= '9';
           left_.remove_prefix(1)) {
         unit /= 10;
         value += unit * (left_.front() - '0');
      }
      return value;
   }
   bool atEnd() const { return good_ && left_.empty(); }

 private:
   std::string_view left_;
   bool good_ = true;
};

// The offset from UTC at the end of a time (RFC 3339, 5.6): `Z`, or a sign, hours and minutes.
Microseconds offsetOf(Scanner& scanner) {
   const char sign = scanner.oneOf("Zz+-");
   if (sign != '+' && sign != '-') {
      return 0;
   }
   const Microseconds hours = scanner.digits(2, 0, 23);
   scanner.oneOf(":");
   const Microseconds offset = (hours * 60 + scanner.digits(2, 0, 59)) * 60 * second;
   return sign == '-' ? -offset : offset;
}

// A time of RFC 3339. It allows a blank in place of the `T` and small letters (5.6, notes).
std::optional<Microseconds> pointOf(std::string_view text) {
   Scanner scanner{text};
   const int year = scanner.digits(4, 0, 9999);
   scanner.oneOf("-");
   const int month = scanner.digits(2, 1, 12);
   scanner.oneOf("-");
   const int day = scanner.digits(2, 1, 31);
   scanner.oneOf("Tt ");
   const int hour = scanner.digits(2, 0, 23);
   scanner.oneOf(":");
   const int minute = scanner.digits(2, 0, 59);
   scanner.oneOf(":");
   const int seconds = scanner.digits(2, 0, 60); // 60 in a minute with a leap second
   const Microseconds fraction = scanner.fraction();
   const Microseconds offset = offsetOf(scanner);
   // After a mistake, a number may be -1: `date` then has no meaning, and the check below fails.
   const std::chrono::year_month_day date{std::chrono::year{year},
                                          std::chrono::month{static_cast<unsigned>(month)},
                                          std::chrono::day{static_cast<unsigned>(day)}};
   if (!scanner.atEnd() || !date.ok()) {
      return std::nullopt;
   }
   const Microseconds days = std::chrono::sys_days{date}.time_since_epoch().count();
   return (((days * 24 + hour) * 60 + minute) * 60 + seconds) * second + fraction - offset;
}

// How many microseconds the unit has; 0 for a letter that is no unit.
Microseconds unitOf(char letter) {
   switch (letter) {
   case 's':
      return second;
   case 'm':
      return 60 * second;
   case 'h':
      return 3600 * second;
   case 'd':
      return 86'400 * second;
   default:
      return 0;
   }
}

// A whole number and a unit, such as "5m".
std::optional<Microseconds> ageOf(std::string_view text) {
   Microseconds number = 0;
   const char* last = text.data() + text.size();
   const auto [end, error] = std::from_chars(text.data(), last, number);
   if (error != std::errc{} || last - end != 1 || number < 0) {
      return std::nullopt;
   }
   // A century: no ring reaches back so far, and the product below cannot overflow.
   constexpr Microseconds most = Microseconds{36'600} * 86'400 * second;
   const Microseconds unit = unitOf(*end);
   return unit == 0 || number > most / unit ? std::nullopt : std::optional{number * unit};
}

} // namespace

Microseconds microsecondsOf(double seconds) {
   return std::llround(std::clamp(seconds, 0.0, latest) * 1e6);
}

std::string timeText(Microseconds time) {
   const std::chrono::sys_time<std::chrono::microseconds> point{std::chrono::microseconds{time}};
   const auto day = std::chrono::floor<std::chrono::days>(point);
   const std::chrono::year_month_day date{day};
   const std::chrono::hh_mm_ss clock{point - day};
   return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                      clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                      clock.subseconds().count());
}

std::optional<Microseconds> timeOf(std::string_view text, Microseconds now) {
   if (const auto age = ageOf(text)) {
      return now - *age;
   }
   return pointOf(text);
}

} // namespace Postcard::Cli::Trace
