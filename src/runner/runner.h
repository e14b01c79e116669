// The runner: one series through the module's methods, in memory.
//
// A front end (the command line, a language binding) fills a ModelOptions,
// asks for a Plan (the options checked once, the interval parsed), then runs
// series through the plan and reads plain results: the weights with their
// standard errors, the criteria the fit writes, the smoothed state at the end
// of the fit range and the forecast table's columns.  No file is written on
// this road: the forecast table comes back through the host's in-memory
// tables.
//
//   esf::runner::Loader loader;                 // loads libqorfmsm.so
//   esf::runner::Runner runner(loader);
//   esf::runner::ModelOptions o;
//   o.model = "winters";
//   o.interval = "MONTH";
//   const esf::runner::Plan plan = runner.plan(o, /*forecast=*/true);
//   esf::runner::CsvSeries s = esf::runner::read_series_csv("air.csv", "", "", plan.units);
//   esf::runner::ForecastResult r = runner.forecast(plan, s);
//   r.fit.weights[0].estimate;  r.table.columns[2].values;   // FORECAST
//
// Errors are thrown as RunError, whose status() is the exit status a command
// line would give (kExitUsage for bad options or input, kExitMethodFailed
// when a method answered with a failure code), and as CsvError for a series
// file that cannot be read.  Missing values in results are the module's
// missing values (esf::is_missing tests them; for the plain numbers of
// FitResult they are NaN instead).
#pragma once

#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "intervals/interval.h"
#include "module/host_api.h"
#include "runner/accuracy.h"
#include "runner/families.h"
#include "runner/loader.h"
#include "runner/series_csv.h"

namespace esf::runner {

// Exit statuses of a run.
inline constexpr int kExitUsage = 1;         // an option or the input is wrong
inline constexpr int kExitLoad = 3;          // the module image cannot be loaded
inline constexpr int kExitMethodFailed = 4;  // a method answered with a failure code

// Why a run stopped; what() is a message for the user, status() an exit status.
class RunError : public std::runtime_error {
 public:
  explicit RunError(std::string what, int status = kExitUsage, int return_code = 0)
      : std::runtime_error(std::move(what)), status_(status), return_code_(return_code) {}
  int status() const { return status_; }
  // The method's return code when a method failed, else 0.
  int return_code() const { return return_code_; }

 private:
  int status_;
  int return_code_;
};

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// How a fit's estimation ended.
enum class FitEnd {
  kNotEstimated,    // every weight was given: nothing to estimate
  kConverged,       // the convergence measure fell to its level
  kStalled,         // the step could not improve after its halvings
  kIterationLimit,  // the iterations ran out before convergence
  kExactFit,        // the errors vanished and the weights stopped moving
};
// Where a returned weight stands against its bounds.
// kUnbounded: the fit ran without bounds, so the weight has none to stand against.
enum class WeightPosition { kInside, kOnLower, kOnUpper, kFixed, kOutside, kUnbounded };
// In words, as reports print them: "converged", "on its lower bound", ...
std::string describe(FitEnd end);
std::string describe(WeightPosition position);

// How the limits of a forecast are made.
enum class LimitMethod {
  kFormula,    // the variance formulas of the family's forecast method
  kEmpirical,  // conformal quantiles of rolling-origin forecast errors
};
// What --model auto chooses by.
enum class Selection { kAicc, kAic, kBic, kHoldout };
// The name a front end passes for automatic selection.
inline constexpr const char* kAutoModel = "auto";

// The options of a model run, as a front end gathered them.  Times are text
// (ISO date or datetime, or a number), read in the units of the interval.
struct ModelOptions {
  std::string model;     // a family name (families())
  std::string interval;  // MONTH, QTR, WEEK, DAY, DTHOUR, OBS, ...
  std::optional<int> nseasons;
  std::array<std::vector<double>, kNumWeightKinds> bounds;   // {lower, upper} or empty
  std::array<std::optional<double>, kNumWeightKinds> fixed;  // a weight held at a value
  bool no_bounds = false;
  bool no_stability = false;
  std::optional<double> start_level, start_trend;
  std::vector<double> start_factors;
  std::optional<double> backcast_level, backcast_trend;
  std::vector<double> backcast_factors;
  std::string fit_start, fit_end, eval_start, eval_end;
  bool trace = false;  // the estimation trace on stdout
  // Forecasts only.
  int lead = 12;
  double cl = 0.05;
  std::vector<double> levels;  // confidence levels in percent; the first sets the table's own limits
  LimitMethod limits = LimitMethod::kFormula;
  int holdout = 0;  // the last observations kept out of the fit and forecast
  // Estimation.
  bool thorough = false;  // start the search from several boxes, keep the best
  Selection select = Selection::kAicc;
};

// The plans --model auto runs each family on, made once with its plan.
struct FamilyPlans;

// Options checked once for many series.
struct Plan {
  ModelOptions options;
  const Family* family = nullptr;  // null for --model auto
  INTERVAL interval{};
  // The interval's name ("WEEK.2" for the alias "W-SUN"); empty when the
  // options name none, and each series of a batch finds its own.
  std::string interval_token;
  std::string interval_alias;  // the pandas alias the user wrote, or empty
  TimeUnits units = TimeUnits::kDate;
  bool forecast = false;
  // Record the CPU seconds of each stage (ForecastResult, SeriesOutcome):
  // a benchmark's figures, at the price of a clock reading per stage.
  bool timed = false;
  // --model auto with an interval: each family's plans, shared by the copies
  // of this plan.
  std::shared_ptr<const FamilyPlans> family_plans;
};

struct WeightEstimate {
  std::string name;  // LEVEL, TREND, DAMPING, SEASONAL
  std::string label;
  double estimate = kNaN;
  double std_error = kNaN;
  double t_value = kNaN;  // NaN for a weight on a bound or fixed
  WeightPosition position = WeightPosition::kInside;
  double lower = kNaN, upper = kNaN;  // the bounds the fit honoured (NaN when it honoured none)
};

// The smoothed state at the end of the fit range.
struct SmoothedState {
  double level = kNaN;
  bool has_trend = false;
  double trend = kNaN;
  std::vector<double> factors;  // empty without seasons
};

// One family tried by --model auto.
struct Candidate {
  std::string model;
  std::string refused;  // why the family was not tried or failed; empty when fitted
  Criteria criteria;
  Accuracy holdout;     // of the selection holdout (--select holdout)
  double score = kNaN;  // what the choice compared
};
struct AutoChoice {
  Selection by = Selection::kAicc;
  long selection_holdout = 0;  // observations held out to choose (--select holdout)
  std::vector<Candidate> candidates;
  std::string chosen;
  // With plan.timed, thread CPU seconds in the module's methods for the
  // candidates' fits.
  double fit_method_seconds = 0.0;
};

// What the fit wrote for one series.  New results go at the end.
struct FitResult {
  const Family* family = nullptr;
  std::string variable;    // the series' name (its value column)
  std::string interval;    // the interval as written
  long nobs = 0;           // periods from the first time ID to the last
  double start = 0.0;      // start of the first period
  std::string start_text;  // the same as a date, datetime or number
  std::vector<WeightEstimate> weights;
  double error_variance = kNaN;
  SmoothedState state;
  std::vector<std::pair<std::string, double>> statistics;  // FIT_STATS, name and value
  // The whole model list as JSON, when the fit was asked to keep it.
  nlohmann::ordered_json model_list;
  // How the estimation ended, and its iterations.
  FitEnd end = FitEnd::kNotEstimated;
  int iterations = 0;
  int nseasons = 0;    // the cycle the fit used, 0 without seasons
  long fit_first = 0;  // the fit range as indexes of the placed series
  long fit_last = -1;
  Criteria criteria;  // of the one-step errors over the fit range
  Accuracy fit_accuracy;
  Accuracy eval_accuracy;            // of the one-step errors over the evaluation range
  bool thorough = false;             // the thorough search chose these weights
  std::optional<AutoChoice> choice;  // --model auto: the candidates and the choice
  // One line each: a fit that did not converge, weights on or outside a bound.
  std::vector<std::string> warnings;
  bool converged() const { return end == FitEnd::kConverged || end == FitEnd::kNotEstimated; }
};

// A column of the forecast table.
struct TableColumn {
  std::string name;
  std::string label;
  std::vector<double> values;  // missing values as the module wrote them
};

// The forecast table: the time ID first, then ACTUAL, FORECAST, the limits,
// RESIDUAL, STD and the family's states.
struct ForecastTable {
  TimeUnits units = TimeUnits::kDate;  // what the time ID column counts
  std::vector<TableColumn> columns;
  std::size_t rows() const { return columns.empty() ? 0 : columns.front().values.size(); }
  // The values of each column, in order, as host::append_table_row reads them.
  std::vector<const double*> column_data() const {
    std::vector<const double*> data;
    for (const TableColumn& c : columns) data.push_back(c.values.data());
    return data;
  }
};

struct ForecastResult {
  bool fitted = false;  // false when the forecast ran from a saved model or given weights and states
  FitResult fit;        // meaningful when fitted
  ForecastTable table;
  // --holdout: accuracy over the held-out observations and the share of
  // them inside each pair of limits (named by the upper limit, "U95").
  long holdout = 0;
  Accuracy holdout_accuracy;
  std::vector<std::pair<std::string, double>> holdout_coverage;
  std::vector<std::string> warnings;  // limits that fell back on the formulas, ...
  // With plan.timed, thread CPU seconds (not wall time, so that a loaded
  // machine does not inflate them) spent placing the series, building its lists and fitting
  // it, then in the forecast method and its table; and, of these, inside the
  // module's fit method and the forecast method that wrote the table.
  double fit_seconds = 0.0;
  double forecast_seconds = 0.0;
  double module_seconds = 0.0;
};

// CPU seconds of the calling thread.
double thread_cpu_seconds();

// A model list saved by a fit, as read back from its file.
struct SavedModel {
  std::string path;
  std::string model;
  std::string interval;  // the interval the model was fitted on, as written; empty in older files
  nlohmann::ordered_json model_list;
};

class Runner {
 public:
  explicit Runner(Loader& loader) : loader_(loader) {}

  // Checks the options and parses the interval (loading the module).  An
  // empty interval is left to be found from each series' time IDs by
  // run_batch.  Throws RunError.
  Plan plan(const ModelOptions& options, bool forecast) const;

  // The plan and the series of a CSV file. Without an interval in the
  // options the interval comes from the time IDs (infer_interval), and
  // *inferred names it; when none fits, RunError names two rows. Throws
  // RunError and CsvError.
  Plan plan_for_file(const ModelOptions& options, bool forecast, const std::string& path, const std::string& id_column,
                     const std::string& var_column, CsvSeries* series, std::string* inferred) const;

  // Fits one series.  With keep_model_list the result carries the whole
  // model list.  Throws RunError (a failed fit: kExitMethodFailed) and
  // CsvError (the series cannot be placed on the calendar).
  FitResult fit(const Plan& plan, const CsvSeries& series, bool keep_model_list = false) const;

  // Fits one series and forecasts it, or forecasts it from `saved` without
  // fitting; ranges of the plan replace the saved ones.
  ForecastResult forecast(const Plan& plan, const CsvSeries& series, const SavedModel* saved = nullptr) const;

  // Fits every family the series allows and chooses one by plan.options.select.
  AutoChoice choose(const Plan& plan, const CsvSeries& series) const;

  Loader& loader() const { return loader_; }

 private:
  Loader& loader_;
};

// Reads a model file written by model_file_text.  When options.model is
// empty it takes the saved family; a different one is an error.  Throws
// RunError.
SavedModel load_model_file(const std::string& path, ModelOptions& options);
// The text of a model file: the family, the interval and the model list.
std::string model_file_text(const FitResult& fit);

}  // namespace esf::runner
