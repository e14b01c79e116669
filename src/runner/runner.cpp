// One series through the module: the series placed on the interval's
// calendar, the lists the methods read built from the options, the fit and
// forecast methods called, and their answers read back into plain results.
#include "runner/runner.h"

#include <time.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>

#include <fmt/format.h>

#include "host/host.h"
#include "host/time_text.h"
#include "module/win_model.h"
#include "primitives/primitives.h"
#include "runner/interval_inference.h"
#include "runner/interval_names.h"
#include "runner/model_checks.h"
#include "runner/validate.h"

namespace esf::runner {
namespace {

// The thread's CPU seconds when stage times are wanted, else 0 (the clock
// is a system call).
double clock_if(bool timed) { return timed ? thread_cpu_seconds() : 0.0; }

using Json = nlohmann::ordered_json;

// The memory libref the forecast table goes to, and the table's name.
constexpr const char* kTableLibref = "ESFMEM";
constexpr const char* kTableName = "ESFMEM.FORECAST";

// The calendar routines of the loaded image that placing a series needs.
struct ModuleCalendar {
  explicit ModuleCalendar(Loader& loader)
      : zintstr(Loader::required(loader.routines().zintstr, "zintstr")),
        zintnx2(Loader::required(loader.routines().zintnx2, "zintnx2")),
        zintck2(Loader::required(loader.routines().zintck2, "zintck2")) {}
  int (*zintstr)(tchar*, int, INTERVAL*);
  double (*zintnx2)(INTERVAL*, double, double);
  double (*zintck2)(INTERVAL*, double, double);
};

// The length of the seasonal cycle the module gives the interval, when it
// exports the routine; 0 when unknown.
int seasons_of(Loader& loader, INTERVAL* iv, double date) {
  auto* zintsea = loader.routines().zintsea;
  INTERVAL cycle{};
  int n = 0;
  if (zintsea != nullptr && zintsea(iv, date, &cycle, &n) == 0 && n > 0) return n;
  return 0;
}

double parse_time_option(const std::string& option, const std::string& text, TimeUnits units) {
  double t = 0.0;
  if (!parse_time(text, units, &t)) {
    const std::string want = units == TimeUnits::kNumber ? std::string("a number")
                                                         : fmt::format("a date or datetime ({})", host::kTimeTextForms);
    throw RunError(fmt::format("{}: {} is not {}", option, host::quote_input(text), want));
  }
  if (!in_calendar_range(t, units)) {
    throw RunError(fmt::format("{}: {} lies outside the calendar's dates, {}", option, host::quote_input(text),
                               kCalendarRangeText));
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

// Whether a name is one the forecast table gives its own columns: ACTUAL,
// FORECAST, the limits U.. and L.., RESIDUAL, STD and the states. A time ID
// column so named is written as DATE.
bool is_table_column(const std::string& name) {
  std::string u;
  for (char c : name) u += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const char* column : {"ACTUAL", "FORECAST", "RESIDUAL", "STD", "LEVEL", "TREND", "SEASON"}) {
    if (u == column) return true;
  }
  return u.size() > 1 && (u[0] == 'U' || u[0] == 'L') && u.find_first_not_of("0123456789.", 1) == std::string::npos;
}

void check_options(const ModelOptions& o, const Family& family) {
  for (int k = 0; k < kNumWeightKinds; ++k) {
    const bool given = o.fixed[k].has_value() || !o.bounds[k].empty();
    if (given && !family.weights[k]) {
      throw RunError(fmt::format("--{}-weight/--{}-bounds: the {} model has no {} weight", kWeightWord[k],
                                 kWeightWord[k], family.name, kWeightWord[k]));
    }
  }
  if ((o.start_trend || o.backcast_trend) && !family.trended) {
    throw RunError(fmt::format("--start-trend/--backcast-trend: the {} model has no trend", family.name));
  }
  if ((!o.start_factors.empty() || !o.backcast_factors.empty()) && !family.seasonal) {
    throw RunError(
        fmt::format("--start-factors/--backcast-factors: the {} model has no seasonal factors", family.name));
  }
  const bool start_given = o.start_level || o.start_trend || !o.start_factors.empty();
  const bool backcast_given = o.backcast_level || o.backcast_trend || !o.backcast_factors.empty();
  if (start_given && backcast_given) {
    throw RunError(
        "--start-* and --backcast-* contradict each other: start values are used as they stand, so no backward "
        "pass runs from the backcast values");
  }
}

// The bounds of weight k that the options give, or its defaults: 0.001 to
// 0.999, and 0.9 to 0.999 for the damping weight.
std::array<double, 2> bounds_of(const ModelOptions& o, int k) {
  if (o.fixed[k]) return {*o.fixed[k], *o.fixed[k]};
  if (!o.bounds[k].empty()) return {o.bounds[k][0], o.bounds[k][1]};
  return {k == kDamping ? 0.9 : 0.001, 0.999};
}

// Every weight of the family given and the start states complete: a
// forecast needs no estimation.
bool nothing_to_estimate(const ModelOptions& o, const Family& family) {
  for (int k = 0; k < kNumWeightKinds; ++k) {
    if (family.weights[k] && !o.fixed[k]) return false;
  }
  return o.start_level && (!family.trended || o.start_trend) && (!family.seasonal || !o.start_factors.empty());
}

// ---- Lists -------------------------------------------------------------------

std::shared_ptr<const FamilyPlans> make_family_plans(const Runner& runner, const Plan& automatic);

// The lists of one method call, freed with it.
struct Lists {
  List series = nullptr;
  List model = nullptr;  // MODEL_SPEC, FITRANGE, EVALRANGE (+ results)
  List spec = nullptr;
  List fit_range = nullptr;
  List eval_range = nullptr;
  PlacedSeries placed;
  std::string timeid;
  int nseasons = 0;    // the cycle sent, 0 when none
  long fit_first = 0;  // the fit range as indexes into placed.values
  long fit_last = -1;
  long eval_first = 0;  // the evaluation range, the same way
  long eval_last = -1;
  std::function<double(long)> period;  // start of the i-th period of the series
  bool timed = false;                  // the plan's: stage times wanted
  double fit_method_seconds = 0.0;     // thread CPU time in the module's methods for the fit

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
  // Always the whole list, defaults included: the module's defaults without
  // a list differ from those of a list that lacks an item (the damping
  // floor), and only a list sets the snap tolerances of the bounds.
  List wb = add_list(spec, "WEIGHT_BOUNDS");
  if (o.no_bounds) set_number(wb, "OPTWBND", 0.0);
  if (o.no_stability) set_number(wb, "OPTWSTB", 0.0);
  for (int k = 0; k < kNumWeightKinds; ++k) {
    const std::array<double, 2> b = bounds_of(o, k);
    set_number(wb, kLowerBoundItem[k], b[0]);
    set_number(wb, kUpperBoundItem[k], b[1]);
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

// Observation numbers carry no cycle, so the module gives every observation
// of an OBS series the season 0.  For a cycle of m seasons the series goes to
// the module under a custom interval of the runner's own instead: one period
// per observation number, the seasons numbered 1 to m from the first
// observation on, cyclically.  The table lies in the host's memory, under
// the libref ESFOBS, and INTERVALDS maps its name (letters only, as
// interval names are) to it, beside the mappings the user set.
class ObservationCycles {
 public:
  std::string interval(double first, long count, int m) {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto letters = [](long v) {
      std::string out;
      for (char c : std::to_string(v)) out += c == '-' ? 'N' : static_cast<char>('A' + (c - '0'));
      return out;
    };
    const std::string member = "OBS" + letters(m) + "Z" + letters(static_cast<long>(first)) + "Z" + letters(count);
    const std::string name = "ESF" + member;
    if (mappings_.find(" " + name + "=") != std::string::npos) return name;
    host::assign_memory_libref("ESFOBS");
    host::MemoryTable table;
    table.name = "ESFOBS." + member;
    table.variables = {{"BEGIN", "", 0, 0}, {"SEASON", "", 0, 0}};
    table.columns.resize(2);
    for (long i = 0; i < count; ++i) {
      table.columns[0].push_back(static_cast<double>(static_cast<long>(first) + i));
      table.columns[1].push_back(static_cast<double>(i % m + 1));
    }
    host::put_memory_table(std::move(table));
    mappings_ += " " + name + "=ESFOBS." + member;
    const char* user = std::getenv("ESF_OPTION_INTERVALDS");
    std::string theirs = user != nullptr ? user : "";
    theirs.erase(std::remove(theirs.begin(), theirs.end(), '('), theirs.end());
    theirs.erase(std::remove(theirs.begin(), theirs.end(), ')'), theirs.end());
    host::set_option("INTERVALDS", "(" + theirs + mappings_ + ")");
    return name;
  }

 private:
  std::mutex mutex_;
  std::string mappings_;
};

ObservationCycles& observation_cycles() {
  static ObservationCycles cycles;
  return cycles;
}

// The last forecast must have a date of the calendar.
void check_lead(const Plan& plan, const Lists& p) {
  const int lead = plan.options.lead;
  if (lead <= 0) return;
  const double last = p.period(p.eval_last + lead);
  if (esf::is_missing(last) || std::isnan(last) || !in_calendar_range(last, plan.units)) {
    throw RunError(
        fmt::format("--lead: {} periods of {} from the end of the series run past the calendar's "
                    "dates, {}",
                    lead, plan.interval_token, kCalendarRangeText));
  }
}

// Places the series and builds the lists of a method call.
void prepare(const Plan& plan, Loader& loader, const CsvSeries& csv, Lists* p) {
  using namespace esf::host;
  if (plan.interval_token.empty()) throw RunError("--interval: no interval named, and none found from the time IDs");
  p->timed = plan.timed;
  const ModelOptions& o = plan.options;
  ModuleCalendar cal(loader);
  INTERVAL interval = plan.interval;
  INTERVAL* iv = &interval;
  Calendar calendar;
  calendar.period_start = [&cal, iv](double t) { return cal.zintnx2(iv, t, 0.0); };
  CalendarMemo& memo = CalendarMemo::rows_of(interval, CalendarMemo::kCount);
  calendar.count = [&cal, iv, &memo](double from, double to) {
    return memo.answer(CalendarMemo::kCount, from, to, [&] { return cal.zintck2(iv, from, to); });
  };
  calendar.is_missing = [](double v) { return esf::is_missing(v) || std::isnan(v); };
  p->placed = PlacementMemo::of(interval, csv).place(csv, calendar);

  p->timeid = is_variable_name(csv.id_column) && !is_table_column(csv.id_column) ? csv.id_column : "DATE";
  p->series = new_list();
  set_text(p->series, "NAME", csv.var_column.substr(0, 32));
  set_text(p->series, "LABEL", csv.var_column.substr(0, 256));
  List data = add_list(p->series, "DATA");
  for (double v : p->placed.values) append_number(data, std::isnan(v) ? esf::kMissing : v);
  List dsinfo = add_list(p->series, "DSINFO");
  set_text(dsinfo, "TIMEID", p->timeid);
  List info = add_list(dsinfo, "INTERVALINFO");
  set_text(info, "INTERVAL", o.interval);
  const int nseasons = o.nseasons ? *o.nseasons : seasons_of(loader, iv, p->placed.stdate);
  if (nseasons > 0) set_integer(info, "NSEASONS", nseasons);
  if (interval.units == kUnitsObs && interval.intper <= 1 && nseasons > 1 && plan.family->seasonal) {
    const long periods = static_cast<long>(p->placed.values.size()) + std::max(o.lead, o.holdout) + 2L * nseasons + 16;
    set_text(info, "INTERVAL", observation_cycles().interval(p->placed.stdate, periods, nseasons));
  }
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

  // The fit range as indexes of the placed series.
  p->nseasons = nseasons;
  const double stdate = p->placed.stdate;
  const long n = static_cast<long>(p->placed.values.size());
  p->period = [cal, interval, stdate](long i) mutable {
    return cal.zintnx2(&interval, stdate, static_cast<double>(i));
  };
  auto index_of = [&](const std::string& option, const std::string& text) {
    const double c = cal.zintck2(iv, stdate, parse_time_option(option, text, plan.units));
    return esf::is_missing(c) ? -1L : static_cast<long>(c);
  };
  p->fit_first = o.fit_start.empty() ? 0 : std::clamp(index_of("--fit-start", o.fit_start), 0L, n - 1);
  p->fit_last = o.fit_end.empty() ? n - 1 : std::clamp(index_of("--fit-end", o.fit_end), -1L, n - 1);
  p->eval_first = o.eval_start.empty() ? p->fit_first : std::clamp(index_of("--eval-start", o.eval_start), 0L, n - 1);
  p->eval_last = o.eval_end.empty() ? n - 1 : std::clamp(index_of("--eval-end", o.eval_end), -1L, n - 1);
  // Each range must hold observations of the series.
  for (const auto& [what, first, last, start, end] :
       {std::tuple{"--fit-start/--fit-end: the fit range", p->fit_first, p->fit_last, &o.fit_start, &o.fit_end},
        std::tuple{"--eval-start/--eval-end: the evaluation range", p->eval_first, p->eval_last, &o.eval_start,
                   &o.eval_end}}) {
    const bool after = !start->empty() && index_of("", *start) > n - 1;
    if (after || first > last) {
      throw RunError(fmt::format("{} ({} to {}) holds no observation of the series, which runs from {} to {}", what,
                                 start->empty() ? "its start" : host::quote_input(*start),
                                 end->empty() ? "its end" : host::quote_input(*end),
                                 format_time(p->period(0), plan.units), format_time(p->period(n - 1), plan.units)));
    }
  }
  if (o.holdout > 0) {
    if (!o.fit_end.empty() || !o.eval_end.empty()) {
      throw RunError("--holdout sets the end of the fit and evaluation ranges; give it without --fit-end/--eval-end");
    }
    if (o.holdout > n - 2) {
      throw RunError(fmt::format("--holdout {} leaves fewer than 2 of the {} observations to fit", o.holdout, n));
    }
    p->fit_last = n - 1 - o.holdout;
    p->eval_last = p->fit_last;
    const double end = p->period(p->fit_last);
    set_number(p->fit_range, "ENDDATE", end);
    set_number(p->eval_range, "ENDDATE", end);
  }
  if (plan.forecast) check_lead(plan, *p);
}

// The checks of the series against the family, on the fit range.
SeriesForChecks checks_of(const Plan& plan, const CsvSeries& csv, const Lists& p) {
  SeriesForChecks c;
  c.path = csv.path;
  c.column = csv.var_column;
  const auto first = static_cast<std::size_t>(p.fit_first);
  const auto count = static_cast<std::size_t>(std::max(0L, p.fit_last - p.fit_first + 1));
  c.values = std::span<const double>(p.placed.values).subspan(first, count);
  c.lines = std::span<const long>(p.placed.lines).subspan(first, count);
  c.seasonal = plan.family->seasonal;
  c.multiplicative = plan.family->code != nullptr && std::string_view(plan.family->code) == "WINTM";
  c.nseasons = p.nseasons;
  c.nseasons_given = plan.options.nseasons.has_value();
  c.interval = plan.options.interval;
  return c;
}

void refuse_what_cannot_be_modelled(const Plan& plan, const CsvSeries& csv, const Lists& p) {
  if (const std::optional<std::string> why = refusal(checks_of(plan, csv, p))) {
    throw RunError(fmt::format("the {} model cannot be fitted: {}", plan.family->name, *why));
  }
}

// The fit drivers print their search when the host's option FITTRACE is 1.
void switch_trace(bool on) {
  if (on) host::set_option("FITTRACE", "1");
}

// Runs the fit method on the prepared lists, through the module's routine
// that also tells how the estimation ended; throws on a failure code.
FITEND run_fit(Loader& loader, const Family& family, Lists& p) {
  host::MethodCall call;
  call.list(p.series).list(p.spec).list(p.fit_range).list(p.eval_range).list(p.model).number(0);
  FITEND end{};
  auto* fit_ended = Loader::required(loader.routines().fit_ended, "esf_fit_ended");
  const double t0 = clock_if(p.timed);
  fit_ended(family.fit_slot, call.plist(), nullptr, &end);
  p.fit_method_seconds += clock_if(p.timed) - t0;
  const int code = call.return_code().value_or(999);
  if (code != 0) {
    throw RunError(
        fmt::format("the {} fit failed: {} (return code {})", family.name, meaning_of_return_code(code), code),
        kExitMethodFailed, code);
  }
  return end;
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

// Runs the forecast method on the lists of a fitted or given model.
// *method_seconds, when given, gets the thread CPU time in the method.
ForecastTable call_forecast(Loader& loader, const Plan& plan, Lists& p, double cl, int lead,
                            double* method_seconds = nullptr) {
  host::assign_memory_libref(kTableLibref);
  host::MethodCall call;
  call.list(p.series).list(p.model).list(p.eval_range).text(kTableName).number(cl).number(lead).number(0);
  const double t0 = clock_if(method_seconds != nullptr && p.timed);
  loader.call(plan.family->forecast_slot, call);
  if (method_seconds != nullptr) *method_seconds = clock_if(p.timed) - t0;
  const int code = call.return_code().value_or(999);
  if (code != 0) {
    throw RunError(fmt::format("the {} forecast failed: {} (return code {})", plan.family->name,
                               meaning_of_return_code(code), code),
                   kExitMethodFailed, code);
  }
  return read_table(plan.units);
}

// Columns of the table the forecast methods write, by position.
enum Column { kTime = 0, kActual = 1, kForecast = 2, kUpper = 3, kLower = 4, kResidual = 5, kStd = 6 };

// The weight kinds of a family, in the order of its estimates.
std::vector<int> weight_kinds(const Family& family) {
  std::vector<int> kinds;
  for (int k = 0; k < kNumWeightKinds; ++k) {
    if (family.weights[k]) kinds.push_back(k);
  }
  return kinds;
}

WeightPosition position_against(double w, const std::array<double, 2>& b, bool bounds_on) {
  if (b[0] == b[1]) return WeightPosition::kFixed;
  if (!bounds_on) return WeightPosition::kUnbounded;
  if (w == b[0]) return WeightPosition::kOnLower;
  if (w == b[1]) return WeightPosition::kOnUpper;
  return w < b[0] || w > b[1] ? WeightPosition::kOutside : WeightPosition::kInside;
}

FitEnd fit_end_of(int how) {
  switch (how) {
    case FITEND_CONVERGED:
      return FitEnd::kConverged;
    case FITEND_STALLED:
      return FitEnd::kStalled;
    case FITEND_ITERATION_LIMIT:
      return FitEnd::kIterationLimit;
    case FITEND_EXACT:
      return FitEnd::kExactFit;
    default:
      return FitEnd::kNotEstimated;
  }
}

// Bounds and positions of the weights, no t value where a weight sits on a
// bound or is fixed, and the warning a user must see.
void read_positions(const Plan& plan, FitResult* r) {
  const std::vector<int> kinds = weight_kinds(*plan.family);
  std::string at_bounds;
  for (std::size_t i = 0; i < r->weights.size() && i < kinds.size(); ++i) {
    WeightEstimate& w = r->weights[i];
    const std::array<double, 2> b = bounds_of(plan.options, kinds[i]);
    w.position = position_against(w.estimate, b, !plan.options.no_bounds);
    if (w.position != WeightPosition::kUnbounded) {
      w.lower = b[0];
      w.upper = b[1];
    }
    if (w.position != WeightPosition::kInside && w.position != WeightPosition::kUnbounded) w.t_value = kNaN;
    if (w.position == WeightPosition::kOnLower || w.position == WeightPosition::kOnUpper) {
      at_bounds += fmt::format("{}{} {}", at_bounds.empty() ? "" : ", ", w.name, describe(w.position));
    } else if (w.position == WeightPosition::kOutside) {
      at_bounds += fmt::format("{}{} {} outside its bounds {} to {}", at_bounds.empty() ? "" : ", ", w.name, w.estimate,
                               b[0], b[1]);
    }
  }
  std::string warning;
  if (!r->converged()) {
    warning = fmt::format("the {} fit did not converge: {} ({} iterations)", plan.family->name, describe(r->end),
                          r->iterations);
  }
  if (!at_bounds.empty()) {
    warning +=
        fmt::format("{}{}", warning.empty() ? fmt::format("the {} fit left ", plan.family->name) : "; ", at_bounds);
  }
  if (!warning.empty()) r->warnings.push_back(warning);
}

// One fit with its lists, kept for forecasts from it.
struct Fitted {
  std::unique_ptr<Lists> lists;
  FitResult result;
  bool measured = false;  // the criteria are in
};

Fitted fit_once(Loader& loader, const Plan& plan, const CsvSeries& csv) {
  Fitted f;
  f.lists = std::make_unique<Lists>();
  Lists& p = *f.lists;
  prepare(plan, loader, csv, &p);
  refuse_what_cannot_be_modelled(plan, csv, p);
  switch_trace(plan.options.trace);
  const FITEND end = run_fit(loader, *plan.family, p);
  f.result = read_fit(plan, csv, p);
  f.result.end = fit_end_of(end.how);
  f.result.iterations = end.iterations;
  f.result.nseasons = plan.family->seasonal ? p.nseasons : 0;
  f.result.fit_first = p.fit_first;
  f.result.fit_last = p.fit_last;
  return f;
}

// The thorough search: the frame run again inside each half of the range of
// every estimated weight (2^p boxes, so the grid and the steps start from
// every corner), and the lowest error variance kept among the fits whose
// weights lie within the bounds asked for.
Fitted search_boxes(Loader& loader, const Plan& plan, const CsvSeries& csv, Fitted best) {
  const std::vector<int> kinds = weight_kinds(*plan.family);
  std::vector<int> free;
  for (int k : kinds) {
    const std::array<double, 2> b = bounds_of(plan.options, k);
    if (b[0] < b[1]) free.push_back(k);
  }
  auto within = [&](const FitResult& r) {
    for (std::size_t i = 0; i < r.weights.size() && i < kinds.size(); ++i) {
      const std::array<double, 2> b = bounds_of(plan.options, kinds[i]);
      if (!(r.weights[i].estimate >= b[0] && r.weights[i].estimate <= b[1])) return false;
    }
    return std::isfinite(r.error_variance);
  };
  bool best_ok = within(best.result);
  bool from_box = false;
  for (unsigned mask = 0; mask < (1u << free.size()); ++mask) {
    Plan box = plan;
    for (std::size_t j = 0; j < free.size(); ++j) {
      const std::array<double, 2> b = bounds_of(plan.options, free[j]);
      const double mid = 0.5 * (b[0] + b[1]);
      box.options.bounds[free[j]] = (mask >> j) & 1u ? std::vector<double>{mid, b[1]} : std::vector<double>{b[0], mid};
    }
    try {
      Fitted f = fit_once(loader, box, csv);
      if (!within(f.result)) continue;
      if (!best_ok || f.result.error_variance < best.result.error_variance) {
        best = std::move(f);
        best_ok = true;
        from_box = true;
      }
    } catch (const RunError&) {
      // A box whose grid finds no start adds nothing.
    }
  }
  if (from_box) {
    // The model list keeps the bounds asked for, not those of the box.
    List wb = host::find_list(best.lists->spec, "WEIGHT_BOUNDS");
    for (int k = 0; k < kNumWeightKinds; ++k) {
      const std::array<double, 2> b = bounds_of(plan.options, k);
      host::set_number(wb, kLowerBoundItem[k], b[0]);
      host::set_number(wb, kUpperBoundItem[k], b[1]);
    }
  }
  best.result.thorough = true;
  return best;
}

// The criteria and the accuracy of the one-step errors over the fit range,
// from a forecast table of the fitted model (its rows from the start of the
// fit range are the same whatever its lead and limits).
void measure_fit(const Plan& plan, Fitted& f, const ForecastTable& t) {
  Lists& p = *f.lists;
  FitResult& r = f.result;
  const std::size_t rows = std::min<std::size_t>(t.rows(), static_cast<std::size_t>(p.fit_last - p.fit_first + 1));
  // Rows [first, end) of column c.
  auto rows_of = [&](Column c, std::size_t first, std::size_t end) {
    return std::span<const double>(t.columns[c].values).subspan(first, end - first);
  };
  int estimated = 0;
  for (const WeightEstimate& w : r.weights) estimated += w.position != WeightPosition::kFixed;
  r.criteria =
      information_criteria(rows_of(kResidual, 0, rows), parameter_count(estimated, plan.family->trended, r.nseasons));
  const auto fitted =
      std::span<const double>(p.placed.values)
          .subspan(static_cast<std::size_t>(p.fit_first), static_cast<std::size_t>(p.fit_last - p.fit_first + 1));
  const double scale = seasonal_naive_mae(fitted, p.nseasons > 1 ? p.nseasons : 1);
  r.fit_accuracy = accuracy(rows_of(kActual, 0, rows), rows_of(kForecast, 0, rows), scale);
  // The one-step errors over the evaluation range, whose rows the table
  // holds from the start of the fit range on.
  const std::size_t eval_first =
      std::min(t.rows(), static_cast<std::size_t>(std::max(p.eval_first, p.fit_first) - p.fit_first));
  const long eval_last = p.eval_last - p.fit_first;
  const std::size_t eval_end = std::clamp(static_cast<std::size_t>(std::max(eval_last + 1, 0L)), eval_first, t.rows());
  r.eval_accuracy = eval_first == 0 && eval_end == rows ? r.fit_accuracy  // the same rows
                                                        : accuracy(rows_of(kActual, eval_first, eval_end),
                                                                   rows_of(kForecast, eval_first, eval_end), scale);
}

// A fit with its report: the thorough search when asked, the check that
// its results are usable, the model list, the criteria and the warnings.
// Without `measure` the criteria are left to the caller, who makes a
// forecast table anyway (measure_fit).
Fitted fit_series(Loader& loader, const Plan& plan, const CsvSeries& csv, bool keep_model_list, bool measure = true) {
  Fitted f = fit_once(loader, plan, csv);
  if (plan.options.thorough) f = search_boxes(loader, plan, csv, std::move(f));
  FitResult& r = f.result;
  // The numbers that are not finite, named (a name is made only for those).
  std::vector<std::pair<std::string, double>> numbers;
  auto check = [&](double v, const auto& name) {
    if (!std::isfinite(v)) numbers.emplace_back(name(), v);
  };
  for (const WeightEstimate& w : r.weights) check(w.estimate, [&] { return fmt::format("the {} weight", w.name); });
  check(r.error_variance, [] { return "the error variance"; });
  check(r.state.level, [] { return "the end level"; });
  if (r.state.has_trend) check(r.state.trend, [] { return "the end trend"; });
  for (double v : r.state.factors) check(v, [] { return "an end seasonal factor"; });
  if (const std::optional<std::string> why = unusable_result(numbers)) {
    throw RunError(fmt::format("the {} fit cannot be used: {}", plan.family->name, *why), kExitMethodFailed);
  }
  read_positions(plan, &r);
  if (keep_model_list) r.model_list = host::to_json(f.lists->model);
  if (measure) {
    double seconds = 0.0;
    measure_fit(plan, f, call_forecast(loader, plan, *f.lists, plan.options.cl, 0, &seconds));
    f.lists->fit_method_seconds += seconds;
    f.measured = true;
  }
  return f;
}

}  // namespace

double thread_cpu_seconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

std::string describe(FitEnd end) {
  switch (end) {
    case FitEnd::kNotEstimated:
      return "not estimated: every weight was given";
    case FitEnd::kConverged:
      return "converged";
    case FitEnd::kStalled:
      return "stalled: the step could not improve after its halvings";
    case FitEnd::kIterationLimit:
      return "stopped at the iteration limit";
    case FitEnd::kExactFit:
      return "stopped: the errors vanished before the convergence test was met";
  }
  return "";
}

std::string describe(WeightPosition position) {
  switch (position) {
    case WeightPosition::kInside:
      return "inside its bounds";
    case WeightPosition::kOnLower:
      return "on its lower bound";
    case WeightPosition::kOnUpper:
      return "on its upper bound";
    case WeightPosition::kFixed:
      return "fixed";
    case WeightPosition::kOutside:
      return "outside its bounds";
    case WeightPosition::kUnbounded:
      return "without bounds";
  }
  return "";
}

Plan Runner::plan(const ModelOptions& options, bool forecast) const {
  Plan p;
  p.options = options;
  p.forecast = forecast;
  p.family = find_family(options.model);
  const bool automatic = options.model == kAutoModel;
  if (p.family == nullptr && !automatic) {
    throw RunError(fmt::format("--model: {} is not a model; choose one of {} or {}", host::quote_input(options.model),
                               family_names(), kAutoModel));
  }
  validate_options(options, p.family, forecast);
  if (automatic) {
    for (int k = 0; k < kNumWeightKinds; ++k) {
      if (options.fixed[k] || !options.bounds[k].empty()) {
        throw RunError(
            fmt::format("--{}-weight/--{}-bounds: --model auto chooses among families with their own "
                        "weights; name a model to set them",
                        kWeightWord[k], kWeightWord[k]));
      }
    }
    if (options.start_level || options.start_trend || !options.start_factors.empty() || options.backcast_level ||
        options.backcast_trend || !options.backcast_factors.empty()) {
      throw RunError(
          "--start-*/--backcast-*: --model auto chooses the family, whose states these would be; "
          "name a model to give them");
    }
  } else {
    check_options(options, *p.family);
  }
  if (!loader_.loaded()) loader_.load();  // (finding the default image reads the file system)
  // No interval: each series of a batch finds its own from its time IDs.
  if (options.interval.empty()) return p;
  ModuleCalendar cal(loader_);
  std::string text = options.interval;
  const int rc = cal.zintstr(text.data(), static_cast<int>(text.size()), &p.interval);
  if (rc != 0) {
    // A pandas frequency alias stands for the interval of the same periods.
    std::string meant = interval_of_alias(options.interval);
    if (meant.empty() || cal.zintstr(meant.data(), static_cast<int>(meant.size()), &p.interval) != 0) {
      throw RunError(fmt::format("--interval: {} is not an interval name (parser code {})",
                                 host::quote_input(options.interval), rc));
    }
    p.interval_alias = options.interval;
    p.options.interval = meant;
  }
  p.interval_token = std::string(p.interval.token, static_cast<std::size_t>(p.interval.tokenlen));
  p.units = time_units_of(p.interval.units);
  if (!options.start_factors.empty() || !options.backcast_factors.empty()) {
    validate_cycle(options, options.nseasons.value_or(seasons_of(loader_, &p.interval, 0.0)));
  }
  if (automatic) p.family_plans = make_family_plans(*this, p);
  return p;
}

// The plans of each family under the options of an automatic plan: the
// fit a choice makes (one level, formula limits) and the run of the chosen
// family.
struct FamilyPlans {
  struct Made {
    std::optional<Plan> plan;
    std::optional<RunError> error;  // why the options do not make a plan for the family
  };
  struct Entry {
    Made fit, chosen;
    Made holdout;  // --select holdout: the candidate's run with selection_holdout observations held out
  };
  std::vector<Entry> entries;  // in the order of families()
  long selection_holdout = 0;  // what the holdout plans hold out; 0 when they were not made
};

namespace {

ModelOptions family_options(const Plan& automatic, const Family& family, bool fit) {
  ModelOptions o = automatic.options;
  o.model = family.name;
  if (fit) {
    o.levels.clear();
    o.limits = LimitMethod::kFormula;
  }
  return o;
}

// The observations --select holdout keeps out of a candidate's fit to choose
// by: a season's worth of the interval from `first` on, at least 4.
long selection_holdout_of(Loader& loader, const Plan& automatic, double first) {
  INTERVAL iv = automatic.interval;
  const int m = automatic.options.nseasons ? *automatic.options.nseasons : seasons_of(loader, &iv, first);
  return std::max(4, m);
}

// The options of a candidate's run under --select holdout: its fit's, with
// `held` more observations held out and forecast.
ModelOptions holdout_options(const Plan& automatic, const Family& family, long held) {
  ModelOptions o = family_options(automatic, family, true);
  o.holdout += static_cast<int>(held);
  o.lead = static_cast<int>(held);
  return o;
}

FamilyPlans::Made make_plan(const Runner& runner, const ModelOptions& o, bool forecast) {
  FamilyPlans::Made m;
  try {
    m.plan = runner.plan(o, forecast);
  } catch (const RunError& e) {
    m.error = e;
  }
  return m;
}

std::shared_ptr<const FamilyPlans> make_family_plans(const Runner& runner, const Plan& automatic) {
  auto plans = std::make_shared<FamilyPlans>();
  const bool by_holdout = automatic.options.select == Selection::kHoldout;
  if (by_holdout) plans->selection_holdout = selection_holdout_of(runner.loader(), automatic, 0.0);
  for (const Family& family : families()) {
    plans->entries.push_back(
        {make_plan(runner, family_options(automatic, family, true), false),
         make_plan(runner, family_options(automatic, family, false), automatic.forecast),
         by_holdout ? make_plan(runner, holdout_options(automatic, family, plans->selection_holdout), true)
                    : FamilyPlans::Made{}});
  }
  return plans;
}

// The plan of family `index`'s run under --select holdout with `held`
// observations held out: the automatic plan's when it made it for as many,
// else made now in *made.  Throws RunError when the options make no plan.
const Plan& holdout_plan(const Runner& runner, const Plan& automatic, std::size_t index, long held,
                         std::optional<Plan>* made) {
  const FamilyPlans* plans = automatic.family_plans.get();
  if (plans != nullptr && plans->selection_holdout == held) {
    const FamilyPlans::Made& m = plans->entries[index].holdout;
    if (m.error) throw *m.error;
    return *m.plan;
  }
  return made->emplace(runner.plan(holdout_options(automatic, families()[index], held), true));
}

// The plan of family `index` under an automatic plan, for its fit or as the
// chosen one: the plan's own when it made them, else made now in *made.
// Throws RunError when the options make no plan for the family.
const Plan& family_plan(const Runner& runner, const Plan& automatic, std::size_t index, bool chosen,
                        std::optional<Plan>* made) {
  if (automatic.family_plans != nullptr) {
    const FamilyPlans::Entry& e = automatic.family_plans->entries[index];
    const FamilyPlans::Made& m = chosen ? e.chosen : e.fit;
    if (m.error) throw *m.error;
    if (m.plan->timed == automatic.timed) return *m.plan;
    made->emplace(*m.plan);
  } else {
    made->emplace(runner.plan(family_options(automatic, families()[index], !chosen), chosen && automatic.forecast));
  }
  (*made)->timed = automatic.timed;
  return **made;
}

}  // namespace

namespace {

// Selection by a criterion of the fit, or by the accuracy on the last
// observations of the fit range (a season's worth, at least 4).  Selecting
// by a criterion, *kept (when given) gets the chosen family's fit, its lists
// ready for a forecast.
AutoChoice choose_family(const Runner& runner, const Plan& plan, const CsvSeries& series, std::optional<Fitted>* kept) {
  Loader& loader = runner.loader();
  AutoChoice c;
  c.by = plan.options.select;
  double kept_score = kNaN;
  for (std::size_t index = 0; index < families().size(); ++index) {
    const Family& family = families()[index];
    Candidate cand;
    cand.model = family.name;
    try {
      if (c.by == Selection::kHoldout) {
        if (c.selection_holdout == 0) {
          c.selection_holdout =
              selection_holdout_of(loader, plan, series.rows.empty() ? 0.0 : series.rows.front().time);
        }
        std::optional<Plan> made;
        const ForecastResult r = runner.forecast(holdout_plan(runner, plan, index, c.selection_holdout, &made), series);
        cand.criteria = r.fit.criteria;
        cand.holdout = r.holdout_accuracy;
        cand.score = r.holdout_accuracy.mase;
      } else {
        std::optional<Plan> made;
        const Plan& fit_plan = family_plan(runner, plan, index, false, &made);
        Fitted f = fit_series(loader, fit_plan, series, false);
        c.fit_method_seconds += f.lists->fit_method_seconds;
        const Criteria& k = f.result.criteria;
        cand.criteria = k;
        cand.score = c.by == Selection::kAic ? k.aic : c.by == Selection::kBic ? k.bic : k.aicc;
        // The lowest score so far, as the choice below finds it.
        if (kept != nullptr && std::isfinite(cand.score) && (!kept->has_value() || cand.score < kept_score)) {
          *kept = std::move(f);
          kept_score = cand.score;
        }
      }
      if (!std::isfinite(cand.score)) cand.refused = "its criterion is undefined on this series";
    } catch (const RunError& e) {
      cand.refused = e.what();
    }
    c.candidates.push_back(std::move(cand));
  }
  const Candidate* best = nullptr;
  for (const Candidate& cand : c.candidates) {
    if (cand.refused.empty() && (best == nullptr || cand.score < best->score)) best = &cand;
  }
  if (best == nullptr) {
    std::string why;
    for (const Candidate& cand : c.candidates) why += fmt::format("; {}: {}", cand.model, cand.refused);
    throw RunError(fmt::format("--model auto: no family could be fitted{}", why), kExitMethodFailed);
  }
  c.chosen = best->model;
  return c;
}

// The plan of the family --model auto chose, with the choice, and in *kept
// (when given) that family's fit when the choice kept it.
const Plan& chosen_plan(const Runner& runner, const Plan& plan, const CsvSeries& series,
                        std::optional<AutoChoice>* choice, std::optional<Plan>* made,
                        std::optional<Fitted>* kept = nullptr) {
  if (plan.family != nullptr) return plan;
  *choice = choose_family(runner, plan, series, kept);
  const std::span<const Family> all = families();
  const auto chosen =
      std::find_if(all.begin(), all.end(), [&](const Family& f) { return f.name == (*choice)->chosen; });
  return family_plan(runner, plan, static_cast<std::size_t>(chosen - all.begin()), true, made);
}

}  // namespace

AutoChoice Runner::choose(const Plan& plan, const CsvSeries& series) const {
  return choose_family(*this, plan, series, nullptr);
}

Plan Runner::plan_for_file(const ModelOptions& options, bool forecast, const std::string& path,
                           const std::string& id_column, const std::string& var_column, CsvSeries* series,
                           std::string* inferred) const {
  if (inferred != nullptr) inferred->clear();
  if (!options.interval.empty()) {
    Plan p = plan(options, forecast);
    *series = read_series_csv(path, id_column, var_column, p.units);
    return p;
  }
  TimeUnits units = TimeUnits::kDate;
  *series = read_series_any_units(path, id_column, var_column, &units);
  const Inferred found = infer_interval(loader_, *series, units);
  if (found.interval.empty()) throw RunError(found.message);
  ModelOptions with_interval = options;
  with_interval.interval = found.interval;
  if (inferred != nullptr) *inferred = found.interval;
  return plan(with_interval, forecast);
}

FitResult Runner::fit(const Plan& plan_in, const CsvSeries& series, bool keep_model_list) const {
  std::optional<AutoChoice> choice;
  std::optional<Fitted> kept;
  std::optional<Plan> made;
  const Plan& plan = chosen_plan(*this, plan_in, series, &choice, &made, &kept);
  Fitted f = kept ? std::move(*kept) : fit_series(loader_, plan, series, keep_model_list);
  if (kept && keep_model_list) f.result.model_list = host::to_json(f.lists->model);
  f.result.choice = std::move(choice);
  const std::string remark = placement_remark(loader_, series, plan.units, plan.interval);
  if (!remark.empty()) f.result.warnings.insert(f.result.warnings.begin(), remark);
  return std::move(f.result);
}

namespace {

// Limits from the errors of forecasts made at every origin of the fit range
// from its first two cycles (at least 8 observations) on, with the fitted
// weights and start states: at lead h the half-width is the conformal
// quantile of the lead-h errors.  The forecast rows get FORECAST plus and
// minus the half-width of their lead, the observed rows that of lead 1.
void empirical_limits(Loader& loader, const Plan& plan, Lists& p, ForecastTable& table,
                      const std::vector<std::pair<std::size_t, double>>& limit_columns,
                      std::vector<std::string>* warnings) {
  const long lead = std::max(plan.options.lead, plan.options.holdout);
  const long first_origin = p.fit_first + std::max(8L, 2L * p.nseasons) - 1;
  std::vector<std::vector<double>> errors(static_cast<std::size_t>(std::max(1L, lead)));
  for (long origin = first_origin; origin < p.fit_last; ++origin) {
    host::set_number(p.eval_range, "ENDDATE", p.period(origin));
    const long ahead = std::min(lead, p.fit_last - origin);
    const ForecastTable t = call_forecast(loader, plan, p, plan.options.cl, static_cast<int>(ahead));
    const std::size_t row0 = static_cast<std::size_t>(origin - p.fit_first);
    for (long h = 1; h <= ahead; ++h) {
      const std::size_t row = row0 + static_cast<std::size_t>(h);
      if (row >= t.rows()) break;
      const double actual = p.placed.values[static_cast<std::size_t>(origin + h)];
      errors[static_cast<std::size_t>(h - 1)].push_back(t.columns[kForecast].values[row] - actual);
    }
  }
  host::set_number(p.eval_range, "ENDDATE", p.period(p.fit_last));

  const std::size_t observed = static_cast<std::size_t>(p.fit_last - p.fit_first + 1);
  bool fell_back = false;
  for (const auto& [upper, level] : limit_columns) {
    const std::vector<double> w = conformal_half_widths(errors, level);
    std::vector<double>& u = table.columns[upper].values;
    std::vector<double>& l = table.columns[upper + 1].values;
    const std::vector<double>& f = table.columns[kForecast].values;
    for (std::size_t row = 0; row < table.rows(); ++row) {
      const std::size_t h = row < observed ? 1 : row - observed + 1;
      const double half = h - 1 < w.size() ? w[h - 1] : kNaN;
      if (!std::isfinite(half) || esf::is_missing(f[row])) {
        fell_back = fell_back || row >= observed;
        continue;
      }
      u[row] = f[row] + half;
      l[row] = f[row] - half;
    }
  }
  if (fell_back) {
    warnings->push_back(
        "--limits empirical: too few rolling-origin errors at some leads for the level asked; those rows keep "
        "the formula limits");
  }
}

}  // namespace

ForecastResult Runner::forecast(const Plan& plan_in, const CsvSeries& series, const SavedModel* saved) const {
  const double t0 = clock_if(plan_in.timed);
  ForecastResult result;
  std::optional<AutoChoice> choice;
  std::optional<Fitted> fitted;  // the fit, when the model is fitted here
  std::optional<Plan> made;
  const Plan& plan = saved != nullptr ? plan_in : chosen_plan(*this, plan_in, series, &choice, &made, &fitted);
  const bool kept_fit = fitted.has_value();  // the choice's fit, whose method time the choice counted
  const ModelOptions& o = plan.options;
  const std::string remark = placement_remark(loader_, series, plan.units, plan.interval);
  if (!remark.empty()) result.warnings.push_back(remark);
  std::unique_ptr<Lists> lists;  // a saved or given model's
  if (saved != nullptr && !saved->interval.empty()) {
    // The model's weights and factors belong to the interval it was fitted
    // on: a forecast on another interval would be meaningless.
    INTERVAL saved_interval{};
    std::string text = saved->interval;
    ModuleCalendar cal(loader_);
    if (cal.zintstr(text.data(), static_cast<int>(text.size()), &saved_interval) != 0 ||
        saved_interval.units != plan.interval.units || saved_interval.intcode != plan.interval.intcode ||
        saved_interval.intper != plan.interval.intper || saved_interval.shiftper != plan.interval.shiftper) {
      throw RunError(fmt::format("the model was fitted on interval {}, not {}: {}", host::quote_input(saved->interval),
                                 host::quote_input(plan.options.interval), saved->path));
    }
  }
  if (saved != nullptr) {
    lists = std::make_unique<Lists>();
    Lists& p = *lists;
    prepare(plan, loader_, series, &p);
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
    const bool ranges_given =
        !o.fit_start.empty() || !o.fit_end.empty() || !o.eval_start.empty() || !o.eval_end.empty() || o.holdout > 0;
    if (ranges_given && (p.fit_range == nullptr || p.eval_range == nullptr)) {
      throw RunError(fmt::format("{}: FITRANGE or EVALRANGE holds no list to take the ranges", saved->path));
    }
    // The evaluation-range argument must be a list even when the model's
    // EVALRANGE holds none; the method reads EVALRANGE in its place.
    if (p.eval_range == nullptr) p.eval_range = p.spec;
    fill_range(p.fit_range, "--fit-start", o.fit_start, "--fit-end", o.fit_end, plan.units);
    fill_range(p.eval_range, "--eval-start", o.eval_start, "--eval-end", o.eval_end, plan.units);
    if (o.holdout > 0) {
      host::set_number(p.fit_range, "ENDDATE", p.period(p.fit_last));
      host::set_number(p.eval_range, "ENDDATE", p.period(p.fit_last));
    }
  } else if (nothing_to_estimate(o, *plan.family)) {
    // Every weight and the start states given: the forecast method runs on
    // them as they stand, with nothing estimated.
    lists = std::make_unique<Lists>();
    prepare(plan, loader_, series, lists.get());
    refuse_what_cannot_be_modelled(plan, series, *lists);
    host::add_list(lists->model, "ESTIMATES");
  } else if (fitted) {
    // --model auto kept the chosen family's fit; its lists were made for a fit.
    check_lead(plan, *fitted->lists);
  } else {
    fitted.emplace(fit_series(loader_, plan, series, false, false));
  }
  Lists& p = fitted ? *fitted->lists : *lists;
  const double t1 = clock_if(plan.timed);
  result.fit_seconds = t1 - t0;

  // The table at the first level asked (or at --cl), then a pair of limits
  // for every further level, from the method run at that level.
  std::vector<double> cls;
  // (100 - level) / 100 gives the same alpha as --cl for round levels: 95 -> 0.05 exactly.
  for (double level : o.levels) cls.push_back((100.0 - level) / 100.0);
  if (cls.empty()) cls.push_back(o.cl);
  const int lead = std::max(o.lead, o.holdout);
  double forecast_method_seconds = 0.0;
  result.table = call_forecast(loader_, plan, p, cls[0], lead, &forecast_method_seconds);
  result.module_seconds = (kept_fit ? 0.0 : p.fit_method_seconds) + forecast_method_seconds;
  if (choice) result.module_seconds += choice->fit_method_seconds;
  if (fitted) {
    // The criteria from this table, before limits or held-out values change it.
    if (!fitted->measured) measure_fit(plan, *fitted, result.table);
    result.fitted = true;
    result.fit = std::move(fitted->result);
    result.fit.choice = std::move(choice);
  }
  std::vector<std::pair<std::size_t, double>> limit_columns = {{kUpper, 1.0 - cls[0]}};
  for (std::size_t i = 1; i < cls.size(); ++i) {
    ForecastTable t = call_forecast(loader_, plan, p, cls[i], lead);
    const bool present = std::any_of(result.table.columns.begin(), result.table.columns.end(),
                                     [&](const TableColumn& c) { return c.name == t.columns[kUpper].name; });
    if (present) continue;
    limit_columns.emplace_back(result.table.columns.size(), 1.0 - cls[i]);
    result.table.columns.push_back(std::move(t.columns[kUpper]));
    result.table.columns.push_back(std::move(t.columns[kLower]));
  }
  if (o.limits == LimitMethod::kEmpirical) {
    empirical_limits(loader_, plan, p, result.table, limit_columns, &result.warnings);
  }

  // The held-out observations: their actual values back in the table, and
  // how the forecasts and limits did on them.
  if (o.holdout > 0) {
    result.holdout = o.holdout;
    const std::size_t first = static_cast<std::size_t>(p.fit_last - p.fit_first + 1);
    std::vector<double>& actual = result.table.columns[kActual].values;
    std::vector<double> a, f;
    for (long h = 0; h < o.holdout; ++h) {
      const std::size_t row = first + static_cast<std::size_t>(h);
      if (row >= result.table.rows()) break;
      const double x = p.placed.values[static_cast<std::size_t>(p.fit_last + 1 + h)];
      actual[row] = std::isnan(x) ? esf::kMissing : x;
      a.push_back(x);
      f.push_back(result.table.columns[kForecast].values[row]);
    }
    const std::vector<double> fit_values(p.placed.values.begin() + p.fit_first,
                                         p.placed.values.begin() + p.fit_last + 1);
    result.holdout_accuracy = accuracy(a, f, seasonal_naive_mae(fit_values, p.nseasons > 1 ? p.nseasons : 1));
    for (const auto& [upper, level] : limit_columns) {
      const auto tail = [&](std::size_t c) {
        const std::vector<double>& v = result.table.columns[c].values;
        return std::vector<double>(v.begin() + static_cast<long>(first),
                                   v.begin() + static_cast<long>(std::min(v.size(), first + a.size())));
      };
      result.holdout_coverage.emplace_back(result.table.columns[upper].name, coverage(a, tail(upper + 1), tail(upper)));
    }
  }
  result.forecast_seconds = clock_if(plan.timed) - t1;
  return result;
}

SavedModel load_model_file(const std::string& path, ModelOptions& options) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    throw RunError(fmt::format("the model file is a directory: {}", path));
  }
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
  if (j.contains("interval")) {
    if (!j["interval"].is_string()) throw RunError(fmt::format("{}: not a model file: \"interval\" is not text", path));
    saved.interval = j["interval"].get<std::string>();
    if (options.interval.empty()) options.interval = saved.interval;
  }
  // Saved weights are numbers the methods can forecast with: a fit within
  // the default bounds gives weights from 0 to 1, a fit without bounds may
  // give others.
  const Json& list = j["model_list"];
  if (list.is_object() && list.contains("PARMVALS") && list["PARMVALS"].is_object() &&
      list["PARMVALS"].contains("SMOOTHING_WEIGHTS") && list["PARMVALS"]["SMOOTHING_WEIGHTS"].is_object()) {
    for (const auto& [name, w] : list["PARMVALS"]["SMOOTHING_WEIGHTS"].items()) {
      if (!w.is_null() && !(w.is_number() && std::fabs(w.get<double>()) <= kWeightLimit)) {
        throw RunError(fmt::format("not a model file: the {} weight is {}, not a number from {} to {}: {}", name,
                                   host::quote_input(w.dump()), -kWeightLimit, kWeightLimit, path));
      }
    }
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
  // How the fit ended, for a reader of the file; a forecast reads only the
  // model list.
  Json weights = Json::array();
  for (const WeightEstimate& w : fit.weights) weights.push_back({{"name", w.name}, {"position", describe(w.position)}});
  j["fit"] = {{"status", describe(fit.end)},
              {"converged", fit.converged()},
              {"iterations", fit.iterations},
              {"weights", std::move(weights)},
              {"aicc", std::isfinite(fit.criteria.aicc) ? Json(fit.criteria.aicc) : Json(nullptr)},
              {"warnings", fit.warnings}};
  if (fit.choice) {
    Json candidates = Json::array();
    for (const Candidate& c : fit.choice->candidates) {
      candidates.push_back({{"model", c.model}, {"score", std::isfinite(c.score) ? Json(c.score) : Json(nullptr)}});
    }
    j["selection"] = {{"chosen", fit.choice->chosen}, {"candidates", std::move(candidates)}};
  }
  return j.dump(2) + "\n";
}

}  // namespace esf::runner
