// Interval names: parsing (zintstr) and printing (zinti2s). The round trips
// over every spelling, prefix, multiplier, shift and weekend, and the
// records built from codes (zintic, zinticms), are in
// interval_roundtrip_test.cpp, and registered custom names in
// custom_test.cpp (with real tables); this file holds the literal cases:
// refusals, canonical texts and buffers.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "intervals/interval.h"
#include "support/interval_cases.h"

namespace {

using cases::parse;
using cases::Parsed;

using cases::text_of;

// ---- Names that don't parse -------------------------------------------------

// Multipliers and shifts of 0, past 32 bits or past the shift limit, and
// names past 21 characters, are refused in the round-trip grid.
TEST(Zintstr, RejectsBadNames) {
  const struct {
    const char* text;
    int rc;
  } cases[] = {
      // 1: the multiplier; 2: the shift; 101: the length.
      {"99999999999999999999", 1},
      {"WEEKDAY17W0", 1},
      {"3.2", 2},
      {"WEEKDAY17W.2", 2},
      {"", 101},
      // 102: syntax.
      {"MONTH3.2.1", 102},
      {"MONTH1W", 102},
      {"WEEKDAY0W", 102},
      {"3.X", 102},
      // 103: unknown names.
      {"R445", 103},
      {"DT", 103},
      {"MONTH3X", 103},
      {"WEEKDAYW", 103},
  };
  for (const auto& c : cases) EXPECT_EQ(parse(c.text).rc, c.rc) << c.text;
}

TEST(Zintstr, LengthArgumentNullsAndStaleRecords) {
  INTERVAL iv;
  // Only the first len characters count; the text needn't be terminated.
  char unterminated[8] = {'M', 'O', 'N', 'T', 'H', '3', 'X', 'Y'};
  ASSERT_EQ(zintstr(unterminated, 6, &iv), 0);
  EXPECT_EQ(iv.intper, 3);
  EXPECT_EQ(iv.tokenlen, 6);
  char terminated[] = "QTR.2";
  EXPECT_EQ(zintstr(terminated, 0, &iv), 101);
  EXPECT_EQ(zintstr(nullptr, 5, &iv), 1001);
  EXPECT_EQ(zintstr(terminated, 5, nullptr), 1001);

  // The record is cleared before it is filled.
  std::memset(&iv, 0x5A, sizeof(iv));
  char text[] = "month";
  ASSERT_EQ(zintstr(text, -1, &iv), 0);
  EXPECT_EQ(iv.nweekday, 0);
  for (const char flag : iv.weekend) EXPECT_EQ(flag, 0);
  EXPECT_EQ(iv.holidays, nullptr);
  for (size_t i = 5; i < sizeof(iv.token); ++i) EXPECT_EQ(iv.token[i], 0);
}

// ---- Printing -----------------------------------------------------------------

// Names whose printed form differs from the text: what comes back is the
// canonical form (which parses back to the same record: the round trips).
TEST(Zinti2s, PrintsTheCanonicalForm) {
  const struct {
    const char* text;
    const char* printed;
  } cases[] = {
      {"MONTHLY", "MONTH"},
      {"MONTH3.1", "MONTH3."},
      {"WEEK", "WEEK1."},
      {"DTWEEK", "DTWEEK"},  // only the plain name keeps its multiplier of 1
      {"TDAY", "DTDAY"},
      {"DTHOUR", "HOUR"},  // time intervals are always in datetime units
      // Purely numeric texts are observation intervals.
      {"12", "OBS12."},
      {".", "OBS"},
      {"2147483647", "OBS2147483647."},
      {"WEEKDAY71W", "WEEKDAY"},
      {"DTWEEKDAY123456W7", "DTWEEKDAY123456W7."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Parsed p = parse(c.text);
    ASSERT_EQ(p.rc, 0);
    EXPECT_EQ(text_of(p.iv), c.printed);
  }
  // The DT prefix is printed for date intervals only, so these two lose
  // their datetime units when printed.
  for (const char* text : {"DTOBS", "DTNONE"}) {
    const Parsed p = parse(text);
    ASSERT_EQ(p.iv.units, 's');
    EXPECT_EQ(text_of(p.iv), text + 2);
  }
}

INTERVAL record(char units, int intcode, int intper, int shiftper) {
  INTERVAL iv{};
  iv.units = units;
  iv.intcode = static_cast<char>(intcode);
  iv.intper = intper;
  iv.shiftper = shiftper;
  return iv;
}

TEST(Zinti2s, BuffersAndRecordsThatNoNameGives) {
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
  // Records that no name gives still print, the longest longer than any
  // name the parser takes.
  const INTERVAL longest = record('s', kIntSemimonth, 2147483647, 2147483646);
  EXPECT_EQ(text_of(longest), "DTSEMIMONTH2147483647.2147483647");
  EXPECT_EQ(parse(text_of(longest)).rc, 101);
  INTERVAL weekday_all = record('s', kIntWeekday, 2147483647, 2147483646);
  for (char& flag : weekday_all.weekend) flag = 1;
  EXPECT_EQ(text_of(weekday_all), "DTWEEKDAY1234567W2147483647.2147483647");
  // A cleared record and a reserved code print as NONE; the retail years,
  // which zintic doesn't build, print by name.
  EXPECT_EQ(text_of(INTERVAL{}), "NONE");
  EXPECT_EQ(text_of(record('d', 28, 1, 0)), "NONE");
  EXPECT_EQ(text_of(record('d', kIntR454Yr, 1, 0)), "R454YR");
}

}  // namespace
