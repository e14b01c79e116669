// Season-aware counting and advancing. A calendar year doesn't hold a whole
// number of weeks, so weekly arithmetic inside a yearly cycle needs a rule
// for the extra week: a WEEK in a cycle of 52 seasons folds the leap week of
// a long week-year into its neighbour, a WEEKV steps through its ISO year,
// and a YEAR aligned to weeks begins on the first week of its week-year.
// Week-year y begins on the Sunday of the week that holds 4 January of y.
//
//   zintnx_seas(WEEK with cycle YEAR, date0, 52, null)  // same week, next week-year
//   zintnx_seas(YEAR, date0, 1, WEEK)                   // first Sunday week of next week-year
//   zintnx_seas(WEEK, date0, n, WEEKDAY1W)               // weeks from the first working day
//
// Every other pair is plain zintck2 and zintnx2.

#include <cmath>

#include "host/host_dates.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// The week-years the season routines work in lie inside the library's date
// range, far inside an int.
bool whole_year(double v, int* out) {
  if (esf::is_missing(v) || !(std::fabs(v) < 1.0e9)) return false;
  *out = static_cast<int>(v);
  return true;
}

double plain_week_count(double from, double to) {
  INTERVAL week{};
  zintic(kIntWeek, &week);
  return zintck2(&week, from, to);
}

// The cycle and the number of seasons a season-aware call works with: the
// record's own, or the standard ones of its interval.
struct Cycle {
  INTERVALX local{};
  INTERVALX* cycle = nullptr;
};

INTERVALX* cycle_of(INTERVALX* iv, Cycle* c) {
  if (iv->sinterval != nullptr) return iv->sinterval;
  int zero = 0;
  zintsea2(iv, 0.0, &c->local, &zero);
  return &c->local;
}

int seasons_of(INTERVALX* iv, double date0) {
  if (iv->nseasons != 0) return iv->nseasons;
  INTERVAL local{};
  int ns = 0;
  zintsea2(iv, date0, &local, &ns);
  return ns;
}

// floor(t / ns) and the remainder in [0, ns).
void split_cycles(double t, int ns, double* q, double* r) {
  *q = std::floor(t / ns);
  *r = t - *q * ns;
  if (*r < 0.0) *r += ns;
}

double advance_week_in_year(INTERVALX* iv, double date0, double n, int ns) {
  if (ns > 52) return zintnx2(iv, date0, n);
  double year = 0.0, week = 0.0, day = 0.0;
  zidywdds(date0, 1, &year, &week, &day);
  if (esf::is_missing(year) || esf::is_missing(week) || ns < 1) return esf::kMissing;
  double q = 0.0, r = 0.0;
  split_cycles(week - 1.0 + n, ns, &q, &r);
  int y = 0;
  if (!whole_year(q + year, &y)) return esf::kMissing;
  const double ds = ziddywds(y, 1, 1);
  if (r != 0.0) {
    char same[2] = {'S', 0};
    return zintnx3(iv, ds, r, same, nullptr);
  }
  // The leap week of a long year before opens the new cycle.
  const double weeks_before = plain_week_count(ziddywds(y - 1, 1, 1), ds);
  if (!esf::is_missing(weeks_before) && weeks_before > 52.0) return ds - 7.0;
  return ds;
}

double advance_isoweek_in_isoyear(INTERVALX* iv, INTERVALX* cycle, double date0, double n, int ns) {
  double b = zintnx2(cycle, date0, 0.0);
  double i = zintck3(iv, b, date0);
  if (esf::is_missing(b) || esf::is_missing(i) || ns < 1) return esf::kMissing;
  if (i >= ns) i -= 1.0;
  double q = 0.0, r = 0.0;
  split_cycles(i + n, ns, &q, &r);
  if (q != 0.0) b = zintnx2(cycle, date0, q);
  char same[2] = {'S', 0};
  return zintnx3(iv, b, r, same, nullptr);
}

double advance_year_by_weeks(INTERVALX* iv, double date0, double n, int ns) {
  int year = 0;
  double next_start = 0.0;
  double e = zintyrse(date0, &year, &next_start);
  if (esf::is_missing(e)) return esf::kMissing;
  bool move = true;
  if (ns < 53) {
    const double c = plain_week_count(e, date0);
    if (esf::is_missing(c)) return esf::kMissing;
    if (c >= 52.0) {
      year += 1;
    } else if (n == 0.0) {
      move = false;
    }
  } else if (n == 0.0) {
    return e;
  }
  if (move) {
    const double m = iv->intper > 1 ? n * iv->intper : n;
    int target = 0;
    if (!whole_year(year + m, &target)) return esf::kMissing;
    year = target;
    e = ziddywds(year, 1, 1);
  }
  if (ns < 53) {
    const double weeks_before = plain_week_count(ziddywds(year - 1, 1, 1), e);
    if (!esf::is_missing(weeks_before) && weeks_before > 52.0) e -= 7.0;
  }
  return e;
}

double advance_to_working_day(INTERVALX* iv, double date0, double n, INTERVALX* align_int) {
  const double d = zintnx2(iv, date0, n);
  const double b = zintnx2(align_int, d, 0.0);
  if (esf::is_missing(d) || esf::is_missing(b)) return esf::kMissing;
  return b < d ? zintnx2(align_int, d, 1.0) : b;
}

double advance_working_weeks(INTERVALX* iv, double date0, double n, INTERVALX* align_int) {
  int i = 0;
  while (i < 7 && align_int->weekend[i] != 0) ++i;
  int s = i + 1;
  if (s > 7) s = 0;
  INTERVAL local{};
  if (zinticms(kIntWeek, iv->intper, s, &local) != 0) return esf::kMissing;
  return zintnx2(&local, date0, n);
}

// Week-year difference of two dates, in units of the interval's multiplier.
double week_year_count(double a, double b, int leap_index, int intper, bool iso) {
  double y0 = 0.0, w0 = 0.0, y1 = 0.0, w1 = 0.0, day = 0.0;
  if (iso) {
    char v[2] = {'V', 0};
    zidywdd(a, v, 1, &y0, &w0, &day);
    zidywdd(b, v, 1, &y1, &w1, &day);
    if (y0 < 0.0 || y1 < 0.0 || w0 < 0.0 || w1 < 0.0) return esf::kMissing;
  } else {
    zidywdds(a, leap_index, &y0, &w0, &day);
    zidywdds(b, leap_index, &y1, &w1, &day);
  }
  if (esf::is_missing(y0) || esf::is_missing(y1) || esf::is_missing(w0) || esf::is_missing(w1)) {
    return esf::kMissing;
  }
  const double count = (y1 - y0) * 52.0 + (w1 - w0);
  return intper >= 2 ? count / static_cast<double>(intper) : count;
}

}  // namespace

extern "C" double zintyrse(double date0, int* year, double* ds1) {
  if (ds1 != nullptr) *ds1 = esf::kMissing;
  int y = 0;
  if (!whole_year(zyear(date0), &y)) return esf::kMissing;
  if (year != nullptr) *year = y;
  const double s = ziddywds(y, 1, 1);
  if (s > date0) {
    if (ds1 != nullptr) *ds1 = s;
    if (year != nullptr) *year = y - 1;
    return ziddywds(y - 1, 1, 1);
  }
  const double next = ziddywds(y + 1, 1, 1);
  if (ds1 != nullptr) *ds1 = next;
  if (!(next > date0)) {
    if (year != nullptr) *year = y + 1;
    if (ds1 != nullptr) *ds1 = ziddywds(y + 2, 1, 1);
    return next;
  }
  return s;
}

extern "C" double zintck3(struct INTERVALX* intervalx, double date0, double date1) {
  double k = zintck2(intervalx, date0, date1);
  if (esf::is_missing(k)) return esf::kMissing;
  char same[2] = {'S', 0};
  double next = zintnx3(intervalx, date0, k, same, nullptr);
  if (date1 < next) {
    k -= 1.0;
    next = zintnx3(intervalx, date0, k, same, nullptr);
    if (date1 < next) return esf::kMissing;
  }
  return k;
}

extern "C" double zintnx_seas(struct INTERVALX* intervalx, double date0, double n, struct INTERVALX* align_int) {
  if (intervalx == nullptr) return esf::kMissing;
  const int code = intervalx->intcode;
  if (align_int == nullptr) {
    if (code == kIntWeek || code == kIntWeekv) {
      Cycle c;
      INTERVALX* cycle = cycle_of(intervalx, &c);
      if (code == kIntWeek && cycle->intcode == kIntYear) {
        return advance_week_in_year(intervalx, date0, n, seasons_of(intervalx, date0));
      }
      if (code == kIntWeekv && cycle->intcode == kIntYearv) {
        return advance_isoweek_in_isoyear(intervalx, cycle, date0, n, seasons_of(intervalx, date0));
      }
    }
    return zintnx2(intervalx, date0, n);
  }
  const int align = align_int->intcode;
  if (code == kIntYear && align == kIntWeek) {
    return advance_year_by_weeks(intervalx, date0, n, seasons_of(align_int, date0));
  }
  if ((code == kIntYear || code == kIntSemimonth) && align == kIntWeekday) {
    return advance_to_working_day(intervalx, date0, n, align_int);
  }
  if (code == kIntWeek && align == kIntWeekday) return advance_working_weeks(intervalx, date0, n, align_int);
  return zintnx2(intervalx, date0, n);
}

extern "C" double zintck_seas(struct INTERVALX* intervalx, double date0, double daten, struct INTERVALX* align_int) {
  if (intervalx == nullptr) return esf::kMissing;
  const int code = intervalx->intcode;
  if (code == kIntWeek || code == kIntWeekv) {
    Cycle c;
    const INTERVALX* cycle = cycle_of(intervalx, &c);
    const bool iso = code == kIntWeekv;
    if (cycle->intcode == (iso ? kIntYearv : kIntYear)) {
      if (seasons_of(intervalx, date0) >= 53) {
        const double k = zintck2(intervalx, date0, daten);
        return esf::is_missing(k) ? k : std::trunc(k);
      }
      return week_year_count(date0, daten, 1, intervalx->intper, iso);
    }
  } else if (code == kIntYear && align_int != nullptr && align_int->intcode == kIntWeek) {
    const int ns = seasons_of(align_int, date0);
    const double a = zintnx_seas(intervalx, date0, 0.0, align_int);
    const double b = zintnx_seas(intervalx, daten, 0.0, align_int);
    if (esf::is_missing(a) || esf::is_missing(b)) return esf::kMissing;
    double y0 = 0.0, y1 = 0.0, week = 0.0, day = 0.0;
    zidywdds(a, ns < 53 ? 1 : ns, &y0, &week, &day);
    zidywdds(b, ns < 53 ? 1 : ns, &y1, &week, &day);
    if (esf::is_missing(y0) || esf::is_missing(y1)) return esf::kMissing;
    return intervalx->intper >= 2 ? (y1 - y0) / static_cast<double>(intervalx->intper) : y1 - y0;
  }
  return zintck2(intervalx, date0, daten);
}
