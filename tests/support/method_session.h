// Test support for the methods and their argument readers: connects the
// module image to the host stand-in as a host does at load time, and builds
// the lists a method call is given.
#pragma once

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "module/host_api.h"
#include "primitives/primitives.h"
#include "support/smooth_model.h"

namespace method_test {

// The module image connected to the host stand-in, and the date value of a
// calendar day.
using smooth_test::connect_module;
using smooth_test::date;

// The lists of one method call on a series, built the way the object
// language passes them. The model list holds the model description as
// MODEL_SPEC and the two ranges as FITRANGE and EVALRANGE, as a forecast
// reads them; a fit is given the same lists as its own arguments. The
// destructor frees the series and the model list with all it holds.
struct CallLists {
  List series = nullptr;      // NAME, LABEL, DATA, DSINFO, TIME_RANGES
  List model = nullptr;       // MODEL_SPEC, FITRANGE, EVALRANGE; a fit's results
  List spec = nullptr;        // model specification (empty)
  List fit_range = nullptr;   // empty: the defaults apply
  List eval_range = nullptr;  // empty

  // A series of `values` (NaN becomes the ordinary missing value) of the
  // interval `interval`, starting at `stdate`.
  explicit CallLists(const std::vector<double>& values, std::string_view interval = "MONTH",
                     double stdate = date(1949, 1, 1)) {
    using namespace esf::host;
    series = new_list();
    set_text(series, "NAME", "AIR");
    set_text(series, "LABEL", "Air passengers");
    List data = add_list(series, "DATA");
    for (double v : values) append_number(data, std::isnan(v) ? esf::kMissing : v);
    List dsinfo = add_list(series, "DSINFO");
    set_text(dsinfo, "TIMEID", "DATE");
    List info = add_list(dsinfo, "INTERVALINFO");
    set_text(info, "INTERVAL", interval);
    List ranges = add_list(series, "TIME_RANGES");
    List data_range = add_list(ranges, "DATA_RANGE");
    set_integer(data_range, "NOBS", static_cast<long>(values.size()));
    set_number(data_range, "STDATE", stdate);
    model = new_list();
    spec = add_list(model, "MODEL_SPEC");
    fit_range = add_list(model, "FITRANGE");
    eval_range = add_list(model, "EVALRANGE");
  }
  CallLists(const CallLists&) = delete;
  CallLists& operator=(const CallLists&) = delete;
  ~CallLists() {
    esf::host::free_list(series);
    esf::host::free_list(model);
  }

  List data() const { return esf::host::find_list(series, "DATA"); }
  List dsinfo() const { return esf::host::find_list(series, "DSINFO"); }
  List interval_info() const { return esf::host::find_list(dsinfo(), "INTERVALINFO"); }
};

// A fit method called on the lists of `l` as the object language calls it:
// the return code it wrote, -1 when none.
inline double call_fit(METHODFN method, CallLists& l) {
  esf::host::MethodCall call;
  call.list(l.series).list(l.spec).list(l.fit_range).list(l.eval_range).list(l.model).number(0);
  EXPECT_EQ(method(call.plist(), nullptr, nullptr, 0), 0);
  return call.written(7).value_or(-1);
}

// A forecast method writing `table` with cl and lead (NaN: missing).
inline double call_forecast(METHODFN method, CallLists& l, const char* table, double cl = 0.05, double lead = 12) {
  esf::host::MethodCall call;
  call.list(l.series).list(l.model).list(l.eval_range).text(table);
  std::isnan(cl) ? call.missing_number() : call.number(cl);
  std::isnan(lead) ? call.missing_number() : call.number(lead);
  call.number(0);
  EXPECT_EQ(method(call.plist(), nullptr, nullptr, 0), 0);
  return call.written(8).value_or(-1);
}

// A short seasonal-looking series: the first months of the airline data.
inline std::vector<double> air_passengers_head() {
  return {112, 118, 132, 129, 121, 135, 148, 148, 136, 119, 104, 118, 115, 126, 141, 135, 125, 149,
          170, 170, 158, 133, 114, 140, 145, 150, 178, 163, 172, 178, 199, 199, 184, 162, 146, 166};
}

// The texts, names and numbers of a list's items, in order.
inline std::vector<std::string> texts_of(List list) {
  std::vector<std::string> out;
  for (const SLIST_ITEM* it : esf::host::items(list)) out.emplace_back(it->data.c.p, it->data.c.len);
  return out;
}
inline std::vector<std::string> names_of(List list) {
  std::vector<std::string> out;
  for (const SLIST_ITEM* it : esf::host::items(list)) out.push_back(esf::host::item_name(it));
  return out;
}
inline std::vector<double> numbers_of(List list) {
  std::vector<double> out;
  for (const SLIST_ITEM* it : esf::host::items(list)) out.push_back(slgetnv(it, 0));
  return out;
}

}  // namespace method_test
