#include "host/time_text.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fmt/compile.h>
#include <fmt/format.h>

#include "common/civil_days.h"
#include "host/host_dates.h"
#include "host/number_text.h"
#include "primitives/primitives.h"

namespace esf::host {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A sign, digits with at most one point among them, and an exponent: a
// number with no blank, hexadecimal prefix or name.
bool plain_decimal(std::string_view s) {
  std::size_t i = 0, digits = 0;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  for (; i < s.size() && is_digit(s[i]); ++i) ++digits;
  if (i < s.size() && s[i] == '.') {
    for (++i; i < s.size() && is_digit(s[i]); ++i) ++digits;
  }
  if (digits == 0) return false;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    std::size_t exponent = 0;
    for (; i < s.size() && is_digit(s[i]); ++i) ++exponent;
    if (exponent == 0) return false;
  }
  return i == s.size();
}

// Exactly `width` digits at text[*pos].
bool digits(std::string_view text, std::size_t* pos, std::size_t width, int* out) {
  if (*pos + width > text.size()) return false;
  int v = 0;
  for (std::size_t i = *pos; i < *pos + width; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    v = v * 10 + (text[i] - '0');
  }
  *pos += width;
  *out = v;
  return true;
}

bool expect(std::string_view text, std::size_t* pos, char c) {
  if (*pos >= text.size() || text[*pos] != c) return false;
  ++*pos;
  return true;
}

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r' || s.front() == '\n')) {
    s.remove_prefix(1);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n')) {
    s.remove_suffix(1);
  }
  return s;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const char x = a[i] >= 'a' && a[i] <= 'z' ? static_cast<char>(a[i] - 'a' + 'A') : a[i];
    if (x != b[i]) return false;
  }
  return true;
}

}  // namespace

std::optional<TimeText> read_time_text(std::string_view text) {
  text = trimmed(text);
  std::size_t pos = 0;
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) ++pos;
  std::size_t year_end = pos;
  while (year_end < text.size() && text[year_end] >= '0' && text[year_end] <= '9') ++year_end;
  const std::size_t year_width = year_end - pos;
  int year = 0, month = 0, day = 1;
  if (year_width < 4 || year_width > 5 || !digits(text, &pos, year_width, &year)) return std::nullopt;
  if (negative) year = -year;
  if (!expect(text, &pos, '-') || !digits(text, &pos, 2, &month) || month < 1 || month > 12) return std::nullopt;
  TimeText t;
  if (pos == text.size()) {  // YYYY-MM: the month's first day
    t.day = static_cast<double>(calendar::days_from_civil(year, month, 1));
    return t;
  }
  if (!expect(text, &pos, '-') || !digits(text, &pos, 2, &day) || day < 1 ||
      day > calendar::last_day_of_month(year, month)) {
    return std::nullopt;
  }
  t.day = static_cast<double>(calendar::days_from_civil(year, month, day));
  if (pos == text.size()) return t;

  const char sep = text[pos++];
  if (sep != 'T' && sep != 't' && sep != ' ') return std::nullopt;
  int hour = 0, minute = 0;
  if (!digits(text, &pos, 2, &hour) || !expect(text, &pos, ':') || !digits(text, &pos, 2, &minute) || hour > 23 ||
      minute > 59) {
    return std::nullopt;
  }
  double second = 0.0;
  if (pos < text.size()) {
    int whole = 0;
    if (!expect(text, &pos, ':') || !digits(text, &pos, 2, &whole) || whole > 59) return std::nullopt;
    second = whole;
    if (pos < text.size()) {
      if (text[pos] != '.' || pos + 1 == text.size()) return std::nullopt;
      double scale = 0.1;
      for (++pos; pos < text.size(); ++pos, scale /= 10) {
        if (text[pos] < '0' || text[pos] > '9') return std::nullopt;
        second += (text[pos] - '0') * scale;
      }
      if (second >= 60.0) second = std::nextafter(60.0, 0.0);  // 59.9999... rounded up stays in the minute
    }
  }
  t.second = hour * 3600.0 + minute * 60.0 + second;
  t.has_time = true;
  return t;
}

std::optional<double> read_missing_text(std::string_view text) {
  text = trimmed(text);
  if (text.empty() || text == "." || equals_ignoring_case(text, "NA") || equals_ignoring_case(text, "NAN")) {
    return esf::kMissing;
  }
  if (text.size() != 2 || text[0] != '.') return std::nullopt;
  const char c = text[1];
  if (c == '_') return esf::missing_entry(0);
  if (c >= 'A' && c <= 'Z') return esf::missing_letter(c);
  if (c >= 'a' && c <= 'z') return esf::missing_letter(static_cast<char>(c - 'a' + 'A'));
  return std::nullopt;
}

std::optional<double> read_number_text(std::string_view text) {
  text = trimmed(text);
  if (text.empty()) return std::nullopt;
  if (plain_decimal(text)) {
    // from_chars reads a plain decimal to the same double as strtod (both
    // round correctly), without a copy; a value out of range goes to strtod,
    // which keeps a subnormal result.
    const std::string_view body = text.front() == '+' ? text.substr(1) : text;
    double v = 0.0;
    const auto [end, ec] = std::from_chars(body.data(), body.data() + body.size(), v);
    if (ec == std::errc{} && end == body.data() + body.size())
      return std::isfinite(v) ? std::optional(v) : std::nullopt;
  }
  const std::string copy(text);  // strtod needs a terminated string
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(copy.c_str(), &end);
  if (end != copy.c_str() + copy.size() || !std::isfinite(v)) return std::nullopt;
  // ERANGE also reports an underflow, whose result is still the nearest double.
  if (errno == ERANGE && std::fabs(v) >= 1.0) return std::nullopt;
  return v;
}

static_assert(kMaxTimeTextChars >= kMaxNumberChars, "a time that is a number is written by write_number");

char* write_time_text(char* out, double t, TimeForm form) {
  if (!std::isfinite(t)) return out;
  if (form == TimeForm::kNumber) return write_number(out, t);
  double days = t;
  double seconds = 0.0;
  if (form == TimeForm::kDatetime) {
    days = std::floor(t / 86400.0);
    seconds = t - days * 86400.0;
  }
  int m = 0, d = 0, y = 0;
  if (zidmdyd(&m, &d, &y, days) != 0) return write_number(out, t);
  out = fmt::format_to(out, FMT_COMPILE("{:04d}-{:02d}-{:02d}"), y, m, d);
  if (form == TimeForm::kDate) return out;
  const long whole = static_cast<long>(std::floor(seconds));
  const double frac = seconds - static_cast<double>(whole);
  out = fmt::format_to(out, FMT_COMPILE("T{:02d}:{:02d}:{:02d}"), whole / 3600, whole / 60 % 60, whole % 60);
  if (frac > 0.0) {
    // Fractions of a second keep three decimals, without the leading digit.
    char f[kMaxTimeTextChars];
    const char* end = fmt::format_to(f, FMT_COMPILE("{:.3f}"), frac);
    for (const char* p = f + 1; p < end; ++p) *out++ = *p;
  }
  return out;
}

std::string write_time_text(double t, TimeForm form) {
  char text[kMaxTimeTextChars];
  return std::string(text, write_time_text(text, t, form));
}

}  // namespace esf::host
