#include "runner/families.h"

namespace esf::runner {
namespace {

constexpr Family kFamilies[] = {
    {"simple", "Simple exponential smoothing", 2, 3, {true, false, false, false}, false, false, nullptr, nullptr},
    {"double", "Double exponential smoothing", 6, 7, {true, false, false, false}, true, false, nullptr, nullptr},
    {"linear", "Linear (two-weight) exponential smoothing", 4, 5, {true, true, false, false}, true, false, nullptr,
     nullptr},
    {"damped", "Damped-trend exponential smoothing", 8, 9, {true, true, true, false}, true, false, nullptr, nullptr},
    {"seasonal", "Seasonal exponential smoothing", 10, 11, {true, false, false, true}, false, true, "EXPO", "EXPOS"},
    {"winters", "Winters multiplicative smoothing", 0, 1, {true, true, false, true}, true, true, "WINT", "WINTM"},
    {"winters-additive", "Winters additive smoothing", 0, 1, {true, true, false, true}, true, true, "WINT", "WINTA"},
};

}  // namespace

std::span<const Family> families() { return kFamilies; }

const Family* find_family(std::string_view name) {
  for (const Family& f : kFamilies) {
    if (name == f.name) return &f;
  }
  return nullptr;
}

std::string family_names() {
  std::string s;
  for (const Family& f : kFamilies) s += (s.empty() ? "" : ", ") + std::string(f.name);
  return s;
}

std::string meaning_of_return_code(int code) {
  switch (code) {
    case 0:
      return "success";
    case 2:
      return "too few usable observations, or a time range shorter than two periods";
    case 8:
      return "the estimation found no usable starting weights";
    case 10:
      return "the estimation failed";
    case 11:
      return "a multiplicative Winters state fell below its floor";
    case 12:
      return "numeric overflow while smoothing the series";
    case 100:
      return "memory could not be obtained";
    case 101:
      return "the output table could not be written";
    case 999:
      return "nothing ran: an argument or list item is missing or unusable, the weights are unusable, "
             "or this model is not available in this module";
    default:
      return "an unknown failure";
  }
}

}  // namespace esf::runner
