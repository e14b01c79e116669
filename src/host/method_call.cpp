// Method arguments: posargs and posretd, which the module reads and answers
// its arguments with, and MethodCall, with which host programs build them.
#include <cstdarg>
#include <stdexcept>

#include "host/host.h"
#include "host/host_internal.h"
#include "host/list_store.h"

extern "C" {

int posargs(PSCPLIST* plist, List /*self*/, int min, int max, int* nargs, ...) {
  const int passed = plist != nullptr ? plist->nargs : 0;
  if (nargs != nullptr) *nargs = passed;
  int rc = (plist != nullptr && passed >= min && passed <= max) ? 0 : 1;

  va_list ap;
  va_start(ap, nargs);
  for (int k = 0; k < max; ++k) {
    const int type = va_arg(ap, int);
    const PSCPARG* arg = (plist != nullptr && k < passed && k < PSCP_MAXARGS) ? &plist->args[k] : nullptr;
    const bool present = arg != nullptr && arg->missing == 0;
    switch (type) {
      case POS_LIST: {
        List* out = va_arg(ap, List*);
        const bool ok = present && arg->type == POS_LIST;
        if (present && !ok) rc = rc != 0 ? rc : 2;
        if (out != nullptr) *out = ok ? arg->list : nullptr;
        break;
      }
      case POS_CHAR: {
        tchar** text = va_arg(ap, tchar**);
        int* len = va_arg(ap, int*);
        const bool ok = present && arg->type == POS_CHAR;
        if (present && !ok) rc = rc != 0 ? rc : 2;
        if (text != nullptr) *text = ok ? arg->text : nullptr;
        if (len != nullptr) *len = ok ? arg->text_l : 0;
        break;
      }
      case POS_DOUBLE:
      case POS_INT: {
        void* value = va_arg(ap, void*);
        char* missing = va_arg(ap, char*);
        const bool numeric = present && (arg->type == POS_DOUBLE || arg->type == POS_INT);
        if (present && !numeric) rc = rc != 0 ? rc : 2;
        const bool usable = numeric && !esf::host::internal::is_missing(arg->d);
        if (missing != nullptr) *missing = usable ? 0 : 1;
        if (value != nullptr && usable) {
          if (type == POS_DOUBLE) {
            *static_cast<double*>(value) = arg->d;
          } else {
            *static_cast<int*>(value) = static_cast<int>(arg->d);
          }
        }
        break;
      }
      default:
        // An unknown code: the remaining pointers cannot be read.
        va_end(ap);
        return 3;
    }
  }
  va_end(ap);
  return rc;
}

int posretd(PSCPLIST* plist, int slot, double value, int /*flags*/) {
  const int index = slot - 2;
  if (plist == nullptr || index < 0 || index >= PSCP_MAXARGS) return 1;
  PSCPARG& arg = plist->args[index];
  arg.d = value;
  arg.missing = 0;
  arg.written = 1;
  return 0;
}

}  // extern "C"

namespace esf::host {

MethodCall::MethodCall() {
  u_.fmcomp = fmcomp();
  plist_.u = &u_;
  texts_.reserve(PSCP_MAXARGS);
}

namespace {
PSCPARG& next_arg(PSCPLIST& plist) {
  if (plist.nargs >= PSCP_MAXARGS) throw std::length_error("a method call takes at most 16 arguments");
  PSCPARG& arg = plist.args[plist.nargs++];
  arg = PSCPARG{};
  return arg;
}
}  // namespace

MethodCall& MethodCall::list(List list) {
  PSCPARG& arg = next_arg(plist_);
  arg.type = POS_LIST;
  arg.list = list;
  arg.missing = list == nullptr ? 1 : 0;
  return *this;
}

MethodCall& MethodCall::text(std::string_view text) {
  PSCPARG& arg = next_arg(plist_);
  texts_.emplace_back(text);
  arg.type = POS_CHAR;
  arg.text = texts_.back().data();
  arg.text_l = static_cast<int>(texts_.back().size());
  return *this;
}

MethodCall& MethodCall::number(double value) {
  PSCPARG& arg = next_arg(plist_);
  arg.type = POS_DOUBLE;
  arg.d = value;
  arg.missing = internal::is_missing(value) ? 1 : 0;
  return *this;
}

MethodCall& MethodCall::missing_number() {
  PSCPARG& arg = next_arg(plist_);
  arg.type = POS_DOUBLE;
  arg.d = internal::ordinary_missing();
  arg.missing = 1;
  return *this;
}

std::optional<double> MethodCall::written(int slot) const {
  const int index = slot - 2;
  if (index < 0 || index >= PSCP_MAXARGS || plist_.args[index].written == 0) return std::nullopt;
  return plist_.args[index].d;
}

std::optional<int> MethodCall::return_code() const {
  std::optional<double> v = written(plist_.nargs + 1);
  if (!v) return std::nullopt;
  return static_cast<int>(*v);
}

}  // namespace esf::host
