// The calendar subcommand: interval arithmetic on dates through the module's
// exported calendar routines, one query from the command line or one query
// per line of standard input.
//
//   esforecast calendar count MONTH 2001-01-31 2001-02-01      ->  1
//   esforecast calendar advance QTR 2001-01-15 1 S             ->  2001-04-15
//   esforecast calendar parse WEEKDAY17W2.2                    ->  text=WEEKDAY2.2 intcode=27 ...
//   esforecast calendar format DTMONTH                         ->  format=DTMONYY width=7 short_width=5 ...
//   printf 'count DAY 2001-01-01 2001-12-31\n' | esforecast calendar   ->  364
//
// Time values are read as dates (2001-01-31, 2001-01), datetimes
// (2001-01-31T10:15:00), plain numbers (the raw date, datetime or
// observation value), or missing values (".", ".A" to ".Z", NA). Results
// are printed the way the interval's values are kept: dates for a date
// interval, datetimes for a datetime interval, numbers for OBS and NONE,
// "." (or the kind, ".I") for a missing value; --raw prints plain numbers.
//
// The ISO conversions are the host program's own civil-day arithmetic;
// only the interval routines are called in the module.
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/interval_messages.h"
#include "common/civil_days.h"
#include "host/host.h"
#include "host/time_text.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

using ZintstrFn = int(tchar*, int, INTERVAL*);
using Zinti2sFn = int(char*, int*, INTERVAL*);
using Zintck2Fn = double(INTERVAL*, double, double);
using Zintnx3Fn = double(INTERVAL*, double, double, tchar*, INTERVAL*);
using ZintfmtFn = void(INTERVAL*, char*, short*, short*, short*);

// The module routines the command calls, looked up once.
struct CalendarRoutines {
  ZintstrFn* zintstr;
  Zinti2sFn* zinti2s;
  Zintck2Fn* zintck2;
  Zintnx3Fn* zintnx3;
  ZintfmtFn* zintfmt;
  ZintfmtFn* zintfmd;

  explicit CalendarRoutines(esf::runner::Loader& loader)
      : zintstr(loader.symbol<ZintstrFn>("zintstr")),
        zinti2s(loader.symbol<Zinti2sFn>("zinti2s")),
        zintck2(loader.symbol<Zintck2Fn>("zintck2")),
        zintnx3(loader.symbol<Zintnx3Fn>("zintnx3")),
        zintfmt(loader.symbol<ZintfmtFn>("zintfmt")),
        zintfmd(loader.symbol<ZintfmtFn>("zintfmd")) {}
};

// A query that can't be answered: the field (counted from 1, the
// operation being field 1), its name and the reason.
struct QueryError {
  int field;
  std::string field_name;
  std::string reason;
};

using calendar::kSecondsPerDay;

// ---- Reading values ------------------------------------------------------------

std::optional<double> parse_missing(std::string_view s) { return esf::host::read_missing_text(s); }
std::optional<double> parse_number(std::string_view s) { return esf::host::read_number_text(s); }

// A time value in the units of the interval that will handle it.
double read_time(std::string_view text, const INTERVAL& iv, int field, const char* name) {
  if (const auto missing = parse_missing(text)) return *missing;
  if (const auto number = parse_number(text)) return *number;
  if (const auto iso = esf::host::read_time_text(text)) {
    if (iv.units == kUnitsDatetime) return iso->as_datetime();
    if (iv.units == kUnitsDate) return iso->as_date();  // a date interval looks at the day only
    throw QueryError{field, name, fmt::format("{} is a date, but this interval counts plain numbers", esf::host::quote_input(text))};
  }
  throw QueryError{field, name,
                   fmt::format("{} is not a date or datetime ({}) or a number", esf::host::quote_input(text), esf::host::kTimeTextForms)};
}

// ---- Printing values -------------------------------------------------------------

std::string missing_text(double v) {
  const int kind = esf::missing_kind(v);
  if (kind == 0) return "._";
  if (kind >= 2) return fmt::format(".{}", static_cast<char>('A' + kind - 2));
  return ".";
}

std::string number_text(double v) {
  if (esf::is_missing(v)) return missing_text(v);
  if (v == std::floor(v) && std::fabs(v) < 1e15) return fmt::format("{}", static_cast<std::int64_t>(v));
  return fmt::format("{}", v);
}

std::string date_text(std::int64_t day) {
  const calendar::CivilDate c = calendar::civil_from_days(day);
  return fmt::format("{}{:04}-{:02}-{:02}", c.year < 0 ? "-" : "", c.year < 0 ? -c.year : c.year, c.month, c.day);
}

// Values beyond about two million years are printed as numbers.
constexpr double kPrintableDays = 7.0e8;

std::string time_text(double v, const INTERVAL& iv, bool raw) {
  if (esf::is_missing(v)) return missing_text(v);
  if (raw) return number_text(v);
  if (iv.units == kUnitsDate && v == std::floor(v) && std::fabs(v) < kPrintableDays) {
    return date_text(static_cast<std::int64_t>(v));
  }
  if (iv.units == kUnitsDatetime && std::fabs(v) < kPrintableDays * kSecondsPerDay) {
    const double day = std::floor(v / kSecondsPerDay);
    const double second_of_day = v - day * kSecondsPerDay;  // [0, 86400)
    const auto whole = static_cast<int>(second_of_day);
    std::string text = fmt::format("{}T{:02}:{:02}:{:02}", date_text(static_cast<std::int64_t>(day)), whole / 3600,
                                   whole / 60 % 60, whole % 60);
    const double fraction = second_of_day - whole;
    if (fraction > 0) {
      std::string digits = fmt::format("{:.6f}", fraction).substr(1);  // ".250000"
      while (digits.back() == '0') digits.pop_back();
      text += digits;
    }
    return text;
  }
  return number_text(v);
}

// ---- Intervals -------------------------------------------------------------------

class CalendarSession {
 public:
  CalendarSession(esf::runner::Loader& loader, bool raw) : fn_(loader), raw_(raw) {}

  // Answers one query given as words; throws QueryError.
  std::string answer(const std::vector<std::string_view>& words);

 private:
  // The parsed interval of a name, cached by name; throws QueryError when
  // the name doesn't parse.
  const INTERVAL& interval(std::string_view name, int field);
  // zintstr on a name: the parser's result code.
  int parse(std::string_view name, INTERVAL* iv);

  std::string count(const std::vector<std::string_view>& w);
  std::string advance(const std::vector<std::string_view>& w);
  std::string describe(const std::vector<std::string_view>& w);
  std::string format(const std::vector<std::string_view>& w);

  CalendarRoutines fn_;
  bool raw_;
  std::unordered_map<std::string, INTERVAL> cache_;
};

int CalendarSession::parse(std::string_view name, INTERVAL* iv) {
  std::string text(name);
  *iv = INTERVAL{};
  return fn_.zintstr(text.data(), static_cast<int>(text.size()), iv);
}

const INTERVAL& CalendarSession::interval(std::string_view name, int field) {
  const std::string key(name);
  if (const auto hit = cache_.find(key); hit != cache_.end()) return hit->second;
  INTERVAL iv{};
  const int rc = parse(name, &iv);
  if (rc != 0) throw QueryError{field, "INTERVAL", esf::cli::interval_parse_message(name, rc)};
  if (cache_.size() >= 4096) cache_.clear();
  return cache_.emplace(key, iv).first->second;
}

void expect_words(const std::vector<std::string_view>& w, std::size_t min, std::size_t max, const char* usage) {
  if (w.size() < min || w.size() > max) {
    throw QueryError{w.size() < min ? static_cast<int>(w.size()) + 1 : static_cast<int>(max) + 1, "",
                     fmt::format("{} takes {} (got {} words)", w[0], usage, w.size())};
  }
}

std::string CalendarSession::count(const std::vector<std::string_view>& w) {
  expect_words(w, 4, 4, "INTERVAL X1 X2");
  INTERVAL iv = interval(w[1], 2);
  const double x1 = read_time(w[2], iv, 3, "X1");
  const double x2 = read_time(w[3], iv, 4, "X2");
  return number_text(fn_.zintck2(&iv, x1, x2));
}

std::string CalendarSession::advance(const std::vector<std::string_view>& w) {
  expect_words(w, 4, 5, "INTERVAL X N [ALIGN]");
  INTERVAL iv = interval(w[1], 2);
  const double x = read_time(w[2], iv, 3, "X");
  double n = 0.0;
  if (const auto missing = parse_missing(w[3])) {
    n = *missing;
  } else if (const auto number = parse_number(w[3])) {
    n = *number;
  } else {
    throw QueryError{4, "N", fmt::format("{} is not a number", esf::host::quote_input(w[3]))};
  }
  tchar align[2] = {'B', '\0'};
  if (w.size() == 5) {
    std::string word(w[4]);
    for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (word == "B" || word == "BEGIN" || word == "BEGINNING") {
      align[0] = 'B';
    } else if (word == "M" || word == "MIDDLE") {
      align[0] = 'M';
    } else if (word == "E" || word == "END") {
      align[0] = 'E';
    } else if (word == "S" || word == "SAME") {
      align[0] = 'S';
    } else {
      throw QueryError{5, "ALIGN", fmt::format("{} is not an alignment: B, M, E or S", esf::host::quote_input(w[4]))};
    }
  }
  return time_text(fn_.zintnx3(&iv, x, n, align, nullptr), iv, raw_);
}

std::string CalendarSession::describe(const std::vector<std::string_view>& w) {
  expect_words(w, 2, 2, "INTERVAL");
  INTERVAL iv{};
  const int rc = parse(w[1], &iv);
  if (rc != 0) throw QueryError{2, "INTERVAL", esf::cli::interval_parse_message(w[1], rc)};
  char text[64] = {};
  int len = sizeof text;
  std::string printed = fn_.zinti2s(text, &len, &iv) == 0 ? std::string(text, static_cast<std::size_t>(len)) : "?";
  std::string weekend;
  for (int d = 0; d < 7; ++d) {
    if (iv.weekend[d] != 0) weekend += static_cast<char>('1' + d);
  }
  const std::string units = iv.units == 0 ? std::string("0") : std::string(1, iv.units);
  return fmt::format("text={} intcode={} units={} intper={} shiftper={} nweekday={} weekend={} token={}", printed,
                     static_cast<int>(iv.intcode), units, iv.intper, iv.shiftper, static_cast<int>(iv.nweekday),
                     weekend.empty() ? "-" : weekend, std::string(iv.token, static_cast<std::size_t>(iv.tokenlen)));
}

std::string CalendarSession::format(const std::vector<std::string_view>& w) {
  expect_words(w, 2, 2, "INTERVAL");
  INTERVAL iv = interval(w[1], 2);
  char name[33] = {};
  short namelen = 0;
  short width1 = 0;
  short width2 = 0;
  fn_.zintfmt(&iv, name, &namelen, &width1, &width2);
  std::string result = fmt::format("format={} width={} short_width={}", std::string(name, static_cast<std::size_t>(namelen)),
                                   width1, width2);
  char dname[33] = {};
  fn_.zintfmd(&iv, dname, &namelen, &width1, &width2);
  result += fmt::format(" duration_format={} duration_width={} duration_short_width={}",
                        std::string(dname, static_cast<std::size_t>(namelen)), width1, width2);
  return result;
}

std::string CalendarSession::answer(const std::vector<std::string_view>& w) {
  if (w.empty()) throw QueryError{1, "OPERATION", "empty query"};
  if (w[0] == "count") return count(w);
  if (w[0] == "advance") return advance(w);
  if (w[0] == "parse") return describe(w);
  if (w[0] == "format") return format(w);
  throw QueryError{1, "OPERATION", fmt::format("{} is not an operation: count, advance, parse or format", esf::host::quote_input(w[0]))};
}

std::vector<std::string_view> split_words(std::string_view line) {
  std::vector<std::string_view> words;
  std::size_t pos = 0;
  while (pos < line.size()) {
    while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t' || line[pos] == '\r')) ++pos;
    const std::size_t start = pos;
    while (pos < line.size() && line[pos] != ' ' && line[pos] != '\t' && line[pos] != '\r') ++pos;
    if (pos > start) words.push_back(line.substr(start, pos - start));
  }
  return words;
}

std::string describe_error(const QueryError& e) {
  if (e.field_name.empty()) return fmt::format("field {}: {}", e.field, e.reason);
  return fmt::format("field {} ({}): {}", e.field, e.field_name, e.reason);
}

}  // namespace

long esf::cli::answer_calendar_queries(esf::runner::Loader& loader, std::istream& in, std::ostream& out, bool raw) {
  CalendarSession session(loader, raw);
  std::string answers;
  answers.reserve(1 << 17);
  std::string line;
  long line_number = 0;
  long errors = 0;
  std::vector<std::string_view> words;
  while (std::getline(in, line)) {
    ++line_number;
    words = split_words(line);
    if (words.empty() || words[0].front() == '#') {
      answers += '\n';  // answers stay aligned with the queries
    } else {
      try {
        answers += session.answer(words);
      } catch (const QueryError& e) {
        ++errors;
        answers += fmt::format("error: line {}, {}", line_number, describe_error(e));
      }
      answers += '\n';
    }
    if (answers.size() >= (1 << 16)) {
      out.write(answers.data(), static_cast<std::streamsize>(answers.size()));
      answers.clear();
    }
  }
  out.write(answers.data(), static_cast<std::streamsize>(answers.size()));
  out.flush();
  return errors;
}


void add_calendar_command(CLI::App& app, esf::runner::Loader& loader) {
  CLI::App* cmd = app.add_subcommand("calendar", "Interval arithmetic on dates");
  cmd->footer(
      "Operations:\n"
      "  count INTERVAL X1 X2          interval boundaries passed from X1 to X2\n"
      "  advance INTERVAL X N [ALIGN]  the interval N intervals from X's, aligned B (begin),\n"
      "                                M (middle), E (end) or S (same place); default B\n"
      "  parse INTERVAL                the fields of the parsed interval record\n"
      "  format INTERVAL               the default format of the interval and its widths\n"
      "X is an ISO date (2001-01-31), an ISO datetime (2001-01-31T10:15:00), a plain\n"
      "number (the raw value) or a missing value (\".\", \".I\").\n"
      "Without an operation, queries are read from standard input, one per line in the\n"
      "same word order, and answered one per line; a bad line is answered 'error: ...'.");
  auto raw = std::make_shared<bool>(false);
  cmd->add_flag("--raw", *raw, "Print every result as a plain number");
  cmd->allow_extras();
  cmd->prefix_command();
  cmd->callback([cmd, raw, &loader] {
    std::vector<std::string> args = cmd->remaining();
    std::vector<std::string_view> words;
    for (const std::string& a : args) {
      if (a == "--raw") {
        *raw = true;
      } else {
        words.emplace_back(a);
      }
    }
    if (words.empty()) {
      const long errors = esf::cli::answer_calendar_queries(loader, std::cin, std::cout, *raw);
      if (errors > 0) {
        std::cerr << fmt::format("esforecast calendar: {} line{} of standard input could not be answered\n", errors,
                                 errors == 1 ? "" : "s");
        throw CLI::RuntimeError(1);
      }
      return;
    }
    CalendarSession session(loader, *raw);
    try {
      std::cout << session.answer(words) << '\n';
    } catch (const QueryError& e) {
      std::cerr << "esforecast calendar: command line, " << describe_error(e) << '\n';
      throw CLI::RuntimeError(1);
    }
  });
}
