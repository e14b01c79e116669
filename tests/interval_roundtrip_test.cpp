// Properties of interval names over every base name, prefix, weekend,
// multiplier and shift: a parsed name prints to a text that parses back to
// the same interval, and the parser's result follows from the parts of the
// name. The fuzz target interval_name holds the round trip for any text.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "intervals/interval.h"
#include "support/interval_cases.h"

namespace {

using cases::parse;
using cases::Parsed;
using cases::same_interval;

using cases::text_of;

// A parsed name prints to a text that parses back to the same interval, and
// printing that again gives the same text, as long as the printed text is
// within the parser's 21 characters. DTOBS and DTNONE are the two names whose
// datetime units the printer drops.
void expect_round_trip(const std::string& text, const INTERVAL& iv) {
  const std::string printed = text_of(iv);
  const Parsed back = parse(printed);
  if (printed.size() > 21) {
    // The printed form may be longer than the text ("TDAY2147483647.13"
    // prints with "DT"); the parser takes 21 characters at most.
    EXPECT_EQ(back.rc, 101) << text << " -> " << printed;
    return;
  }
  const bool units_dropped = iv.intcode < 21 && iv.units == 's' && iv.intcode != kIntSecond &&
                             iv.intcode != kIntMinute && iv.intcode != kIntHour;
  if (units_dropped) {
    EXPECT_EQ(back.rc, 0) << text << " -> " << printed;
    return;
  }
  ASSERT_EQ(back.rc, 0) << text << " -> " << printed;
  EXPECT_TRUE(same_interval(back.iv, iv)) << text << " -> " << printed;
  EXPECT_EQ(text_of(back.iv), printed) << text;
}

// The largest shift of a name of multiplier 1: the fewest sub-intervals
// (zintshft) that any of 400 of its periods holds; NONE shifts by nothing.
int shift_limit(int code) {
  INTERVAL iv = parse(interval_base_name(code)).iv;
  INTERVAL sub{};
  if (zintshft(&iv, &sub) != 0 || code == kIntNone) return 1;
  const double start = iv.units == kUnitsDatetime ? cases::d(2000, 1, 1) * 86400.0 : cases::d(2000, 1, 1);
  double fewest = 1e9;
  for (int k = 0; k < 400 && fewest > 1; ++k) {
    const double periods = zintck2(&sub, zintnx2(&iv, start, k), zintnx2(&iv, start, k + 1));
    fewest = std::min(fewest, periods);
  }
  return static_cast<int>(fewest);
}

// Every spelling of every named code: the base names and the others the
// parser accepts.
std::vector<std::pair<int, std::string>> spellings() {
  std::vector<std::pair<int, std::string>> all;
  for (int code = 0; code <= 64; ++code) {
    if (interval_base_name(code) != nullptr) all.emplace_back(code, interval_base_name(code));
  }
  const struct {
    int code;
    std::vector<const char*> names;
  } others[] = {
      {kIntSecond, {"SECONDS", "SEC"}},
      {kIntMinute, {"MINUTES", "MIN"}},
      {kIntHour, {"HOURLY", "HOURS", "HR"}},
      {kIntDay, {"DAILY", "DAYS"}},
      {kIntWeekday, {"WEEKDAYS"}},
      {kIntWeek, {"WEEKLY", "WEEKS"}},
      {kIntSemimonth, {"SEMIMONTHLY", "SEMIMONTHS", "SEMIMON"}},
      {kIntMonth, {"MONTHLY", "MONTHS", "MON"}},
      {kIntQtr, {"QUARTER", "QUARTERLY", "QUARTERS", "QTRLY", "QTRS"}},
      {kIntSemiyear, {"SEMIYEARLY", "SEMIYEARS", "SEMIYR", "SEMIANNUAL", "SEMIANN"}},
      {kIntYear, {"YEARS", "YEARLY", "YR", "ANNUAL", "ANNUALLY", "ANNUALS"}},
  };
  for (const auto& o : others) {
    for (const char* name : o.names) all.emplace_back(o.code, name);
  }
  return all;
}

// Multiplier texts: absent, ordinary, with leading zeros, at the limit,
// and the three that are refused.
struct Number {
  const char* text;
  long long value;  // 0 for absent; -1 refused
};
constexpr Number kMultipliers[] = {
    {"", 0},   {"1", 1},           {"2", 2}, {"3", 3}, {"12", 12}, {"007", 7}, {"52", 52}, {"2147483647", 2147483647},
    {"0", -1}, {"2147483648", -1},
};
constexpr Number kShifts[] = {
    {"", 0},  {"1", 1},   {"2", 2},   {"3", 3},   {"4", 4},   {"6", 6},  {"7", 7},
    {"8", 8}, {"12", 12}, {"13", 13}, {"52", 52}, {"53", 53}, {"0", -1}, {"2147483648", -1},
};

// Every spelling with every prefix, multiplier and shift, each written in a
// random mix of cases: the case of the input matters only to the token.
TEST(IntervalRoundTrip, EverySpellingPrefixMultiplierAndShift) {
  std::mt19937 rng(7);
  int parsed_names = 0;
  for (const auto& [code, base] : spellings()) {
    const int limit = shift_limit(code);
    for (const char* prefix : {"", "DT", "T"}) {
      // "T" before TENDAY reads as part of the name.
      const bool t_prefix_kept = std::string_view(prefix) == "T" && base[0] == 'E';
      for (const Number& m : kMultipliers) {
        for (bool dot : {false, true}) {
          for (const Number& s : kShifts) {
            if (!dot && s.text[0] != '\0') continue;
            std::string text = std::string(prefix) + base + m.text + (dot ? "." : "") + s.text;
            for (char& c : text) {
              if ((rng() & 1) != 0) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            }
            SCOPED_TRACE(text);
            const Parsed p = parse(text);

            // The result expected from the parts of the name.
            const long long per = m.value == 0 ? 1 : m.value;
            int expected = 0;
            if (text.size() > 21) {
              expected = 101;
            } else if (t_prefix_kept) {
              expected = 103;
            } else if (code == kIntNone && (m.text[0] != '\0' || dot)) {
              expected = 103;
            } else if (m.value < 0) {
              expected = 1;
            } else if (s.value < 0 || s.value > per * limit) {
              expected = 2;
            }
            ASSERT_EQ(p.rc, expected);
            if (p.rc != 0) continue;

            ++parsed_names;
            EXPECT_EQ(cases::token_of(p.iv), text);
            EXPECT_EQ(p.iv.intcode, code);
            EXPECT_EQ(p.iv.intper, per);
            EXPECT_EQ(p.iv.shiftper, s.value > 0 ? s.value - 1 : 0);
            const bool datetime = prefix[0] != '\0' || code == kIntSecond || code == kIntMinute || code == kIntHour;
            const char units = datetime ? 's' : code == kIntNone ? 'u' : code == kIntObs ? 'o' : 'd';
            EXPECT_EQ(p.iv.units, units);
            expect_round_trip(text, p.iv);
          }
        }
      }
    }
  }
  EXPECT_GT(parsed_names, 1000);
}

// Every set of weekend days, written in any order and with repeats.
TEST(IntervalRoundTrip, EveryWeekend) {
  std::mt19937 rng(20240229);
  for (int mask = 1; mask < 128; ++mask) {
    std::string digits;
    for (int day = 0; day < 7; ++day) {
      if (mask & (1 << day)) digits += static_cast<char>('1' + day);
    }
    const int off_days = static_cast<int>(digits.size());
    std::string shuffled = digits;
    std::shuffle(shuffled.begin(), shuffled.end(), rng);
    if (shuffled.size() < 6) shuffled += shuffled[0];  // a repeated digit counts once

    for (const std::string& written : {digits, shuffled}) {
      for (const char* tail : {"", "3", "2.2", "4."}) {
        const std::string text = "WEEKDAY" + written + "W" + tail;
        SCOPED_TRACE(text);
        const Parsed p = parse(text);
        if (written.size() > 6 || text.size() > 21) {
          EXPECT_EQ(p.rc, written.size() > 6 ? 102 : 101);
          continue;
        }
        ASSERT_EQ(p.rc, 0);
        EXPECT_EQ(p.iv.nweekday, 7 - off_days);
        for (int day = 0; day < 7; ++day) EXPECT_EQ(p.iv.weekend[day] != 0, (mask & (1 << day)) != 0);
        expect_round_trip(text, p.iv);
      }
    }
  }
}

// zintic builds the plain interval of every named code but the retail
// years, and leaves the record alone for the others; zinticms builds what
// the parser makes of the code's name, multiplier and shift written out.
TEST(IntervalRoundTrip, RecordsFromCodesMatchTheirNames) {
  for (int code = -2; code <= 130; ++code) {
    SCOPED_TRACE(code);
    INTERVAL iv;
    std::memset(&iv, 0x5A, sizeof(iv));
    const INTERVAL untouched = iv;
    const char* name = interval_base_name(code);
    if (name == nullptr || code == kIntR445Yr || code == kIntR454Yr || code == kIntR544Yr) {
      EXPECT_EQ(zintic(code, &iv), 1);
      EXPECT_EQ(std::memcmp(&iv, &untouched, sizeof(iv)), 0);
      EXPECT_EQ(zinticms(code, 1, 0, &iv), 103);
      continue;
    }
    ASSERT_EQ(zintic(code, &iv), 0);
    EXPECT_EQ(iv.intcode, code);
    EXPECT_EQ(cases::token_of(iv), name);
    EXPECT_TRUE(same_interval(iv, parse(name).iv));
    for (int m : {0, 1, 2, 5}) {
      for (int s : {0, 1, 2, 3, 4, 7, 8, 13, 52, 53}) {
        std::string text = name;
        if (m != 0) text += std::to_string(m);
        if (s != 0) text += "." + std::to_string(s);
        SCOPED_TRACE(text);
        INTERVAL built{};
        const int rc = zinticms(code, m, s, &built);
        const Parsed p = parse(text);
        ASSERT_EQ(rc, p.rc);
        if (rc == 0) {
          EXPECT_TRUE(same_interval(built, p.iv));
        }
      }
    }
  }
  // A null record: the parser refuses it, and zintic doesn't look. A name
  // past the parser's length is refused.
  EXPECT_EQ(zintic(kIntMonth, nullptr), 0);
  INTERVAL iv{};
  EXPECT_EQ(zinticms(kIntSemimonth, 2147483647, 2147483647, &iv), 101);
}

}  // namespace
