// The fit and forecast subcommands: the options gathered into the runner's
// model options, one series read from CSV and run through the runner, and
// the results reported.
//
//   esforecast fit --model simple --interval MONTH series.csv [--json]
//   esforecast forecast --model simple --interval MONTH --lead 12 --cl 0.05 series.csv -o forecast.csv
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "host/host.h"
#include "runner/runner.h"

namespace {

namespace runner = esf::runner;
using esf::runner::CsvError;
using esf::runner::RunError;
using Json = nlohmann::ordered_json;

// What one command reads from its command line.
struct Options {
  runner::ModelOptions model;
  std::string input;
  std::string id_column;
  std::string var_column;
  // fit
  bool json = false;
  std::string save_model;
  // forecast
  std::string output;
  std::string model_file;
};

void add_common_options(CLI::App* cmd, Options& opts, bool model_required) {
  runner::ModelOptions& o = opts.model;
  auto* model = cmd->add_option("--model", o.model, "Model family: " + runner::family_names());
  if (model_required) model->default_val("simple");
  cmd->add_option("--interval", o.interval,
                  "Interval of the series, such as MONTH, QTR, WEEK.2, DAY, DTHOUR, OBS, or a pandas alias (MS, W-SUN, "
                  "Q-JAN, ...); default: the interval that fits the time IDs");
  cmd->add_option("series", opts.input, "CSV file with a header line, a time ID column and a value column")
      ->required();
  cmd->add_option("--id", opts.id_column, "Column holding the time ID (default: the first)");
  cmd->add_option("--var", opts.var_column, "Column holding the values (default: the second)");
  cmd->add_option("--nseasons", o.nseasons, "Length of the seasonal cycle (default: from the interval)");
  for (int k = 0; k < runner::kNumWeightKinds; ++k) {
    const std::string word = runner::kWeightWord[k];
    cmd->add_option("--" + word + "-bounds", o.bounds[k], "Lower and upper bound of the " + word + " weight")
        ->expected(2)
        ->delimiter(',');
    cmd->add_option("--" + word + "-weight", o.fixed[k], "Fix the " + word + " weight at this value");
  }
  cmd->add_flag("--no-bounds", o.no_bounds, "Estimate the weights without their bounds");
  cmd->add_flag("--no-stability", o.no_stability, "Do not keep the weights in the stability region");
  cmd->add_option("--start-level", o.start_level, "Level at the first observation (STARTVALS)");
  cmd->add_option("--start-trend", o.start_trend, "Trend at the first observation (STARTVALS)");
  cmd->add_option("--start-factors", o.start_factors, "Seasonal factors at the first observation (STARTVALS)")
      ->delimiter(',');
  cmd->add_option("--backcast-level", o.backcast_level, "Level where the backward pass starts (SVI)");
  cmd->add_option("--backcast-trend", o.backcast_trend, "Trend where the backward pass starts (SVI)");
  cmd->add_option("--backcast-factors", o.backcast_factors, "Seasonal factors where the backward pass starts (SVI)")
      ->delimiter(',');
  cmd->add_option("--fit-start", o.fit_start, "First time ID of the fit range");
  cmd->add_option("--fit-end", o.fit_end, "Last time ID of the fit range");
  cmd->add_option("--eval-start", o.eval_start, "First time ID of the evaluation range");
  cmd->add_option("--eval-end", o.eval_end, "Last time ID of the evaluation range");
  cmd->add_flag("--trace", o.trace, "Print the estimation trace");
}

// ---- Reporting a fit -------------------------------------------------------------

Json number_json(double v) { return std::isnan(v) ? Json(nullptr) : Json(v); }

std::string number_text(double v, int decimals) {
  return std::isnan(v) ? std::string(".") : fmt::format("{:.{}f}", v, decimals);
}

// The fit's results as JSON.
Json fit_json(const runner::FitResult& r) {
  Json out;
  out["model"] = r.family->name;
  out["interval"] = r.interval;
  out["nobs"] = r.nobs;
  out["start"] = r.start_text;
  Json weights = Json::array();
  for (const runner::WeightEstimate& w : r.weights) {
    Json j;
    j["name"] = w.name;
    j["label"] = w.label;
    j["estimate"] = number_json(w.estimate);
    j["stderr"] = number_json(w.std_error);
    j["tvalue"] = number_json(w.t_value);
    weights.push_back(std::move(j));
  }
  out["weights"] = std::move(weights);
  out["error_variance"] = number_json(r.error_variance);
  Json s;
  s["level"] = number_json(r.state.level);
  if (r.state.has_trend) s["trend"] = number_json(r.state.trend);
  if (!r.state.factors.empty()) {
    Json f = Json::array();
    for (double v : r.state.factors) f.push_back(number_json(v));
    s["factors"] = std::move(f);
  }
  out["smoothed_state"] = std::move(s);
  return out;
}

std::string fit_table(const runner::FitResult& r) {
  std::string out;
  out += fmt::format("{} of {} ({} {} periods from {})\n", r.family->title, r.variable, r.nobs, r.interval,
                     r.start_text);
  out += "\n";
  out += fmt::format("{:<10} {:>14} {:>14} {:>10}  {}\n", "Weight", "Estimate", "Std Error", "t Value", "Label");
  for (const runner::WeightEstimate& w : r.weights) {
    out += fmt::format("{:<10} {:>14} {:>14} {:>10}  {}\n", w.name, number_text(w.estimate, 6),
                       number_text(w.std_error, 6), number_text(w.t_value, 2), w.label);
  }
  out += "\n";
  out += fmt::format("Error variance {}\n",
                     std::isnan(r.error_variance) ? std::string(".") : fmt::format("{:.6g}", r.error_variance));
  out += "\nSmoothed state at the end of the fit range\n";
  out += fmt::format("  {:<8} {}\n", "level", number_text(r.state.level, 6));
  if (r.state.has_trend) out += fmt::format("  {:<8} {}\n", "trend", number_text(r.state.trend, 6));
  if (!r.state.factors.empty()) {
    std::string f;
    for (double v : r.state.factors) f += (f.empty() ? "" : " ") + number_text(v, 6);
    out += fmt::format("  {:<8} {}\n", "factors", f);
  }
  return out;
}

// The forecast table as CSV, with the time ID written as a date, datetime
// or number according to the interval.
std::string forecast_csv(const runner::ForecastTable& t) {
  std::string out;
  for (std::size_t j = 0; j < t.columns.size(); ++j) {
    if (j > 0) out += ',';
    out += t.columns[j].name;
  }
  out += '\n';
  for (std::size_t i = 0; i < t.rows(); ++i) {
    for (std::size_t j = 0; j < t.columns.size(); ++j) {
      const double v = t.columns[j].values[i];
      if (j > 0) out += ',';
      out += j == 0 && !esf::is_missing(v) ? runner::format_time(v, t.units) : esf::host::format_table_value(v);
    }
    out += '\n';
  }
  return out;
}

void write_output(const std::string& path, const std::string& text) {
  try {
    runner::write_file_atomically(path, text);
  } catch (const CsvError& e) {
    throw RunError(e.what());
  }
}

// ---- Commands ------------------------------------------------------------------------

// The plan and the series, telling on standard error what interval an alias
// stands for or the time IDs suggested.
runner::Plan plan_and_series(runner::Runner& run, const Options& o, bool forecast, runner::CsvSeries* csv) {
  std::string inferred;
  runner::Plan plan = run.plan_for_file(o.model, forecast, o.input, o.id_column, o.var_column, csv, &inferred);
  if (!inferred.empty()) {
    std::cerr << fmt::format("esforecast: no --interval given; the time IDs fit {}: using --interval {}\n", inferred,
                             inferred);
  } else if (!plan.interval_alias.empty()) {
    std::cerr << fmt::format("esforecast: --interval {} stands for {}\n", plan.interval_alias, plan.interval_token);
  }
  return plan;
}

void tell_remark(const std::string& remark) {
  if (!remark.empty()) std::cerr << "esforecast: note: " << remark << '\n';
}

void fit_command(const Options& o, runner::Loader& loader) {
  runner::Runner run(loader);
  runner::CsvSeries csv;
  const runner::Plan plan = plan_and_series(run, o, false, &csv);
  const runner::FitResult r = run.fit(plan, csv, !o.save_model.empty());
  tell_remark(r.remark);
  const Json j = fit_json(r);
  if (!o.save_model.empty()) write_output(o.save_model, runner::model_file_text(r));
  if (o.json) {
    std::cout << j.dump(2) << '\n';
  } else {
    std::cout << fit_table(r);
  }
}

void forecast_command(Options o, runner::Loader& loader) {
  std::optional<runner::SavedModel> saved;
  if (!o.model_file.empty()) saved = runner::load_model_file(o.model_file, o.model);
  if (o.model.model.empty()) o.model.model = "simple";
  runner::Runner run(loader);
  runner::CsvSeries csv;
  const runner::Plan plan = plan_and_series(run, o, true, &csv);
  const runner::ForecastResult r = run.forecast(plan, csv, saved ? &*saved : nullptr);
  tell_remark(r.remark);
  const std::string text = forecast_csv(r.table);
  if (o.output.empty()) {
    std::cout << text;
  } else {
    write_output(o.output, text);
  }
}

// Runs a command body, turning its failures into a message and an exit
// status.
template <class F>
void guarded(const char* command, F&& body) {
  try {
    body();
  } catch (const RunError& e) {
    std::cerr << "esforecast " << command << ": " << e.what() << '\n';
    throw CLI::RuntimeError(e.status());
  } catch (const CsvError& e) {
    std::cerr << "esforecast " << command << ": " << e.what() << '\n';
    throw CLI::RuntimeError(1);
  }
}

}  // namespace

void add_model_commands(CLI::App& app, esf::runner::Loader& loader) {
  static Options fit_options;
  CLI::App* fit = app.add_subcommand("fit", "Fit a smoothing model to a series and print the estimates");
  add_common_options(fit, fit_options, true);
  fit->add_flag("--json", fit_options.json, "Print the estimates as JSON");
  fit->add_option("--save-model", fit_options.save_model, "Keep the whole fitted model list in this JSON file");
  fit->callback([&loader] { guarded("fit", [&] { fit_command(fit_options, loader); }); });

  static Options forecast_options;
  CLI::App* fc = app.add_subcommand("forecast", "Fit a smoothing model and write its forecast table as CSV");
  add_common_options(fc, forecast_options, false);
  fc->add_option("--lead", forecast_options.model.lead, "Number of forecasts past the evaluation range")
      ->default_val(12)
      ->check(CLI::NonNegativeNumber);
  fc->add_option("--cl", forecast_options.model.cl, "Significance level of the limits, e.g. 0.05 for 95% limits")
      ->default_val(0.05);
  fc->add_option("-o,--output", forecast_options.output, "Write the table to this CSV file (default: standard output)");
  fc->add_option("--model-file", forecast_options.model_file, "Forecast from a model saved by fit --save-model");
  fc->callback([&loader] { guarded("forecast", [&] { forecast_command(forecast_options, loader); }); });
}
