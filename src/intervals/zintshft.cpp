// The next finer interval of an interval: the unit in which the "S"
// alignment of zintnx3 measures a date's place within its interval.

#include <cstring>

#include "intervals/calendar_arith.h"
#include "intervals/interval.h"

namespace {

// The sub-interval of a built-in code: the code itself for an interval
// that is its own finest unit (NONE, OBS, time, DAY, WEEKDAY, TENDAY,
// SEMIMONTH, MONTH, the retail months); -1 for a code without a name
// (reserved, custom, unknown).
int sub_interval_code(int code) {
  switch (code) {
    case kIntWeek:
    case kIntWeekv:
      return kIntDay;
    case kIntQtr:
    case kIntSemiyear:
    case kIntYear:
      return kIntMonth;
    case kIntR445Qtr:
    case kIntR445Yr:
      return kIntR445Mon;
    case kIntR454Qtr:
    case kIntR454Yr:
      return kIntR454Mon;
    case kIntR544Qtr:
    case kIntR544Yr:
      return kIntR544Mon;
    case kIntYearv:
      return kIntWeekv;
    default:
      return interval_base_name(code) != nullptr ? code : -1;
  }
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A custom interval's sub-interval is its name without multiplier and
// shift, when that name still parses; otherwise the interval itself.
void custom_sub_interval(INTERVAL* istr, INTERVAL* sistr) {
  zintstr(istr->token, istr->tokenlen, sistr);
  tchar name[sizeof istr->token] = {};
  int len = istr->tokenlen < 0 ? 0 : istr->tokenlen;
  if (len > static_cast<int>(sizeof name)) len = static_cast<int>(sizeof name);
  std::memcpy(name, istr->token, static_cast<std::size_t>(len));
  const bool plain = sistr->intper <= 1 && sistr->shiftper == 0;
  // A plain name may still end in "1." (a multiplier of 1 written out).
  while (len > 0 && (name[len - 1] == '.' || (plain ? name[len - 1] == '1' : is_digit(name[len - 1])))) --len;
  if (len == 0) return;
  INTERVAL stripped{};
  if (zintstr(name, len, &stripped) == 0) *sistr = stripped;
}

}  // namespace

extern "C" int zintshft(struct INTERVAL* istr, struct INTERVAL* sistr) {
  if (sistr == nullptr) return 2;
  if (istr == nullptr) {
    *sistr = INTERVAL{};
    return 2;
  }
  const int code = istr->intcode;
  if (code == kIntCustom) {
    custom_sub_interval(istr, sistr);
    return 0;
  }

  char text[24] = {};  // "DT", "SEMIMONTH" or "WEEKDAY", seven weekend digits, "W", NUL
  std::size_t len = 0;
  const auto append = [&](const char* part) {
    const std::size_t n = std::strlen(part);
    std::memcpy(text + len, part, n);
    len += n;
  };
  const int sub = sub_interval_code(code);
  if (sub < 0) {
    *sistr = INTERVAL{};
    return 2;
  }
  if (istr->units == kUnitsDatetime) append("DT");
  append(interval_base_name(sub));
  if (sub == kIntWeekday && !calendar::is_default_weekend(*istr)) {
    for (int w = 0; w < 7; ++w) {
      if (istr->weekend[w] != 0) text[len++] = static_cast<char>('1' + w);
    }
    text[len++] = 'W';
  }
  text[len] = '\0';
  zintstr(text, -1, sistr);
  return 0;
}
