#include "cli/many_series.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>
#include <variant>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/host.h"
#include "runner/batch.h"

namespace esf::cli {
namespace {

namespace runner = esf::runner;
using Json = nlohmann::ordered_json;

// A text field of a CSV line, quoted when it holds a comma, a quote, a line
// break or blanks at its ends.
std::string csv_field(const std::string& s) {
  const bool quote = s.find_first_of(",\"\r\n") != std::string::npos ||
                     (!s.empty() && (s.front() == ' ' || s.back() == ' '));
  if (!quote) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string csv_line(const std::vector<std::string>& fields) {
  std::string line;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) line += ',';
    line += csv_field(fields[i]);
  }
  return line + '\n';
}

// An output file written under a temporary name in its directory and renamed
// into place when complete; standard output when the path is empty.
class Output {
 public:
  // `inputs`: the files the output must not replace.
  Output(const std::string& path, const std::vector<std::string>& inputs) {
    if (path.empty()) {
      file_ = stdout;
      return;
    }
    path_ = runner::checked_output_path(path, inputs);
    const std::size_t slash = path_.find_last_of('/');
    std::string tmpl = (slash == std::string::npos ? std::string("./") : path_.substr(0, slash + 1)) + ".esforecast-XXXXXX";
    const int fd = ::mkstemp(tmpl.data());
    if (fd < 0) throw runner::RunError(fmt::format("{}: cannot create a file in its directory", path));
    ::fchmod(fd, 0644);
    temp_ = tmpl;
    file_ = ::fdopen(fd, "w");
    if (file_ == nullptr) {
      ::close(fd);
      ::unlink(temp_.c_str());
      throw runner::RunError(fmt::format("{}: cannot write the file", path));
    }
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() {
    if (!temp_.empty()) {
      std::fclose(file_);
      ::unlink(temp_.c_str());
    }
  }
  void write(const std::string& text) {
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), file_) != text.size()) failed_ = true;
  }
  // Completes the file; throws when anything could not be written.
  void commit() {
    const bool flushed = std::fflush(file_) == 0 && std::ferror(file_) == 0 && !failed_;
    if (temp_.empty()) {
      if (!flushed) throw runner::RunError("standard output: the output could not be written");
      return;
    }
    const bool closed = std::fclose(file_) == 0;
    const std::string temp = std::move(temp_);
    temp_.clear();
    if (!flushed || !closed || std::rename(temp.c_str(), path_.c_str()) != 0) {
      ::unlink(temp.c_str());
      throw runner::RunError(fmt::format("{}: cannot write the file", path_));
    }
  }

 private:
  std::string path_;
  std::string temp_;
  std::FILE* file_ = nullptr;
  bool failed_ = false;
};

using Cell = std::variant<double, std::string>;

std::string cell_text(const Cell& c) {
  if (const double* v = std::get_if<double>(&c)) return std::isnan(*v) ? std::string() : host::format_table_value(*v);
  return std::get<std::string>(c);
}

Json cell_json(const Cell& c) {
  if (const double* v = std::get_if<double>(&c)) {
    if (!std::isfinite(*v)) return nullptr;
    // Counts (NOBS, ITERATIONS) stay integers.
    if (std::trunc(*v) == *v && std::fabs(*v) < 9.0e15) return static_cast<long long>(*v);
    return *v;
  }
  return std::get<std::string>(c);
}

// The estimates of one series, one cell for each name of estimate_names().
const std::vector<std::string>& estimate_names() {
  static const std::vector<std::string> names = {
      "STATUS", "MODEL", "INTERVAL", "NOBS", "LEVEL", "LEVEL_STDERR", "TREND", "TREND_STDERR", "DAMPING", "DAMPING_STDERR",
      "SEASONAL", "SEASONAL_STDERR", "ERROR_VARIANCE", "FIT_END", "ITERATIONS", "AIC", "AICC", "BIC", "RMSE",
      "MAE", "MAPE", "MASE"};
  return names;
}

std::vector<Cell> estimate_cells(const runner::SeriesOutcome& o) {
  const runner::FitResult& f = o.result.fit;
  const bool fitted = o.ok && o.result.fitted;
  std::vector<Cell> cells;
  cells.emplace_back(std::string(o.ok ? "ok" : "failed"));
  cells.emplace_back(std::string(fitted && f.family != nullptr ? f.family->name : ""));
  cells.emplace_back(o.interval);
  cells.emplace_back(fitted ? static_cast<double>(f.nobs) : runner::kNaN);
  for (const char* item : runner::kWeightItem) {
    double value = runner::kNaN, se = runner::kNaN;
    for (const runner::WeightEstimate& w : f.weights) {
      if (fitted && w.name == item) {
        value = w.estimate;
        se = w.std_error;
      }
    }
    cells.emplace_back(value);
    cells.emplace_back(se);
  }
  cells.emplace_back(fitted ? f.error_variance : runner::kNaN);
  cells.emplace_back(fitted ? runner::describe(f.end) : std::string());
  cells.emplace_back(fitted ? static_cast<double>(f.iterations) : runner::kNaN);
  for (double v : {f.criteria.aic, f.criteria.aicc, f.criteria.bic, f.fit_accuracy.rmse, f.fit_accuracy.mae,
                   f.fit_accuracy.mape, f.fit_accuracy.mase}) {
    cells.emplace_back(fitted ? v : runner::kNaN);
  }
  return cells;
}

// The columns of the output: those of a forecast table, with the state
// columns (LEVEL, TREND, SEASON) of every family the plan may run, so that
// series whose chosen families differ share one header.  The same for any
// series' table, as tables differ only in their states.
std::vector<std::string> output_columns(const runner::ForecastTable& t, const runner::Plan& plan) {
  bool trended = false, seasonal = false;
  for (const runner::Family& f : runner::families()) {
    if (plan.family != nullptr && &f != plan.family) continue;
    trended = trended || f.trended;
    seasonal = seasonal || f.seasonal;
  }
  std::vector<std::string> states = {"LEVEL"};
  if (trended) states.emplace_back("TREND");
  if (seasonal) states.emplace_back("SEASON");
  std::vector<std::string> names;
  for (const runner::TableColumn& c : t.columns) {
    if (std::find(states.begin(), states.end(), c.name) == states.end()) {
      names.push_back(c.name);
    } else if (std::find(names.begin(), names.end(), states.front()) == names.end()) {
      names.insert(names.end(), states.begin(), states.end());
    }
  }
  return names;
}

// For each output column, its column in the series' table, or -1 where the
// series' family has none.  Throws when the table has a column the output
// lacks.
std::vector<int> column_map(const runner::SeriesOutcome& o, const std::vector<std::string>& names) {
  const std::vector<runner::TableColumn>& columns = o.result.table.columns;
  std::vector<int> map(names.size(), -1);
  std::size_t found = 0;
  for (std::size_t j = 0; j < names.size(); ++j) {
    for (std::size_t k = 0; k < columns.size(); ++k) {
      if (columns[k].name == names[j]) {
        map[j] = static_cast<int>(k);
        ++found;
        break;
      }
    }
  }
  if (found != columns.size()) {
    std::vector<std::string> have;
    for (const runner::TableColumn& c : columns) have.push_back(c.name);
    throw runner::RunError(fmt::format("series {}: its forecast table has the columns {}, not among {}",
                                       fmt::join(o.key, ","), fmt::join(have, ","), fmt::join(names, ",")));
  }
  return map;
}

// The forecast table's rows of one series in the output's columns, each led
// by the key and followed by KIND (history or forecast) and LEAD.
std::string table_csv(const runner::SeriesOutcome& o, const std::vector<int>& map, int lead, bool future_only) {
  const runner::ForecastTable& t = o.result.table;
  std::string key;
  for (const std::string& k : o.key) key += csv_field(k) + ',';
  const std::size_t rows = t.rows();
  const std::size_t first_forecast = rows >= static_cast<std::size_t>(lead) ? rows - static_cast<std::size_t>(lead) : 0;
  std::string out;
  for (std::size_t i = future_only ? first_forecast : 0; i < rows; ++i) {
    out += key;
    for (std::size_t j = 0; j < map.size(); ++j) {
      if (j > 0) out += ',';
      if (map[j] < 0) continue;
      const double v = t.columns[static_cast<std::size_t>(map[j])].values[i];
      out += map[j] == 0 && !esf::is_missing(v) ? runner::format_time(v, t.units) : host::format_table_value(v);
    }
    if (i >= first_forecast) {
      out += fmt::format(",forecast,{}\n", i - first_forecast + 1);
    } else {
      out += ",history,\n";
    }
  }
  return out;
}

Json table_json(const runner::SeriesOutcome& o, const std::vector<std::string>& names, const std::vector<int>& map,
                int lead, bool future_only) {
  const runner::ForecastTable& t = o.result.table;
  const std::size_t rows = t.rows();
  const std::size_t first_forecast = rows >= static_cast<std::size_t>(lead) ? rows - static_cast<std::size_t>(lead) : 0;
  Json table = Json::object();
  for (std::size_t j = 0; j < map.size(); ++j) {
    Json values = Json::array();
    for (std::size_t i = future_only ? first_forecast : 0; i < rows; ++i) {
      const double v = map[j] < 0 ? esf::kMissing : t.columns[static_cast<std::size_t>(map[j])].values[i];
      if (esf::is_missing(v) || !std::isfinite(v)) {
        values.push_back(nullptr);
      } else {
        values.push_back(map[j] == 0 ? Json(runner::format_time(v, t.units)) : Json(v));
      }
    }
    table[names[j]] = std::move(values);
  }
  Json lead_column = Json::array();
  for (std::size_t i = future_only ? first_forecast : 0; i < rows; ++i) {
    lead_column.push_back(i >= first_forecast ? Json(i - first_forecast + 1) : Json(nullptr));
  }
  table["LEAD"] = std::move(lead_column);
  return table;
}

// A progress line on standard error, a few times a second.
class Progress {
 public:
  Progress(std::size_t total, bool on) : total_(total), on_(on), start_(Clock::now()), last_(start_) {}
  void update(std::size_t done) {
    if (!on_) return;
    const Clock::time_point now = Clock::now();
    if (done < total_ && now - last_ < std::chrono::milliseconds(250)) return;
    last_ = now;
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double rate = elapsed > 0 ? static_cast<double>(done) / elapsed : 0.0;
    const double left = rate > 0 ? static_cast<double>(total_ - done) / rate : 0.0;
    std::fprintf(stderr, "\r%zu of %zu series, %.0f/s, %.0f s left   ", done, total_, rate, left);
    std::fflush(stderr);
  }
  void clear() {
    if (on_) std::fprintf(stderr, "\r\033[K");
  }

 private:
  using Clock = std::chrono::steady_clock;
  std::size_t total_;
  bool on_;
  Clock::time_point start_, last_;
};

}  // namespace

void add_many_options(CLI::App* cmd, ManyOptions& o, bool forecast) {
  cmd->add_option("--by", o.by, "Key column of a long table with many series (repeat for several)");
  cmd->add_option("--threads", o.threads, "Threads for many series (default: the machine's cores)")
      ->check(CLI::NonNegativeNumber);
  cmd->add_flag("--quiet", o.quiet, "No progress line");
  cmd->add_option("--status", o.status, "Many series: write each series' status and reason to this CSV file");
  cmd->add_option("--estimates", o.estimates, "Many series: write one row of estimates per series to this CSV file");
  if (forecast) cmd->add_flag("--future-only", o.future_only, "Many series: only the forecast rows");
}

bool wants_many(const ManyOptions& o, const std::string& input) {
  if (!o.by.empty() || o.vars.size() > 1 || (o.vars.size() == 1 && o.vars[0] == "*")) return true;
  return o.vars.empty() && o.id_column.empty() && runner::is_unique_id_header(input);
}

int run_many(const char* command, runner::Loader& loader, const runner::ModelOptions& model, bool forecast,
             const std::string& input, const ManyOptions& o, const runner::SavedModel* saved) {
  if (model.trace) throw runner::RunError("--trace follows one series; it cannot be used with many");
  runner::TableLayout layout{o.by, o.id_column, o.vars};
  if (layout.by.empty() && layout.vars.empty()) layout = {{"unique_id"}, "ds", {"y"}};
  runner::Runner run(loader);
  // Without --interval each series runs on the interval its time IDs fit
  // (a saved model's own interval when it names one).
  runner::ModelOptions options = model;
  if (options.interval.empty() && saved != nullptr) options.interval = saved->interval;
  const runner::Plan plan = run.plan(options, forecast);
  const runner::SeriesTable table(input, layout);
  const runner::TableShape& shape = table.shape();

  // Forecasts go to -o (or standard output); a fit's estimates go there
  // unless --estimates names a file of their own.
  std::optional<Output> main_out;
  std::optional<Output> estimates_out;
  std::optional<Output> status_out;
  std::vector<std::string> inputs = {input};
  if (saved != nullptr) inputs.push_back(saved->path);
  main_out.emplace(forecast ? o.output : (o.estimates.empty() ? o.output : o.estimates), inputs);
  if (forecast && !o.estimates.empty()) estimates_out.emplace(o.estimates, inputs);
  if (!o.status.empty()) status_out.emplace(o.status, inputs);
  Output& estimates = forecast ? (estimates_out ? *estimates_out : main_out.value()) : *main_out;
  const bool write_estimates = !forecast || estimates_out.has_value();

  std::vector<std::string> header = shape.key_columns;
  for (const std::string& n : estimate_names()) header.push_back(n);
  if (write_estimates && !o.json) estimates.write(csv_line(header));
  if (status_out) {
    std::vector<std::string> h = shape.key_columns;
    for (const char* n : {"STATUS", "REASON", "RETURN_CODE"}) h.emplace_back(n);
    status_out->write(csv_line(h));
  }

  const int lead = std::max(model.lead, model.holdout);
  // The output's columns, from the first table made; every table maps onto them.
  std::mutex columns_mutex;
  std::vector<std::string> columns;
  bool header_written = false;
  std::vector<std::string> reasons;
  std::map<std::string, std::size_t> intervals;  // found from the time IDs: series of each
  std::size_t done = 0;

  runner::BatchOptions b;
  b.threads = o.threads > 0 ? o.threads : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  b.saved = saved;
  b.prepare = [&](runner::SeriesOutcome& out) {
    if (!out.ok || !forecast) return;
    std::vector<std::string> names;
    {
      std::lock_guard lock(columns_mutex);
      if (columns.empty()) columns = output_columns(out.result.table, plan);
      names = columns;
    }
    std::vector<int> map;
    try {
      map = column_map(out, names);
    } catch (const runner::RunError& e) {
      out.ok = false;
      out.reason = e.what();
      return;
    }
    if (o.json) {
      out.prepared = ",\"table\":" + table_json(out, names, map, lead, o.future_only).dump() + "}";
    } else {
      out.prepared = table_csv(out, map, lead, o.future_only);
    }
  };
  Progress progress(shape.series, !o.quiet && ::isatty(STDERR_FILENO) != 0);
  b.progress = [&](std::size_t n) { progress.update(n); };

  const std::size_t failed = runner::run_batch(run, plan, table, b, [&](runner::SeriesOutcome& out) {
    ++done;
    if (plan.interval_token.empty() && !out.interval.empty()) ++intervals[out.interval];
    Json key = Json::object();
    for (std::size_t k = 0; k < out.key.size(); ++k) key[shape.key_columns[k]] = out.key[k];
    if (!out.ok) reasons.push_back(fmt::format("{}: {}", fmt::join(out.key, ","), out.reason));
    if (status_out) {
      std::vector<std::string> row = out.key;
      row.emplace_back(out.ok ? "ok" : "failed");
      // A series that ran keeps its warnings here (weights left on a bound, ...).
      row.push_back(out.ok ? fmt::format("{}", fmt::join(out.result.fit.warnings, "; ")) : out.reason);
      row.push_back(out.return_code != 0 ? std::to_string(out.return_code) : std::string());
      status_out->write(csv_line(row));
    }
    const std::vector<Cell> cells = estimate_cells(out);
    if (o.json) {
      Json line;
      line["key"] = key;
      for (std::size_t c = 0; c < cells.size(); ++c) line[estimate_names()[c]] = cell_json(cells[c]);
      if (!out.ok) line["REASON"] = out.reason;
      std::string text = line.dump();
      if (estimates_out) estimates_out->write(text + '\n');
      // The table, dumped on the worker thread, goes in as the last member.
      if (forecast && out.ok) text.replace(text.size() - 1, 1, out.prepared);
      main_out->write(text + '\n');
      return;
    }
    if (write_estimates) {
      std::vector<std::string> row = out.key;
      for (const Cell& c : cells) row.push_back(cell_text(c));
      estimates.write(csv_line(row));
    }
    if (forecast && out.ok) {
      if (!header_written) {
        header_written = true;
        std::vector<std::string> h = shape.key_columns;
        std::lock_guard lock(columns_mutex);
        h.insert(h.end(), columns.begin(), columns.end());
        h.emplace_back("KIND");
        h.emplace_back("LEAD");
        main_out->write(csv_line(h));
      }
      main_out->write(out.prepared);
    }
  });
  progress.clear();
  if (!intervals.empty()) {
    std::vector<std::string> found;
    for (const auto& [name, count] : intervals) found.push_back(fmt::format("{} for {} series", name, count));
    std::cerr << fmt::format("esforecast {}: no --interval given; each series runs on the interval its time IDs fit: "
                             "{}{}\n",
                             command, fmt::join(found, ", "),
                             intervals.size() > 1 ? " (the INTERVAL column of --estimates names each series')" : "");
  }
  main_out->commit();
  if (estimates_out) estimates_out->commit();
  if (status_out) status_out->commit();
  if (failed > 0) {
    std::cerr << fmt::format("esforecast {}: {} of {} series failed{}\n", command, failed, done,
                             o.status.empty() ? ":" : fmt::format(" (reasons in {})", o.status));
    if (o.status.empty()) {
      const std::size_t shown = std::min<std::size_t>(reasons.size(), 20);
      for (std::size_t i = 0; i < shown; ++i) std::cerr << "  " << reasons[i] << '\n';
      if (reasons.size() > shown) std::cerr << fmt::format("  ... and {} more (see --status)\n", reasons.size() - shown);
    }
    return kExitSomeSeriesFailed;
  }
  return 0;
}

}  // namespace esf::cli
