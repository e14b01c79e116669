#include "runner/series_csv.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>

#include "common/civil_days.h"
#include "host/host.h"
#include "host/host_dates.h"
#include "host/time_text.h"
#include "intervals/interval.h"
#include "runner/row_memo.h"

namespace esf::runner {
namespace {

using calendar::kSecondsPerDay;

std::string trim(std::string s) {
  const char* ws = " \t\r\n";
  const auto b = s.find_first_not_of(ws);
  if (b == std::string::npos) return {};
  const auto e = s.find_last_not_of(ws);
  return s.substr(b, e - b + 1);
}

// Splits one CSV line. Fields may be quoted with double quotes; a doubled
// quote inside a quoted field stands for one. Returns false on an
// unterminated quote.
bool split_fields(std::string_view line, std::vector<std::string>* fields) {
  if (line.find('"') == std::string::npos) {
    // No quotes: the fields lie between the commas.  The strings already in
    // *fields are reused, so that a row of short fields allocates nothing.
    const std::string_view text = line;
    std::size_t n = 0;
    for (std::size_t start = 0;; ++n) {
      const std::size_t comma = text.find(',', start);
      std::string_view f = text.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
      const std::size_t b = f.find_first_not_of(" \t\r\n");
      f = b == std::string_view::npos ? std::string_view() : f.substr(b, f.find_last_not_of(" \t\r\n") - b + 1);
      if (n < fields->size()) {
        (*fields)[n].assign(f);
      } else {
        fields->emplace_back(f);
      }
      if (comma == std::string_view::npos) break;
      start = comma + 1;
    }
    fields->resize(n + 1);
    return true;
  }
  fields->clear();
  std::string cur;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      if (c == '"') {
        if (i + 1 < line.size() && line[i + 1] == '"') {
          cur += '"';
          ++i;
        } else {
          quoted = false;
        }
      } else {
        cur += c;
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      fields->push_back(trim(cur));
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (quoted) return false;
  fields->push_back(trim(cur));
  return true;
}

std::string where(const std::string& path, long line, const std::string& column) {
  return fmt::format("{}: line {}, column {}", path, line, host::quote_input(column));
}

}  // namespace

bool split_csv_line(std::string_view line, std::vector<std::string>* fields) { return split_fields(line, fields); }

TimeUnits time_units_of(char units) {
  switch (units) {
    case 'd':
      return TimeUnits::kDate;
    case 's':
      return TimeUnits::kDatetime;
    default:
      return TimeUnits::kNumber;
  }
}

bool parse_time(const std::string& text, TimeUnits units, double* out) {
  if (units == TimeUnits::kNumber) {
    const auto number = host::read_number_text(text);
    if (number) *out = *number;
    return number.has_value();
  }
  const auto t = host::read_time_text(text);
  if (!t) return false;
  // A datetime names the day it falls on.
  *out = units == TimeUnits::kDate ? t->as_date() : t->as_datetime();
  return true;
}

bool in_calendar_range(double t, TimeUnits units) {
  if (units == TimeUnits::kNumber) return true;
  const double day = units == TimeUnits::kDate ? t : std::floor(t / kSecondsPerDay);
  return day >= static_cast<double>(kMinDate) && day <= static_cast<double>(kMaxDate);
}

host::TimeForm time_form(TimeUnits units) {
  return units == TimeUnits::kDate       ? host::TimeForm::kDate
         : units == TimeUnits::kDatetime ? host::TimeForm::kDatetime
                                         : host::TimeForm::kNumber;
}

std::string format_time(double t, TimeUnits units) { return host::write_time_text(t, time_form(units)); }

std::string_view row_time_text(double t, TimeUnits units, std::size_t row) {
  struct Text {
    std::uint8_t size = 0;
    std::array<char, host::kMaxTimeTextChars> text{};
  };
  thread_local RowMemo<std::array<std::uint64_t, 2>, Text> texts;
  const Text& known = texts.at(row, {key_bits(t), static_cast<std::uint64_t>(units)}, [&] {
    Text made;
    made.size =
        static_cast<std::uint8_t>(host::write_time_text(made.text.data(), t, time_form(units)) - made.text.data());
    return made;
  });
  return {known.text.data(), known.size};
}

CsvRow parse_csv_row(const std::string& path, long lineno, std::string_view id_text, std::string_view value_text,
                     const std::string& id_column, const std::string& var_column, TimeUnits units) {
  CsvRow row;
  row.line = lineno;
  row.id_text = id_text;
  if (row.id_text.empty()) {
    throw CsvError(fmt::format("{}: the time ID is empty", where(path, lineno, id_column)));
  }
  if (!parse_time(row.id_text, units, &row.time)) {
    const std::string want = units == TimeUnits::kNumber ? std::string("a number")
                                                         : fmt::format("a date or datetime ({})", host::kTimeTextForms);
    throw CsvTimeIdError(
        fmt::format("{}: {} is not {}", where(path, lineno, id_column), host::quote_input(row.id_text), want));
  }
  if (!in_calendar_range(row.time, units)) {
    throw CsvError(fmt::format("{}: {} lies outside the calendar's dates, {}", where(path, lineno, id_column),
                               host::quote_input(row.id_text), kCalendarRangeText));
  }
  if (host::read_missing_text(value_text)) {
    row.missing = true;
  } else if (const auto number = host::read_number_text(value_text)) {
    row.value = *number;
  } else {
    throw CsvError(
        fmt::format("{}: {} is not a number", where(path, lineno, var_column), host::quote_input(value_text)));
  }
  return row;
}

CsvSeries read_series_csv(const std::string& path, const std::string& id_column, const std::string& var_column,
                          TimeUnits units) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw CsvError(fmt::format("{}: cannot open the file for reading", path));
  return read_series_csv(in, path, id_column, var_column, units);
}

CsvSeries read_series_csv(std::istream& in, const std::string& path, const std::string& id_column,
                          const std::string& var_column, TimeUnits units) {
  CsvSeries series;
  series.path = path;
  std::string line;
  std::vector<std::string> fields;
  long lineno = 0;

  // Header line.
  bool have_header = false;
  while (std::getline(in, line)) {
    ++lineno;
    if (!trim(line).empty()) {
      have_header = true;
      break;
    }
  }
  if (!have_header) throw CsvError(fmt::format("{}: line {}: the file has no header line", path, lineno + 1));
  if (lineno == 1 && line.size() >= 3 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
  if (!split_fields(line, &fields)) {
    throw CsvError(fmt::format("{}: line {}: unterminated quote in the header", path, lineno));
  }
  const std::vector<std::string> header = fields;
  const long header_line = lineno;
  auto column_index = [&](const std::string& name, std::size_t dflt, const char* role) -> std::size_t {
    if (name.empty()) {
      if (dflt >= header.size()) {
        throw CsvError(fmt::format("{}: line {}: the header has {} column(s); the {} column is missing", path,
                                   header_line, header.size(), role));
      }
      return dflt;
    }
    for (std::size_t k = 0; k < header.size(); ++k) {
      if (header[k] == name) return k;
    }
    throw CsvError(
        fmt::format("{}: line {}: no column named {} in the header", path, header_line, host::quote_input(name)));
  };
  const std::size_t id_col = column_index(id_column, 0, "time ID");
  const std::size_t var_col = column_index(var_column, 1, "value");
  if (id_col == var_col) {
    throw CsvError(fmt::format("{}: line {}: the time ID and the value are the same column {}", path, header_line,
                               host::quote_input(header[id_col])));
  }
  // A first line of a time ID and a number is data: the file has no header.
  if (double t = 0.0; parse_time(header[id_col], units, &t) && host::read_number_text(header[var_col])) {
    throw CsvError(
        fmt::format("the file has no header line: line {} holds data ({} and {}); give the columns names "
                    "in a first line such as date,value: {}",
                    header_line, host::quote_input(header[id_col]), host::quote_input(header[var_col]), path));
  }
  series.id_column = header[id_col];
  series.var_column = header[var_col];

  while (std::getline(in, line)) {
    ++lineno;
    if (trim(line).empty()) continue;
    if (!split_fields(line, &fields)) {
      throw CsvError(fmt::format("{}: line {}: unterminated quote", path, lineno));
    }
    if (fields.size() != header.size()) {
      throw CsvError(
          fmt::format("{}: line {}: {} field(s) where the header has {}", path, lineno, fields.size(), header.size()));
    }
    CsvRow row =
        parse_csv_row(path, lineno, fields[id_col], fields[var_col], series.id_column, series.var_column, units);
    series.rows.push_back(std::move(row));
  }
  if (in.bad()) throw CsvError(fmt::format("{}: read error", path));
  if (series.rows.empty()) throw CsvError(fmt::format("{}: line {}: the file has no data rows", path, lineno));
  return series;
}

PlacedSeries place_series(const CsvSeries& series, const Calendar& calendar, std::vector<std::uint32_t>* periods) {
  const CsvRow* earliest = &series.rows.front();
  for (const CsvRow& row : series.rows) {
    if (row.time < earliest->time) earliest = &row;
  }
  const double stdate = calendar.period_start(earliest->time);
  if (calendar.is_missing(stdate)) {
    throw CsvError(fmt::format("{}: the interval cannot place {}", where(series.path, earliest->line, series.id_column),
                               host::quote_input(earliest->id_text)));
  }
  // The row of every period, from the first period, and the period of every row.
  std::vector<const CsvRow*> by_period;
  by_period.reserve(series.rows.size());
  std::vector<std::uint32_t> period_of_row;
  period_of_row.reserve(series.rows.size());
  for (const CsvRow& row : series.rows) {
    const double k = calendar.count(stdate, row.time);
    if (calendar.is_missing(k) || !std::isfinite(k) || k < 0) {
      throw CsvError(fmt::format("{}: the interval cannot place {}", where(series.path, row.line, series.id_column),
                                 host::quote_input(row.id_text)));
    }
    if (k >= static_cast<double>(kMaxSeriesPeriods)) {
      throw CsvError(fmt::format(
          "the series spans more than {} periods of the interval, more than memory allows: {}: lines {} and {}, "
          "column {}: {} and {}",
          kMaxSeriesPeriods, series.path, earliest->line, row.line, host::quote_input(series.id_column),
          host::quote_input(earliest->id_text), host::quote_input(row.id_text)));
    }
    const auto index = static_cast<std::size_t>(k);
    if (index >= by_period.size()) by_period.resize(index + 1, nullptr);
    if (const CsvRow* before = by_period[index]) {
      throw CsvError(fmt::format("{}: lines {} and {}, column {}: {} and {} fall in the same period", series.path,
                                 before->line, row.line, host::quote_input(series.id_column),
                                 host::quote_input(before->id_text), host::quote_input(row.id_text)));
    }
    by_period[index] = &row;
    period_of_row.push_back(static_cast<std::uint32_t>(index));
  }
  PlacedSeries placed = place_in_periods(series, stdate, period_of_row, by_period.size());
  if (periods != nullptr) *periods = std::move(period_of_row);
  return placed;
}

PlacedSeries place_in_periods(const CsvSeries& series, double stdate, std::span<const std::uint32_t> periods,
                              std::size_t count) {
  PlacedSeries placed;
  placed.stdate = stdate;
  placed.values.assign(count, std::numeric_limits<double>::quiet_NaN());
  placed.lines.assign(count, 0);
  for (std::size_t i = 0; i < series.rows.size(); ++i) {
    const CsvRow& row = series.rows[i];
    if (!row.missing) placed.values[periods[i]] = row.value;
    placed.lines[periods[i]] = row.line;
  }
  return placed;
}

namespace {

// The temporary file being written, for the signal handler to remove.
char g_temporary[4096];

extern "C" void remove_temporary_and_reraise(int sig) {
  if (g_temporary[0] != '\0') ::unlink(g_temporary);
  ::signal(sig, SIG_DFL);
  ::raise(sig);
}

// Removes the temporary file when a signal ends the process while it exists.
class TemporaryGuard {
 public:
  explicit TemporaryGuard(const std::string& path) {
    std::snprintf(g_temporary, sizeof g_temporary, "%s", path.c_str());
    struct sigaction sa {};
    sa.sa_handler = remove_temporary_and_reraise;
    sigemptyset(&sa.sa_mask);
    for (int i = 0; i < 3; ++i) ::sigaction(kSignals[i], &sa, &old_[i]);
  }
  ~TemporaryGuard() {
    for (int i = 0; i < 3; ++i) ::sigaction(kSignals[i], &old_[i], nullptr);
    g_temporary[0] = '\0';
  }
  TemporaryGuard(const TemporaryGuard&) = delete;
  TemporaryGuard& operator=(const TemporaryGuard&) = delete;

 private:
  static constexpr int kSignals[3] = {SIGINT, SIGTERM, SIGHUP};
  struct sigaction old_[3];
};

const char* kind_of(const std::filesystem::file_status& st) {
  switch (st.type()) {
    case std::filesystem::file_type::directory:
      return "a directory";
    case std::filesystem::file_type::block:
    case std::filesystem::file_type::character:
      return "a device";
    case std::filesystem::file_type::fifo:
      return "a pipe";
    case std::filesystem::file_type::socket:
      return "a socket";
    default:
      return "not a regular file";
  }
}

}  // namespace

std::string checked_output_path(const std::string& path, const std::vector<std::string>& inputs) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (path.empty()) throw CsvError("the output path is empty");
  fs::path target(path);
  // Follow symbolic links to the file they name, which is then replaced.
  for (int hops = 0; fs::is_symlink(fs::symlink_status(target, ec)); ++hops) {
    if (hops == 40) throw CsvError(fmt::format("{}: too many levels of symbolic links", path));
    const fs::path next = fs::read_symlink(target, ec);
    if (ec) throw CsvError(fmt::format("{}: cannot read the symbolic link", path));
    target = next.is_absolute() ? next : target.parent_path() / next;
  }
  const fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
  if (!fs::is_directory(dir, ec) || ::access(dir.c_str(), W_OK | X_OK) != 0) {
    throw CsvError(fmt::format("cannot write in the directory {}: {}", dir.string(), path));
  }
  const fs::file_status st = fs::status(target, ec);
  if (fs::exists(st)) {
    if (!fs::is_regular_file(st)) {
      throw CsvError(fmt::format("the output is {}, not a file to write: {}", kind_of(st), path));
    }
    for (const std::string& input : inputs) {
      if (!input.empty() && fs::equivalent(target, input, ec)) {
        throw CsvError(fmt::format("the output would replace the input {}: {}", input, path));
      }
    }
  }
  return target.string();
}

void write_file_atomically(const std::string& path, const std::string& text, const std::vector<std::string>& inputs) {
  const std::string target = checked_output_path(path, inputs);
  std::string dir = ".";
  if (const auto slash = target.find_last_of('/'); slash != std::string::npos) dir = target.substr(0, slash + 1);
  std::string tmpl = (dir == "." ? std::string("./") : dir) + ".esforecast-XXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  // Signals are caught before the file exists and held while it is created
  // and named for the handler, so that none is left behind.
  TemporaryGuard guard("");
  sigset_t block, previous;
  sigemptyset(&block);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&block, sig);
  ::sigprocmask(SIG_BLOCK, &block, &previous);
  const int fd = mkstemp(name.data());
  if (fd >= 0) std::snprintf(g_temporary, sizeof g_temporary, "%s", name.data());
  ::sigprocmask(SIG_SETMASK, &previous, nullptr);
  if (fd < 0) throw CsvError(fmt::format("cannot create a file in {}: {}", dir, path));
  const std::string tmp(name.data());
  // mkstemp makes the file private; give it the usual permissions of output.
  ::fchmod(fd, 0644);
  std::size_t done = 0;
  bool ok = true;
  while (done < text.size()) {
    const ssize_t w = ::write(fd, text.data() + done, text.size() - done);
    if (w <= 0) {
      ok = false;
      break;
    }
    done += static_cast<std::size_t>(w);
  }
  if (::fsync(fd) != 0) ok = false;
  if (::close(fd) != 0) ok = false;
  if (!ok || std::rename(tmp.c_str(), target.c_str()) != 0) {
    std::remove(tmp.c_str());
    throw CsvError(fmt::format("cannot write the file: {}", path));
  }
}

}  // namespace esf::runner
