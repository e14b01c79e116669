// The shared body of the fit and forecast methods. A method reads its
// arguments, writes 999 into its return code at once, and from then on every
// stop without a code leaves that 999 standing; failures with a code go
// through getreturn, which overwrites it. Arrays come from the current pool
// and go back on every path after they were requested.
#include "module/method_frame.h"

#include <cstring>

#include "primitives/primitives.h"

namespace esf {
namespace {

// Default significance level and lead of a forecast whose arguments are
// missing.
constexpr double kDefaultSignificance = 0.5;
constexpr int kDefaultLead = 12;
// Longest series name, time ID name and label.
constexpr int kMaxName = 32;
constexpr int kMaxLabel = 256;
// The return code written before anything is read.
constexpr double kNothingRan = 999.0;
// Internal codes that getreturn maps.
constexpr int kTooFew = -2;
constexpr int kNoMemory = -100;

int len_of(const char* s) { return static_cast<int>(std::strlen(s)); }

// A text item: pointer into the list item and its length.
struct Text {
  tchar* p = nullptr;
  int n = 0;
};

// Reads a named text; with `dflt` an absent item gives the default. False
// when absent without default or of another kind.
bool get_text(List list, const char* name, Text* out, const char* dflt = nullptr) {
  return slgnc(list, name, len_of(name), 1, 1, &out->p, &out->n, dflt, dflt != nullptr ? len_of(dflt) : 0) == 0;
}

List get_list(List list, const char* name, FMCOM* fmcomp) {
  ListId id = 0;
  if (list == nullptr || slgnl(list, name, len_of(name), 1, 1, &id, nullptr) != 0 || id == 0) return nullptr;
  return slistp(id, fmcomp);
}

// A new list, appended to `parent` under `name` when a parent is given.
List new_list(List parent, const char* name, FMCOM* fmcomp) {
  List list = nullptr;
  const ListId id = slnewl(&list, fmcomp, 84);
  if (id != 0 && parent != nullptr) slinsl(parent, id, -1, name, len_of(name));
  return list;
}

void set_sname(u_sname* dst, const Text& t) {
  dst->name_l = static_cast<short>(t.n);
  vzmp(t.p, t.n, dst->name, kMaxName);
}

void set_slabel(u_slabel* dst, const tchar* p, int n) {
  dst->label_l = static_cast<short>(n);
  vzmp(p, n, dst->label, kMaxLabel);
}

// Whether the host asks for the iteration trace: its option FITTRACE holds 1.
bool trace_requested() {
  int len = 0;
  const tchar* value = xoptcgt("FITTRACE", &len);
  return len == 1 && value[0] == '1';
}

// The fit compares a TYPE or CODE item over the item's own length (an empty
// item matches); the forecast compares over all of the expected text.
bool text_matches(const Text& item, const char* text, bool over_item_length) {
  const int tl = len_of(text);
  if (over_item_length) return item.n <= tl && std::memcmp(item.p, text, item.n) == 0;
  return item.n >= tl && std::memcmp(item.p, text, tl) == 0;
}

// The series list's items up to the data range, common to fit and forecast.
struct SeriesLists {
  List data = nullptr;
  List interval_info = nullptr;
  List data_range = nullptr;
};

// NSEASONS into ts.nseasons when the method reads it (its absence leaves
// 0), then TIME_RANGES and its DATA_RANGE; false when either list is
// absent.
bool read_cycle_and_data_range(bool reads_nseasons, List seriesList, FMCOM* fmcomp, SeriesLists* lists,
                               WINMODEL* model) {
  if (reads_nseasons) {
    const long none = 0;
    long nseasons = 0;
    slgni(lists->interval_info, "NSEASONS", 8, 1, 1, &nseasons, &none);
    model->ts.nseasons = static_cast<int>(nseasons);
  }
  List time_ranges = get_list(seriesList, "TIME_RANGES", fmcomp);
  lists->data_range = get_list(time_ranges, "DATA_RANGE", fmcomp);
  return lists->data_range != nullptr;
}

// The pool arrays of one call, requested together and tested once.
struct Arrays {
  double* sfactor = nullptr;  // block of 3 * nseasons doubles
  double* parms = nullptr;    // block of 3 (fit) or 4 (forecast) * nparms doubles
};

bool allocate(const Family& family, int parts, WINMODEL* model, Arrays* arrays) {
  TSERIES& ts = model->ts;
  const long n = ts.nobs;
  const int np = family.nparms;
  const int ns = ts.nseasons > 0 ? ts.nseasons : 0;
  ts.x = static_cast<double*>(host_alloc(n * static_cast<long>(sizeof(double)), VM_NUMBERS));
  ts.misflg = static_cast<char*>(host_alloc(n, VM_FLAGS));
  bool seasonal_ok = true;
  if (family.seasonal) {
    ts.scodes = static_cast<int*>(host_alloc(n * static_cast<long>(sizeof(int)), VM_NUMBERS));
    arrays->sfactor = static_cast<double*>(host_alloc(3L * ns * static_cast<long>(sizeof(double)), VM_NUMBERS));
    seasonal_ok = ts.scodes != nullptr && (ns == 0 || arrays->sfactor != nullptr);
  }
  arrays->parms = static_cast<double*>(host_alloc(parts * np * static_cast<long>(sizeof(double)), VM_NUMBERS));
  model->pest.df = static_cast<long*>(host_alloc(np * static_cast<long>(sizeof(long)), VM_NUMBERS));
  model->parms.nparms = np;
  model->pest.nparms = np;

  const bool failed = xmemdef() != 0;
  if (failed || ts.x == nullptr || ts.misflg == nullptr || !seasonal_ok || arrays->parms == nullptr ||
      model->pest.df == nullptr) {
    return false;
  }
  if (family.seasonal) {
    model->startvals.sfactor = arrays->sfactor;
    model->svi.sfactor = arrays->sfactor + ns;
    model->smooth.sfactor = arrays->sfactor + 2 * ns;
  }
  for (int i = 0; i < parts * np; ++i) arrays->parms[i] = kMissing;
  model->pest.parms = arrays->parms;
  model->pest.stderr = arrays->parms + np;
  model->pest.tvals = arrays->parms + 2 * np;
  if (parts > 3) model->parms.parms = arrays->parms + 3 * np;
  return true;
}

void release(WINMODEL* model, Arrays* arrays) {
  mfree(model->ts.x, model->ts.misflg, model->ts.scodes, arrays->sfactor, arrays->parms, model->pest.df);
  model->ts.x = nullptr;
  model->ts.misflg = nullptr;
  model->ts.scodes = nullptr;
  model->pest.df = nullptr;
  arrays->sfactor = nullptr;
  arrays->parms = nullptr;
}

// Every season code of the series names one of the nseasons factors. A
// cycle length given in NSEASONS shorter than the interval's own would
// otherwise send the passes outside the factor arrays.
bool season_codes_fit(const WINMODEL& model) {
  const TSERIES& ts = model.ts;
  if (ts.nseasons < 1 || ts.scodes == nullptr) return false;
  for (long t = 0; t < ts.nobs; ++t) {
    if (ts.scodes[t] < 0 || ts.scodes[t] >= ts.nseasons) return false;
  }
  return true;
}

// Reads CODE and TYPE of a seasonal family's specification. False for a TYPE
// other than the family's.
bool read_code_and_type(const Family& family, List modSpecList, bool fit, WINMODEL* model) {
  Text code;
  get_text(modSpecList, "CODE", &code, family.code_default);
  Text type;
  get_text(modSpecList, "TYPE", &type, family.type_text);
  if (!text_matches(type, family.type_text, fit)) return false;
  if (family.winters) model->additive = text_matches(code, "WINTA", fit) ? 1 : 0;
  return true;
}

// Fills the five ESTIMATES lists of a successful fit.
void write_estimates(const Family& family, WINMODEL* model, List names, List values, List labels, List stderrs,
                     List tvals) {
  const MODELPEST& pest = model->pest;
  for (int i = 0; i < family.nparms; ++i) {
    slsetc(names, i + 1, family.names[i], len_of(family.names[i]), 1);
    slsetd(values, i + 1, pest.parms[i], 1);
    if (!family.labels_by_putstvlab) slsetc(labels, i + 1, family.labels[i], len_of(family.labels[i]), 1);
    slsetd(stderrs, i + 1, pest.stderr[i], 1);
    slsetd(tvals, i + 1, pest.tvals[i], 1);
  }
  if (family.labels_by_putstvlab) putstvlab(&model->ts.interval, model->ts.nseasons, labels);
}

// STARTVALS: the state at time 0 that the fit arrived at.
void write_startvals(const Family& family, WINMODEL* model, List modSpecList, FMCOM* fmcomp) {
  List startvals = new_list(modSpecList, "STARTVALS", fmcomp);
  if (startvals == nullptr) return;
  slinsd(startvals, model->startvals.level, -1, "LEVEL", 5);
  if (family.trended) slinsd(startvals, model->startvals.trend, -1, "TREND", 5);
  if (family.seasonal) {
    List sfactors = new_list(startvals, "SFACTORS", fmcomp);
    if (sfactors != nullptr) zslsetd(sfactors, 1, model->startvals.sfactor, model->ts.nseasons);
  }
}

}  // namespace

int run_fit_method(const Family& family, Drivers drivers, PSCPLIST* plist, List self, FITEND* end) {
  WINMODEL model;
  std::memset(&model, 0, sizeof model);
  if (end != nullptr) std::memset(end, 0, sizeof *end);
  FMCOM* fmcomp = plist != nullptr && plist->u != nullptr ? plist->u->fmcomp : nullptr;

  List seriesList = nullptr;
  List modSpecList = nullptr;
  List fitRangeList = nullptr;
  List evalRangeList = nullptr;
  List modelList = nullptr;
  int returnCode = 0;
  char returnCodeMissing = 0;
  int nArgs = 0;
  const int prc =
      posargs(plist, self, 6, 6, &nArgs, POS_LIST, &seriesList, POS_LIST, &modSpecList, POS_LIST, &fitRangeList,
              POS_LIST, &evalRangeList, POS_LIST, &modelList, POS_INT, &returnCode, &returnCodeMissing);
  posretd(plist, 7, kNothingRan, 0);
  returnCode = static_cast<int>(kNothingRan);
  if (family.winters && returnCodeMissing != 0) xpsout("%s: returnCode uninitialized", family.fit_method_name);
  if (prc != 0 || seriesList == nullptr || modSpecList == nullptr || fitRangeList == nullptr ||
      evalRangeList == nullptr || modelList == nullptr) {
    return 0;
  }

  // The series.
  Text name;
  if (!get_text(seriesList, "NAME", &name) || name.n > kMaxName) return 0;
  set_sname(&model.ts.name, name);
  SeriesLists lists;
  lists.data = get_list(seriesList, "DATA", fmcomp);
  if (lists.data == nullptr) return 0;
  model.ts.nobs = lists.data->length;
  if (model.ts.nobs < 2) {
    getreturn(plist, kTooFew, 0);
    return 0;
  }
  List dsinfo = get_list(seriesList, "DSINFO", fmcomp);
  lists.interval_info = get_list(dsinfo, "INTERVALINFO", fmcomp);
  Text interval;
  if (lists.interval_info == nullptr || !get_text(lists.interval_info, "INTERVAL", &interval)) return 0;
  zintstr(interval.p, interval.n, &model.ts.interval);
  if (!read_cycle_and_data_range(family.fit_reads_nseasons, seriesList, fmcomp, &lists, &model)) return 0;

  // The model description.
  if (family.seasonal && !read_code_and_type(family, modSpecList, true, &model)) return 0;
  getwgtbnd(get_list(modSpecList, "WEIGHT_BOUNDS", fmcomp), &model.wbnds);

  if (gettimes(lists.data_range, fitRangeList, evalRangeList, model.ts.nobs, &model.ts.interval, &model.datarange,
               &model.fitrange, &model.evalrange) != 0) {
    getreturn(plist, kTooFew, 0);
    return 0;
  }

  Arrays arrays;
  if (!allocate(family, 3, &model, &arrays)) {
    release(&model, &arrays);
    getreturn(plist, kNoMemory, 0);
    return 0;
  }
  if (getseries(lists.data, &model.datarange, &model.ts) < 2) {
    release(&model, &arrays);
    getreturn(plist, kTooFew, 0);
    return 0;
  }
  if (family.seasonal && !season_codes_fit(model)) {
    release(&model, &arrays);
    return 0;
  }
  int rc = getstartvals(modSpecList, fmcomp, family.type, 0, &model);
  if (rc < 0) {
    release(&model, &arrays);
    getreturn(plist, rc, 0);
    return 0;
  }
  model.opt.numeric = 0;
  model.opt.relative = 0;
  model.opt.trace = trace_requested() ? 1 : 0;
  rc = drivers.fit(&model);
  if (rc < 0) {
    release(&model, &arrays);
    getreturn(plist, rc, 0);
    return 0;
  }

  // Results into the model list: PARMVALS, ESTIMATES, FIT_STATS.
  List parmvals = new_list(modelList, "PARMVALS", fmcomp);
  List weights = new_list(parmvals, "SMOOTHING_WEIGHTS", fmcomp);
  List estimates = new_list(modelList, "ESTIMATES", fmcomp);
  List names = new_list(estimates, "NAMES", fmcomp);
  List values = new_list(estimates, "VALUES", fmcomp);
  List labels = new_list(estimates, "LABELS", fmcomp);
  List stderrs = new_list(estimates, "STDERRS", fmcomp);
  List tvals = new_list(estimates, "TVALS", fmcomp);
  List fit_stats = new_list(modelList, "FIT_STATS", fmcomp);
  new_list(fit_stats, "NAMES", fmcomp);
  new_list(fit_stats, "VALUES", fmcomp);

  for (int k = 0; k < family.n_weight_items; ++k) {
    const WeightItem& item = family.weight_items[k];
    slinsd(weights, model.pest.parms[item.parm], -1, item.name, len_of(item.name));
  }
  write_estimates(family, &model, names, values, labels, stderrs, tvals);
  slsni(estimates, family.nparms, "NPARMS", 6, 1, 1);
  slsnd(estimates, model.pest.mse, "SIGMA", 5, 1, 1);
  setsmoothstate(fmcomp, &model.smooth, family.seasonal ? model.ts.nseasons : 0, family.trended ? 1 : 0, estimates);
  write_startvals(family, &model, modSpecList, fmcomp);
  if (end != nullptr) *end = model.fitend;

  release(&model, &arrays);
  getreturn(plist, rc, 0);
  return 0;
}

int run_forecast_method(const Family& family, Drivers drivers, PSCPLIST* plist, List self) {
  WINMODEL model;
  std::memset(&model, 0, sizeof model);
  FMCOM* fmcomp = plist != nullptr && plist->u != nullptr ? plist->u->fmcomp : nullptr;

  List seriesList = nullptr;
  List modelList = nullptr;
  List evalRangeList = nullptr;
  tchar* dsname = nullptr;
  int dsname_l = 0;
  double cl = 0.0;
  char clMissing = 0;
  int lead = 0;
  char leadMissing = 0;
  int returnCode = 0;
  char returnCodeMissing = 0;
  int nArgs = 0;
  const int prc = posargs(plist, self, 7, 7, &nArgs, POS_LIST, &seriesList, POS_LIST, &modelList, POS_LIST,
                          &evalRangeList, POS_CHAR, &dsname, &dsname_l, POS_DOUBLE, &cl, &clMissing, POS_INT, &lead,
                          &leadMissing, POS_INT, &returnCode, &returnCodeMissing);
  if (clMissing != 0) cl = kDefaultSignificance;
  if (leadMissing != 0) lead = kDefaultLead;
  if (lead < 1) lead = 0;
  const int rtype = lead == 0 ? 1 : 2;
  model.cl = cl;
  model.lead = lead;
  posretd(plist, 8, kNothingRan, 0);
  returnCode = static_cast<int>(kNothingRan);
  if (prc != 0 || seriesList == nullptr || modelList == nullptr || evalRangeList == nullptr || dsname == nullptr) {
    return 0;
  }

  // The series.
  Text text;
  if (!get_text(seriesList, "NAME", &text, "NONE") || text.n > kMaxName) return 0;
  set_sname(&model.ts.name, text);
  if (!get_text(seriesList, "LABEL", &text, "NONE") || text.n > kMaxLabel) return 0;
  set_slabel(&model.ts.label, text.p, text.n);
  SeriesLists lists;
  lists.data = get_list(seriesList, "DATA", fmcomp);
  if (lists.data == nullptr) return 0;
  model.ts.nobs = lists.data->length;
  if (model.ts.nobs < 2) {
    getreturn(plist, kTooFew, rtype);
    return 0;
  }
  List dsinfo = get_list(seriesList, "DSINFO", fmcomp);
  lists.interval_info = get_list(dsinfo, "INTERVALINFO", fmcomp);
  if (lists.interval_info == nullptr) return 0;
  if (!get_text(lists.interval_info, "INTERVAL", &text, "NONE")) return 0;
  zintstr(text.p, text.n, &model.ts.interval);
  if (!get_text(dsinfo, "TIMEID", &text, "DATE") || text.n > kMaxName) return 0;
  set_sname(&model.ts.timeid, text);
  if (!read_cycle_and_data_range(family.forecast_reads_nseasons, seriesList, fmcomp, &lists, &model)) return 0;

  // The model a fit left. FITRANGE and EVALRANGE must be there, but may hold
  // no list; then the default ranges apply.
  List modSpecList = get_list(modelList, "MODEL_SPEC", fmcomp);
  if (modSpecList == nullptr) return 0;
  if (family.seasonal && !read_code_and_type(family, modSpecList, false, &model)) return 0;
  if (slsrchn(modelList, "FITRANGE", 8, 1, 1) == 0 || slsrchn(modelList, "EVALRANGE", 9, 1, 1) == 0) return 0;
  List fitRange = get_list(modelList, "FITRANGE", fmcomp);
  List evalRange = get_list(modelList, "EVALRANGE", fmcomp);
  List estimates = get_list(modelList, "ESTIMATES", fmcomp);
  if (estimates == nullptr) return 0;
  if (slgnd(estimates, "SIGMA", 5, 1, 1, &model.pest.mse, nullptr) != 0 &&
      slgnd(estimates, "EVAL_VARIANCE", 13, 1, 1, &model.pest.mse, nullptr) != 0) {
    model.pest.mse = 0.0;
  }

  if (gettimes(lists.data_range, fitRange, evalRange, model.ts.nobs, &model.ts.interval, &model.datarange,
               &model.fitrange, &model.evalrange) != 0) {
    getreturn(plist, kTooFew, rtype);
    return 0;
  }

  Arrays arrays;
  if (!allocate(family, 4, &model, &arrays)) {
    release(&model, &arrays);
    getreturn(plist, kNoMemory, rtype);
    return 0;
  }
  if (getseries(lists.data, &model.datarange, &model.ts) < 2) {
    release(&model, &arrays);
    getreturn(plist, kTooFew, rtype);
    return 0;
  }
  if (family.seasonal && !season_codes_fit(model)) {
    release(&model, &arrays);
    return 0;
  }

  double* p = model.parms.parms;
  const int* slot = family.weight_slot;
  auto weight = [&](int k) { return slot[k] >= 0 ? p + slot[k] : nullptr; };
  auto read_weights = [&] {
    return getweights(fmcomp, modSpecList, modelList, weight(0), weight(1), weight(2), weight(3));
  };
  int startflg = 0;
  auto read_start = [&](int* rc) {
    *rc = getstartvals(modSpecList, fmcomp, family.type, 1, &model);
    startflg = *rc == 1 ? 1 : 0;
    return *rc >= 0;
  };
  int rc = 0;
  if (family.winters) {
    if (!read_start(&rc)) {
      release(&model, &arrays);
      getreturn(plist, rc, rtype);
      return 0;
    }
    if (read_weights() != 0) {
      release(&model, &arrays);
      return 0;
    }
  } else {
    if (read_weights() != 0) {
      release(&model, &arrays);
      return 0;
    }
    if (!read_start(&rc)) {
      release(&model, &arrays);
      getreturn(plist, rc, rtype);
      return 0;
    }
  }

  set_slabel(&model.out.dsname, dsname, dsname_l > kMaxLabel ? kMaxLabel : dsname_l);
  rc = drivers.forecast(&model, startflg);
  if (rc < 0) {
    release(&model, &arrays);
    getreturn(plist, rc, rtype);
    return 0;
  }
  slsnd(estimates, model.stats.mse, "EVAL_VARIANCE", 13, 1, 1);
  release(&model, &arrays);
  getreturn(plist, rc, rtype);
  return 0;
}

}  // namespace esf
