// Reading a time series from a CSV file and placing it on an interval's
// calendar, and writing the forecast table back out as CSV.
//
// The file has a header line. One column holds the time ID (an ISO date such
// as 1949-01-01 or 1949-01, an ISO datetime such as 1949-01-01T06:30:00, or
// a plain number for observation counts), another the value; an empty field,
// ".", NA or NaN is a missing value. Every error names the file, the line and the column.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/time_text.h"

namespace esf::runner {

// What the time values of an interval count.
enum class TimeUnits {
  kDate,      // days since 1 January 1960
  kDatetime,  // seconds since 1 January 1960 00:00:00
  kNumber,    // observation numbers, or values of no interval
};

// The `units` letter of an interval record ('d', 's', 'o', 'u') as TimeUnits.
TimeUnits time_units_of(char units);

// A problem with the input or output file; what() names file, line and
// column where they are known.
class CsvError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A time ID that is not a value of the units asked for.
class CsvTimeIdError : public CsvError {
 public:
  using CsvError::CsvError;
};

// One data row of the file.
struct CsvRow {
  long line = 0;         // 1-based line number in the file
  std::string id_text;   // the time ID as written
  double time = 0.0;     // the time ID as a time value of the chosen units
  double value = 0.0;    // meaningful when !missing
  bool missing = false;  // empty field or "."
};

struct CsvSeries {
  std::string path;
  std::string id_column;  // header names of the two columns used
  std::string var_column;
  std::vector<CsvRow> rows;
};

// Splits one CSV line into trimmed fields; fields may be quoted with double
// quotes, a doubled quote standing for one.  False on an unterminated quote.
bool split_csv_line(std::string_view line, std::vector<std::string>* fields);

// Reads one row's time ID and value as `units` say.  Throws CsvError naming
// the file, the line and the column.
CsvRow parse_csv_row(const std::string& path, long line, std::string_view id_text, std::string_view value_text,
                     const std::string& id_column, const std::string& var_column, TimeUnits units);

// Reads `path`. `id_column` and `var_column` name header fields; empty means
// the first and the second column. Throws CsvError.
CsvSeries read_series_csv(const std::string& path, const std::string& id_column, const std::string& var_column,
                          TimeUnits units);
// The same from an open stream; `path` names it in messages.
CsvSeries read_series_csv(std::istream& in, const std::string& path, const std::string& id_column,
                          const std::string& var_column, TimeUnits units);

// The series placed on a calendar: values[i] belongs to the i-th period from
// the one that holds the earliest time ID. A period without a row is missing.
struct PlacedSeries {
  double stdate = 0.0;         // start of the first period
  std::vector<double> values;  // NaN stands for a missing value here
  std::vector<long> lines;     // source line of each period, 0 if none
};

// Calendar services the placement needs, answered by the module's interval
// routines: the start of the period that holds t, and the number of period
// boundaries from `from` to `to` (a missing value when the interval cannot
// place one of them).
struct Calendar {
  std::function<double(double t)> period_start;
  std::function<double(double from, double to)> count;
  std::function<bool(double v)> is_missing;
};

// Periods a series may span from its first row to its last (each period
// takes a slot in every array of the model, whether it has a row or not).
inline constexpr long kMaxSeriesPeriods = 10'000'000;

// Places every row in its period. Throws CsvError naming the line when the
// calendar cannot place a date, naming both lines when two rows fall in one
// period, and naming the first and the last row when the series spans more
// than kMaxSeriesPeriods periods.
// *periods, when given, gets the period of each row.
PlacedSeries place_series(const CsvSeries& series, const Calendar& calendar,
                          std::vector<std::uint32_t>* periods = nullptr);
// The series placed as place_series placed it, from the period of each row
// that it found and the periods' count: for series of the same time IDs.
PlacedSeries place_in_periods(const CsvSeries& series, double stdate, std::span<const std::uint32_t> periods,
                              std::size_t count);

// Text of a time value: an ISO date, an ISO datetime, or a number.
std::string format_time(double t, TimeUnits units);
// The same for the time of row `row` of a series.  The texts of the last
// series on this thread are kept by row, as the series of a batch mostly
// share their times and a copy costs less than a date's text; the view holds
// until the next call for that row on this thread.
std::string_view row_time_text(double t, TimeUnits units, std::size_t row);
// How the host writes a time value of `units`.
host::TimeForm time_form(TimeUnits units);

// Parses a date or datetime (host/time_text.h), or a number, as a time value
// of `units`. Returns false when the text is not one.
bool parse_time(const std::string& text, TimeUnits units, double* out);

// The calendar's dates.
inline constexpr const char* kCalendarRangeText = "1582-01-01 to 20000-12-26";
// Whether a time value lies within the calendar's dates (numbers always do).
bool in_calendar_range(double t, TimeUnits units);

// The file an output path names, checked before anything is written: a
// symbolic link is followed to the file it names; what is there must be a
// regular file (not a directory, a device or a pipe) and none of the files of
// `inputs`. Throws CsvError saying why.
std::string checked_output_path(const std::string& path, const std::vector<std::string>& inputs = {});

// Writes `text` to `path` (checked as checked_output_path does) through a
// temporary file in the same directory that is renamed into place only when
// everything was written, so that a failure leaves no half-written file; a
// SIGINT, SIGTERM or SIGHUP meanwhile removes the temporary file. Throws
// CsvError.
void write_file_atomically(const std::string& path, const std::string& text,
                           const std::vector<std::string>& inputs = {});

}  // namespace esf::runner
