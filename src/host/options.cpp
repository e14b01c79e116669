// Host options, journals, the kernel handle with its two transcoding
// pipelines, the custom interval cache extension "qkecintc", and the
// attributes of format names.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/host_internal.h"

namespace {

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = esf::host::internal::ascii_upper(c);
  return out;
}

// Options are set rarely and read on every method call, from many threads at
// once: readers share the lock and look names up without building a string.
struct OptionStore {
  std::shared_mutex mutex;
  std::map<std::string, std::string, std::less<>> values;
};

// Room for the environment name of an option, "ESF_OPTION_" and the name in
// capitals; longer names take the slow road through a std::string.
constexpr std::string_view kEnvPrefix = "ESF_OPTION_";
constexpr std::size_t kShortName = 64;

OptionStore& options() {
  static OptionStore store;
  return store;
}

// ---- Journal ---------------------------------------------------------------

int journal_dump(WRJNL* jnl, QKStatus* rc) {
  if (rc != nullptr) *rc = jnl != nullptr ? jnl->status : 0;
  return 0;
}

void journal_destroy(WRJNL* jnl) { delete jnl; }

void journal_note(WRJnlh jnl, QKStatus status) {
  if (jnl != nullptr && jnl->sig == WRJNL_SIG && jnl->status == 0) jnl->status = status;
}

// Status a failed cache operation leaves in the journal.
constexpr QKStatus kCacheFailed = static_cast<QKStatus>(0x8001C80B);
constexpr QKStatus kNoExtension = static_cast<QKStatus>(0x8001C801);

// ---- Transcoding -------------------------------------------------------------

// Single-byte text to wide characters, byte for byte.  Text that does not fit
// is cut at a whole character.
QKStatus to_wide(const tchar* src, QKMemSize srcbytes, QKChar* dst, QKMemSize dstbytes, QKMemSize* outbytes) {
  if (outbytes != nullptr) *outbytes = 0;
  if ((src == nullptr && srcbytes > 0) || (dst == nullptr && dstbytes > 0)) return -1;
  const QKMemSize n = std::min<QKMemSize>(srcbytes, dstbytes / sizeof(QKChar));
  for (QKMemSize i = 0; i < n; ++i) dst[i] = static_cast<unsigned char>(src[i]);
  if (outbytes != nullptr) *outbytes = n * sizeof(QKChar);
  return 0;
}

// Wide characters to single-byte text; a character above 255 cannot be
// converted.
QKStatus from_wide(const QKChar* src, QKMemSize srcbytes, tchar* dst, QKMemSize dstbytes, QKMemSize* outbytes) {
  if (outbytes != nullptr) *outbytes = 0;
  if ((src == nullptr && srcbytes > 0) || (dst == nullptr && dstbytes > 0)) return -1;
  const QKMemSize n = std::min<QKMemSize>(srcbytes / sizeof(QKChar), dstbytes);
  for (QKMemSize i = 0; i < n; ++i) {
    if (src[i] < 0 || src[i] > 255) return -1;
    dst[i] = static_cast<tchar>(src[i]);
  }
  if (outbytes != nullptr) *outbytes = n;
  return 0;
}

// ---- The cache extension -------------------------------------------------------

using WString = std::basic_string<QKChar>;

WString wide(const QKChar* s, int len) {
  if (s == nullptr || len <= 0) return {};
  WString out(s, static_cast<std::size_t>(len));
  while (!out.empty() && out.back() == ' ') out.pop_back();
  for (QKChar& c : out) {
    if (c >= 'a' && c <= 'z') c -= 'a' - 'A';
  }
  return out;
}

// Copies `s` into a caller's buffer of `cap` characters; gives the length.
int put_wide(const WString& s, QKChar* dst, int cap) {
  if (dst == nullptr) return static_cast<int>(s.size());
  const int n = std::min<int>(cap, static_cast<int>(s.size()));
  std::copy_n(s.begin(), n, dst);
  return n;
}

struct Mapping {
  WString interval;
  WString lib;
  WString member;
};

struct CachedTable {
  CINTCInfo info{};
  int refs = 0;
  std::vector<double> begin, end, season;
  WString fmt;
};

}  // namespace

struct CINTCOBJ {
  std::mutex mutex;
  std::vector<Mapping> maps;
  // Tables by library and member ("LIB.MEMBER" in wide characters).
  std::map<WString, std::unique_ptr<CachedTable>> tables;
};

namespace {

WString table_key(const WString& lib, const WString& member) {
  WString key = lib;
  key.push_back('.');
  key += member;
  return key;
}

void release_ref(CINTCInfo* info) {
  if (info == nullptr || info->cacheObj == nullptr) return;
  std::lock_guard lock(info->cacheObj->mutex);
  auto* table = static_cast<CachedTable*>(info->private_);
  if (table->refs > 0) --table->refs;
}

// Every cache alive, for the host program's view of references.
struct LiveCaches {
  std::mutex mutex;
  std::vector<CINTCOBJ*> caches;
};

// Never destroyed: caches may be destroyed by slot destructors that run
// when the process ends.
LiveCaches& live_caches() {
  static LiveCaches* live = new LiveCaches;
  return *live;
}

CINTCobjh create_cache(CINTCexth /*exth*/, WRJnlh /*jnl*/) {
  auto* objh = new CINTCOBJ;
  LiveCaches& live = live_caches();
  std::lock_guard lock(live.mutex);
  live.caches.push_back(objh);
  return objh;
}

void destroy_cache(CINTCobjh objh) {
  {
    LiveCaches& live = live_caches();
    std::lock_guard lock(live.mutex);
    std::erase(live.caches, objh);
  }
  delete objh;
}

int add_map(CINTCobjh objh, CINTCIntDSMap* map) {
  if (objh == nullptr || map == nullptr) return -1;
  Mapping m{wide(map->interval, map->interval_l), wide(map->lib, map->lib_l), wide(map->member, map->member_l)};
  if (m.interval.empty() || m.member.empty()) return -1;
  std::lock_guard lock(objh->mutex);
  for (Mapping& old : objh->maps) {
    if (old.interval == m.interval) {
      old = m;
      return 0;
    }
  }
  objh->maps.push_back(std::move(m));
  return 0;
}

void fill_map(const Mapping& m, CINTCIntDSMap* dsmap) {
  if (dsmap == nullptr) return;
  const int il = put_wide(m.interval, dsmap->interval, 32);
  const int ll = put_wide(m.lib, dsmap->lib, 8);
  const int ml = put_wide(m.member, dsmap->member, 32);
  dsmap->interval_l = il;
  dsmap->lib_l = ll;
  dsmap->member_l = ml;
}

const Mapping* find_map(CINTCobjh objh, const WString& name) {
  for (const Mapping& m : objh->maps) {
    if (m.interval == name) return &m;
  }
  return nullptr;
}

int map_by_name(CINTCobjh objh, const QKChar* name, int name_l, CINTCIntDSMap* dsmap) {
  if (objh == nullptr) return -1;
  std::lock_guard lock(objh->mutex);
  const Mapping* m = find_map(objh, wide(name, name_l));
  if (m == nullptr) return 1;
  fill_map(*m, dsmap);
  return 0;
}

// Parses digits at `pos`; false when there are none or the value is too big.
bool digits(const WString& s, std::size_t& pos, long& value) {
  const std::size_t start = pos;
  value = 0;
  while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9') {
    value = value * 10 + (s[pos] - '0');
    if (value > 2147483647L) return false;
    ++pos;
  }
  return pos > start;
}

// Resolves NAME, NAMEm, NAMEm.s or NAME.s to the longest mapped NAME, with
// multiplier m (1 when absent) and shift s - 1 (0 when absent).
int map_by_token(CINTCobjh objh, const QKChar* token, int token_l, int /*intper*/, int /*shiftper*/,
                 CINTCIntDSMap* dsmap, int* multiplier, int* shift) {
  if (multiplier != nullptr) *multiplier = -1;
  if (shift != nullptr) *shift = -1;
  if (objh == nullptr) return -1;
  const WString t = wide(token, token_l);
  std::lock_guard lock(objh->mutex);
  const Mapping* best = nullptr;
  long best_m = 1, best_s = 0;
  for (const Mapping& m : objh->maps) {
    if (m.interval.size() > t.size() || t.compare(0, m.interval.size(), m.interval) != 0) continue;
    std::size_t pos = m.interval.size();
    long mult = 1, sh = 1;
    if (pos < t.size() && t[pos] != '.' && !digits(t, pos, mult)) continue;
    if (pos < t.size()) {
      if (t[pos] != '.') continue;
      ++pos;
      if (pos < t.size() && !digits(t, pos, sh)) continue;
      if (pos != t.size()) continue;
    }
    if (mult < 1 || sh < 1) continue;
    if (best == nullptr || m.interval.size() > best->interval.size()) {
      best = &m;
      best_m = mult;
      best_s = sh - 1;
    }
  }
  if (best == nullptr) {
    if (dsmap != nullptr) dsmap->interval_l = 0;
    return 0;
  }
  fill_map(*best, dsmap);
  if (multiplier != nullptr) *multiplier = static_cast<int>(best_m);
  if (shift != nullptr) *shift = static_cast<int>(best_s);
  return 0;
}

int info_by_key(CINTCobjh objh, const WString& key, CINTCInfo** info) {
  auto it = objh->tables.find(key);
  if (it == objh->tables.end()) return 0;
  ++it->second->refs;
  *info = &it->second->info;
  return 0;
}

int info_by_name(CINTCobjh objh, const QKChar* interval, int interval_l, CINTCInfo** info) {
  if (info == nullptr) return -1;
  *info = nullptr;
  if (objh == nullptr) return -1;
  std::lock_guard lock(objh->mutex);
  const Mapping* m = find_map(objh, wide(interval, interval_l));
  if (m == nullptr) return 1;
  return info_by_key(objh, table_key(m->lib, m->member), info);
}

int info_by_ds(CINTCobjh objh, const QKChar* lib, int lib_l, const QKChar* member, int member_l, CINTCInfo** info) {
  if (info == nullptr) return -1;
  *info = nullptr;
  if (objh == nullptr) return -1;
  std::lock_guard lock(objh->mutex);
  return info_by_key(objh, table_key(wide(lib, lib_l), wide(member, member_l)), info);
}

int load_info(CINTCobjh objh, CINTCParms* parms, CINTCLoader loader, QKMemPtr loadArg, WRJnlh jnl) {
  if (objh == nullptr || parms == nullptr || loader == nullptr || parms->n < 0) {
    journal_note(jnl, kCacheFailed);
    return -1;
  }
  auto table = std::make_unique<CachedTable>();
  const auto n = static_cast<std::size_t>(parms->n);
  table->begin.assign(n, 0.0);
  if ((parms->flags & 1) != 0) table->end.assign(n, 0.0);
  if ((parms->flags & 2) != 0) table->season.assign(n, 0.0);
  CINTCInfo& info = table->info;
  info.private_ = table.get();
  info.releaseRef = release_ref;
  info.cacheObj = objh;
  info.n = parms->n;
  info.nused = 0;
  info.beginBuffer = table->begin.data();
  info.endBuffer = (parms->flags & 1) != 0 ? table->end.data() : nullptr;
  info.seasBuffer = (parms->flags & 2) != 0 ? table->season.data() : nullptr;
  if (parms->fmt != nullptr && parms->fmt_l > 0) {
    table->fmt.assign(parms->fmt, static_cast<std::size_t>(parms->fmt_l));
    info.fmt = table->fmt.data();
    info.fmt_l = parms->fmt_l;
  }
  info.fmt_w = parms->fmt_w;
  info.fmt_d = parms->fmt_d;
  // The loader runs without the lock: it reads the table through the host.
  if (loader(loadArg, parms, &info) != 0) {
    journal_note(jnl, kCacheFailed);
    return -1;
  }
  std::lock_guard lock(objh->mutex);
  objh->tables[table_key(wide(parms->lib, parms->lib_l), wide(parms->member, parms->member_l))] = std::move(table);
  return 0;
}

int load_from_qkts(CINTCobjh /*objh*/, QKMemPtr /*source*/, WRJnlh jnl) {
  journal_note(jnl, kCacheFailed);
  return -1;
}

CINTCEXT g_cintc_ext{create_cache, create_cache, destroy_cache, add_map,   map_by_name,
                     map_by_token, info_by_name, info_by_ds,    load_info, load_from_qkts};

CINTCexth load_extension(QKHANDLE* /*h*/, const QKChar* name, int name_l, WRJnlh jnl) {
  static const QKChar kName[] = {'Q', 'K', 'E', 'C', 'I', 'N', 'T', 'C'};
  if (wide(name, name_l) == WString(kName, 8)) return &g_cintc_ext;
  journal_note(jnl, kNoExtension);
  return nullptr;
}

void unload_extension(QKHANDLE* /*h*/, CINTCexth /*exth*/) {}

// ---- Format attributes ---------------------------------------------------------

struct FormatAttr {
  const char* name;
  FATTRSTR attr;
};

// The formats a table variable of this host may carry.
constexpr FormatAttr kFormats[] = {
    {"BEST", {1, 32, 12, 0, 0, 0, 'N'}},      {"F", {1, 32, 12, 0, 31, 0, 'N'}},
    {"COMMA", {1, 32, 6, 0, 31, 0, 'N'}},     {"DATE", {5, 11, 7, 0, 0, 0, 'N'}},
    {"DATETIME", {7, 40, 16, 0, 39, 0, 'N'}}, {"DAY", {2, 32, 2, 0, 0, 0, 'N'}},
    {"DDMMYY", {2, 10, 8, 0, 0, 0, 'N'}},     {"DTDATE", {5, 9, 7, 0, 0, 0, 'N'}},
    {"DTMONYY", {5, 7, 5, 0, 0, 0, 'N'}},     {"DTYEAR", {2, 4, 4, 0, 0, 0, 'N'}},
    {"HHMM", {2, 20, 5, 0, 19, 0, 'N'}},      {"MMDDYY", {2, 10, 8, 0, 0, 0, 'N'}},
    {"MONTH", {1, 32, 2, 0, 0, 0, 'N'}},      {"MONYY", {5, 7, 5, 0, 0, 0, 'N'}},
    {"QTR", {1, 32, 1, 0, 0, 0, 'N'}},        {"TIME", {2, 20, 8, 0, 19, 0, 'N'}},
    {"TOD", {2, 20, 8, 0, 19, 0, 'N'}},       {"WEEKDATE", {3, 37, 29, 0, 0, 0, 'N'}},
    {"WEEKDAY", {1, 32, 1, 0, 0, 0, 'N'}},    {"YEAR", {2, 32, 4, 0, 0, 0, 'N'}},
    {"YYMMDD", {2, 10, 8, 0, 0, 0, 'N'}},     {"YYQ", {4, 10, 6, 0, 0, 0, 'N'}},
};

}  // namespace

QKHANDLE esf_host_qkhandle{load_extension, unload_extension, to_wide, from_wide};

extern "C" {

tchar* xoptcgt(const char* name, int* len) {
  thread_local std::string value;
  value.clear();
  if (name != nullptr) {
    const std::size_t n = std::strlen(name);
    // The environment name with the option's name in capitals after the prefix.
    char short_env[kEnvPrefix.size() + kShortName + 1];
    std::string long_env;
    char* env_name = short_env;
    if (n > kShortName) {
      long_env.resize(kEnvPrefix.size() + n);
      env_name = long_env.data();
    }
    std::memcpy(env_name, kEnvPrefix.data(), kEnvPrefix.size());
    char* key = env_name + kEnvPrefix.size();
    for (std::size_t i = 0; i < n; ++i) key[i] = esf::host::internal::ascii_upper(name[i]);
    key[n] = '\0';
    bool found = false;
    {
      OptionStore& store = options();
      std::shared_lock lock(store.mutex);
      auto it = store.values.find(std::string_view(key, n));
      if (it != store.values.end()) {
        value = it->second;
        found = true;
      }
    }
    // An option not set by the host program comes from the environment:
    // ESF_OPTION_INTERVALDS="(MYCAL=CAL)" sets INTERVALDS.
    if (!found) {
      if (const char* env = std::getenv(env_name); env != nullptr) value = env;
    }
  }
  if (len != nullptr) *len = static_cast<int>(value.size());
  return value.data();
}

WRJnlh wrjnlc(int /*a*/, int /*b*/) { return new WRJNL{WRJNL_SIG, 0, journal_dump, journal_destroy}; }

int xfrname(long /*task*/, const tchar* name, int len, char /*kind*/, FATTRSTR* attr, int* fcode) {
  if (fcode != nullptr) *fcode = 0;
  if (name == nullptr) return 1;
  if (len < 0) len = static_cast<int>(std::strlen(name));
  while (len > 0 && name[len - 1] == ' ') --len;
  const std::string wanted = upper(std::string_view(name, static_cast<std::size_t>(len)));
  for (std::size_t i = 0; i < std::size(kFormats); ++i) {
    if (wanted == kFormats[i].name) {
      if (attr != nullptr) *attr = kFormats[i].attr;
      if (fcode != nullptr) *fcode = static_cast<int>(i) + 1;
      return 0;
    }
  }
  return 1;
}

}  // extern "C"

namespace esf::host {

void set_option(std::string_view name, std::string_view value) {
  OptionStore& store = options();
  std::unique_lock lock(store.mutex);
  store.values[upper(name)] = std::string(value);
}

std::size_t live_interval_caches() {
  LiveCaches& live = live_caches();
  std::lock_guard lock(live.mutex);
  return live.caches.size();
}

long cached_interval_references() {
  LiveCaches& live = live_caches();
  std::lock_guard lock(live.mutex);
  long refs = 0;
  for (CINTCOBJ* objh : live.caches) {
    std::lock_guard table_lock(objh->mutex);
    for (const auto& [key, table] : objh->tables) refs += table->refs;
  }
  return refs;
}

void clear_option(std::string_view name) {
  OptionStore& store = options();
  std::unique_lock lock(store.mutex);
  if (auto it = store.values.find(upper(name)); it != store.values.end()) store.values.erase(it);
}

}  // namespace esf::host
