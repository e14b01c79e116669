// One series through the module: the series placed on the interval's
// calendar, the lists the methods read built from the options, the fit and
// forecast methods called, and their answers read back into plain results.
#include "runner/runner.h"

#include <cctype>
#include <chrono>
#include <fstream>
#include <iostream>

#include <fmt/format.h>

#include "host/host.h"
#include "host/time_text.h"
#include "primitives/primitives.h"

namespace esf::runner {
namespace {

using Json = nlohmann::ordered_json;

// The memory libref the forecast table goes to, and the table's name.
constexpr const char* kTableLibref = "ESFMEM";
constexpr const char* kTableName = "ESFMEM.FORECAST";

// The length of the seasonal cycle the module gives the interval, when it
// exports the routine; 0 when unknown.
int seasons_of(const Plan& plan, INTERVAL* iv, double date) {
  if (plan.season_fn == nullptr) return 0;
  INTERVAL cycle{};
  int n = 0;
  if (plan.season_fn(iv, date, &cycle, &n) == 0 && n > 0) return n;
  return 0;
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double parse_time_option(const std::string& option, const std::string& text, TimeUnits units) {
  double t = 0.0;
  if (!parse_time(text, units, &t)) {
    const std::string want = units == TimeUnits::kNumber ? std::string("a number")
                                                         : fmt::format("a date or datetime ({})", host::kTimeTextForms);
    throw RunError(fmt::format("{}: '{}' is not {}", option, text, want));
  }
  if (!in_calendar_range(t, units)) {
    throw RunError(fmt::format("{}: '{}' lies outside the calendar's dates, {}", option, text, kCalendarRangeText));
  }
  return t;
}

// A valid variable name of the output table: a letter or underscore, then
// letters, digits and underscores, at most 32 characters.
bool is_variable_name(const std::string& s) {
  if (s.empty() || s.size() > 32) return false;
  if (!(std::isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_')) return false;
  for (char c : s) {
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_')) return false;
  }
  return true;
}

void check_options(const ModelOptions& o, const Family& family) {
  for (int k = 0; k < kNumWeightKinds; ++k) {
    const bool given = o.fixed[k].has_value() || !o.bounds[k].empty();
    if (given && !family.weights[k]) {
      throw RunError(fmt::format("--{}-weight/--{}-bounds: the {} model has no {} weight", kWeightWord[k],
                                 kWeightWord[k], family.name, kWeightWord[k]));
    }
    if (!o.bounds[k].empty() && o.bounds[k][0] > o.bounds[k][1]) {
      throw RunError(fmt::format("--{}-bounds: the lower bound {} is above the upper bound {}", kWeightWord[k],
                                 o.bounds[k][0], o.bounds[k][1]));
    }
  }
  if ((o.start_trend || o.backcast_trend) && !family.trended) {
    throw RunError(fmt::format("--start-trend/--backcast-trend: the {} model has no trend", family.name));
  }
  if ((!o.start_factors.empty() || !o.backcast_factors.empty()) && !family.seasonal) {
    throw RunError(
        fmt::format("--start-factors/--backcast-factors: the {} model has no seasonal factors", family.name));
  }
}

// ---- Lists -------------------------------------------------------------------

// The lists of one method call, freed with it.
struct Lists {
  List series = nullptr;
  List model = nullptr;  // MODEL_SPEC, FITRANGE, EVALRANGE (+ results)
  List spec = nullptr;
  List fit_range = nullptr;
  List eval_range = nullptr;
  PlacedSeries placed;
  std::string timeid;

  Lists() = default;
  Lists(const Lists&) = delete;
  Lists& operator=(const Lists&) = delete;
  ~Lists() {
    host::free_list(series);
    host::free_list(model);
  }
};

void fill_state(List list, const std::optional<double>& level, const std::optional<double>& trend,
                const std::vector<double>& factors) {
  if (level) host::append_number(list, *level, "LEVEL");
  if (trend) host::append_number(list, *trend, "TREND");
  if (!factors.empty()) {
    List sf = host::add_list(list, "SFACTORS");
    for (double f : factors) host::append_number(sf, f);
  }
}

// The model-description items the options ask for.
void fill_specification(const ModelOptions& o, const Family& family, List spec, bool forecast_weights) {
  using namespace esf::host;
  if (family.type != nullptr) set_text(spec, "TYPE", family.type);
  if (family.code != nullptr) set_text(spec, "CODE", family.code);
  bool any_bounds = o.no_bounds || o.no_stability;
  for (int k = 0; k < kNumWeightKinds; ++k) any_bounds = any_bounds || !o.bounds[k].empty() || o.fixed[k].has_value();
  if (any_bounds) {
    List wb = add_list(spec, "WEIGHT_BOUNDS");
    if (o.no_bounds) set_number(wb, "OPTWBND", 0.0);
    if (o.no_stability) set_number(wb, "OPTWSTB", 0.0);
    for (int k = 0; k < kNumWeightKinds; ++k) {
      if (o.fixed[k]) {
        set_number(wb, kLowerBoundItem[k], *o.fixed[k]);
        set_number(wb, kUpperBoundItem[k], *o.fixed[k]);
      } else if (!o.bounds[k].empty()) {
        set_number(wb, kLowerBoundItem[k], o.bounds[k][0]);
        set_number(wb, kUpperBoundItem[k], o.bounds[k][1]);
      }
    }
  }
  if (o.start_level || o.start_trend || !o.start_factors.empty()) {
    fill_state(add_list(spec, "STARTVALS"), o.start_level, o.start_trend, o.start_factors);
  }
  if (o.backcast_level || o.backcast_trend || !o.backcast_factors.empty()) {
    fill_state(add_list(spec, "SVI"), o.backcast_level, o.backcast_trend, o.backcast_factors);
  }
  if (forecast_weights) {
    bool all = true;
    for (int k = 0; k < kNumWeightKinds; ++k) {
      if (family.weights[k] && !o.fixed[k]) all = false;
    }
    // Weights given for every weight of the family are what a forecast uses.
    if (all) {
      List sw = add_list(spec, "SMOOTHING_WEIGHTS");
      for (int k = 0; k < kNumWeightKinds; ++k) {
        if (family.weights[k]) set_number(sw, kWeightItem[k], *o.fixed[k]);
      }
    }
  }
}

void fill_range(List list, const std::string& start_option, const std::string& start, const std::string& end_option,
                const std::string& end, TimeUnits units) {
  if (!start.empty()) host::set_number(list, "STDATE", parse_time_option(start_option, start, units));
  if (!end.empty()) host::set_number(list, "ENDDATE", parse_time_option(end_option, end, units));
}

// Places the series and builds the lists of a method call.
void prepare(const Plan& plan, const CsvSeries& csv, Lists* p) {
  using namespace esf::host;
  const ModelOptions& o = plan.options;
  INTERVAL interval = plan.interval;
  INTERVAL* iv = &interval;
  Calendar calendar;
  calendar.period_start = [&plan, iv](double t) { return plan.period_start_fn(iv, t, 0.0); };
  calendar.count = [&plan, iv](double from, double to) { return plan.count_fn(iv, from, to); };
  calendar.is_missing = [](double v) { return esf::is_missing(v) || std::isnan(v); };
  p->placed = place_series(csv, calendar);

  p->timeid = is_variable_name(csv.id_column) ? csv.id_column : "DATE";
  p->series = new_list();
  set_text(p->series, "NAME", csv.var_column.substr(0, 32));
  set_text(p->series, "LABEL", csv.var_column.substr(0, 256));
  List data = add_list(p->series, "DATA");
  for (double v : p->placed.values) append_number(data, std::isnan(v) ? esf::kMissing : v);
  List dsinfo = add_list(p->series, "DSINFO");
  set_text(dsinfo, "TIMEID", p->timeid);
  List info = add_list(dsinfo, "INTERVALINFO");
  set_text(info, "INTERVAL", o.interval);
  const int nseasons = o.nseasons ? *o.nseasons : seasons_of(plan, iv, p->placed.stdate);
  if (nseasons > 0) set_integer(info, "NSEASONS", nseasons);
  List data_range = add_list(add_list(p->series, "TIME_RANGES"), "DATA_RANGE");
  set_integer(data_range, "NOBS", static_cast<long>(p->placed.values.size()));
  set_number(data_range, "STDATE", p->placed.stdate);

  p->model = new_list();
  p->spec = add_list(p->model, "MODEL_SPEC");
  p->fit_range = add_list(p->model, "FITRANGE");
  p->eval_range = add_list(p->model, "EVALRANGE");
  fill_specification(o, *plan.family, p->spec, plan.forecast);
  fill_range(p->fit_range, "--fit-start", o.fit_start, "--fit-end", o.fit_end, plan.units);
  fill_range(p->eval_range, "--eval-start", o.eval_start, "--eval-end", o.eval_end, plan.units);
}

void switch_trace(Loader& loader, bool on) {
  if (!on) return;
  // The estimation frame exposes its trace switch only where the module
  // image exports one.
  try {
    auto* set_trace = loader.symbol<void(int)>("esf_set_fit_trace");
    set_trace(1);
  } catch (const LoadError&) {
    std::cerr << "esforecast: --trace: this module image has no estimation trace to switch on\n";
  }
}

// Runs the fit method on the prepared lists; throws on a failure code.
void run_fit(Loader& loader, const Family& family, Lists& p) {
  host::MethodCall call;
  call.list(p.series).list(p.spec).list(p.fit_range).list(p.eval_range).list(p.model).number(0);
  loader.call(family.fit_slot, call);
  const int code = call.return_code().value_or(999);
  if (code != 0) {
    throw RunError(
        fmt::format("the {} fit failed with return code {}: {}", family.name, code, meaning_of_return_code(code)),
        kExitMethodFailed, code);
  }
}

// ---- Reading the results ---------------------------------------------------------

double number_or_nan(const SLIST_ITEM* item) {
  if (item == nullptr) return kNaN;
  const double v = slgetnv(item, 0);
  return esf::is_missing(v) ? kNaN : v;
}

std::string text_of(const SLIST_ITEM* item) {
  if (item == nullptr || item->type != SL_CHAR || item->data.c.p == nullptr) return {};
  return std::string(item->data.c.p, static_cast<std::size_t>(item->data.c.len));
}

double nth_number(const std::vector<const SLIST_ITEM*>& items, std::size_t i) {
  return i < items.size() ? number_or_nan(items[i]) : kNaN;
}

FitResult read_fit(const Plan& plan, const CsvSeries& csv, const Lists& p) {
  using namespace esf::host;
  FitResult r;
  r.family = plan.family;
  r.variable = csv.var_column;
  r.interval = std::string(plan.interval.token, static_cast<std::size_t>(plan.interval.tokenlen));
  r.nobs = static_cast<long>(p.placed.values.size());
  r.start = p.placed.stdate;
  r.start_text = format_time(p.placed.stdate, plan.units);
  List est = find_list(p.model, "ESTIMATES");
  const auto names = items(find_list(est, "NAMES"));
  const auto labels = items(find_list(est, "LABELS"));
  const auto values = items(find_list(est, "VALUES"));
  const auto stderrs = items(find_list(est, "STDERRS"));
  const auto tvals = items(find_list(est, "TVALS"));
  for (std::size_t i = 0; i < names.size(); ++i) {
    r.weights.push_back({text_of(names[i]), i < labels.size() ? text_of(labels[i]) : "", nth_number(values, i),
                         nth_number(stderrs, i), nth_number(tvals, i)});
  }
  r.error_variance = number_or_nan(find_item(est, "SIGMA"));
  List state = find_list(est, "SMOOTHED_STATE");
  r.state.level = number_or_nan(find_item(state, "LEVEL"));
  r.state.has_trend = find_item(state, "TREND") != nullptr;
  r.state.trend = number_or_nan(find_item(state, "TREND"));
  for (const SLIST_ITEM* it : items(find_list(state, "SFACTORS"))) r.state.factors.push_back(number_or_nan(it));
  List stats = find_list(p.model, "FIT_STATS");
  const auto stat_names = items(find_list(stats, "NAMES"));
  const auto stat_values = items(find_list(stats, "VALUES"));
  for (std::size_t i = 0; i < stat_names.size(); ++i) {
    r.statistics.emplace_back(text_of(stat_names[i]), nth_number(stat_values, i));
  }
  return r;
}

ForecastTable read_table(TimeUnits units) {
  std::optional<host::MemoryTable> t = host::take_memory_table(kTableName);
  if (!t) throw RunError("the forecast table was not written", kExitMethodFailed);
  ForecastTable table;
  table.units = units;
  for (std::size_t j = 0; j < t->variables.size(); ++j) {
    table.columns.push_back({t->variables[j].name, t->variables[j].label, std::move(t->columns[j])});
  }
  return table;
}

}  // namespace

Plan Runner::plan(const ModelOptions& options, bool forecast) const {
  Plan p;
  p.options = options;
  p.forecast = forecast;
  p.family = find_family(options.model);
  if (p.family == nullptr) {
    throw RunError(fmt::format("--model: '{}' is not a model; choose one of {}", options.model, family_names()));
  }
  if (forecast && !(options.cl > 0.0 && options.cl < 1.0)) {
    throw RunError(fmt::format("--cl: {} is not a significance level between 0 and 1", options.cl));
  }
  check_options(options, *p.family);
  loader_.load();
  auto* zintstr = loader_.symbol<int(tchar*, int, INTERVAL*)>("zintstr");
  p.period_start_fn = loader_.symbol<double(INTERVAL*, double, double)>("zintnx2");
  p.count_fn = loader_.symbol<double(INTERVAL*, double, double)>("zintck2");
  try {
    p.season_fn = loader_.symbol<int(INTERVAL*, double, INTERVAL*, int*)>("zintsea");
  } catch (const LoadError&) {
  }
  std::string text = options.interval;
  const int rc = zintstr(text.data(), static_cast<int>(text.size()), &p.interval);
  if (rc != 0) {
    throw RunError(fmt::format("--interval: '{}' is not an interval name (parser code {})", options.interval, rc));
  }
  p.interval_token = std::string(p.interval.token, static_cast<std::size_t>(p.interval.tokenlen));
  p.units = time_units_of(p.interval.units);
  return p;
}

FitResult Runner::fit(const Plan& plan, const CsvSeries& series, bool keep_model_list) const {
  Lists p;
  prepare(plan, series, &p);
  switch_trace(loader_, plan.options.trace);
  run_fit(loader_, *plan.family, p);
  FitResult r = read_fit(plan, series, p);
  if (keep_model_list) r.model_list = host::to_json(p.model);
  return r;
}

ForecastResult Runner::forecast(const Plan& plan, const CsvSeries& series, const SavedModel* saved) const {
  const ModelOptions& o = plan.options;
  const auto t0 = std::chrono::steady_clock::now();
  Lists p;
  prepare(plan, series, &p);
  ForecastResult result;
  result.prepare_seconds = seconds_since(t0);
  const auto t1 = std::chrono::steady_clock::now();
  if (saved != nullptr) {
    // Forecast from the saved model; ranges given now replace the saved ones.
    host::free_list(p.model);
    p.model = nullptr;
    try {
      p.model = host::from_json(saved->model_list);
    } catch (const std::exception& e) {
      throw RunError(fmt::format("{}: model_list: {}", saved->path, e.what()));
    }
    p.spec = host::find_list(p.model, "MODEL_SPEC");
    if (p.spec == nullptr) throw RunError(fmt::format("{}: the model list has no MODEL_SPEC", saved->path));
    for (const char* name : {"FITRANGE", "EVALRANGE"}) {
      if (host::find_item(p.model, name) == nullptr) host::add_list(p.model, name);
    }
    p.fit_range = host::find_list(p.model, "FITRANGE");
    p.eval_range = host::find_list(p.model, "EVALRANGE");
    const bool ranges_given = !o.fit_start.empty() || !o.fit_end.empty() || !o.eval_start.empty() || !o.eval_end.empty();
    if (ranges_given && (p.fit_range == nullptr || p.eval_range == nullptr)) {
      throw RunError(fmt::format("{}: FITRANGE or EVALRANGE holds no list to take the ranges", saved->path));
    }
    // The evaluation-range argument must be a list even when the model's
    // EVALRANGE holds none; the method reads EVALRANGE in its place.
    if (p.eval_range == nullptr) p.eval_range = p.spec;
    fill_range(p.fit_range, "--fit-start", o.fit_start, "--fit-end", o.fit_end, plan.units);
    fill_range(p.eval_range, "--eval-start", o.eval_start, "--eval-end", o.eval_end, plan.units);
  } else {
    switch_trace(loader_, o.trace);
    run_fit(loader_, *plan.family, p);
    result.fitted = true;
    result.fit = read_fit(plan, series, p);
  }
  result.fit_seconds = seconds_since(t1);

  const auto t2 = std::chrono::steady_clock::now();
  host::assign_memory_libref(kTableLibref);
  host::MethodCall call;
  call.list(p.series).list(p.model).list(p.eval_range).text(kTableName).number(o.cl).number(o.lead).number(0);
  loader_.call(plan.family->forecast_slot, call);
  const int code = call.return_code().value_or(999);
  if (code != 0) {
    throw RunError(fmt::format("the {} forecast failed with return code {}: {}", plan.family->name, code,
                               meaning_of_return_code(code)),
                   kExitMethodFailed, code);
  }
  result.table = read_table(plan.units);
  result.forecast_seconds = seconds_since(t2);
  return result;
}

SavedModel load_model_file(const std::string& path, ModelOptions& options) {
  std::ifstream in(path);
  if (!in) throw RunError(fmt::format("{}: cannot open the model file", path));
  Json j;
  try {
    j = Json::parse(in);
  } catch (const Json::parse_error& e) {
    throw RunError(fmt::format("{}: not a model file: {}", path, e.what()));
  }
  if (!j.is_object() || !j.contains("model_list") || !j.contains("model") || !j["model"].is_string()) {
    throw RunError(fmt::format("{}: not a model file: it needs \"model\" and \"model_list\"", path));
  }
  SavedModel saved;
  saved.path = path;
  saved.model = j["model"].get<std::string>();
  if (options.model.empty()) options.model = saved.model;
  if (options.model != saved.model) {
    throw RunError(fmt::format("{}: the file holds a {} model, not {}", path, saved.model, options.model));
  }
  // The list is built once here so that a file that cannot become a list is
  // refused before any series is read.
  try {
    host::free_list(host::from_json(j["model_list"]));
  } catch (const std::exception& e) {
    throw RunError(fmt::format("{}: model_list: {}", path, e.what()));
  }
  saved.model_list = std::move(j["model_list"]);
  return saved;
}

std::string model_file_text(const FitResult& fit) {
  Json j;
  j["model"] = fit.family->name;
  j["interval"] = fit.interval;
  j["model_list"] = fit.model_list;
  return j.dump(2) + "\n";
}

}  // namespace esf::runner
