// Test support for the smoothing engines: a WINMODEL filled the way the
// argument readers fill it, with its arrays in the host's current pool (also
// the series the kernels' routines take), an independent
// simple-exponential-smoothing reference, and a reader of the output tables
// the forecast driver writes.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "file_text.h"  // beside this header, also for the benchmarks
#include "host/host.h"
#include "host/host_dates.h"
#include "intervals/interval.h"
#include "module/host_api.h"
#include "module/win_model.h"
#include "primitives/primitives.h"

namespace smooth_test {

// mcn_main stores the anchors through which the module reaches the pool and
// the host's overflow values; it runs once per test program.
inline void connect_module() {
  static const bool connected = [] {
    mcn_main(reinterpret_cast<ptr*>(esf::host::gcb_anchor()), reinterpret_cast<ptr>(esf::host::pidb()));
    return true;
  }();
  (void)connected;
}

// A scratch directory of this process assigned to the library reference
// `libref`, removed with everything in it at the end.
struct ScratchLibrary : support::ScratchDir {
  ScratchLibrary(const char* libref, const std::string& name) : ScratchDir(name) {
    esf::host::assign_libref(libref, path);
  }
};

// A test of the module's routines, with the module connected.
class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override { connect_module(); }
};

inline constexpr double kMiss = esf::kMissing;
inline bool is_miss(double d) { return wzmis(d) != 0; }

// got within rel * |want| of want.
inline void expect_rel(double got, double want, double rel, const std::string& what = "") {
  EXPECT_NEAR(got, want, rel * std::fabs(want) + 1e-300) << what;
}

// The date value of a calendar day: days since 1 January 1960.
inline double date(int y, int m, int d) { return ziddmdy(m, d, y); }

// The values of an example series (column "value" of examples/<name>).
inline std::vector<double> example_series(std::string_view name) {
  std::ifstream in(std::filesystem::path(ESF_SOURCE_DIR) / "examples" / std::string(name));
  std::vector<double> values;
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    const auto comma = line.find(',');
    if (comma == std::string::npos) continue;
    values.push_back(std::stod(line.substr(comma + 1)));
  }
  return values;
}

// Deterministic noise in [-1, 1).
class Noise {
 public:
  explicit Noise(std::uint64_t seed) : state_(seed) {}
  double next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11) / 4503599627370496.0 - 1.0;
  }

 private:
  std::uint64_t state_;
};

// A WINMODEL of one weight-family call, filled as the readers would: the
// series (NaN marks a missing value), descriptive statistics, MONTH ranges
// starting at `stdate`, default bounds, cl 0.05, and the pest / parms block.
// The arrays come from the host's current pool and go back in the destructor.
class Model {
 public:
  explicit Model(const std::vector<double>& values, int nparms = 1, double stdate = date(1949, 1, 1)) {
    connect_module();
    std::memset(&m_, 0, sizeof m_);
    const long n = static_cast<long>(values.size());
    m_.ts.nobs = n;
    m_.ts.x = static_cast<double*>(host_alloc(n * 8, VM_NUMBERS));
    m_.ts.misflg = static_cast<char*>(host_alloc(n, VM_FLAGS));
    block_ = static_cast<double*>(host_alloc(4 * nparms * 8, VM_NUMBERS));
    m_.pest.df = static_cast<long*>(host_alloc(nparms * 8, VM_NUMBERS));
    m_.pest.nparms = nparms;
    m_.parms.nparms = nparms;
    m_.pest.parms = block_;
    m_.pest.stderr = block_ + nparms;
    m_.pest.tvals = block_ + 2 * nparms;
    m_.parms.parms = block_ + 3 * nparms;
    for (int i = 0; i < 4 * nparms; ++i) block_[i] = kMiss;

    double mn = 1.3407807929943e+154, mx = -1.3407807929943e+154, sum = 0.0;
    long nmiss = 0;
    for (long t = 0; t < n; ++t) {
      if (std::isnan(values[t])) {
        m_.ts.x[t] = kMiss;
        m_.ts.misflg[t] = 1;
        ++nmiss;
      } else {
        m_.ts.x[t] = values[t];
        m_.ts.misflg[t] = 0;
        mn = std::fmin(mn, values[t]);
        mx = std::fmax(mx, values[t]);
        sum += values[t];
      }
    }
    m_.ts.nmiss = nmiss;
    if (nmiss < n) {
      m_.ts.descstats.min = mn;
      m_.ts.descstats.max = mx;
      m_.ts.descstats.mean = sum / static_cast<double>(n - nmiss);
      m_.ts.descstats.norm = std::fmax(std::fabs(mn), std::fabs(mx));
    }
    set_name(m_.ts.name, "AIR");
    set_label(m_.ts.label, "Air passengers");
    set_name(m_.ts.timeid, "DATE");
    zintstr(const_cast<tchar*>("MONTH"), 5, &m_.ts.interval);

    TIMERANGE all{};
    all.stdate = stdate;
    all.enddate = zintnx2(&m_.ts.interval, stdate, static_cast<double>(n - 1));
    all.nobs = n;
    all.start = 0;
    all.end = n - 1;
    m_.datarange = all;
    m_.fitrange = all;
    m_.evalrange = all;

    m_.wbnds.wlevel[0] = m_.wbnds.wtrend[0] = m_.wbnds.wseason[0] = 0.001;
    m_.wbnds.wlevel[1] = m_.wbnds.wtrend[1] = m_.wbnds.wseason[1] = m_.wbnds.wdamp[1] = 0.999;
    m_.wbnds.wdamp[0] = 0.9;
    m_.wbnds.bounds = 1;
    m_.wbnds.stability = 1;
    m_.cl = 0.05;
    m_.lead = 12;
  }
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;
  ~Model() {
    host_free(m_.ts.x);
    host_free(m_.ts.misflg);
    host_free(block_);
    host_free(m_.pest.df);
    host_free(m_.ts.scodes);
    host_free(factors_);
  }

  WINMODEL* get() { return &m_; }
  WINMODEL* operator->() { return &m_; }

  // Both bounds of the level weight (equal bounds fix the weight).
  void level_bounds(double lo, double hi, double tol = 0.0) {
    m_.wbnds.wlevel[0] = lo;
    m_.wbnds.wlevel[1] = hi;
    m_.wbnds.wlevel[2] = tol;
    m_.wbnds.wlevflg = lo == hi;
  }
  // A cycle of `ns` seasons: observation t is of season (t + first) mod ns;
  // the three factor arrays of startvals, svi and smooth.
  void seasons(int ns, int first = 0) {
    m_.ts.nseasons = ns;
    m_.ts.scodes = static_cast<int*>(host_alloc(m_.ts.nobs * 4, VM_NUMBERS));
    for (long t = 0; t < m_.ts.nobs; ++t) m_.ts.scodes[t] = static_cast<int>((t + first) % ns);
    factors_ = static_cast<double*>(host_alloc(3 * ns * 8, VM_NUMBERS));
    m_.startvals.sfactor = factors_;
    m_.svi.sfactor = factors_ + ns;
    m_.smooth.sfactor = factors_ + 2 * ns;
  }
  // Fit range: `nobs` observations from index `start` of the data.
  void fit_range(long start, long nobs) {
    m_.fitrange.start = start;
    m_.fitrange.end = start + nobs - 1;
    m_.fitrange.nobs = nobs;
    m_.fitrange.stdate = zintnx2(&m_.ts.interval, m_.datarange.stdate, static_cast<double>(start));
    m_.fitrange.enddate = zintnx2(&m_.ts.interval, m_.datarange.stdate, static_cast<double>(start + nobs - 1));
  }
  // Output table name, two levels ("WORK.OUT").
  void output(std::string_view dsname) {
    m_.out.dsname.label_l = static_cast<short>(dsname.size());
    std::memcpy(m_.out.dsname.label, dsname.data(), dsname.size());
  }

  static void set_name(u_sname& s, std::string_view text) {
    std::memset(s.name, ' ', sizeof s.name);
    std::memcpy(s.name, text.data(), text.size());
    s.name_l = static_cast<short>(text.size());
  }
  static void set_label(u_slabel& s, std::string_view text) {
    std::memset(s.label, ' ', sizeof s.label);
    std::memcpy(s.label, text.data(), text.size());
    s.label_l = static_cast<short>(text.size());
  }

 private:
  WINMODEL m_;
  double* block_ = nullptr;
  double* factors_ = nullptr;
};

// Mean squared one-step error of simple exponential smoothing with a
// backcast, written independently of the module: the level runs backward
// from `start` over the usable observations, then forward; a missing
// observation leaves the level alone and contributes nothing.
inline double ses_backcast_mse(const std::vector<double>& x, double w, double start, double* time0 = nullptr) {
  double level = start;
  for (std::size_t k = x.size(); k-- > 0;) {
    if (!std::isnan(x[k])) level = x[k] * w + level * (1.0 - w);
  }
  if (time0) *time0 = level;
  double sse = 0.0;
  long used = 0;
  for (double v : x) {
    if (std::isnan(v)) continue;
    const double e = level - v;
    sse += e * e;
    ++used;
    level = v * w + level * (1.0 - w);
  }
  return sse / static_cast<double>(used);
}

// Last usable observation, the start of the backcast.
inline double last_usable(const std::vector<double>& x) {
  for (std::size_t k = x.size(); k-- > 1;) {
    if (!std::isnan(x[k])) return x[k];
  }
  return std::nan("");
}

// An output table as the host stand-in wrote it: the header names and the
// rows, with missing fields as NaN.
struct Table {
  std::vector<std::string> names;
  std::vector<std::vector<double>> rows;

  int column(std::string_view name) const {
    for (std::size_t j = 0; j < names.size(); ++j) {
      if (names[j] == name) return static_cast<int>(j);
    }
    return -1;
  }
};

inline Table read_table(const std::filesystem::path& file) {
  Table table;
  std::ifstream in(file);
  std::string line;
  if (!std::getline(in, line)) return table;
  std::stringstream header(line);
  std::string field;
  while (std::getline(header, field, ',')) table.names.push_back(field);
  while (std::getline(in, line)) {
    std::vector<double> row;
    std::size_t from = 0;
    for (;;) {
      const std::size_t comma = line.find(',', from);
      const std::string cell = line.substr(from, comma == std::string::npos ? std::string::npos : comma - from);
      row.push_back(cell.empty() || cell[0] == '.' ? std::nan("") : std::stod(cell));
      if (comma == std::string::npos) break;
      from = comma + 1;
    }
    table.rows.push_back(std::move(row));
  }
  return table;
}

}  // namespace smooth_test
