// Interval names: parsing (zintstr), printing (zinti2s, zintbase) and records
// built from codes (zintic, zinticms). The round trips over every spelling,
// prefix, multiplier, shift and weekend are in interval_roundtrip_test.cpp;
// this file holds the literal cases: refusals, canonical texts and buffers.
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include "intervals/interval.h"
#include "support/interval_cases.h"

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
    {"MY-CAL", "DATE", false}, {"FAILCAL", "DATE", true},      {"ODDCAL", "$CHAR", false},
    {"CAL1W", "DATE", false},
};
constexpr int kLoadFailure = -2147411957;  // a host status: negative

int references = 0;  // loads less releases
int lookups = 0;     // calls of getcustomname
CINTCInfo* const kInfo = reinterpret_cast<CINTCInfo*>(&references);

const Entry* find(const char* text, int len) {
  for (const Entry& e : kRegistry) {
    if (len < 0 || static_cast<size_t>(len) != std::strlen(e.name)) continue;
    int i = 0;
    while (i < len && std::toupper(static_cast<unsigned char>(text[i])) == e.name[i]) ++i;
    if (i == len) return &e;
  }
  return nullptr;
}

// The registry entry named by the token less a tail of digits and "."
// (a multiplier and shift).
const Entry* find_token(const INTERVAL* iv) {
  int n = iv->tokenlen;
  while (n > 0 && find(iv->token, n) == nullptr &&
         (std::isdigit(static_cast<unsigned char>(iv->token[n - 1])) || iv->token[n - 1] == '.')) {
    --n;
  }
  return find(iv->token, n);
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

using cases::parse;
using cases::Parsed;

std::string print(const INTERVAL& iv) { return cases::text_of(iv); }

std::string token_of(const INTERVAL& iv) { return std::string(iv.token, static_cast<size_t>(iv.tokenlen)); }

std::array<int, 7> weekend_of(const INTERVAL& iv) {
  std::array<int, 7> w{};
  for (int i = 0; i < 7; ++i) w[static_cast<size_t>(i)] = iv.weekend[i];
  return w;
}

constexpr std::array<int, 7> kDefaultWeekend = {1, 0, 0, 0, 0, 0, 1};
constexpr std::array<int, 7> kNoWeekend = {0, 0, 0, 0, 0, 0, 0};

// ---- Names that parse -------------------------------------------------------

// Forms outside the grids of the round-trip test: numeric texts, the T
// prefix on other spellings, weekend digits with DT or in lower case, and
// registered custom names.
TEST(Zintstr, ParsesNames) {
  const struct {
    const char* text;
    int intcode;
    char units;
    int intper;
    int shiftper;
  } cases[] = {
      {"THOURLY", kIntHour, 's', 1, 0},  // the T prefix before another spelling
      // Purely numeric texts are observation intervals.
      {"12", kIntObs, 'o', 12, 0}, {"12.", kIntObs, 'o', 12, 0}, {".", kIntObs, 'o', 1, 0},
      {"2147483647", kIntObs, 'o', 2147483647, 0},
      {"DTWEEKDAY17W", kIntWeekday, 's', 1, 0}, {"weekday11w", kIntWeekday, 'd', 1, 0},
      // Registered custom names, in the units of their table's format.
      {"mycal", kIntCustom, 'd', 1, 0},    {"MYCAL2.2", kIntCustom, 'd', 2, 1},
      {"MYDTCAL", kIntCustom, 's', 1, 0},  {"MYNUMCAL", kIntCustom, 'o', 1, 0},
      {"MY-CAL3.2", kIntCustom, 'd', 3, 1},
      {"ODDCAL", kIntCustom, 'd', 1, 0},  // a format without units gives dates
      {"CAL1W", kIntCustom, 'd', 1, 0},   // mapped whole: its "W" is part of the name
  };
  fake_custom::references = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(p.iv.intcode, c.intcode);
    EXPECT_EQ(p.iv.units, c.units);
    EXPECT_EQ(p.iv.intper, c.intper);
    EXPECT_EQ(p.iv.shiftper, c.shiftper);
    EXPECT_EQ(p.iv.holidays, nullptr);
    // The token keeps the text as written, and the rest of the field is 0.
    EXPECT_EQ(token_of(p.iv), c.text);
    for (size_t i = std::strlen(c.text); i < sizeof(p.iv.token); ++i) EXPECT_EQ(p.iv.token[i], 0);
  }
  // Every reference the parser took to load a custom table was given back.
  EXPECT_EQ(fake_custom::references, 0);
  // A plain WEEKDAY has the default weekend; other intervals none.
  EXPECT_EQ(parse("WEEKDAY").iv.nweekday, 5);
  EXPECT_EQ(weekend_of(parse("WEEKDAY").iv), kDefaultWeekend);
  EXPECT_EQ(parse("MONTH").iv.nweekday, 0);
  EXPECT_EQ(weekend_of(parse("MONTH").iv), kNoWeekend);
}

// ---- Names that don't parse -------------------------------------------------

TEST(Zintstr, RejectsBadNames) {
  const struct {
    const char* text;
    int rc;
  } cases[] = {
      // 1: the multiplier.
      {"0", 1}, {"MONTH00", 1}, {"MONTH0.5", 1}, {"MONTH99999999999", 1}, {"99999999999999999999", 1},
      {"WEEKDAY17W0", 1},
      // 2: the shift.
      {"3.2", 2}, {".5", 2}, {"MONTH.0", 2}, {"MONTH.2", 2}, {"WEEK.2147483648", 2}, {"YEARV.99999999999", 2},
      {"WEEKDAY17W.2", 2}, {"OBS3.4", 2},
      // 101: the length.
      {"", 101}, {"1234567890123456789012", 101},
      // 102: syntax.
      {"MONTH3.2.1", 102}, {"..", 102}, {"MONTH1W", 102}, {"NONE1W", 102}, {"WEEKDAY1234567W", 102},
      {"WEEKDAY0W", 102}, {"WEEKDAY8W", 102}, {"12W", 102}, {"1W2", 102}, {"3.X", 102}, {"MONTH.2X", 102},
      {"MONTH3.W", 102},
      // 103: unknown names.
      {"R445", 103}, {"R445M", 103}, {"NONE2", 103}, {"NONE.", 103}, {"M", 103}, {"T", 103}, {"DT", 103},
      {"DTX", 103}, {"MONTHSS", 103}, {"MONTH3X", 103}, {"MONTH 3", 103}, {"1-2", 103}, {"WEEKDAYW", 103},
      {"WEEKDAY12W3W", 103},
      // Custom names: the same rules for the tail, and -1 when the table
      // can't be loaded.
      {"DTMYCAL", 103},  // a custom name is never stripped of a prefix
      {"MYCAL0", 1}, {"MYCAL.2", 2}, {"MYCAL2.3", 2}, {"MYCAL1W", 102}, {"MY-CAL.X", 102}, {"MYCALX", 103},
      {"FAILCAL", -1}, {"FAILCAL2", -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(parse(c.text).rc, c.rc);
  }
}

TEST(Zintstr, LengthArgumentNullsAndStaleRecords) {
  INTERVAL iv;
  // Only the first len characters count; the text needn't be terminated.
  char unterminated[8] = {'M', 'O', 'N', 'T', 'H', '3', 'X', 'Y'};
  ASSERT_EQ(zintstr(unterminated, 6, &iv), 0);
  EXPECT_EQ(iv.intper, 3);
  EXPECT_EQ(iv.tokenlen, 6);
  char terminated[] = "QTR.2";
  ASSERT_EQ(zintstr(terminated, -1, &iv), 0);
  EXPECT_EQ(iv.shiftper, 1);
  EXPECT_EQ(iv.tokenlen, 5);
  EXPECT_EQ(zintstr(terminated, 0, &iv), 101);
  char longest[] = "DTSEMIMONTH12345678.9";  // 21 characters: the longest accepted
  ASSERT_EQ(zintstr(longest, -1, &iv), 0);
  EXPECT_EQ(iv.tokenlen, 21);
  EXPECT_EQ(iv.intper, 12345678);

  EXPECT_EQ(zintstr(nullptr, 5, &iv), 1001);
  EXPECT_EQ(zintstr(terminated, 5, nullptr), 1001);

  // The record is cleared before it is filled.
  std::memset(&iv, 0x5A, sizeof(iv));
  char text[] = "month";
  ASSERT_EQ(zintstr(text, -1, &iv), 0);
  EXPECT_EQ(iv.nweekday, 0);
  EXPECT_EQ(weekend_of(iv), kNoWeekend);
  EXPECT_EQ(iv.holidays, nullptr);
  for (size_t i = 5; i < sizeof(iv.token); ++i) EXPECT_EQ(iv.token[i], 0);
}

// ---- Custom names -----------------------------------------------------------

// Standard names never reach the registry; an unknown name is looked up
// twice: as its leading name, then whole. A failed load keeps no reference.
TEST(ZintstrCustom, LookupsAndReferences) {
  fake_custom::lookups = 0;
  ASSERT_EQ(parse("MONTH").rc, 0);
  EXPECT_EQ(fake_custom::lookups, 0);
  ASSERT_EQ(parse("NOSUCH2").rc, 103);
  EXPECT_EQ(fake_custom::lookups, 2);
  fake_custom::references = 0;
  EXPECT_EQ(parse("FAILCAL2").rc, -1);
  EXPECT_EQ(fake_custom::references, 0);
}

// A custom name prints as written, and the rest of the buffer is blanked.
TEST(ZintstrCustom, PrintsAsWritten) {
  INTERVAL iv = parse("MyCal2.2").iv;
  char text[12];
  std::memset(text, 'x', sizeof(text));
  int len = sizeof(text);
  ASSERT_EQ(zinti2s(text, &len, &iv), 0);
  EXPECT_EQ(std::string(text, sizeof(text)), std::string("MyCal2.2\0   ", sizeof(text)));
}

// ---- Printing -----------------------------------------------------------------

// Names whose printed form differs from the text: what comes back is the
// canonical form, and it parses to the same record.
TEST(Zinti2s, PrintsTheCanonicalForm) {
  const struct {
    const char* text;
    const char* printed;
  } cases[] = {
      {"MONTHLY", "MONTH"}, {"MONTH1.1", "MONTH"}, {"MONTH3.1", "MONTH3."}, {"WEEK", "WEEK1."},
      {"DTWEEK", "DTWEEK"},  // only the plain name keeps its multiplier of 1
      {"TDAY", "DTDAY"},
      {"DTHOUR", "HOUR"},  // time intervals are always in datetime units
      {"THOUR3.2", "HOUR3.2"}, {"12", "OBS12."}, {".", "OBS"}, {"WEEKDAY71W", "WEEKDAY"},
      {"WEEKDAY117W2.2", "WEEKDAY2.2"}, {"WEEKDAY321W", "WEEKDAY123W"},
      {"DTWEEKDAY123456W7", "DTWEEKDAY123456W7."}, {"QUARTERLY4.12", "QTR4.12"}, {"r544mon2", "R544MON2."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(print(p.iv), c.printed);
    const Parsed back = parse(c.printed);
    ASSERT_EQ(back.rc, 0);
    EXPECT_TRUE(cases::same_interval(back.iv, p.iv)) << c.printed;
  }
  // The DT prefix is printed for date intervals only, so these two lose
  // their datetime units when printed.
  for (const char* text : {"DTOBS", "DTNONE"}) {
    const Parsed p = parse(text);
    ASSERT_EQ(p.iv.units, 's');
    EXPECT_EQ(print(p.iv), text + 2);
  }
}

TEST(Zinti2s, BufferMustHoldTheTextAndItsTerminator) {
  Parsed p = parse("MONTH3.2");
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

INTERVAL record(char units, int intcode, int intper, int shiftper) {
  INTERVAL iv{};
  iv.units = units;
  iv.intcode = static_cast<char>(intcode);
  iv.intper = intper;
  iv.shiftper = shiftper;
  return iv;
}

TEST(Zinti2s, RecordsThatNoNameGivesStillPrint) {
  // The longest text: longer than any name the parser takes.
  const INTERVAL longest = record('s', kIntSemimonth, 2147483647, 2147483646);
  EXPECT_EQ(print(longest), "DTSEMIMONTH2147483647.2147483647");
  EXPECT_EQ(parse(print(longest)).rc, 101);
  INTERVAL weekday_all = record('s', kIntWeekday, 2147483647, 2147483646);
  for (char& flag : weekday_all.weekend) flag = 1;
  EXPECT_EQ(print(weekday_all), "DTWEEKDAY1234567W2147483647.2147483647");
  // A cleared record and a reserved code print as NONE; the retail years,
  // which zintic doesn't build, print by name.
  EXPECT_EQ(print(INTERVAL{}), "NONE");
  EXPECT_EQ(print(record('d', 28, 1, 0)), "NONE");
  EXPECT_EQ(print(record('d', kIntR454Yr, 1, 0)), "R454YR");
}

TEST(Zintbase, WritesTheBaseNameAlone) {
  const struct {
    const char* text;
    const char* base;
  } cases[] = {
      {"MONTH3.2", "MONTH"}, {"DTWEEKDAY17W2", "DTWEEKDAY"}, {"DTHOUR4", "HOUR"},
      {"12", "OBS"},         {"DTR445QTR.3", "DTR445QTR"},   {"YEARV.52", "YEARV"},
      {"MyCal2.2", "NONE"},  {"MYDTCAL", "DTNONE"},  // custom names have no base name
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    char name[12];
    std::memset(name, '#', sizeof(name));
    int l = -1;
    ASSERT_EQ(zintbase(name, &l, &p.iv), 0);
    EXPECT_EQ(std::string_view(name, static_cast<size_t>(l)), c.base);
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
    EXPECT_EQ(token_of(iv), name);
    EXPECT_TRUE(cases::same_interval(iv, parse(name).iv)) << name;
  }
  // A null record: the parser refuses it, and zintic doesn't look.
  EXPECT_EQ(zintic(kIntMonth, nullptr), 0);
}

// The token zinticms writes, and its refusals (which agree with the parser's
// answers for the same name are checked in the round-trip test).
TEST(Zinticms, BuildsCodeMultiplierAndShift) {
  const struct {
    int intcode, m, s;
    int rc;
    const char* token;
  } cases[] = {
      {kIntWeek, 2, 3, 0, "WEEK2.3"},      {kIntWeek, 0, 0, 0, "WEEK"},  {kIntWeek, 0, 7, 0, "WEEK.7"},
      {kIntMonth, 3, 0, 0, "MONTH3"},      {kIntWeekday, 2, 2, 0, "WEEKDAY2.2"},
      {kIntWeek, -1, 0, 1, nullptr},       {kIntWeek, 0, -1, 2, nullptr}, {kIntWeek, -1, -1, 1, nullptr},
      {28, 1, 1, 103, nullptr},            {kIntR445Yr, 1, 0, 103, nullptr}, {kIntCustom, 1, 0, 103, nullptr},
      {kIntSemimonth, 2147483647, 2147483647, 101, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.intcode << "/" << c.m << "/" << c.s);
    INTERVAL iv{};
    ASSERT_EQ(zinticms(c.intcode, c.m, c.s, &iv), c.rc);
    if (c.rc == 0) {
      EXPECT_EQ(token_of(iv), c.token);
    }
  }
}

}  // namespace
