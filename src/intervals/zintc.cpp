// zintc: how two intervals relate. The answer is
//
//   0      the same interval
//   k > 1  every interval of a holds k intervals of b (-k: the other way)
//   1      a holds a whole but varying number of b, as a MONTH holds days (-1: the other way)
//   .M     the lengths aren't multiples of each other
//   .S     the lengths are multiples, but the boundaries don't coincide
//   .B     the two belong to calendars that have no relation
//   .W     two WEEKDAY intervals with different weekends don't nest
//   .E     an internal inconsistency in the codes
//   .      no relation can be stated
//
//   zintc(QTR, MONTH)           //  3
//   zintc(MONTH, DAY)           //  1
//   zintc(HOUR, DAY)            // -24
//   zintc("MONTH3.2", QTR)      // .S
//   zintc(YEAR, R445YR)         // .B
//
// Both intervals are reduced to a count and an offset in one common unit
// (seconds, days, weeks, working days, thirds or halves of months, months),
// and `compare` then decides on the two lengths and offsets. Each family of
// `a` has one routine that picks the unit for every family of `b`; a pair
// that another family's routine already handles is passed to it swapped,
// and its answer changes sign.

#include <cstdlib>
#include <numeric>

#include "intervals/interval.h"
#include "module/host_api.h"
#include "primitives/primitives.h"

namespace {

const double kNoRelation = esf::kMissing;               // "."
const double kNotMultiple = esf::missing_letter('M');   // ".M"
const double kShifted = esf::missing_letter('S');       // ".S"
const double kUnrelated = esf::missing_letter('B');     // ".B"
const double kWeekends = esf::missing_letter('W');      // ".W"
const double kInconsistent = esf::missing_letter('E');  // ".E"

bool same_missing(double d, double kind) {
  return esf::is_missing(d) && esf::missing_kind(d) == esf::missing_kind(kind);
}

// The answer of a routine called with the two intervals exchanged.
double swapped(double d) { return (esf::is_missing(d) || d == 0.0) ? d : -d; }

// Remainder in [0, m - 1] for m > 0.
long reduce(long v, long m) {
  const long r = v % m;
  return r < 0 ? r + m : r;
}

bool is_retail_month(int code) { return code >= kIntR445Mon && code <= kIntR544Mon; }
bool is_retail_quarter(int code) { return code >= kIntR445Qtr && code <= kIntR544Qtr; }
bool is_retail_year(int code) { return code >= kIntR445Yr && code <= kIntR544Yr; }
bool is_retail(int code) { return is_retail_month(code) || is_retail_quarter(code) || is_retail_year(code); }
bool is_time(int code) { return code == kIntSecond || code == kIntMinute || code == kIntHour; }

// Seconds in one SECOND, MINUTE or HOUR.
long seconds_in(int time_code) { return time_code == kIntHour ? 3600 : time_code == kIntMinute ? 60 : 1; }

// Units of a month-type interval to a month: 1 for the month family, 2 for
// SEMIMONTH, 3 for TENDAY; 0 for any other code.
int units_per_month(int code) {
  switch (code) {
    case kIntMonth:
    case kIntQtr:
    case kIntSemiyear:
    case kIntYear:
      return 1;
    case kIntSemimonth:
      return 2;
    case kIntTenday:
      return 3;
    default:
      return 0;
  }
}

// The intervals counted in months or parts of months, TENDAY to YEAR.
bool is_month_type(int code) { return units_per_month(code) != 0; }

// 445, 454 or 544 for a retail code, else 0.
int retail_calendar(int code) {
  if (!is_retail(code)) return 0;
  switch ((code - kIntR445Mon) % 5) {
    case 0:
      return 445;
    case 1:
      return 454;
    default:
      return 544;
  }
}

// Months in one base interval of a retail code.
long retail_months(int code) {
  if (is_retail_quarter(code)) return 3;
  if (is_retail_year(code)) return 12;
  return 1;
}

long multiplier(const INTERVAL* iv) { return iv->intper < 1 ? 1 : iv->intper; }

// What every routine answers for a b code it has no row for.
double unknown_b(int bi) {
  if (bi != kIntCustom) xebug("zintc: forgot a B code: %i", bi);
  return kNoRelation;
}

// Two lengths and offsets in one unit.
double compare(long an, long as, long bn, long bs) {
  if (an == bn) return as == bs ? 0.0 : kShifted;
  if (an < bn) {
    if (bn % an != 0) return kNotMultiple;
    if (bs % an != as) return kShifted;
    return -static_cast<double>(bn / an);
  }
  if (an % bn != 0) return kNotMultiple;
  if (as % bn != bs) return kShifted;
  return static_cast<double>(an / bn);
}

double compmon(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compsmon(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double comptenday(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compweek(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compretmon(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compweekcal(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compisowk(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compRetWkv(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compday(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compweekday(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compsec(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double comp_weekday_retail(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);
double compDayWkvMult(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs);

// Whether a calendar interval holds whole b intervals: 1 when it does, as a
// month holds days or hours.
double moncheck(int bi, long bn, long bs) {
  switch (bi) {
    case kIntObs:
    case kIntWeekday:
    case kIntWeek:
      return kUnrelated;
    case kIntSecond:
      return (bn <= 86400 && 86400 % bn == 0) ? 1.0 : kNoRelation;
    case kIntMinute:
      return (bn <= 1440 && 1440 % bn == 0) ? 1.0 : kNoRelation;
    case kIntHour:
      return (bn <= 24 && 24 % bn == 0) ? 1.0 : kNoRelation;
    case kIntDay:
      return (bn == 1 && bs == 0) ? 1.0 : kNoRelation;
    default:
      return kNoRelation;
  }
}

// ---- Working days ------------------------------------------------------

bool weekend_day(const INTERVAL* iv, long weekday) { return iv->weekend[reduce(weekday, 7)] != 0; }

// Day of the week (0 Sunday) on which the WEEKDAY boundary falls, as a
// shift for a WEEK interval. *offset, when given, receives the boundary's
// day offset from day 0 (a Friday) before it is turned into a day of the
// week. A record that isn't a WEEKDAY gives the integer value of .E.
long wkdyS2wkS(INTERVAL* wkdy_int, long* offset = nullptr) {
  if (wkdy_int->intcode != kIntWeekday) return static_cast<long>(kInconsistent);
  // The working day at or before day 0 (a Friday, position 5).
  long p = 5;
  for (int guard = 0; guard < 7 && weekend_day(wkdy_int, p); ++guard) p = p == 0 ? 6 : p - 1;
  long o = p - 5 > 0 ? p - 12 : p - 5;  // [-6, 0]
  // shiftper working days further on, then past any weekend.
  long pos = p;
  for (long passed = 0; passed < wkdy_int->shiftper;) {
    ++o;
    pos = pos == 6 ? 0 : pos + 1;
    if (!weekend_day(wkdy_int, pos)) ++passed;
  }
  for (int guard = 0; guard < 7 && weekend_day(wkdy_int, pos); ++guard) {
    ++o;
    pos = pos == 6 ? 0 : pos + 1;
  }
  const long w = multiplier(wkdy_int) / wkdy_int->nweekday;
  if (o > 0) o -= 7 * w;
  if (o < -5) o += 7 * w;
  if (offset != nullptr) *offset = o;
  return o + 5;
}

// A WEEKDAY against a WEEK (`iso` false) or a WEEKV (`iso` true).
double weekday_vs_week(INTERVAL* wkdy_int, INTERVAL* wk_int, bool iso) {
  if (wkdy_int->intcode != kIntWeekday || wk_int->intcode != (iso ? kIntWeekv : kIntWeek)) {
    return kInconsistent;
  }
  const long m = multiplier(wkdy_int);
  const long wm = multiplier(wk_int);
  const long ws = iso ? wk_int->shiftper + 1 : wk_int->shiftper;  // first day of the week
  const long p = wm * wkdy_int->nweekday;                         // working days in one week interval
  double multiple;
  if (p % m == 0) {
    multiple = -static_cast<double>(p / m);
  } else if (m % p == 0) {
    multiple = static_cast<double>(m / p);
  } else {
    return kNotMultiple;
  }
  if (weekend_day(wkdy_int, ws % 7)) return kShifted;
  if (m == 1) return multiple;

  long o = 0;
  const long s = wkdyS2wkS(wkdy_int, &o);
  if (multiple == 1.0 || multiple == -1.0) {
    // A WEEKV compares shiftper % 7 + 1, which is 7 for a week that begins
    // on Sunday: such a week never matches.
    const long start = iso ? wk_int->shiftper % 7 + 1 : ws;
    return s == start ? 0.0 : kShifted;
  }
  if (multiple > 0.0) {
    return reduce(s, 7 * wm) == ws ? multiple : kShifted;
  }
  // The week boundary must lie a whole number of WEEKDAY intervals from
  // the WEEKDAY boundary.
  const long start = iso ? wk_int->shiftper % wm + 1 : ws;
  const long t = start >= 6 ? start - 7 * wm - 5 : start - 5;
  long count = 0;
  if (t > o) {
    for (long d = o + 1; d <= t; ++d) count += !weekend_day(wkdy_int, d + 5);
  } else {
    for (long d = o - 1; d >= t; --d) count += !weekend_day(wkdy_int, d + 5);
  }
  if (weekend_day(wkdy_int, t + 5) || count % m != 0) return kShifted;
  return multiple;
}

double comp_weekday_week(INTERVAL* wkdy_int, INTERVAL* wk_int) { return weekday_vs_week(wkdy_int, wk_int, false); }

double comp_weekday_weekv(INTERVAL* wkdy_int, INTERVAL* wk_int) { return weekday_vs_week(wkdy_int, wk_int, true); }

double comp_weekday_day(INTERVAL* wkdy_int, INTERVAL* day_int) {
  if (wkdy_int->intcode != kIntWeekday || day_int->intcode != kIntDay) return kInconsistent;
  const long m = multiplier(wkdy_int);
  const long dn = multiplier(day_int);
  const long ds = day_int->shiftper;
  const long nw = wkdy_int->nweekday;
  if (nw == 1) return compare(7 * m, wkdyS2wkS(wkdy_int), dn, reduce(ds - 2 + 7 * m, dn));
  if (nw == 7) return compare(m, wkdy_int->shiftper, dn, ds);
  if (nw == 6) return kNoRelation;
  if (m % nw != 0) return 1.0;
  const long u = (m / nw) * 7;  // days in one interval
  if (u % dn != 0 && dn % u != 0) return kNotMultiple;
  return compare(u, wkdyS2wkS(wkdy_int), dn, reduce(ds + 5, dn));
}

// Boundaries of two WEEKDAY intervals from day 0: 0 when the first `len`
// boundaries of a agree with every mult-th boundary of b, else the place
// (from 1) of the first that differs; -1 for len < 1, -2 for a record that
// isn't a WEEKDAY.
int compwkdySample(INTERVAL* a, INTERVAL* b, long mult, long len) {
  if (len < 1) return -1;
  if (a->intcode != kIntWeekday || b->intcode != kIntWeekday) return -2;
  const double bstart = mult < 2 ? 0.0 : zintnx2(a, 0.0, 0.0);
  for (long i = 0; i < len; ++i) {
    if (zintnx2(a, 0.0, static_cast<double>(i)) != zintnx2(b, bstart, static_cast<double>(i * mult))) {
      return static_cast<int>(i + 1);
    }
  }
  return 0;
}

// Length of the repeating pattern of boundaries of a WEEKDAY with nw
// working days and multiplier `mult`, within a week.
long pattern_length(long nw, long mult) {
  if (nw == 4 && mult % 4 == 2) return 2;
  if (nw == 6) {
    const long r = mult % 6;
    if (r == 2 || r == 4) return 3;
    if (r == 3) return 2;
  }
  return nw;
}

// Two WEEKDAY intervals.
double weekday_pair(INTERVAL* a, INTERVAL* b, long an, long as, long bn, long bs) {
  const long na = a->nweekday;
  const long nb = b->nweekday;
  long com_wkdys = 0;
  bool same_weekend = true;
  for (int d = 0; d < 7; ++d) {
    com_wkdys += a->weekend[d] == 0 && b->weekend[d] == 0;
    same_weekend = same_weekend && ((a->weekend[d] != 0) == (b->weekend[d] != 0));
  }
  if (na == nb && same_weekend) return compare(an, as, bn, bs);
  if (com_wkdys == 0) return kWeekends;

  const bool a_weeks = an % na == 0;
  const bool b_weeks = bn % nb == 0;
  if (a_weeks && b_weeks) {
    return compare(7 * (an / na), wkdyS2wkS(a), 7 * (bn / nb), wkdyS2wkS(b));
  }
  if (a_weeks) {
    if ((nb * an) % (bn * na) != 0) return kNotMultiple;
    const long s = wkdyS2wkS(a);
    if (weekend_day(b, s % 7)) return kShifted;
    INTERVAL wk_int{};
    zinticms(kIntWeek, static_cast<int>(an / na), static_cast<int>(s), &wk_int);
    return swapped(comp_weekday_week(b, &wk_int));
  }
  if (b_weeks) {
    if ((na * bn) % (an * nb) != 0) return kNotMultiple;
    const long s = wkdyS2wkS(b);
    if (weekend_day(a, s % 7)) return kShifted;
    INTERVAL wk_int{};
    zinticms(kIntWeek, static_cast<int>(bn / nb), static_cast<int>(s), &wk_int);
    return comp_weekday_week(a, &wk_int);
  }

  // Neither spans whole weeks: compare the boundaries over one pattern.
  const long u = nb * an;
  const long v = na * bn;
  long k;
  INTERVAL* big_int;
  INTERVAL* little_int;
  if (u % v == 0) {
    k = u / v;
    big_int = a;
    little_int = b;
    bn *= k;
  } else if (v % u == 0) {
    k = v / u;
    big_int = b;
    little_int = a;
    an *= k;
  } else {
    return same_weekend ? compare(an, as, bn, bs) : kWeekends;
  }
  const long pat_a = pattern_length(na, an);
  const long pat_b = pattern_length(nb, bn);
  if (pat_a != pat_b || com_wkdys < pat_a) return kWeekends;
  const long length = pat_a;

  INTERVAL little = *little_int;
  if (compwkdySample(big_int, &little, k, length) == 0) {
    if (k == 1) return 0.0;
    return big_int == b ? -static_cast<double>(k) : static_cast<double>(k);
  }

  // The boundaries differ; see whether some other shift would make them agree.
  INTERVAL l = *little_int;
  l.intper = static_cast<int>(multiplier(little_int) * k);
  if (l.intper > 1) {
    for (int move = 1; move < l.intper; ++move) {
      l.shiftper = (l.shiftper + 1) % l.intper;
      if (compwkdySample(big_int, &l, 1, length) == 0) return kShifted;
    }
    l.shiftper = little_int->shiftper;
  }
  if (big_int->intper > 1) {
    INTERVAL big = *big_int;
    for (int move = 1; move < big.intper; ++move) {
      big.shiftper = (big.shiftper + 1) % big.intper;
      if (compwkdySample(&big, &l, 1, length) == 0) return kShifted;
    }
  }
  return kWeekends;
}

// A time interval as a whole number of days: fills `day` with the DAY of
// that many days and returns how many time intervals make it.
double time2dayint(INTERVAL* time, INTERVAL* day) {
  long u;
  switch (time->intcode) {
    case kIntSecond:
      u = 86400;
      break;
    case kIntMinute:
      u = 1440;
      break;
    case kIntHour:
      u = 24;
      break;
    default:
      xebug("zintc: forgot a time code: %i", time->intcode);
      return kInconsistent;
  }
  const long tn = multiplier(time);
  const long f = u / std::gcd(tn, u);  // intervals that make whole days
  const long count = tn * f / u;
  if (time->shiftper % u != 0) {
    if (time->intcode == kIntHour) zinticms(kIntDay, static_cast<int>(count), 0, day);
    return kShifted;
  }
  zinticms(kIntDay, static_cast<int>(count), static_cast<int>(time->shiftper / u + 1), day);
  return static_cast<double>(f);
}

// A WEEKV, YEARV or retail interval `a` against a time interval `b`, by
// way of the whole days that a run of b intervals makes.
double time_rule(INTERVAL* a, INTERVAL* b, long an, long as, int ai) {
  INTERVAL daymult{};
  const double mult = time2dayint(b, &daymult);
  // A SECOND or MINUTE shifted off the day's start makes no DAY: nothing
  // to compare, and no fault to report.
  const double r = daymult.intcode == kIntDay
                       ? compDayWkvMult(&daymult, a, multiplier(&daymult), daymult.shiftper, ai, an, as)
                       : kNoRelation;
  if (same_missing(mult, kInconsistent) || same_missing(r, kInconsistent)) return kInconsistent;
  if (same_missing(mult, kUnrelated) || same_missing(r, kUnrelated)) return kUnrelated;
  if (same_missing(mult, kShifted) || same_missing(r, kShifted)) return kShifted;
  if (!esf::is_missing(mult) && !esf::is_missing(r)) {
    if (r == 0.0) return mult;
    if (r == 1.0 || r == -1.0) return -r;
    return -(r * mult);
  }
  return kInconsistent;
}

// ---- One routine per family of a ---------------------------------------

// a a SECOND, MINUTE or HOUR, with an and as in seconds.
double compsec(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  switch (bi) {
    case kIntObs:
      return kUnrelated;
    case kIntSecond:
    case kIntMinute:
    case kIntHour:
      return compare(an, as, bn * seconds_in(bi), bs * seconds_in(bi));
    case kIntDay:
      return compare(an, as, bn * 86400, bs * 86400);
    case kIntWeek:
      return compare(an, as, bn * 604800, bs * 86400);
    case kIntTenday:
      return compare(an, as, bn * 864000, bs * 86400);
    case kIntSemimonth:
    case kIntMonth:
    case kIntQtr:
    case kIntSemiyear:
    case kIntYear:
      return (an <= 86400 && 86400 % an == 0) ? -1.0 : kNoRelation;
    case kIntWeekday:
      return swapped(compweekday(b, a, bn, bs, a->intcode, multiplier(a), a->shiftper));
    case kIntWeekv:
    case kIntYearv:
      return swapped(compweekcal(b, a, bn, bs, a->intcode, multiplier(a), a->shiftper));
    default:
      if (is_retail(bi)) {
        return swapped(compweekcal(b, a, bn * retail_months(bi), bs, a->intcode, multiplier(a), a->shiftper));
      }
      return unknown_b(bi);
  }
}

// a a DAY, with an and as in days.
double compday(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  switch (bi) {
    case kIntObs:
      return kUnrelated;
    case kIntSecond:
    case kIntMinute:
    case kIntHour:
      return compare(an * 86400 / seconds_in(bi), as * 86400 / seconds_in(bi), bn, bs);
    case kIntDay:
      return compare(an, as, bn, bs);
    case kIntWeekday:
      return swapped(comp_weekday_day(b, a));
    case kIntWeek: {
      // A WEEK begins on Sunday, day 2 counted from day 0 (a Friday).
      const long n = 7 * bn;
      return compare(an, as, n, reduce(bs - 5 + n, n));
    }
    case kIntWeekv:
    case kIntYearv:
      return compDayWkvMult(a, b, an, as, bi, bn, bs);
    default:
      if (is_month_type(bi)) return (an == 1 && as == 0) ? -1.0 : kNoRelation;
      if (is_retail(bi)) return compDayWkvMult(a, b, an, as, bi, bn, bs);
      return unknown_b(bi);
  }
}

// a a DAY against the ISO and retail weeks. The retail years and the ISO
// year begin on a Monday.
double compDayWkvMult(INTERVAL* a, INTERVAL* /*b*/, long an, long as, int bi, long bn, long bs) {
  if (a->intcode != kIntDay || !(bi == kIntWeekv || bi == kIntYearv || is_retail(bi))) {
    xebug("zintc: compDayWkvMult() incorrect codes: %d, %d", a->intcode, bi);
    return kNoRelation;
  }
  if (bi == kIntWeekv) {
    // A WEEKV begins on Monday, day 3 counted from day 0 (a Friday).
    const long n = 7 * bn;
    return compare(an, as, n, reduce(bs - 4 + n, n));
  }
  if (an == 1) return -1.0;
  // The week of seven days that begins on Monday is the only other one that nests.
  if (an == 7) return as == 3 ? -1.0 : kShifted;
  return kNotMultiple;
}

// a a WEEK, with an in weeks and as in days.
double compweek(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  switch (bi) {
    case kIntObs:
      return kUnrelated;
    case kIntSecond:
    case kIntMinute:
    case kIntHour:
      return compare(an * 604800 / seconds_in(bi), as * 86400 / seconds_in(bi), bn, bs);
    case kIntDay: {
      const long n = 7 * an;
      return compare(n, reduce(as - 5 + n, n), bn, bs);
    }
    case kIntWeekday:
      return swapped(comp_weekday_week(b, a));
    case kIntWeek:
      return compare(7 * an, as, 7 * bn, bs);
    case kIntWeekv: {
      const long n = 7 * bn;
      return compare(7 * an, as, n, reduce(bs + 1 + n, n));
    }
    case kIntYearv:
      break;
    default:
      if (is_month_type(bi)) return kUnrelated;
      if (!is_retail(bi)) return unknown_b(bi);
      break;
  }
  // A retail or ISO year: a WEEK must begin on Monday to fit.
  if (an == 1) return as == 1 ? -1.0 : kShifted;
  return kNotMultiple;
}

// Months in one interval of multiplier 1 of a month-family code.
long months_of(int code) {
  switch (code) {
    case kIntQtr:
      return 3;
    case kIntSemiyear:
      return 6;
    case kIntYear:
      return 12;
    default:
      return 1;
  }
}

// a a month-type interval with `ka` units to a month (an and as in those
// units) against b. Two month-type intervals are compared in the finer of
// their units; halves and thirds of a month share no boundaries but the
// month's own.
double compmonth_units(int ka, long an, long as, int bi, long bn, long bs) {
  if (const int kb = units_per_month(bi); kb != 0) {
    if (ka != kb && ka != 1 && kb != 1) return kUnrelated;
    const int k = ka > kb ? ka : kb;
    return compare(an * (k / ka), as * (k / ka), bn * months_of(bi) * (k / kb), bs * (k / kb));
  }
  switch (bi) {
    case kIntWeekv:
    case kIntYearv:
      return kUnrelated;
    case kIntObs:
    case kIntSecond:
    case kIntMinute:
    case kIntHour:
    case kIntDay:
    case kIntWeekday:
    case kIntWeek:
      return moncheck(bi, bn, bs);
    default:
      if (is_retail(bi)) return kUnrelated;
      return unknown_b(bi);
  }
}

// a a MONTH, QTR, SEMIYEAR or YEAR, with an and as in months.
double compmon(INTERVAL* /*a*/, INTERVAL* /*b*/, long an, long as, int bi, long bn, long bs) {
  return compmonth_units(1, an, as, bi, bn, bs);
}

// a a SEMIMONTH, with an and as in semimonths.
double compsmon(INTERVAL* /*a*/, INTERVAL* /*b*/, long an, long as, int bi, long bn, long bs) {
  return compmonth_units(2, an, as, bi, bn, bs);
}

// a a TENDAY, with an and as in tendays.
double comptenday(INTERVAL* /*a*/, INTERVAL* /*b*/, long an, long as, int bi, long bn, long bs) {
  return compmonth_units(3, an, as, bi, bn, bs);
}

// a a WEEKV against a retail interval.
double compRetWkv(INTERVAL* a, INTERVAL* /*b*/, long an, long as, int bi, long /*bn*/, long /*bs*/) {
  if (a->intcode != kIntWeekv || !is_retail(bi)) {
    xebug("zintc: comRetWkv() incorrect codes: %d, %d", a->intcode, bi);
    return kNoRelation;
  }
  if (as != 0) return kShifted;
  return an == 1 ? -1.0 : kNotMultiple;
}

// a a WEEKV, YEARV or retail interval: the calendars whose weeks begin on
// Monday. OBS and the month types never line up with them, a time interval
// is compared by way of the days a run of it makes, and a DAY by the day's
// rule; b on one of these calendars, a WEEK or a WEEKDAY goes to a's
// family.
double compweekcal(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  if (bi == kIntObs || is_month_type(bi)) return kUnrelated;
  if (is_time(bi)) return time_rule(a, b, an, as, a->intcode);
  if (bi == kIntDay) return swapped(compDayWkvMult(b, a, bn, bs, a->intcode, an, as));
  if (is_retail(a->intcode)) return compretmon(a, b, an, as, bi, bn, bs);
  return compisowk(a, b, an, as, bi, bn, bs);
}

// a a WEEKV (an in weeks) or a YEARV (an in weeks of 52), b a WEEKDAY, a
// WEEK or on a calendar whose weeks begin on Monday.
double compisowk(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  const bool yearv = a->intcode == kIntYearv;
  switch (bi) {
    case kIntWeekday:
      return yearv ? swapped(comp_weekday_retail(b, a, bn, bs, a->intcode, an, as)) : swapped(comp_weekday_weekv(b, a));
    case kIntWeek:
      return swapped(compweek(b, a, bn, bs, a->intcode, an, as));
    case kIntWeekv:
      if (!yearv) return compare(an, as, bn, bs);
      if (bs != 0) return kShifted;
      return bn == 1 ? 1.0 : kNotMultiple;
    case kIntYearv:
      if (yearv) return compare(an, as, bn * 52, bs);
      if (as != 0) return kShifted;
      return an == 1 ? -1.0 : kNotMultiple;
    default:
      if (is_retail(bi)) {
        if (!yearv) return compRetWkv(a, b, an, as, bi, bn, bs);
        // The retail interval in months against the ISO years as given.
        return swapped(compretmon(b, a, bn * retail_months(bi), bs, a->intcode, multiplier(a), a->shiftper));
      }
      return unknown_b(bi);
  }
}

// a a retail month, quarter or year, with an in months, b a WEEKDAY, a
// WEEK or on a calendar whose weeks begin on Monday.
double compretmon(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  const int r = retail_calendar(a->intcode);
  const int q = retail_calendar(bi);
  switch (bi) {
    case kIntWeekday: {
      const double w = comp_weekday_retail(b, a, bn, bs, a->intcode, an, as);
      return w == -1.0 ? 1.0 : w;
    }
    case kIntWeek:
      if (bn == 1) return bs == 1 ? 1.0 : kShifted;
      return kNotMultiple;
    case kIntWeekv:
      return swapped(compRetWkv(b, a, bn, bs, a->intcode, an, as));
    case kIntYearv: {
      // The ISO year's week offset must open one of the calendar's months.
      const int* index = r == 445 ? r445mon_index : r == 454 ? r454mon_index : r544mon_index;
      for (long s = 0; s < 12; ++s) {
        if (index[s] == bs) return compare(an, as, 12 * bn, s);
      }
      return kShifted;
    }
    default:
      break;
  }
  if (!is_retail(bi)) return unknown_b(bi);
  // Two different calendars agree only at quarter ends.
  if (is_retail_month(bi) && r != q && an % 3 != 0 && bn % 3 != 0) return kNotMultiple;
  if (r != q && (as % 3 != 0 || bs % 3 != 0)) return kShifted;
  return compare(an, as, bn * retail_months(bi), bs);
}

// a a WEEKDAY against a retail or ISO year, which begin on a Monday.
double comp_weekday_retail(INTERVAL* a, INTERVAL* /*b*/, long an, long as, int /*bi*/, long /*bn*/, long /*bs*/) {
  if (a->weekend[1] != 0) return kUnrelated;
  if (a->nweekday % an != 0) return kNotMultiple;
  if (an > 1) {
    // Working days from the one at or before day 0 (a Friday) to Monday.
    long p = 5;
    for (int guard = 0; guard < 7 && a->weekend[p] != 0; ++guard) p = p == 0 ? 6 : p - 1;
    long count = 0;
    while (p != 1) {
      p = p == 6 ? 0 : p + 1;
      count += a->weekend[p] == 0;
    }
    if (count % an != as) return kShifted;
  }
  return -1.0;
}

// a a WEEKDAY.
double compweekday(INTERVAL* a, INTERVAL* b, long an, long as, int bi, long bn, long bs) {
  if (bi == kIntObs || is_month_type(bi)) return kUnrelated;
  switch (bi) {
    case kIntSecond:
    case kIntMinute:
    case kIntHour: {
      // By way of a plain DAY.
      INTERVAL d{};
      zinticms(kIntDay, 1, 1, &d);
      const double r = compday(&d, b, 1, 0, bi, bn, bs);
      if (esf::is_missing(r)) return r;
      if (r == 0.0) return comp_weekday_day(a, &d);
      if (r > 1.0) {
        const double w = comp_weekday_day(a, &d);
        return (esf::is_missing(w) || w == 1.0) ? w : w * r;
      }
      if (r < -1.0) {
        d.intper = static_cast<int>(d.intper * -r);
        return comp_weekday_day(a, &d);
      }
      const double w = comp_weekday_day(a, &d);
      return esf::is_missing(w) ? w : r;
    }
    case kIntDay:
      return comp_weekday_day(a, b);
    case kIntWeek:
      return comp_weekday_week(a, b);
    case kIntWeekv:
      return comp_weekday_weekv(a, b);
    case kIntYearv:
      return comp_weekday_retail(a, b, an, as, bi, bn, bs);
    case kIntWeekday:
      return weekday_pair(a, b, an, as, bn, bs);
    default:
      if (is_retail(bi)) return comp_weekday_retail(a, b, an, as, bi, bn, bs);
      return unknown_b(bi);
  }
}

}  // namespace

extern "C" double zintc(INTERVAL* a, INTERVAL* b) {
  if (a == nullptr || b == nullptr) return kNoRelation;
  const int ai = a->intcode;
  const int bi = b->intcode;
  long an = multiplier(a);
  long as = a->shiftper;
  const long bn = multiplier(b);
  const long bs = b->shiftper;

  // The same kind of interval with the same shift: only the lengths differ.
  if (ai == bi && a->shiftper == b->shiftper && ai != kIntWeekday && ai != kIntCustom) {
    if (an == bn) return 0.0;
    if (an > bn) return an % bn == 0 ? static_cast<double>(an / bn) : kNotMultiple;
    return bn % an == 0 ? -static_cast<double>(bn / an) : kNotMultiple;
  }

  // a in its family's common unit.
  switch (ai) {
    case kIntMinute:
      an *= 60;
      as *= 60;
      break;
    case kIntHour:
      an *= 3600;
      as *= 3600;
      break;
    case kIntQtr:
    case kIntR445Qtr:
    case kIntR454Qtr:
    case kIntR544Qtr:
      an *= 3;
      break;
    case kIntSemiyear:
      an *= 6;
      break;
    case kIntYear:
    case kIntR445Yr:
    case kIntR454Yr:
    case kIntR544Yr:
      an *= 12;
      break;
    case kIntYearv:
      an *= 52;
      break;
    default:
      break;
  }

  switch (ai) {
    case kIntObs:
      return bi == kIntObs ? compare(an, as, bn, bs) : kUnrelated;
    case kIntSecond:
    case kIntMinute:
    case kIntHour:
      return compsec(a, b, an, as, bi, bn, bs);
    case kIntDay:
      return compday(a, b, an, as, bi, bn, bs);
    case kIntWeekday:
      return compweekday(a, b, an, as, bi, bn, bs);
    case kIntWeek:
      return compweek(a, b, an, as, bi, bn, bs);
    case kIntWeekv:
    case kIntYearv:
      return compweekcal(a, b, an, as, bi, bn, bs);
    case kIntTenday:
      return comptenday(a, b, an, as, bi, bn, bs);
    case kIntSemimonth:
      return compsmon(a, b, an, as, bi, bn, bs);
    case kIntMonth:
    case kIntQtr:
    case kIntSemiyear:
    case kIntYear:
      return compmon(a, b, an, as, bi, bn, bs);
    case kIntCustom:
      if (bi == kIntCustom && a->tokenlen == b->tokenlen && wzbcup(a->token, b->token, a->tokenlen) == 0) {
        return 0.0;
      }
      return kNoRelation;
    default:
      if (is_retail(ai)) return compweekcal(a, b, an, as, bi, bn, bs);
      xebug("zintc: forgot A code: %i", ai);
      return kNoRelation;
  }
}
