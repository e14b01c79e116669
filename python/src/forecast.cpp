// Many series through the runner in one call: the Python layer hands over
// the rows of a long frame grouped by series (offsets into flat arrays of
// time values and observations), and gets back the forecast tables of all
// series stacked into flat arrays, the fit of each series, and the reasons
// of the series that could not be forecast. The interpreter's lock is
// released while the series run.
#include <dlfcn.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "runner/runner.h"
#include "time_values.h"

namespace py = pybind11;

namespace esf::python {
namespace {

using runner::CsvError;
using runner::CsvRow;
using runner::CsvSeries;
using runner::ForecastResult;
using runner::ModelOptions;
using runner::Plan;
using runner::RunError;

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
    row.id_text = runner::format_time(esf::is_missing(times[i]) ? runner::kNaN : times[i], units);
    row.missing = !std::isfinite(values[i]);
    row.value = row.missing ? 0.0 : values[i];
    series.rows.push_back(std::move(row));
  }
  return series;
}

double plain(double v) { return esf::is_missing(v) ? runner::kNaN : v; }

py::dict fit_dict(const runner::FitResult& f, const std::string& model_file) {
  py::dict d;
  py::list weights;
  for (const runner::WeightEstimate& w : f.weights) {
    weights.append(py::make_tuple(w.name, w.label, w.estimate, w.std_error, w.t_value));
  }
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
  d["model_file"] = model_file;
  return d;
}

// What one series gave: its tables (one a level) or the reason it failed.
struct SeriesOutcome {
  std::vector<runner::ForecastTable> tables;
  std::optional<runner::FitResult> fit;
  std::string model_file;
  std::string error;
  int status = 0;
};

// Fits (or takes the saved model of) one series and forecasts it at each
// significance level. One level: one fit-and-forecast; several: a fit that
// keeps its model list, then a forecast from it at each level.
SeriesOutcome run_series(const runner::Runner& run, const std::vector<Plan>& plans, const CsvSeries& series,
                         const std::string& saved_text, bool keep_model, bool forecast) {
  SeriesOutcome out;
  try {
    std::optional<runner::SavedModel> saved;
    if (!saved_text.empty()) {
      saved.emplace();
      saved->path = series.path;
      saved->model = plans[0].options.model;
      saved->model_list = nlohmann::ordered_json::parse(saved_text).at("model_list");
    }
    if (!saved && (!forecast || keep_model || plans.size() > 1)) {
      runner::FitResult f = run.fit(plans[0], series, /*keep_model_list=*/true);
      saved.emplace();
      saved->path = series.path;
      saved->model = plans[0].options.model;
      saved->model_list = f.model_list;
      if (keep_model) out.model_file = runner::model_file_text(f);
      out.fit = std::move(f);
    }
    if (!forecast) return out;
    for (const Plan& plan : plans) {
      ForecastResult r = run.forecast(plan, series, saved ? &*saved : nullptr);
      if (r.fitted) out.fit = std::move(r.fit);
      out.tables.push_back(std::move(r.table));
    }
  } catch (const RunError& e) {
    out.error = e.what();
    out.status = e.status();
  } catch (const CsvError& e) {
    out.error = e.what();
    out.status = runner::kExitUsage;
  } catch (const nlohmann::json::exception& e) {
    out.error = fmt::format("{}: not a saved model: {}", series.path, e.what());
    out.status = runner::kExitUsage;
  }
  return out;
}

py::dict run(const py::dict& options, const std::vector<std::int64_t>& offsets, const py::array& times,
             const std::string& time_unit, const py::array_t<double, py::array::c_style | py::array::forcecast>& values,
             const py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>& rows,
             const std::vector<std::string>& names, const std::string& id_col, const std::string& time_col,
             const std::string& target_col, int lead, const std::vector<double>& alphas, bool keep_models,
             bool forecast, const std::vector<std::string>& saved_models, const std::string& out_unit) {
  runner::Runner run(module_loader());
  std::vector<Plan> plans;
  try {
    ModelOptions o = model_options(options);
    o.lead = lead;
    for (double alpha : alphas) {
      o.cl = alpha;
      plans.push_back(run.plan(o, forecast));
    }
    if (plans.empty()) plans.push_back(run.plan(o, forecast));
  } catch (const RunError& e) {
    raise_run_error(e.what(), e.status());
  } catch (const runner::LoadError& e) {
    raise_run_error(e.what(), runner::kExitLoad);
  }
  const Plan& plan = plans[0];
  const std::size_t nseries = offsets.empty() ? 0 : offsets.size() - 1;
  if (names.size() != nseries || (!saved_models.empty() && saved_models.size() != nseries)) {
    throw std::invalid_argument("one name (and saved model) a series");
  }

  // Time values of the interval's units.
  const TimeOperand when(times, time_unit, plan.interval.units);
  if (when.size() != static_cast<std::size_t>(values.size()) || when.size() != static_cast<std::size_t>(rows.size())) {
    throw std::invalid_argument("times, values and rows differ in length");
  }
  std::vector<double> library_times(when.size());
  for (std::size_t first = 0; first < when.size(); first += kChunk) {
    when.fill(first, std::min(kChunk, when.size() - first), library_times.data() + first);
  }

  std::vector<SeriesOutcome> outcomes(nseries);
  {
    py::gil_scoped_release unlocked;
    for (std::size_t s = 0; s < nseries; ++s) {
      const CsvSeries series = series_of(s, offsets, library_times, values.data(), rows.data(), names[s], id_col,
                                         time_col, target_col, plan.units);
      outcomes[s] = run_series(run, plans, series, saved_models.empty() ? std::string() : saved_models[s],
                               keep_models, forecast);
    }
  }

  py::dict result;
  py::list fits;
  py::list failures;
  for (std::size_t s = 0; s < nseries; ++s) {
    const SeriesOutcome& o = outcomes[s];
    if (!o.error.empty()) {
      failures.append(py::make_tuple(s, o.error, o.status));
      fits.append(py::none());
    } else {
      fits.append(o.fit ? py::object(fit_dict(*o.fit, o.model_file)) : py::object(py::none()));
    }
  }
  result["fits"] = fits;
  result["failures"] = failures;
  if (!forecast) return result;

  // The tables of all series stacked: the series and lead of each row, its
  // time, the columns of the first level's table but its limits, and the
  // limits of each level. Columns are named as the table names them; the
  // limits stand third and fourth (upper, lower) after the time ID.
  std::size_t total = 0;
  const runner::ForecastTable* model_table = nullptr;
  for (const SeriesOutcome& o : outcomes) {
    if (o.tables.empty()) continue;
    total += o.tables[0].rows();
    if (model_table == nullptr) model_table = &o.tables[0];
  }
  py::array_t<std::int64_t> series_index(static_cast<py::ssize_t>(total));
  py::array_t<std::int32_t> lead_of(static_cast<py::ssize_t>(total));
  std::vector<double> time_values(total);
  const std::size_t ncolumns = model_table != nullptr ? model_table->columns.size() : 0;
  std::vector<py::array_t<double>> columns;
  for (std::size_t c = 0; c < ncolumns; ++c) columns.emplace_back(static_cast<py::ssize_t>(total));
  std::vector<py::array_t<double>> lower, upper;
  for (std::size_t l = 0; l < plans.size(); ++l) {
    lower.emplace_back(static_cast<py::ssize_t>(total));
    upper.emplace_back(static_cast<py::ssize_t>(total));
  }
  std::size_t at = 0;
  for (std::size_t s = 0; s < nseries; ++s) {
    const SeriesOutcome& o = outcomes[s];
    if (o.tables.empty()) continue;
    const std::size_t n = o.tables[0].rows();
    const std::size_t history = n >= static_cast<std::size_t>(lead) ? n - static_cast<std::size_t>(lead) : 0;
    for (std::size_t i = 0; i < n; ++i) {
      series_index.mutable_at(at + i) = static_cast<std::int64_t>(s);
      lead_of.mutable_at(at + i) = i < history ? 0 : static_cast<std::int32_t>(i - history + 1);
      time_values[at + i] = o.tables[0].columns[0].values[i];
    }
    for (std::size_t c = 1; c < ncolumns; ++c) {
      double* into = columns[c].mutable_data() + at;
      const std::vector<double>& from = o.tables[0].columns[c].values;
      for (std::size_t i = 0; i < n; ++i) into[i] = plain(from[i]);
    }
    for (std::size_t l = 0; l < plans.size(); ++l) {
      const std::vector<double>& up = o.tables[l].columns[3].values;
      const std::vector<double>& low = o.tables[l].columns[4].values;
      double* u = upper[l].mutable_data() + at;
      double* w = lower[l].mutable_data() + at;
      for (std::size_t i = 0; i < n; ++i) {
        u[i] = plain(up[i]);
        w[i] = plain(low[i]);
      }
    }
    at += n;
  }
  py::list named;
  for (std::size_t c = 1; c < ncolumns; ++c) {
    if (c == 3 || c == 4) continue;
    named.append(py::make_tuple(model_table->columns[c].name, columns[c]));
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
  result["lower"] = py::cast(lower);
  result["upper"] = py::cast(upper);
  result["interval_units"] = std::string(1, plan.interval.units);
  return result;
}

}  // namespace

void bind_forecast(py::module_& m) {
  m.def("run", &run, py::arg("options"), py::arg("offsets"), py::arg("times"), py::arg("time_unit"),
        py::arg("values"), py::arg("rows"), py::arg("names"), py::arg("id_col"), py::arg("time_col"),
        py::arg("target_col"), py::arg("lead"), py::arg("alphas"), py::arg("keep_models"), py::arg("forecast"),
        py::arg("saved_models"), py::arg("out_unit"));
  m.def("families", [] {
    py::list names;
    for (const runner::Family& f : runner::families()) names.append(f.name);
    return names;
  });
}

}  // namespace esf::python
