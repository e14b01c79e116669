// Speed of interval counting (zintck2) and advancing (zintnx2) for the
// built-in intervals, on a fixed set of random dates over the library's
// whole range. Both run once per observation when a series is placed on
// the calendar and once per row of a forecast table; the aim is at most
// 20 ns a call in a Release build.
//
// Run on (2 X 2096 MHz CPUs, a VM shared with other builds, load average
// about 2.5); Release build, g++ 12, x86-64 baseline instruction set. Median
// CPU time of five repetitions, ns per call:
//
//                 zintck2   zintnx2
//   DAY              3.5       5.5
//   WEEK             5.4       7.3
//   WEEKDAY         14.5      13.1
//   MONTH           10.1      14.0
//   QTR             12.6      16.5
//   YEAR            12.5      16.5
//   YEARV           15.4      14.2
//   R445MON         15.4      18.2
//   DTHOUR           7.5       6.9
#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "intervals/interval.h"

namespace {

constexpr int kDates = 4096;  // a power of two: the index wraps with a mask

struct Inputs {
  std::vector<double> days;     // date values
  std::vector<double> seconds;  // datetime values on the same days
  std::vector<double> counts;   // advance counts in [-60, 60]
};

const Inputs& inputs() {
  static const Inputs in = [] {
    Inputs r;
    std::mt19937_64 gen(20010131);
    // Stay 300 years inside the limits, so that no advance leaves them.
    std::uniform_int_distribution<long> day(-138061 + 110000, 6589335 - 110000);
    std::uniform_int_distribution<long> second(0, 86399);
    std::uniform_int_distribution<long> count(-60, 60);
    for (int i = 0; i < kDates; ++i) {
      const long d = day(gen);
      r.days.push_back(static_cast<double>(d));
      r.seconds.push_back(static_cast<double>(d) * 86400.0 + static_cast<double>(second(gen)));
      r.counts.push_back(static_cast<double>(count(gen)));
    }
    return r;
  }();
  return in;
}

INTERVAL parsed(const char* name) {
  INTERVAL iv{};
  zintstr(const_cast<tchar*>(name), -1, &iv);
  return iv;
}

const char* const kNames[] = {"DAY", "WEEK", "WEEKDAY", "MONTH", "QTR", "YEAR", "YEARV", "R445MON", "DTHOUR"};

void BM_zintck2(benchmark::State& state) {
  const char* name = kNames[state.range(0)];
  INTERVAL iv = parsed(name);
  const Inputs& in = inputs();
  const std::vector<double>& x = iv.units == 's' ? in.seconds : in.days;
  unsigned i = 0;
  for (auto _ : state) {
    const double a = x[i & (kDates - 1)];
    const double b = x[(i + 1) & (kDates - 1)];
    benchmark::DoNotOptimize(zintck2(&iv, a, b));
    ++i;
  }
  state.SetLabel(name);
}

void BM_zintnx2(benchmark::State& state) {
  const char* name = kNames[state.range(0)];
  INTERVAL iv = parsed(name);
  const Inputs& in = inputs();
  const std::vector<double>& x = iv.units == 's' ? in.seconds : in.days;
  unsigned i = 0;
  for (auto _ : state) {
    const unsigned k = i & (kDates - 1);
    benchmark::DoNotOptimize(zintnx2(&iv, x[k], in.counts[k]));
    ++i;
  }
  state.SetLabel(name);
}

BENCHMARK(BM_zintck2)->DenseRange(0, 8);
BENCHMARK(BM_zintnx2)->DenseRange(0, 8);

}  // namespace
