// Every model on the airline series (144 months, 12-step forecast with 95%
// limits), the whole road through the module's methods beside its parts:
//
//   BM_Methods/<model>       the fit method and the forecast method as a host
//                            calls them, from the lists, with the forecast
//                            table written to the host's memory and taken;
//                            the time of a pair, timed eight at a time
//   BM_Kernels/<model>       the start values, the estimation and the
//                            prediction pass alone, into a row buffer
//   BM_TableWrite/<model>/<sink>
//                            the family's table writer alone on the 156 rows
//                            of the prediction: sink 0 the host's memory
//                            (taken after each write), sink 1 a CSV file of a
//                            directory libref (written, closed and renamed)
//   BM_CsvText/<model>       the table in memory as CSV text, the way the
//                            command line writes its output
//
// Models: 0 simple, 1 double, 2 linear, 3 damped, 4 seasonal, 5 winters
// (multiplicative), 6 winters-additive.  What the methods add to the
// kernels is BM_Methods - BM_Kernels; of that, BM_TableWrite/0 is the table.
// BM_Methods counts the CPU time of its thread; the others' CPU column is
// the one to read on a shared machine.  Run from a Release build.
//
// Run on 2 shared cores with a load average of 1 to 5, Release, 2026-11-24,
// CPU time in microseconds (medians of 5; methods and kernels from one run):
//
//   model             methods  kernels  table to memory
//   simple               6.4      2.5        1.6
//   double              15.4     11.4        1.7
//   linear              12.8      8.9        1.7
//   damped              18.7     14.4        1.7
//   seasonal            45.7     39.7        1.7
//   winters             33.5     26.1        1.7
//   winters-additive    33.6     27.8        1.7
//
// The same build without the host's cheaper road (labels formatted into
// the caller's buffer, memory tables without pre-sized columns or a map,
// list indexes from the thread's cache, direct calls inside the host): 7.4,
// 16.3, 13.9, 19.6, 46.8, 33.6, 35.0 through the methods, 2.1 to 2.3 for
// the table to memory.
// The table to memory was 4.2 before the row dates were computed for a run
// of rows at once (calendar::aligned_run) and the rows handed to the host in
// one call (xyvputn).  The Winters table (156 rows) as CSV text: 35.8; to a
// CSV file 128 of CPU, the elapsed time mostly the file system's.
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/support/smooth_model.h"
#include "host/host.h"
#include "module/families.h"
#include "module/method_frame.h"
#include "runner/families.h"
#include "runner/series_csv.h"
#include "smoothing/es1fit.h"
#include "smoothing/es1subs.h"
#include "smoothing/es2fit.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3fit.h"
#include "smoothing/es3subs.h"
#include "smoothing/esdfit.h"
#include "smoothing/esdsubs.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"
#include "smoothing/winfit.h"
#include "smoothing/winsubs.h"

namespace {

namespace fs = std::filesystem;
namespace host = esf::host;

constexpr long kLead = 12;
constexpr int kSeasons = 12;
constexpr int kModels = 7;
const char* const kModelNames[kModels] = {"simple",   "double",  "linear",          "damped",
                                          "seasonal", "winters", "winters-additive"};

const std::vector<double>& air() {
  static const std::vector<double> x = smooth_test::example_series("AirPassengers.csv");
  return x;
}

const esf::runner::Family& family_of(int model) { return *esf::runner::find_family(kModelNames[model]); }

// ---- The methods -------------------------------------------------------------------

// The method of a slot of the method table.
METHODFN method_of(int slot) {
  smooth_test::connect_module();
  return esf::method_named(esf::method_name(slot));
}

// The series list of the airline data as a host passes it, built once.
List series_list() {
  static List series = [] {
    List s = host::new_list();
    host::set_text(s, "NAME", "AIR");
    host::set_text(s, "LABEL", "Air passengers");
    List data = host::add_list(s, "DATA");
    for (double v : air()) host::append_number(data, v);
    List dsinfo = host::add_list(s, "DSINFO");
    host::set_text(dsinfo, "TIMEID", "DATE");
    List info = host::add_list(dsinfo, "INTERVALINFO");
    host::set_text(info, "INTERVAL", "MONTH");
    host::set_integer(info, "NSEASONS", kSeasons);
    List range = host::add_list(host::add_list(s, "TIME_RANGES"), "DATA_RANGE");
    host::set_integer(range, "NOBS", static_cast<long>(air().size()));
    host::set_number(range, "STDATE", smooth_test::date(1949, 1, 1));
    return s;
  }();
  return series;
}

// CPU time of the calling thread, so that a loaded machine does not count.
double thread_seconds() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Fit and forecast pairs timed together: the clock of the thread is a
// system call of about 0.35 us, which timing each pair alone would count
// once per pair.
constexpr int kPairsPerTiming = 8;

// The lists and argument lists of one fit and forecast, for a new series.
struct MethodPair {
  List model = nullptr;
  host::MethodCall fit;
  host::MethodCall forecast;

  MethodPair(const esf::runner::Family& family, List series) : model(host::new_list()) {
    List spec = host::add_list(model, "MODEL_SPEC");
    if (family.type != nullptr) host::set_text(spec, "TYPE", family.type);
    if (family.code != nullptr) host::set_text(spec, "CODE", family.code);
    List fit_range = host::add_list(model, "FITRANGE");
    List eval_range = host::add_list(model, "EVALRANGE");
    fit.list(series).list(spec).list(fit_range).list(eval_range).list(model).number(0);
    forecast.list(series).list(model).list(eval_range).text("BENCHMEM.FC").number(0.05).number(kLead).number(0);
  }
  ~MethodPair() { host::free_list(model); }
};

void BM_Methods(benchmark::State& state) {
  const esf::runner::Family& family = family_of(static_cast<int>(state.range(0)));
  METHODFN fit = method_of(family.fit_slot);
  METHODFN forecast = method_of(family.forecast_slot);
  List series = series_list();
  host::assign_memory_libref("BENCHMEM");
  std::size_t rows = 0;
  for (auto _ : state) {
    // Fresh model lists, as for new series: not timed.
    std::vector<std::unique_ptr<MethodPair>> pairs;
    for (int k = 0; k < kPairsPerTiming; ++k) pairs.push_back(std::make_unique<MethodPair>(family, series));
    std::optional<host::MemoryTable> tables[kPairsPerTiming];

    const double t0 = thread_seconds();
    for (int k = 0; k < kPairsPerTiming; ++k) {
      fit(pairs[k]->fit.plist(), nullptr, nullptr, 0);
      forecast(pairs[k]->forecast.plist(), nullptr, nullptr, 0);
      tables[k] = host::take_memory_table("BENCHMEM.FC");
    }
    state.SetIterationTime((thread_seconds() - t0) / kPairsPerTiming);

    for (int k = 0; k < kPairsPerTiming; ++k) {
      if (pairs[k]->fit.return_code() != 0 || pairs[k]->forecast.return_code() != 0 || !tables[k]) {
        state.SkipWithError("a method failed");
        return;
      }
    }
    rows = tables[0]->rows();
  }
  state.counters["rows"] = static_cast<double>(rows);
}

// ---- The kernels ---------------------------------------------------------------------

// The airline series as a model of any family: season codes from January
// and the three factor arrays.
struct Airline {
  smooth_test::Model model{air(), 3};
  std::vector<int> codes;
  std::vector<double> block = std::vector<double>(3 * kSeasons);
  std::vector<double> factors = std::vector<double>(kSeasons);
  std::vector<double> rows = std::vector<double>(9 * (air().size() + kLead));

  Airline() {
    WINMODEL* m = model.get();
    for (long t = 0; t < m->ts.nobs; ++t) codes.push_back(static_cast<int>(t % kSeasons));
    m->ts.nseasons = kSeasons;
    m->ts.scodes = codes.data();
    m->startvals.sfactor = block.data();
    m->svi.sfactor = block.data() + kSeasons;
    m->smooth.sfactor = block.data() + 2 * kSeasons;
  }
};

// Start values, estimation and the prediction pass of a model; the kernels'
// first negative code, or 0.
int run_kernels(int model, Airline& a) {
  WINMODEL* m = a.model.get();
  double* x = m->ts.x;
  char* miss = m->ts.misflg;
  const long n = m->fitrange.nobs;
  const double norm = m->ts.descstats.norm;
  const double* w = m->pest.parms;
  double level = 0.0, trend = 0.0, mse = 0.0;
  int rc = 0;
  auto fit = [&](int start, int (*driver)(WINMODEL*)) {
    if (start < 0) return start;
    const int r = driver(m);
    level = m->svi.level;
    trend = m->svi.trend;
    a.factors.assign(m->svi.sfactor, m->svi.sfactor + kSeasons);
    return r < 0 ? r : 0;
  };
  switch (model) {
    case 0:
      rc = fit(zes1svi(x, miss, n, 1, &m->svi.level), nes1fit);
      if (rc == 0)
        rc = zes1prd(x, miss, norm, n, w[0], &level, 0, n - 1, kLead, m->pest.mse, 0.05, 0, &mse, a.rows.data());
      break;
    case 1:
      rc = fit(zesdsvi(x, miss, n, 1, &m->svi.level, &m->svi.trend), nesdfit);
      if (rc == 0)
        rc =
            zesdprd(x, miss, norm, n, w[0], &level, &trend, 0, n - 1, kLead, m->pest.mse, 0.05, 0, &mse, a.rows.data());
      break;
    case 2:
      rc = fit(zes2svi(x, miss, n, 1, &m->svi.level, &m->svi.trend), nes2fit);
      if (rc == 0)
        rc = zes2prd(x, miss, norm, n, w[0], w[1], &level, &trend, 0, n - 1, kLead, m->pest.mse, 0.05, 0, &mse,
                     a.rows.data());
      break;
    case 3:
      rc = fit(zes3svi(x, miss, n, 1, &m->svi.level, &m->svi.trend), nes3fit);
      if (rc == 0)
        rc = zes3prd(x, miss, norm, n, w[0], w[1], w[2], &level, &trend, 0, n - 1, kLead, m->pest.mse, 0.05, 0, &mse,
                     a.rows.data());
      break;
    case 4:
      rc = fit(zesssvi(x, miss, n, kSeasons, 0, 1, &m->svi.level, m->svi.sfactor), nessfit);
      if (rc == 0)
        rc = zessprd(x, miss, norm, n, kSeasons, w[0], w[1], &level, a.factors.data(), m->ts.scodes, 0, n - 1, kLead,
                     m->pest.mse, 0.05, 0, &mse, a.rows.data());
      break;
    default:
      m->additive = model == 6;
      rc = fit(zwinsvi(x, miss, n, kSeasons, 0, m->additive, 1, &m->svi.level, &m->svi.trend, m->svi.sfactor), nwinfit);
      if (rc == 0)
        rc = zwinprd(x, miss, norm, n, kSeasons, m->additive, w[0], w[1], w[2], &level, &trend, a.factors.data(),
                     m->ts.scodes, 0, n - 1, kLead, m->pest.mse, 0.05, 0, &mse, a.rows.data());
      break;
  }
  return rc;
}

void BM_Kernels(benchmark::State& state) {
  const int model = static_cast<int>(state.range(0));
  Airline a;
  for (auto _ : state) {
    if (run_kernels(model, a) < 0) {
      state.SkipWithError("a kernel failed");
      break;
    }
    benchmark::DoNotOptimize(a.rows.data());
    benchmark::ClobberMemory();
  }
}

// ---- The table ------------------------------------------------------------------------

using Writer = int(DATASET*, INTERVAL*, u_sname*, u_slabel*, u_sname*, double, char*, long, double);
Writer* const kWriters[kModels] = {es1out, esdout, es2out, es3out, smoothing::frame::write_family_table<ess::Family>,
                                   winout, winout};

void BM_TableWrite(benchmark::State& state) {
  const int model = static_cast<int>(state.range(0));
  const bool to_file = state.range(1) != 0;
  Airline a;
  if (run_kernels(model, a) < 0) {
    state.SkipWithError("a kernel failed");
    return;
  }
  WINMODEL* m = a.model.get();
  const fs::path dir = fs::temp_directory_path() / ("esf_method_bench_" + std::to_string(::getpid()));
  if (to_file) {
    fs::create_directories(dir);
    host::assign_libref("BENCHDIR", dir);
    a.model.output("BENCHDIR.FC");
  } else {
    host::assign_memory_libref("BENCHMEM");
    a.model.output("BENCHMEM.FC");
  }
  m->out.strptr = a.rows.data();
  const long nobs = m->fitrange.nobs + kLead;
  char align = 'B';
  for (auto _ : state) {
    const int rc = kWriters[model](&m->out, &m->ts.interval, &m->ts.name, &m->ts.label, &m->ts.timeid,
                                   m->fitrange.stdate, &align, nobs, 0.05);
    if (!to_file) benchmark::DoNotOptimize(host::take_memory_table("BENCHMEM.FC"));
    if (rc != 0) {
      state.SkipWithError("the writer failed");
      break;
    }
  }
  m->out.strptr = nullptr;
  state.counters["rows"] = static_cast<double>(nobs);
  if (to_file) fs::remove_all(dir);
}

void BM_CsvText(benchmark::State& state) {
  const int model = static_cast<int>(state.range(0));
  Airline a;
  if (run_kernels(model, a) < 0) {
    state.SkipWithError("a kernel failed");
    return;
  }
  WINMODEL* m = a.model.get();
  host::assign_memory_libref("BENCHMEM");
  a.model.output("BENCHMEM.FC");
  m->out.strptr = a.rows.data();
  char align = 'B';
  kWriters[model](&m->out, &m->ts.interval, &m->ts.name, &m->ts.label, &m->ts.timeid, m->fitrange.stdate, &align,
                  m->fitrange.nobs + kLead, 0.05);
  m->out.strptr = nullptr;
  const host::MemoryTable table = *host::take_memory_table("BENCHMEM.FC");
  std::vector<const double*> columns;
  for (const std::vector<double>& c : table.columns) columns.push_back(c.data());
  std::string text;
  for (auto _ : state) {
    text.clear();
    for (std::size_t j = 0; j < table.variables.size(); ++j) {
      if (j > 0) text += ',';
      text += table.variables[j].name;
    }
    text += '\n';
    for (std::size_t i = 0; i < table.rows(); ++i) {
      host::append_table_row(text, columns, i, host::TimeForm::kDate);
      text += '\n';
    }
    benchmark::DoNotOptimize(text.data());
  }
  state.counters["bytes"] = static_cast<double>(text.size());
}

void models(benchmark::internal::Benchmark* b) {
  for (int m = 0; m < kModels; ++m) b->Arg(m);
  b->ArgName("model")->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_Methods)->Apply(models)->UseManualTime();
BENCHMARK(BM_Kernels)->Apply(models);
BENCHMARK(BM_TableWrite)
    ->ArgsProduct({{0, 1, 2, 3, 4, 5, 6}, {0, 1}})
    ->ArgNames({"model", "file"})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CsvText)->Apply(models);

}  // namespace
