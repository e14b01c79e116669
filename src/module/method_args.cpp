// The readers shared by the twelve methods: series, time ranges, weight
// bounds, start values and weights out of the caller's lists; the smoothed
// state and weight labels into them; the mapping of internal codes to the
// method's return code.
#include "module/method_args.h"

#include <cmath>
#include <cstring>

#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "smoothing/es1subs.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3subs.h"
#include "smoothing/esdsubs.h"
#include "smoothing/esssubs.h"
#include "smoothing/winsubs.h"

namespace {

using esf::kMissing;
using esf::kWeightLimit;

// Starting points of the running minimum and maximum of a series.
constexpr double kStartMin = 1.3407807929943e+154;
constexpr double kStartMax = -1.3407807929943e+154;
// Snap tolerance of a weight: this times the width of its bounds.
constexpr double kToleranceFactor = 1.110223024625157e-13;
// Default weight bounds; the damping weight has its own lower default when
// no bounds list is given at all.
constexpr double kLowerDefault = 0.001;
constexpr double kUpperDefault = 0.999;
constexpr double kDampLowerDefault = 0.9;

// The interval code of WEEK, whose seasonal start reads at most one cycle.
constexpr int kWeekCode = kIntWeek;

int len_of(const char* s) { return static_cast<int>(std::strlen(s)); }

// Named items of a list, by literal name.
int get_double(List list, const char* name, double* out, const double* dflt) {
  return slgnd(list, name, len_of(name), 1, 1, out, dflt);
}
int get_long(List list, const char* name, long* out, const long* dflt) {
  return slgni(list, name, len_of(name), 1, 1, out, dflt);
}
List get_list(List list, const char* name, FMCOM* fmcomp) {
  ListId id = 0;
  if (list == nullptr || slgnl(list, name, len_of(name), 1, 1, &id, nullptr) != 0 || id == 0) return nullptr;
  return slistp(id, fmcomp);
}
// A new list appended to `parent` under `name`; null when either step failed.
List add_list(List parent, const char* name, FMCOM* fmcomp, bool* failed) {
  List list = nullptr;
  const ListId id = slnewl(&list, fmcomp, 84);
  if (id == 0 || list == nullptr) {
    *failed = true;
    return nullptr;
  }
  if (slinsl(parent, id, -1, name, len_of(name)) != 0) *failed = true;
  return list;
}

// One range read from its list, with `d` supplying the defaults and limits.
// `base` is the first date of the data, from which indexes are counted.
int read_range(List list, const TIMERANGE& d, double base, long data_end, INTERVAL* interval, TIMERANGE* range,
               double* end_of_count) {
  // A present but missing NOBS keeps the default.
  long nobs = d.nobs;
  get_long(list, "NOBS", &nobs, &d.nobs);
  if (nobs > d.nobs) nobs = d.nobs;
  double stdate = d.stdate;
  get_double(list, "STDATE", &stdate, &d.stdate);
  if (stdate < d.stdate) stdate = d.stdate;
  const double e = zintnx2(interval, stdate, static_cast<double>(nobs - 1));
  double enddate = 0.0;
  get_double(list, "ENDDATE", &enddate, &e);
  if (enddate > e) enddate = e;
  const double start = zintck2(interval, base, stdate);
  const double end = zintck2(interval, base, enddate);
  *end_of_count = e;
  // A date the interval cannot count leaves no usable range.
  if (esf::is_missing(start) || esf::is_missing(end) || !std::isfinite(start) || !std::isfinite(end)) return -2;
  range->stdate = stdate;
  range->enddate = enddate;
  range->start = static_cast<long>(start);
  range->end = static_cast<long>(end);
  // The kernels read ts.x up to `end`; a range never reaches past the data.
  if (range->end > data_end) range->end = data_end;
  range->nobs = range->end - range->start + 1;
  return range->nobs < 2 ? -2 : 0;
}

// Start values read from a STARTVALS or SVI list. `lrc` gets the number of
// seasonal factors read, -1 without an SFACTORS list.
void read_state(List list, FMCOM* fmcomp, int type, int nseasons, SMOOTHVALS* state, long* lrc, List* sfactors) {
  get_double(list, "LEVEL", &state->level, &kMissing);
  get_double(list, "TREND", &state->trend, &kMissing);
  if (type >= kFamilySeasonal) {
    List sf = get_list(list, "SFACTORS", fmcomp);
    *lrc = sf != nullptr ? zgetnum(sf, nseasons, state->sfactor) : -1;
    if (sfactors != nullptr) *sfactors = sf;
  }
}

bool state_complete(const SMOOTHVALS& state, int type, int nseasons, long lrc) {
  if (esf::is_missing(state.level)) return false;
  const bool trended = (type >= kFamilyDouble && type <= kFamilyDamped) || type == kFamilyWinters;
  if (trended && esf::is_missing(state.trend)) return false;
  if (type >= kFamilySeasonal && lrc < nseasons) return false;
  return true;
}

// The family's start value routine over the fit range, into model->svi.
int family_start_values(int type, WINMODEL* model) {
  TSERIES& ts = model->ts;
  double* x = ts.x + model->fitrange.start;
  char* misflg = ts.misflg + model->fitrange.start;
  long n = model->fitrange.nobs;
  SMOOTHVALS& svi = model->svi;
  switch (type) {
    case kFamilySimple:
      return zes1svi(x, misflg, n, 1, &svi.level);
    case kFamilyDouble:
      return zesdsvi(x, misflg, n, 1, &svi.level, &svi.trend);
    case kFamilyLinear:
      return zes2svi(x, misflg, n, 1, &svi.level, &svi.trend);
    case kFamilyDamped:
      return zes3svi(x, misflg, n, 1, &svi.level, &svi.trend);
    default:
      break;
  }
  // Seasonal families: a weekly series reads at most one cycle.
  if (ts.interval.intcode == kWeekCode && n > ts.nseasons) n = ts.nseasons;
  // The start routines give their first factor to the season of the first
  // observation they are handed, which is the first of the fit range.
  const int nstart = ts.scodes != nullptr ? ts.scodes[model->fitrange.start] : 0;
  if (type == kFamilySeasonal) {
    return zesssvi(x, misflg, n, ts.nseasons, nstart, 1, &svi.level, svi.sfactor);
  }
  if (type == kFamilyWinters) {
    return zwinsvi(x, misflg, n, ts.nseasons, nstart, model->additive, 1, &svi.level, &svi.trend, svi.sfactor);
  }
  return -8;
}

}  // namespace

extern "C" {

long getseries(List tsList, TIMERANGE* datarange, TSERIES* ts) {
  const long n = ts->nobs;
  const double nd = static_cast<double>(n);
  const double xextr = esf::extreme_limit(nd);
  ts->xextr = xextr;

  if (ts->scodes != nullptr) {
    int nseasons = 0;
    zintscd(&ts->interval, datarange->stdate, 0, n, ts->scodes, &nseasons);
    ts->nstart = ts->scodes[0];
  }

  long nmiss = 0;
  long nextr = 0;
  double xmin = kStartMin;
  double xmax = kStartMax;
  double sum = 0.0;
  long i = 0;
  // Locals, not the records: the flag stores could alias them.
  double* const x = ts->x;
  char* const misflg = ts->misflg;
  SLIST_ITEM* last = nullptr;
  for (SLIST_ITEM* item = tsList->head; item != nullptr && i < n; item = item->next, ++i) {
    last = item;
    // The number of each numeric kind of item, read here rather than
    // through slgetnv: a call in the loop would keep the sums in memory.
    double value = kMissing;
    bool numeric = true;
    switch (item->type) {
      case SL_NUMBER:
        value = item->data.d;
        break;
      case SL_INTEGER:
      case SL_COUNT:
        value = static_cast<double>(item->data.i);
        break;
      case SL_SHORT:
        value = static_cast<double>(item->data.s);
        break;
      case SL_BOOLEAN:
        value = item->data.b != 0 ? 1.0 : 0.0;
        break;
      default:
        numeric = false;
        break;
    }
    // A value is usable when present and within the extreme limit; one
    // beyond it (or not a number) counts as extreme.
    bool usable = false;
    if (numeric && !esf::is_missing(value)) {
      usable = std::fabs(value) <= xextr;
      if (!usable) ++nextr;
    }
    if (usable) {
      x[i] = value;
      misflg[i] = 0;
      if (value < xmin) xmin = value;
      if (value > xmax) xmax = value;
      sum += value;
    } else {
      x[i] = kMissing;
      misflg[i] = 1;
      ++nmiss;
    }
  }
  // The walk ends on the last item read.
  tsList->lastUsed = last;
  tsList->lastIndex = i;
  // A list shorter than the series leaves its tail missing, uncounted.
  for (; i < n; ++i) {
    x[i] = kMissing;
    misflg[i] = 1;
  }

  const long nn = n - nmiss;
  if (nn < 1) return 0;
  ts->descstats.mean = sum / static_cast<double>(nn);
  ts->descstats.min = xmin;
  ts->descstats.max = xmax;
  ts->descstats.norm = std::fabs(xmin) > std::fabs(xmax) ? std::fabs(xmin) : std::fabs(xmax);
  ts->xextr = xextr;
  ts->nmiss = nmiss;
  ts->nextr = nextr;
  return nn;
}

int gettimes(List dataRangeList, List fitRangeList, List evalRangeList, long nobs, INTERVAL* interval,
             TIMERANGE* datarange, TIMERANGE* fitrange, TIMERANGE* evalrange) {
  TIMERANGE d{};
  d.stdate = 0.0;
  d.nobs = nobs;
  d.start = 0;
  d.end = nobs - 1;
  d.enddate = zintnx2(interval, 0.0, static_cast<double>(nobs - 1));

  // Data range.
  if (dataRangeList == nullptr) {
    *datarange = d;
  } else {
    long n = d.nobs;
    get_long(dataRangeList, "NOBS", &n, &d.nobs);
    if (n > d.nobs) n = d.nobs;
    double stdate = 0.0;
    get_double(dataRangeList, "STDATE", &stdate, &d.stdate);
    const double e = zintnx2(interval, stdate, static_cast<double>(n - 1));
    double enddate = 0.0;
    get_double(dataRangeList, "ENDDATE", &enddate, &e);
    if (enddate > e) enddate = e;
    datarange->stdate = stdate;
    datarange->enddate = enddate;
    datarange->nobs = n;
    datarange->start = 0;
    datarange->end = n - 1;
    if (n < 2) return -2;
  }

  // Fit range, defaulting to the data range.
  d = *datarange;
  if (fitRangeList == nullptr) {
    *fitrange = d;
  } else {
    double e = 0.0;
    const int rc = read_range(fitRangeList, d, datarange->stdate, datarange->end, interval, fitrange, &e);
    if (rc != 0) return rc;
    d.enddate = e;
  }

  // Evaluation range, defaulting to the start of the fit range through the
  // end of the data.
  d.stdate = fitrange->stdate;
  d.start = fitrange->start;
  d.nobs = datarange->end - fitrange->start + 1;
  if (evalRangeList == nullptr) {
    *evalrange = d;
  } else {
    double e = 0.0;
    const int rc = read_range(evalRangeList, d, datarange->stdate, datarange->end, interval, evalrange, &e);
    if (rc != 0) return rc;
  }
  return 0;
}

void getwgtbnd(List wgtbndList, WGTBNDS* wbnds) {
  wbnds->bounds = 1;
  wbnds->stability = 1;
  double* const lower[] = {&wbnds->wlevel[0], &wbnds->wtrend[0], &wbnds->wseason[0], &wbnds->wdamp[0]};
  double* const upper[] = {&wbnds->wlevel[1], &wbnds->wtrend[1], &wbnds->wseason[1], &wbnds->wdamp[1]};
  for (int k = 0; k < 4; ++k) {
    *lower[k] = kLowerDefault;
    *upper[k] = kUpperDefault;
  }
  wbnds->wdamp[0] = kDampLowerDefault;
  wbnds->wlevflg = 0;
  wbnds->wtreflg = 0;
  wbnds->wseaflg = 0;
  wbnds->wdamflg = 0;
  if (wgtbndList == nullptr) return;

  const double one = 1.0;
  double flag = 0.0;
  get_double(wgtbndList, "OPTWBND", &flag, &one);
  wbnds->bounds = flag > 0.0 ? 1 : 0;
  get_double(wgtbndList, "OPTWSTB", &flag, &one);
  wbnds->stability = flag > 0.0 ? 1 : 0;

  if (wbnds->bounds) {
    static const char* const kLowerNames[] = {"WLEVLBND", "WTRELBND", "WSEALBND", "WDAMLBND"};
    static const char* const kUpperNames[] = {"WLEVUBND", "WTREUBND", "WSEAUBND", "WDAMUBND"};
    for (int k = 0; k < 4; ++k) {
      get_double(wgtbndList, kLowerNames[k], lower[k], &kLowerDefault);
      get_double(wgtbndList, kUpperNames[k], upper[k], &kUpperDefault);
    }
    wbnds->wlevflg = wbnds->wlevel[0] == wbnds->wlevel[1];
    wbnds->wtreflg = wbnds->wtrend[0] == wbnds->wtrend[1];
    wbnds->wseaflg = wbnds->wseason[0] == wbnds->wseason[1];
    wbnds->wdamflg = wbnds->wdamp[0] == wbnds->wdamp[1];
  }
  wbnds->wlevel[2] = (wbnds->wlevel[1] - wbnds->wlevel[0]) * kToleranceFactor;
  wbnds->wtrend[2] = (wbnds->wtrend[1] - wbnds->wtrend[0]) * kToleranceFactor;
  wbnds->wseason[2] = (wbnds->wseason[1] - wbnds->wseason[0]) * kToleranceFactor;
  wbnds->wdamp[2] = (wbnds->wdamp[1] - wbnds->wdamp[0]) * kToleranceFactor;
}

int getstartvals(List modSpecList, FMCOM* fmcomp, int type, int sviflg, WINMODEL* model) {
  const int nseasons = model->ts.nseasons;
  SMOOTHVALS& startvals = model->startvals;
  SMOOTHVALS& svi = model->svi;
  startvals.level = startvals.trend = kMissing;
  svi.level = svi.trend = kMissing;
  if (type >= kFamilySeasonal) {
    for (int i = 0; i < nseasons; ++i) startvals.sfactor[i] = svi.sfactor[i] = kMissing;
  }

  long lrc1 = -1;
  long lrc2 = -1;
  List stv_list = get_list(modSpecList, "STARTVALS", fmcomp);
  if (stv_list != nullptr) read_state(stv_list, fmcomp, type, nseasons, &startvals, &lrc1, nullptr);
  List svi_list = get_list(modSpecList, "SVI", fmcomp);
  List svi_sfactors = nullptr;
  if (svi_list != nullptr) read_state(svi_list, fmcomp, type, nseasons, &svi, &lrc2, &svi_sfactors);

  int rc = state_complete(svi, type, nseasons, lrc2) ? 2 : 0;
  if (state_complete(startvals, type, nseasons, lrc1)) rc = 1;
  if (rc == 1 && sviflg != 0) return 1;
  if (rc == 2) return 2;

  // A fit always needs a start for its backward pass: compute one and keep
  // it in the model description as SVI.
  bool failed = false;
  if (svi_list == nullptr) svi_list = add_list(modSpecList, "SVI", fmcomp, &failed);
  if (type >= kFamilySeasonal && lrc2 == -1 && svi_list != nullptr) {
    svi_sfactors = add_list(svi_list, "SFACTORS", fmcomp, &failed);
  }

  const int src = family_start_values(type, model);
  if (src != 0) return src;

  if (svi_list != nullptr) {
    slinsd(svi_list, svi.level, -1, "LEVEL", 5);
    if (type >= kFamilyDouble && type != kFamilySeasonal) slinsd(svi_list, svi.trend, -1, "TREND", 5);
  }
  if (type >= kFamilySeasonal && svi_sfactors != nullptr) zslsetd(svi_sfactors, 1, svi.sfactor, nseasons);
  return 0;
}

int getweights(FMCOM* fmcomp, List modSpecList, List modelList, double* wlevel, double* wtrend, double* wdamp,
               double* wseason) {
  struct Wanted {
    const char* name;
    double* out;
  };
  const Wanted wanted[] = {{"LEVEL", wlevel}, {"TREND", wtrend}, {"DAMPING", wdamp}, {"SEASONAL", wseason}};
  auto read_all = [&](List weights) {
    bool usable = true;
    for (const Wanted& w : wanted) {
      if (w.out == nullptr) continue;
      long count = 0;
      if (get_double(weights, w.name, w.out, nullptr) != 0 || zmissr(*w.out, kWeightLimit, &count) != 0) {
        usable = false;
      }
    }
    return usable;
  };

  List spec_weights = get_list(modSpecList, "SMOOTHING_WEIGHTS", fmcomp);
  if (spec_weights != nullptr && read_all(spec_weights)) return 0;

  List parmvals = get_list(modelList, "PARMVALS", fmcomp);
  List fitted = get_list(parmvals, "SMOOTHING_WEIGHTS", fmcomp);
  if (fitted == nullptr || !read_all(fitted)) return -999;
  return 0;
}

int setsmoothstate(FMCOM* fmcomp, SMOOTHVALS* smooth, int nseasons, int trend, List pestList) {
  bool failed = false;
  List state = nullptr;
  List sfactors = nullptr;
  const ListId state_id = slnewl(&state, fmcomp, 84);
  const ListId sfactors_id = slnewl(&sfactors, fmcomp, 84);
  if (state_id == 0 || state == nullptr) {
    failed = true;
    state = nullptr;
  }
  if (sfactors_id == 0 || sfactors == nullptr) {
    failed = true;
    sfactors = nullptr;
  }
  if (state != nullptr) {
    if (slinsl(pestList, state_id, -1, "SMOOTHED_STATE", 14) != 0) failed = true;
    if (sfactors != nullptr && slinsl(state, sfactors_id, -1, "SFACTORS", 8) != 0) failed = true;
    if (slinsd(state, smooth->level, -1, "LEVEL", 5) != 0) failed = true;
    if (trend != 0 && slinsd(state, smooth->trend, -1, "TREND", 5) != 0) failed = true;
  }
  if (nseasons > 1 && sfactors != nullptr && zslsetd(sfactors, 1, smooth->sfactor, nseasons) != 0) {
    failed = true;
  }
  return failed ? -999 : 0;
}

int putstvlab(INTERVAL* /*intv*/, int /*nseasons*/, List stvnmList) {
  static const char* const kLabels[] = {"LEVEL Smoothing Weight", "TREND Smoothing Weight",
                                        "SEASONAL Smoothing Weight"};
  for (int i = 0; i < 3; ++i) {
    if (slsetc(stvnmList, i + 1, kLabels[i], len_of(kLabels[i]), 1) != 0) return -1;
  }
  return 0;
}

void mfree(double* x, char* misflg, int* scodes, double* sfactor, double* parms, long* df) {
  host_free(x);
  host_free(misflg);
  host_free(scodes);
  host_free(sfactor);
  host_free(parms);
  host_free(df);
}

int getreturn(PSCPLIST* plist, int rc, int rtype) {
  int code = 0;
  if (rc < 0) {
    switch (rc) {
      case -999:
        code = 999;
        break;
      case -101:
        code = 101;
        break;
      case -100:
        code = 100;
        break;
      case -9:
        code = 12;
        break;
      case -8:
        code = 8;
        break;
      case -7:
        code = 11;
        break;
      case -2:
        code = 2;
        break;
      default:
        code = 10;
        break;
    }
  }
  posretd(plist, rtype == 0 ? 7 : 8, static_cast<double>(code), 0);
  return code;
}

}  // extern "C"
