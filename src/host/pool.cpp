// The global control block, the current pool and the module pool, the
// memory-failure indication, the task descriptor with its resource slots, and
// the conversion of image-local addresses.
#include <atomic>
#include <cfloat>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/host.h"
#include "host/host_internal.h"

// A resource block: numbered slots, each holding a pointer and a destructor,
// and names that lead to slots.
struct REB {
  struct Slot {
    ptr value = nullptr;
    REBDTOR dtor = nullptr;
  };
  std::mutex mutex;
  std::map<rebslotid, Slot> slots;
  std::map<std::string, rebslotid> names;
  rebslotid next = 1;
};

namespace {

std::atomic<bool> g_alloc_failed{false};

// Pool bookkeeping: every live block with its size, and an optional budget
// of allocations after which the pool refuses.
struct PoolState {
  std::mutex mutex;
  std::unordered_map<void*, std::size_t> live;
  long budget = -1;  // allocations still allowed; -1 unlimited

  // The pool owns its blocks: what nobody gave back (the method table, which
  // lives as long as the pool) goes when the pool goes, at the end of the
  // process.
  ~PoolState() {
    for (auto& [p, size] : live) std::free(p);
  }
};

PoolState& pool_state() {
  static PoolState state;
  return state;
}

void* pool_alloc(VMPOOL* /*pool*/, long bytes, int flags) {
  PoolState& st = pool_state();
  std::lock_guard lock(st.mutex);
  if (st.budget == 0 || bytes < 0) {
    esf::host::internal::note_allocation_failure();
    return nullptr;
  }
  if (st.budget > 0) --st.budget;
  const std::size_t size = bytes > 0 ? static_cast<std::size_t>(bytes) : 1;
  void* p = (flags & VM_CLEAR) != 0 ? std::calloc(1, size) : std::malloc(size);
  if (p == nullptr) {
    esf::host::internal::note_allocation_failure();
    return nullptr;
  }
  st.live.emplace(p, size);
  return p;
}

int pool_free(VMPOOL* /*pool*/, void* p, long /*len*/, int /*flags*/) {
  if (p == nullptr) return 0;
  PoolState& st = pool_state();
  std::lock_guard lock(st.mutex);
  auto it = st.live.find(p);
  if (it == st.live.end()) return 1;  // not a block of this pool
  st.live.erase(it);
  std::free(p);
  return 0;
}

VMPOOL g_curpool{pool_alloc, pool_free, nullptr};

// The module pool, for records that outlive a method call.
QKMemPtr modpool_alloc(QKPool* /*pool*/, QKMemSize size, int32_t /*flags*/) {
  void* p = std::calloc(1, size > 0 ? static_cast<std::size_t>(size) : 1);
  if (p == nullptr) esf::host::internal::note_allocation_failure();
  return p;
}
void modpool_free(QKPool* /*pool*/, QKMemPtr p) { std::free(p); }
QKPool g_modpool{modpool_alloc, modpool_free};

REB g_task_reb;
REB g_session_reb;
char g_task_name[] = "ESFTASK";
char g_session_name[] = "ESFSESSION";
TASKDESC g_task{1, &g_task_reb, g_task_name, 7, &g_session_reb, g_session_name, 10};

std::atomic<int> g_virv2g_status{0};

std::string slot_name(const tchar* name, int len) {
  if (name == nullptr) return {};
  if (len < 0) len = static_cast<int>(std::strlen(name));
  return std::string(name, static_cast<std::size_t>(len));
}

void clear_block(REB& reb) {
  std::vector<rebslotid> ids;
  {
    std::lock_guard lock(reb.mutex);
    for (const auto& [id, slot] : reb.slots) ids.push_back(id);
  }
  for (rebslotid id : ids) wtrsdel(&reb, id);
}

void end_tasks_at_exit() { esf::host::internal::clear_task_slots(); }

}  // namespace

extern QKHANDLE esf_host_qkhandle;  // options.cpp

namespace {
GCB g_gcb{&g_curpool, &g_modpool, &esf_host_qkhandle, &g_task, DBL_MAX, -DBL_MAX};
GCB* g_gcb_ptr = &g_gcb;
VI_PIDB g_pidb{{'q', 'o', 'r', 'f', 'm', 's', 'm', ' '}, nullptr, 0};
}  // namespace

namespace esf::host::internal {
void note_allocation_failure() { g_alloc_failed.store(true); }
void clear_task_slots() {
  clear_block(g_task_reb);
  clear_block(g_session_reb);
}
}  // namespace esf::host::internal

extern "C" {

void* vmalcp_handler(VMPOOL* pool, long len, int flags) {
  if (pool == nullptr) return nullptr;
  return pool->alloc(pool, len, flags | VM_CLEAR);
}

void* vmalloc_handler(VMPOOL* pool, long len, int flags) {
  if (pool == nullptr) return nullptr;
  return pool->alloc(pool, len, flags);
}

int vmfree_handler(VMPOOL* pool, void* addr, long len, int flags) {
  if (pool == nullptr) return 1;
  return pool->free(pool, addr, len, flags);
}

int xmemdef(void) { return g_alloc_failed.exchange(false) ? 1 : 0; }

rctype xytngl(rebid reb, int /*op*/, const tchar* name, int len, rebslotid* slotid, rebid* found) {
  if (reb == nullptr) return XYT_NOTFOUND;
  std::lock_guard lock(reb->mutex);
  auto it = reb->names.find(slot_name(name, len));
  if (it == reb->names.end()) return XYT_NOTFOUND;
  if (slotid != nullptr) *slotid = it->second;
  if (found != nullptr) *found = reb;
  return 0;
}

rctype xytnsl(rebid reb, int /*op*/, const tchar* name, int len, rebslotid slotid) {
  if (reb == nullptr || name == nullptr) return -1;
  std::lock_guard lock(reb->mutex);
  if (reb->slots.find(slotid) == reb->slots.end()) return -1;
  reb->names[slot_name(name, len)] = slotid;
  return 0;
}

rctype wtrscrt(rebid reb, REBDTOR dtor, ptr value, rebslotid* slotid) {
  if (reb == nullptr || slotid == nullptr) return -1;
  // The session ends with the process: its tasks' slots are deleted then,
  // running their destructors, as end_task() does.
  static const bool ends_at_exit = std::atexit(end_tasks_at_exit) == 0;
  (void)ends_at_exit;
  std::lock_guard lock(reb->mutex);
  const rebslotid id = reb->next++;
  reb->slots[id] = REB::Slot{value, dtor};
  *slotid = id;
  return 0;
}

rctype wtrsset(rebid reb, rebslotid slotid, ptr value) {
  if (reb == nullptr) return -1;
  std::lock_guard lock(reb->mutex);
  auto it = reb->slots.find(slotid);
  if (it == reb->slots.end()) return -1;
  it->second.value = value;
  return 0;
}

rctype wtrsget(rebid reb, rebslotid slotid, ptr* value) {
  if (reb == nullptr) return -1;
  std::lock_guard lock(reb->mutex);
  auto it = reb->slots.find(slotid);
  if (it == reb->slots.end()) return -1;
  if (value != nullptr) *value = it->second.value;
  return 0;
}

rctype wtrsdel(rebid reb, rebslotid slotid) {
  if (reb == nullptr) return -1;
  REBDTOR dtor = nullptr;
  {
    std::lock_guard lock(reb->mutex);
    auto it = reb->slots.find(slotid);
    if (it == reb->slots.end()) return -1;
    dtor = it->second.dtor;
  }
  // The destructor may still read the slot's pointer.
  if (dtor != nullptr) dtor(reb, slotid);
  std::lock_guard lock(reb->mutex);
  reb->slots.erase(slotid);
  for (auto it = reb->names.begin(); it != reb->names.end();) {
    it = it->second == slotid ? reb->names.erase(it) : std::next(it);
  }
  return 0;
}

ptr vir2g(ptr local, ptr /*pidb*/) { return local; }

int virv2g(ptr* local, ptr* global, int n, long /*task*/, ptr /*pidb*/) {
  const int status = g_virv2g_status.load();
  if (status != 0) return status;
  if (local == nullptr || global == nullptr || n < 0) return -1;
  for (int i = 0; i < n; ++i) global[i] = local[i];
  return 0;
}

}  // extern "C"

namespace esf::host {

GCB* gcb() { return &g_gcb; }
GCB** gcb_anchor() { return &g_gcb_ptr; }
VI_PIDB* pidb() { return &g_pidb; }

void end_task() { internal::clear_task_slots(); }

std::size_t pool_outstanding() {
  PoolState& st = pool_state();
  std::lock_guard lock(st.mutex);
  return st.live.size();
}

void pool_fail_after(long n) {
  PoolState& st = pool_state();
  std::lock_guard lock(st.mutex);
  st.budget = n < 0 ? -1 : n;
  // A new limit starts from a clean indication; lifting the limit keeps what
  // the limited allocations reported.
  if (n >= 0) g_alloc_failed.store(false);
}

void set_virv2g_status(int status) { g_virv2g_status.store(status); }

}  // namespace esf::host
