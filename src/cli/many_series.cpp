#include "cli/many_series.h"

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
#include <sys/stat.h>

#include "host/host.h"
#include "runner/batch.h"
#include "runner/batch_text.h"

namespace esf::cli {
namespace {

namespace runner = esf::runner;
using runner::Cell;
using runner::Json;

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
    std::string tmpl =
        (slash == std::string::npos ? std::string("./") : path_.substr(0, slash + 1)) + ".esforecast-XXXXXX";
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
  for (const std::string& n : runner::estimate_names()) header.push_back(n);
  if (write_estimates && !o.json) estimates.write(runner::csv_line(header));
  if (status_out) {
    std::vector<std::string> h = shape.key_columns;
    for (const char* n : {"STATUS", "REASON", "RETURN_CODE"}) h.emplace_back(n);
    status_out->write(runner::csv_line(h));
  }

  const int lead = std::max(model.lead, model.holdout);
  // The output's columns, from the first table made; every table maps onto
  // them.  Set once, then only read.
  std::once_flag columns_made;
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
    std::call_once(columns_made, [&] { columns = runner::output_columns(out.result.table, plan); });
    const std::vector<std::string>& names = columns;
    std::vector<int> map;
    try {
      map = runner::column_map(out, names);
    } catch (const runner::RunError& e) {
      out.ok = false;
      out.reason = e.what();
      return;
    }
    if (o.json) {
      out.prepared = ",\"table\":" + runner::table_json(out, names, map, lead, o.future_only).dump() + "}";
    } else {
      out.prepared = runner::table_csv(out, map, lead, o.future_only);
    }
  };
  Progress progress(shape.series, !o.quiet && ::isatty(STDERR_FILENO) != 0);
  b.progress = [&](std::size_t n) { progress.update(n); };

  const std::size_t failed = runner::run_batch(run, plan, table, b, [&](runner::SeriesOutcome& out) {
    ++done;
    if (plan.interval_token.empty() && !out.interval.empty()) ++intervals[out.interval];
    if (!out.ok) reasons.push_back(fmt::format("{}: {}", fmt::join(out.key, ","), out.reason));
    if (status_out) {
      std::vector<std::string> row = out.key;
      row.emplace_back(out.ok ? "ok" : "failed");
      // A series that ran keeps its warnings here (weights left on a bound, ...).
      row.push_back(out.ok ? fmt::format("{}", fmt::join(out.result.fit.warnings, "; ")) : out.reason);
      row.push_back(out.return_code != 0 ? std::to_string(out.return_code) : std::string());
      status_out->write(runner::csv_line(row));
    }
    const std::vector<Cell> cells = runner::estimate_cells(out);
    if (o.json) {
      Json key = Json::object();
      for (std::size_t k = 0; k < out.key.size(); ++k) key[shape.key_columns[k]] = out.key[k];
      Json line;
      line["key"] = std::move(key);
      for (std::size_t c = 0; c < cells.size(); ++c) line[runner::estimate_names()[c]] = runner::cell_json(cells[c]);
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
      for (const Cell& c : cells) row.push_back(runner::cell_text(c));
      estimates.write(runner::csv_line(row));
    }
    if (forecast && out.ok) {
      if (!header_written) {
        header_written = true;
        std::vector<std::string> h = shape.key_columns;
        h.insert(h.end(), columns.begin(), columns.end());
        h.emplace_back("KIND");
        h.emplace_back("LEAD");
        main_out->write(runner::csv_line(h));
      }
      main_out->write(out.prepared);
    }
  });
  progress.clear();
  if (!intervals.empty()) {
    std::vector<std::string> found;
    for (const auto& [name, count] : intervals) found.push_back(fmt::format("{} for {} series", name, count));
    std::cerr << fmt::format(
        "esforecast {}: no --interval given; each series runs on the interval its time IDs fit: "
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
      if (reasons.size() > shown)
        std::cerr << fmt::format("  ... and {} more (see --status)\n", reasons.size() - shown);
    }
    return kExitSomeSeriesFailed;
  }
  return 0;
}

}  // namespace esf::cli
