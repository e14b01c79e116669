// The runner over many series in one process: outcomes come in key order and
// are the same to the bit on one thread and on several, failures included.
// This is the test the ThreadSanitizer build runs.
#include <gtest/gtest.h>

#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "runner/batch.h"

namespace {

namespace fs = std::filesystem;
namespace runner = esf::runner;

struct BatchRun {
  std::vector<std::size_t> order;
  std::vector<bool> ok;
  std::vector<std::vector<std::uint64_t>> bits;  // every value of every table, as raw bits
};

// `rows_in_memory`: the table's rows read at once (0: the default).
BatchRun run_with(int threads, const std::string& model, const fs::path& table, std::size_t rows_in_memory = 0) {
  static runner::Loader loader;
  loader.load(ESF_MODULE);
  const runner::Runner run(loader);
  runner::ModelOptions o;
  o.model = model;
  o.interval = "MONTH";
  o.lead = 6;
  const runner::Plan plan = run.plan(o, true);
  runner::BatchOptions b;
  b.threads = threads;
  BatchRun r;
  runner::SeriesTable series(table.string(), {{"id"}, "", {}});
  if (rows_in_memory > 0) series.set_rows_in_memory(rows_in_memory);
  runner::run_batch(run, plan, series, b,
                    [&](runner::SeriesOutcome& out) {
                      r.order.push_back(out.ordinal);
                      r.ok.push_back(out.ok);
                      std::vector<std::uint64_t> bits;
                      for (const runner::TableColumn& c : out.result.table.columns) {
                        for (double v : c.values) bits.push_back(std::bit_cast<std::uint64_t>(v));
                      }
                      r.bits.push_back(std::move(bits));
                    });
  return r;
}

TEST(RunnerBatch, OutcomesInKeyOrderAndTheSameOnAnyNumberOfThreads) {
  const fs::path table = fs::temp_directory_path() / ("esf_batch_" + std::to_string(::getpid()) + ".csv");
  {
    std::ofstream out(table);
    out << "id,date,value\n";
    // Twelve series, rows interleaved; series 5 has one non-positive value.
    for (int i = 0; i < 48; ++i) {
      for (int s = 0; s < 12; ++s) {
        const double v = (s == 5 && i == 20) ? -1.0 : (50.0 + s + i) * (1.0 + 0.1 * std::sin(0.5236 * (i + s)));
        out << 's' << s << ',' << 2000 + i / 12 << '-' << (i % 12 < 9 ? "0" : "") << i % 12 + 1 << "-01," << v << '\n';
      }
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
    EXPECT_EQ(one.ok[5], std::string(model) != "winters");  // multiplicative Winters refuses the series
    EXPECT_FALSE(one.bits[0].empty());
  }
  fs::remove(table);
}

}  // namespace
