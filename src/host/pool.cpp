// The global control block, the current pool and the module pool, the
// memory-failure indication, the task descriptor with its resource slots, and
// the conversion of image-local addresses.
#include <atomic>
#include <cfloat>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/host.h"
#include "host/host_internal.h"

// A resource block: numbered slots, each holding a pointer and a destructor,
// and names that lead to slots.  Every thread that runs a task has its own
// slots in each block, so tasks on different threads never see each other's
// resources (a custom-interval manager, for one).
struct REB {
  struct Slot {
    ptr value = nullptr;
    REBDTOR dtor = nullptr;
  };
  struct Slots {
    std::map<rebslotid, Slot> slots;
    std::map<std::string, rebslotid> names;
    rebslotid next = 1;
  };
  std::mutex mutex;
  std::map<std::thread::id, Slots> by_thread;
};

namespace {

// While the slots of a thread that has ended are cleared from another one,
// the block's routines act on those slots instead of the caller's.
thread_local std::thread::id t_acting_for{};

// The calling thread's slots of a block; the block's mutex must be held.
REB::Slots& slots_of(REB& reb) {
  const std::thread::id who = t_acting_for != std::thread::id{} ? t_acting_for : std::this_thread::get_id();
  return reb.by_thread[who];
}

}  // namespace

namespace {

// Whether an allocation of this thread failed since xmemdef last asked.
thread_local bool t_alloc_failed = false;

// The live blocks of a pool with their sizes: an open-addressed table of
// addresses, so that noting and finding a block allocates nothing.
class LiveBlocks {
 public:
  std::size_t size() const { return count_; }

  void insert(void* p, std::size_t bytes) {
    if ((count_ + 1) * 4 > slots_.size() * 3) grow();
    std::size_t i = home(p);
    while (slots_[i].p != nullptr) i = (i + 1) & mask();
    slots_[i] = {p, bytes};
    ++count_;
  }

  // Removes `p` and gives its size; false when it is not a live block.
  bool erase(void* p, std::size_t* bytes) {
    if (count_ == 0) return false;
    std::size_t i = home(p);
    while (slots_[i].p != p) {
      if (slots_[i].p == nullptr) return false;
      i = (i + 1) & mask();
    }
    *bytes = slots_[i].bytes;
    // Shift back the entries after the hole that would not be found past it.
    std::size_t hole = i;
    for (std::size_t j = (i + 1) & mask(); slots_[j].p != nullptr; j = (j + 1) & mask()) {
      const std::size_t h = home(slots_[j].p);
      const bool movable = hole <= j ? (h <= hole || h > j) : (h <= hole && h > j);
      if (movable) {
        slots_[hole] = slots_[j];
        hole = j;
      }
    }
    slots_[hole] = {};
    --count_;
    return true;
  }

  template <class F>
  void for_each(F f) const {
    for (const Slot& s : slots_) {
      if (s.p != nullptr) f(s.p);
    }
  }

 private:
  struct Slot {
    void* p = nullptr;
    std::size_t bytes = 0;
  };
  std::size_t mask() const { return slots_.size() - 1; }
  std::size_t home(void* p) const {
    // Fibonacci hashing of the address, whose low bits are all alike.
    const auto x = reinterpret_cast<std::uintptr_t>(p) * 0x9E3779B97F4A7C15u;
    return static_cast<std::size_t>(x >> 20) & mask();
  }
  void grow() {
    std::vector<Slot> old = std::move(slots_);
    slots_.assign(old.empty() ? 64 : old.size() * 2, Slot{});
    count_ = 0;
    for (const Slot& s : old) {
      if (s.p != nullptr) insert(s.p, s.bytes);
    }
  }
  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

// Pool bookkeeping: every live block, the blocks given back and kept for the
// next requests, and an optional budget of allocations after which the pool
// refuses.  Each thread has a pool of its own: a method call allocates and
// frees on the thread that runs it, with no lock between threads.  A method
// asks for the same few blocks for every series, so a block given back is
// kept (up to kKeptBlocks of them, kKeptBytes in all) for a later request of
// up to its size and at least half of it.
struct PoolState {
  static constexpr std::size_t kKeptBlocks = 32;
  static constexpr std::size_t kKeptBytes = std::size_t{1} << 20;
  struct Kept {
    void* p;
    std::size_t bytes;
  };

  LiveBlocks live;
  std::vector<Kept> kept;
  std::size_t kept_bytes = 0;
  long budget = -1;  // allocations still allowed; -1 unlimited

  // A kept block for a request of `bytes`, or null; `held` gets its size.
  void* reuse(std::size_t bytes, std::size_t* held) {
    for (std::size_t i = kept.size(); i-- > 0;) {
      if (kept[i].bytes >= bytes && kept[i].bytes / 2 <= bytes) {
        void* p = kept[i].p;
        *held = kept[i].bytes;
        kept_bytes -= kept[i].bytes;
        kept[i] = kept.back();
        kept.pop_back();
        return p;
      }
    }
    return nullptr;
  }

  void keep_or_free(void* p, std::size_t bytes) {
    if (!esf::host::internal::kReuseFreedMemory || bytes > kKeptBytes) {
      std::free(p);
      return;
    }
    if (kept.capacity() == 0) kept.reserve(kKeptBlocks);
    // The oldest kept blocks make room.
    while (!kept.empty() && (kept.size() >= kKeptBlocks || kept_bytes + bytes > kKeptBytes)) {
      std::free(kept.front().p);
      kept_bytes -= kept.front().bytes;
      kept.erase(kept.begin());
    }
    kept.push_back({p, bytes});
    kept_bytes += bytes;
  }

  // The pool owns its blocks: what nobody gave back (the method table, which
  // lives as long as the pool) goes when the pool goes, at the end of the
  // process.
  ~PoolState() {
    live.for_each([](void* p) { std::free(p); });
    for (const Kept& k : kept) std::free(k.p);
  }
};

PoolState& pool_state() {
  thread_local PoolState state;
  return state;
}

void* pool_alloc(VMPOOL* /*pool*/, long bytes, int flags) {
  PoolState& st = pool_state();
  if (st.budget == 0 || bytes < 0) {
    esf::host::internal::note_allocation_failure();
    return nullptr;
  }
  if (st.budget > 0) --st.budget;
  const std::size_t size = bytes > 0 ? static_cast<std::size_t>(bytes) : 1;
  // A kept block keeps its own size, which it is kept with again when it
  // comes back.
  std::size_t held = size;
  void* p = st.kept.empty() ? nullptr : st.reuse(size, &held);
  if (p != nullptr) {
    if ((flags & VM_CLEAR) != 0) std::memset(p, 0, size);
  } else {
    p = (flags & VM_CLEAR) != 0 ? std::calloc(1, size) : std::malloc(size);
    if (p == nullptr) {
      esf::host::internal::note_allocation_failure();
      return nullptr;
    }
  }
  st.live.insert(p, held);
  return p;
}

int pool_free(VMPOOL* /*pool*/, void* p, long /*len*/, int /*flags*/) {
  if (p == nullptr) return 0;
  PoolState& st = pool_state();
  std::size_t bytes = 0;
  if (!st.live.erase(p, &bytes)) return 1;  // not a block of this pool
  st.keep_or_free(p, bytes);
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

// Deletes the calling thread's slots of a block.
void clear_block(REB& reb) {
  std::vector<rebslotid> ids;
  {
    std::lock_guard lock(reb.mutex);
    for (const auto& [id, slot] : slots_of(reb).slots) ids.push_back(id);
  }
  for (rebslotid id : ids) wtrsdel(&reb, id);
  std::lock_guard lock(reb.mutex);
  reb.by_thread.erase(t_acting_for != std::thread::id{} ? t_acting_for : std::this_thread::get_id());
}

// Deletes the slots of every thread, the caller's last.
void clear_all_blocks(REB& reb) {
  std::vector<std::thread::id> threads;
  {
    std::lock_guard lock(reb.mutex);
    for (const auto& [who, slots] : reb.by_thread) {
      if (who != std::this_thread::get_id()) threads.push_back(who);
    }
  }
  for (std::thread::id who : threads) {
    t_acting_for = who;
    clear_block(reb);
  }
  t_acting_for = std::thread::id{};
  clear_block(reb);
}

void end_tasks_at_exit();

}  // namespace

extern QKHANDLE esf_host_qkhandle;  // options.cpp

namespace {
GCB g_gcb{&g_curpool, &g_modpool, &esf_host_qkhandle, &g_task, DBL_MAX, -DBL_MAX};
GCB* g_gcb_ptr = &g_gcb;
VI_PIDB g_pidb{{'q', 'o', 'r', 'f', 'm', 's', 'm', ' '}, nullptr, 0};
}  // namespace

namespace esf::host::internal {
void note_allocation_failure() { t_alloc_failed = true; }
void clear_task_slots() {
  clear_block(g_task_reb);
  clear_block(g_session_reb);
}
}  // namespace esf::host::internal

namespace {
void end_tasks_at_exit() {
  clear_all_blocks(g_task_reb);
  clear_all_blocks(g_session_reb);
}
}  // namespace

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

int xmemdef(void) { return std::exchange(t_alloc_failed, false) ? 1 : 0; }

rctype xytngl(rebid reb, int /*op*/, const tchar* name, int len, rebslotid* slotid, rebid* found) {
  if (reb == nullptr) return XYT_NOTFOUND;
  std::lock_guard lock(reb->mutex);
  REB::Slots& own = slots_of(*reb);
  auto it = own.names.find(slot_name(name, len));
  if (it == own.names.end()) return XYT_NOTFOUND;
  if (slotid != nullptr) *slotid = it->second;
  if (found != nullptr) *found = reb;
  return 0;
}

rctype xytnsl(rebid reb, int /*op*/, const tchar* name, int len, rebslotid slotid) {
  if (reb == nullptr || name == nullptr) return -1;
  std::lock_guard lock(reb->mutex);
  REB::Slots& own = slots_of(*reb);
  if (own.slots.find(slotid) == own.slots.end()) return -1;
  own.names[slot_name(name, len)] = slotid;
  return 0;
}

rctype wtrscrt(rebid reb, REBDTOR dtor, ptr value, rebslotid* slotid) {
  if (reb == nullptr || slotid == nullptr) return -1;
  // The session ends with the process: its tasks' slots are deleted then,
  // running their destructors, as end_task() does.
  static const bool ends_at_exit = std::atexit(end_tasks_at_exit) == 0;
  (void)ends_at_exit;
  std::lock_guard lock(reb->mutex);
  REB::Slots& own = slots_of(*reb);
  const rebslotid id = own.next++;
  own.slots[id] = REB::Slot{value, dtor};
  *slotid = id;
  return 0;
}

rctype wtrsset(rebid reb, rebslotid slotid, ptr value) {
  if (reb == nullptr) return -1;
  std::lock_guard lock(reb->mutex);
  REB::Slots& own = slots_of(*reb);
  auto it = own.slots.find(slotid);
  if (it == own.slots.end()) return -1;
  it->second.value = value;
  return 0;
}

rctype wtrsget(rebid reb, rebslotid slotid, ptr* value) {
  if (reb == nullptr) return -1;
  std::lock_guard lock(reb->mutex);
  REB::Slots& own = slots_of(*reb);
  auto it = own.slots.find(slotid);
  if (it == own.slots.end()) return -1;
  if (value != nullptr) *value = it->second.value;
  return 0;
}

rctype wtrsdel(rebid reb, rebslotid slotid) {
  if (reb == nullptr) return -1;
  REBDTOR dtor = nullptr;
  {
    std::lock_guard lock(reb->mutex);
    REB::Slots& own = slots_of(*reb);
    auto it = own.slots.find(slotid);
    if (it == own.slots.end()) return -1;
    dtor = it->second.dtor;
  }
  // The destructor may still read the slot's pointer.
  if (dtor != nullptr) dtor(reb, slotid);
  std::lock_guard lock(reb->mutex);
  REB::Slots& own = slots_of(*reb);
  own.slots.erase(slotid);
  for (auto it = own.names.begin(); it != own.names.end();) {
    it = it->second == slotid ? own.names.erase(it) : std::next(it);
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
  return st.live.size();
}

void pool_fail_after(long n) {
  PoolState& st = pool_state();
  st.budget = n < 0 ? -1 : n;
  // A new limit starts from a clean indication; lifting the limit keeps what
  // the limited allocations reported.
  if (n >= 0) t_alloc_failed = false;
}

void set_virv2g_status(int status) { g_virv2g_status.store(status); }

void inject_faults_from_environment() {
  auto number = [](const char* name) -> long {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::strtol(text, nullptr, 10) : -1;
  };
  if (const long n = number("ESF_FAIL_ALLOCATION"); n >= 1) pool_fail_after(n - 1);
  if (const long n = number("ESF_FAIL_TABLE_WRITE"); n >= 1) table_fail_write(n);
}

}  // namespace esf::host
