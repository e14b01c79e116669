// The standard seasonal cycle of an interval: the longer interval that one
// cycle of a seasonal model spans (months in a year, hours in a day) and
// the number of intervals, seasons, that it holds.
//
//   MONTH      -> YEAR,   12          MONTH3     -> YEAR,  4
//   DTHOUR4    -> DTDAY,  6           WEEKDAY17W -> WEEK,  5
//   MONTH12    -> YEAR,   1 (derived: one MONTH12 fills a year exactly)
//   MONTH5     -> no cycle (a year isn't a whole number of MONTH5)
//
// Most intervals have a fixed count for a few multipliers (the proper
// divisors of the count of the plain interval). Any other multiplier is
// tried against the dates: the cycle that holds `date` must begin and end
// on boundaries of the interval, and the count is then the number of
// intervals between them.

#include <array>
#include <cstdio>
#include <cstring>
#include <span>

#include "host/host_text.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// Multipliers that have a count of their own, by family.
constexpr std::array<int, 11> kSixtieths{1, 2, 3, 4, 5, 6, 10, 12, 15, 20, 30};
constexpr std::array<int, 7> kHourParts{1, 2, 3, 4, 6, 8, 12};
constexpr std::array<int, 5> kWeekParts{1, 2, 4, 13, 26};
constexpr std::array<int, 8> kTendayParts{1, 2, 3, 4, 6, 9, 12, 18};
constexpr std::array<int, 7> kSemimonthParts{1, 2, 3, 4, 6, 8, 12};
constexpr std::array<int, 5> kMonthParts{1, 2, 3, 4, 6};
constexpr std::array<int, 2> kQuarterParts{1, 2};
constexpr std::array<int, 1> kWholeOnly{1};

// One row of the table of standard cycles. `per_cycle` is the count of the
// plain interval (multiplier 1) in one cycle; a listed multiplier `per`
// gives per_cycle / per seasons. WEEKDAY counts its working days instead.
struct CycleRow {
  int cycle_code = kIntNone;
  std::span<const int> fixed_multipliers;
  int per_cycle = 0;
};

// The retail year that belongs to a retail month or quarter code.
constexpr int retail_year_of(int code) {
  switch (code) {
    case kIntR445Mon:
    case kIntR445Qtr:
    case kIntR445Yr:
      return kIntR445Yr;
    case kIntR454Mon:
    case kIntR454Qtr:
    case kIntR454Yr:
      return kIntR454Yr;
    default:
      return kIntR544Yr;
  }
}

// The standard cycle of a code; false for a code without one (NONE, OBS,
// the reserved values, custom intervals).
bool standard_cycle(int code, CycleRow* row) {
  switch (code) {
    case kIntSecond:
      *row = {kIntMinute, kSixtieths, 60};
      return true;
    case kIntMinute:
      *row = {kIntHour, kSixtieths, 60};
      return true;
    case kIntHour:
      *row = {kIntDay, kHourParts, 24};
      return true;
    case kIntDay:
      *row = {kIntWeek, kWholeOnly, 7};
      return true;
    case kIntWeekday:
      *row = {kIntWeek, {}, 0};
      return true;
    case kIntWeek:
      *row = {kIntYear, kWeekParts, 52};
      return true;
    case kIntWeekv:
      *row = {kIntYearv, kWeekParts, 52};
      return true;
    case kIntTenday:
      *row = {kIntYear, kTendayParts, 36};
      return true;
    case kIntSemimonth:
      *row = {kIntYear, kSemimonthParts, 24};
      return true;
    case kIntMonth:
      *row = {kIntYear, kMonthParts, 12};
      return true;
    case kIntR445Mon:
    case kIntR454Mon:
    case kIntR544Mon:
      *row = {retail_year_of(code), kMonthParts, 12};
      return true;
    case kIntQtr:
      *row = {kIntYear, kQuarterParts, 4};
      return true;
    case kIntR445Qtr:
    case kIntR454Qtr:
    case kIntR544Qtr:
      *row = {retail_year_of(code), kQuarterParts, 4};
      return true;
    case kIntSemiyear:
      *row = {kIntYear, kWholeOnly, 2};
      return true;
    case kIntYear:
      *row = {kIntYear, kWholeOnly, 1};
      return true;
    case kIntR445Yr:
    case kIntR454Yr:
    case kIntR544Yr:
      *row = {code, kWholeOnly, 1};
      return true;
    case kIntYearv:
      *row = {kIntYearv, kWholeOnly, 1};
      return true;
    default:
      return false;
  }
}

// The count of seasons that the table fixes for the interval, or 0 when
// its multiplier isn't listed and the count must come from the dates.
int fixed_season_count(const INTERVAL& iv, const CycleRow& row) {
  const int per = iv.intper < 1 ? 1 : iv.intper;
  if (iv.intcode == kIntWeekday) return iv.nweekday;
  for (const int m : row.fixed_multipliers) {
    if (m == per) return row.per_cycle / per;
  }
  return 0;
}

// Text of the interval `code`, with the DT prefix for datetime values, cut
// to `size` - 1 characters and terminated.
void cycle_name(int code, char units, char* text, std::size_t size) {
  if (size == 0) return;
  std::size_t len = 0;
  for (const char* part : {units == kUnitsDatetime ? "DT" : "", interval_base_name(code)}) {
    for (; *part != '\0' && len + 1 < size; ++part) text[len++] = *part;
  }
  text[len] = '\0';
}

// Answer of a failed search: the cycle record cleared, no seasons.
int no_cycle(INTERVAL* sinterval, int* nseasons) {
  *sinterval = INTERVAL{};
  *nseasons = 0;
  return 1;
}

// The count from the dates: the cycle that holds `date` (or, when that
// can't be placed, the one that begins at 0) must begin and end on
// boundaries of `interval`, and holds as many seasons as intervals lie
// between its two ends.
int derived_season_count(INTERVAL* interval, double date, INTERVAL* sinterval, int* nseasons) {
  double start = zintnx2(sinterval, date, 0.0);
  if (esf::is_missing(start)) start = 0.0;
  const double end = zintnx2(sinterval, start, 1.0);
  const double start_aligned = zintnx2(interval, start, 0.0);
  const double end_aligned = zintnx2(interval, end, 0.0);
  if (esf::is_missing(end) || esf::is_missing(start_aligned) || esf::is_missing(end_aligned) ||
      start_aligned != start || end_aligned != end) {
    return no_cycle(sinterval, nseasons);
  }
  const double count = zintck2(interval, start, end);
  if (esf::is_missing(count) || count < 1.0) return no_cycle(sinterval, nseasons);
  *nseasons = static_cast<int>(count);
  return 0;
}

// Largest season of a custom interval's table.
double custom_season_count(const INTERVAL& interval, double date) {
  INTERVALX intervalx{};
  static_cast<INTERVAL&>(intervalx) = interval;
  const double count = customINTSEAS(&intervalx, date);
  if (intervalx.cinfo != nullptr) zcintcReleaseRef(intervalx.cinfo);
  return count;
}

// The name of the custom interval without its multiplier and shift, upper
// case: the name under which its table is mapped.
int custom_base_name(INTERVAL* interval, char* name, int size) {
  INTERVAL base{};
  zintshft(interval, &base);
  int len = base.intcode == kIntCustom ? base.tokenlen : interval->tokenlen;
  const tchar* token = base.intcode == kIntCustom ? base.token : interval->token;
  if (len < 0) len = 0;
  if (len > size) len = size;
  std::memcpy(name, token, static_cast<std::size_t>(len));
  wzstrup(name, len);
  return len;
}

// Parses `name` (len characters) followed by `multiplier` in digits, when
// that is 1 or more, into `sinterval`.
int parse_with_multiplier(const char* name, int len, long long multiplier, INTERVAL* sinterval) {
  char text[48] = {};
  if (multiplier >= 1) {
    std::snprintf(text, sizeof text, "%.*s%lld", len, name, multiplier);
  } else {
    std::snprintf(text, sizeof text, "%.*s", len, name);
  }
  return zintstr(text, -1, sinterval);
}

// The cycle of a custom interval: its table's largest season tells how
// many rows (groups of `intper` rows) make one cycle, and the cycle is the
// custom interval that many times as long. A table without seasons is its
// own cycle. `from_mapping` takes the mapped name rather than the token.
int custom_cycle(INTERVAL* interval, double date, INTERVAL* sinterval, int* nseasons, bool from_mapping) {
  char name[sizeof interval->token] = {};
  int len = 0;
  if (from_mapping) {
    len = custom_base_name(interval, name, static_cast<int>(sizeof name));
  } else {
    len = interval->tokenlen < 0 ? 0 : interval->tokenlen;
    if (len > static_cast<int>(sizeof name)) len = static_cast<int>(sizeof name);
    std::memcpy(name, interval->token, static_cast<std::size_t>(len));
  }
  const long long per = interval->intper < 1 ? 1 : interval->intper;
  const double count = custom_season_count(*interval, date);
  int rc = 0;
  if (esf::is_missing(count) || count <= 1.0) {
    const long long multiplier = from_mapping && per > 1 ? per : 0;
    rc = parse_with_multiplier(name, len, multiplier, sinterval);
    *nseasons = 1;
  } else {
    const int seasons = static_cast<int>(count);
    rc = parse_with_multiplier(name, len, static_cast<long long>(seasons) * per, sinterval);
    *nseasons = seasons;
  }
  if (rc != 0) return no_cycle(sinterval, nseasons);
  return 0;
}

// The search shared by zintsea and zintsea2, after their argument checks;
// `*nseasons` is 0 and `sinterval` cleared. `nsin` is the caller's
// *nseasons on entry, which zintsea2 reads for the weekly counts.
int find_cycle(INTERVAL* interval, double date, INTERVAL* sinterval, int* nseasons, bool second_form, int nsin) {
  const int code = interval->intcode;
  const int per = interval->intper < 1 ? 1 : interval->intper;

  if (second_form && code == kIntObs) {
    char text[24] = {};
    std::snprintf(text, sizeof text, "OBS%d", per);
    if (zintstr(text, -1, sinterval) != 0) return no_cycle(sinterval, nseasons);
    *nseasons = 1;
    return 0;
  }
  if (code == kIntCustom) return custom_cycle(interval, date, sinterval, nseasons, second_form);

  CycleRow row;
  if (!standard_cycle(code, &row)) return 1;
  *nseasons = fixed_season_count(*interval, row);
  if (second_form && per == 1) {
    // A year holds 52 or 53 weeks; the caller's count decides which.
    if (code == kIntWeek) *nseasons = nsin == 53 ? 53 : 52;
    if (code == kIntWeekv) *nseasons = nsin == 52 ? 52 : 53;
  }

  char text[24] = {};
  cycle_name(row.cycle_code, interval->units, text, sizeof text);
  zintstr(text, -1, sinterval);
  if (*nseasons != 0) return 0;
  return derived_season_count(interval, date, sinterval, nseasons);
}

}  // namespace

extern "C" int zintsea(struct INTERVAL* interval, double date, struct INTERVAL* sinterval, int* nseasons) {
  if (sinterval == nullptr) {
    if (nseasons != nullptr) *nseasons = 0;
    return 2;
  }
  *sinterval = INTERVAL{};
  if (nseasons == nullptr) return 2;
  *nseasons = 0;
  if (interval == nullptr || interval->intcode == kIntNone) return 2;
  return find_cycle(interval, date, sinterval, nseasons, /*second_form=*/false, 0);
}

extern "C" int zintsea2(struct INTERVAL* interval, double date, struct INTERVAL* sinterval, int* nseasons) {
  if (sinterval == nullptr) {
    if (nseasons != nullptr) *nseasons = 0;
    return 2;
  }
  *sinterval = INTERVAL{};
  if (nseasons == nullptr) return 2;
  const int nsin = *nseasons;
  *nseasons = 0;
  if (interval == nullptr || interval->intcode == kIntNone) return 2;
  return find_cycle(interval, date, sinterval, nseasons, /*second_form=*/true, nsin);
}
