// Interval names: parsing (zintstr), printing (zinti2s, zintbase) and records
// built from codes (zintic, zinticms).
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include "intervals/interval.h"

// ---- A small custom-interval registry for the custom branches -------------
//
// The image leaves the custom-interval routines unresolved until that
// subsystem is linked in; this executable supplies its own, so that the
// parser's custom branches run against a registry the test controls.
namespace fake_custom {

struct Entry {
  const char* name;    // mapped interval name (upper case)
  const char* format;  // format of its BEGIN variable
  bool load_fails;     // the table can't be read
};
constexpr Entry kRegistry[] = {
    {"MYCAL", "DATE", false},  {"MYDTCAL", "DATETIME", false}, {"MYNUMCAL", "BEST", false},
    {"MY-CAL", "DATE", false}, {"CAL2000", "DATE", false},     {"FAILCAL", "DATE", true},
    {"ODDCAL", "$CHAR", false}, {"CAL1W", "DATE", false},
};
constexpr int kLoadFailure = -2147411957;  // a host status: negative

int references = 0;  // loads less releases
int lookups = 0;     // calls of getcustomname
CINTCInfo* const kInfo = reinterpret_cast<CINTCInfo*>(&references);

bool same_name(const char* mapped, const char* text, int len) {
  if (len < 0 || static_cast<size_t>(len) != std::strlen(mapped)) return false;
  for (int i = 0; i < len; ++i) {
    if (std::toupper(static_cast<unsigned char>(text[i])) != mapped[i]) return false;
  }
  return true;
}

const Entry* find(const char* text, int len) {
  for (const Entry& e : kRegistry) {
    if (same_name(e.name, text, len)) return &e;
  }
  return nullptr;
}

// The registry entry whose name the token begins with, followed only by
// digits and "." (a multiplier and shift).
const Entry* find_token(const INTERVAL* iv) {
  for (int n = iv->tokenlen; n > 0; --n) {
    if (const Entry* e = find(iv->token, n)) return e;
    const char c = iv->token[n - 1];
    if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.')) return nullptr;
  }
  return nullptr;
}

}  // namespace fake_custom

extern "C" int getcustomname(tchar* name, int len) {
  ++fake_custom::lookups;
  return fake_custom::find(name, len) != nullptr ? kIntCustom : 0;
}

extern "C" int zcustLoad(INTERVAL* interval, CINTCInfo** oinfo) {
  *oinfo = nullptr;
  const fake_custom::Entry* e = fake_custom::find_token(interval);
  if (e == nullptr) return 0;
  if (e->load_fails) return fake_custom::kLoadFailure;
  ++fake_custom::references;
  *oinfo = fake_custom::kInfo;
  return 0;
}

extern "C" void zcintcReleaseRef(CINTCInfo* cinfo) {
  if (cinfo == fake_custom::kInfo) --fake_custom::references;
}

extern "C" int customINTFMT(INTERVALX* intervalx, char* fmtname, short* namelen, short* width1, short* width2) {
  *namelen = *width1 = *width2 = 0;
  const fake_custom::Entry* e = fake_custom::find(intervalx->token, intervalx->tokenlen);
  if (e == nullptr) return -1;
  *namelen = static_cast<short>(std::strlen(e->format));
  std::memcpy(fmtname, e->format, static_cast<size_t>(*namelen));
  *width1 = *width2 = 10;
  return 0;
}

extern "C" char zfmtunits(char* format, int fmtlen) {
  const std::string_view f(format, static_cast<size_t>(fmtlen));
  if (f == "DATE") return 'd';
  if (f == "DATETIME" || f == "TIME") return 's';
  if (f == "BEST") return 'o';
  return 0;
}

namespace {

struct Parsed {
  int rc;
  INTERVAL iv;
};

Parsed parse(std::string_view text) {
  Parsed p{};
  std::string buffer(text);
  p.rc = zintstr(buffer.data(), static_cast<int>(buffer.size()), &p.iv);
  return p;
}

std::string print(INTERVAL iv) {
  char text[64];
  int len = sizeof(text);
  const int rc = zinti2s(text, &len, &iv);
  EXPECT_EQ(rc, 0);
  if (rc != 0) return "<" + std::to_string(rc) + ">";
  EXPECT_EQ(static_cast<size_t>(len), std::strlen(text));
  return std::string(text, static_cast<size_t>(len));
}

std::array<int, 7> weekend_of(const INTERVAL& iv) {
  std::array<int, 7> w{};
  for (int i = 0; i < 7; ++i) w[static_cast<size_t>(i)] = iv.weekend[i];
  return w;
}

// Two records describe the same interval: every field but the token.
void expect_same_interval(const INTERVAL& a, const INTERVAL& b, const std::string& what) {
  SCOPED_TRACE(what);
  EXPECT_EQ(a.units, b.units);
  EXPECT_EQ(a.intcode, b.intcode);
  EXPECT_EQ(a.intper, b.intper);
  EXPECT_EQ(a.shiftper, b.shiftper);
  EXPECT_EQ(a.nweekday, b.nweekday);
  EXPECT_EQ(weekend_of(a), weekend_of(b));
  EXPECT_EQ(a.holidays, b.holidays);
}

constexpr std::array<int, 7> kDefaultWeekend = {1, 0, 0, 0, 0, 0, 1};
constexpr std::array<int, 7> kNoWeekend = {0, 0, 0, 0, 0, 0, 0};

// ---- Names that parse -------------------------------------------------------

struct GoodName {
  const char* text;
  int intcode;
  char units;
  int intper;
  int shiftper;
};

constexpr GoodName kGoodNames[] = {
    {"MONTH", kIntMonth, 'd', 1, 0},
    {"Month", kIntMonth, 'd', 1, 0},
    {"month", kIntMonth, 'd', 1, 0},
    {"MONTH3.", kIntMonth, 'd', 3, 0},
    {"MONTH3.2", kIntMonth, 'd', 3, 1},
    {"MONTH3.3", kIntMonth, 'd', 3, 2},
    {"QTR.2", kIntQtr, 'd', 1, 1},
    {"QTR.3", kIntQtr, 'd', 1, 2},
    {"QTR4.12", kIntQtr, 'd', 4, 11},
    {"YEARV.52", kIntYearv, 'd', 1, 51},
    {"YEAR.12", kIntYear, 'd', 1, 11},
    {"YEAR2.24", kIntYear, 'd', 2, 23},
    {"SEMIYEAR.6", kIntSemiyear, 'd', 1, 5},
    {"WEEK.7", kIntWeek, 'd', 1, 6},
    {"WEEKV3.21", kIntWeekv, 'd', 3, 20},
    {"R445YR", kIntR445Yr, 'd', 1, 0},
    {"R454YR.12", kIntR454Yr, 'd', 1, 11},
    {"R544YR2", kIntR544Yr, 'd', 2, 0},
    {"r445mon", kIntR445Mon, 'd', 1, 0},
    {"R454MON3.3", kIntR454Mon, 'd', 3, 2},
    {"R544QTR.3", kIntR544Qtr, 'd', 1, 2},
    {"DTR445YR", kIntR445Yr, 's', 1, 0},
    {"TR454QTR", kIntR454Qtr, 's', 1, 0},
    {"WEEK1.", kIntWeek, 'd', 1, 0},
    {"WEEK2.3", kIntWeek, 'd', 2, 2},
    {"DTDAY", kIntDay, 's', 1, 0},
    {"TDAY", kIntDay, 's', 1, 0},
    {"dtday", kIntDay, 's', 1, 0},
    {"OBS3.", kIntObs, 'o', 3, 0},
    {"OBS3.2", kIntObs, 'o', 3, 1},
    {"DTOBS", kIntObs, 's', 1, 0},
    {"NONE", kIntNone, 'u', 1, 0},
    {"DTNONE", kIntNone, 's', 1, 0},
    {"TENDAY", kIntTenday, 'd', 1, 0},
    {"DTTENDAY", kIntTenday, 's', 1, 0},
    {"TTENDAY", kIntTenday, 's', 1, 0},
    {"SECOND", kIntSecond, 's', 1, 0},
    {"DTSECOND30", kIntSecond, 's', 30, 0},
    {"HOUR", kIntHour, 's', 1, 0},
    {"DTHOUR4", kIntHour, 's', 4, 0},
    {"THOURLY", kIntHour, 's', 1, 0},
    {"MINUTE15.15", kIntMinute, 's', 15, 14},
    {"MONTH2147483647", kIntMonth, 'd', 2147483647, 0},
    {"QTR2147483647.3", kIntQtr, 'd', 2147483647, 2},
    {"YEARV2147483647.52", kIntYearv, 'd', 2147483647, 51},
    {"MONTH000003.", kIntMonth, 'd', 3, 0},
    // Purely numeric texts are observation intervals.
    {"12", kIntObs, 'o', 12, 0},
    {"12.", kIntObs, 'o', 12, 0},
    {".", kIntObs, 'o', 1, 0},
    {"2147483647", kIntObs, 'o', 2147483647, 0},
    // WEEKDAY with and without weekend digits.
    {"WEEKDAY", kIntWeekday, 'd', 1, 0},
    {"WEEKDAY1W", kIntWeekday, 'd', 1, 0},
    {"WEEKDAY123456W7", kIntWeekday, 'd', 7, 0},
    {"WEEKDAY17W2.2", kIntWeekday, 'd', 2, 1},
    {"WEEKDAY67W", kIntWeekday, 'd', 1, 0},
    {"DTWEEKDAY17W", kIntWeekday, 's', 1, 0},
    {"weekday11w", kIntWeekday, 'd', 1, 0},
};

TEST(Zintstr, ParsesNames) {
  for (const GoodName& c : kGoodNames) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(p.iv.intcode, c.intcode);
    EXPECT_EQ(p.iv.units, c.units);
    EXPECT_EQ(p.iv.intper, c.intper);
    EXPECT_EQ(p.iv.shiftper, c.shiftper);
    EXPECT_EQ(p.iv.holidays, nullptr);
    // The token keeps the text as written, and the rest of the field is 0.
    EXPECT_EQ(std::string_view(p.iv.token, static_cast<size_t>(p.iv.tokenlen)), c.text);
    for (size_t i = std::strlen(c.text); i < sizeof(p.iv.token); ++i) EXPECT_EQ(p.iv.token[i], 0);
  }
}

struct WeekendCase {
  const char* text;
  int nweekday;
  std::array<int, 7> weekend;
};

constexpr WeekendCase kWeekends[] = {
    {"WEEKDAY", 5, kDefaultWeekend},
    {"WEEKDAY17W", 5, kDefaultWeekend},
    {"WEEKDAY1W", 6, {1, 0, 0, 0, 0, 0, 0}},
    {"WEEKDAY11W", 6, {1, 0, 0, 0, 0, 0, 0}},
    {"WEEKDAY67W", 5, {0, 0, 0, 0, 0, 1, 1}},
    {"WEEKDAY123456W7", 1, {1, 1, 1, 1, 1, 1, 0}},
    {"WEEKDAY765432W", 1, {0, 1, 1, 1, 1, 1, 1}},
    {"WEEKDAY7W", 6, {0, 0, 0, 0, 0, 0, 1}},
};

TEST(Zintstr, WeekendDigitsSetTheWorkingWeek) {
  for (const WeekendCase& c : kWeekends) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(p.iv.nweekday, c.nweekday);
    EXPECT_EQ(weekend_of(p.iv), c.weekend);
  }
  // Other intervals leave the weekend fields clear.
  const Parsed month = parse("MONTH");
  EXPECT_EQ(month.iv.nweekday, 0);
  EXPECT_EQ(weekend_of(month.iv), kNoWeekend);
}

// Every accepted spelling of every base name.
struct Spelling {
  const char* text;
  int intcode;
};

constexpr Spelling kSpellings[] = {
    {"ANNUAL", kIntYear},       {"ANNUALLY", kIntYear},      {"ANNUALS", kIntYear},
    {"DAY", kIntDay},           {"DAILY", kIntDay},          {"DAYS", kIntDay},
    {"HOUR", kIntHour},         {"HOURLY", kIntHour},        {"HOURS", kIntHour},
    {"HR", kIntHour},           {"MONTH", kIntMonth},        {"MONTHLY", kIntMonth},
    {"MONTHS", kIntMonth},      {"MON", kIntMonth},          {"MINUTE", kIntMinute},
    {"MINUTES", kIntMinute},    {"MIN", kIntMinute},         {"NONE", kIntNone},
    {"OBS", kIntObs},           {"QTR", kIntQtr},            {"QUARTER", kIntQtr},
    {"QUARTERLY", kIntQtr},     {"QUARTERS", kIntQtr},       {"QTRLY", kIntQtr},
    {"QTRS", kIntQtr},          {"R445MON", kIntR445Mon},    {"R454MON", kIntR454Mon},
    {"R544MON", kIntR544Mon},   {"R445QTR", kIntR445Qtr},    {"R454QTR", kIntR454Qtr},
    {"R544QTR", kIntR544Qtr},   {"R445YR", kIntR445Yr},      {"R454YR", kIntR454Yr},
    {"R544YR", kIntR544Yr},     {"SECOND", kIntSecond},      {"SECONDS", kIntSecond},
    {"SEC", kIntSecond},        {"SEMIMONTH", kIntSemimonth}, {"SEMIMONTHLY", kIntSemimonth},
    {"SEMIMONTHS", kIntSemimonth}, {"SEMIMON", kIntSemimonth}, {"SEMIYEAR", kIntSemiyear},
    {"SEMIYEARLY", kIntSemiyear}, {"SEMIYEARS", kIntSemiyear}, {"SEMIYR", kIntSemiyear},
    {"SEMIANNUAL", kIntSemiyear}, {"SEMIANN", kIntSemiyear}, {"TENDAY", kIntTenday},
    {"WEEK", kIntWeek},         {"WEEKLY", kIntWeek},        {"WEEKS", kIntWeek},
    {"WEEKDAY", kIntWeekday},   {"WEEKDAYS", kIntWeekday},   {"WEEKV", kIntWeekv},
    {"YEAR", kIntYear},         {"YEARS", kIntYear},         {"YEARLY", kIntYear},
    {"YR", kIntYear},           {"YEARV", kIntYearv},
};

TEST(Zintstr, AcceptsEverySpellingOfABaseName) {
  for (const Spelling& s : kSpellings) {
    SCOPED_TRACE(s.text);
    const Parsed plain = parse(s.text);
    ASSERT_EQ(plain.rc, 0);
    EXPECT_EQ(plain.iv.intcode, s.intcode);

    std::string lower(s.text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const Parsed lowered = parse(lower);
    ASSERT_EQ(lowered.rc, 0);
    expect_same_interval(lowered.iv, plain.iv, lower);

    // The DT prefix selects datetime units for every base name.
    const Parsed dt = parse(std::string("DT") + s.text);
    ASSERT_EQ(dt.rc, 0);
    EXPECT_EQ(dt.iv.intcode, s.intcode);
    EXPECT_EQ(dt.iv.units, 's');
  }
}

// ---- Names that don't parse -------------------------------------------------

struct BadName {
  const char* text;
  int rc;
};

constexpr BadName kBadNames[] = {
    // 1: the multiplier.
    {"0", 1},
    {"0.", 1},
    {"MONTH0", 1},
    {"MONTH00", 1},
    {"MONTH0.5", 1},
    {"MONTH2147483648", 1},
    {"MONTH99999999999", 1},
    {"99999999999999999999", 1},
    {"WEEKDAY17W0", 1},
    // 2: the shift.
    {"3.2", 2},
    {".5", 2},
    {"MONTH.0", 2},
    {"MONTH.2", 2},
    {"MONTH3.4", 2},
    {"QTR4.13", 2},
    {"QTR.4", 2},
    {"YEARV.53", 2},
    {"YEAR2.25", 2},
    {"SEMIYEAR.7", 2},
    {"WEEK.8", 2},
    {"WEEK.2147483648", 2},
    {"YEARV.99999999999", 2},
    {"WEEKDAY17W.2", 2},
    {"OBS3.4", 2},
    // 101: the length.
    {"", 101},
    {"MONTHMONTHMONTHMONTHMO", 101},
    {"1234567890123456789012", 101},
    // 102: syntax.
    {"MONTH3.2.1", 102},
    {"..", 102},
    {"MONTH1W", 102},
    {"DAY17W", 102},
    {"NONE1W", 102},
    {"WEEKDAY1234567W", 102},
    {"WEEKDAY0W", 102},
    {"WEEKDAY8W", 102},
    {"WEEKDAY18W", 102},
    {"12W", 102},
    {"1W2", 102},
    {"3.X", 102},
    {"MONTH.2X", 102},
    {"MONTH3.2W", 102},
    {"MONTH3.W", 102},
    // 103: unknown names.
    {"R445", 103},
    {"R445XY", 103},
    {"R445M", 103},
    {"NONE2", 103},
    {"NONE.", 103},
    {"FOO", 103},
    {"M", 103},
    {"T", 103},
    {"DT", 103},
    {"DTX", 103},
    {"TEST", 103},
    {"MONT", 103},
    {"MONTHSS", 103},
    {"YEARVV", 103},
    {"ZEAR", 103},
    {"MONTH3X", 103},
    {"MONTH 3", 103},
    {"1-2", 103},
    {"WEEKDAYW", 103},
    {"WEEKDAY12W3W", 103},
    {"DTMYCAL", 103},  // a custom name is never stripped of a prefix
};

TEST(Zintstr, RejectsBadNames) {
  for (const BadName& c : kBadNames) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(parse(c.text).rc, c.rc);
  }
}

TEST(Zintstr, LengthComesFromTheArgumentOrTheTerminator) {
  INTERVAL iv;
  // Only the first len characters count; the text needn't be terminated.
  char unterminated[8] = {'M', 'O', 'N', 'T', 'H', '3', 'X', 'Y'};
  ASSERT_EQ(zintstr(unterminated, 6, &iv), 0);
  EXPECT_EQ(iv.intcode, kIntMonth);
  EXPECT_EQ(iv.intper, 3);
  EXPECT_EQ(iv.tokenlen, 6);

  char terminated[] = "QTR.2";
  ASSERT_EQ(zintstr(terminated, -1, &iv), 0);
  EXPECT_EQ(iv.intcode, kIntQtr);
  EXPECT_EQ(iv.shiftper, 1);
  EXPECT_EQ(iv.tokenlen, 5);

  EXPECT_EQ(zintstr(terminated, 0, &iv), 101);
  char longest[] = "DTSEMIMONTH1.23456789";  // 21 characters: the longest accepted
  ASSERT_EQ(zintstr(longest, -1, &iv), 2);      // but a SEMIMONTH has one sub-period
  char longest_ok[] = "DTSEMIMONTH12345678.9";
  ASSERT_EQ(zintstr(longest_ok, -1, &iv), 0);
  EXPECT_EQ(iv.tokenlen, 21);
  EXPECT_EQ(iv.intper, 12345678);
  EXPECT_EQ(iv.shiftper, 8);
}

TEST(Zintstr, NullArguments) {
  INTERVAL iv;
  char text[] = "MONTH";
  EXPECT_EQ(zintstr(nullptr, 5, &iv), 1001);
  EXPECT_EQ(zintstr(text, 5, nullptr), 1001);
}

TEST(Zintstr, ClearsTheRecordBeforeFillingIt) {
  INTERVAL iv;
  std::memset(&iv, 0x5A, sizeof(iv));
  char text[] = "month";
  ASSERT_EQ(zintstr(text, -1, &iv), 0);
  EXPECT_EQ(iv.nweekday, 0);
  EXPECT_EQ(weekend_of(iv), kNoWeekend);
  EXPECT_EQ(iv.holidays, nullptr);
  EXPECT_EQ(std::string_view(iv.token, 5), "month");
  for (size_t i = 5; i < sizeof(iv.token); ++i) EXPECT_EQ(iv.token[i], 0);
}

// ---- Custom names -----------------------------------------------------------

TEST(ZintstrCustom, ParsesRegisteredNames) {
  struct Case {
    const char* text;
    char units;
    int intper;
    int shiftper;
  };
  const Case cases[] = {
      {"MYCAL", 'd', 1, 0},     {"mycal", 'd', 1, 0},     {"MYCAL2.2", 'd', 2, 1},
      {"MYCAL3.", 'd', 3, 0},   {"MYDTCAL", 's', 1, 0},   {"MYNUMCAL", 'o', 1, 0},
      {"MY-CAL", 'd', 1, 0},    {"MY-CAL3.2", 'd', 3, 1}, {"CAL2000", 'd', 1, 0},
      {"ODDCAL", 'd', 1, 0},  // a format without units gives dates
      {"CAL1W", 'd', 1, 0},   // mapped whole: its "W" is part of the name
  };
  fake_custom::references = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(p.iv.intcode, kIntCustom);
    EXPECT_EQ(p.iv.units, c.units);
    EXPECT_EQ(p.iv.intper, c.intper);
    EXPECT_EQ(p.iv.shiftper, c.shiftper);
  }
  // Every reference the parser took to load a table was given back.
  EXPECT_EQ(fake_custom::references, 0);
}

TEST(ZintstrCustom, CustomTailsFollowTheSameRules) {
  EXPECT_EQ(parse("MYCAL0").rc, 1);
  EXPECT_EQ(parse("MYCAL.2").rc, 2);   // a plain custom interval has no sub-periods
  EXPECT_EQ(parse("MYCAL2.3").rc, 2);  // two of them at most with a multiplier of 2
  EXPECT_EQ(parse("MYCAL1W").rc, 102);
  EXPECT_EQ(parse("MY-CAL.X").rc, 102);
  EXPECT_EQ(parse("MYCALX").rc, 103);
}

TEST(ZintstrCustom, StandardNamesComeFirst) {
  fake_custom::lookups = 0;
  ASSERT_EQ(parse("MONTH").rc, 0);
  EXPECT_EQ(fake_custom::lookups, 0);
  // An unknown name is looked up twice: as its leading name, then whole.
  ASSERT_EQ(parse("NOSUCH2").rc, 103);
  EXPECT_EQ(fake_custom::lookups, 2);
}

TEST(ZintstrCustom, FailedLoadReturnsMinusOne) {
  fake_custom::references = 0;
  EXPECT_EQ(parse("FAILCAL").rc, -1);
  EXPECT_EQ(parse("FAILCAL2").rc, -1);
  EXPECT_EQ(fake_custom::references, 0);
}

TEST(ZintstrCustom, PrintsAsWritten) {
  const Parsed p = parse("MyCal2.2");
  ASSERT_EQ(p.rc, 0);
  EXPECT_EQ(print(p.iv), "MyCal2.2");

  INTERVAL iv = p.iv;
  char text[12];
  std::memset(text, 'x', sizeof(text));
  int len = sizeof(text);
  ASSERT_EQ(zinti2s(text, &len, &iv), 0);
  EXPECT_EQ(len, 8);
  EXPECT_EQ(text[8], '\0');
  for (size_t i = 9; i < sizeof(text); ++i) EXPECT_EQ(text[i], ' ');  // the rest is blanked

  len = 8;  // no room for the NUL
  EXPECT_EQ(zinti2s(text, &len, &iv), 101);

  char base[11];
  int l = 0;
  ASSERT_EQ(zintbase(base, &l, &iv), 0);
  EXPECT_EQ(std::string_view(base, static_cast<size_t>(l)), "NONE");
  const Parsed dt = parse("MYDTCAL");
  iv = dt.iv;
  ASSERT_EQ(zintbase(base, &l, &iv), 0);
  EXPECT_EQ(std::string_view(base, static_cast<size_t>(l)), "DTNONE");
}

// ---- Printing -----------------------------------------------------------------

// The printed forms that the library builds and parses again.
struct PrintedExample {
  const char* text;
  int intcode;
  char units;
  int intper;
  int shiftper;
  std::array<int, 7> weekend;
};

constexpr PrintedExample kPrintedExamples[] = {
    {"MONTH", kIntMonth, 'd', 1, 0, kNoWeekend},
    {"MONTH3.", kIntMonth, 'd', 3, 0, kNoWeekend},
    {"MONTH3.2", kIntMonth, 'd', 3, 1, kNoWeekend},
    {"QTR.2", kIntQtr, 'd', 1, 1, kNoWeekend},
    {"WEEK1.", kIntWeek, 'd', 1, 0, kNoWeekend},
    {"WEEK2.3", kIntWeek, 'd', 2, 2, kNoWeekend},
    {"WEEKDAY", kIntWeekday, 'd', 1, 0, kDefaultWeekend},
    {"WEEKDAY67W", kIntWeekday, 'd', 1, 0, {0, 0, 0, 0, 0, 1, 1}},
    {"DTDAY", kIntDay, 's', 1, 0, kNoWeekend},
    {"OBS3.", kIntObs, 'o', 3, 0, kNoWeekend},
};

TEST(Zinti2s, PrintedExamplesReadBack) {
  for (const PrintedExample& e : kPrintedExamples) {
    SCOPED_TRACE(e.text);
    INTERVAL record{};
    record.units = e.units;
    record.intcode = static_cast<char>(e.intcode);
    record.intper = e.intper;
    record.shiftper = e.shiftper;
    for (int i = 0; i < 7; ++i) record.weekend[i] = static_cast<char>(e.weekend[static_cast<size_t>(i)]);
    if (e.intcode == kIntWeekday) record.nweekday = 5;

    EXPECT_EQ(print(record), e.text);
    const Parsed back = parse(e.text);
    ASSERT_EQ(back.rc, 0);
    expect_same_interval(back.iv, record, e.text);
    EXPECT_EQ(print(back.iv), e.text);
  }
}

// Names whose printed form differs from the text: what comes back is the
// canonical form, and it parses to the same record.
struct Canonical {
  const char* text;
  const char* printed;
};

constexpr Canonical kCanonicalForms[] = {
    {"month", "MONTH"},
    {"MONTHLY", "MONTH"},
    {"MONTH1", "MONTH"},
    {"MONTH1.", "MONTH"},
    {"MONTH1.1", "MONTH"},
    {"MONTH3.1", "MONTH3."},
    {"WEEK", "WEEK1."},
    {"WEEKS2", "WEEK2."},
    {"DTWEEK", "DTWEEK"},  // only the plain name keeps its multiplier of 1
    {"DTWEEK.3", "DTWEEK.3"},
    {"TDAY", "DTDAY"},
    {"DTHOUR", "HOUR"},  // time intervals are always in datetime units
    {"THOUR3.2", "HOUR3.2"},
    {"12", "OBS12."},
    {".", "OBS"},
    {"NONE", "NONE"},
    {"WEEKDAY17W", "WEEKDAY"},
    {"WEEKDAY71W", "WEEKDAY"},
    {"WEEKDAY117W2.2", "WEEKDAY2.2"},
    {"WEEKDAY1W", "WEEKDAY1W"},
    {"WEEKDAY321W", "WEEKDAY123W"},
    {"DTWEEKDAY123456W7", "DTWEEKDAY123456W7."},
    {"QUARTERLY4.12", "QTR4.12"},
    {"YR", "YEAR"},
    {"DTR445YR.2", "DTR445YR.2"},
    {"r544mon2", "R544MON2."},
    {"SEMIANN.6", "SEMIYEAR.6"},
    {"TTENDAY3", "DTTENDAY3."},
    {"YEARV.52", "YEARV.52"},
};

TEST(Zinti2s, PrintsTheCanonicalForm) {
  for (const Canonical& c : kCanonicalForms) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(print(p.iv), c.printed);
    const Parsed back = parse(c.printed);
    ASSERT_EQ(back.rc, 0);
    expect_same_interval(back.iv, p.iv, c.printed);
  }
}

TEST(Zinti2s, DatetimeUnitsOfObsAndNoneAreNotPrinted) {
  // The DT prefix is printed for date intervals only, so these two lose their
  // datetime units when printed.
  const Canonical cases[] = {{"DTOBS", "OBS"}, {"DTNONE", "NONE"}};
  for (const Canonical& c : cases) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(p.iv.units, 's');
    EXPECT_EQ(print(p.iv), c.printed);
    EXPECT_NE(parse(c.printed).iv.units, 's');
  }
}

TEST(Zinti2s, BufferMustHoldTheTextAndItsTerminator) {
  Parsed p = parse("MONTH3.2");
  ASSERT_EQ(p.rc, 0);
  char text[16];
  int len = 9;  // 8 characters and the NUL
  ASSERT_EQ(zinti2s(text, &len, &p.iv), 0);
  EXPECT_EQ(len, 8);
  EXPECT_STREQ(text, "MONTH3.2");

  len = 8;
  EXPECT_EQ(zinti2s(text, &len, &p.iv), 101);
  len = 0;
  EXPECT_EQ(zinti2s(text, &len, &p.iv), 101);

  len = sizeof(text);
  EXPECT_EQ(zinti2s(nullptr, &len, &p.iv), 1001);
  EXPECT_EQ(zinti2s(text, &len, nullptr), 1001);
}

TEST(Zinti2s, RecordsThatNoNameGivesStillPrint) {
  // The longest text: longer than any name the parser takes, so it can't be
  // read back.
  INTERVAL longest{};
  longest.units = 's';
  longest.intcode = kIntSemimonth;
  longest.intper = 2147483647;
  longest.shiftper = 2147483646;
  EXPECT_EQ(print(longest), "DTSEMIMONTH2147483647.2147483647");
  EXPECT_EQ(parse(print(longest)).rc, 101);

  INTERVAL weekday_all{};
  weekday_all.units = 's';
  weekday_all.intcode = kIntWeekday;
  weekday_all.intper = 2147483647;
  weekday_all.shiftper = 2147483646;
  for (char& flag : weekday_all.weekend) flag = 1;
  EXPECT_EQ(print(weekday_all), "DTWEEKDAY1234567W2147483647.2147483647");

  // A cleared record, a reserved code and a custom-free unknown code print as
  // NONE; the retail years, which zintic doesn't build, print by name.
  INTERVAL cleared{};
  EXPECT_EQ(print(cleared), "NONE");
  INTERVAL reserved{};
  reserved.intcode = 28;
  reserved.intper = 1;
  reserved.units = 'd';
  EXPECT_EQ(print(reserved), "NONE");
  INTERVAL retail{};
  retail.intcode = kIntR454Yr;
  retail.intper = 1;
  retail.units = 'd';
  EXPECT_EQ(print(retail), "R454YR");
}

TEST(Zintbase, WritesTheBaseNameAlone) {
  const Canonical cases[] = {
      {"MONTH3.2", "MONTH"},        {"DTWEEKDAY17W2", "DTWEEKDAY"}, {"DTSEMIMONTH", "DTSEMIMONTH"},
      {"WEEK", "WEEK"},             {"DTHOUR4", "HOUR"},            {"12", "OBS"},
      {"DTR445QTR.3", "DTR445QTR"}, {"NONE", "NONE"},               {"YEARV.52", "YEARV"},
  };
  for (const Canonical& c : cases) {
    SCOPED_TRACE(c.text);
    Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    char name[12];
    std::memset(name, '#', sizeof(name));
    int l = -1;
    ASSERT_EQ(zintbase(name, &l, &p.iv), 0);
    EXPECT_EQ(std::string_view(name, static_cast<size_t>(l)), c.printed);
    EXPECT_EQ(name[l], '#');  // no terminator
  }
}

// ---- Records from codes -----------------------------------------------------

TEST(Zintic, BuildsThePlainIntervalOfEveryNamedCode) {
  for (int code = -2; code <= 130; ++code) {
    SCOPED_TRACE(code);
    INTERVAL iv;
    std::memset(&iv, 0x5A, sizeof(iv));
    const INTERVAL untouched = iv;
    const char* name = interval_base_name(code);
    const bool retail_year = code == kIntR445Yr || code == kIntR454Yr || code == kIntR544Yr;
    if (name == nullptr || retail_year) {
      EXPECT_EQ(zintic(code, &iv), 1);
      EXPECT_EQ(std::memcmp(&iv, &untouched, sizeof(iv)), 0);
      continue;
    }
    ASSERT_EQ(zintic(code, &iv), 0);
    EXPECT_EQ(iv.intcode, code);
    EXPECT_EQ(iv.intper, 1);
    EXPECT_EQ(iv.shiftper, 0);
    EXPECT_EQ(std::string_view(iv.token, static_cast<size_t>(iv.tokenlen)), name);
    const Parsed p = parse(name);
    expect_same_interval(iv, p.iv, name);
  }
}

TEST(Zintic, NamedCodes) {
  INTERVAL iv;
  ASSERT_EQ(zintic(kIntYear, &iv), 0);
  EXPECT_EQ(std::string_view(iv.token, static_cast<size_t>(iv.tokenlen)), "YEAR");
  EXPECT_EQ(iv.units, 'd');
  EXPECT_EQ(zintic(28, &iv), 1);
  EXPECT_EQ(zintic(kIntCustom, &iv), 1);
  EXPECT_EQ(zintic(kIntR445Yr, &iv), 1);
  ASSERT_EQ(zintic(kIntWeekday, &iv), 0);
  EXPECT_EQ(iv.nweekday, 5);
  EXPECT_EQ(weekend_of(iv), kDefaultWeekend);
  // A null record: the parser refuses it, and zintic doesn't look.
  EXPECT_EQ(zintic(kIntMonth, nullptr), 0);
}

TEST(Zinticms, BuildsCodeMultiplierAndShift) {
  struct Case {
    int intcode, m, s;
    int rc;
    const char* token;
    int intper, shiftper;
  };
  const Case cases[] = {
      {kIntWeek, 2, 3, 0, "WEEK2.3", 2, 2},
      {kIntWeek, 0, 0, 0, "WEEK", 1, 0},
      {kIntWeek, 0, 7, 0, "WEEK.7", 1, 6},
      {kIntMonth, 3, 0, 0, "MONTH3", 3, 0},
      {kIntQtr, 4, 12, 0, "QTR4.12", 4, 11},
      {kIntObs, 3, 0, 0, "OBS3", 3, 0},
      {kIntWeekday, 2, 2, 0, "WEEKDAY2.2", 2, 1},
      {kIntWeek, -1, 0, 1, nullptr, 0, 0},
      {kIntWeek, 0, -1, 2, nullptr, 0, 0},
      {kIntWeek, -1, -1, 1, nullptr, 0, 0},
      {28, 1, 1, 103, nullptr, 0, 0},
      {kIntR445Yr, 1, 0, 103, nullptr, 0, 0},
      {kIntCustom, 1, 0, 103, nullptr, 0, 0},
      // Whatever the parser makes of the text.
      {kIntMonth, 0, 2, 2, nullptr, 0, 0},
      {kIntQtr, 4, 13, 2, nullptr, 0, 0},
      {kIntNone, 2, 0, 103, nullptr, 0, 0},
      {kIntSemimonth, 2147483647, 2147483647, 101, nullptr, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.intcode << "/" << c.m << "/" << c.s);
    INTERVAL iv{};
    ASSERT_EQ(zinticms(c.intcode, c.m, c.s, &iv), c.rc);
    if (c.rc != 0) continue;
    EXPECT_EQ(iv.intcode, c.intcode);
    EXPECT_EQ(std::string_view(iv.token, static_cast<size_t>(iv.tokenlen)), c.token);
    EXPECT_EQ(iv.intper, c.intper);
    EXPECT_EQ(iv.shiftper, c.shiftper);
  }
}

}  // namespace
