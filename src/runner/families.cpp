#include "runner/families.h"

#include <array>

#include "module/families.h"

namespace esf::runner {
namespace {

// One model for each form of each row of the module's family table, in the
// table's order; the methods are found by their names.
constexpr int count_forms() {
  int n = 0;
  for (const esf::Family& f : esf::kFamilies) {
    for (const esf::FamilyForm& form : f.forms) n += form.name != nullptr ? 1 : 0;
  }
  return n;
}

constexpr std::array<Family, count_forms()> make_families() {
  std::array<Family, count_forms()> out{};
  int i = 0;
  for (const esf::Family& f : esf::kFamilies) {
    for (const esf::FamilyForm& form : f.forms) {
      if (form.name == nullptr) continue;
      Family& m = out[static_cast<std::size_t>(i++)];
      m.name = form.name;
      m.title = form.title;
      m.fit_slot = esf::method_slot(f.fit_method);
      m.forecast_slot = esf::method_slot(f.forecast_method);
      for (int k = 0; k < kNumWeightKinds; ++k) m.weights[static_cast<std::size_t>(k)] = f.has_weight(k);
      m.trended = f.trended;
      m.seasonal = f.seasonal;
      m.type = f.type_text;
      m.code = form.code;
    }
  }
  return out;
}

constexpr std::array<Family, count_forms()> kFamilies = make_families();

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
