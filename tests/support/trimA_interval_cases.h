// Shared pieces of the interval tests: dates by year, month and day,
// equality that treats all missing values alike, printed interval names,
// a custom-interval record, and the check that a routine refuses codes
// outside its tables with a line on the debug output.
#pragma once

#include <cstring>
#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "host/host.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "support/calendar_oracle.h"

namespace cases {

inline double d(int y, unsigned m, unsigned dd) { return static_cast<double>(oracle::day_of(y, m, dd)); }

inline bool same(double a, double b) {
  if (esf::is_missing(a) || esf::is_missing(b)) return esf::is_missing(a) && esf::is_missing(b);
  return a == b;
}

inline std::string text_of(INTERVAL iv) {
  char text[64];
  int len = sizeof text;
  return zinti2s(text, &len, &iv) == 0 ? std::string(text, static_cast<size_t>(len)) : "?";
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
