// The forecast driver and the output table writer shared by every family.
//
// A forecast runs the family's prediction pass over the fit range into a
// buffer of rows (m doubles each: actual, forecast, upper, lower, residual,
// standard error, then the family's states), continues it with `lead`
// forecasts, and writes the buffer as a host table of m + 1 numeric
// variables, the first being the date of the row:
//
//   | time ID | ACTUAL | FORECAST | Uxx | Lxx | RESIDUAL | STD | states...
//
// The forecast is the kernel's: a family trait F (see frame.h) names its
// kernel record (smoothing/pass_kernel.h), whose states, state columns and
// row width are stated there, and builds it from the model (the grid of the
// estimation runs the same record, see KernelGrid in family_traits.h):
//   using Kernel = ...;
//   static Kernel kernel(const WINMODEL&, const double* w, const int* scodes);
//        the record for the weights w and the season codes of the fit
//        range (null when the series has none)
#pragma once

#include <cmath>
#include <cstring>

#include "intervals/date_runs.h"
#include "intervals/interval.h"
#include "module/host_api.h"
#include "module/win_model.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/frame_limits.h"
#include "smoothing/pass_kernel.h"

namespace smoothing::frame {

// A state variable after STD: its name and the catalogue message of its label.
struct OutputColumn {
  const char* name;
  int message;
};

inline constexpr int kMessageModule = 881;  // the module's message catalogue
inline constexpr int kMsgForecast = 1100;   // args: length and text of the series label
inline constexpr int kMsgUpper = 1101;      // arg: (1 - cl) * 100 as a double
inline constexpr int kMsgLower = 1102;      // the same
inline constexpr int kMsgResidual = 1103;   // args: length and text of the series name
inline constexpr int kMsgStd = 1104;
inline constexpr int kMsgLevel = 1105;
inline constexpr int kMsgTrend = 1106;
inline constexpr int kMsgSeason = 1107;
inline constexpr int kLabelBytes = 256;
inline constexpr int kMaxTableVars = 10;  // Winters: time ID + 9 doubles
using esf::kWeightLimit;
inline constexpr int kPoolNumbers = 0x2004;  // pool flag word for arrays of numbers
inline constexpr long kDateRun = 256;        // row dates computed together

// The state variable of a kernel's column.
constexpr OutputColumn output_column(pass::Column column) {
  switch (column) {
    case pass::Column::level:
      return {"LEVEL", kMsgLevel};
    case pass::Column::trend:
      return {"TREND", kMsgTrend};
    case pass::Column::season:
      break;
  }
  return {"SEASON", kMsgSeason};
}

// The state variables of the kernel K, in the order of its columns.
template <class K>
struct StateColumns {
  OutputColumn column[pass::kStates<K>];
  constexpr StateColumns() : column{} {
    for (int k = 0; k < pass::kStates<K>; ++k) column[k] = output_column(K::kColumns[k]);
  }
};
template <class K>
inline constexpr StateColumns<K> kStateColumns{};

// Bytes of one state's factors: one double per season.
inline size_t factor_bytes(const WINMODEL* model) {
  return static_cast<size_t>(model->ts.nseasons > 0 ? model->ts.nseasons : 0) * sizeof(double);
}

// Copies the factors of one state into another.
inline void copy_factors(const WINMODEL* model, double* to, const double* from) {
  const size_t bytes = factor_bytes(model);
  if (bytes && to != from) std::memcpy(to, from, bytes);
}

// Every season code of rows 0..last lies within the cycle.
inline bool codes_fit(const int* scodes, long last, int nseasons) {
  if (nseasons < 1 || scodes == nullptr) return false;
  for (long t = 0; t <= last; ++t) {
    if (scodes[t] < 0 || scodes[t] >= nseasons) return false;
  }
  return true;
}

// Names of the two limits: with c = cl limited to [0.01, 0.99],
// n = 100 - floor(c * 100 + 0.4999999999), printed with three characters:
// U05 ... U99.  cl 0.05 gives U95 and L95.
inline int limit_percent(double cl) noexcept {
  double c = cl;
  if (c < 0.01) c = 0.01;
  if (c > 0.99) c = 0.99;
  return 100 - static_cast<int>(std::floor(c * 100.0 + 0.4999999999));
}

// Copies at most `max` characters of a counted name into a blank-padded field.
inline void copy_padded(const tchar* from, int len, tchar* to, int max) noexcept {
  std::memset(to, ' ', static_cast<size_t>(max));
  if (len > max) len = max;
  if (len > 0) std::memcpy(to, from, static_cast<size_t>(len));
}

// Writes `nobs` rows of `row_doubles` doubles from out->strptr as a new table
// named by out->dsname.  Returns 0, or -101 when the table cannot be created
// or its variables cannot be defined (the host's status goes to the log and a
// table already opened is discarded).
inline int write_table(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid, double stdate,
                       char* align, long nobs, double cl, int row_doubles, const OutputColumn* states, int nstates) {
  const int nvars = row_doubles + 1;
  if (nvars > kMaxTableVars || nstates != row_doubles - 6) return kTableFailed;

  // 1-2. The table's name.
  std::memset(&out->xopnstr, 0, sizeof out->xopnstr);
  out->xopnstr.opnmode = XO_OUTPUT;
  out->xopnstr.obs = -1;
  std::memset(out->xopnstr.name.lib.libref, ' ', sizeof out->xopnstr.name.lib.libref);
  std::memset(out->xopnstr.name.memtype, ' ', sizeof out->xopnstr.name.memtype);
  u_sname lib;
  u_sname mem;
  u_sname type;
  std::memset(&lib, 0, sizeof lib);
  std::memset(&mem, 0, sizeof mem);
  std::memset(&type, 0, sizeof type);
  int count = 0;
  if (znamdiv(0, out->dsname.label, out->dsname.label_l, &count, 3, &lib, &mem, &type) != 0) {
    return kTableFailed;
  }
  out->xopnstr.name.mem.name_l = mem.name_l;
  std::memcpy(out->xopnstr.name.mem.name, mem.name, sizeof mem.name);
  copy_padded(type.name, type.name_l, out->xopnstr.name.memtype, 8);
  copy_padded(lib.name, lib.name_l, out->xopnstr.name.lib.libref, 8);

  // 3. Open.
  int rc = xoopen(&out->xoparm, &out->xopnstr);
  if (rc < 0) {
    xprrlog(0, rc);
    return kTableFailed;
  }
  if (rc > 0) xprrlog(0, rc);
  XOFILE* fileid = out->xoparm.fileid;
  auto abandon = [&](int status) {
    xprrlog(0, status);
    xoclose(fileid, XO_ABORT);
    return kTableFailed;
  };

  // 4. Variables: numeric, 8 bytes, format 10.5; the time ID unformatted.
  NAMESTR namestr[kMaxTableVars];
  for (int j = 0; j < nvars; ++j) {
    xvnamei(&namestr[j]);
    namestr[j].ntype = 1;
    namestr[j].nlng = 8;
    namestr[j].nfl = 10;
    namestr[j].nfd = 5;
  }
  namestr[0].nfl = 0;
  namestr[0].nfd = 0;

  // 5. Begin the definition.
  rc = xvputi(fileid, nvars, 32, &out->xvp);
  if (rc < 0) return abandon(rc);
  if (rc > 0) xprrlog(0, rc);

  // 6. Names and labels.
  char labels[kMaxTableVars][kLabelBytes];
  int label_len[kMaxTableVars] = {};
  char upper_name[8];
  char lower_name[8];
  const int pct = limit_percent(cl);
  const int uname_l = xpsstr(upper_name, sizeof upper_name, pct < 10 ? "U0%1i" : "U%2i", pct);
  const int lname_l = xpsstr(lower_name, sizeof lower_name, pct < 10 ? "L0%1i" : "L%2i", pct);
  const double shown_pct = (1.0 - cl) * 100.0;  // the label shows the unclipped level
  label_len[2] =
      xpmstr(labels[2], kLabelBytes, kMessageModule, kMsgForecast, static_cast<int>(label->label_l), label->label);
  label_len[3] = xpmstr(labels[3], kLabelBytes, kMessageModule, kMsgUpper, shown_pct);
  label_len[4] = xpmstr(labels[4], kLabelBytes, kMessageModule, kMsgLower, shown_pct);
  label_len[5] =
      xpmstr(labels[5], kLabelBytes, kMessageModule, kMsgResidual, static_cast<int>(varname->name_l), varname->name);
  label_len[6] = xpmstr(labels[6], kLabelBytes, kMessageModule, kMsgStd);
  for (int k = 0; k < nstates; ++k) {
    label_len[7 + k] = xpmstr(labels[7 + k], kLabelBytes, kMessageModule, states[k].message);
  }
  auto set_name = [&](int j, const char* name, int len) {
    namestr[j].name_p = const_cast<tchar*>(name);
    namestr[j].namelen = static_cast<short>(len);
  };
  auto set_label = [&](int j, const char* text, int len) {
    namestr[j].label_p = const_cast<tchar*>(text);
    namestr[j].nlablen = static_cast<short>(len);
  };
  set_name(0, timeid->name, timeid->name_l);
  set_label(0, timeid->name, timeid->name_l);
  set_name(1, "ACTUAL", 6);
  set_label(1, label->label, label->label_l);
  set_name(2, "FORECAST", 8);
  set_name(3, upper_name, uname_l);
  set_name(4, lower_name, lname_l);
  set_name(5, "RESIDUAL", 8);
  set_name(6, "STD", 3);
  for (int k = 0; k < nstates; ++k) {
    set_name(7 + k, states[k].name, static_cast<int>(std::strlen(states[k].name)));
  }
  for (int j = 2; j < nvars; ++j) set_label(j, labels[j], label_len[j]);

  // 7. Bind each variable to its slot of the row buffer.
  double buf[kMaxTableVars];
  for (int j = 0; j < nvars; ++j) {
    rc = xvputd(out->xvp, &namestr[j], 0, &buf[j], 8, 0, 0);
    if (rc < 0) return abandon(rc);
    if (rc > 0) xprrlog(0, rc);
  }
  rc = xvpute(out->xvp);
  if (rc < 0) return abandon(rc);
  if (rc > 0) xprrlog(0, rc);

  // 8. Rows, dated from the first date of the fit range: row t takes
  // zintnx3(intv, stdate, t, align, 0), computed for a run of rows at once.
  const double* row = out->strptr;
  double dates[kDateRun];
  for (long t0 = 0; t0 < nobs; t0 += kDateRun) {
    const long run = nobs - t0 < kDateRun ? nobs - t0 : kDateRun;
    calendar::aligned_run(intv, stdate, t0, run, align, dates);
    // The run goes to the host in one call, its columns read in place.
    const double* first[kMaxTableVars];
    long stride[kMaxTableVars];
    first[0] = dates;
    stride[0] = 1;
    for (int j = 1; j < nvars; ++j) {
      first[j] = row + (j - 1);
      stride[j] = row_doubles;
    }
    xyvputn(out->xvp, &out->xoparm, run, first, stride);
    row += run * row_doubles;
  }

  // 9. End the transfer and keep the table.
  rc = xvputt(out->xvp);
  if (rc < 0) return abandon(rc);
  xoclose(fileid, 0);
  return kOk;
}

// The writer of a family: the row width and the state variables of its
// kernel.
template <class F>
int write_family_table(DATASET* out, INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid, double stdate,
                       char* align, long nobs, double cl) {
  using K = typename F::Kernel;
  return write_table(out, intv, varname, label, timeid, stdate, align, nobs, cl, pass::kRowDoubles<K>,
                     kStateColumns<K>.column, pass::kStates<K>);
}

// The state of the kernel K over the smoothed values v: the level[, the
// trend][, v's factors, in place]; and back.
template <class K>
typename K::State state_of(const SMOOTHVALS& v) {
  typename K::State s{};
  s.level = v.level;
  if constexpr (pass::Trended<K>) s.trend = v.trend;
  if constexpr (pass::Seasonal<K>) s.sfactor = v.sfactor;
  return s;
}
template <class K>
void keep_state(const typename K::State& s, SMOOTHVALS& v) {
  v.level = s.level;
  if constexpr (pass::Trended<K>) v.trend = s.trend;
}

// Sets model->smooth to the state the prediction pass starts from: svi
// (startflg 0, the pass runs its backcast first) or startvals (the state at
// time 0 as given); only the states that the kernel K has.
template <class K>
void forecast_start(WINMODEL* model, int startflg) {
  const SMOOTHVALS& from = startflg == 0 ? model->svi : model->startvals;
  model->smooth.level = from.level;
  if constexpr (pass::Trended<K>) model->smooth.trend = from.trend;
  if constexpr (pass::Seasonal<K>) {
    if (model->smooth.sfactor && from.sfactor) copy_factors(model, model->smooth.sfactor, from.sfactor);
  }
}

// The kernel's prediction pass (z..prd) from model->smooth over observations
// 0..end of the fit range into model->out.strptr, with model->lead
// forecasts and stats.mse from the pass; model->smooth keeps the state where
// the pass stopped.  A seasonal kernel needs its factors and a season code
// within the cycle for every row it reads (-2).
template <class F>
int predict(WINMODEL* model, const double* w, long end, int startflg) {
  using K = typename F::Kernel;
  const long first = model->fitrange.start;
  const int* scodes = model->ts.scodes ? model->ts.scodes + first : nullptr;
  if constexpr (pass::Seasonal<K>) {
    const long last = end > model->fitrange.nobs - 1 ? end : model->fitrange.nobs - 1;
    if (model->smooth.sfactor == nullptr || !codes_fit(scodes, last, model->ts.nseasons)) return kTooFew;
  }
  typename K::State s = state_of<K>(model->smooth);
  const int rc =
      pass::predict(F::kernel(*model, w, scodes), model->ts.x + first, model->ts.misflg + first, model->fitrange.nobs,
                    s, 0, end, model->lead, model->pest.mse, model->cl, startflg, &model->stats.mse, model->out.strptr);
  keep_state<K>(s, model->smooth);
  return rc;
}

// The forecast driver (nes1for and its sisters).  `startflg` non-zero means
// that model->startvals holds the state at time 0.  Returns the writer's
// result, -100 (no memory), -999 (a weight missing or beyond +-100) or the
// prediction pass's negative code.
template <class F>
int forecast(WINMODEL* model, int startflg) {
  using K = typename F::Kernel;
  constexpr int p = F::kNumWeights;
  forecast_start<K>(model, startflg);

  const long end = model->evalrange.end - model->fitrange.start;
  const long rows = static_cast<long>(model->lead) + end + 1;
  const long bytes = rows * static_cast<long>(pass::kRowDoubles<K>) * 8;
  model->out.strptr = static_cast<double*>(host_alloc(bytes, kPoolNumbers));
  if (!model->out.strptr) return kNoMemory;
  auto release = [&] {
    host_free(model->out.strptr);
    model->out.strptr = nullptr;
  };

  // Each weight falls back on the fit's estimate by itself (an absent array
  // counts as missing weights).
  double w[p];
  for (int i = 0; i < p; ++i) {
    w[i] = model->parms.parms ? model->parms.parms[i] : kMissing;
    if (esf::is_missing(w[i])) w[i] = model->pest.parms ? model->pest.parms[i] : kMissing;
    long count = 0;
    if (zmissr(w[i], kWeightLimit, &count) != 0) {
      release();
      return kUnusableWeights;
    }
  }

  int rc = predict<F>(model, w, end, startflg);
  if (rc < 0) {
    release();
    return rc;
  }

  char align = (model->align == 'E' || model->align == 'M') ? model->align : 'B';
  rc = write_family_table<F>(&model->out, &model->ts.interval, &model->ts.name, &model->ts.label, &model->ts.timeid,
                             model->fitrange.stdate, &align, end + 1 + model->lead, model->cl);
  release();
  return rc;
}

}  // namespace smoothing::frame
