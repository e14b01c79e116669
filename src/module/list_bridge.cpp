// The bridge between the host's lists and the module's arrays and interval
// records: numbers out of a list, numbers into a list, the difference of two
// lists of names, renaming items, and interval records to and from lists.
#include <cstring>

#include "intervals/interval.h"
#include "module/host_api.h"
#include "module/method_args.h"
#include "primitives/primitives.h"

namespace {

// Items of these kinds hold a number that slgetnv reads.
bool is_numeric_kind(char type) {
  return type == SL_COUNT || type == SL_INTEGER || type == SL_SHORT || type == SL_BOOLEAN;
}

const tchar* tx(const char* s) { return s; }
int len_of(const char* s) { return static_cast<int>(std::strlen(s)); }

// Sets a named text item; the name is a literal.
int set_named_text(List list, const tchar* s, int slen, const char* name) {
  return slsnc(list, s, slen, tx(name), len_of(name), 1, 1);
}

}  // namespace

extern "C" {

long zgetnum(List inList, long nList, double* array) {
  for (long i = 0; i < nList; ++i) array[i] = esf::kMissing;
  if (inList == nullptr || nList < 1) return 0;

  // Walk the list from its head, moving the list's walking position along.
  inList->lastUsed = nullptr;
  inList->lastIndex = 0;
  long stored = 0;
  for (SLIST_ITEM* item = inList->head; item != nullptr && stored < nList; item = item->next) {
    inList->lastUsed = item;
    ++inList->lastIndex;
    if (item->type == SL_NUMBER) {
      array[stored++] = item->data.d;
    } else if (is_numeric_kind(item->type)) {
      array[stored++] = slgetnv(item, 0);
    }
    // Items of other kinds leave no gap.
  }
  return stored;
}

int zslsetd(List outList, SLIndex nstart, double* array, long narray) {
  for (long t = 0; t < narray; ++t) {
    if (slsetd(outList, nstart + t, array[t], 1) != 0) return -1;
  }
  return 0;
}

int zslseti(List outList, SLIndex nstart, long* array, long narray) {
  for (long t = 0; t < narray; ++t) {
    if (slseti(outList, nstart + t, array[t], 1) != 0) return -1;
  }
  return 0;
}

int zslgeti(List iList, SLIndex nstart, long* array, long narray) {
  for (long t = 0; t < narray; ++t) {
    if (slitmi(iList, nstart + t, &array[t]) != 0) return -1;
  }
  return 0;
}

SLIndex slcmplc(FMCOM* fmcomp, List a, List b, List* anotb) {
  if (a == nullptr || a->length == 0) {
    *anotb = nullptr;
    return 0;
  }
  const ListId copy_id = slcopy(a, 0, 0, fmcomp);
  if (copy_id == 0) return -1;
  List copy = slistp(copy_id, fmcomp);
  if (copy == nullptr) return -1;
  if (b == nullptr || b->length == 0) {
    *anotb = copy;
    return copy->length;
  }
  // From the end, so that deleting an item keeps the lower indexes valid.
  for (SLIndex i = copy->length; i >= 1; --i) {
    tchar* s = nullptr;
    int n = 0;
    if (slitmc(copy, i, &s, &n) == 0 && slsrchc(b, s, n, 1, 0, 1, 1) != 0) slditm(copy, i);
  }
  if (copy->length > 0) {
    *anotb = copy;
    return copy->length;
  }
  *anotb = nullptr;
  slfree(copy_id, 1, fmcomp);
  return 0;
}

int zslsrch(FMCOM* fmcomp, List names, List target) {
  if (names == nullptr || target == nullptr || names->length == 0 || target->length == 0) return 0;
  int renamed = 0;
  for (SLIndex i = 1; i <= names->length; ++i) {
    ListId pair_id = 0;
    if (slitml(names, i, &pair_id) != 0 || pair_id == 0) continue;
    List pair = slistp(pair_id, fmcomp);
    if (pair == nullptr) continue;
    tchar* old_name = nullptr;
    tchar* new_name = nullptr;
    int old_l = 0;
    int new_l = 0;
    if (slgnc(pair, tx("OLD"), 3, 1, 1, &old_name, &old_l, nullptr, 0) != 0) continue;
    if (slgnc(pair, tx("NEW"), 3, 1, 1, &new_name, &new_l, nullptr, 0) != 0) continue;
    if (old_l < 1 || new_l < 1) continue;
    if (old_l == new_l && wzbcup(old_name, new_name, old_l) == 0) continue;

    SLIndex j = 1;
    for (;;) {
      j = slsrchn(target, old_name, old_l, 1, j);
      if (j == 0) break;
      slni(target, j, new_name, new_l);
      ++renamed;
      if (j == target->length) break;
    }
  }
  return renamed;
}

int zqvlint(List intvList, INTERVAL* intv, INTINFO* info) {
  if (intvList == nullptr) return -1;
  tchar* name = nullptr;
  int name_l = 0;
  if (intv == nullptr) {
    if (info == nullptr) return -1;
    if (slgnc(intvList, tx("SINTERVAL"), 9, 1, 1, &name, &name_l, nullptr, 0) != 0) return -1;
    zintstr(name, name_l, &info->sinterval);
    short nseasons = 0;
    if (slgns(intvList, tx("NSEASONS"), 8, 1, 1, &nseasons, nullptr) != 0) return -1;
    info->nseasons = nseasons;
    return 0;
  }
  if (slgnc(intvList, tx("INTERVAL"), 8, 1, 1, &name, &name_l, nullptr, 0) != 0) return -1;
  if (zintstr(name, name_l, intv) != 0) return -1;
  if (info != nullptr) {
    if (slgnc(intvList, tx("SINTERVAL"), 9, 1, 1, &name, &name_l, nullptr, 0) != 0) return -1;
    zintstr(name, name_l, &info->sinterval);
    short nseasons = 0;
    if (slgns(intvList, tx("NSEASONS"), 8, 1, 1, &nseasons, nullptr) != 0) return -1;
    info->nseasons = nseasons;
    short fmtw2 = 0;
    zintfmt(intv, info->format, &info->formatl, &info->formatw, &fmtw2);
  }
  return 0;
}

int zintqvl(INTERVAL* intv, INTINFO* info, List intvList) {
  if (intvList == nullptr || (intv == nullptr && info == nullptr)) return -1;
  if (intv != nullptr) {
    if (set_named_text(intvList, intv->token, intv->tokenlen, "INTERVAL") != 0) return -1;
    const char* unit = "UND";
    switch (intv->units) {
      case kUnitsDate:
        unit = "D";
        break;
      case kUnitsDatetime:
        unit = "DT";
        break;
      case kUnitsObs:
        unit = "N";
        break;
      default:
        break;
    }
    if (set_named_text(intvList, tx(unit), len_of(unit), "TIMEUNIT") != 0) return -1;
    if (info == nullptr) return 0;
  }
  if (set_named_text(intvList, info->sinterval.token, info->sinterval.tokenlen, "SINTERVAL") != 0) return -1;
  slsns(intvList, static_cast<short>(info->nseasons), tx("NSEASONS"), 8, 1, 1);
  // The default format as a name with its width and a point, e.g. "MONYY5.".
  char buf[20];
  const int n =
      xpsstr(buf, 20, "%*s%i.", static_cast<int>(info->formatl), info->format, static_cast<int>(info->formatw));
  set_named_text(intvList, buf, n, "IDFORMAT");
  return 0;
}

}  // extern "C"
