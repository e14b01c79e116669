// Interval names a user can write, and the pandas frequency aliases that
// stand for them.
//
// An alias means the interval whose periods are the same sets of days as a
// pandas Period of that frequency: "W-SUN" is the week that ends on Sunday,
// Monday to Sunday, which is WEEK.2 here (a WEEK begins on Sunday); "Q-JAN"
// is the quarter that ends in January, QTR.2; "A-JUN" the year from July,
// YEAR.7.
//
//   interval_of_alias("W-SUN")   // "WEEK.2"
//   interval_of_alias("MS")      // "MONTH"
//   interval_of_alias("MONTH")   // "" (not an alias)
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace esf::runner {

// The interval name an alias stands for, or an empty string.
std::string interval_of_alias(std::string_view alias);

// One row of the list of interval names.
struct IntervalNameRow {
  const char* name;     // the base name as written, e.g. "MONTH"
  const char* example;  // a name built on it, e.g. "MONTH3.2"
  const char* meaning;  // what the example means
  const char* pandas;   // the pandas aliases for the base name, or ""
};

// Every kind of interval name, in order of length.
const std::vector<IntervalNameRow>& interval_names();

}  // namespace esf::runner
