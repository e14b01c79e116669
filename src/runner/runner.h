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
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "intervals/interval.h"
#include "module/host_api.h"
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

// The options of a model run, as a front end gathered them.  Times are text
// (ISO date or datetime, or a number), read in the units of the interval.
struct ModelOptions {
  std::string model;     // a family name (families())
  std::string interval;  // MONTH, QTR, WEEK, DAY, DTHOUR, OBS, ...
  std::optional<int> nseasons;
  std::array<std::vector<double>, kNumWeightKinds> bounds;  // {lower, upper} or empty
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
};

// Options checked once for many series.
struct Plan {
  ModelOptions options;
  const Family* family = nullptr;
  INTERVAL interval{};
  std::string interval_token;  // the interval as the user wrote it
  TimeUnits units = TimeUnits::kDate;
  bool forecast = false;
  // The calendar routines of the loaded image, looked up once by plan().
  double (*period_start_fn)(INTERVAL*, double, double) = nullptr;
  double (*count_fn)(INTERVAL*, double, double) = nullptr;
  int (*season_fn)(INTERVAL*, double, INTERVAL*, int*) = nullptr;  // null when not exported
};

struct WeightEstimate {
  std::string name;   // LEVEL, TREND, DAMPING, SEASONAL
  std::string label;
  double estimate = kNaN;
  double std_error = kNaN;
  double t_value = kNaN;
};

// The smoothed state at the end of the fit range.
struct SmoothedState {
  double level = kNaN;
  bool has_trend = false;
  double trend = kNaN;
  std::vector<double> factors;  // empty without seasons
};

// What the fit wrote for one series.  New results go at the end.
struct FitResult {
  const Family* family = nullptr;
  std::string variable;         // the series' name (its value column)
  std::string interval;         // the interval as written
  long nobs = 0;                // periods from the first time ID to the last
  double start = 0.0;           // start of the first period
  std::string start_text;       // the same as a date, datetime or number
  std::vector<WeightEstimate> weights;
  double error_variance = kNaN;
  SmoothedState state;
  std::vector<std::pair<std::string, double>> statistics;  // FIT_STATS, name and value
  // The whole model list as JSON, when the fit was asked to keep it.
  nlohmann::ordered_json model_list;
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
};

struct ForecastResult {
  bool fitted = false;  // false when the forecast ran from a saved model
  FitResult fit;        // meaningful when fitted
  ForecastTable table;
  // Seconds spent placing the series and building its lists, in the fit
  // method (with reading its answers) and in the forecast method.
  double prepare_seconds = 0.0;
  double fit_seconds = 0.0;
  double forecast_seconds = 0.0;
};

// A model list saved by a fit, as read back from its file.
struct SavedModel {
  std::string path;
  std::string model;
  nlohmann::ordered_json model_list;
};

class Runner {
 public:
  explicit Runner(Loader& loader) : loader_(loader) {}

  // Checks the options and parses the interval (loading the module).
  // Throws RunError.
  Plan plan(const ModelOptions& options, bool forecast) const;

  // Fits one series.  With keep_model_list the result carries the whole
  // model list.  Throws RunError (a failed fit: kExitMethodFailed) and
  // CsvError (the series cannot be placed on the calendar).
  FitResult fit(const Plan& plan, const CsvSeries& series, bool keep_model_list = false) const;

  // Fits one series and forecasts it, or forecasts it from `saved` without
  // fitting; ranges of the plan replace the saved ones.
  ForecastResult forecast(const Plan& plan, const CsvSeries& series, const SavedModel* saved = nullptr) const;

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
