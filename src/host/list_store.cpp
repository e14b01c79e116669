// The list store: the registry of the process's component, and items kept
// both as the linked chain the module walks and as an index by position.
#include "host/list_store.h"

#include <atomic>
#include <cstring>
#include <new>

#include "host/host_internal.h"

namespace esf::host::internal {

namespace {
constexpr uint32_t kFmcomMagic = 0x464D434Fu;  // "FMCO"
// Items a list's index has room for at first: most lists of a method call
// hold a few, and the room for them is one cached block.
constexpr std::size_t kFirstItems = IndexAllocator<SLIST_ITEM*>::kItems;
// The low 32 bits of an id: (slot << kShardBits | shard) + 1.
constexpr ListId kSlotBits = 0xFFFFFFFF;
constexpr unsigned kShardBits = Registry::kShardBits;
constexpr unsigned kShardMask = (1u << kShardBits) - 1;

// The shard of the calling thread: threads take shards in turn.
unsigned thread_shard() {
  static std::atomic<unsigned> next{0};
  thread_local const unsigned shard = next.fetch_add(1, std::memory_order_relaxed) & kShardMask;
  return shard;
}

}  // namespace

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
    if (a[i] != b[i] && ascii_upper(a[i]) != ascii_upper(b[i])) return false;
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

namespace {
// An item and a name of up to kInlineName characters share one block of
// memory, the name right after the item; a longer name has its own.
constexpr std::size_t kInlineName = 32;
using ItemBlocks = BlockCache<sizeof(SLIST_ITEM) + kInlineName, 512>;
using ListBlocks = BlockCache<sizeof(HostList), 128>;

tchar* inline_name(SLIST_ITEM* item) { return reinterpret_cast<tchar*>(item + 1); }
}  // namespace

SLIST_ITEM* new_item(const tchar* name, int name_l) {
  auto* item = new (ItemBlocks::take()) SLIST_ITEM{};
  item->type = SL_EMPTY;
  if (name != nullptr && name_l > 0) {
    if (static_cast<std::size_t>(name_l) <= kInlineName) {
      item->name = inline_name(item);
      std::memcpy(item->name, name, static_cast<std::size_t>(name_l));
    } else {
      item->name = copy_text(name, name_l);
    }
    item->name_l = name_l;
  }
  return item;
}

void rename_item(SLIST_ITEM* item, const tchar* name, int name_l) {
  tchar* copy = copy_text(name, name_l);  // before freeing: name may be the item's own
  if (item->name != inline_name(item)) delete[] item->name;
  item->name = copy;
  item->name_l = copy != nullptr ? name_l : 0;
}

void delete_item(SLIST_ITEM* item) {
  clear_value(item);
  if (item->name != inline_name(item)) delete[] item->name;
  item->~SLIST_ITEM();
  ItemBlocks::give(item);
}

namespace {

void reset_walk(List list) {
  list->lastUsed = nullptr;
  list->lastIndex = 0;
}

HostList::Index& index_of(List list) { return static_cast<HostList*>(list)->index; }

}  // namespace

void append_item(List list, SLIST_ITEM* item) {
  item->next = nullptr;
  if (list->tail != nullptr) {
    list->tail->next = item;
  } else {
    list->head = item;
  }
  list->tail = item;
  ++list->length;
  HostList::Index& index = index_of(list);
  if (index.capacity() == 0) index.reserve(kFirstItems);
  index.push_back(item);
}

// Inserts before position `index` (1-based); -1 or past the end appends.
void insert_item(List list, SLIST_ITEM* item, SLIndex index) {
  if (index < 1 || index > list->length) {
    append_item(list, item);
    return;
  }
  reset_walk(list);
  HostList::Index& index_items = index_of(list);
  if (index == 1) {
    item->next = list->head;
    list->head = item;
  } else {
    SLIST_ITEM* prev = index_items[static_cast<std::size_t>(index - 2)];
    item->next = prev->next;
    prev->next = item;
  }
  index_items.insert(index_items.begin() + (index - 1), item);
  ++list->length;
}

bool delete_item_at(List list, SLIndex index) {
  if (list == nullptr || index < 1 || index > list->length) return false;
  reset_walk(list);
  HostList::Index& index_items = index_of(list);
  const auto at = static_cast<std::size_t>(index - 1);
  SLIST_ITEM* item = index_items[at];
  SLIST_ITEM* prev = at > 0 ? index_items[at - 1] : nullptr;
  (prev != nullptr ? prev->next : list->head) = item->next;
  if (list->tail == item) list->tail = prev;
  --list->length;
  index_items.erase(index_items.begin() + static_cast<std::ptrdiff_t>(at));
  delete_item(item);
  return true;
}

SLIST_ITEM* item_at(List list, SLIndex index) {
  if (list == nullptr || index < 1 || index > list->length) return nullptr;
  return index_of(list)[static_cast<std::size_t>(index - 1)];
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
  if (from > list->length) return nullptr;
  SLIndex i = from;
  for (SLIST_ITEM* item = item_at(list, from); item != nullptr; item = item->next, ++i) {
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

HostList* make_list(Registry& reg, FMCOM* fmcomp) {
  auto* list = new (ListBlocks::take()) HostList{};
  list->fmcomp = fmcomp;
  const unsigned shard = thread_shard();
  RegistryShard& sh = reg.shards[shard];
  std::lock_guard lock(sh.mutex);
  std::uint32_t slot = 0;
  if (!sh.free_slots.empty()) {
    slot = sh.free_slots.back();
    sh.free_slots.pop_back();
  } else {
    slot = static_cast<std::uint32_t>(sh.slots.size());
    sh.slots.push_back(nullptr);
    sh.generation.push_back(0);
  }
  sh.slots[slot] = list;
  const ListId number = (static_cast<ListId>(slot) << kShardBits | shard) + 1;
  list->id = static_cast<ListId>(sh.generation[slot]) << 32 | number;
  ++sh.live;
  return list;
}

std::size_t live_lists(Registry& reg) {
  std::size_t live = 0;
  for (RegistryShard& sh : reg.shards) {
    std::lock_guard lock(sh.mutex);
    live += sh.live;
  }
  return live;
}

namespace {
// The shard that holds an id, or null when no id can be there.
RegistryShard* shard_of(Registry& reg, ListId id) {
  const ListId number = id & kSlotBits;
  if (id <= 0 || number == 0) return nullptr;
  return &reg.shards[static_cast<std::size_t>((number - 1) & kShardMask)];
}
// The slot of an id in its shard, or -1 when no list of the shard holds it;
// the shard's mutex must be held.
long slot_of(const RegistryShard& sh, ListId id) {
  const ListId slot = ((id & kSlotBits) - 1) >> kShardBits;
  if (slot >= static_cast<ListId>(sh.slots.size())) return -1;
  const HostList* list = sh.slots[static_cast<std::size_t>(slot)];
  return list != nullptr && list->id == id ? static_cast<long>(slot) : -1;
}
}  // namespace

void delete_list(HostList* list) {
  list->~HostList();
  ListBlocks::give(list);
}

List lookup(FMCOM* fmcomp, ListId id) {
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr || id == 0) return nullptr;
  RegistryShard* sh = shard_of(*reg, id);
  if (sh == nullptr) return nullptr;
  std::lock_guard lock(sh->mutex);
  const long slot = slot_of(*sh, id);
  return slot < 0 ? nullptr : sh->slots[static_cast<std::size_t>(slot)];
}

HostList* unregister(Registry& reg, ListId id) {
  RegistryShard* sh = shard_of(reg, id);
  if (sh == nullptr) return nullptr;
  std::lock_guard lock(sh->mutex);
  const long slot = slot_of(*sh, id);
  if (slot < 0) return nullptr;
  const auto s = static_cast<std::size_t>(slot);
  HostList* list = sh->slots[s];
  sh->slots[s] = nullptr;
  // A slot whose generations ran out is not used again.
  if (++sh->generation[s] < 0x7FFFFFFFu) sh->free_slots.push_back(static_cast<std::uint32_t>(s));
  --sh->live;
  return list;
}

void free_list_rec(FMCOM* fmcomp, ListId id, bool deep) {
  // A list is out of the registry before its items go, so a sublist met
  // twice (or a list that holds itself) is freed once.
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr) return;
  HostList* list = unregister(*reg, id);
  if (list == nullptr) return;
  SLIST_ITEM* item = list->head;
  while (item != nullptr) {
    SLIST_ITEM* next = item->next;
    if (deep && item->type == SL_LIST) free_list_rec(fmcomp, item->data.id, deep);
    delete_item(item);
    item = next;
  }
  delete_list(list);
}

ListId copy_list_rec(List list, FMCOM* fmcomp, std::set<ListId>& path) {
  Registry* reg = registry_of(fmcomp);
  if (reg == nullptr || list == nullptr) return 0;
  if (!path.insert(list->id).second) return 0;  // a list that holds itself
  HostList* copy = make_list(*reg, fmcomp);
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

}  // namespace esf::host::internal
