// The fit and forecast subcommands: read a series from CSV, place it on the
// interval's calendar, build the lists the methods read, call the family's
// fit (and forecast) method through the loaded module, and report.
//
//   esforecast fit --model simple --interval MONTH series.csv [--json]
//   esforecast forecast --model simple --interval MONTH --lead 12 --cl 0.05 series.csv -o forecast.csv
#include <unistd.h>

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/series_csv.h"
#include "host/host.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

namespace fs = std::filesystem;
using esf::cli::CsvError;
using esf::cli::Loader;
using esf::cli::TimeUnits;
using Json = nlohmann::ordered_json;

// Exit status of a method that answered with a failure.
constexpr int kExitMethodFailed = 4;

// A failure the command reports in one message and ends with.
class CommandError : public std::runtime_error {
 public:
  CommandError(std::string what, int status) : std::runtime_error(std::move(what)), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

// The weights a family has, as the lists name them.
enum WeightKind { kLevel = 0, kTrend = 1, kDamping = 2, kSeasonal = 3, kNumWeightKinds = 4 };
constexpr std::array<const char*, kNumWeightKinds> kWeightItem = {"LEVEL", "TREND", "DAMPING", "SEASONAL"};
constexpr std::array<const char*, kNumWeightKinds> kLowerBoundItem = {"WLEVLBND", "WTRELBND", "WDAMLBND", "WSEALBND"};
constexpr std::array<const char*, kNumWeightKinds> kUpperBoundItem = {"WLEVUBND", "WTREUBND", "WDAMUBND", "WSEAUBND"};
constexpr std::array<const char*, kNumWeightKinds> kOptionWord = {"level", "trend", "damping", "seasonal"};

// One model family as the command line offers it: its method slots in the
// module's method table and what its specification list carries.
struct Family {
  const char* name;
  const char* title;
  int fit_slot;
  int forecast_slot;
  std::array<bool, kNumWeightKinds> weights;
  bool trended;
  bool seasonal;
  const char* type;  // TYPE of the model description, or null
  const char* code;  // CODE of the model description, or null
};

constexpr Family kFamilies[] = {
    {"simple", "Simple exponential smoothing", 2, 3, {true, false, false, false}, false, false, nullptr, nullptr},
    {"double", "Double exponential smoothing", 6, 7, {true, false, false, false}, true, false, nullptr, nullptr},
    {"linear", "Linear (two-weight) exponential smoothing", 4, 5, {true, true, false, false}, true, false, nullptr,
     nullptr},
    {"damped", "Damped-trend exponential smoothing", 8, 9, {true, true, true, false}, true, false, nullptr, nullptr},
    {"seasonal", "Seasonal exponential smoothing", 10, 11, {true, false, false, true}, false, true, "EXPO", "EXPOS"},
    {"winters", "Winters multiplicative smoothing", 0, 1, {true, true, false, true}, true, true, "WINT", "WINTM"},
    {"winters-additive", "Winters additive smoothing", 0, 1, {true, true, false, true}, true, true, "WINT", "WINTA"},
};

const Family* find_family(const std::string& name) {
  for (const Family& f : kFamilies) {
    if (name == f.name) return &f;
  }
  return nullptr;
}

std::string family_names() {
  std::string s;
  for (const Family& f : kFamilies) s += (s.empty() ? "" : ", ") + std::string(f.name);
  return s;
}

// What a method's return code means, in plain words.
std::string meaning_of(int code) {
  switch (code) {
    case 0:
      return "success";
    case 2:
      return "too few usable observations, or a time range shorter than two periods";
    case 8:
      return "the estimation found no usable starting weights";
    case 10:
      return "the estimation failed";
    case 11:
      return "a multiplicative Winters state fell below its floor";
    case 12:
      return "numeric overflow while smoothing the series";
    case 100:
      return "memory could not be obtained";
    case 101:
      return "the output table could not be written";
    case 999:
      return "nothing ran: an argument or list item is missing or unusable, the weights are unusable, "
             "or this model is not available in this module";
    default:
      return "an unknown failure";
  }
}

// Options shared by both commands.
struct Options {
  std::string model;
  std::string interval;
  std::string input;
  std::string id_column;
  std::string var_column;
  std::optional<int> nseasons;
  std::array<std::vector<double>, kNumWeightKinds> bounds;
  std::array<std::optional<double>, kNumWeightKinds> fixed;
  bool no_bounds = false;
  bool no_stability = false;
  std::optional<double> start_level, start_trend;
  std::vector<double> start_factors;
  std::optional<double> backcast_level, backcast_trend;
  std::vector<double> backcast_factors;
  std::string fit_start, fit_end, eval_start, eval_end;
  bool trace = false;
  // fit
  bool json = false;
  std::string save_model;
  // forecast
  int lead = 12;
  double cl = 0.05;
  std::string output;
  std::string model_file;
};

void add_common_options(CLI::App* cmd, Options& o, bool model_required) {
  auto* model = cmd->add_option("--model", o.model, "Model family: " + family_names());
  if (model_required) model->default_val("simple");
  cmd->add_option("--interval", o.interval, "Interval of the series, such as MONTH, QTR, WEEK, DAY, DTHOUR, OBS")
      ->required();
  cmd->add_option("series", o.input, "CSV file with a header line, a time ID column and a value column")
      ->required();
  cmd->add_option("--id", o.id_column, "Column holding the time ID (default: the first)");
  cmd->add_option("--var", o.var_column, "Column holding the values (default: the second)");
  cmd->add_option("--nseasons", o.nseasons, "Length of the seasonal cycle (default: from the interval)");
  for (int k = 0; k < kNumWeightKinds; ++k) {
    const std::string word = kOptionWord[k];
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

// ---- The module's calendar -----------------------------------------------------

struct ModuleCalendar {
  explicit ModuleCalendar(Loader& loader)
      : zintstr(loader.symbol<int(tchar*, int, INTERVAL*)>("zintstr")),
        zintnx2(loader.symbol<double(INTERVAL*, double, double)>("zintnx2")),
        zintck2(loader.symbol<double(INTERVAL*, double, double)>("zintck2")) {}
  int (*zintstr)(tchar*, int, INTERVAL*);
  double (*zintnx2)(INTERVAL*, double, double);
  double (*zintck2)(INTERVAL*, double, double);
};

INTERVAL parse_interval(ModuleCalendar& cal, const std::string& name) {
  INTERVAL iv{};
  std::string text = name;
  const int rc = cal.zintstr(text.data(), static_cast<int>(text.size()), &iv);
  if (rc != 0) {
    throw CommandError(fmt::format("--interval: '{}' is not an interval name (parser code {})", name, rc), 1);
  }
  return iv;
}

// The length of the seasonal cycle the module gives the interval, when it
// exports the routine; 0 when unknown.
int seasons_of(Loader& loader, INTERVAL* iv, double date) {
  try {
    auto* zintsea = loader.symbol<int(INTERVAL*, double, INTERVAL*, int*)>("zintsea");
    INTERVAL cycle{};
    int n = 0;
    if (zintsea(iv, date, &cycle, &n) == 0 && n > 0) return n;
  } catch (const esf::cli::LoadError&) {
  }
  return 0;
}

double parse_time_option(const std::string& option, const std::string& text, TimeUnits units) {
  double t = 0.0;
  if (!esf::cli::parse_time(text, units, &t)) {
    const char* want = units == TimeUnits::kNumber ? "a number" : "an ISO date or datetime";
    throw CommandError(fmt::format("{}: '{}' is not {}", option, text, want), 1);
  }
  return t;
}

// ---- Lists -----------------------------------------------------------------------

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

struct Prepared {
  const Family* family = nullptr;
  INTERVAL interval{};
  TimeUnits units = TimeUnits::kDate;
  esf::cli::PlacedSeries placed;
  std::string timeid;
  std::string variable;  // the value column
  List series = nullptr;
  List model = nullptr;  // MODEL_SPEC, FITRANGE, EVALRANGE (+ results)
  List spec = nullptr;
  List fit_range = nullptr;
  List eval_range = nullptr;

  Prepared() = default;
  Prepared(const Prepared&) = delete;
  Prepared& operator=(const Prepared&) = delete;
  ~Prepared() {
    esf::host::free_list(series);
    esf::host::free_list(model);
  }
};

void fill_state(List list, const std::optional<double>& level, const std::optional<double>& trend,
                const std::vector<double>& factors) {
  if (level) esf::host::append_number(list, *level, "LEVEL");
  if (trend) esf::host::append_number(list, *trend, "TREND");
  if (!factors.empty()) {
    List sf = esf::host::add_list(list, "SFACTORS");
    for (double f : factors) esf::host::append_number(sf, f);
  }
}

// The model-description items the options ask for.
void fill_specification(const Options& o, const Family& family, List spec, bool forecast_weights) {
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

void check_options(const Options& o, const Family& family) {
  for (int k = 0; k < kNumWeightKinds; ++k) {
    const bool given = o.fixed[k].has_value() || !o.bounds[k].empty();
    if (given && !family.weights[k]) {
      throw CommandError(fmt::format("--{}-weight/--{}-bounds: the {} model has no {} weight", kOptionWord[k],
                                     kOptionWord[k], family.name, kOptionWord[k]),
                         1);
    }
    if (!o.bounds[k].empty() && o.bounds[k][0] > o.bounds[k][1]) {
      throw CommandError(fmt::format("--{}-bounds: the lower bound {} is above the upper bound {}", kOptionWord[k],
                                     o.bounds[k][0], o.bounds[k][1]),
                         1);
    }
  }
  if ((o.start_trend || o.backcast_trend) && !family.trended) {
    throw CommandError(fmt::format("--start-trend/--backcast-trend: the {} model has no trend", family.name), 1);
  }
  if ((!o.start_factors.empty() || !o.backcast_factors.empty()) && !family.seasonal) {
    throw CommandError(fmt::format("--start-factors/--backcast-factors: the {} model has no seasonal factors",
                                   family.name),
                       1);
  }
}

void fill_range(List list, const std::string& start_option, const std::string& start,
                const std::string& end_option, const std::string& end, TimeUnits units) {
  if (!start.empty()) esf::host::set_number(list, "STDATE", parse_time_option(start_option, start, units));
  if (!end.empty()) esf::host::set_number(list, "ENDDATE", parse_time_option(end_option, end, units));
}

// Reads the series and builds the lists of a method call.
void prepare(const Options& o, const Family& family, Loader& loader, bool forecast, Prepared* p) {
  using namespace esf::host;
  check_options(o, family);
  loader.load();
  ModuleCalendar cal(loader);
  p->family = &family;
  p->interval = parse_interval(cal, o.interval);
  p->units = esf::cli::time_units_of(p->interval.units);

  const esf::cli::CsvSeries csv = esf::cli::read_series_csv(o.input, o.id_column, o.var_column, p->units);
  INTERVAL* iv = &p->interval;
  esf::cli::Calendar calendar;
  calendar.period_start = [&cal, iv](double t) { return cal.zintnx2(iv, t, 0.0); };
  calendar.count = [&cal, iv](double from, double to) { return cal.zintck2(iv, from, to); };
  calendar.is_missing = [](double v) { return esf::is_missing(v) || std::isnan(v); };
  p->placed = esf::cli::place_series(csv, calendar);

  p->timeid = is_variable_name(csv.id_column) ? csv.id_column : "DATE";
  p->variable = csv.var_column;
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
  List data_range = add_list(add_list(p->series, "TIME_RANGES"), "DATA_RANGE");
  set_integer(data_range, "NOBS", static_cast<long>(p->placed.values.size()));
  set_number(data_range, "STDATE", p->placed.stdate);

  p->model = new_list();
  p->spec = add_list(p->model, "MODEL_SPEC");
  p->fit_range = add_list(p->model, "FITRANGE");
  p->eval_range = add_list(p->model, "EVALRANGE");
  fill_specification(o, family, p->spec, forecast);
  fill_range(p->fit_range, "--fit-start", o.fit_start, "--fit-end", o.fit_end, p->units);
  fill_range(p->eval_range, "--eval-start", o.eval_start, "--eval-end", o.eval_end, p->units);
}

void switch_trace(Loader& loader, bool on) {
  if (!on) return;
  // The estimation frame exposes its trace switch only where the module
  // image exports one.
  try {
    auto* set_trace = loader.symbol<void(int)>("esf_set_fit_trace");
    set_trace(1);
  } catch (const esf::cli::LoadError&) {
    std::cerr << "esforecast: --trace: this module image has no estimation trace to switch on\n";
  }
}

// Runs the fit method on the prepared lists; throws on a failure code.
void run_fit(Loader& loader, Prepared& p) {
  esf::host::MethodCall call;
  call.list(p.series).list(p.spec).list(p.fit_range).list(p.eval_range).list(p.model).number(0);
  loader.call(p.family->fit_slot, call);
  const std::optional<int> rc = call.return_code();
  const int code = rc.value_or(999);
  if (code != 0) {
    throw CommandError(fmt::format("the {} fit failed with return code {}: {}", p.family->name, code,
                                   meaning_of(code)),
                       kExitMethodFailed);
  }
}

// ---- Reporting a fit -------------------------------------------------------------

std::optional<double> number_or_missing(const SLIST_ITEM* item) {
  if (item == nullptr) return std::nullopt;
  const double v = slgetnv(item, 0);
  if (esf::is_missing(v)) return std::nullopt;
  return v;
}

std::vector<const SLIST_ITEM*> items_of(List list) { return esf::host::items(list); }

std::string text_of(const SLIST_ITEM* item) {
  if (item == nullptr || item->type != SL_CHAR || item->data.c.p == nullptr) return {};
  return std::string(item->data.c.p, static_cast<std::size_t>(item->data.c.len));
}

Json number_json(std::optional<double> v) { return v ? Json(*v) : Json(nullptr); }

std::string number_text(std::optional<double> v, int decimals) {
  return v ? fmt::format("{:.{}f}", *v, decimals) : std::string(".");
}

// The fit's results as JSON.
Json fit_json(const Prepared& p) {
  using namespace esf::host;
  List est = find_list(p.model, "ESTIMATES");
  Json out;
  out["model"] = p.family->name;
  out["interval"] = std::string(p.interval.token, static_cast<std::size_t>(p.interval.tokenlen));
  out["nobs"] = p.placed.values.size();
  out["start"] = esf::cli::format_time(p.placed.stdate, p.units);
  const auto names = items_of(find_list(est, "NAMES"));
  const auto labels = items_of(find_list(est, "LABELS"));
  const auto values = items_of(find_list(est, "VALUES"));
  const auto stderrs = items_of(find_list(est, "STDERRS"));
  const auto tvals = items_of(find_list(est, "TVALS"));
  Json weights = Json::array();
  for (std::size_t i = 0; i < names.size(); ++i) {
    Json w;
    w["name"] = text_of(names[i]);
    w["label"] = i < labels.size() ? text_of(labels[i]) : "";
    w["estimate"] = number_json(i < values.size() ? number_or_missing(values[i]) : std::nullopt);
    w["stderr"] = number_json(i < stderrs.size() ? number_or_missing(stderrs[i]) : std::nullopt);
    w["tvalue"] = number_json(i < tvals.size() ? number_or_missing(tvals[i]) : std::nullopt);
    weights.push_back(std::move(w));
  }
  out["weights"] = std::move(weights);
  out["error_variance"] = number_json(number_or_missing(find_item(est, "SIGMA")));
  List state = find_list(est, "SMOOTHED_STATE");
  Json s;
  s["level"] = number_json(number_or_missing(find_item(state, "LEVEL")));
  if (find_item(state, "TREND") != nullptr) s["trend"] = number_json(number_or_missing(find_item(state, "TREND")));
  const auto factors = items_of(find_list(state, "SFACTORS"));
  if (!factors.empty()) {
    Json f = Json::array();
    for (const SLIST_ITEM* it : factors) f.push_back(number_json(number_or_missing(it)));
    s["factors"] = std::move(f);
  }
  out["smoothed_state"] = std::move(s);
  return out;
}

std::string fit_table(const Prepared& p, const Json& j) {
  std::string out;
  const std::size_t n = p.placed.values.size();
  out += fmt::format("{} of {} ({} {} periods from {})\n", p.family->title, p.variable, n,
                     j["interval"].get<std::string>(), j["start"].get<std::string>());
  out += "\n";
  out += fmt::format("{:<10} {:>14} {:>14} {:>10}  {}\n", "Weight", "Estimate", "Std Error", "t Value", "Label");
  for (const Json& w : j["weights"]) {
    auto num = [&](const char* k) -> std::optional<double> {
      return w[k].is_null() ? std::nullopt : std::optional<double>(w[k].get<double>());
    };
    out += fmt::format("{:<10} {:>14} {:>14} {:>10}  {}\n", w["name"].get<std::string>(), number_text(num("estimate"), 6),
                       number_text(num("stderr"), 6), number_text(num("tvalue"), 2), w["label"].get<std::string>());
  }
  out += "\n";
  const Json& ev = j["error_variance"];
  out += fmt::format("Error variance {}\n",
                     ev.is_null() ? std::string(".") : fmt::format("{:.6g}", ev.get<double>()));
  out += "\nSmoothed state at the end of the fit range\n";
  const Json& s = j["smoothed_state"];
  for (const char* k : {"level", "trend"}) {
    if (!s.contains(k)) continue;
    out += fmt::format("  {:<8} {}\n", k,
                       s[k].is_null() ? std::string(".") : fmt::format("{:.6f}", s[k].get<double>()));
  }
  if (s.contains("factors")) {
    std::string f;
    for (const Json& v : s["factors"]) f += (f.empty() ? "" : " ") + (v.is_null() ? std::string(".") : fmt::format("{:.6f}", v.get<double>()));
    out += fmt::format("  {:<8} {}\n", "factors", f);
  }
  return out;
}

// The saved model: the family, the interval and the whole model list.
void save_model(const Prepared& p, const std::string& path) {
  Json j;
  j["model"] = p.family->name;
  j["interval"] = std::string(p.interval.token, static_cast<std::size_t>(p.interval.tokenlen));
  j["model_list"] = esf::host::to_json(p.model);
  try {
    esf::cli::write_file_atomically(path, j.dump(2) + "\n");
  } catch (const CsvError& e) {
    throw CommandError(e.what(), 1);
  }
}

// ---- Commands ------------------------------------------------------------------------

void fit_command(const Options& o, Loader& loader) {
  const Family* family = find_family(o.model);
  if (family == nullptr) {
    throw CommandError(fmt::format("--model: '{}' is not a model; choose one of {}", o.model, family_names()), 1);
  }
  Prepared p;
  prepare(o, *family, loader, false, &p);
  switch_trace(loader, o.trace);
  run_fit(loader, p);
  const Json j = fit_json(p);
  if (!o.save_model.empty()) save_model(p, o.save_model);
  if (o.json) {
    std::cout << j.dump(2) << '\n';
  } else {
    std::cout << fit_table(p, j);
  }
}

// A directory of its own for the table the forecast method writes; removed
// when the command ends.
class TempDir {
 public:
  TempDir() {
    std::string tmpl = (fs::temp_directory_path() / "esforecast-XXXXXX").string();
    if (::mkdtemp(tmpl.data()) == nullptr) throw CommandError("cannot create a temporary directory", 1);
    path_ = tmpl;
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// Reads the model list a fit saved, checking that it fits the command.
List load_model_file(const std::string& path, Options& o) {
  std::ifstream in(path);
  if (!in) throw CommandError(fmt::format("{}: cannot open the model file", path), 1);
  Json j;
  try {
    j = Json::parse(in);
  } catch (const Json::parse_error& e) {
    throw CommandError(fmt::format("{}: not a model file: {}", path, e.what()), 1);
  }
  if (!j.is_object() || !j.contains("model_list") || !j.contains("model") || !j["model"].is_string()) {
    throw CommandError(fmt::format("{}: not a model file: it needs \"model\" and \"model_list\"", path), 1);
  }
  const std::string saved = j["model"].get<std::string>();
  if (o.model.empty()) o.model = saved;
  if (o.model != saved) {
    throw CommandError(fmt::format("{}: the file holds a {} model, not {}", path, saved, o.model), 1);
  }
  try {
    return esf::host::from_json(j["model_list"]);
  } catch (const std::exception& e) {
    throw CommandError(fmt::format("{}: model_list: {}", path, e.what()), 1);
  }
}

// The forecast table as CSV, with the time ID written as a date, datetime
// or number according to the interval.
std::string forecast_csv(const fs::path& table, const Prepared& p) {
  std::ifstream in(table);
  if (!in) throw CommandError("the forecast table was not written", kExitMethodFailed);
  std::string out;
  std::string line;
  bool header = true;
  while (std::getline(in, line)) {
    if (header) {
      out += line + "\n";
      header = false;
      continue;
    }
    const std::size_t comma = line.find(',');
    const std::string first = line.substr(0, comma);
    const std::string rest = comma == std::string::npos ? std::string() : line.substr(comma);
    std::string when = first;
    if (!first.empty()) {
      try {
        when = esf::cli::format_time(std::stod(first), p.units);
      } catch (const std::exception&) {
      }
    }
    out += when + rest + "\n";
  }
  return out;
}

void forecast_command(Options o, Loader& loader) {
  List saved_model = nullptr;
  if (!o.model_file.empty()) saved_model = load_model_file(o.model_file, o);
  if (o.model.empty()) o.model = "simple";
  const Family* family = find_family(o.model);
  if (family == nullptr) {
    esf::host::free_list(saved_model);
    throw CommandError(fmt::format("--model: '{}' is not a model; choose one of {}", o.model, family_names()), 1);
  }
  if (!(o.cl > 0.0 && o.cl < 1.0)) {
    esf::host::free_list(saved_model);
    throw CommandError(fmt::format("--cl: {} is not a significance level between 0 and 1", o.cl), 1);
  }
  Prepared p;
  try {
    prepare(o, *family, loader, true, &p);
  } catch (...) {
    esf::host::free_list(saved_model);
    throw;
  }
  if (saved_model != nullptr) {
    // Forecast from the saved model; ranges given now replace the saved ones.
    esf::host::free_list(p.model);
    p.model = saved_model;
    p.spec = esf::host::find_list(p.model, "MODEL_SPEC");
    if (p.spec == nullptr) throw CommandError(fmt::format("{}: the model list has no MODEL_SPEC", o.model_file), 1);
    for (const char* name : {"FITRANGE", "EVALRANGE"}) {
      if (esf::host::find_item(p.model, name) == nullptr) esf::host::add_list(p.model, name);
    }
    p.fit_range = esf::host::find_list(p.model, "FITRANGE");
    p.eval_range = esf::host::find_list(p.model, "EVALRANGE");
    const bool ranges_given =
        !o.fit_start.empty() || !o.fit_end.empty() || !o.eval_start.empty() || !o.eval_end.empty();
    if (ranges_given && (p.fit_range == nullptr || p.eval_range == nullptr)) {
      throw CommandError(fmt::format("{}: FITRANGE or EVALRANGE holds no list to take the ranges", o.model_file), 1);
    }
    // The evaluation-range argument must be a list even when the model's
    // EVALRANGE holds none; the method reads EVALRANGE in its place.
    if (p.eval_range == nullptr) p.eval_range = p.spec;
    fill_range(p.fit_range, "--fit-start", o.fit_start, "--fit-end", o.fit_end, p.units);
    fill_range(p.eval_range, "--eval-start", o.eval_start, "--eval-end", o.eval_end, p.units);
  } else {
    switch_trace(loader, o.trace);
    run_fit(loader, p);
  }

  TempDir dir;
  esf::host::assign_libref("ESFOUT", dir.path());
  esf::host::MethodCall call;
  call.list(p.series).list(p.model).list(p.eval_range).text("ESFOUT.FORECAST").number(o.cl).number(o.lead).number(0);
  loader.call(family->forecast_slot, call);
  const int code = call.return_code().value_or(999);
  if (code != 0) {
    throw CommandError(fmt::format("the {} forecast failed with return code {}: {}", family->name, code,
                                   meaning_of(code)),
                       kExitMethodFailed);
  }
  const std::string text = forecast_csv(esf::host::table_path("ESFOUT.FORECAST"), p);
  if (o.output.empty()) {
    std::cout << text;
  } else {
    try {
      esf::cli::write_file_atomically(o.output, text);
    } catch (const CsvError& e) {
      throw CommandError(e.what(), 1);
    }
  }
}

// Runs a command body, turning its failures into a message and an exit
// status.
template <class F>
void guarded(const char* command, F&& body) {
  try {
    body();
  } catch (const CommandError& e) {
    std::cerr << "esforecast " << command << ": " << e.what() << '\n';
    throw CLI::RuntimeError(e.status());
  } catch (const CsvError& e) {
    std::cerr << "esforecast " << command << ": " << e.what() << '\n';
    throw CLI::RuntimeError(1);
  }
}

}  // namespace

void add_model_commands(CLI::App& app, esf::cli::Loader& loader) {
  static Options fit_options;
  CLI::App* fit = app.add_subcommand("fit", "Fit a smoothing model to a series and print the estimates");
  add_common_options(fit, fit_options, true);
  fit->add_flag("--json", fit_options.json, "Print the estimates as JSON");
  fit->add_option("--save-model", fit_options.save_model, "Keep the whole fitted model list in this JSON file");
  fit->callback([&loader] { guarded("fit", [&] { fit_command(fit_options, loader); }); });

  static Options forecast_options;
  CLI::App* fc = app.add_subcommand("forecast", "Fit a smoothing model and write its forecast table as CSV");
  add_common_options(fc, forecast_options, false);
  fc->add_option("--lead", forecast_options.lead, "Number of forecasts past the evaluation range")
      ->default_val(12)
      ->check(CLI::NonNegativeNumber);
  fc->add_option("--cl", forecast_options.cl, "Significance level of the limits, e.g. 0.05 for 95% limits")
      ->default_val(0.05);
  fc->add_option("-o,--output", forecast_options.output, "Write the table to this CSV file (default: standard output)");
  fc->add_option("--model-file", forecast_options.model_file, "Forecast from a model saved by fit --save-model");
  fc->callback([&loader] { guarded("forecast", [&] { forecast_command(forecast_options, loader); }); });
}
