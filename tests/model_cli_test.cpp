// The fit and forecast commands of esforecast, run as a separate process on
// the example series: estimates, forecast tables, saved models, many series
// in one run (the messages of bad input: bad_input_cli_test.cpp).
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/cli_run.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

using Outcome = support::CliOutcome;
using support::slurp;

class ModelCliTest : public ::testing::Test {
 protected:
  Outcome run(const std::vector<std::string>& args) { return support::run_cli(dir_, args); }

  fs::path write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return dir_ / name;
  }

  const support::ScratchDir scratch_{std::string("esf_cli_") +
                                     ::testing::UnitTest::GetInstance()->current_test_info()->name()};
  const fs::path& dir_ = scratch_.path;
};

std::string example(const char* name) { return std::string(ESF_SOURCE_DIR) + "/examples/" + name; }

std::vector<std::vector<std::string>> csv_rows(const std::string& text) {
  std::vector<std::vector<std::string>> rows;
  std::stringstream ss(text);
  std::string line;
  while (std::getline(ss, line)) {
    std::vector<std::string> fields;
    std::string f;
    std::stringstream ls(line);
    while (std::getline(ls, f, ',')) fields.push_back(f);
    if (!line.empty() && line.back() == ',') fields.emplace_back();
    rows.push_back(std::move(fields));
  }
  return rows;
}

// ---- fit -------------------------------------------------------------------------------

// --trace shows the search before the estimates; without it the output has
// no trace at all, only the estimates.
TEST_F(ModelCliTest, TraceShowsTheSearch) {
  const Outcome traced =
      run({"fit", "--model", "linear", "--interval", "MONTH", "--trace", example("USAccDeaths.csv")});
  ASSERT_EQ(traced.status, 0) << traced.err;
  const std::size_t head = traced.out.find(" Iter Subit  Criterion  NMiss");
  ASSERT_NE(head, std::string::npos) << traced.out;
  EXPECT_LT(head, traced.out.find("Error variance"));

  const Outcome quiet = run({"fit", "--model", "linear", "--interval", "MONTH", example("USAccDeaths.csv")});
  ASSERT_EQ(quiet.status, 0) << quiet.err;
  EXPECT_EQ(quiet.out.find("Iter Subit"), std::string::npos);
  for (const char* part : {"LEVEL Smoothing Weight", "Error variance", "Smoothed state"})
    EXPECT_NE(quiet.out.find(part), std::string::npos) << part;
}

// Without --interval the interval comes from the time IDs; a pandas alias
// stands for the interval of the same periods; dates that don't begin their
// periods get one remark naming the interval that would fit.
TEST_F(ModelCliTest, IntervalFromTheTimeIdsAliasesAndRemarks) {
  write("mondays.csv",
        "date,value\n2001-01-01,1\n2001-01-08,1\n2001-01-15,1\n2001-01-22,1\n2001-01-29,1\n2001-02-05,2\n"
        "2001-02-12,2\n2001-02-19,2\n2001-02-26,2\n");
  // Working days: Friday to Monday is three days, but one WEEKDAY.
  write("weekdays.csv", "d,v\n2001-05-03,1\n2001-05-04,2\n2001-05-07,3\n2001-05-08,4\n2001-05-11,5\n");
  write("hours.csv", "t,v\n2001-01-01T00:00,1\n2001-01-01T01:00,2\n2001-01-01 03:00,3\n");
  write("mixed.csv", "date,value\n2001-01-01,1\n2001-02-01,2\n2001-02-15,3\n");
  const struct {
    std::vector<std::string> args;
    int status;
    std::vector<std::string> err;  // parts the messages must hold; none: no remark
  } cases[] = {
      {{"--interval", "WEEK.2", "mondays.csv"}, 0, {}},
      {{"--interval", "W-SUN", "mondays.csv"}, 0, {"--interval W-SUN stands for WEEK.2\n"}},
      {{"--interval", "WEEK", "mondays.csv"},
       0,
       {"line 2, column \"date\": \"2001-01-01\" does not begin", "WEEK.2 would fit"}},
      {{"mondays.csv"}, 0, {"the time IDs fit WEEK.2"}},
      {{"hours.csv"}, 0, {"the time IDs fit DTHOUR"}},
      {{"weekdays.csv"}, 0, {"the time IDs fit WEEKDAY:"}},
      {{"mixed.csv"}, 1, {"no single interval fits", "lines 3 and 4"}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"fit"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Outcome r = run(args);
    SCOPED_TRACE(args.back() + " " + r.err);
    EXPECT_EQ(r.status, c.status);
    if (c.err.empty()) {
      EXPECT_EQ(r.err.find("does not begin"), std::string::npos);
    }
    for (const std::string& part : c.err) EXPECT_NE(r.err.find(part), std::string::npos);
    // One remark at most.
    const auto first = r.err.find("does not begin");
    EXPECT_TRUE(first == std::string::npos || r.err.find("does not begin", first + 1) == std::string::npos);
  }
}

// ---- forecast --------------------------------------------------------------------------

// The table runs from the start of the fit range to the end of the
// evaluation range, then the leads (12 unless told); its first column holds
// the time IDs as the input writes them, a value inside a period at the
// period's start, and a row without an actual value leaves that field empty.
TEST_F(ModelCliTest, ForecastTablesRunOverTheirRanges) {
  write("hours.csv",
        "stamp,load\n2020-03-01T00:00:00,5\n2020-03-01T01:30:00,6\n2020-03-01T02:00:00,8\n"
        "2020-03-01T03:00:00,7\n2020-03-01T04:00:00,9\n");
  write("obs.csv", "n,y\n1,3\n2,4\n3,6\n4,5\n");
  const struct {
    std::vector<std::string> args;
    std::size_t rows;                                 // with the header
    std::vector<std::pair<int, std::string>> firsts;  // row (from the end if negative), first field
  } cases[] = {
      {{example("AirPassengers.csv"), "--interval", "MONTH"},
       1 + 144 + 12,
       {{0, "date"}, {1, "1949-01-01"}, {144, "1960-12-01"}, {145, "1961-01-01"}, {-1, "1961-12-01"}}},
      {{example("AirPassengers.csv"), "--interval", "MONTH", "--fit-start", "1950-01-01", "--eval-end", "1955-12-01",
        "--lead", "2"},
       1 + 72 + 2,
       {{1, "1950-01-01"}, {-1, "1956-02-01"}}},
      {{"hours.csv", "--interval", "HOUR", "--lead", "1"},
       1 + 5 + 1,
       {{0, "stamp"}, {2, "2020-03-01T01:00:00"}, {-1, "2020-03-01T05:00:00"}}},
      {{"obs.csv", "--interval", "OBS", "--lead", "1"}, 1 + 4 + 1, {{1, "1"}, {-1, "5"}}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"forecast"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Outcome r = run(args);
    SCOPED_TRACE(c.args[0] + "\n" + r.err);
    ASSERT_EQ(r.status, 0);
    const auto rows = csv_rows(r.out);
    ASSERT_EQ(rows.size(), c.rows);
    for (const auto& [i, id] : c.firsts) EXPECT_EQ(rows[i < 0 ? rows.size() + i : i][0], id);
  }

  // With -o the same table, the defaults said aloud, goes to the file alone;
  // without --interval the time IDs give MONTH.
  const Outcome r = run({"forecast", "--model", "simple", "--interval", "MONTH", "--lead", "12", "--cl", "0.05",
                         example("AirPassengers.csv"), "-o", "forecast.csv"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.out.empty());
  const auto rows = csv_rows(slurp(dir_ / "forecast.csv"));
  EXPECT_EQ(rows[0],
            (std::vector<std::string>{"date", "ACTUAL", "FORECAST", "U95", "L95", "RESIDUAL", "STD", "LEVEL"}));
  EXPECT_EQ(rows[1][1], "112");
  EXPECT_EQ(rows.back()[1], "");
  EXPECT_EQ(run({"forecast", example("AirPassengers.csv")}).out, slurp(dir_ / "forecast.csv"));
}

// ---- Many series in one run ---------------------------------------------------

// Monthly multiplicative-seasonal series of different lengths, as the rows
// of a long table keyed by "id", the series' rows interleaved.
std::string stacked_table(int nseries) {
  std::vector<std::vector<std::string>> rows(static_cast<std::size_t>(nseries));
  for (int s = 0; s < nseries; ++s) {
    // Series in pairs of one length, the second of a pair a year later.
    for (int i = 0; i < 36 + 5 * (s / 2); ++i) {
      const double v =
          (100.0 + 3 * s + 0.7 * i) * (1.0 + 0.2 * std::sin(0.5236 * i)) * (1.0 + 0.01 * ((i * 7 + s) % 5));
      rows[static_cast<std::size_t>(s)].push_back(
          "s" + std::to_string(s) + "," + std::to_string(2000 + s % 2 + i / 12) + "-" + (i % 12 < 9 ? "0" : "") +
          std::to_string(i % 12 + 1) + "-01," + std::to_string(v) + "\n");
    }
  }
  std::string text = "id,date,value\n";
  for (std::size_t i = 0; i < 100; ++i) {
    for (auto& r : rows) {
      if (i < r.size()) text += r[i];
    }
  }
  return text;
}

TEST_F(ModelCliTest, StackedTableMatchesOneSeriesRuns) {
  const int nseries = 5;
  const fs::path table = write("stacked.csv", stacked_table(nseries));
  const Outcome all = run({"forecast", table.string(), "--by", "id", "--model", "winters", "--interval", "MONTH",
                           "--lead", "12", "--threads", "2", "-o", "out.csv"});
  ASSERT_EQ(all.status, 0) << all.err;
  std::istringstream lines(slurp(dir_ / "out.csv"));
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "id,date,ACTUAL,FORECAST,U95,L95,RESIDUAL,STD,LEVEL,TREND,SEASON,KIND,LEAD");
  std::vector<std::string> by_series(nseries);
  std::vector<int> leads(nseries);
  while (std::getline(lines, line)) {
    const std::size_t comma = line.find(',');
    const int s = std::stoi(line.substr(1, comma - 1));
    const std::size_t kind = line.rfind(',', line.rfind(',') - 1);
    if (line.compare(kind, 10, ",forecast,") == 0) {
      EXPECT_EQ(std::stoi(line.substr(kind + 10)), ++leads[s]);
    }
    by_series[s] += line.substr(comma + 1, kind - comma - 1) + "\n";
  }
  for (int s = 0; s < nseries; ++s) {
    SCOPED_TRACE(s);
    EXPECT_EQ(leads[s], 12);
    std::string one = "date,value\n";
    std::istringstream rows(slurp(table));
    std::getline(rows, line);
    while (std::getline(rows, line)) {
      if (line.rfind("s" + std::to_string(s) + ",", 0) == 0) one += line.substr(line.find(',') + 1) + "\n";
    }
    write("one.csv", one);
    const Outcome r = run({"forecast", "one.csv", "--model", "winters", "--interval", "MONTH", "--lead", "12"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.substr(r.out.find('\n') + 1), by_series[s]);
  }
}

TEST_F(ModelCliTest, PoisonedSeriesAreNamedAndTheOthersForecast) {
  std::string text = stacked_table(2);
  text += "short,2000-01-01,5\nshort,2000-02-01,6\n";
  for (int i = 0; i < 36; ++i) {
    text += "neg," + std::to_string(2000 + i / 12) + "-" + (i % 12 < 9 ? "0" : "") + std::to_string(i % 12 + 1) +
            "-01," + (i == 7 ? "-3" : std::to_string(50 + i)) + "\n";
  }
  text += "dup,2001-01-01,5\ndup,2001-01-20,6\n";
  write("poison.csv", text);
  const Outcome r = run({"forecast", "poison.csv", "--by", "id", "--model", "winters", "--interval", "MONTH", "-o",
                         "out.csv", "--status", "status.csv", "--quiet"});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("3 of 5 series failed"), std::string::npos) << r.err;
  const std::string status = slurp(dir_ / "status.csv");
  EXPECT_EQ(status.rfind("id,STATUS,REASON,RETURN_CODE\ns0,ok,", 0), 0u) << status;
  EXPECT_NE(status.find("short,failed,"), std::string::npos) << status;
  EXPECT_NE(status.find("line 83, field \"\"value\"\" holds -3"), std::string::npos) << status;
  EXPECT_NE(status.find("lines 112 and 113, column"), std::string::npos) << status;
  const std::string out = slurp(dir_ / "out.csv");
  EXPECT_NE(out.find("\ns1,"), std::string::npos);
  for (const char* poisoned : {"\nshort,", "\nneg,", "\ndup,"}) EXPECT_EQ(out.find(poisoned), std::string::npos);
}

// Without --interval each series runs on the interval its own time IDs fit,
// and one whose IDs fit none fails alone; under --model auto, series whose
// chosen families carry different states share one header, the states a
// family lacks left empty.
TEST_F(ModelCliTest, SeriesFindTheirOwnIntervalsAndAutoSharesOneHeader) {
  // First, and too short for two cycles: no seasonal family can be chosen.
  std::string text = "id,date,value\n";
  for (int i = 0; i < 20; ++i) {
    text += "short," + std::to_string(2000 + i / 12) + "-" + (i % 12 < 9 ? "0" : "") + std::to_string(i % 12 + 1) +
            "-01," + std::to_string(10 + i + (i * 7) % 3) + "\n";
  }
  text += stacked_table(2).substr(14);
  for (int i = 0; i < 12; ++i) {
    text += "q," + std::to_string(2000 + i / 4) + "-" + (i % 4 < 3 ? "0" : "") + std::to_string(3 * (i % 4) + 1) +
            "-01," + std::to_string(50 + i + 5 * (i % 4)) + "\n";
  }
  text += "odd,2000-01-01,1\nodd,2000-02-01,2\nodd,2000-02-18,3\nodd,2000-05-01,4\n";
  write("mixed.csv", text);
  const Outcome r = run({"forecast", "mixed.csv", "--by", "id", "--model", "auto", "--lead", "2", "-o", "out.csv",
                         "--estimates", "est.csv", "--quiet", "--threads", "1"});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("MONTH for 3 series, QTR for 1 series"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("odd: mixed.csv: no single interval fits"), std::string::npos) << r.err;
  const auto est = csv_rows(slurp(dir_ / "est.csv"));
  ASSERT_EQ(est.size(), 6u);
  EXPECT_EQ(est[0][3], "INTERVAL");
  EXPECT_EQ(est[1][2].find("winters"), std::string::npos);
  EXPECT_EQ(est[2][3], "MONTH");
  EXPECT_EQ(est[4][3], "QTR");
  EXPECT_EQ(est[5][1], "failed");
  const auto out = csv_rows(slurp(dir_ / "out.csv"));
  ASSERT_FALSE(out.empty());
  const std::vector<std::string> head(out[0].begin() + 7, out[0].end());
  EXPECT_EQ(head, (std::vector<std::string>{"STD", "LEVEL", "TREND", "SEASON", "KIND", "LEAD"}));
  std::set<std::string> series, empty_season;  // empty_season: series whose family has no SEASON
  for (std::size_t i = 1; i < out.size(); ++i) {
    ASSERT_EQ(out[i].size(), out[0].size());
    series.insert(out[i][0]);
    if (out[i][10].empty()) empty_season.insert(out[i][0]);
  }
  EXPECT_EQ(series, (std::set<std::string>{"short", "s0", "s1", "q"}));
  EXPECT_EQ(empty_season, std::set<std::string>{"short"});
  bool quarterly = false;  // the quarterly series' second lead
  for (const auto& row : out) quarterly = quarterly || (row[0] == "q" && row[1] == "2003-04-01" && row.back() == "2");
  EXPECT_TRUE(quarterly);
}

}  // namespace

// ---- How a fit ended, criteria, holdout, limits, selection ---------------

// Every fit says how it ended: a weight on a bound has no t value, and a fit
// that did not converge or left a weight on a bound says so in one warning
// line, with exit status 0.  A fit without bounds gives every weight its t
// value and no bounds.  The saved model carries the same report, and
// forecasts as the fit does: the same table, ending in the same state.
TEST_F(ModelCliTest, FitsSayHowTheyEnded) {
  struct Case {
    const char* file;
    const char* interval;
    const char* model;
    bool converged;
    bool unbounded = false;
  };
  const Case cases[] = {{"USAccDeaths.csv", "MONTH", "damped", false},
                        {"AirPassengers.csv", "MONTH", "double", true},
                        {"AirPassengers.csv", "MONTH", "winters", true},
                        {"UKgas.csv", "QTR", "seasonal", true},
                        {"AirPassengers.csv", "MONTH", "damped", true, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.file) + " " + c.model + (c.unbounded ? " without bounds" : ""));
    std::vector<std::string> args = {"fit",    "--model",      c.model,  "--interval",   c.interval,
                                     "--json", "--save-model", "m.json", example(c.file)};
    if (c.unbounded) args.push_back("--no-bounds");
    const Outcome r = run(args);
    ASSERT_EQ(r.status, 0) << r.err;
    const Json j = Json::parse(r.out);
    EXPECT_EQ(j["fit"]["converged"], c.converged);
    bool on_bound = false;
    for (const Json& w : j["weights"]) {
      const bool inside = w["position"] == (c.unbounded ? "without bounds" : "inside its bounds");
      on_bound = on_bound || !inside;
      EXPECT_EQ(w["tvalue"].is_null(), !inside) << w;
      EXPECT_EQ(w["bounds"][0].is_null(), c.unbounded) << w;
    }
    const bool warned = r.err.find("warning: ") != std::string::npos;
    EXPECT_EQ(warned, !c.converged || on_bound) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), warned ? 1 : 0) << r.err;
    const Json saved = Json::parse(slurp(dir_ / "m.json"));
    EXPECT_EQ(saved["fit"]["status"], j["fit"]["status"]);

    const Outcome fc =
        run({"forecast", "--model-file", "m.json", "--interval", c.interval, "--lead", "4", example(c.file)});
    ASSERT_EQ(fc.status, 0) << fc.err;
    std::vector<std::string> direct = {"forecast", "--model", c.model, "--interval",
                                       c.interval, "--lead",  "4",     example(c.file)};
    if (c.unbounded) direct.push_back("--no-bounds");
    EXPECT_TRUE(fc.out == run(direct).out);
    const auto rows = csv_rows(fc.out);
    EXPECT_EQ(std::stod(rows[rows.size() - 5][7]), j["smoothed_state"]["level"].get<double>());
  }
}

// The information criteria follow from the one-step errors of the forecast
// table: loglik = -n/2 (log(2 pi sse / n) + 1), AIC = -2 loglik + 2k.
TEST_F(ModelCliTest, CriteriaComeFromTheOneStepErrors) {
  const Outcome fit = run({"fit", "--model", "winters", "--interval", "MONTH", "--json", example("AirPassengers.csv")});
  ASSERT_EQ(fit.status, 0) << fit.err;
  const Json c = Json::parse(fit.out)["criteria"];
  const Outcome fc =
      run({"forecast", "--model", "winters", "--interval", "MONTH", "--lead", "0", example("AirPassengers.csv")});
  const auto rows = csv_rows(fc.out);
  double sse = 0.0;
  for (std::size_t i = 1; i < rows.size(); ++i) sse += std::pow(std::stod(rows[i][5]), 2);
  const double n = 144.0;
  const double loglik = -n / 2.0 * (std::log(2.0 * M_PI * sse / n) + 1.0);
  EXPECT_EQ(c["parameters"], 3 + 1 + 1 + 11 + 1);
  EXPECT_NEAR(c["loglik"].get<double>(), loglik, 1e-9 * std::fabs(loglik));
  EXPECT_NEAR(c["aic"].get<double>(), -2.0 * loglik + 2.0 * 17, 1e-9 * std::fabs(loglik));
  EXPECT_NEAR(Json::parse(fit.out)["accuracy"]["rmse"].get<double>(), std::sqrt(sse / n), 1e-9);

  // A shorter fit range: the criteria count its errors, the evaluation
  // range runs on to the end of the data.
  const Outcome part = run({"fit", "--model", "winters", "--interval", "MONTH", "--json", "--fit-end", "1958-12-01",
                            example("AirPassengers.csv")});
  ASSERT_EQ(part.status, 0) << part.err;
  const Json j = Json::parse(part.out);
  EXPECT_EQ(j["criteria"]["nobs"], 120);
  EXPECT_EQ(j["accuracy"]["n"], 120);
  EXPECT_EQ(j["evaluation_accuracy"]["n"], 144);
}

// Given every weight and the start state, forecast runs the recursion with
// nothing estimated: the table is the simple smoothing loop itself.
TEST_F(ModelCliTest, ForecastFromGivenWeightsAndStatesEstimatesNothing) {
  write("short.csv", "date,value\n2000-01-01,10\n2000-02-01,14\n2000-03-01,9\n");
  const Outcome r = run({"forecast", "--model", "simple", "--interval", "MONTH", "--level-weight", "0.25",
                         "--start-level", "12", "--lead", "2", "short.csv"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto rows = csv_rows(r.out);
  ASSERT_EQ(rows.size(), 1u + 3 + 2);
  double level = 12.0;
  const double x[] = {10.0, 14.0, 9.0};
  for (int t = 0; t < 3; ++t) {
    EXPECT_NEAR(std::stod(rows[1 + t][2]), level, 1e-12);
    level = 0.25 * x[t] + 0.75 * level;
  }
  EXPECT_NEAR(std::stod(rows[4][2]), level, 1e-12);
  EXPECT_NEAR(std::stod(rows[5][2]), level, 1e-12);
}

// --holdout keeps the held-out actual values in the table and reports the
// accuracy and the coverage of every pair of limits; --level adds one pair
// per level; --model auto prints its candidates and the choice.
TEST_F(ModelCliTest, AutoHoldoutAndLevels) {
  const Outcome r = run({"forecast", example("AirPassengers.csv"), "--model", "auto", "--interval", "MONTH",
                         "--holdout", "12", "--level", "80", "95"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto rows = csv_rows(r.out);
  ASSERT_EQ(rows.size(), 1u + 144);
  EXPECT_EQ(rows[0][3], "U80");
  EXPECT_EQ(rows[0][4], "L80");
  EXPECT_EQ(rows[0][rows[0].size() - 2], "U95");
  EXPECT_EQ(rows[0].back(), "L95");
  const auto data = csv_rows(slurp(example("AirPassengers.csv")));
  for (std::size_t i = 133; i <= 144; ++i) {
    EXPECT_EQ(std::stod(rows[i][1]), std::stod(data[i][1]));
    EXPECT_TRUE(rows[i][5].empty());  // no residual in a forecast row
    EXPECT_LT(std::stod(rows[i][3]), std::stod(rows[i][rows[0].size() - 2]));
  }
  for (const char* says :
       {"Model selection by AICc", "<- chosen", "12 held-out", "inside U80/L80", "inside U95/L95", "sMAPE"}) {
    EXPECT_NE(r.err.find(says), std::string::npos) << says << "\n" << r.err;
  }

  // Empirical limits replace the limit columns only.
  const Outcome e = run({"forecast", example("AirPassengers.csv"), "--model", "winters", "--interval", "MONTH",
                         "--lead", "6", "--limits", "empirical"});
  const Outcome f =
      run({"forecast", example("AirPassengers.csv"), "--model", "winters", "--interval", "MONTH", "--lead", "6"});
  ASSERT_EQ(e.status, 0) << e.err;
  const auto er = csv_rows(e.out), fr = csv_rows(f.out);
  ASSERT_EQ(er.size(), fr.size());
  for (std::size_t i = 1; i < er.size(); ++i) {
    EXPECT_EQ(er[i][2], fr[i][2]);
    EXPECT_NEAR(std::stod(er[i][3]) - std::stod(er[i][2]), std::stod(er[i][2]) - std::stod(er[i][4]), 1e-9);
  }
  EXPECT_NE(er.back()[3], fr.back()[3]);
}

// The thorough search keeps the lowest error variance among starts from
// every corner, never above the frame's, and inside the bounds. The bounds
// list is always complete: restating the defaults changes nothing.
TEST_F(ModelCliTest, ThoroughSearchFindsALowerErrorInsideTheBounds) {
  const Outcome frame = run({"fit", "--model", "damped", "--interval", "MONTH", "--json", example("USAccDeaths.csv")});
  const Outcome restated = run({"fit", "--model", "damped", "--interval", "MONTH", "--json", "--level-bounds",
                                "0.001,0.999", example("USAccDeaths.csv")});
  ASSERT_EQ(frame.status, 0) << frame.err;
  EXPECT_EQ(frame.out, restated.out);
  const Outcome thorough = run({"fit", "--model", "damped", "--interval", "MONTH", "--json", "--search", "thorough",
                                example("USAccDeaths.csv")});
  ASSERT_EQ(thorough.status, 0) << thorough.err;
  const Json a = Json::parse(frame.out), b = Json::parse(thorough.out);
  EXPECT_LT(b["error_variance"].get<double>(), 0.95 * a["error_variance"].get<double>());
  EXPECT_EQ(b["fit"]["search"], "thorough");
  for (const Json& w : b["weights"]) {
    EXPECT_GE(w["estimate"].get<double>(), w["bounds"][0].get<double>());
    EXPECT_LE(w["estimate"].get<double>(), w["bounds"][1].get<double>());
  }
}

// Observation numbers with a cycle: the seasons are numbered cyclically from
// the first observation, so a monthly series starting in January fits as it
// does under MONTH.
TEST_F(ModelCliTest, ObservationNumbersWithACycleFitAsTheCalendarDoes) {
  std::string numbered = "t,value\n";
  const auto data = csv_rows(slurp(example("AirPassengers.csv")));
  for (std::size_t t = 1; t < data.size(); ++t) numbered += std::to_string(t) + "," + data[t][1] + "\n";
  write("numbered.csv", numbered);
  for (const char* model : {"seasonal", "winters", "winters-additive"}) {
    SCOPED_TRACE(model);
    const Outcome obs =
        run({"fit", "--model", model, "--interval", "OBS", "--nseasons", "12", "--json", "numbered.csv"});
    const Outcome month = run({"fit", "--model", model, "--interval", "MONTH", "--json", example("AirPassengers.csv")});
    ASSERT_EQ(obs.status, 0) << obs.err;
    const Json a = Json::parse(obs.out), b = Json::parse(month.out);
    EXPECT_EQ(a["weights"], b["weights"]);
    EXPECT_EQ(a["error_variance"], b["error_variance"]);
    EXPECT_EQ(a["smoothed_state"], b["smoothed_state"]);
  }
}
