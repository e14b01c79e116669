// Interval fitting: the interval that carries one time value onto the next.
//
//   zintfit(d("2001-01-01"), d("2001-04-01"), "d", &iv, &info)  // QTR
//   zintfit(d("2001-05-08"), d("2001-05-15"), "d", &iv, &info)  // WEEK.3
//   zintfit(3700.0, 3790.0, "s", &iv, nullptr)                   // DTSECOND90.11
//
// A candidate is tried by counting its boundaries from d1 to d2 (that count
// becomes the multiplier), placing d1 within its period with a finer shift
// interval (that place becomes the shift) and checking that advancing d1 by
// one period with alignment "S" lands exactly on d2. Date values go through
// the candidates by their distance first, then by the days of the month;
// datetimes a whole number of days apart at one time of day are dates with
// the prefix DT, others are hours, minutes or seconds.

#include <cmath>
#include <cstdio>
#include <cstring>

#include "host/host_dates.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// The token holds at most this many characters before its terminating 0.
constexpr int kTokenCapacity = static_cast<int>(sizeof(INTERVAL::token)) - 1;
constexpr double kSecondsPerDay = 86400.0;

// Appends `text` to the token; false when it doesn't fit.
bool append_token(INTERVAL* interval, const char* text) {
  const int add = static_cast<int>(std::strlen(text));
  const int len = interval->tokenlen < 0 ? 0 : interval->tokenlen;
  if (len + add > kTokenCapacity) return false;
  std::memcpy(interval->token + len, text, static_cast<std::size_t>(add));
  interval->token[len + add] = 0;
  interval->tokenlen = static_cast<short>(len + add);
  return true;
}

// The INTERVALX that holds a copy of `iv`, for the season-aware routines;
// its custom table reference, when one is picked up, is released on exit.
struct LocalX {
  INTERVALX x{};
  explicit LocalX(const INTERVAL& iv) { static_cast<INTERVAL&>(x) = iv; }
  LocalX(const LocalX&) = delete;
  LocalX& operator=(const LocalX&) = delete;
  ~LocalX() {
    if (x.cinfo != nullptr) zcintcReleaseRef(x.cinfo);
  }
};

// fit: the interval and the shift interval from their names, then
// fitInterval. 0 when the interval carries d1 onto d2.
int fit(const char* name, const char* shift_name, double d1, double d2, INTERVAL* interval) {
  INTERVAL shift{};
  if (zintstr(const_cast<char*>(name), -1, interval) != 0) return 1;
  if (zintstr(const_cast<char*>(shift_name), -1, &shift) != 0) return 1;
  return fitInterval(interval, &shift, d1, d2);
}

bool is_one_of(int day, int a, int b, int c = -1) { return day == a || day == b || day == c; }

// The search over date values; 0 when an interval fits.
int fit_dates(double d1, double d2, double dt, INTERVAL* interval) {
  int m1 = 0, day1 = 0, y1 = 0, m2 = 0, day2 = 0, y2 = 0, mn = 0, nday1 = 0, yn = 0, nday2 = 0;
  zidmdyd(&m1, &day1, &y1, d1);
  zidmdyd(&m2, &day2, &y2, d2);
  zidmdyd(&mn, &nday1, &yn, d1 + 1.0);
  zidmdyd(&mn, &nday2, &yn, d2 + 1.0);

  // By the distance.
  if (dt == 1.0) return zintstr(const_cast<char*>("DAY"), -1, interval) == 0 ? 0 : 1;
  if (dt == 3.0 && zwekday(d1) == 6.0) {
    if (fit("WEEKDAY", "WEEKDAY", d1, d2, interval) == 0) return 0;
  } else if (dt >= 2.0 && dt <= 6.0) {
    if (fit("DAY", "DAY", d1, d2, interval) == 0) return 0;
  } else if (dt == 7.0) {
    if (fit("WEEK", "DAY", d1, d2, interval) == 0) return 0;
  } else if (dt >= 8.0 && dt <= 11.0) {
    if (is_one_of(day1, 1, 11, 21) && is_one_of(day2, 1, 11, 21) && fit("TENDAY", "TENDAY", d1, d2, interval) == 0) {
      return 0;
    }
  } else if (dt >= 13.0 && dt <= 16.0) {
    if (is_one_of(day1, 1, 16) && is_one_of(day2, 1, 16) && fit("SEMIMONTH", "SEMIMONTH", d1, d2, interval) == 0) {
      return 0;
    }
  } else if (dt >= 28.0) {
    if (day1 == day2 || nday1 == 1 || nday2 == 1) {
      INTERVAL month{};
      zintic(kIntMonth, &month);
      const double months = zintck2(&month, d1, d2);
      const long long k = esf::is_missing(months) ? 1 : static_cast<long long>(months);
      const char* name = k % 12 == 0 ? "YEAR" : k % 6 == 0 ? "SEMIYEAR" : k % 3 == 0 ? "QTR" : "MONTH";
      if (fit(name, "MONTH", d1, d2, interval) == 0) return 0;
    } else if (dt == 364.0 || dt == 371.0) {
      if (fit("YEAR", "WEEK", d1, d2, interval) == 0) return 0;
    }
  }

  // By the days of the month.
  bool fitted = false;
  if (is_one_of(day1, 1, 16) && is_one_of(day2, 1, 16)) {
    fitted = fit("SEMIMONTH", "SEMIMONTH", d1, d2, interval) == 0;
  } else if (is_one_of(day1, 1, 11, 21) && is_one_of(day2, 1, 11, 21)) {
    fitted = fit("TENDAY", "TENDAY", d1, d2, interval) == 0;
  } else {
    fitted = fit("SEMIMONTH", "SEMIMONTH", d1, d2, interval) == 0 || fit("TENDAY", "TENDAY", d1, d2, interval) == 0;
  }
  if (fitted) return 0;

  if (std::fmod(dt, 7.0) == 0.0) return fit("WEEK", "DAY", d1, d2, interval);
  return fit("DAY", "DAY", d1, d2, interval);
}

// The search over datetime values; 0 when an interval fits.
int fit_datetimes(double d1, double d2, double dt, INTERVAL* interval, INTINFO* info) {
  const double d1days = std::floor(d1 / kSecondsPerDay);
  const double d2days = std::floor(d2 / kSecondsPerDay);
  if (ztimprt(d1) == ztimprt(d2)) {
    char days_units = kUnitsDate;
    if (zintfit(d1days, d2days, &days_units, interval, info) != 0) return 1;
    char text[17] = {};
    const int len = std::snprintf(text, sizeof text, "DT%.*s", static_cast<int>(interval->tokenlen), interval->token);
    return zintstr(text, len < 16 ? len : 16, interval) == 0 ? 0 : 1;
  }
  // A distance beyond 2^62 seconds is no hour or minute count of the library.
  const long long i = dt < 4.6e18 ? static_cast<long long>(dt) : 1;
  if (i % 3600 == 0) {
    if (fit("DTHOUR", "DTHOUR", d1, d2, interval) == 0) return 0;
  } else if (i % 60 == 0) {
    if (fit("DTMINUTE", "DTMINUTE", d1, d2, interval) == 0) return 0;
  }
  return fit("DTSECOND", "DTSECOND", d1, d2, interval);
}

}  // namespace

extern "C" int shift2(struct INTERVAL* interval, struct INTERVAL* shift_interval, double d1, double d2) {
  const double d10 = zintnx2(interval, d1, 0.0);
  const double d20 = zintnx2(interval, d2, 0.0);
  const double s1 = zintck2(shift_interval, d10, d1);
  const double s2 = zintck2(shift_interval, d20, d2);
  if (esf::is_missing(s1) || esf::is_missing(s2) || s1 != s2) return 1;
  if (!(s1 >= 0.0 && s1 < 2147483647.0)) return 1;  // a shift counts forward within one period
  interval->shiftper = static_cast<int>(s1);
  if (interval->shiftper != 0) {
    char text[16] = {};
    std::snprintf(text, sizeof text, ".%d", interval->shiftper + 1);
    if (!append_token(interval, text)) return 1;
  }
  return 0;
}

extern "C" int fitInterval(struct INTERVAL* interval, struct INTERVAL* shift_interval, double d1, double d2) {
  double q = 0.0;
  if (interval->intcode == kIntYear && shift_interval->intcode == kIntWeek) {
    LocalX a(*interval);
    LocalX b(*shift_interval);
    q = zintck_seas(&a.x, d1, d2, &b.x);
  } else {
    q = zintck2(interval, d1, d2);
  }
  if (esf::is_missing(q) || !(q > 0.0)) return 1;
  if (q > 1.0) {
    // A multiplier beyond the range of the record fits nothing.
    if (q >= 2147483648.0) return 1;
    interval->intper = static_cast<int>(q);
    char text[16] = {};
    std::snprintf(text, sizeof text, "%d", interval->intper);
    if (!append_token(interval, text)) return 1;
  }
  if (!(zintnx2(interval, d1, 0.0) == d1 && zintnx2(interval, d1, 1.0) == d2)) {
    if (shift2(interval, shift_interval, d1, d2) != 0) return 1;
  }
  char same[2] = {'S', 0};
  return zintnx3(interval, d1, 1.0, same, nullptr) == d2 ? 0 : 1;
}

extern "C" int zintfit(double d1, double d2, char* units, struct INTERVAL* interval, struct INTINFO* info) {
  if (interval == nullptr) return 1;
  *interval = INTERVAL{};
  if (info != nullptr) *info = INTINFO{};
  if (esf::is_missing(d1) || esf::is_missing(d2)) return 2;
  const double dt = std::floor(d2) - std::floor(d1);
  if (!(dt >= 1.0)) return 3;

  int rc = 1;
  const char kind = units != nullptr ? *units : 0;
  if (kind == kUnitsObs) {
    rc = fit("OBS", "OBS", d1, d2, interval);
  } else if (kind == kUnitsDatetime) {
    rc = fit_datetimes(d1, d2, dt, interval, info);
  } else if (kind == kUnitsDate) {
    rc = fit_dates(d1, d2, dt, interval);
  }
  if (rc != 0) {
    *interval = INTERVAL{};
    interval->units = kUnitsNone;
    interval->intcode = kIntNone;
    interval->intper = 1;
    return 1;
  }
  if (info != nullptr) {
    short width2 = 0;
    zintsea(interval, d1, &info->sinterval, &info->nseasons);
    zintfmt(interval, info->format, &info->formatl, &info->formatw, &width2);
  }
  return 0;
}
