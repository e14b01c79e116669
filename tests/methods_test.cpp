// The simple smoothing methods end to end through the host's lists: the
// return code of every failure a fit or a forecast can meet, the lists a
// failed call leaves alone, and where a forecast finds its weights, start and
// variance (the lists a fit writes and a fit followed by a forecast, for
// every family: family_test.cpp).

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "module/host_api.h"
#include "support/method_session.h"
#include "support/smooth_model.h"

namespace {

namespace fs = std::filesystem;
using esf::host::add_list;
using esf::host::find_list;
using esf::host::find_number;
using esf::host::items;
using esf::host::MethodCall;
using esf::host::set_number;
using esf::host::set_text;
using method_test::CallLists;
using method_test::names_of;
using smooth_test::read_table;
using smooth_test::Table;

// The error variance of the backcast model at weight w, and the level at
// time 0 that its backward pass yields.
double backcast_mse(const std::vector<double>& x, double w, double* time0 = nullptr) {
  return smooth_test::ses_backcast_mse(x, w, smooth_test::last_usable(x), time0);
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Removes a named item; a sublist it holds is freed with it.
void remove_item(List list, const char* name) {
  const SLIndex at = slsrchn(list, name, static_cast<int>(std::strlen(name)), 1, 1);
  ASSERT_NE(at, 0) << name;
  ListId sub = 0;
  const bool holds_list = slitml(list, at, &sub) == 0 && sub != 0;
  slditm(list, at);
  if (holds_list) slfree(sub, 1, esf::host::fmcomp());
}

class MethodsTest : public smooth_test::ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    esf::host::capture_output(true);
    outstanding_ = esf::host::pool_outstanding();
  }
  void TearDown() override {
    esf::host::pool_fail_after(-1);
    // Every method gives back what it took from the pool.
    EXPECT_EQ(esf::host::pool_outstanding(), outstanding_);
    esf::host::capture_output(false);
  }

  static double fit(CallLists& l) { return method_test::call_fit(mes1fit, l); }
  static double forecast(CallLists& l, double cl = 0.05, double lead = 12) {
    return method_test::call_forecast(mes1for, l, "OUT.FC", cl, lead);
  }

  fs::path table_file() const { return lib_.path / "fc.csv"; }

  smooth_test::ScratchLibrary lib_{"OUT", "esf_methods"};
  std::size_t outstanding_ = 0;
};

const std::vector<double> kAir = method_test::air_passengers_head();

// ---- Fit failures -----------------------------------------------------------------

TEST_F(MethodsTest, FitFailuresLeaveTheModelListAsItCame) {
  struct Case {
    const char* what;
    std::vector<double> values;
    void (*change)(CallLists&);
    int code;
  };
  const Case cases[] = {
      {"name too long", kAir, [](CallLists& l) { set_text(l.series, "NAME", std::string(33, 'N')); }, 999},
      {"name of 32", kAir, [](CallLists& l) { set_text(l.series, "NAME", std::string(32, 'N')); }, 0},
      {"no data", kAir, [](CallLists& l) { remove_item(l.series, "DATA"); }, 999},
      {"no interval", kAir, [](CallLists& l) { remove_item(l.interval_info(), "INTERVAL"); }, 999},
      // The start of the backward pass is the last usable value of the fit
      // range; the first alone is not enough.
      {"no start value", {1.0, kNaN, kNaN, 5.0}, [](CallLists& l) { set_number(l.fit_range, "NOBS", 3); }, 2},
      // A level beyond the state limit fails every grid candidate.
      {"no grid start", {1e153, 1e153, 1e153}, [](CallLists&) {}, 8},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CallLists l(c.values);
    c.change(l);
    const auto series_before = esf::host::to_json(l.series);
    List model_items_before = l.model;
    const auto names_before = names_of(model_items_before);
    EXPECT_EQ(fit(l), c.code);
    EXPECT_EQ(esf::host::to_json(l.series), series_before);
    if (c.code != 0) {
      EXPECT_EQ(names_of(l.model), names_before);
    }
  }
}

TEST_F(MethodsTest, FitArgumentFailures) {
  CallLists l(kAir);
  // A wrong argument count is refused by every method alike (entry tests).
  MethodCall missing_list, number_for_list;
  missing_list.list(l.series).list(l.spec).list(nullptr).list(l.eval_range).list(l.model).number(0);
  number_for_list.list(l.series).number(3).list(l.fit_range).list(l.eval_range).list(l.model).number(0);
  for (MethodCall* call : {&missing_list, &number_for_list}) {
    EXPECT_EQ(mes1fit(call->plist(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(call->written(7), 999.0);
  }
  EXPECT_EQ(names_of(l.model), (std::vector<std::string>{"MODEL_SPEC", "FITRANGE", "EVALRANGE"}));
}

TEST_F(MethodsTest, FitWithoutMemory) {
  // Each of the four arrays in turn is refused.
  for (long allowed = 0; allowed < 4; ++allowed) {
    SCOPED_TRACE(allowed);
    CallLists l(kAir);
    esf::host::pool_fail_after(allowed);
    EXPECT_EQ(fit(l), 100);
    esf::host::pool_fail_after(-1);
    EXPECT_EQ(names_of(l.model), (std::vector<std::string>{"MODEL_SPEC", "FITRANGE", "EVALRANGE"}));
  }
}

// ---- Fit results ------------------------------------------------------------------

TEST_F(MethodsTest, RepeatedFitAppends) {
  CallLists l(kAir);
  ASSERT_EQ(fit(l), 0);
  ASSERT_EQ(fit(l), 0);
  EXPECT_EQ(names_of(l.model), (std::vector<std::string>{"MODEL_SPEC", "FITRANGE", "EVALRANGE", "PARMVALS", "ESTIMATES",
                                                         "FIT_STATS", "PARMVALS", "ESTIMATES", "FIT_STATS"}));
  EXPECT_EQ(names_of(l.spec), (std::vector<std::string>{"SVI", "STARTVALS", "STARTVALS"}));
  const auto all = items(l.model);
  List first = esf::host::sublist(all[3]);
  List second = esf::host::sublist(all[6]);
  EXPECT_EQ(esf::host::to_json(first), esf::host::to_json(second));
}

// ---- Forecast ----------------------------------------------------------------------

TEST_F(MethodsTest, ForecastArgumentsAndDefaults) {
  struct Case {
    const char* what;
    double cl, lead;
    std::size_t rows;
    const char* upper;
  };
  const Case cases[] = {
      {"defaults", kNaN, kNaN, 36 + 12, "U50"},
      {"negative lead", 0.1, -3, 36, "U90"},
      {"wide limits", 0.995, 2, 38, "U01"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CallLists l(kAir);
    ASSERT_EQ(fit(l), 0);
    ASSERT_EQ(forecast(l, c.cl, c.lead), 0);
    const Table t = read_table(table_file());
    EXPECT_EQ(t.rows.size(), c.rows);
    EXPECT_EQ(t.names.at(3), c.upper);
  }
}

TEST_F(MethodsTest, ForecastFailures) {
  struct Case {
    const char* what;
    void (*change)(CallLists&);
    int code;
  };
  const Case cases[] = {
      {"no weights", [](CallLists& l) { remove_item(l.model, "PARMVALS"); }, 999},
      {"no fit range item", [](CallLists& l) { remove_item(l.model, "FITRANGE"); }, 999},
      {"label too long", [](CallLists& l) { set_text(l.series, "LABEL", std::string(257, 'L')); }, 999},
      {"eval range of one", [](CallLists& l) { set_number(l.eval_range, "NOBS", 1); }, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CallLists l(kAir);
    ASSERT_EQ(fit(l), 0);
    c.change(l);
    EXPECT_EQ(forecast(l), c.code);
    EXPECT_FALSE(fs::exists(table_file()));
    List est = find_list(l.model, "ESTIMATES");
    if (est != nullptr) {
      EXPECT_FALSE(find_number(est, "EVAL_VARIANCE").has_value());
    }
  }
}

TEST_F(MethodsTest, ForecastArgumentFailures) {
  CallLists l(kAir);
  ASSERT_EQ(fit(l), 0);
  struct Case {
    const char* what;
    List eval;
    const char* table;
    double code;
  };
  const Case cases[] = {{"no evaluation list", nullptr, "OUT.FC", 999.0},
                        {"a bad table name", l.eval_range, "OUT.9X", 101.0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    MethodCall call;
    call.list(l.series).list(l.model).list(c.eval).text(c.table).number(0.05).number(12).number(0);
    EXPECT_EQ(mes1for(call.plist(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(call.written(8), c.code);
  }
  esf::host::pool_fail_after(1);
  EXPECT_EQ(forecast(l), 100);
  esf::host::pool_fail_after(-1);
  EXPECT_FALSE(fs::exists(table_file()));
}

TEST_F(MethodsTest, ForecastStartsFromWhatTheSpecificationHolds) {
  // No STARTVALS: the backward pass runs from SVI, computed and kept when
  // the model description has none.
  struct Case {
    const char* what;
    bool keep_svi;
  };
  for (const Case& c : {Case{"svi only", true}, Case{"neither", false}}) {
    SCOPED_TRACE(c.what);
    CallLists l(kAir);
    ASSERT_EQ(fit(l), 0);
    const double w = *find_number(find_list(find_list(l.model, "PARMVALS"), "SMOOTHING_WEIGHTS"), "LEVEL");
    remove_item(l.spec, "STARTVALS");
    if (!c.keep_svi) remove_item(l.spec, "SVI");
    ASSERT_EQ(forecast(l, 0.05, 0), 0);
    EXPECT_EQ(find_number(find_list(l.spec, "SVI"), "LEVEL"), kAir.back());
    const Table t = read_table(table_file());
    ASSERT_EQ(t.rows.size(), kAir.size());
    double time0 = 0.0;
    backcast_mse(kAir, w, &time0);
    EXPECT_DOUBLE_EQ(t.rows[0][2], time0);
  }
}

TEST_F(MethodsTest, ForecastVarianceSources) {
  CallLists l(kAir);
  ASSERT_EQ(fit(l), 0);
  List est = find_list(l.model, "ESTIMATES");
  const double sigma = *find_number(est, "SIGMA");
  ASSERT_EQ(forecast(l), 0);
  const double eval_variance = *find_number(est, "EVAL_VARIANCE");
  // A second forecast reads SIGMA again and sets EVAL_VARIANCE again.
  ASSERT_EQ(forecast(l), 0);
  EXPECT_EQ(find_number(est, "SIGMA"), sigma);
  EXPECT_EQ(find_number(est, "EVAL_VARIANCE"), eval_variance);
  EXPECT_EQ(names_of(est).size(), 9u);

  // Without SIGMA and EVAL_VARIANCE the observed rows have limits of no
  // width, and the forecast rows use the error variance of the pass.
  remove_item(est, "SIGMA");
  remove_item(est, "EVAL_VARIANCE");
  ASSERT_EQ(forecast(l, 0.05, 1), 0);
  const Table t = read_table(table_file());
  ASSERT_EQ(t.rows.size(), kAir.size() + 1);
  EXPECT_EQ(t.rows[5][3], t.rows[5][2]);
  EXPECT_EQ(t.rows[5][6], 0.0);
  EXPECT_DOUBLE_EQ(t.rows.back()[6], std::sqrt(eval_variance));
}

}  // namespace
