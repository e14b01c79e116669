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
#include "runner/interval_names.h"

namespace {

using ZintstrFn = int(tchar*, int, INTERVAL*);
using Zinti2sFn = int(char*, int*, INTERVAL*);
using Zintck2Fn = double(INTERVAL*, double, double);
using Zintnx3Fn = double(INTERVAL*, double, double, tchar*, INTERVAL*);
using ZintfmtFn = void(INTERVAL*, char*, short*, short*, short*);
using ZintfitFn = int(double, double, char*, INTERVAL*, INTINFO*);
using ZintseaFn = int(INTERVAL*, double, INTERVAL*, int*);
using ZintseaSetFn = int(INTERVALX*, double, INTERVALX*, int*);
using ZintscdFn = int(INTERVAL*, double, int, long, int*, int*);
using ZintmultFn = int(INTERVALX*, int, INTERVALX*, int);
using ZintnxSeasFn = double(INTERVALX*, double, double, INTERVALX*);
using ZintnxFn = double(INTERVAL*, double, double);
using ZintcFn = double(INTERVAL*, INTERVAL*);

// The module routines the command calls, looked up once.
struct CalendarRoutines {
  ZintstrFn* zintstr;
  Zinti2sFn* zinti2s;
  Zintck2Fn* zintck2;
  Zintnx3Fn* zintnx3;
  ZintfmtFn* zintfmt;
  ZintfmtFn* zintfmd;
  ZintfitFn* zintfit;
  ZintseaFn* zintsea;
  ZintseaSetFn* zintsea_set;
  ZintscdFn* zintscd;
  ZintmultFn* zintmult;
  ZintnxSeasFn* zintnx_seas;
  ZintnxFn* zintnx2;
  ZintcFn* zintc;

  explicit CalendarRoutines(esf::runner::Loader& loader)
      : zintstr(loader.symbol<ZintstrFn>("zintstr")),
        zinti2s(loader.symbol<Zinti2sFn>("zinti2s")),
        zintck2(loader.symbol<Zintck2Fn>("zintck2")),
        zintnx3(loader.symbol<Zintnx3Fn>("zintnx3")),
        zintfmt(loader.symbol<ZintfmtFn>("zintfmt")),
        zintfmd(loader.symbol<ZintfmtFn>("zintfmd")),
        zintfit(loader.symbol<ZintfitFn>("zintfit")),
        zintsea(loader.symbol<ZintseaFn>("zintsea")),
        zintsea_set(loader.symbol<ZintseaSetFn>("zintsea_set")),
        zintscd(loader.symbol<ZintscdFn>("zintscd")),
        zintmult(loader.symbol<ZintmultFn>("zintmult")),
        zintnx_seas(loader.symbol<ZintnxSeasFn>("zintnx_seas")),
        zintnx2(loader.symbol<ZintnxFn>("zintnx2")),
        zintc(loader.symbol<ZintcFn>("zintc")) {}
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
    throw QueryError{field, name,
                     fmt::format("{} is a date, but this interval counts plain numbers", esf::host::quote_input(text))};
  }
  throw QueryError{field, name,
                   fmt::format("{} is not a date or datetime ({}) or a number", esf::host::quote_input(text),
                               esf::host::kTimeTextForms)};
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
  std::string fit(const std::vector<std::string_view>& w);
  std::string cycle(const std::vector<std::string_view>& w);
  std::string season(const std::vector<std::string_view>& w);
  std::string compare(const std::vector<std::string_view>& w);
  std::string names();
  // The name of a cycle record and its count: "YEAR nseasons=12".
  std::string cycle_text(const INTERVAL& cycle, int nseasons) const;

  CalendarRoutines fn_;
  bool raw_;
  std::unordered_map<std::string, INTERVAL> cache_;
  std::unordered_map<std::string, std::string> aliases_told_;
};

int CalendarSession::parse(std::string_view name, INTERVAL* iv) {
  std::string text(name);
  *iv = INTERVAL{};
  const int rc = fn_.zintstr(text.data(), static_cast<int>(text.size()), iv);
  if (rc == 0) return rc;
  // A pandas frequency alias stands for the interval of the same periods.
  std::string meant = esf::runner::interval_of_alias(name);
  if (meant.empty() || fn_.zintstr(meant.data(), static_cast<int>(meant.size()), iv) != 0) {
    *iv = INTERVAL{};
    return rc;
  }
  if (aliases_told_.emplace(text, meant).second) {
    std::cerr << fmt::format("esforecast calendar: {} stands for {}\n", text, meant);
  }
  return 0;
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
  std::string result = fmt::format("format={} width={} short_width={}",
                                   std::string(name, static_cast<std::size_t>(namelen)), width1, width2);
  char dname[33] = {};
  fn_.zintfmd(&iv, dname, &namelen, &width1, &width2);
  result += fmt::format(" duration_format={} duration_width={} duration_short_width={}",
                        std::string(dname, static_cast<std::size_t>(namelen)), width1, width2);
  return result;
}

// ---- Fitting, cycles, seasons, comparison ------------------------------------------

// The name of a record as the library wrote it.
std::string token_text(const INTERVAL& iv) { return std::string(iv.token, static_cast<std::size_t>(iv.tokenlen)); }

// The units two time texts share: datetimes when either has a time of day,
// dates when both are dates, observation numbers otherwise.
char units_of_texts(std::string_view a, std::string_view b) {
  const auto ta = esf::host::read_time_text(a);
  const auto tb = esf::host::read_time_text(b);
  if (ta && tb) return ta->has_time || tb->has_time ? kUnitsDatetime : kUnitsDate;
  return kUnitsObs;
}

std::string CalendarSession::cycle_text(const INTERVAL& cycle, int nseasons) const {
  if (cycle.intcode == kIntNone || nseasons < 1) return "cycle=- nseasons=0";
  return fmt::format("cycle={} nseasons={}", token_text(cycle), nseasons);
}

std::string CalendarSession::fit(const std::vector<std::string_view>& w) {
  expect_words(w, 3, 3, "X1 X2");
  INTERVAL units{};
  units.units = units_of_texts(w[1], w[2]);
  const double x1 = read_time(w[1], units, 2, "X1");
  const double x2 = read_time(w[2], units, 3, "X2");
  INTERVAL iv{};
  INTINFO info{};
  char u = units.units;
  switch (fn_.zintfit(x1, x2, &u, &iv, &info)) {
    case 0:
      break;
    case 2:
      throw QueryError{esf::is_missing(x1) ? 2 : 3, esf::is_missing(x1) ? "X1" : "X2",
                       "a missing value fits no interval"};
    case 3:
      throw QueryError{3, "X2", fmt::format("'{}' must lie at least one unit after '{}'", w[2], w[1])};
    default:
      throw QueryError{3, "X2", fmt::format("no interval carries '{}' onto '{}'", w[1], w[2])};
  }
  return fmt::format("interval={} {} format={} width={}", token_text(iv), cycle_text(info.sinterval, info.nseasons),
                     std::string(info.format, static_cast<std::size_t>(info.formatl)), info.formatw);
}

std::string CalendarSession::cycle(const std::vector<std::string_view>& w) {
  expect_words(w, 2, 3, "INTERVAL [NSEASONS | CYCLE]");
  INTERVALX iv{};
  static_cast<INTERVAL&>(iv) = interval(w[1], 2);
  INTERVALX cycle{};
  iv.sinterval = &cycle;
  INTERVALX named{};
  int nseasons = 0;
  if (w.size() == 3) {
    const auto number = parse_number(w[2]);
    if (number && *number == std::floor(*number) && *number >= 1 && *number <= 1e6) {
      nseasons = static_cast<int>(*number);
    } else if (!number) {
      static_cast<INTERVAL&>(named) = interval(w[2], 3);
    } else {
      throw QueryError{3, "NSEASONS", fmt::format("'{}' is not a number of seasons from 1 to 1000000", w[2])};
    }
  }
  // Without a count or a cycle, the standard cycle the season codes use.
  const int rc =
      w.size() == 3 ? fn_.zintsea_set(&iv, 0.0, &named, &nseasons) : fn_.zintsea(&iv, 0.0, &cycle, &iv.nseasons);
  if (w.size() == 2 && rc != 0) {
    throw QueryError{2, "INTERVAL", fmt::format("{} has no standard seasonal cycle; give NSEASONS or CYCLE", w[1])};
  }
  if (rc == 1) throw QueryError{3, "CYCLE", fmt::format("{} does not begin and end on {} boundaries", w[2], w[1])};
  if (rc == 2) {
    throw QueryError{3, "NSEASONS", fmt::format("{} does not hold {} in one cycle", w.size() == 3 ? w[2] : "", w[1])};
  }
  if (rc != 0) throw QueryError{2, "INTERVAL", fmt::format("{} has no seasonal cycle", w[1])};
  return cycle_text(cycle, iv.nseasons);
}

std::string CalendarSession::season(const std::vector<std::string_view>& w) {
  expect_words(w, 3, 4, "INTERVAL X [NSEASONS]");
  INTERVALX iv{};
  static_cast<INTERVAL&>(iv) = interval(w[1], 2);
  const double x = read_time(w[2], iv, 3, "X");
  int nseasons = -1;
  if (w.size() == 4) {
    const auto number = parse_number(w[3]);
    if (!number || *number != std::floor(*number) || *number < 2 || *number > 1e6) {
      throw QueryError{4, "NSEASONS", fmt::format("'{}' is not a number of seasons from 2 to 1000000", w[3])};
    }
    nseasons = static_cast<int>(*number);
  }
  const double start = fn_.zintnx2(&iv, x, 0.0);
  if (esf::is_missing(start)) throw QueryError{3, "X", fmt::format("{} cannot place '{}'", w[1], w[2])};
  // The cycle: the standard one, or the interval nseasons times as long.
  INTERVALX cycle{};
  int ns = nseasons;
  if (nseasons > 0) {
    fn_.zintmult(&iv, nseasons, &cycle, 0x11);
  } else if (fn_.zintsea(&iv, start, &cycle, &ns) != 0 || ns < 2) {
    throw QueryError{2, "INTERVAL", fmt::format("{} has no seasonal cycle; give NSEASONS", w[1])};
  }
  int code = 0;
  int asked = nseasons > 0 ? nseasons : -1;
  if (fn_.zintscd(&iv, start, nseasons > 0 ? -2 : 0, 1, &code, &asked) != 0) {
    throw QueryError{3, "X", fmt::format("no season of '{}' under {}", w[2], w[1])};
  }
  // Weeks in years and years aligned to weeks begin where their week-years do.
  const int c = cycle.intcode;
  const bool weekly = (iv.intcode == kIntWeek && c == kIntYear) || (iv.intcode == kIntWeekv && c == kIntYearv);
  const double cycle_start = weekly ? fn_.zintnx_seas(&cycle, x, 0.0, &iv) : fn_.zintnx2(&cycle, x, 0.0);
  return fmt::format("season={} {} period_start={} cycle_start={}", code, cycle_text(cycle, asked),
                     time_text(start, iv, raw_), time_text(cycle_start, iv, raw_));
}

// What a comparison result says, in words.
std::string comparison_meaning(double r, std::string_view a, std::string_view b) {
  if (esf::is_missing(r)) {
    switch (esf::missing_kind(r)) {
      case 2 + ('M' - 'A'):
        return "the lengths are not multiples of each other";
      case 2 + ('S' - 'A'):
        return "the lengths are multiples, but the boundaries do not coincide";
      case 2 + ('B' - 'A'):
        return "the two belong to calendars that have no relation";
      case 2 + ('W' - 'A'):
        return "two working-day intervals with different weekends do not nest";
      case 2 + ('E' - 'A'):
        return "an internal inconsistency in the interval codes";
      default:
        return "no relation can be stated";
    }
  }
  if (r == 0.0) return fmt::format("{} and {} are the same interval", a, b);
  if (r == 1.0) return fmt::format("every {} holds a whole but varying number of {}", a, b);
  if (r == -1.0) return fmt::format("every {} holds a whole but varying number of {}", b, a);
  if (r > 0) return fmt::format("every {} holds {} {}", a, number_text(r), b);
  return fmt::format("every {} holds {} {}", b, number_text(-r), a);
}

std::string CalendarSession::compare(const std::vector<std::string_view>& w) {
  expect_words(w, 3, 3, "A B");
  INTERVAL a = interval(w[1], 2);
  INTERVAL b = interval(w[2], 3);
  const double r = fn_.zintc(&a, &b);
  return fmt::format("result={} meaning={}", number_text(r), comparison_meaning(r, w[1], w[2]));
}

std::string CalendarSession::names() {
  std::string out =
      fmt::format("{:<10} {:<12} {:<30} {:<22} {}\n", "NAME", "EXAMPLE", "CYCLE OF THE EXAMPLE", "PANDAS", "MEANING");
  for (const esf::runner::IntervalNameRow& row : esf::runner::interval_names()) {
    INTERVAL iv{};
    INTERVAL cycle{};
    int ns = 0;
    std::string cyc = "-";
    if (parse(row.example, &iv) == 0 && fn_.zintsea(&iv, 0.0, &cycle, &ns) == 0 && ns >= 1) {
      cyc = fmt::format("{} ({} season{})", token_text(cycle), ns, ns == 1 ? "" : "s");
    }
    out += fmt::format("{:<10} {:<12} {:<30} {:<22} {}\n", row.name, row.example, cyc,
                       *row.pandas != 0 ? row.pandas : "-", row.meaning);
  }
  out.pop_back();
  return out;
}

std::string CalendarSession::answer(const std::vector<std::string_view>& w) {
  if (w.empty()) throw QueryError{1, "OPERATION", "empty query"};
  if (w[0] == "count") return count(w);
  if (w[0] == "advance") return advance(w);
  if (w[0] == "parse") return describe(w);
  if (w[0] == "format") return format(w);
  if (w[0] == "fit") return fit(w);
  if (w[0] == "cycle") return cycle(w);
  if (w[0] == "season") return season(w);
  if (w[0] == "compare") return compare(w);
  if (w[0] == "names") {
    expect_words(w, 1, 1, "nothing");
    return names();
  }
  throw QueryError{1, "OPERATION",
                   fmt::format("{} is not an operation: count, advance, parse, format, fit, cycle, season, compare "
                               "or names",
                               esf::host::quote_input(w[0]))};
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
      "  fit X1 X2                     the interval that carries X1 onto X2, its cycle and format\n"
      "  cycle INTERVAL [NSEASONS|CYCLE]  the seasonal cycle, standard or of NSEASONS seasons\n"
      "  season INTERVAL X [NSEASONS]  the season of X, its cycle and where both begin\n"
      "  compare A B                   how two intervals nest, in a number and in words\n"
      "  names                         the interval names, with examples, cycles and pandas aliases\n"
      "INTERVAL is an interval name (MONTH, QTR.2, WEEKDAY17W, DTHOUR, ...) or a pandas\n"
      "frequency alias (D, B, W-SUN, MS, Q-JAN, A-JUN, H, min, ...), which is told on\n"
      "standard error as the interval it stands for.\n"
      "X is a date (2001-01-31, 2001-01), a datetime (2001-01-31T10:15:00), a plain\n"
      "number (the raw value) or a missing value (\".\", \".I\", NA).\n"
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
