// The list store of the host: the registry of a component's lists and the
// items they hold.  Shared by the units of the host stand-in that work on
// lists (the sl... routines, the C++ helpers, the JSON conversion); not for
// host programs (they use host.h) nor for the module (module/host_api.h).
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <vector>

#include "host/host_internal.h"
#include "module/host_api.h"

namespace esf::host::internal {

// Storage of the indexes of lists: a block of room for up to kItems items
// comes from the calling thread's cache of such blocks, as the lists and
// items do, since a method call makes and frees a dozen short lists.
template <class T>
struct IndexAllocator {
  using value_type = T;
  static constexpr std::size_t kItems = 16;
  using Blocks = BlockCache<kItems * sizeof(T), 256>;

  IndexAllocator() = default;
  template <class U>
  explicit IndexAllocator(const IndexAllocator<U>&) {}
  T* allocate(std::size_t n) { return static_cast<T*>(n <= kItems ? Blocks::take() : ::operator new(n * sizeof(T))); }
  void deallocate(T* p, std::size_t n) {
    if (n <= kItems) {
      Blocks::give(p);
    } else {
      ::operator delete(p);
    }
  }
  friend bool operator==(const IndexAllocator&, const IndexAllocator&) { return true; }
};

// A list as the host keeps it: the record the module reads, and an index of
// its items by position, so that indexed access costs the same at any
// position.
struct HostList : SLIST {
  using Index = std::vector<SLIST_ITEM*, IndexAllocator<SLIST_ITEM*>>;
  Index index;  // index[i - 1] is item i
};

// The lists of one shard of a registry.  A list lives in a numbered slot of
// the shard of the thread that made it, so threads that each make and free
// their own lists do not share a mutex or a cache line.
struct alignas(64) RegistryShard {
  std::mutex mutex;
  std::vector<HostList*> slots;           // the list of each slot, null when free
  std::vector<std::uint32_t> generation;  // of each slot
  std::vector<std::uint32_t> free_slots;  // slots to use again, the last first
  std::size_t live = 0;                   // lists held
};

// All lists of one component, found by id.  The low 32 bits of an id number
// its shard and its slot in the shard (from 1); the high ones hold the slot's
// generation, counted up each time a list of the slot is freed, so an id is
// never given twice and finding a list costs an index.
struct Registry {
  static constexpr unsigned kShardBits = 4;
  RegistryShard shards[1u << kShardBits];
};

Registry* registry_of(FMCOM* fmcomp);
// The component of this process.
FMCOM& session_fmcom();

// Names compare without regard to case.
bool same_name(const tchar* a, int alen, const tchar* b, int blen);
// Length without trailing blanks.
int trimmed(const tchar* s, int len);
tchar* copy_text(const tchar* s, int len);

// Releases what an item owns apart from sublists.
void clear_value(SLIST_ITEM* item);
// An empty item; its name is kept in the same block of memory.
SLIST_ITEM* new_item(const tchar* name, int name_l);
void delete_item(SLIST_ITEM* item);
// Gives the item a copy of `name` as its name.
void rename_item(SLIST_ITEM* item, const tchar* name, int name_l);
void append_item(List list, SLIST_ITEM* item);
// Inserts before position `index` (1-based); -1 or past the end appends.
void insert_item(List list, SLIST_ITEM* item, SLIndex index);
// Unlinks and deletes the item at `index`; false when there is none.
bool delete_item_at(List list, SLIndex index);
SLIST_ITEM* item_at(List list, SLIndex index);
// The item at `index`, extending the list with empty items when needed.
SLIST_ITEM* item_at_or_extend(List list, SLIndex index);
// The `occurrence`-th item so named, counting from position `from`.
SLIST_ITEM* find_named(List list, const tchar* name, int len, int occurrence, SLIndex from, SLIndex* where);

bool is_numeric(const SLIST_ITEM* item);
void set_double(SLIST_ITEM* item, double value);
void set_long(SLIST_ITEM* item, long value);
void set_chars(SLIST_ITEM* item, const tchar* s, int len);

HostList* make_list(Registry& reg, FMCOM* fmcomp);
// Lists held in all shards.
std::size_t live_lists(Registry& reg);
// Frees a list taken out of the registry; its items must be gone.
void delete_list(HostList* list);
List lookup(FMCOM* fmcomp, ListId id);
// Takes the list out of the registry; null when there is no such list.
HostList* unregister(Registry& reg, ListId id);
void free_list_rec(FMCOM* fmcomp, ListId id, bool deep);
ListId copy_list_rec(List list, FMCOM* fmcomp, std::set<ListId>& path);

}  // namespace esf::host::internal
