// Many series through the runner in one call: the Python layer hands over
// the rows of a long frame grouped by series (offsets into flat arrays of
// time values and observations), and gets back the forecast tables of all
// series stacked into flat arrays, the fit of each series, and the reasons
// of the series that could not be forecast. The interpreter's lock is
// released while the series run.
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "host/host.h"
#include "runner/interval_inference.h"
#include "runner/interval_names.h"
#include "runner/runner.h"
#include "time_values.h"

namespace py = pybind11;

namespace esf::python {

// The module image the extension is linked with, loaded once as the host
// loads it; its path is that of the image already mapped into the process.
runner::Loader& module_loader() {
  static runner::Loader loader;
  if (!loader.loaded()) {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&zintck2), &info) == 0 || info.dli_fname == nullptr) {
      throw runner::LoadError("cannot find the module image the extension is linked with");
    }
    loader.load(info.dli_fname);
  }
  return loader;
}

namespace {

using runner::CsvError;
using runner::CsvRow;
using runner::CsvSeries;
using runner::ForecastResult;
using runner::ModelOptions;
using runner::Plan;
using runner::RunError;

// The Python exception of a failed run: EsforecastError(message, status).
py::object error_type() { return py::module_::import("esforecast._errors").attr("EsforecastError"); }

[[noreturn]] void raise_run_error(const std::string& message, int status) {
  PyErr_SetObject(error_type().ptr(), py::make_tuple(message, status).ptr());
  throw py::error_already_set();
}

// The model options from the keyword arguments the Python layer checked
// and named as the runner names them.
ModelOptions model_options(const py::dict& o) {
  ModelOptions m;
  auto get = [&](const char* key) -> std::optional<py::handle> {
    if (!o.contains(key) || o[key].is_none()) return std::nullopt;
    return o[key];
  };
  if (auto v = get("model")) m.model = v->cast<std::string>();
  if (auto v = get("interval")) m.interval = v->cast<std::string>();
  if (auto v = get("nseasons")) m.nseasons = v->cast<int>();
  for (int k = 0; k < runner::kNumWeightKinds; ++k) {
    const std::string word = runner::kWeightWord[k];
    if (auto v = get((word + "_bounds").c_str())) m.bounds[k] = v->cast<std::vector<double>>();
    if (auto v = get((word + "_weight").c_str())) m.fixed[k] = v->cast<double>();
  }
  if (auto v = get("no_bounds")) m.no_bounds = v->cast<bool>();
  if (auto v = get("no_stability")) m.no_stability = v->cast<bool>();
  if (auto v = get("start_level")) m.start_level = v->cast<double>();
  if (auto v = get("start_trend")) m.start_trend = v->cast<double>();
  if (auto v = get("start_factors")) m.start_factors = v->cast<std::vector<double>>();
  if (auto v = get("backcast_level")) m.backcast_level = v->cast<double>();
  if (auto v = get("backcast_trend")) m.backcast_trend = v->cast<double>();
  if (auto v = get("backcast_factors")) m.backcast_factors = v->cast<std::vector<double>>();
  if (auto v = get("fit_start")) m.fit_start = v->cast<std::string>();
  if (auto v = get("fit_end")) m.fit_end = v->cast<std::string>();
  if (auto v = get("eval_start")) m.eval_start = v->cast<std::string>();
  if (auto v = get("eval_end")) m.eval_end = v->cast<std::string>();
  if (auto v = get("holdout")) m.holdout = v->cast<int>();
  if (auto v = get("limits")) {
    const auto text = v->cast<std::string>();
    if (text != "formula" && text != "empirical") {
      throw RunError(fmt::format("--limits: '{}' is neither formula nor empirical", text));
    }
    m.limits = text == "empirical" ? runner::LimitMethod::kEmpirical : runner::LimitMethod::kFormula;
  }
  if (auto v = get("search")) {
    const auto text = v->cast<std::string>();
    if (text != "frame" && text != "thorough") {
      throw RunError(fmt::format("--search: '{}' is neither frame nor thorough", text));
    }
    m.thorough = text == "thorough";
  }
  if (auto v = get("select")) {
    const auto text = v->cast<std::string>();
    if (text == "aicc") {
      m.select = runner::Selection::kAicc;
    } else if (text == "aic") {
      m.select = runner::Selection::kAic;
    } else if (text == "bic") {
      m.select = runner::Selection::kBic;
    } else if (text == "holdout") {
      m.select = runner::Selection::kHoldout;
    } else {
      throw RunError(fmt::format("--select: '{}' is not aicc, aic, bic or holdout", text));
    }
  }
  return m;
}

// One series of the batch, as the runner reads it.
CsvSeries series_of(std::size_t s, const std::vector<std::int64_t>& offsets, const std::vector<double>& times,
                    const double* values, const std::int64_t* rows, const std::string& name, const std::string& id_col,
                    const std::string& time_col, const std::string& target_col, runner::TimeUnits units) {
  CsvSeries series;
  series.path = fmt::format("{} '{}'", id_col, name);
  series.id_column = time_col;
  series.var_column = target_col;
  const auto first = static_cast<std::size_t>(offsets[s]);
  const auto last = static_cast<std::size_t>(offsets[s + 1]);
  series.rows.reserve(last - first);
  for (std::size_t i = first; i < last; ++i) {
    CsvRow row;
    row.line = static_cast<long>(rows[i]) + 1;
    row.time = times[i];
    row.id_text = runner::row_time_text(esf::is_missing(times[i]) ? runner::kNaN : times[i], units, i - first);
    row.missing = !std::isfinite(values[i]);
    row.value = row.missing ? 0.0 : values[i];
    series.rows.push_back(std::move(row));
  }
  return series;
}

double plain(double v) { return esf::is_missing(v) ? runner::kNaN : v; }

py::dict criteria_dict(const runner::Criteria& c) {
  py::dict d;
  d["n"] = c.n;
  d["k"] = c.k;
  d["loglik"] = c.loglik;
  d["aic"] = c.aic;
  d["aicc"] = c.aicc;
  d["bic"] = c.bic;
  return d;
}

py::dict accuracy_dict(const runner::Accuracy& a) {
  py::dict d;
  d["n"] = a.n;
  d["me"] = a.me;
  d["rmse"] = a.rmse;
  d["mae"] = a.mae;
  d["mape"] = a.mape;
  d["smape"] = a.smape;
  d["mase"] = a.mase;
  return d;
}

py::dict fit_dict(const runner::FitResult& f, const std::string& model_file) {
  py::dict d;
  py::list weights;
  for (const runner::WeightEstimate& w : f.weights) {
    weights.append(py::make_tuple(w.name, w.label, w.estimate, w.std_error, w.t_value, runner::describe(w.position),
                                  w.lower, w.upper));
  }
  d["model"] = f.family != nullptr ? f.family->name : "";
  d["weights"] = weights;
  d["error_variance"] = f.error_variance;
  d["level"] = f.state.level;
  d["trend"] = f.state.has_trend ? py::object(py::float_(f.state.trend)) : py::object(py::none());
  d["factors"] = f.state.factors;
  py::list stats;
  for (const auto& [name, value] : f.statistics) stats.append(py::make_tuple(name, value));
  d["statistics"] = stats;
  d["nobs"] = f.nobs;
  d["start"] = f.start;
  d["interval"] = f.interval;
  d["end"] = runner::describe(f.end);
  d["converged"] = f.converged();
  d["iterations"] = f.iterations;
  d["nseasons"] = f.nseasons;
  d["criteria"] = criteria_dict(f.criteria);
  d["accuracy"] = accuracy_dict(f.fit_accuracy);
  d["warnings"] = f.warnings;
  if (f.choice) {
    py::list candidates;
    for (const runner::Candidate& c : f.choice->candidates) {
      candidates.append(py::make_tuple(c.model, c.refused, c.score, criteria_dict(c.criteria)));
    }
    d["candidates"] = candidates;
  }
  d["model_file"] = model_file;
  return d;
}

// What one series gave: its table, its fit, or the reason it failed.
struct SeriesOutcome {
  std::optional<runner::ForecastTable> table;
  std::optional<runner::FitResult> fit;
  std::string model_file;
  std::vector<std::string> warnings;
  long holdout = 0;
  runner::Accuracy holdout_accuracy{};
  std::vector<std::pair<std::string, double>> holdout_coverage;
  std::string error;
  int status = 0;
};

// Fits one series (or takes its saved model) and forecasts it. Keeping the
// model file takes a fit of its own before the forecast from it.
SeriesOutcome run_series(const runner::Runner& run, const Plan& plan, const CsvSeries& series,
                         const std::string& saved_text, bool keep_model, bool forecast) {
  SeriesOutcome out;
  try {
    std::optional<runner::SavedModel> saved;
    if (!saved_text.empty()) {
      saved.emplace();
      saved->path = series.path;
      saved->model = plan.options.model;
      saved->model_list = nlohmann::ordered_json::parse(saved_text).at("model_list");
    }
    if (!saved && (!forecast || keep_model)) {
      runner::FitResult f = run.fit(plan, series, /*keep_model_list=*/keep_model);
      if (keep_model) out.model_file = runner::model_file_text(f);
      out.warnings = f.warnings;
      if (forecast) {
        saved.emplace();
        saved->path = series.path;
        saved->model = f.family->name;
        saved->model_list = f.model_list;
      }
      out.fit = std::move(f);
    }
    if (!forecast) return out;
    std::optional<Plan> chosen;
    if (saved && saved->model != plan.options.model) {  // the family auto chose, or the saved one
      ModelOptions o = plan.options;
      o.model = saved->model;
      chosen = run.plan(o, true);
    }
    ForecastResult r = run.forecast(chosen ? *chosen : plan, series, saved ? &*saved : nullptr);
    if (r.fitted) {
      out.warnings = r.fit.warnings;
      out.fit = std::move(r.fit);
    }
    out.warnings.insert(out.warnings.end(), r.warnings.begin(), r.warnings.end());
    out.holdout = r.holdout;
    out.holdout_accuracy = r.holdout_accuracy;
    out.holdout_coverage = std::move(r.holdout_coverage);
    out.table = std::move(r.table);
  } catch (const RunError& e) {
    out.error = e.what();
    out.status = e.status();
  } catch (const CsvError& e) {
    out.error = e.what();
    out.status = runner::kExitUsage;
  } catch (const nlohmann::json::exception& e) {
    out.error = fmt::format("{}: not a saved model: {}", series.path, e.what());
    out.status = runner::kExitUsage;
  } catch (const std::exception& e) {
    out.error = fmt::format("{}: {}", series.path, e.what());
    out.status = runner::kExitMethodFailed;
  }
  return out;
}

// Runs job(s) for s in [0, n) on `threads` threads (the calling one among
// them), each taking the next series as it finishes one; a thread's host
// task ends with it.
template <class Job>
void on_threads(std::size_t n, int threads, Job job) {
  std::atomic<std::size_t> next{0};
  auto work = [&] {
    for (std::size_t s = next++; s < n; s = next++) job(s);
  };
  const auto extra = static_cast<std::size_t>(std::max(1, threads) - 1);
  std::vector<std::thread> pool;
  for (std::size_t t = 0; t < std::min(extra, n > 0 ? n - 1 : 0); ++t) {
    pool.emplace_back([&] {
      work();
      host::end_task();
    });
  }
  work();
  for (std::thread& t : pool) t.join();
}

// "U95" / "L95": the name of a limit column of the forecast table.
bool is_limit_name(const std::string& name, char side) {
  return name.size() >= 2 && name[0] == side && name[1] >= '0' && name[1] <= '9';
}

// The pairs of limit columns of a table, (upper, lower): the first level's
// after FORECAST, then one pair a further level at the end of the table.
std::vector<std::pair<std::size_t, std::size_t>> limit_pairs(const runner::ForecastTable& t) {
  constexpr std::size_t kUpper = 3;
  std::vector<std::pair<std::size_t, std::size_t>> pairs = {{kUpper, kUpper + 1}};
  std::size_t end = t.columns.size();
  std::vector<std::pair<std::size_t, std::size_t>> more;
  while (end >= kUpper + 4 && is_limit_name(t.columns[end - 2].name, 'U') &&
         is_limit_name(t.columns[end - 1].name, 'L')) {
    more.emplace_back(end - 2, end - 1);
    end -= 2;
  }
  pairs.insert(pairs.end(), more.rbegin(), more.rend());
  return pairs;
}

py::dict run(const py::dict& options, const std::vector<std::int64_t>& offsets, const py::array& times,
             const std::string& time_unit, const py::array_t<double, py::array::c_style | py::array::forcecast>& values,
             const py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>& rows,
             const std::vector<std::string>& names, const std::string& id_col, const std::string& time_col,
             const std::string& target_col, int lead, const std::vector<double>& levels, bool keep_models,
             bool forecast, const std::vector<std::string>& saved_models, const std::string& out_unit, int threads,
             const std::string& data_units) {
  runner::Runner run(module_loader());
  const std::size_t nseries = offsets.empty() ? 0 : offsets.size() - 1;
  if (names.size() != nseries || (!saved_models.empty() && saved_models.size() != nseries)) {
    throw std::invalid_argument("one name (and saved model) a series");
  }
  if (static_cast<std::size_t>(values.size()) != static_cast<std::size_t>(rows.size())) {
    throw std::invalid_argument("values and rows differ in length");
  }
  // Time values in the units of the interval, or of the data while the
  // interval is still to be found from them.
  auto library_times = [&](char units) {
    const TimeOperand when(times, time_unit, units);
    if (when.size() != static_cast<std::size_t>(values.size())) {
      throw std::invalid_argument("times and values differ in length");
    }
    std::vector<double> t(when.size());
    for (std::size_t first = 0; first < when.size(); first += kChunk) {
      when.fill(first, std::min(kChunk, when.size() - first), t.data() + first);
    }
    return t;
  };

  Plan plan;
  std::vector<double> when;
  try {
    ModelOptions o = model_options(options);
    o.lead = lead;
    o.levels = levels;
    if (o.interval.empty()) {
      // The interval the first series' time IDs fit, as the command line
      // finds it for a file.
      const runner::TimeUnits units = runner::time_units_of(data_units.empty() ? 'd' : data_units[0]);
      when = library_times(data_units.empty() ? 'd' : data_units[0]);
      runner::Inferred found;
      for (std::size_t s = 0; s < nseries && found.interval.empty(); ++s) {
        found = runner::infer_interval(
            run.loader(),
            series_of(s, offsets, when, values.data(), rows.data(), names[s], id_col, time_col, target_col, units),
            units);
        if (found.interval.empty() && offsets[s + 1] - offsets[s] > 1) break;  // a series that fits none
      }
      if (found.interval.empty()) {
        throw RunError(found.message.empty() ? "no series has two time IDs to find the interval from; give interval="
                                             : found.message);
      }
      o.interval = found.interval;
      plan = run.plan(o, forecast);
      if (plan.interval.units != data_units[0]) when.clear();
    } else {
      plan = run.plan(o, forecast);
    }
  } catch (const RunError& e) {
    raise_run_error(e.what(), e.status());
  } catch (const CsvError& e) {
    raise_run_error(e.what(), runner::kExitUsage);
  } catch (const runner::LoadError& e) {
    raise_run_error(e.what(), runner::kExitLoad);
  }
  if (when.empty()) when = library_times(plan.interval.units);
  const std::vector<double>& library_times_of_plan = when;

  std::vector<SeriesOutcome> outcomes(nseries);
  {
    py::gil_scoped_release unlocked;
    const double* y = values.data();
    const std::int64_t* row = rows.data();
    on_threads(nseries, threads, [&](std::size_t s) {
      const CsvSeries series =
          series_of(s, offsets, library_times_of_plan, y, row, names[s], id_col, time_col, target_col, plan.units);
      outcomes[s] =
          run_series(run, plan, series, saved_models.empty() ? std::string() : saved_models[s], keep_models, forecast);
    });
  }

  // Per series: the fit (None when failed or not fitted here), what went
  // wrong or was remarked, the holdout's accuracy.
  py::dict result;
  py::list fits, reports;
  for (std::size_t s = 0; s < nseries; ++s) {
    const SeriesOutcome& o = outcomes[s];
    fits.append(o.fit ? py::object(fit_dict(*o.fit, o.model_file)) : py::object(py::none()));
    py::dict r;
    r["error"] = o.error;
    r["exit_status"] = o.status;
    r["warnings"] = o.warnings;
    r["holdout"] = o.holdout;
    if (o.holdout > 0) {
      r["holdout_accuracy"] = accuracy_dict(o.holdout_accuracy);
      r["holdout_coverage"] = o.holdout_coverage;
    }
    reports.append(r);
  }
  result["interval"] = plan.options.interval;
  result["fits"] = fits;
  result["reports"] = reports;
  if (!forecast) return result;

  // The tables of all series stacked: the series and lead of each row, its
  // time, the table's other columns but its limits, and the limits of each
  // level as a pair of its own.
  std::size_t total = 0;
  const runner::ForecastTable* model_table = nullptr;
  for (const SeriesOutcome& o : outcomes) {
    if (!o.table) continue;
    total += o.table->rows();
    if (model_table == nullptr) model_table = &*o.table;
  }
  const auto pairs =
      model_table != nullptr ? limit_pairs(*model_table) : std::vector<std::pair<std::size_t, std::size_t>>{};
  const std::size_t ncolumns = model_table != nullptr ? model_table->columns.size() : 0;
  std::vector<py::array_t<double>> columns;
  for (std::size_t c = 0; c < ncolumns; ++c) columns.emplace_back(static_cast<py::ssize_t>(total));
  py::array_t<std::int64_t> series_index(static_cast<py::ssize_t>(total));
  py::array_t<std::int32_t> lead_of(static_cast<py::ssize_t>(total));
  std::vector<double> time_values(total);
  std::size_t at = 0;
  for (std::size_t s = 0; s < nseries; ++s) {
    const SeriesOutcome& o = outcomes[s];
    if (!o.table) continue;
    const runner::ForecastTable& t = *o.table;
    if (t.columns.size() != ncolumns) throw std::logic_error("forecast tables of one model differ in their columns");
    const std::size_t n = t.rows();
    const auto ahead = static_cast<std::size_t>(std::max<long>(lead, o.holdout));
    const std::size_t history = n >= ahead ? n - ahead : 0;
    for (std::size_t i = 0; i < n; ++i) {
      series_index.mutable_at(at + i) = static_cast<std::int64_t>(s);
      lead_of.mutable_at(at + i) = i < history ? 0 : static_cast<std::int32_t>(i - history + 1);
      time_values[at + i] = t.columns[0].values[i];
    }
    for (std::size_t c = 1; c < ncolumns; ++c) {
      double* into = columns[c].mutable_data() + at;
      const std::vector<double>& from = t.columns[c].values;
      for (std::size_t i = 0; i < n; ++i) into[i] = plain(from[i]);
    }
    at += n;
  }
  py::list named, limits;
  std::vector<bool> is_limit(ncolumns, false);
  for (const auto& [u, l] : pairs) {
    is_limit[u] = is_limit[l] = true;
    limits.append(py::make_tuple(model_table->columns[u].name, columns[u], columns[l]));
  }
  for (std::size_t c = 1; c < ncolumns; ++c) {
    if (!is_limit[c]) named.append(py::make_tuple(model_table->columns[c].name, columns[c]));
  }
  result["series"] = series_index;
  result["lead"] = lead_of;
  const std::int64_t per_day = ticks_per_day(out_unit);
  if (per_day == 0) {
    py::array_t<double> t(static_cast<py::ssize_t>(total));
    for (std::size_t i = 0; i < total; ++i) t.mutable_at(i) = plain(time_values[i]);
    result["time"] = t;
  } else {
    py::array_t<std::int64_t> t(static_cast<py::ssize_t>(total));
    to_ticks_of(plan.interval.units, per_day)(time_values.data(), total, t.mutable_data());
    result["time"] = t;
  }
  result["columns"] = named;
  result["limits"] = limits;
  return result;
}

}  // namespace

void bind_forecast(py::module_& m) {
  m.def("run", &run, py::arg("options"), py::arg("offsets"), py::arg("times"), py::arg("time_unit"), py::arg("values"),
        py::arg("rows"), py::arg("names"), py::arg("id_col"), py::arg("time_col"), py::arg("target_col"),
        py::arg("lead"), py::arg("levels"), py::arg("keep_models"), py::arg("forecast"), py::arg("saved_models"),
        py::arg("out_unit"), py::arg("threads"), py::arg("data_units"));
  m.def(
      "interval_of_alias", [](const std::string& alias) { return runner::interval_of_alias(alias); }, py::arg("alias"));
  m.def("families", [] {
    py::list names;
    for (const runner::Family& f : runner::families()) names.append(f.name);
    return names;
  });
}

}  // namespace esf::python
