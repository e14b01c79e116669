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
#include "cli/many_series.h"
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
  esf::cli::ManyOptions many;
  // fit
  std::string save_model;
  // forecast
  std::string model_file;

  const std::string& var_column() const {
    static const std::string none;
    return many.vars.empty() ? none : many.vars.front();
  }
  // Whether the file holds many series; the many-series options otherwise
  // have nothing to act on.
  bool many_series() {
    many.id_column = id_column;
    if (esf::cli::wants_many(many, input)) return true;
    for (const auto& [given, name] : {std::pair{!many.status.empty(), "--status"},
                                      {!many.estimates.empty(), "--estimates"},
                                      {many.future_only, "--future-only"}}) {
      if (given) throw RunError(std::string(name) + " needs a table of many series (--by, or --var repeated)");
    }
    return false;
  }
};

void add_common_options(CLI::App* cmd, Options& opts, bool model_required, bool forecast_command) {
  runner::ModelOptions& o = opts.model;
  auto* model = cmd->add_option("--model", o.model,
                                "Model family: " + runner::family_names() + ", or auto to choose one (see --select)");
  if (model_required) model->default_val("simple");
  cmd->add_option("--interval", o.interval,
                  "Interval of the series, such as MONTH, QTR, WEEK.2, DAY, DTHOUR, OBS, or a pandas alias (MS, W-SUN, "
                  "Q-JAN, ...); default: the interval that fits the time IDs");
  cmd->add_option("series", opts.input, "CSV file with a header line, a time ID column and a value column")->required();
  cmd->add_option("--id", opts.id_column, "Column holding the time ID (default: the first)");
  cmd->add_option("--var", opts.many.vars,
                  "Column holding the values (default: the second); repeat it, or give '*', for a wide table of "
                  "many series");
  esf::cli::add_many_options(cmd, opts.many, forecast_command);
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
  cmd->add_option_function<std::string>(
      "--search",
      [&o](const std::string& v) {
        if (v != "frame" && v != "thorough") throw CLI::ValidationError("--search", "choose frame or thorough");
        o.thorough = v == "thorough";
      },
      "frame (default): the estimation as the module does it; thorough: also from every corner of the "
      "weights' ranges, keeping the lowest error");
  cmd->add_option_function<std::string>(
      "--select",
      [&o](const std::string& v) {
        if (v == "aicc")
          o.select = runner::Selection::kAicc;
        else if (v == "aic")
          o.select = runner::Selection::kAic;
        else if (v == "bic")
          o.select = runner::Selection::kBic;
        else if (v == "holdout")
          o.select = runner::Selection::kHoldout;
        else
          throw CLI::ValidationError("--select", "choose aicc, aic, bic or holdout");
      },
      "What --model auto chooses by: aicc (default), aic, bic, or holdout (the error on the last season "
      "of the fit range)");
}

std::string criterion_name(runner::Selection s) {
  switch (s) {
    case runner::Selection::kAicc:
      return "AICc";
    case runner::Selection::kAic:
      return "AIC";
    case runner::Selection::kBic:
      return "BIC";
    case runner::Selection::kHoldout:
      return "holdout MASE";
  }
  return "";
}

// ---- Reporting a fit -------------------------------------------------------------

Json number_json(double v) { return std::isnan(v) ? Json(nullptr) : Json(v); }

std::string number_text(double v, int decimals) {
  return std::isnan(v) ? std::string(".") : fmt::format("{:.{}f}", v, decimals);
}

Json accuracy_json(const runner::Accuracy& a) {
  return {{"n", a.n},
          {"me", number_json(a.me)},
          {"rmse", number_json(a.rmse)},
          {"mae", number_json(a.mae)},
          {"mape", number_json(a.mape)},
          {"smape", number_json(a.smape)},
          {"mase", number_json(a.mase)}};
}

Json choice_json(const runner::AutoChoice& c) {
  Json candidates = Json::array();
  for (const runner::Candidate& k : c.candidates) {
    Json j = {{"model", k.model}};
    if (!k.refused.empty()) {
      j["refused"] = k.refused;
    } else {
      j["aicc"] = number_json(k.criteria.aicc);
      j["aic"] = number_json(k.criteria.aic);
      j["bic"] = number_json(k.criteria.bic);
      j["score"] = number_json(k.score);
    }
    candidates.push_back(std::move(j));
  }
  return {{"by", criterion_name(c.by)}, {"candidates", std::move(candidates)}, {"chosen", c.chosen}};
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
    j["position"] = runner::describe(w.position);
    j["bounds"] = Json::array({number_json(w.lower), number_json(w.upper)});
    weights.push_back(std::move(j));
  }
  out["weights"] = std::move(weights);
  out["fit"] = {{"status", runner::describe(r.end)},
                {"converged", r.converged()},
                {"iterations", r.iterations},
                {"search", r.thorough ? "thorough" : "frame"}};
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
  const runner::Criteria& c = r.criteria;
  out["criteria"] = {{"nobs", c.n},
                     {"parameters", c.k},
                     {"loglik", number_json(c.loglik)},
                     {"aic", number_json(c.aic)},
                     {"aicc", number_json(c.aicc)},
                     {"bic", number_json(c.bic)}};
  out["accuracy"] = accuracy_json(r.fit_accuracy);
  out["evaluation_accuracy"] = accuracy_json(r.eval_accuracy);
  if (r.choice) out["selection"] = choice_json(*r.choice);
  out["warnings"] = r.warnings;
  return out;
}

std::string accuracy_lines(const runner::Accuracy& a) {
  return fmt::format("  ME {}  RMSE {}  MAE {}  MAPE {}  sMAPE {}  MASE {}  ({} values)\n", number_text(a.me, 4),
                     number_text(a.rmse, 4), number_text(a.mae, 4), number_text(a.mape, 3), number_text(a.smape, 3),
                     number_text(a.mase, 3), a.n);
}

std::string choice_text(const runner::AutoChoice& c) {
  std::string out = fmt::format("Model selection by {}\n", criterion_name(c.by));
  out += fmt::format("  {:<18} {:>14} {:>14} {:>14} {:>14}\n", "Model", "AICc", "AIC", "BIC", "Score");
  for (const runner::Candidate& k : c.candidates) {
    if (!k.refused.empty()) {
      out += fmt::format("  {:<18} not fitted: {}\n", k.model, k.refused);
    } else {
      out += fmt::format("  {:<18} {:>14} {:>14} {:>14} {:>14}{}\n", k.model, number_text(k.criteria.aicc, 3),
                         number_text(k.criteria.aic, 3), number_text(k.criteria.bic, 3), number_text(k.score, 4),
                         k.model == c.chosen ? "  <- chosen" : "");
    }
  }
  return out;
}

std::string fit_table(const runner::FitResult& r) {
  std::string out;
  if (r.choice) out += choice_text(*r.choice) + "\n";
  out +=
      fmt::format("{} of {} ({} {} periods from {})\n", r.family->title, r.variable, r.nobs, r.interval, r.start_text);
  out += "\n";
  out += fmt::format("{:<10} {:>14} {:>14} {:>10}  {}\n", "Weight", "Estimate", "Std Error", "t Value", "Label");
  for (const runner::WeightEstimate& w : r.weights) {
    out += fmt::format("{:<10} {:>14} {:>14} {:>10}  {}\n", w.name, number_text(w.estimate, 6),
                       number_text(w.std_error, 6), number_text(w.t_value, 2), w.label);
  }
  bool unbounded = false;
  for (const runner::WeightEstimate& w : r.weights) {
    unbounded = unbounded || w.position == runner::WeightPosition::kUnbounded;
    if (w.position != runner::WeightPosition::kInside && w.position != runner::WeightPosition::kUnbounded) {
      out += fmt::format("  {} is {}\n", w.name, runner::describe(w.position));
    }
  }
  if (unbounded) out += "  The weights were estimated without bounds\n";
  out += "\n";
  out += fmt::format("Estimation: {}{}{}\n", runner::describe(r.end),
                     r.iterations > 0 ? fmt::format(" ({} iterations)", r.iterations) : "",
                     r.thorough ? ", thorough search" : "");
  out += fmt::format("Error variance {}\n",
                     std::isnan(r.error_variance) ? std::string(".") : fmt::format("{:.6g}", r.error_variance));
  const runner::Criteria& c = r.criteria;
  out +=
      fmt::format("Log likelihood {}  AIC {}  AICc {}  BIC {}  ({} errors, {} parameters)\n", number_text(c.loglik, 3),
                  number_text(c.aic, 3), number_text(c.aicc, 3), number_text(c.bic, 3), c.n, c.k);
  out += "One-step accuracy over the fit range\n" + accuracy_lines(r.fit_accuracy);
  out += "One-step accuracy over the evaluation range\n" + accuracy_lines(r.eval_accuracy);
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
  const std::vector<const double*> columns = t.column_data();
  for (std::size_t i = 0; i < t.rows(); ++i) {
    esf::host::append_table_row(out, columns, i, runner::time_form(t.units));
    out += '\n';
  }
  return out;
}

// The files an output must not replace.
std::vector<std::string> inputs_of(const Options& o) { return {o.input, o.model_file}; }

// Refuses an output path before anything runs (see checked_output_path).
void check_output(const std::string& path, const Options& o) {
  if (path.empty()) return;
  try {
    runner::checked_output_path(path, inputs_of(o));
  } catch (const CsvError& e) {
    throw RunError(e.what());
  }
}

void write_output(const std::string& path, const std::string& text, const Options& o) {
  try {
    runner::write_file_atomically(path, text, inputs_of(o));
  } catch (const CsvError& e) {
    throw RunError(e.what());
  }
}

// ---- Commands ------------------------------------------------------------------------

// The plan and the series, telling on standard error what interval an alias
// stands for or the time IDs suggested.
runner::Plan plan_and_series(runner::Runner& run, const Options& o, bool forecast, runner::CsvSeries* csv) {
  std::string inferred;
  runner::Plan plan = run.plan_for_file(o.model, forecast, o.input, o.id_column, o.var_column(), csv, &inferred);
  if (!inferred.empty()) {
    std::cerr << fmt::format("esforecast: no --interval given; the time IDs fit {}: using --interval {}\n", inferred,
                             inferred);
  } else if (!plan.interval_alias.empty()) {
    std::cerr << fmt::format("esforecast: --interval {} stands for {}\n", plan.interval_alias, plan.interval_token);
  }
  return plan;
}

void fit_command(Options o, runner::Loader& loader) {
  if (o.many_series()) {
    if (!o.save_model.empty())
      throw RunError("--save-model keeps the model of one series; it cannot be used with many");
    const int status = esf::cli::run_many("fit", loader, o.model, false, o.input, o.many, nullptr);
    if (status != 0) throw CLI::RuntimeError(status);
    return;
  }
  check_output(o.save_model, o);
  runner::Runner run(loader);
  runner::CsvSeries csv;
  const runner::Plan plan = plan_and_series(run, o, false, &csv);
  const runner::FitResult r = run.fit(plan, csv, !o.save_model.empty());
  const Json j = fit_json(r);
  for (const std::string& w : r.warnings) std::cerr << "warning: " << w << '\n';
  if (!o.save_model.empty()) write_output(o.save_model, runner::model_file_text(r), o);
  if (o.many.json) {
    std::cout << j.dump(2) << '\n';
  } else {
    std::cout << fit_table(r);
  }
}

void forecast_command(Options o, runner::Loader& loader) {
  check_output(o.many.output, o);
  std::optional<runner::SavedModel> saved;
  if (!o.model_file.empty()) saved = runner::load_model_file(o.model_file, o.model);
  if (o.model.model.empty()) o.model.model = "simple";
  if (o.many_series()) {
    const int status =
        esf::cli::run_many("forecast", loader, o.model, true, o.input, o.many, saved ? &*saved : nullptr);
    if (status != 0) throw CLI::RuntimeError(status);
    return;
  }
  if (o.many.json) throw RunError("--json gives JSON lines for a table of many series (--by, or --var repeated)");
  runner::Runner run(loader);
  runner::CsvSeries csv;
  const runner::Plan plan = plan_and_series(run, o, true, &csv);
  const runner::ForecastResult r = run.forecast(plan, csv, saved ? &*saved : nullptr);
  for (const std::string& w : r.fit.warnings) std::cerr << "warning: " << w << '\n';
  for (const std::string& w : r.warnings) std::cerr << "warning: " << w << '\n';
  const std::string text = forecast_csv(r.table);
  // The report goes beside the table: to standard error when the table
  // takes standard output.
  std::string report;
  if (r.fit.choice) report += choice_text(*r.fit.choice);
  if (r.fitted && (r.fit.choice || r.holdout > 0)) {
    report += fmt::format("{} fit: {}{}\n", r.fit.family->name, runner::describe(r.fit.end),
                          r.fit.iterations > 0 ? fmt::format(" ({} iterations)", r.fit.iterations) : "");
  }
  if (r.holdout > 0) {
    report +=
        fmt::format("Accuracy over the {} held-out observations\n", r.holdout) + accuracy_lines(r.holdout_accuracy);
    for (const auto& [name, share] : r.holdout_coverage) {
      report += fmt::format("  inside {}/L{}: {}\n", name, name.substr(1),
                            std::isnan(share) ? std::string(".") : fmt::format("{:.1f}%", 100.0 * share));
    }
  }
  if (o.many.output.empty()) {
    std::cout << text;
    std::cerr << report;
  } else {
    write_output(o.many.output, text, o);
    std::cout << report;
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
  add_common_options(fit, fit_options, true, false);
  fit->add_flag("--json", fit_options.many.json, "Print the estimates as JSON (many series: JSON lines)");
  fit->add_option("--save-model", fit_options.save_model, "Keep the whole fitted model list in this JSON file");
  fit->callback([&loader] { guarded("fit", [&] { fit_command(fit_options, loader); }); });

  static Options forecast_options;
  CLI::App* fc = app.add_subcommand("forecast", "Fit a smoothing model and write its forecast table as CSV");
  add_common_options(fc, forecast_options, false, true);
  fc->add_option("--lead", forecast_options.model.lead, "Number of forecasts past the evaluation range")
      ->default_val(12);
  fc->add_option("--cl", forecast_options.model.cl, "Significance level of the limits, e.g. 0.05 for 95% limits")
      ->default_val(0.05);
  fc->add_option("-o,--output", forecast_options.many.output,
                 "Write the table to this CSV file (default: standard output)");
  fc->add_flag("--json", forecast_options.many.json, "Many series: the results as JSON lines, one per series");
  fc->add_option("--model-file", forecast_options.model_file, "Forecast from a model saved by fit --save-model");
  fc->add_option("--level", forecast_options.model.levels,
                 "Confidence levels in percent, e.g. --level 80 95: one pair of limits (U80/L80, U95/L95) each");
  fc->add_option("--holdout", forecast_options.model.holdout,
                 "Fit on all but the last H observations, forecast them and report the accuracy");
  fc->add_option_function<std::string>(
      "--limits",
      [](const std::string& v) {
        if (v != "formula" && v != "empirical") throw CLI::ValidationError("--limits", "choose formula or empirical");
        forecast_options.model.limits =
            v == "empirical" ? runner::LimitMethod::kEmpirical : runner::LimitMethod::kFormula;
      },
      "formula (default): the model's variance formulas; empirical: from the errors of forecasts made at every "
      "origin of the fit range");
  fc->callback([&loader] { guarded("forecast", [&] { forecast_command(forecast_options, loader); }); });
}
