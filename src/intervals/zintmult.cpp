// Cycle setting and interval multiples: the cycle and number of seasons of
// an interval as the caller gives them, the number of seasons of an interval
// in a given cycle, the interval n times as long as another, and multiples
// of ISO and retail intervals written in the largest unit they fill.
//
//   zintmult(MONTH, 3, &s, 0x11)      // QTR, found by fitting one MONTH3
//   zintmult(R445MON, 12, &s, 0x11)   // R445YR
//   zintmult(WEEK, 52, &s, 0x11)      // YEAR
//   zintsea_set(MONTH, d, YEAR, 12)   // 0; with 6 seasons 2 (they disagree)

#include <climits>
#include <cstdio>
#include <cstring>

#include "custom/custom.h"
#include "host/host_text.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// Pieces of act_flag.
constexpr int kSintMask = 3;     // what to do with the cycle of the result
constexpr int kFuzzFlag = 0x10;  // let a DAY or WEEKDAY multiple take a fitted WEEK
constexpr int kSimpMask = 0x0C;  // 4: weeks stay weeks; 8: no simplification
constexpr int kSimpKeepWeeks = 4;
constexpr int kSimpNone = 8;

constexpr int kTokenCapacity = static_cast<int>(sizeof(INTERVAL::token));

// Clears an INTERVALX, giving up its table reference and keeping the link
// to its own cycle, which belongs to the caller.
void clear_keep_link(INTERVALX* x) {
  if (x->cinfo != nullptr) zcintcReleaseRef(x->cinfo);
  INTERVALX* link = x->sinterval;
  *x = INTERVALX{};
  x->sinterval = link;
}

// Copies the interval fields and the rest of `from` over `to`, keeping the
// link of `to`; the copy holds no table reference of its own.
void copy_keep_link(const INTERVALX& from, INTERVALX* to) {
  if (to->cinfo != nullptr && to->cinfo != from.cinfo) zcintcReleaseRef(to->cinfo);
  INTERVALX* link = to->sinterval;
  *to = from;
  to->sinterval = link;
  to->cinfo = nullptr;
  to->ccache = nullptr;
}

int parse_text(const char* text, int len, INTERVAL* into) { return zintstr(const_cast<char*>(text), len, into); }

bool has_token(const INTERVALX* x) { return x != nullptr && x->tokenlen > 0; }

bool is_retail_month(int code) { return code == kIntR445Mon || code == kIntR454Mon || code == kIntR544Mon; }
bool is_retail_quarter(int code) { return code == kIntR445Qtr || code == kIntR454Qtr || code == kIntR544Qtr; }
bool is_retail_year(int code) { return code == kIntR445Yr || code == kIntR454Yr || code == kIntR544Yr; }
bool simplifies(int code) {
  return code == kIntWeekv || code == kIntYearv || is_retail_month(code) || is_retail_quarter(code) ||
         is_retail_year(code);
}

// The pairs whose cycles are found by the season-aware routines.
bool seasonal_pair(int code, int cycle) {
  return (code == kIntWeek && cycle == kIntYear) || (code == kIntWeekv && cycle == kIntYearv) ||
         (code == kIntWeekday && (cycle == kIntWeek || cycle == kIntSemimonth || cycle == kIntYear));
}

bool weekly_pair(int code, int cycle) {
  return (code == kIntWeek && cycle == kIntYear) || (code == kIntWeekv && cycle == kIntYearv);
}

// The name of a custom interval's mapping followed by m.
int custom_multiple_name(INTERVALX* iv, long long m, char* text, int size) {
  int multiplier = 0;
  int shift = 0;
  const CUSTOMINTERVAL ref = getCustomIntervalDSRef(iv, &multiplier, &shift);
  int len = ref.interval.name_l;
  if (len < 0) len = 0;
  if (len > 32) len = 32;
  return std::snprintf(text, static_cast<std::size_t>(size), "%.*s%lld", len, ref.interval.name, m);
}

// Step 2 of zintmult: the record rebuilt from its base name and m.
void rebuild(INTERVALX* target, long long m) {
  char text[64] = {};
  int len = 0;
  if (target->intcode == kIntCustom) {
    len = custom_multiple_name(target, m, text, sizeof text);
  } else {
    INTERVAL base{};
    if (zintic(target->intcode, &base) != 0) return;  // retail years keep the copy
    len = m >= 2 ? std::snprintf(text, sizeof text, "%.*s%lld", base.tokenlen, base.token, m)
                 : std::snprintf(text, sizeof text, "%.*s", base.tokenlen, base.token);
  }
  if (len > 0) parse_text(text, len, target);
}

// Step 3: a whole number of weeks in a year becomes years.
enum class Weeks { kGoOn, kToCycle };
Weeks weeks_to_years(INTERVALX* target) {
  const int code = target->intcode;
  const int m = target->intper;
  if (code == kIntWeek) {
    const int per = m % 52 == 0 ? 52 : m % 53 == 0 ? 53 : 0;
    if (per != 0) zinticms(kIntYear, m / per == 1 ? 0 : m / per, 0, target);
    return Weeks::kGoOn;
  }
  if (code == kIntWeekv) {
    const int per = m % 53 == 0 ? 53 : m % 52 == 0 ? 52 : 0;
    if (per == 0) return Weeks::kToCycle;
    zinticms(kIntYearv, m / per == 1 ? 0 : m / per, 0, target);
  }
  return Weeks::kGoOn;
}

// Step 5: the standard interval that one period of the multiple spans,
// found by fitting its two ends.
void fit_multiple(INTERVALX* interval, INTERVALX* target, bool fuzz) {
  const double ds0 = zintnx_seas(target, 0.0, 0.0, interval);
  const double ds1 = zintnx_seas(target, ds0, 1.0, interval);
  INTERVAL fitted{};
  INTINFO info{};
  char units = target->units;
  if (zintfit(ds0, ds1, &units, &fitted, &info) != 0) return;
  const double same = zintc(target, &fitted);
  const bool equal = !esf::is_missing(same) && same == 0.0;
  const int base = interval->intcode;
  bool take = false;
  if (equal) {
    if (fuzz && (base == kIntDay || base == kIntWeekday) && interval->shiftper == 0 && fitted.intcode == kIntWeek) {
      zinticms(kIntWeek, fitted.intper < 2 ? 0 : fitted.intper, 0, &fitted);
    }
    take = true;
  } else {
    take = fuzz && base == kIntDay && fitted.intcode > kIntWeek;
  }
  if (!take) return;
  static_cast<INTERVAL&>(*target) = fitted;
  target->formatw = info.formatw;
  target->formatl = info.formatl;
  std::memcpy(target->format, info.format, sizeof target->format);
}

// Step 6: the cycle of the result, when the result links to a record for it.
void set_cycle(INTERVALX* interval, int nseasons, INTERVALX* target, int sint_flag) {
  INTERVALX* c = target->sinterval;
  if (c == nullptr) return;
  if (sint_flag == 1) {
    zintsea2(target, 0.0, c, &target->nseasons);
    return;
  }
  if (interval->sinterval == nullptr) {
    zintsea2(interval, 0.0, c, &target->nseasons);
  } else {
    target->nseasons = interval->nseasons;
    copy_keep_link(*interval->sinterval, c);
  }
  if (sint_flag == 2) {
    const long long per = static_cast<long long>(c->intper < 1 ? 1 : c->intper) * nseasons;
    if (per >= 1 && per <= INT_MAX) c->intper = static_cast<int>(per);
  } else if (nseasons != 0) {
    target->nseasons /= nseasons;
  }
}

}  // namespace

extern "C" int zintrsimp(struct INTERVALX* interval) {
  if (interval == nullptr) return 2;
  const int code = interval->intcode;
  const int m = interval->intper < 1 ? 1 : interval->intper;
  int to_code = code;
  int to_per = m;
  if (code == kIntWeekv) {
    if (m % 52 == 0) {
      to_code = kIntYearv;
      to_per = m / 52;
    } else if (m % 53 == 0) {
      to_code = kIntYearv;
      to_per = m / 53;
    }
  } else if (is_retail_month(code)) {
    const int year = code - kIntR445Mon + kIntR445Yr;
    const int quarter = code - kIntR445Mon + kIntR445Qtr;
    if (m % 12 == 0) {
      to_code = year;
      to_per = m / 12;
    } else if (m % 3 == 0) {
      to_code = quarter;
      to_per = m / 3;
    }
  } else if (is_retail_quarter(code)) {
    if (m % 4 == 0) {
      to_code = code - kIntR445Qtr + kIntR445Yr;
      to_per = m / 4;
    }
  } else if (!is_retail_year(code) && code != kIntYearv) {
    return 1;
  }
  if (to_code != code || to_per != m) {
    interval->intcode = static_cast<char>(to_code);
    interval->intper = to_per;
    char text[kTokenCapacity] = {};
    int len = kTokenCapacity;
    if (zinti2s(text, &len, interval) == 0) {
      std::memset(interval->token, 0, sizeof interval->token);
      std::memcpy(interval->token, text, static_cast<std::size_t>(len));
      interval->tokenlen = static_cast<short>(len);
    }
  }
  return 0;
}

extern "C" int zintmult(struct INTERVALX* interval, int nseasons, struct INTERVALX* sinterval, int act_flag) {
  if (interval == nullptr || sinterval == nullptr) return 2;
  const int sint_flag = act_flag & kSintMask;
  const bool fuzz = (act_flag & kFuzzFlag) != 0;
  const int simp_flag = act_flag & kSimpMask;

  copy_keep_link(*interval, sinterval);
  const long long m = static_cast<long long>(interval->intper < 1 ? 1 : interval->intper) * nseasons;
  if (m > INT_MAX || m < INT_MIN) return 2;  // no record holds that multiplier
  sinterval->intper = static_cast<int>(m);
  sinterval->nseasons = 0;

  rebuild(sinterval, m);
  if (sinterval->intper != 1) {
    bool to_cycle = false;
    if (simp_flag != kSimpKeepWeeks && simp_flag != (kSimpKeepWeeks | kSimpNone)) {
      to_cycle = weeks_to_years(sinterval) == Weeks::kToCycle;
    }
    const int code = sinterval->intcode;
    if (!to_cycle && (simp_flag & kSimpNone) == 0 && !(code == kIntWeekv && simp_flag == kSimpKeepWeeks)) {
      if (simplifies(code)) {
        zintrsimp(sinterval);
      } else {
        fit_multiple(interval, sinterval, fuzz);
      }
    }
  }
  set_cycle(interval, nseasons, sinterval, sint_flag);
  return 0;
}

extern "C" int zintsea_calc_nseasons(struct INTERVALX* interval, double date, struct INTERVALX* sinterval,
                                     int* nseasons) {
  if (interval == nullptr || sinterval == nullptr || nseasons == nullptr) return 1;
  const int code = interval->intcode;
  const int cycle = sinterval->intcode;
  double s = 0.0;
  double e = 0.0;
  if (seasonal_pair(code, cycle)) {
    s = zintnx_seas(sinterval, date, 0.0, interval);
    e = zintnx_seas(sinterval, s, 1.0, interval);
  } else {
    s = zintnx2(sinterval, date, 0.0);
    if (esf::is_missing(s)) s = 0.0;
    e = zintnx2(sinterval, s, 1.0);
  }
  const bool weekly = weekly_pair(code, cycle);
  const double ts = weekly ? zintnx_seas(interval, s, 0.0, nullptr) : zintnx2(interval, s, 0.0);
  const double te = weekly ? zintnx_seas(interval, e, 0.0, nullptr) : zintnx2(interval, e, 0.0);
  if (esf::is_missing(s) || esf::is_missing(e) || esf::is_missing(ts) || esf::is_missing(te) || ts != s || te != e) {
    *nseasons = 0;
    return 1;
  }
  double count = 0.0;
  if (code == kIntWeek && cycle == kIntYear) {
    const int leap_index = interval->nseasons == 53 ? 53 : 1;
    double y0 = 0.0, w0 = 0.0, y1 = 0.0, w1 = 0.0, day = 0.0;
    zidywdds(s, leap_index, &y0, &w0, &day);
    zidywdds(e, leap_index, &y1, &w1, &day);
    if (esf::is_missing(y0) || esf::is_missing(y1) || esf::is_missing(w0) || esf::is_missing(w1)) {
      *nseasons = 0;
      return 1;
    }
    long long weeks = static_cast<long long>((y1 - y0) * 52.0 + (w1 - w0));
    if (interval->intper > 1) weeks /= interval->intper;
    count = static_cast<double>(weeks);
  } else {
    count = zintck2(interval, s, e);
  }
  if (esf::is_missing(count) || !(count >= 1.0) || count > INT_MAX) {
    *nseasons = 0;
    return 1;
  }
  *nseasons = static_cast<int>(count);
  return 0;
}

extern "C" int zintsea_set(struct INTERVALX* interval, double date, struct INTERVALX* sinterval, int* nseasons) {
  if (interval == nullptr) return 2;
  INTERVALX local{};
  INTERVALX* cycle = interval->sinterval != nullptr ? interval->sinterval : &local;

  // What the caller gave: a number, a cycle name, or the record's own.
  int ns_in = nseasons != nullptr && *nseasons >= 1 ? *nseasons : 0;
  tchar name[sizeof interval->token] = {};
  int name_len = 0;
  const INTERVALX* named = has_token(sinterval) ? sinterval : nullptr;
  if (ns_in == 0 && named == nullptr) {
    if (interval->nseasons >= 1) ns_in = interval->nseasons;
    if (has_token(cycle)) named = cycle;
  }
  if (named != nullptr) {
    name_len = named->tokenlen > kTokenCapacity ? kTokenCapacity : named->tokenlen;
    std::memcpy(name, named->token, static_cast<std::size_t>(name_len));
  }

  if (interval->intcode == kIntNone) {
    clear_keep_link(cycle);
    parse_text("NONE", -1, cycle);
    return 0;
  }
  if (name_len == 0 && ns_in == 0) return zintsea2(interval, date, cycle, &interval->nseasons);

  int rc = 0;
  if (name_len > 0) {
    clear_keep_link(cycle);
    parse_text(name, name_len, cycle);
    if (cycle->intcode == kIntObs) {
      if (ns_in == 0) ns_in = cycle->intper;
      if (ns_in != cycle->intper) rc = 2;
    } else {
      int derived = 0;
      if (zintsea_calc_nseasons(interval, date, cycle, &derived) != 0 || derived < 1) {
        interval->nseasons = 0;
        rc = 1;
      } else if (ns_in > 0 && ns_in != derived) {
        rc = 2;
      } else {
        interval->nseasons = derived;
        ns_in = 0;  // the cycle stands as named
      }
    }
  }
  if (rc == 0 && ns_in >= 1 && (name_len == 0 || cycle->intcode == kIntObs)) {
    if (ns_in == 1) {
      parse_text(interval->token, interval->tokenlen, cycle);
      interval->nseasons = 1;
    } else {
      zintmult(interval, ns_in, cycle, 0x11);
      interval->nseasons = ns_in;
    }
  }
  if (rc == 0 && cycle->tokenlen > 0) wzstrup(cycle->token, cycle->tokenlen);
  return rc;
}
