// The sl... routines the module calls on the host's lists, and the C++
// helpers host programs build and read lists with.
#include <cstring>
#include <set>
#include <string>
#include <type_traits>

#include "host/host.h"
#include "host/host_internal.h"
#include "host/list_store.h"

using namespace esf::host::internal;

namespace {

// The value of a named numeric item as T: 0; 1 when there is no such
// numeric item (the default, when given, is stored); 2 when an integer is
// asked of a missing value, which is left unread.
template <class T>
int get_named_number(List list, const tchar* name, int len, int occurrence, int from, T* out, const T* dflt) {
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr || !is_numeric(item)) {
    if (dflt != nullptr && out != nullptr) *out = *dflt;
    return 1;
  }
  const double v = slgetnv(item, 0);
  if constexpr (std::is_integral_v<T>) {
    if (esf::host::internal::is_missing(v)) return 2;
  }
  if (out != nullptr) *out = static_cast<T>(v);
  return 0;
}

}  // namespace

extern "C" {

ListId slnewl(List* list, FMCOM* fmcomp, int /*flags*/) {
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr) {
    if (list != nullptr) *list = nullptr;
    return 0;
  }
  SLIST* made = make_list(*reg, fmcomp);
  if (list != nullptr) *list = made;
  return made->id;
}

List slistp(ListId id, FMCOM* fmcomp) { return lookup(fmcomp, id); }

int slfree(ListId id, int deep, FMCOM* fmcomp) {
  if (lookup(fmcomp, id) == nullptr) return 1;
  free_list_rec(fmcomp, id, deep != 0);
  return 0;
}

ListId slcopy(List list, int /*from*/, int /*flags*/, FMCOM* fmcomp) {
  if (list == nullptr) return 0;
  std::set<ListId> path;
  return copy_list_rec(list, fmcomp != nullptr ? fmcomp : list->fmcomp, path);
}

int slgnl(List list, const tchar* name, int len, int occurrence, int from, ListId* id, const ListId* dflt) {
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr || item->type != SL_LIST) {
    if (dflt != nullptr && id != nullptr) *id = *dflt;
    return 1;
  }
  if (id != nullptr) *id = item->data.id;
  return 0;
}

int slgnd(List list, const tchar* name, int len, int occurrence, int from, double* out, const double* dflt) {
  return get_named_number(list, name, len, occurrence, from, out, dflt);
}

int slgni(List list, const tchar* name, int len, int occurrence, int from, long* out, const long* dflt) {
  return get_named_number(list, name, len, occurrence, from, out, dflt);
}

int slgns(List list, const tchar* name, int len, int occurrence, int from, short* out, const short* dflt) {
  return get_named_number(list, name, len, occurrence, from, out, dflt);
}

int slgnc(List list, const tchar* name, int len, int occurrence, int from, tchar** out, int* outlen, const tchar* dflt,
          int dfltlen) {
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr || item->type != SL_CHAR) {
    if (dflt != nullptr) {
      if (out != nullptr) *out = const_cast<tchar*>(dflt);
      if (outlen != nullptr) *outlen = dfltlen >= 0 ? dfltlen : static_cast<int>(std::strlen(dflt));
      return item == nullptr ? 0 : 2;
    }
    return 1;
  }
  if (out != nullptr) *out = item->data.c.p != nullptr ? item->data.c.p : const_cast<tchar*>("");
  if (outlen != nullptr) *outlen = item->data.c.len;
  return 0;
}

int slinsl(List list, ListId id, SLIndex index, const tchar* name, int len) {
  if (list == nullptr || id == 0) return 1;
  if (name != nullptr && len < 0) len = static_cast<int>(std::strlen(name));
  SLIST_ITEM* item = new_item(name, len);
  item->type = SL_LIST;
  item->data.id = id;
  insert_item(list, item, index);
  return 0;
}

int slinsd(List list, double value, SLIndex index, const tchar* name, int len) {
  if (list == nullptr) return 1;
  if (name != nullptr && len < 0) len = static_cast<int>(std::strlen(name));
  SLIST_ITEM* item = new_item(name, len);
  set_double(item, value);
  insert_item(list, item, index);
  return 0;
}

int slsetc(List list, SLIndex index, const tchar* s, int len, int /*flags*/) {
  SLIST_ITEM* item = item_at_or_extend(list, index);
  if (item == nullptr || (s == nullptr && len > 0)) return 1;
  if (len < 0) len = static_cast<int>(std::strlen(s));
  set_chars(item, s, len);
  return 0;
}

int slsetd(List list, SLIndex index, double value, int /*flags*/) {
  SLIST_ITEM* item = item_at_or_extend(list, index);
  if (item == nullptr) return 1;
  set_double(item, value);
  return 0;
}

int slseti(List list, SLIndex index, long value, int /*flags*/) {
  SLIST_ITEM* item = item_at_or_extend(list, index);
  if (item == nullptr) return 1;
  set_long(item, value);
  return 0;
}

namespace {
SLIST_ITEM* named_or_new(List list, const tchar* name, int& len, int occurrence, int from) {
  if (list == nullptr || name == nullptr) return nullptr;
  if (len < 0) len = static_cast<int>(std::strlen(name));
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr) {
    item = new_item(name, len);
    append_item(list, item);
  }
  return item;
}
}  // namespace

int slsnc(List list, const tchar* s, int slen, const tchar* name, int len, int occurrence, int from) {
  if (s == nullptr && slen > 0) return 1;
  SLIST_ITEM* item = named_or_new(list, name, len, occurrence, from);
  if (item == nullptr) return 1;
  if (slen < 0) slen = static_cast<int>(std::strlen(s));
  set_chars(item, s, slen);
  return 0;
}

int slsnd(List list, double value, const tchar* name, int len, int occurrence, int from) {
  SLIST_ITEM* item = named_or_new(list, name, len, occurrence, from);
  if (item == nullptr) return 1;
  set_double(item, value);
  return 0;
}

int slsni(List list, long value, const tchar* name, int len, int occurrence, int from) {
  SLIST_ITEM* item = named_or_new(list, name, len, occurrence, from);
  if (item == nullptr) return 1;
  set_long(item, value);
  return 0;
}

int slsns(List list, short value, const tchar* name, int len, int occurrence, int from) {
  SLIST_ITEM* item = named_or_new(list, name, len, occurrence, from);
  if (item == nullptr) return 1;
  clear_value(item);
  item->type = SL_SHORT;
  item->data.s = value;
  return 0;
}

int slitmc(List list, SLIndex index, tchar** s, int* len) {
  SLIST_ITEM* item = item_at(list, index);
  if (item == nullptr || item->type != SL_CHAR) return 1;
  if (s != nullptr) *s = item->data.c.p != nullptr ? item->data.c.p : const_cast<tchar*>("");
  if (len != nullptr) *len = item->data.c.len;
  return 0;
}

int slitmi(List list, SLIndex index, long* out) {
  SLIST_ITEM* item = item_at(list, index);
  if (item == nullptr || !is_numeric(item)) return 1;
  double v = slgetnv(item, 0);
  if (esf::host::internal::is_missing(v)) return 2;
  if (out != nullptr) *out = static_cast<long>(v);
  return 0;
}

int slitml(List list, SLIndex index, ListId* out) {
  SLIST_ITEM* item = item_at(list, index);
  if (item == nullptr || item->type != SL_LIST) return 1;
  if (out != nullptr) *out = item->data.id;
  return 0;
}

int slni(List list, SLIndex index, const tchar* name, int len) {
  SLIST_ITEM* item = item_at(list, index);
  if (item == nullptr) return 1;
  if (name != nullptr && len < 0) len = static_cast<int>(std::strlen(name));
  rename_item(item, name, len);
  return 0;
}

SLIndex slsrchc(List list, const tchar* s, int n, int occurrence, int caseless, int from, int /*flags*/) {
  if (list == nullptr || s == nullptr) return 0;
  if (n < 0) n = static_cast<int>(std::strlen(s));
  int want = trimmed(s, n);
  if (occurrence < 1) occurrence = 1;
  SLIndex i = 1;
  for (SLIST_ITEM* item = list->head; item != nullptr; item = item->next, ++i) {
    if (i < from || item->type != SL_CHAR) continue;
    int have = trimmed(item->data.c.p, item->data.c.len);
    bool equal = caseless
                     ? same_name(item->data.c.p, have, s, want)
                     : have == want && (want == 0 || std::memcmp(item->data.c.p, s, static_cast<size_t>(want)) == 0);
    if (equal && --occurrence == 0) return i;
  }
  return 0;
}

SLIndex slsrchn(List list, const tchar* name, int len, int occurrence, SLIndex from) {
  SLIndex where = 0;
  if (find_named(list, name, len, occurrence, from, &where) == nullptr) return 0;
  return where;
}

int slditm(List list, SLIndex index) { return delete_item_at(list, index) ? 0 : 1; }

double slgetnv(const SLIST_ITEM* item, int /*flags*/) {
  if (item == nullptr) return esf::host::internal::ordinary_missing();
  switch (item->type) {
    case SL_NUMBER:
      return item->data.d;
    case SL_INTEGER:
    case SL_COUNT:
      return static_cast<double>(item->data.i);
    case SL_SHORT:
      return static_cast<double>(item->data.s);
    case SL_BOOLEAN:
      return item->data.b != 0 ? 1.0 : 0.0;
    default:
      return esf::host::internal::ordinary_missing();
  }
}

}  // extern "C"

namespace esf::host {

FMCOM* fmcomp() { return &session_fmcom(); }

List new_list() {
  List list = nullptr;
  slnewl(&list, fmcomp(), 84);
  return list;
}

void free_list(List list) {
  if (list != nullptr) slfree(list->id, 1, list->fmcomp);
}

std::size_t live_lists() { return live_lists(*registry_of(fmcomp())); }

namespace {
const tchar* name_ptr(std::string_view name) { return name.empty() ? nullptr : name.data(); }
int name_len(std::string_view name) { return static_cast<int>(name.size()); }
}  // namespace

void append_number(List list, double value, std::string_view name) {
  slinsd(list, value, -1, name_ptr(name), name_len(name));
}

void append_integer(List list, long value, std::string_view name) {
  SLIST_ITEM* item = new_item(name_ptr(name), name_len(name));
  set_long(item, value);
  append_item(list, item);
}

void append_text(List list, std::string_view text, std::string_view name) {
  SLIST_ITEM* item = new_item(name_ptr(name), name_len(name));
  set_chars(item, text.data(), static_cast<int>(text.size()));
  append_item(list, item);
}

List add_list(List list, std::string_view name) {
  List sub = nullptr;
  slnewl(&sub, list->fmcomp, 84);
  slinsl(list, sub->id, -1, name_ptr(name), name_len(name));
  return sub;
}

void set_number(List list, std::string_view name, double value) {
  slsnd(list, value, name.data(), name_len(name), 1, 1);
}

void set_integer(List list, std::string_view name, long value) {
  slsni(list, value, name.data(), name_len(name), 1, 1);
}

void set_text(List list, std::string_view name, std::string_view text) {
  slsnc(list, text.data(), static_cast<int>(text.size()), name.data(), name_len(name), 1, 1);
}

const SLIST_ITEM* find_item(List list, std::string_view name) {
  return find_named(list, name.data(), name_len(name), 1, 1, nullptr);
}

List find_list(List list, std::string_view name) {
  const SLIST_ITEM* item = find_item(list, name);
  return item != nullptr ? sublist(item) : nullptr;
}

std::optional<double> find_number(List list, std::string_view name) {
  const SLIST_ITEM* item = find_item(list, name);
  if (item == nullptr || !is_numeric(item)) return std::nullopt;
  return slgetnv(item, 0);
}

std::optional<std::string> find_text(List list, std::string_view name) {
  const SLIST_ITEM* item = find_item(list, name);
  if (item == nullptr || item->type != SL_CHAR) return std::nullopt;
  return std::string(item->data.c.p != nullptr ? item->data.c.p : "", static_cast<size_t>(item->data.c.len));
}

std::vector<const SLIST_ITEM*> items(List list) {
  std::vector<const SLIST_ITEM*> out;
  if (list == nullptr) return out;
  for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next) out.push_back(item);
  return out;
}

List sublist(const SLIST_ITEM* item) {
  if (item == nullptr || item->type != SL_LIST) return nullptr;
  return lookup(fmcomp(), item->data.id);
}

std::string item_name(const SLIST_ITEM* item) {
  if (item == nullptr || item->name == nullptr) return {};
  return std::string(item->name, static_cast<size_t>(item->name_l));
}

}  // namespace esf::host
