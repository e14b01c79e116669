#include "runner/batch_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "host/host.h"
#include "runner/row_memo.h"

namespace esf::runner {

std::string csv_field(const std::string& s) {
  const bool quote =
      s.find_first_of(",\"\r\n") != std::string::npos || (!s.empty() && (s.front() == ' ' || s.back() == ' '));
  if (!quote) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string csv_line(const std::vector<std::string>& fields) {
  std::string line;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) line += ',';
    line += csv_field(fields[i]);
  }
  return line + '\n';
}

std::string cell_text(const Cell& c) {
  if (const double* v = std::get_if<double>(&c)) return std::isnan(*v) ? std::string() : host::format_table_value(*v);
  return std::get<std::string>(c);
}

Json cell_json(const Cell& c) {
  if (const double* v = std::get_if<double>(&c)) {
    if (!std::isfinite(*v)) return nullptr;
    // Counts (NOBS, ITERATIONS) stay integers.
    if (std::trunc(*v) == *v && std::fabs(*v) < 9.0e15) return static_cast<long long>(*v);
    return *v;
  }
  return std::get<std::string>(c);
}

const std::vector<std::string>& estimate_names() {
  static const std::vector<std::string> names = {"STATUS",         "MODEL",
                                                 "INTERVAL",       "NOBS",
                                                 "LEVEL",          "LEVEL_STDERR",
                                                 "TREND",          "TREND_STDERR",
                                                 "DAMPING",        "DAMPING_STDERR",
                                                 "SEASONAL",       "SEASONAL_STDERR",
                                                 "ERROR_VARIANCE", "FIT_END",
                                                 "ITERATIONS",     "AIC",
                                                 "AICC",           "BIC",
                                                 "RMSE",           "MAE",
                                                 "MAPE",           "MASE"};
  return names;
}

std::vector<Cell> estimate_cells(const SeriesOutcome& o) {
  const FitResult& f = o.result.fit;
  const bool fitted = o.ok && o.result.fitted;
  std::vector<Cell> cells;
  cells.emplace_back(std::string(o.ok ? "ok" : "failed"));
  cells.emplace_back(std::string(fitted && f.family != nullptr ? f.family->name : ""));
  cells.emplace_back(o.interval);
  cells.emplace_back(fitted ? static_cast<double>(f.nobs) : kNaN);
  for (const char* item : kWeightItem) {
    double value = kNaN, se = kNaN;
    for (const WeightEstimate& w : f.weights) {
      if (fitted && w.name == item) {
        value = w.estimate;
        se = w.std_error;
      }
    }
    cells.emplace_back(value);
    cells.emplace_back(se);
  }
  cells.emplace_back(fitted ? f.error_variance : kNaN);
  cells.emplace_back(fitted ? describe(f.end) : std::string());
  cells.emplace_back(fitted ? static_cast<double>(f.iterations) : kNaN);
  for (double v : {f.criteria.aic, f.criteria.aicc, f.criteria.bic, f.fit_accuracy.rmse, f.fit_accuracy.mae,
                   f.fit_accuracy.mape, f.fit_accuracy.mase}) {
    cells.emplace_back(fitted ? v : kNaN);
  }
  return cells;
}

std::vector<std::string> output_columns(const ForecastTable& t, const Plan& plan) {
  bool trended = false, seasonal = false;
  for (const Family& f : families()) {
    if (plan.family != nullptr && &f != plan.family) continue;
    trended = trended || f.trended;
    seasonal = seasonal || f.seasonal;
  }
  std::vector<std::string> states = {"LEVEL"};
  if (trended) states.emplace_back("TREND");
  if (seasonal) states.emplace_back("SEASON");
  std::vector<std::string> names;
  for (const TableColumn& c : t.columns) {
    if (std::find(states.begin(), states.end(), c.name) == states.end()) {
      names.push_back(c.name);
    } else if (std::find(names.begin(), names.end(), states.front()) == names.end()) {
      names.insert(names.end(), states.begin(), states.end());
    }
  }
  return names;
}

std::vector<int> column_map(const SeriesOutcome& o, const std::vector<std::string>& names) {
  const std::vector<TableColumn>& columns = o.result.table.columns;
  std::vector<int> map(names.size(), -1);
  std::size_t found = 0;
  for (std::size_t j = 0; j < names.size(); ++j) {
    for (std::size_t k = 0; k < columns.size(); ++k) {
      if (columns[k].name == names[j]) {
        map[j] = static_cast<int>(k);
        ++found;
        break;
      }
    }
  }
  if (found != columns.size()) {
    std::vector<std::string> have;
    for (const TableColumn& c : columns) have.push_back(c.name);
    throw RunError(fmt::format("series {}: its forecast table has the columns {}, not among {}", fmt::join(o.key, ","),
                               fmt::join(have, ","), fmt::join(names, ",")));
  }
  return map;
}

namespace {

// The time ID of row `row` as write_table_field writes it.
char* time_field(char* out, double t, std::size_t row, TimeUnits units) {
  if (units == TimeUnits::kNumber || esf::is_missing(t)) return host::write_table_field(out, t, 0, time_form(units));
  const std::string_view text = row_time_text(t, units, row);
  return std::copy(text.begin(), text.end(), out);
}

}  // namespace

std::string table_csv(const SeriesOutcome& o, const std::vector<int>& map, int lead, bool future_only) {
  const ForecastTable& t = o.result.table;
  std::string key;
  for (const std::string& k : o.key) key += csv_field(k) + ',';
  const std::size_t rows = t.rows();
  const std::size_t first_forecast = rows >= static_cast<std::size_t>(lead) ? rows - static_cast<std::size_t>(lead) : 0;
  const host::TimeForm form = time_form(t.units);
  std::vector<const double*> data(map.size(), nullptr);
  for (std::size_t j = 0; j < map.size(); ++j) {
    if (map[j] >= 0) data[j] = t.columns[static_cast<std::size_t>(map[j])].values.data();
  }
  // Each row is written in place at the end of one buffer, in room for its
  // longest text, which is then cut to what was written.
  constexpr std::string_view kHistory = ",history,\n", kForecast = ",forecast,";
  const std::size_t room =
      key.size() + map.size() * (host::kMaxTableFieldChars + 1) + kForecast.size() + 24;  // the lead and the line end
  const std::size_t first = future_only ? first_forecast : 0;
  // A value the same to the bit as the one above it in its column (a
  // constant STD over the history, a trend over the forecasts) copies that
  // one's text instead of writing it again.
  struct Above {
    std::uint64_t bits = 0;
    std::size_t at = 0, size = 0;  // where its text lies in `out`; size 0 for none
  };
  std::vector<Above> above(map.size());
  std::string out;
  out.reserve((rows - std::min(first, rows)) * room);
  for (std::size_t i = first; i < rows; ++i) {
    const std::size_t at = out.size();
    out.resize(at + room);
    char* const begin = out.data() + at;
    char* p = std::copy(key.begin(), key.end(), begin);
    for (std::size_t j = 0; j < map.size(); ++j) {
      if (j > 0) *p++ = ',';
      if (data[j] == nullptr) continue;
      if (map[j] == 0) {
        p = time_field(p, data[j][i], i, t.units);
        continue;
      }
      Above& a = above[j];
      const std::uint64_t bits = key_bits(data[j][i]);
      if (a.size > 0 && a.bits == bits) {
        p = std::copy_n(out.data() + a.at, a.size, p);
        continue;
      }
      char* const field = p;
      p = host::write_table_field(p, data[j][i], map[j], form);
      a = {bits, static_cast<std::size_t>(field - out.data()), static_cast<std::size_t>(p - field)};
    }
    if (i >= first_forecast) {
      p = std::copy(kForecast.begin(), kForecast.end(), p);
      p = std::to_chars(p, p + 20, i - first_forecast + 1).ptr;
      *p++ = '\n';
    } else {
      p = std::copy(kHistory.begin(), kHistory.end(), p);
    }
    out.resize(at + static_cast<std::size_t>(p - begin));
  }
  return out;
}

Json table_json(const SeriesOutcome& o, const std::vector<std::string>& names, const std::vector<int>& map, int lead,
                bool future_only) {
  const ForecastTable& t = o.result.table;
  const std::size_t rows = t.rows();
  const std::size_t first_forecast = rows >= static_cast<std::size_t>(lead) ? rows - static_cast<std::size_t>(lead) : 0;
  Json table = Json::object();
  for (std::size_t j = 0; j < map.size(); ++j) {
    Json values = Json::array();
    for (std::size_t i = future_only ? first_forecast : 0; i < rows; ++i) {
      const double v = map[j] < 0 ? esf::kMissing : t.columns[static_cast<std::size_t>(map[j])].values[i];
      if (esf::is_missing(v) || !std::isfinite(v)) {
        values.push_back(nullptr);
      } else {
        values.push_back(map[j] == 0 ? Json(format_time(v, t.units)) : Json(v));
      }
    }
    table[names[j]] = std::move(values);
  }
  Json lead_column = Json::array();
  for (std::size_t i = future_only ? first_forecast : 0; i < rows; ++i) {
    lead_column.push_back(i >= first_forecast ? Json(i - first_forecast + 1) : Json(nullptr));
  }
  table["LEAD"] = std::move(lead_column);
  return table;
}

}  // namespace esf::runner
