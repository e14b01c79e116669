// The one reader of time text: dates, datetimes, numbers and missing values
// as users' files and command lines write them. The series reader, the
// calendar command and the host's table reader all read through it, so a
// text that one accepts the others accept too.
//
//   read_time_text("2020-01-06")              //  date, day 21920
//   read_time_text("2020-01-06T10:15:30.5")   //  datetime, day 21920, second 36930.5
//   read_time_text("2020-01-06 10:15")        //  datetime (a blank for the T)
//   read_time_text("2020-01")                 //  date, the first of the month
//   read_time_text("12000-03-01")             //  five-digit years
//   read_missing_text("NA")                   //  the ordinary missing value
//   read_number_text("1e-320")                //  a number (subnormal)
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace esf::host {

// A date, or a date and a time of day.
struct TimeText {
  double day = 0.0;     // day number, 0 on 1 January 1960
  double second = 0.0;  // seconds into the day, [0, 86400)
  bool has_time = false;

  double as_date() const { return day; }
  double as_datetime() const { return day * 86400.0 + second; }
};

// [-]YYYY[Y]-MM-DD or [-]YYYY[Y]-MM, then optionally T (or t, or a blank)
// and HH:MM[:SS[.fraction]]. The date must exist; hours run to 23, minutes
// to 59, seconds below 60. Surrounding blanks are not part of the value.
std::optional<TimeText> read_time_text(std::string_view text);

// The words of a missing value: an empty field, "NA", "NaN" (any case) and
// "." give the ordinary missing value, "._" and ".A" to ".Z" (either case)
// the special ones.
std::optional<double> read_missing_text(std::string_view text);

// A decimal or hexadecimal floating-point number as strtod reads it, whole
// text; infinities and NaNs are not numbers, a value too small for a normal
// double is kept as the subnormal or zero it rounds to.
std::optional<double> read_number_text(std::string_view text);

// What a time value counts, and so how it is written.
enum class TimeForm {
  kNumber,    // observation numbers, or values of no interval
  kDate,      // days since 1 January 1960: YYYY-MM-DD
  kDatetime,  // seconds since 1 January 1960 00:00:00: YYYY-MM-DDTHH:MM:SS[.fff]
};

// The text of a time value, which read_time_text reads back (a number as
// its shortest exact form; fractions of a second to three decimals); empty
// for a value that is not finite.
std::string write_time_text(double t, TimeForm form);
// The same text written at `out`, which has room for kMaxTimeTextChars
// characters; returns the end of the text. Allocates nothing.
inline constexpr int kMaxTimeTextChars = 48;
char* write_time_text(char* out, double t, TimeForm form);

// What read_time_text accepts, for messages.
inline constexpr const char* kTimeTextForms = "YYYY-MM-DD, YYYY-MM-DDTHH:MM[:SS[.fff]] or YYYY-MM";

}  // namespace esf::host
