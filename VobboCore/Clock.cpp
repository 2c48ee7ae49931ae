#include "Clock.h"

#include <date/tz.h>
#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cmath>

namespace vobbo {

namespace {

// A small cursor over fixed-layout text; every read fails softly.
struct Cursor {
  std::string_view s;
  size_t i = 0;

  bool atEnd() const { return i >= s.size(); }
  bool peek(char c) const { return i < s.size() && s[i] == c; }
  bool take(char c) {
    if (!peek(c)) return false;
    ++i;
    return true;
  }
  // Exactly n digits.
  std::optional<int> digits(size_t n) {
    if (s.size() - i < n || i > s.size()) return std::nullopt;
    int v = 0;
    for (size_t k = 0; k < n; ++k) {
      char c = s[i + k];
      if (c < '0' || c > '9') return std::nullopt;
      v = v * 10 + (c - '0');
    }
    i += n;
    return v;
  }
  // One or more digits, at most maxDigits.
  std::optional<int> number(size_t maxDigits) {
    size_t start = i;
    int v = 0;
    while (i < s.size() && i - start < maxDigits && s[i] >= '0' && s[i] <= '9')
      v = v * 10 + (s[i++] - '0');
    if (i == start) return std::nullopt;
    return v;
  }
  void skipSpaces() {
    while (i < s.size() && s[i] == ' ') ++i;
  }
  std::string_view word() {
    size_t start = i;
    while (i < s.size() && ((s[i] >= 'A' && s[i] <= 'Z') || (s[i] >= 'a' && s[i] <= 'z'))) ++i;
    return s.substr(start, i - start);
  }
};

bool validDate(int y, int m, int d) {
  if (m < 1 || m > 12 || d < 1) return false;
  return date::year_month_day(date::year(y), date::month(static_cast<unsigned>(m)),
                              date::day(static_cast<unsigned>(d)))
      .ok();
}

double civilMs(int y, int mo, int d, int h, int mi, double seconds) {
  int64_t days = Clock::daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
  return (static_cast<double>(days) * 86400.0 + h * 3600.0 + mi * 60.0 + seconds) * 1000.0;
}

}  // namespace

double Clock::now() {
  using namespace std::chrono;
  return duration<double, std::milli>(system_clock::now().time_since_epoch()).count();
}

int64_t Clock::daysFromCivil(int64_t y, unsigned m, unsigned d) {
  // Howard Hinnant's days_from_civil, valid for the whole proleptic calendar.
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

std::optional<double> Clock::parseISO(std::string_view text) {
  Cursor c{text};
  auto y = c.digits(4);
  if (!y || !c.take('-')) return std::nullopt;
  auto mo = c.digits(2);
  if (!mo || !c.take('-')) return std::nullopt;
  auto d = c.digits(2);
  if (!d || !(c.take('T') || c.take('t') || c.take(' '))) return std::nullopt;
  auto h = c.digits(2);
  if (!h || !c.take(':')) return std::nullopt;
  auto mi = c.digits(2);
  if (!mi || !c.take(':')) return std::nullopt;
  auto sec = c.digits(2);
  if (!sec) return std::nullopt;
  double fraction = 0;
  if (c.take('.') || c.take(',')) {
    double scale = 0.1;
    size_t start = c.i;
    while (!c.atEnd() && text[c.i] >= '0' && text[c.i] <= '9') {
      fraction += (text[c.i++] - '0') * scale;
      scale /= 10;
    }
    if (c.i == start) return std::nullopt;
  }
  if (!validDate(*y, *mo, *d) || *h > 23 || *mi > 59 || *sec > 60) return std::nullopt;
  int offsetMinutes = 0;
  if (c.take('Z') || c.take('z')) {
  } else if (c.peek('+') || c.peek('-')) {
    int sign = text[c.i++] == '-' ? -1 : 1;
    auto oh = c.digits(2);
    if (!oh) return std::nullopt;
    int om = 0;
    if (c.take(':')) {
      auto m = c.digits(2);
      if (!m) return std::nullopt;
      om = *m;
    } else if (!c.atEnd()) {
      auto m = c.digits(2);
      if (!m) return std::nullopt;
      om = *m;
    }
    if (*oh > 23 || om > 59) return std::nullopt;
    offsetMinutes = sign * (*oh * 60 + om);
  }
  if (!c.atEnd()) return std::nullopt;
  return civilMs(*y, *mo, *d, *h, *mi, *sec + fraction) - offsetMinutes * 60000.0;
}

std::string Clock::iso(double ms) {
  if (!std::isfinite(ms)) ms = 0;
  const auto whole = static_cast<int64_t>(std::floor(ms));
  int64_t days = whole >= 0 ? whole / 86400000 : (whole - 86399999) / 86400000;
  int64_t inDay = whole - days * 86400000;
  date::year_month_day ymd{date::sys_days{date::days{days}}};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(ymd.year()),
                     static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                     inDay / 3600000, inDay / 60000 % 60, inDay / 1000 % 60, inDay % 1000);
}

std::optional<double> Clock::parseLstart(std::string_view text, const date::time_zone& zone) {
  static constexpr std::array<std::string_view, 12> kMonths = {
      "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  Cursor c{text};
  c.skipSpaces();
  std::string_view first = c.word();
  c.skipSpaces();
  std::string_view monthWord = first;
  if (!c.atEnd() && (text[c.i] < '0' || text[c.i] > '9')) {  // a weekday came first
    monthWord = c.word();
    c.skipSpaces();
  }
  int month = 0;
  for (size_t k = 0; k < kMonths.size(); ++k) {
    if (monthWord == kMonths[k]) month = static_cast<int>(k) + 1;
  }
  auto day = c.number(2);
  c.skipSpaces();
  auto h = c.digits(2);
  if (!month || !day || !h || !c.take(':')) return std::nullopt;
  auto mi = c.digits(2);
  if (!mi || !c.take(':')) return std::nullopt;
  auto sec = c.digits(2);
  c.skipSpaces();
  auto y = c.digits(4);
  c.skipSpaces();
  if (!sec || !y || !c.atEnd() || !validDate(*y, month, *day) || *h > 23 || *mi > 59 || *sec > 60) {
    return std::nullopt;
  }
  using namespace std::chrono;
  auto localDay = date::local_days(date::year(*y) / month / *day);
  auto local = localDay + hours(*h) + minutes(*mi) + seconds(*sec);
  auto sys = zone.to_sys(local, date::choose::earliest);
  return static_cast<double>(duration_cast<milliseconds>(sys.time_since_epoch()).count());
}

}  // namespace vobbo
