// The runner over many series in one process: outcomes come in key order and
// are the same to the bit on one thread and on several, failures included.
// This is the test the ThreadSanitizer build runs.
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "runner/batch.h"
#include "support/file_text.h"

namespace {

namespace fs = std::filesystem;
namespace runner = esf::runner;

// Every value of a forecast table, as raw bits.
std::vector<std::uint64_t> table_bits(const runner::ForecastTable& table) {
  std::vector<std::uint64_t> bits;
  for (const runner::TableColumn& c : table.columns) {
    for (double v : c.values) bits.push_back(std::bit_cast<std::uint64_t>(v));
  }
  return bits;
}

struct BatchRun {
  std::vector<std::size_t> order;
  std::vector<bool> ok;
  std::vector<std::vector<std::uint64_t>> bits;  // every value of every table, as raw bits
};

// `rows_in_memory`: the table's rows (cells of a wide one) read at once (0:
// the default). `interval`: empty to have each series find its own.
BatchRun run_with(int threads, const std::string& model, const fs::path& table, std::size_t rows_in_memory = 0,
                  const std::string& interval = "MONTH", const runner::TableLayout& layout = {{"id"}, "", {}},
                  const std::function<void(runner::BatchOptions&)>& adjust = {}) {
  static runner::Loader loader;
  loader.load(ESF_MODULE);
  const runner::Runner run(loader);
  runner::ModelOptions o;
  o.model = model;
  o.interval = interval;
  o.lead = 6;
  const runner::Plan plan = run.plan(o, true);
  runner::BatchOptions b;
  b.threads = threads;
  if (adjust) adjust(b);
  BatchRun r;
  runner::SeriesTable series(table.string(), layout);
  if (rows_in_memory > 0) series.set_rows_in_memory(rows_in_memory);
  runner::run_batch(run, plan, series, b, [&](runner::SeriesOutcome& out) {
    r.order.push_back(out.ordinal);
    r.ok.push_back(out.ok);
    r.bits.push_back(table_bits(out.result.table));
  });
  return r;
}

TEST(RunnerBatch, OutcomesInKeyOrderAndTheSameOnAnyNumberOfThreads) {
  const support::ScratchDir dir("esf_batch");
  const fs::path table = dir.path / "long.csv", wide = dir.path / "wide.csv";
  {
    // Twelve series, rows interleaved, and the same as one column each;
    // series 5 has one non-positive value, series 7 lacks a row (an empty
    // field in the wide table).
    std::ofstream out(table), out_wide(wide);
    out << "id,date,value\n";
    out_wide << "date,s0,s1,s2,s3,s4,s5,s6,s7,s8,s9,s10,s11\n";
    for (int i = 0; i < 48; ++i) {
      const std::string date = fmt::format("{}-{:02}-01", 2000 + i / 12, i % 12 + 1);
      out_wide << date;
      for (int s = 0; s < 12; ++s) {
        const double v = (s == 5 && i == 20) ? -1.0 : (50.0 + s + i) * (1.0 + 0.1 * std::sin(0.5236 * (i + s)));
        if (s == 7 && i == 30) {
          out_wide << ',';
          continue;
        }
        out << 's' << s << ',' << date << ',' << v << '\n';
        out_wide << ',' << v;
      }
      out_wide << '\n';
    }
  }
  for (const char* model : {"winters", "damped"}) {
    SCOPED_TRACE(model);
    const BatchRun one = run_with(1, model, table);
    // Read a few series at a time (the interleaved rows in several passes).
    const BatchRun three = run_with(3, model, table, 100);
    ASSERT_EQ(one.order.size(), 12u);
    for (std::size_t i = 0; i < one.order.size(); ++i) EXPECT_EQ(one.order[i], i);
    EXPECT_EQ(three.order, one.order);
    EXPECT_EQ(three.ok, one.ok);
    EXPECT_EQ(three.bits, one.bits);
    // Found from the time IDs, on two threads sharing the interval's plan.
    const BatchRun found = run_with(2, model, table, 0, "");
    EXPECT_EQ(found.ok, one.ok);
    EXPECT_EQ(found.bits, one.bits);
    // The wide table read two columns a pass.
    const BatchRun by_column = run_with(2, model, wide, 100, "MONTH", {{}, "", {"*"}});
    EXPECT_EQ(by_column.order, one.order);
    EXPECT_EQ(by_column.bits, one.bits);
    EXPECT_EQ(one.ok[5], std::string(model) != "winters");  // multiplicative Winters refuses the series
    EXPECT_FALSE(one.bits[0].empty());
  }
}

// With the first series held in its preparation, the other worker runs the
// series of the window after it and then waits, however many follow.
TEST(RunnerBatch, AStalledSeriesHoldsTheOthersWithinTheWindow) {
  const support::ScratchDir dir("esf_window");
  const fs::path table = dir.path / "long.csv";
  {
    std::ofstream out(table);
    out << "id,date,value\n";
    for (int s = 0; s < 40; ++s) {
      for (int i = 1; i <= 12; ++i) out << 's' << s << ",2000-" << i << "-01," << 10 + (s * i) % 7 << '\n';
    }
  }
  std::atomic<int> others{0};
  int seen = -1;
  run_with(2, "simple", table, 0, "MONTH", {{"id"}, "", {}}, [&](runner::BatchOptions& b) {
    b.window = 4;
    b.prepare = [&](runner::SeriesOutcome& o) {
      if (o.ordinal > 0) {
        ++others;
        return;
      }
      while (others < 3) std::this_thread::yield();
      for (int i = 0; i < 20000; ++i) std::this_thread::yield();
      seen = others;
    };
  });
  EXPECT_EQ(seen, 3);
}

}  // namespace

// A forecast reports the fit's criteria and accuracy from its own table; they
// must be those of the fit alone, to the bit, for every family and with the
// ranges moved.
TEST(RunnerBatch, AForecastReportsTheCriteriaOfItsFit) {
  static runner::Loader loader;
  loader.load(ESF_MODULE);
  const runner::Runner run(loader);
  const runner::CsvSeries s = runner::read_series_csv(std::string(ESF_SOURCE_DIR) + "/examples/AirPassengers.csv", "",
                                                      "", runner::TimeUnits::kDate);
  auto bits = [](const runner::FitResult& f) {
    std::vector<std::uint64_t> b;
    for (double v : {f.criteria.aic, f.criteria.aicc, f.criteria.bic, f.fit_accuracy.rmse, f.fit_accuracy.mase,
                     f.fit_accuracy.mape, f.eval_accuracy.rmse, f.eval_accuracy.mae, f.eval_accuracy.smape}) {
      b.push_back(std::bit_cast<std::uint64_t>(v));
    }
    b.push_back(static_cast<std::uint64_t>(f.eval_accuracy.n));
    return b;
  };
  // Variant 1 holds out 9 observations, variant 2 moves the ranges.
  auto options = [](const std::string& model, int variant) {
    runner::ModelOptions o;
    o.model = model;
    o.interval = "MONTH";
    o.levels = {80.0, 95.0};
    if (variant == 1) o.holdout = 9;
    if (variant == 2) {
      o.fit_end = "1957-12-01";
      o.eval_start = "1955-01-01";
    }
    return o;
  };
  for (const runner::Family& family : runner::families()) {
    for (int variant = 0; variant < 3; ++variant) {
      SCOPED_TRACE(std::string(family.name) + " variant " + std::to_string(variant));
      runner::ModelOptions o = options(family.name, variant);
      o.cl = 0.2;
      const runner::FitResult fit = run.fit(run.plan(o, false), s);
      const runner::ForecastResult fc = run.forecast(run.plan(o, true), s);
      EXPECT_EQ(bits(fc.fit), bits(fit));
      EXPECT_GT(fit.eval_accuracy.n, 0);
    }
  }
  // --model auto forecasts with the fit it chose by: the same as naming the
  // chosen family, to the bit.
  for (int variant = 0; variant < 2; ++variant) {
    SCOPED_TRACE("auto variant " + std::to_string(variant));
    runner::ModelOptions o = options(runner::kAutoModel, variant);
    const runner::ForecastResult a = run.forecast(run.plan(o, true), s);
    ASSERT_TRUE(a.fit.choice.has_value());
    o.model = a.fit.choice->chosen;
    const runner::ForecastResult named = run.forecast(run.plan(o, true), s);
    EXPECT_EQ(bits(a.fit), bits(named.fit));
    EXPECT_EQ(table_bits(a.table), table_bits(named.table));
    EXPECT_FALSE(a.table.columns.empty());
  }
  // --select holdout scores each family as a run of it holding out a season does.
  runner::ModelOptions o = options(runner::kAutoModel, 0);
  o.select = runner::Selection::kHoldout;
  const runner::AutoChoice choice = run.choose(run.plan(o, true), s);
  ASSERT_EQ(choice.selection_holdout, 12);
  for (const runner::Candidate& c : choice.candidates) {
    SCOPED_TRACE(c.model);
    o.model = c.model;
    o.holdout = o.lead = 12;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(c.score),
              std::bit_cast<std::uint64_t>(run.forecast(run.plan(o, true), s).holdout_accuracy.mase));
  }
}

// Fields of CSV lines, read into one vector after another so that a shorter
// line follows a longer one; a line without quotes must split as the same
// line with its fields quoted.
TEST(RunnerCsv, SplitsLinesWithAndWithoutQuotes) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"id,date,value,extra", {"id", "date", "value", "extra"}},
      {" a , b\t,,", {"a", "b", "", ""}},
      {"x", {"x"}},
      {"", {""}},
      {"a long field of more than fifteen bytes,2", {"a long field of more than fifteen bytes", "2"}},
      {"\"a,b\",\"say \"\"hi\"\"\"", {"a,b", "say \"hi\""}},
  };
  std::vector<std::string> fields;
  for (const auto& [line, want] : cases) {
    SCOPED_TRACE(line);
    ASSERT_TRUE(runner::split_csv_line(line, &fields));
    EXPECT_EQ(fields, want);
    if (line.find('"') != std::string::npos) continue;
    std::string quoted;
    for (std::size_t i = 0; i < want.size(); ++i) quoted += (i > 0 ? ",\"" : "\"") + want[i] + "\"";
    std::vector<std::string> again;
    ASSERT_TRUE(runner::split_csv_line(quoted, &again));
    EXPECT_EQ(again, fields);
  }
  EXPECT_FALSE(runner::split_csv_line("\"open,1", &fields));
}
