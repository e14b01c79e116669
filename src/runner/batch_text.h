// The outcomes of a batch as text: the long output of forecast tables (CSV or
// JSON), one row of estimates per series, and CSV fields and lines.  Every
// front end that writes a batch's results writes them through these.
//
//   const std::vector<std::string> names = output_columns(outcome.result.table, plan);
//   const std::vector<int> map = column_map(outcome, names);
//   out += table_csv(outcome, map, /*lead=*/12, /*future_only=*/false);
#pragma once

#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "runner/batch.h"

namespace esf::runner {

using Json = nlohmann::ordered_json;

// A text field of a CSV line, quoted when it holds a comma, a quote, a line
// break or blanks at its ends; a line of such fields.
std::string csv_field(const std::string& s);
std::string csv_line(const std::vector<std::string>& fields);

// A cell of the estimates table: a number (NaN: missing) or a text.
using Cell = std::variant<double, std::string>;
std::string cell_text(const Cell& c);
// null for a missing number; counts (NOBS, ITERATIONS) stay integers.
Json cell_json(const Cell& c);

// The names of the estimates table's columns after the key, and the cells of
// one series under them: its status, model, interval, the weights with their
// standard errors, the error variance, how the fit ended and the criteria.
const std::vector<std::string>& estimate_names();
std::vector<Cell> estimate_cells(const SeriesOutcome& o);

// The columns of the long output after the key: those of a forecast table,
// with the state columns (LEVEL, TREND, SEASON) of every family the plan may
// run, so that series whose chosen families differ share one header.  The
// same for any series' table, as tables differ only in their states.
std::vector<std::string> output_columns(const ForecastTable& t, const Plan& plan);

// For each output column, its column in the series' table, or -1 where the
// series' family has none.  Throws RunError when the table has a column the
// output lacks.
std::vector<int> column_map(const SeriesOutcome& o, const std::vector<std::string>& names);

// The forecast table's rows of one series under the output's columns, each
// led by the key and followed by KIND (history or forecast) and LEAD: CSV
// lines, or one JSON object of columns (LEAD last).
std::string table_csv(const SeriesOutcome& o, const std::vector<int>& map, int lead, bool future_only);
Json table_json(const SeriesOutcome& o, const std::vector<std::string>& names, const std::vector<int>& map, int lead,
                bool future_only);

}  // namespace esf::runner
