// Shared pieces of the interval tests: parsing and printing names, tokens
// and extended records, dates by year, month and day, equality that tells
// the kinds of missing values apart, values as text, a custom-interval
// record, and the check that a routine refuses codes outside its tables
// with a line on the debug output.
#pragma once

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "host/host.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"

namespace cases {

inline double d(int y, unsigned m, unsigned dd) { return static_cast<double>(oracle::day_of(y, m, dd)); }

inline bool same(double a, double b) {
  if (esf::is_missing(a) || esf::is_missing(b)) return esf::missing_kind(a) == esf::missing_kind(b);
  return a == b;
}

// A value as text: the number, or "._", "." and ".A" to ".Z" for the
// missing values.
inline std::string show(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  if (!esf::is_missing(v)) return buf;
  const int k = esf::missing_kind(v);
  return k == 1 ? "." : k == 0 ? "._" : std::string(".") + static_cast<char>('A' + k - 2);
}

struct Parsed {
  int rc;
  INTERVAL iv;
};

inline Parsed parse(std::string_view text) {
  Parsed p{};
  std::string buffer(text);
  p.rc = zintstr(buffer.data(), static_cast<int>(buffer.size()), &p.iv);
  return p;
}

// The printed name, or "<rc>" when zinti2s refuses the record.
inline std::string text_of(INTERVAL iv) {
  char text[64];
  int len = sizeof text;
  const int rc = zinti2s(text, &len, &iv);
  return rc == 0 ? std::string(text, static_cast<size_t>(len)) : "<" + std::to_string(rc) + ">";
}

inline std::string token_of(const INTERVAL& iv) { return std::string(iv.token, static_cast<size_t>(iv.tokenlen)); }

// The extended record of a name, with no cycle or table attached.
inline INTERVALX intervalx(const char* name) {
  INTERVALX ix{};
  static_cast<INTERVAL&>(ix) = oracle::interval(name);
  return ix;
}

// Two records describe the same interval: every field but the token.
inline bool same_interval(const INTERVAL& a, const INTERVAL& b) {
  return a.units == b.units && a.intcode == b.intcode && a.intper == b.intper && a.shiftper == b.shiftper &&
         a.nweekday == b.nweekday && std::memcmp(a.weekend, b.weekend, sizeof(a.weekend)) == 0 &&
         a.holidays == b.holidays;
}

// A custom interval in date units that no registry knows: every call on it
// goes to the custom routines the test executable supplies.
inline INTERVAL custom_record() {
  INTERVAL iv{};
  iv.units = kUnitsDate;
  iv.intcode = static_cast<char>(kIntCustom);
  iv.intper = 1;
  std::memcpy(iv.token, "MYCAL", 5);
  iv.tokenlen = 5;
  return iv;
}

struct BadCode {
  char units;
  int code;
  const char* message;  // the line written to the debug output
};

// A MONTH record given each units and code answers a missing value through
// `call` and writes the message; a null record answers missing too.
template <class Call>
void expect_bad_codes_logged(Call call, std::initializer_list<BadCode> bad) {
  esf::host::capture_output(true);
  esf::host::take_log();
  for (const BadCode& c : bad) {
    INTERVAL iv = oracle::interval("MONTH");
    iv.units = c.units;
    iv.intcode = static_cast<char>(c.code);
    EXPECT_TRUE(esf::is_missing(call(&iv))) << c.code;
    EXPECT_NE(esf::host::take_log().find(c.message), std::string::npos) << c.message;
  }
  esf::host::capture_output(false);
  EXPECT_TRUE(esf::is_missing(call(nullptr)));
}

}  // namespace cases
