// The method argument readers and the list bridge, on lists built through
// the host stand-in.
#include "module/method_args.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/method_session.h"

namespace {

using esf::host::add_list;
using esf::host::append_integer;
using esf::host::append_number;
using esf::host::append_text;
using esf::host::find_list;
using esf::host::find_number;
using esf::host::find_text;
using esf::host::items;
using esf::host::new_list;
using esf::host::set_number;
using esf::host::set_text;
using method_test::date;
using method_test::names_of;
using method_test::texts_of;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class ArgsTest : public smooth_test::ModuleTest {
 protected:
  void TearDown() override {
    for (List l : owned_) esf::host::free_list(l);
  }
  List make() {
    List l = new_list();
    owned_.push_back(l);
    return l;
  }
  std::vector<List> owned_;
};

INTERVAL interval_of(const char* name) {
  INTERVAL iv{};
  EXPECT_EQ(zintstr(const_cast<tchar*>(name), static_cast<int>(std::strlen(name)), &iv), 0) << name;
  return iv;
}

// ---- getwgtbnd ---------------------------------------------------------------

TEST_F(ArgsTest, WeightBoundsFromList) {
  struct Case {
    const char* what;
    bool list;
    std::vector<std::pair<const char*, double>> items;
    char bounds, stability;
    double wlevel_lo, wlevel_hi, wdamp_lo;
    char wlevflg, wdamflg;
  };
  const Case cases[] = {
      // No list: the defaults of the record (damping floor 0.9), and no
      // snap tolerances at all.
      {"no list", false, {}, 1, 1, 0.001, 0.999, 0.9, 0, 0},
      // A list without WDAMLBND gives the damping weight the common 0.001.
      {"empty list", true, {}, 1, 1, 0.001, 0.999, 0.001, 0, 0},
      // Equal bounds fix the weight.
      {"fixed level", true, {{"WLEVLBND", 0.3}, {"WLEVUBND", 0.3}}, 1, 1, 0.3, 0.3, 0.001, 1, 0},
      {"fixed damping", true, {{"WDAMLBND", 0.95}, {"WDAMUBND", 0.95}}, 1, 1, 0.001, 0.999, 0.95, 0, 1},
      // Bounds switched off: the bound items are not read, the defaults of
      // the record stay, nothing is fixed.
      {"no bounds", true, {{"OPTWBND", 0.0}, {"WLEVLBND", 0.3}, {"WLEVUBND", 0.3}}, 0, 1, 0.001, 0.999, 0.9, 0, 0},
      {"no stability", true, {{"OPTWSTB", -1.0}}, 1, 0, 0.001, 0.999, 0.001, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    List l = make();
    for (const auto& [name, v] : c.items) set_number(l, name, v);
    WGTBNDS b{};
    getwgtbnd(c.list ? l : nullptr, &b);
    EXPECT_EQ(b.bounds, c.bounds);
    EXPECT_EQ(b.stability, c.stability);
    EXPECT_EQ(b.wlevel[0], c.wlevel_lo);
    EXPECT_EQ(b.wlevel[1], c.wlevel_hi);
    EXPECT_EQ(b.wdamp[0], c.wdamp_lo);
    EXPECT_EQ(b.wseason[0], 0.001);  // no row sets the seasonal bounds
    EXPECT_EQ(b.wlevflg, c.wlevflg);
    EXPECT_EQ(b.wdamflg, c.wdamflg);
    EXPECT_EQ(b.wtreflg + b.wseaflg, 0);
    // The snap tolerance is the width of the bounds times 2^-53 * 1000.
    EXPECT_EQ(b.wlevel[2], c.list ? (b.wlevel[1] - b.wlevel[0]) * 1.110223024625157e-13 : 0.0);
    EXPECT_EQ(b.wdamp[2], c.list ? (b.wdamp[1] - b.wdamp[0]) * 1.110223024625157e-13 : 0.0);
  }
}

// ---- getseries ---------------------------------------------------------------

TEST_F(ArgsTest, SeriesValuesFlagsAndStatistics) {
  constexpr double kText = -12345.0;  // stands for a text item
  const double xextr = 3.35195198248575e+153 * 3.0 * 3.0 * 3.0;
  struct Case {
    const char* what;
    std::vector<double> items;
    long n;
    int rc;  // usable values
    std::vector<char> misflg;
    long nmiss, nextr;
    double min, max, mean, norm;  // norm 42: statistics left unset
  };
  const double past = -std::nextafter(xextr, 1e308);  // just past the limit
  const Case cases[] = {
      {"text, missing", {4.0, -6.0, kText, esf::kMissing, 2.5}, 5, 3, {0, 0, 1, 1, 0}, 2, 0, -6, 4, 0.5 / 3, 6},
      // The extreme limit is inclusive: a value exactly on it is kept.
      {"extreme limit", {xextr, past, 1.0}, 3, 2, {0, 1, 0}, 1, 1, 1.0, xextr, (xextr + 1.0) / 2, xextr},
      // A short list leaves the tail missing but not counted: rc is n - nmiss.
      {"short list", {1.0, 3.0}, 4, 4, {0, 0, 1, 1}, 0, 0, 1.0, 3.0, 4.0 / 4.0, 3.0},
      {"all missing", {esf::kMissing, kText}, 2, 0, {1, 1}, 0, 0, 0, 0, 0, 42.0},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    List data = make();
    for (double v : c.items) {
      if (v == kText) {
        append_text(data, "seven");
      } else {
        append_number(data, v);
      }
    }
    std::vector<double> x(c.n, -1.0);
    std::vector<char> misflg(c.n, 7);
    TSERIES ts{};
    ts.nobs = c.n;
    ts.x = x.data();
    ts.misflg = misflg.data();
    ts.descstats.norm = 42.0;
    TIMERANGE dr{};
    EXPECT_EQ(getseries(data, &dr, &ts), c.rc);
    EXPECT_EQ(misflg, c.misflg);
    for (long t = 0; t < c.n; ++t) {
      if (c.misflg[t]) {
        EXPECT_TRUE(esf::is_missing(x[t])) << t;
      } else {
        EXPECT_EQ(x[t], c.items[t]) << t;
      }
    }
    EXPECT_EQ(ts.nmiss, c.nmiss);
    EXPECT_EQ(ts.nextr, c.nextr);
    if (c.nextr > 0) {
      EXPECT_EQ(ts.xextr, xextr);
    }
    EXPECT_EQ(ts.descstats.norm, c.norm);
    if (c.norm != 42.0) {
      EXPECT_EQ(ts.descstats.min, c.min);
      EXPECT_EQ(ts.descstats.max, c.max);
      EXPECT_EQ(ts.descstats.mean, c.mean);
    }
  }
}

// ---- gettimes ----------------------------------------------------------------

struct Ranges {
  TIMERANGE data{}, fit{}, eval{};
};

TEST_F(ArgsTest, TimesRangeCases) {
  INTERVAL month = interval_of("MONTH");
  struct Case {
    const char* what;
    std::vector<std::pair<const char*, double>> fit, eval;
    int rc;
    long fit_start, fit_end, eval_start, eval_end;
    std::vector<double> dates = {};  // the fit's and the evaluation's start and end dates, if checked
  };
  // The evaluation range runs from the start of the fit to the end of the
  // data; its end date is the one the fit range's count arrived at.
  const std::vector<double> inside = {date(1949, 3, 1), date(1949, 12, 1), date(1949, 3, 1), date(1949, 12, 1)};
  const Case cases[] = {
      {"defaults", {}, {}, 0, 0, 23, 0, 23},
      // NOBS defaults to 24 periods from a late start but stops at the data's end.
      {"late fit start", {{"STDATE", date(1950, 1, 1)}}, {}, 0, 12, 23, 12, 23},
      // A fit range that begins before the data is raised to its start.
      {"early fit start", {{"STDATE", date(1948, 6, 1)}}, {}, 0, 0, 23, 0, 23},
      // ENDDATE below the count of NOBS ends the range there.
      {"fit end date", {{"ENDDATE", date(1949, 6, 1)}}, {}, 0, 0, 5, 0, 23},
      {"one observation", {{"NOBS", 1}}, {}, -2, 0, 0, 0, 0},
      // The evaluation range is raised to the start of the fit range.
      {"early eval", {{"STDATE", date(1949, 4, 1)}, {"NOBS", 12}}, {{"STDATE", date(1949, 1, 1)}}, 0, 3, 14, 3, 23},
      {"eval end date", {}, {{"ENDDATE", date(1950, 6, 1)}}, 0, 0, 23, 0, 17},
      {"short eval", {}, {{"NOBS", 1}}, -2, 0, 23, 0, 0},
      {"fit inside the data", {{"STDATE", date(1949, 3, 1)}, {"NOBS", 10}}, {}, 0, 2, 11, 2, 23, inside},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    List dr = make();
    set_number(dr, "NOBS", 24);
    set_number(dr, "STDATE", date(1949, 1, 1));
    List fit = make();
    for (const auto& [k, v] : c.fit) set_number(fit, k, v);
    List eval = c.eval.empty() ? nullptr : make();  // no list: the defaults as of an empty one
    for (const auto& [k, v] : c.eval) set_number(eval, k, v);
    Ranges r;
    ASSERT_EQ(gettimes(dr, fit, eval, 24, &month, &r.data, &r.fit, &r.eval), c.rc);
    if (c.rc != 0) continue;
    EXPECT_EQ(std::vector<double>({r.data.stdate, r.data.enddate}),
              std::vector<double>({date(1949, 1, 1), date(1950, 12, 1)}));
    EXPECT_EQ(std::vector<long>({r.data.nobs, r.data.start, r.data.end}), std::vector<long>({24, 0, 23}));
    EXPECT_EQ(r.fit.start, c.fit_start);
    EXPECT_EQ(r.fit.end, c.fit_end);
    EXPECT_EQ(r.fit.nobs, c.fit_end - c.fit_start + 1);
    EXPECT_EQ(r.eval.start, c.eval_start);
    EXPECT_EQ(r.eval.end, c.eval_end);
    EXPECT_EQ(r.eval.nobs, c.eval_end - c.eval_start + 1);
    if (!c.dates.empty()) {
      EXPECT_EQ(std::vector<double>({r.fit.stdate, r.fit.enddate, r.eval.stdate, r.eval.enddate}), c.dates);
    }
  }
}

// ---- getstartvals ------------------------------------------------------------

TEST_F(ArgsTest, StartValuesFromTheSpecification) {
  struct Case {
    const char* what;
    int type;
    int sviflg;
    std::vector<std::pair<const char*, double>> startvals, svi;
    int rc;
    double level;      // startvals.level for rc 1, svi.level otherwise
    size_t svi_items;  // items of SVI afterwards
  };
  const Case cases[] = {
      // A forecast uses a complete STARTVALS as it stands.
      {"startvals, forecast", kFamilySimple, 1, {{"LEVEL", 3.0}}, {}, 1, 3.0, 0},
      // A fit needs a start for its backward pass whatever STARTVALS says.
      {"startvals, fit", kFamilySimple, 0, {{"LEVEL", 3.0}}, {}, 0, 8.0, 1},
      {"svi", kFamilySimple, 1, {}, {{"LEVEL", 2.0}}, 2, 2.0, 1},
      // STARTVALS overrides a complete SVI in a forecast.
      {"both", kFamilySimple, 1, {{"LEVEL", 3.0}}, {{"LEVEL", 2.0}}, 1, 3.0, 1},
      // A trended family needs the trend too: the given SVI is incomplete and
      // the computed start is appended to it.
      {"double without trend", kFamilyDouble, 1, {}, {{"LEVEL", 2.0}}, 0, kNaN, 3},
      // Without usable start values the start is computed: the last usable value.
      {"missing level", kFamilySimple, 1, {{"LEVEL", esf::kMissing}}, {}, 0, 8.0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    double x[4] = {5.0, 6.0, 8.0, esf::kMissing};
    char misflg[4] = {0, 0, 0, 1};
    WINMODEL model;
    std::memset(&model, 0, sizeof model);
    model.ts.x = x;
    model.ts.misflg = misflg;
    model.ts.nobs = model.fitrange.nobs = 4;
    model.fitrange.end = 3;
    List spec = make();
    if (!c.startvals.empty()) {
      List l = add_list(spec, "STARTVALS");
      for (const auto& [k, v] : c.startvals) set_number(l, k, v);
    }
    if (!c.svi.empty()) {
      List l = add_list(spec, "SVI");
      for (const auto& [k, v] : c.svi) set_number(l, k, v);
    }
    ASSERT_EQ(getstartvals(spec, esf::host::fmcomp(), c.type, c.sviflg, &model), c.rc);
    if (c.rc == 1) {
      EXPECT_EQ(model.startvals.level, c.level);
    } else if (!std::isnan(c.level)) {
      EXPECT_EQ(model.svi.level, c.level);
    }
    List svi = find_list(spec, "SVI");
    EXPECT_EQ(svi == nullptr ? 0u : items(svi).size(), c.svi_items);
  }
}

// ---- getweights ----------------------------------------------------------------

TEST_F(ArgsTest, WeightsFromSpecificationOrFit) {
  struct Case {
    const char* what;
    std::vector<std::pair<const char*, double>> spec, fitted;
    bool want_trend;
    int rc;
    double level, trend;
  };
  const Case cases[] = {
      {"specification", {{"LEVEL", 0.3}}, {{"LEVEL", 0.7}}, false, 0, 0.3, 0},
      // One requested weight absent: all of them come from the fit.
      {"spec lacks trend", {{"LEVEL", 0.3}}, {{"LEVEL", 0.7}, {"TREND", 0.1}}, true, 0, 0.7, 0.1},
      {"spec weight too large", {{"LEVEL", 100.5}}, {{"LEVEL", -100.0}}, false, 0, -100.0, 0},
      {"fit lacks trend", {}, {{"LEVEL", 0.2}}, true, -999, 0, 0},
      {"fit weight too large", {}, {{"LEVEL", 101.0}}, false, -999, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    List spec = make();
    List model = make();
    if (!c.spec.empty()) {
      List l = add_list(spec, "SMOOTHING_WEIGHTS");
      for (const auto& [k, v] : c.spec) set_number(l, k, v);
    }
    if (!c.fitted.empty()) {
      List l = add_list(add_list(model, "PARMVALS"), "SMOOTHING_WEIGHTS");
      for (const auto& [k, v] : c.fitted) set_number(l, k, v);
    }
    double level = -1.0, trend = -1.0;
    ASSERT_EQ(getweights(esf::host::fmcomp(), spec, model, &level, c.want_trend ? &trend : nullptr, nullptr, nullptr),
              c.rc);
    if (c.rc != 0) continue;
    EXPECT_EQ(level, c.level);
    if (c.want_trend) {
      EXPECT_EQ(trend, c.trend);
    }
  }
}

// ---- setsmoothstate, putstvlab, getreturn, mfree ----------------------------------

TEST_F(ArgsTest, SmoothedStateLayout) {
  double factors[4] = {0.9, 1.1, 1.2, 0.8};
  SMOOTHVALS state{};
  state.level = 123.5;
  state.trend = -2.25;
  state.sfactor = factors;
  struct Case {
    int nseasons, trend;
    std::vector<std::string> names;
    size_t nfactors;
  };
  const Case cases[] = {
      {0, 1, {"SFACTORS", "LEVEL", "TREND"}, 0},
      {4, 1, {"SFACTORS", "LEVEL", "TREND"}, 4},
      {1, 0, {"SFACTORS", "LEVEL"}, 0},  // a single season stores no factors
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.nseasons * 10 + c.trend);
    List pest = make();
    ASSERT_EQ(setsmoothstate(esf::host::fmcomp(), &state, c.nseasons, c.trend, pest), 0);
    List smoothed = find_list(pest, "SMOOTHED_STATE");
    ASSERT_NE(smoothed, nullptr);
    EXPECT_EQ(names_of(smoothed), c.names);
    EXPECT_EQ(find_number(smoothed, "LEVEL"), 123.5);
    if (c.trend) {
      EXPECT_EQ(find_number(smoothed, "TREND"), -2.25);
    }
    List sf = find_list(smoothed, "SFACTORS");
    ASSERT_EQ(items(sf).size(), c.nfactors);
    for (size_t i = 0; i < c.nfactors; ++i) EXPECT_EQ(slgetnv(items(sf)[i], 0), factors[i]);
  }
}

TEST_F(ArgsTest, ReturnCodes) {
  struct Case {
    int rc;
    int code;
  };
  const Case cases[] = {{0, 0},   {90, 0}, {1, 0},   {-999, 999}, {-101, 101}, {-100, 100},
                        {-9, 12}, {-8, 8}, {-7, 11}, {-2, 2},     {-1, 10},    {-92, 10}};
  for (const Case& c : cases) {
    for (int rtype : {0, 1, 2}) {
      SCOPED_TRACE(c.rc * 10 + rtype);
      esf::host::MethodCall call;
      for (int k = 0; k < 7; ++k) call.number(0.0);
      EXPECT_EQ(getreturn(call.plist(), c.rc, rtype), c.code);
      const int slot = rtype == 0 ? 7 : 8;
      EXPECT_EQ(call.written(slot), static_cast<double>(c.code));
      EXPECT_FALSE(call.written(rtype == 0 ? 8 : 7).has_value());
    }
  }
}

// ---- List bridge ----------------------------------------------------------------

TEST_F(ArgsTest, GetNumSkipsNonNumericItems) {
  List l = make();
  append_number(l, 1.5);
  append_text(l, "skip");
  append_integer(l, 7);
  double a[4] = {9, 9, 9, 9};
  EXPECT_EQ(zgetnum(l, 4, a), 2);
  EXPECT_EQ(a[0], 1.5);
  EXPECT_EQ(a[1], 7.0);
  EXPECT_TRUE(esf::is_missing(a[2]));
  EXPECT_TRUE(esf::is_missing(a[3]));
  // At most nList values are stored.
  EXPECT_EQ(zgetnum(l, 1, a), 1);
  EXPECT_EQ(a[0], 1.5);
  // No list: the array is still cleared.
  a[0] = 9;
  EXPECT_EQ(zgetnum(nullptr, 2, a), 0);
  EXPECT_TRUE(esf::is_missing(a[0]));
  EXPECT_EQ(zgetnum(l, 0, a), 0);
}

TEST_F(ArgsTest, SetAndGetArrays) {
  List l = make();
  double d[3] = {0.5, -1.0, 2.0};
  ASSERT_EQ(zslsetd(l, 2, d, 3), 0);
  const auto all = items(l);
  ASSERT_EQ(all.size(), 4u);  // position 1 is an empty placeholder
  EXPECT_EQ(slgetnv(all[1], 0), 0.5);
  EXPECT_EQ(slgetnv(all[3], 0), 2.0);

  List li = make();
  long in[3] = {4, -5, 6};
  ASSERT_EQ(zslseti(li, 1, in, 3), 0);
  long out[3] = {};
  ASSERT_EQ(zslgeti(li, 1, out, 3), 0);
  EXPECT_EQ(std::vector<long>(out, out + 3), std::vector<long>(in, in + 3));
  // Reading past the end fails.
  EXPECT_EQ(zslgeti(li, 2, out, 3), -1);
  EXPECT_EQ(out[0], -5);  // entries before the failure stay stored
}

TEST_F(ArgsTest, ListDifference) {
  List a = make(), b = make();
  for (const char* t : {"X", "Y", "Z", "Y"}) append_text(a, t);
  for (const char* t : {"Y", "W"}) append_text(b, t);
  List diff = nullptr;
  ASSERT_EQ(slcmplc(esf::host::fmcomp(), a, b, &diff), 2);
  ASSERT_NE(diff, nullptr);
  owned_.push_back(diff);
  EXPECT_EQ(texts_of(diff), (std::vector<std::string>{"X", "Z"}));
  EXPECT_EQ(items(a).size(), 4u);  // the original stays

  const auto lists_before = esf::host::live_lists();
  List self_diff = reinterpret_cast<List>(1);
  EXPECT_EQ(slcmplc(esf::host::fmcomp(), a, a, &self_diff), 0);
  EXPECT_EQ(self_diff, nullptr);
  EXPECT_EQ(esf::host::live_lists(), lists_before);  // the emptied copy is freed

  List copy = nullptr;
  ASSERT_EQ(slcmplc(esf::host::fmcomp(), a, nullptr, &copy), 4);
  owned_.push_back(copy);
  EXPECT_EQ(texts_of(copy), texts_of(a));
  EXPECT_NE(copy, a);

  List none = reinterpret_cast<List>(1);
  EXPECT_EQ(slcmplc(esf::host::fmcomp(), nullptr, b, &none), 0);
  EXPECT_EQ(none, nullptr);
}

TEST_F(ArgsTest, Renames) {
  List target = make();
  append_number(target, 1, "A");
  append_number(target, 2, "B");
  append_number(target, 3, "A");
  List names = make();
  List p1 = add_list(names, "");
  set_text(p1, "OLD", "a");
  set_text(p1, "NEW", "C");
  List p2 = add_list(names, "");
  set_text(p2, "OLD", "B");
  set_text(p2, "NEW", "b");  // equal without regard to case: skipped
  List p3 = add_list(names, "");
  set_text(p3, "OLD", "B");  // no NEW: skipped
  EXPECT_EQ(zslsrch(esf::host::fmcomp(), names, target), 2);
  EXPECT_EQ(names_of(target), (std::vector<std::string>{"C", "B", "C"}));
  EXPECT_EQ(zslsrch(esf::host::fmcomp(), nullptr, target), 0);
}

TEST_F(ArgsTest, IntervalRecordsThroughLists) {
  struct Case {
    const char* interval;
    const char* timeunit;
  };
  const Case cases[] = {{"MONTH", "D"}, {"DTHOUR", "DT"}, {"NONE", "UND"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.interval);
    INTERVAL iv = interval_of(c.interval);
    INTINFO info{};
    info.sinterval = interval_of("YEAR");
    info.nseasons = 12;
    info.formatl = 5;
    std::memcpy(info.format, "MONYY", 5);
    info.formatw = 5;
    List l = make();
    ASSERT_EQ(zintqvl(&iv, &info, l), 0);
    EXPECT_EQ(find_text(l, "INTERVAL"), std::string(c.interval));
    EXPECT_EQ(find_text(l, "TIMEUNIT"), std::string(c.timeunit));
    EXPECT_EQ(find_text(l, "SINTERVAL"), std::string("YEAR"));
    EXPECT_EQ(find_number(l, "NSEASONS"), 12.0);
    EXPECT_EQ(find_text(l, "IDFORMAT"), std::string("MONYY5."));

    INTERVAL back{};
    INTINFO info_back{};
    ASSERT_EQ(zqvlint(l, &back, &info_back), 0);
    EXPECT_EQ(back.intcode, iv.intcode);
    EXPECT_EQ(back.units, iv.units);
    EXPECT_EQ(info_back.nseasons, 12);
    EXPECT_EQ(info_back.sinterval.intcode, info.sinterval.intcode);
  }
}

TEST_F(ArgsTest, IntervalListFailures) {
  INTERVAL iv = interval_of("MONTH");
  INTINFO info{};
  List l = make();
  set_text(l, "INTERVAL", "NOSUCHTHING");
  EXPECT_EQ(zqvlint(l, &iv, nullptr), -1);
  List no_seasons = make();
  set_text(no_seasons, "INTERVAL", "QTR");
  set_text(no_seasons, "SINTERVAL", "YEAR");
  EXPECT_EQ(zqvlint(no_seasons, &iv, &info), -1);
  EXPECT_EQ(zqvlint(no_seasons, &iv, nullptr), 0);
  EXPECT_EQ(iv.intcode, kIntQtr);
}

}  // namespace
