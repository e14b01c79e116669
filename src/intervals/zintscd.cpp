// Season codes: for each observation of a series, the number of its season
// within the seasonal cycle, 0 to nseasons - 1. A MONTH series that starts
// in March gets 2, 3, ..., 11, 0, 1, ...; a DAY series that starts on a
// Friday gets 5, 6, 0, 1, ..., since its WEEK cycle starts on Sunday.
//
// The general case finds the season of the first observation once and
// then counts. Weeks can't simply be counted, since a year holds 52 or 53
// of them: for WEEK and WEEKV each week is placed in its week-year (the
// year whose 4 January it holds or follows) and the leap week of a long
// year is given the caller's leap code.
//
// zintscy turns one season code into a row of seasonal dummy variables for
// the start-value regressions.

#include <cmath>
#include <cstring>

#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// The scode that asks for a cycle of the caller's number of seasons.
constexpr int kScodeCallerCycle = -2;
// A weekly shift of 84 (shiftper 83) counts plain weeks and applies the
// multiplier afterwards.
constexpr int kShiftCountPlainWeeks = 83;
// Ways of building the multiple: derive its cycle (1), fit the result to a
// standard interval (0x10), and keep weeks as weeks (4).
constexpr int kMultWeeks = 5;
constexpr int kMultFit = 0x11;
// Week 1 of a week-year holds 4 January: three days after the year begins.
constexpr double kThreeDays = 3.0;
constexpr double kThreeDaysSeconds = 259200.0;

bool is_weekly(int code) { return code == kIntWeek || code == kIntWeekv; }

// `v` reduced to 0 .. ns - 1 for ns of 1 or more.
int wrap(long long v, int ns) {
  long long r = v % ns;
  if (r < 0) r += ns;
  return static_cast<int>(r);
}

void clear_codes(int* scodes, long n) {
  if (scodes != nullptr && n > 0) std::memset(scodes, 0, static_cast<std::size_t>(n) * sizeof *scodes);
}

// A date or count that isn't missing, as a whole number.
bool whole(double v, long long* out) {
  if (esf::is_missing(v) || !std::isfinite(v)) return false;
  *out = static_cast<long long>(v);
  return true;
}

// Parses the plain interval `code` with the DT prefix for datetime values.
void plain_interval(int code, char units, INTERVAL* out) {
  char text[16] = {};
  const char* base = interval_base_name(code);
  std::size_t len = 0;
  if (units == kUnitsDatetime) {
    std::memcpy(text, "DT", 2);
    len = 2;
  }
  std::memcpy(text + len, base, std::strlen(base));
  zintstr(text, -1, out);
}

// The start of the week `week` that holds the day three days after the
// start of the year that lies `ahead` years from the one holding `date`:
// the first week of a week-year.
double week_year_start(INTERVAL* week, INTERVAL* year, double date, double ahead, double three_days) {
  const double year_start = zintnx2(year, date, ahead);
  if (esf::is_missing(year_start)) return esf::kMissing;
  return zintnx2(week, year_start + three_days, 0.0);
}

// Weeks counted one by one within their week-year, the multiplier applied
// to the count afterwards (a shift of 84).
bool plain_week_codes(const INTERVAL& intv, double stdate, int scode, long n, int ns, int* scodes) {
  const bool iso = intv.intcode == kIntWeekv;
  INTERVAL cycle{};
  INTERVAL week{};
  plain_interval(iso ? kIntYearv : kIntYear, intv.units, &cycle);
  plain_interval(iso ? kIntWeekv : kIntWeek, intv.units, &week);
  const double three_days = intv.units == kUnitsDatetime ? kThreeDaysSeconds : kThreeDays;
  const long long per = intv.intper < 1 ? 1 : intv.intper;
  for (long t = 0; t < n; ++t) {
    const double date = zintnx2(&week, stdate, static_cast<double>(t));
    if (esf::is_missing(date)) return false;
    double date0 = week_year_start(&week, &cycle, date, 0.0, three_days);
    const double date1 = week_year_start(&week, &cycle, date, 1.0, three_days);
    if (esf::is_missing(date0) || esf::is_missing(date1)) return false;
    if (date1 <= date) date0 = date1;
    long long weeks = 0;
    if (!whole(zintck2(&week, date0, date), &weeks)) return false;
    long long s = weeks / per;
    if (s >= ns) s = scode;
    scodes[t] = wrap(s, ns);
  }
  return true;
}

// Weeks of the interval itself within their week-year. A long year's
// last week wraps to the code of the next year's first; of two weeks in a
// row with one code the earlier is the leap week and gets `scode`.
bool week_codes(INTERVAL& intv, double stdate, int scode, long n, int ns, int* scodes) {
  INTERVAL year{};
  plain_interval(kIntYear, intv.units, &year);
  const double three_days = intv.units == kUnitsDatetime ? kThreeDaysSeconds : kThreeDays;
  const auto code_between = [&](double from, double to, int* s) {
    long long count = 0;
    if (!whole(zintck2(&intv, from, to), &count)) return false;
    *s = wrap(count, ns);
    return true;
  };
  for (long t = 0; t < n; ++t) {
    const double date = zintnx2(&intv, stdate, static_cast<double>(t));
    if (esf::is_missing(date)) return false;
    double date0 = week_year_start(&intv, &year, date, 0.0, three_days);
    double date1 = week_year_start(&intv, &year, date, 1.0, three_days);
    if (esf::is_missing(date0) || esf::is_missing(date1)) return false;
    int s = 0;
    if (date >= date1) {
      date0 = date1;
      if (!code_between(date1, date, &s)) return false;
    } else if (!code_between(date0, date, &s)) {
      return false;
    }
    scodes[t] = s;
    if (t > 0) {
      if (scodes[t - 1] == s) scodes[t - 1] = scode;
      continue;
    }
    // The first week has no predecessor: compare it with the week after.
    const double nextdate = zintnx2(&intv, stdate, 1.0);
    if (date0 == date1) date1 = week_year_start(&intv, &year, date, 2.0, three_days);
    if (esf::is_missing(nextdate) || esf::is_missing(date1)) return false;
    if (nextdate >= date1) date0 = date1;
    int next = 0;
    if (!code_between(date0, nextdate, &next)) return false;
    if (next == s) scodes[0] = scode;
  }
  return true;
}

// The working state of one call of zintscd or zintscd2.
struct SeasonCall {
  INTERVALX* intvx;  // the interval, as an INTERVALX
  INTERVALX* sintv;  // its cycle
  int rc;            // result of the cycle search
  int sns;           // number of seasons that the search found
};

enum class Found { kCycle, kNoCycle, kRefused };

// Steps of the search that both forms share once they have rc and sns:
// a refusal, no usable cycle, or a cycle whose count may be stored.
Found judge_search(const SeasonCall& call, int* nseasons, int* ns) {
  if (call.rc == 2) return Found::kRefused;
  if (call.rc == 1 || call.sns < 2) return Found::kNoCycle;
  if (*nseasons < 0) *nseasons = call.sns;
  // A count of 0 on entry neither asks for the found count nor gives one:
  // the found count is used and the caller's 0 left alone.
  *ns = *nseasons == 0 ? call.sns : *nseasons;
  return Found::kCycle;
}

// Everything after the cycle search: steps common to zintscd and
// zintscd2. `ns_in` is the caller's *nseasons on entry, `ns` the working
// count (1 or more).
int fill_codes(SeasonCall& call, double stdate, int scode, long n, int* scodes, int ns_in, int ns) {
  INTERVAL& intv = *call.intvx;
  const int code = intv.intcode;

  if (is_weekly(code) && scode >= 0) {
    if (scode > ns) scode = 0;
    const bool filled = intv.shiftper == kShiftCountPlainWeeks ? plain_week_codes(intv, stdate, scode, n, ns, scodes)
                                                               : week_codes(intv, stdate, scode, n, ns, scodes);
    if (!filled) {
      clear_codes(scodes, n);
      return -1;
    }
    return 0;
  }

  long long s = 0;
  if (code == kIntCustom) {
    const auto index = [&](double t) { return customINTINDEX(call.intvx, stdate, t); };
    if (ns_in < 0) {
      for (long t = 0; t < n; ++t) {
        long long v = 0;
        if (!whole(index(static_cast<double>(t)), &v)) {
          clear_codes(scodes, n);
          return 1;
        }
        scodes[t] = static_cast<int>(v - 1);
      }
      return 0;
    }
    long long v = 0;
    if (!whole(index(0.0), &v)) {
      if (ns_in < 2) {
        clear_codes(scodes, n);
        return 1;
      }
      v = 1;
    }
    s = v - 1;
  } else {
    // The first interval that starts inside the cycle that holds stdate is
    // season 0; stdate's season is its distance from there.
    double first = stdate;
    if (intv.units != kUnitsObs && call.rc == 0) {
      const double c = zintnx2(call.sintv, stdate, 0.0);
      first = esf::is_missing(c) ? esf::kMissing : zintnx2(&intv, c, 0.0);
      if (esf::is_missing(first)) {
        clear_codes(scodes, n);
        return -1;
      }
      if (first < c) first = zintnx2(&intv, c, 1.0);
    }
    if (!whole(zintck2(&intv, first, stdate), &s)) {
      clear_codes(scodes, n);
      return -1;
    }
  }

  if (code == kIntWeekv && s >= ns) s = scode;
  int season = wrap(s, ns);
  for (long t = 0; t < n; ++t) {
    if (season >= ns) season = 0;
    scodes[t] = season++;
  }
  return 0;
}

// Releases the custom table reference that a local copy picked up.
int release_local(INTERVALX* local, int rc) {
  if (local->cinfo != nullptr) zcintcReleaseRef(local->cinfo);
  return rc;
}

}  // namespace

extern "C" int zintscd(struct INTERVAL* intv, double stdate, int scode, long n, int* scodes, int* nseasons) {
  if (n < 0) n = 0;
  if (intv == nullptr || nseasons == nullptr || (scodes == nullptr && n > 0)) return -1;
  const int ns_in = *nseasons;
  INTERVALX intvx{};
  static_cast<INTERVAL&>(intvx) = *intv;
  INTERVALX sintv{};
  SeasonCall call{&intvx, &sintv, 0, 0};

  bool cycle = false;
  int ns = 0;
  if (intvx.units == kUnitsObs) {
    call.rc = 1;
  } else {
    if (scode == kScodeCallerCycle) {
      if (is_weekly(intvx.intcode)) {
        call.sns = ns_in < 1 ? 52 : ns_in;
        call.rc = zintmult(&intvx, call.sns, &sintv, kMultWeeks);
      } else {
        call.sns = ns_in;
        call.rc = zintmult(&intvx, ns_in, &sintv, kMultFit);
      }
    } else {
      call.rc = zintsea(intv, stdate, &sintv, &call.sns);
    }
    const Found found = judge_search(call, nseasons, &ns);
    if (found == Found::kRefused) return release_local(&intvx, -1);
    cycle = found == Found::kCycle;
  }
  if (!cycle) {
    ns = *nseasons;
    if (ns < 2) {
      clear_codes(scodes, n);
      return release_local(&intvx, 1);
    }
  }
  return release_local(&intvx, fill_codes(call, stdate, scode, n, scodes, ns_in, ns));
}

extern "C" int zintscd2(struct INTERVALX* intv, double stdate, int scode, long n, int* scodes, int* nseasons) {
  if (n < 0) n = 0;
  if (intv == nullptr || nseasons == nullptr || (scodes == nullptr && n > 0)) return -1;
  const int ns_in = *nseasons;
  INTERVALX local_cycle{};
  INTERVALX* sintv = intv->sinterval != nullptr ? intv->sinterval : &local_cycle;
  SeasonCall call{intv, sintv, 0, 0};

  bool cycle = false;
  int ns = 0;
  if (intv->units == kUnitsObs) {
    call.rc = 1;
  } else {
    const bool weekly = is_weekly(intv->intcode);
    if (scode == kScodeCallerCycle && (weekly || ns_in >= 1)) {
      call.sns = weekly && ns_in < 1 ? 52 : ns_in;
      call.rc = zintmult(intv, call.sns, sintv, weekly ? kMultWeeks : kMultFit);
      intv->nseasons = call.sns;
    } else if (intv->sinterval == nullptr) {
      // The cycle goes into intv->nseasons; the count here stays 0, so the
      // observations are numbered from the caller's count alone.
      call.sns = 0;
      call.rc = zintsea_set(intv, stdate, sintv, &call.sns);
    } else {
      call.sns = intv->nseasons;
      call.rc = 0;
    }
    const Found found = judge_search(call, nseasons, &ns);
    if (found == Found::kRefused) return -1;
    cycle = found == Found::kCycle;
  }
  if (!cycle) {
    ns = *nseasons;
    if (ns < 2) {
      clear_codes(scodes, n);
      return 1;
    }
  }
  return fill_codes(call, stdate, scode, n, scodes, ns_in, ns);
}

extern "C" void zintscy(struct INTERVAL* intv, int scode, double date, int nseasons, int noint, double* sdummy,
                        double* partial) {
  if (intv == nullptr || sdummy == nullptr) return;
  const int last = nseasons + noint - 2;  // index of the last dummy
  for (int i = 0; i <= last; ++i) sdummy[i] = 0.0;

  if (intv->intcode == kIntWeek && scode == nseasons) {
    // A leap week lies partly in the old year and partly in the new one.
    double share = partial != nullptr ? *partial : esf::kMissing;
    if (esf::is_missing(share)) {
      INTERVAL year{};
      INTERVAL week{};
      plain_interval(kIntYear, intv->units, &year);
      plain_interval(kIntWeek, intv->units, &week);
      const double d1 = zintnx2(&year, date, 1.0);
      const double d2 = zintnx2(&week, d1, 1.0);
      share = esf::is_missing(d1) || esf::is_missing(d2) ? esf::kMissing : (d2 - d1) / 7.0;
      if (partial != nullptr) *partial = share;
    }
    if (esf::is_missing(share)) return;
    if (noint != 0 && last >= 51) sdummy[51] = 1.0 - share;
    if (last >= 0) sdummy[0] = share;
    return;
  }
  if (scode >= 0 && scode < nseasons - 1) {
    sdummy[scode] = 1.0;
  } else if (noint != 0 && last >= 0) {
    sdummy[last] = 1.0;
  }
}
