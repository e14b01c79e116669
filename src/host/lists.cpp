// Named lists of the host: the registry of a component, the sl... routines
// the module calls, the method-argument routines posargs and posretd, and the
// C++ helpers and JSON conversion for host programs.
#include <cctype>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include "host/host.h"
#include "host/host_internal.h"

namespace {

constexpr uint32_t kFmcomMagic = 0x464D434Fu;  // "FMCO"

// All lists of one component, found by id.
struct Registry {
  std::mutex mutex;
  std::unordered_map<ListId, SLIST*> lists;
  ListId next_id = 1;
};

Registry* registry_of(FMCOM* fmcomp) {
  if (fmcomp == nullptr || fmcomp->magic != kFmcomMagic) return nullptr;
  return static_cast<Registry*>(fmcomp->registry);
}

FMCOM& session_fmcom() {
  static Registry registry;
  static FMCOM fmcom{kFmcomMagic, &registry};
  return fmcom;
}

bool same_name(const tchar* a, int alen, const tchar* b, int blen) {
  if (alen != blen) return false;
  for (int i = 0; i < alen; ++i) {
    if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

// Length without trailing blanks.
int trimmed(const tchar* s, int len) {
  while (len > 0 && s[len - 1] == ' ') --len;
  return len;
}

tchar* copy_text(const tchar* s, int len) {
  if (len <= 0) return nullptr;
  auto* p = new tchar[len];
  std::memcpy(p, s, static_cast<size_t>(len));
  return p;
}

// Releases what an item owns apart from sublists.
void clear_value(SLIST_ITEM* item) {
  if (item->type == SL_CHAR) delete[] item->data.c.p;
  item->data.c.p = nullptr;
  item->data.c.len = 0;
  item->data.d = 0.0;
}

SLIST_ITEM* new_item(const tchar* name, int name_l) {
  auto* item = new SLIST_ITEM{};
  item->type = SL_EMPTY;
  if (name != nullptr && name_l > 0) {
    item->name = copy_text(name, name_l);
    item->name_l = name_l;
  }
  return item;
}

void delete_item(SLIST_ITEM* item) {
  clear_value(item);
  delete[] item->name;
  delete item;
}

void reset_walk(List list) {
  list->lastUsed = nullptr;
  list->lastIndex = 0;
}

void append_item(List list, SLIST_ITEM* item) {
  item->next = nullptr;
  if (list->tail != nullptr) {
    list->tail->next = item;
  } else {
    list->head = item;
  }
  list->tail = item;
  ++list->length;
}

// Inserts before position `index` (1-based); -1 or past the end appends.
void insert_item(List list, SLIST_ITEM* item, SLIndex index) {
  if (index < 1 || index > list->length) {
    append_item(list, item);
    return;
  }
  reset_walk(list);
  if (index == 1) {
    item->next = list->head;
    list->head = item;
  } else {
    SLIST_ITEM* prev = list->head;
    for (SLIndex i = 2; i < index; ++i) prev = prev->next;
    item->next = prev->next;
    prev->next = item;
  }
  ++list->length;
}

SLIST_ITEM* item_at(List list, SLIndex index) {
  if (list == nullptr || index < 1 || index > list->length) return nullptr;
  SLIST_ITEM* item = list->head;
  for (SLIndex i = 1; i < index && item != nullptr; ++i) item = item->next;
  return item;
}

// The item at `index`, extending the list with empty items when needed.
SLIST_ITEM* item_at_or_extend(List list, SLIndex index) {
  if (list == nullptr || index < 1) return nullptr;
  while (list->length < index) append_item(list, new_item(nullptr, 0));
  return item_at(list, index);
}

// The `occurrence`-th item so named, counting from position `from`.
SLIST_ITEM* find_named(List list, const tchar* name, int len, int occurrence, SLIndex from, SLIndex* where) {
  if (list == nullptr || name == nullptr) return nullptr;
  if (len < 0) len = static_cast<int>(std::strlen(name));
  if (occurrence < 1) occurrence = 1;
  if (from < 1) from = 1;
  SLIndex i = 1;
  for (SLIST_ITEM* item = list->head; item != nullptr; item = item->next, ++i) {
    if (i < from) continue;
    if (item->name != nullptr && same_name(item->name, item->name_l, name, len) && --occurrence == 0) {
      if (where != nullptr) *where = i;
      return item;
    }
  }
  return nullptr;
}

bool is_numeric(const SLIST_ITEM* item) {
  switch (item->type) {
    case SL_NUMBER:
    case SL_INTEGER:
    case SL_SHORT:
    case SL_BOOLEAN:
    case SL_COUNT:
      return true;
    default:
      return false;
  }
}

void set_double(SLIST_ITEM* item, double value) {
  clear_value(item);
  item->type = SL_NUMBER;
  item->data.d = value;
}

void set_long(SLIST_ITEM* item, long value) {
  clear_value(item);
  item->type = SL_INTEGER;
  item->data.i = value;
}

void set_chars(SLIST_ITEM* item, const tchar* s, int len) {
  tchar* copy = copy_text(s, len);  // before clearing: s may point into the item
  clear_value(item);
  item->type = SL_CHAR;
  item->data.c.p = copy;
  item->data.c.len = copy != nullptr ? len : 0;
}

SLIST* make_list(Registry& reg, FMCOM* fmcomp) {
  std::lock_guard lock(reg.mutex);
  auto* list = new SLIST{};
  list->id = reg.next_id++;
  list->fmcomp = fmcomp;
  reg.lists.emplace(list->id, list);
  return list;
}

List lookup(FMCOM* fmcomp, ListId id) {
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr || id == 0) return nullptr;
  std::lock_guard lock(reg->mutex);
  auto it = reg->lists.find(id);
  return it == reg->lists.end() ? nullptr : it->second;
}

void free_list_rec(FMCOM* fmcomp, ListId id, bool deep, std::set<ListId>& seen) {
  if (!seen.insert(id).second) return;
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr) return;
  SLIST* list = nullptr;
  {
    std::lock_guard lock(reg->mutex);
    auto it = reg->lists.find(id);
    if (it == reg->lists.end()) return;
    list = it->second;
    reg->lists.erase(it);
  }
  SLIST_ITEM* item = list->head;
  while (item != nullptr) {
    SLIST_ITEM* next = item->next;
    if (deep && item->type == SL_LIST) free_list_rec(fmcomp, item->data.id, deep, seen);
    delete_item(item);
    item = next;
  }
  delete list;
}

ListId copy_list_rec(List list, FMCOM* fmcomp, std::set<ListId>& path) {
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr || list == nullptr) return 0;
  if (!path.insert(list->id).second) return 0;  // a list that holds itself
  SLIST* copy = make_list(*reg, fmcomp);
  for (SLIST_ITEM* item = list->head; item != nullptr; item = item->next) {
    SLIST_ITEM* dup = new_item(item->name, item->name_l);
    dup->type = item->type;
    if (item->type == SL_CHAR) {
      dup->data.c.p = copy_text(item->data.c.p, item->data.c.len);
      dup->data.c.len = dup->data.c.p != nullptr ? item->data.c.len : 0;
    } else if (item->type == SL_LIST) {
      List sub = lookup(list->fmcomp, item->data.id);
      dup->data.id = sub != nullptr ? copy_list_rec(sub, fmcomp, path) : 0;
    } else {
      dup->data = item->data;
    }
    append_item(copy, dup);
  }
  path.erase(list->id);
  return copy->id;
}

}  // namespace

// ===========================================================================
// The sl... family
// ===========================================================================

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
  std::set<ListId> seen;
  free_list_rec(fmcomp, id, deep != 0, seen);
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
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr || !is_numeric(item)) {
    if (dflt != nullptr && out != nullptr) *out = *dflt;
    return 1;
  }
  if (out != nullptr) *out = slgetnv(item, 0);
  return 0;
}

int slgni(List list, const tchar* name, int len, int occurrence, int from, long* out, const long* dflt) {
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr || !is_numeric(item)) {
    if (dflt != nullptr && out != nullptr) *out = *dflt;
    return 1;
  }
  double v = slgetnv(item, 0);
  if (esf::host::internal::is_missing(v)) return 2;
  if (out != nullptr) *out = static_cast<long>(v);
  return 0;
}

int slgns(List list, const tchar* name, int len, int occurrence, int from, short* out, const short* dflt) {
  SLIST_ITEM* item = find_named(list, name, len, occurrence, from, nullptr);
  if (item == nullptr || !is_numeric(item)) {
    if (dflt != nullptr && out != nullptr) *out = *dflt;
    return 1;
  }
  double v = slgetnv(item, 0);
  if (esf::host::internal::is_missing(v)) return 2;
  if (out != nullptr) *out = static_cast<short>(v);
  return 0;
}

int slgnc(List list, const tchar* name, int len, int occurrence, int from, tchar** out, int* outlen,
          const tchar* dflt, int dfltlen) {
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
  tchar* copy = copy_text(name, len);
  delete[] item->name;
  item->name = copy;
  item->name_l = copy != nullptr ? len : 0;
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
    bool equal = caseless ? same_name(item->data.c.p, have, s, want)
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

int slditm(List list, SLIndex index) {
  if (list == nullptr || index < 1 || index > list->length) return 1;
  reset_walk(list);
  SLIST_ITEM* prev = nullptr;
  SLIST_ITEM* item = list->head;
  for (SLIndex i = 1; i < index; ++i) {
    prev = item;
    item = item->next;
  }
  (prev != nullptr ? prev->next : list->head) = item->next;
  if (list->tail == item) list->tail = prev;
  --list->length;
  delete_item(item);
  return 0;
}

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

// ===========================================================================
// Method arguments
// ===========================================================================

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

// ===========================================================================
// C++ helpers for host programs
// ===========================================================================

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

std::size_t live_lists() {
  Registry* reg = registry_of(fmcomp());
  std::lock_guard lock(reg->mutex);
  return reg->lists.size();
}

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

// ---- JSON ------------------------------------------------------------------

namespace {

using Json = nlohmann::ordered_json;

Json value_to_json(const SLIST_ITEM* item, FMCOM* fmcomp, std::set<ListId>& path);

Json list_to_json(List list, FMCOM* fmcomp, std::set<ListId>& path) {
  if (list == nullptr) return nullptr;
  if (!path.insert(list->id).second) throw std::invalid_argument("list holds itself; it has no JSON form");
  bool any_named = false;
  bool all_named = true;
  std::set<std::string> names;
  bool distinct = true;
  for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next) {
    if (item->name == nullptr) {
      all_named = false;
      continue;
    }
    any_named = true;
    std::string upper = item_name(item);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (!names.insert(upper).second) distinct = false;
  }
  Json out;
  if (!any_named) {
    out = Json::array();
    for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next)
      out.push_back(value_to_json(item, fmcomp, path));
  } else if (all_named && distinct) {
    out = Json::object();
    for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next)
      out[item_name(item)] = value_to_json(item, fmcomp, path);
  } else {
    Json entries = Json::array();
    for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next) {
      Json entry = Json::object();
      entry["name"] = item->name != nullptr ? Json(item_name(item)) : Json(nullptr);
      entry["value"] = value_to_json(item, fmcomp, path);
      entries.push_back(std::move(entry));
    }
    out = Json::object();
    out["$items"] = std::move(entries);
  }
  path.erase(list->id);
  return out;
}

Json value_to_json(const SLIST_ITEM* item, FMCOM* fmcomp, std::set<ListId>& path) {
  switch (item->type) {
    case SL_NUMBER: {
      const double v = item->data.d;
      if (!internal::is_missing(v)) return v;
      const std::string kind = internal::missing_kind_name(v);
      if (kind == ".") return nullptr;
      return Json{{"$missing", kind}};
    }
    case SL_INTEGER:
    case SL_COUNT:
      return item->data.i;
    case SL_SHORT:
      return static_cast<long>(item->data.s);
    case SL_BOOLEAN:
      return item->data.b != 0;
    case SL_CHAR:
      return std::string(item->data.c.p != nullptr ? item->data.c.p : "", static_cast<size_t>(item->data.c.len));
    case SL_LIST:
      return list_to_json(lookup(fmcomp, item->data.id), fmcomp, path);
    default:
      return Json{{"$empty", true}};
  }
}

void fill_from_json(List list, const Json& json, const std::string& where);

// Appends one value as an item named `name` (empty: unnamed).
void append_json_value(List list, const std::string& name, const Json& value, const std::string& where) {
  SLIST_ITEM* item = new_item(name.empty() ? nullptr : name.data(), static_cast<int>(name.size()));
  append_item(list, item);
  if (value.is_null()) {
    set_double(item, internal::ordinary_missing());
  } else if (value.is_boolean()) {
    item->type = SL_BOOLEAN;
    item->data.b = value.get<bool>() ? 1 : 0;
  } else if (value.is_number_integer()) {
    set_long(item, value.get<long>());
  } else if (value.is_number()) {
    set_double(item, value.get<double>());
  } else if (value.is_string()) {
    const auto& s = value.get_ref<const std::string&>();
    set_chars(item, s.data(), static_cast<int>(s.size()));
  } else if (value.is_object() && value.size() == 1 && value.contains("$missing")) {
    const Json& kind = value["$missing"];
    double v = 0;
    if (!kind.is_string() || !internal::missing_from_name(kind.get<std::string>(), &v))
      throw std::invalid_argument(where + ": \"$missing\" must be a missing-value name such as \".A\"");
    set_double(item, v);
  } else if (value.is_object() && value.size() == 1 && value.contains("$empty")) {
    item->type = SL_EMPTY;
  } else {
    List sub = nullptr;
    slnewl(&sub, list->fmcomp, 84);
    item->type = SL_LIST;
    item->data.id = sub->id;
    fill_from_json(sub, value, where);
  }
}

void fill_from_json(List list, const Json& json, const std::string& where) {
  if (json.is_array()) {
    for (std::size_t i = 0; i < json.size(); ++i)
      append_json_value(list, {}, json[i], where + "[" + std::to_string(i) + "]");
  } else if (json.is_object() && json.size() == 1 && json.contains("$items")) {
    const Json& entries = json["$items"];
    if (!entries.is_array()) throw std::invalid_argument(where + ".$items: must be an array");
    for (std::size_t i = 0; i < entries.size(); ++i) {
      const Json& entry = entries[i];
      const std::string at = where + ".$items[" + std::to_string(i) + "]";
      if (!entry.is_object() || !entry.contains("value"))
        throw std::invalid_argument(at + ": must be an object with \"name\" and \"value\"");
      std::string name;
      if (entry.contains("name") && !entry["name"].is_null()) {
        if (!entry["name"].is_string()) throw std::invalid_argument(at + ".name: must be a string or null");
        name = entry["name"].get<std::string>();
      }
      append_json_value(list, name, entry["value"], at + "." + (name.empty() ? "value" : name));
    }
  } else if (json.is_object()) {
    for (const auto& [key, value] : json.items()) {
      if (key.empty()) throw std::invalid_argument(where + ": an item name must not be empty");
      append_json_value(list, key, value, where + "." + key);
    }
  } else {
    throw std::invalid_argument(where + ": a list must be a JSON object or array");
  }
}

}  // namespace

nlohmann::ordered_json to_json(List list) {
  std::set<ListId> path;
  return list_to_json(list, list != nullptr ? list->fmcomp : fmcomp(), path);
}

List from_json(const nlohmann::ordered_json& json) {
  List list = new_list();
  try {
    fill_from_json(list, json, "$");
  } catch (...) {
    free_list(list);
    throw;
  }
  return list;
}

// ---- Method calls ----------------------------------------------------------

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
