// The registry of custom intervals: one manager record per host task, kept
// in a named slot of the task's resource block, holding the cache extension
// "qkecintc". The manager enters the mappings of the option INTERVALDS into
// the cache when it is created; a table is read into the cache the first
// time an interval of it is loaded, and every later load shares that copy
// by reference.
#include <cstring>

#include "custom/custom.h"

namespace {

constexpr tchar kSlotName[] = "_ZQKECINTC_";
constexpr int kSlotNameLen = 11;
constexpr int kNameChars = 32;   // interval names and members
constexpr int kLibChars = 8;     // library references
constexpr int kTokenChars = 22;  // an interval's token

// A mapping record with room of its own for its three names.
struct DSMapRoom {
  QKChar interval[kNameChars];
  QKChar lib[kLibChars];
  QKChar member[kNameChars];
  CINTCIntDSMap map{};

  DSMapRoom() {
    map.interval = interval;
    map.lib = lib;
    map.member = member;
  }
  DSMapRoom(const DSMapRoom&) = delete;
  DSMapRoom& operator=(const DSMapRoom&) = delete;
};

// Delimiters of the option text.
bool is_delimiter(tchar c) { return c == ' ' || c == '(' || c == ')' || c == ',' || c == '='; }

// Jumps over delimiters from *pos1 and gives the next token as [*pos1,
// *pos2). 1 when no token is left.
int skip(const tchar* string, int* pos1, int* pos2) {
  int p = *pos1;
  while (string[p] != '\0' && is_delimiter(string[p])) ++p;
  if (string[p] == '\0') {
    *pos1 = *pos2 = p;
    return 1;
  }
  int q = p;
  while (string[q] != '\0' && !is_delimiter(string[q])) ++q;
  *pos1 = p;
  *pos2 = q;
  return 0;
}

// A counted name cut or padded to 32 characters.
void put_name(u_sname* out, const tchar* text, int len) {
  vzmp(text, len, out->name, kNameChars);
  out->name_l = static_cast<short>(wzstrip(out->name, kNameChars));
}

// Host text to wide characters, at most `cap` of them: the count, or -1.
int to_wide(const tchar* src, int len, QKChar* dst, int cap) {
  if (Exported_QKHandle == nullptr || len < 0) return -1;
  QKMemSize out = 0;
  if (Exported_QKHandle->toWide(src, static_cast<QKMemSize>(len), dst, static_cast<QKMemSize>(cap) * sizeof(QKChar),
                                &out) != 0) {
    return -1;
  }
  return static_cast<int>(out / sizeof(QKChar));
}

// Wide characters to host text, at most `cap` bytes: the count, or -1.
int from_wide(const QKChar* src, int len, tchar* dst, int cap) {
  if (Exported_QKHandle == nullptr || len < 0) return -1;
  QKMemSize out = 0;
  if (Exported_QKHandle->fromWide(src, static_cast<QKMemSize>(len) * sizeof(QKChar), dst, static_cast<QKMemSize>(cap),
                                  &out) != 0) {
    return -1;
  }
  return static_cast<int>(out);
}

rebid task_reb() {
  GCB* gcb = host_gcb();
  return gcb != nullptr && gcb->task != nullptr ? gcb->task->xreb : nullptr;
}

QKPoolh module_pool() {
  GCB* gcb = host_gcb();
  return gcb != nullptr ? gcb->modpool : nullptr;
}

// Deletes the task's slot (running CleanMGR); failures go to the log.
void delete_slot(rebid reb) {
  rebslotid slotid = 0;
  rctype rc = xytngl(reb, XYT_LOOKUP, kSlotName, kSlotNameLen, &slotid, nullptr);
  if (rc != 0) {
    xprrlog(0, rc);
    return;
  }
  rc = wtrsdel(reb, slotid);
  if (rc != 0) xprrlog(0, rc);
}

}  // namespace

extern "C" {

rctype StorePtr(void* resPtr) {
  rebid reb = task_reb();
  if (reb == nullptr) return kCintcNoMemory;
  rebslotid slotid = 0;
  const rctype rc = xytngl(reb, XYT_LOOKUP, kSlotName, kSlotNameLen, &slotid, nullptr);
  if (rc == XYT_NOTFOUND) {
    auto dtor =
        reinterpret_cast<REBDTOR>(vir2g(reinterpret_cast<ptr>(&CleanMGR), static_cast<ptr>(v_global_pidb_anchor)));
    const rctype created = wtrscrt(reb, dtor, resPtr, &slotid);
    if (created < 0) return created;
    return xytnsl(reb, XYT_ENTER, kSlotName, kSlotNameLen, slotid);
  }
  if (rc < 0) return rc;
  return wtrsset(reb, slotid, resPtr);
}

void* GetPtr(void) {
  rebid reb = task_reb();
  if (reb == nullptr) return nullptr;
  rebslotid slotid = 0;
  rebid found = nullptr;
  if (xytngl(reb, XYT_LOOKUP, kSlotName, kSlotNameLen, &slotid, &found) != 0) return nullptr;
  ptr value = nullptr;
  if (wtrsget(found != nullptr ? found : reb, slotid, &value) != 0) return nullptr;
  return value;
}

rctype GetJnlStatus(ZQKECINTC* mgr) {
  WRJnlh jnl = mgr != nullptr ? mgr->wrjnlh : nullptr;
  QKStatus rc = 0;
  if (jnl != nullptr && jnl->sig == WRJNL_SIG) {
    const int dumped = jnl->dumpToList(jnl, &rc);
    if (dumped != 0) rc = dumped;
  } else {
    rc = kCintcBadJournal;
  }
  return rc == 0 ? kCintcCacheFailed : rc;
}

void CleanMGR(rebid reb, rebslotid slotid) {
  ptr value = nullptr;
  if (wtrsget(reb, slotid, &value) != 0 || value == nullptr) return;
  auto* mgr = static_cast<ZQKECINTC*>(value);
  if (mgr->objh != nullptr && mgr->exth != nullptr) mgr->exth->destroyCache(mgr->objh);
  if (mgr->exth != nullptr && Exported_QKHandle != nullptr) {
    Exported_QKHandle->unloadExtension(Exported_QKHandle, mgr->exth);
  }
  if (mgr->wrjnlh != nullptr) mgr->wrjnlh->destroy(mgr->wrjnlh);
  QKPoolh pool = module_pool();
  if (pool != nullptr) pool->memFree(pool, mgr);
}

void zcintcTerm(void) {
  rebid reb = task_reb();
  if (reb == nullptr) return;
  rebslotid slotid = 0;
  if (xytngl(reb, XYT_LOOKUP, kSlotName, kSlotNameLen, &slotid, nullptr) != 0) return;
  wtrsdel(reb, slotid);
}

int parseIntervalDS(tchar* intervalDS, CUSTOMINTERVAL* custInt, tchar** ctx) {
  if (intervalDS == nullptr || custInt == nullptr || ctx == nullptr) return 1;
  tchar* base = *ctx != nullptr ? *ctx : intervalDS;
  int pos1 = 0;
  int pos2 = 0;
  // The interval name.
  if (skip(base, &pos1, &pos2) != 0) {
    *ctx = nullptr;
    return 1;
  }
  put_name(&custInt->interval, base + pos1, pos2 - pos1);
  // The table, LIB.MEMBER or MEMBER.
  pos1 = pos2;
  if (skip(base, &pos1, &pos2) != 0) {
    *ctx = nullptr;
    return 1;
  }
  const tchar* table = base + pos1;
  const int len = pos2 - pos1;
  int dot = -1;
  for (int i = 0; i < len; ++i) {
    if (table[i] == '.') {
      dot = i;
      break;
    }
  }
  if (dot >= 0) {
    put_name(&custInt->lib, table, dot);
    put_name(&custInt->member, table + dot + 1, len - dot - 1);
  } else {
    put_name(&custInt->lib, table, 0);
    put_name(&custInt->member, table, len);
  }
  *ctx = base + pos2;
  return 0;
}

rctype loadDSOPTS(ZQKECINTC* mgr) {
  int len = 0;
  tchar* text = xoptcgt("INTERVALDS", &len);
  if (text == nullptr || len <= 0) return 0;
  wzstrup(text, len);
  tchar* ctx = nullptr;
  CUSTOMINTERVAL custInt;
  while (parseIntervalDS(text, &custInt, &ctx) == 0) {
    DSMapRoom room;
    CINTCIntDSMap& dsMap = room.map;
    dsMap.interval_l = to_wide(custInt.interval.name, custInt.interval.name_l, room.interval, kNameChars);
    dsMap.lib_l = to_wide(custInt.lib.name, custInt.lib.name_l, room.lib, kLibChars);
    dsMap.member_l = to_wide(custInt.member.name, custInt.member.name_l, room.member, kNameChars);
    if (dsMap.interval_l <= 0 || dsMap.member_l <= 0 || dsMap.lib_l < 0) return kCintcCacheFailed;
    if (mgr->exth->addIntervalMapDef(mgr->objh, &dsMap) != 0) return kCintcCacheFailed;
  }
  return 0;
}

rctype zcintcInit(ZQKECINTC** omgr) {
  if (omgr != nullptr) *omgr = nullptr;
  GCB* gcb = host_gcb();
  rebid reb = task_reb();
  QKPoolh pool = module_pool();
  if (omgr == nullptr || gcb == nullptr || reb == nullptr || pool == nullptr || Exported_QKHandle == nullptr) {
    return kCintcNoMemory;
  }

  rebslotid slotid = 0;
  rebid found = nullptr;
  if (xytngl(reb, XYT_LOOKUP, kSlotName, kSlotNameLen, &slotid, &found) == 0) {
    ptr value = nullptr;
    if (wtrsget(found != nullptr ? found : reb, slotid, &value) == 0 && value != nullptr) {
      *omgr = static_cast<ZQKECINTC*>(value);
      return 0;
    }
  }

  auto* mgr = static_cast<ZQKECINTC*>(pool->memAlloc(pool, sizeof(ZQKECINTC), VM_CLEAR));
  if (mgr == nullptr) return kCintcNoMemory;
  std::memset(mgr, 0, sizeof(*mgr));
  const rctype stored = StorePtr(mgr);
  if (stored < 0) {
    pool->memFree(pool, mgr);
    return stored;
  }

  // From here on the slot owns the record: a failure deletes the slot.
  rctype status = 0;
  bool from_options = false;
  mgr->wrjnlh = wrjnlc(0, 0);
  if (mgr->wrjnlh == nullptr) {
    status = kCintcNoMemory;
  } else {
    TASKDESC* task = gcb->task;
    mgr->xrebid = task->xreb;
    mgr->xname = task->xname;
    mgr->xname_l = task->xname_l;
    mgr->srebid = task->sreb;
    mgr->sname = task->sname;
    mgr->sname_l = task->sname_l;
    static const QKChar kExtension[] = {'q', 'k', 'e', 'c', 'i', 'n', 't', 'c'};
    mgr->exth = Exported_QKHandle->loadExtension(Exported_QKHandle, kExtension, 8, mgr->wrjnlh);
    if (mgr->exth == nullptr) {
      status = GetJnlStatus(mgr);
    } else {
      mgr->objh = mgr->exth->createCache(mgr->exth, mgr->wrjnlh);
      if (mgr->objh == nullptr) {
        status = GetJnlStatus(mgr);
      } else {
        status = loadDSOPTS(mgr);
        from_options = true;
      }
    }
  }
  if (status >= 0) {
    *omgr = mgr;
    return 0;
  }
  if (from_options) xprrlog(0, status);
  delete_slot(reb);
  return status;
}

int getcustomname(tchar* name, int len) {
  // An image that the host hasn't started has no task, and so no registry:
  // it knows no custom names.
  if (host_gcb() == nullptr) return 0;
  ZQKECINTC* mgr = nullptr;
  const rctype rc = zcintcInit(&mgr);
  if (rc < 0) return rc;
  if (name == nullptr || len <= 0) return 0;
  QKChar wname[kNameChars];
  const int wlen = to_wide(name, len < kNameChars ? len : kNameChars, wname, kNameChars);
  if (wlen <= 0) return 0;
  DSMapRoom room;
  return mgr->exth->getDSMapByIntName(mgr->objh, wname, wlen, &room.map) == 0 ? kIntCustom : 0;
}

void zcintcReleaseRef(CINTCInfo* cinfo) {
  if (cinfo != nullptr && cinfo->releaseRef != nullptr) cinfo->releaseRef(cinfo);
}

int loadCustom(QKMemPtr loadArg, CINTCParms* pb, CINTCInfo* cinfo) {
  auto* larg = static_cast<LOADARG*>(loadArg);
  if (larg == nullptr || pb == nullptr || cinfo == nullptr || larg->xoparms.fileid == nullptr) {
    return kCintcReadFailed;
  }
  XO_PARMS* xo = &larg->xoparms;
  const double dot = skMissVal('.');
  const char units = customTableUnits(larg->xvp);
  int i = 0;
  int status = 0;
  for (;;) {
    xo->opcode = XO_READNEXT;
    xo->flags |= XO_READFLAG;
    status = xo->fileid->vector->read(xo);
    if (status != 0) break;
    larg->beginBuffer = dot;
    larg->endBuffer = dot;
    larg->seasBuffer = dot;
    status = xyvget(larg->xvp, 0);
    if (status != 0) break;
    if (i >= pb->n) break;
    status = checkCustomRow(xo, larg->xvp, units, larg->beginBuffer, (pb->flags & 1) != 0 ? &larg->endBuffer : nullptr,
                            (pb->flags & 2) != 0 ? &larg->seasBuffer : nullptr);
    if (status != 0) break;
    cinfo->beginBuffer[i] = larg->beginBuffer;
    if ((pb->flags & 1) != 0) cinfo->endBuffer[i] = larg->endBuffer;
    if ((pb->flags & 2) != 0) cinfo->seasBuffer[i] = larg->seasBuffer;
    ++i;
  }
  cinfo->nused = i;
  larg->nobs = i;
  larg->xrc = status;
  return status < 0 ? kCintcReadFailed : 0;
}

int zcustLoad(INTERVAL* interval, CINTCInfo** oinfo) {
  if (oinfo == nullptr) return kCintcCacheFailed;
  *oinfo = nullptr;
  if (host_gcb() == nullptr) return 0;  // not started: no registry, no mapping
  ZQKECINTC* mgr = nullptr;
  const rctype init = zcintcInit(&mgr);
  if (init < 0) return init;
  if (interval == nullptr) return kCintcCacheFailed;

  // The mapping of the token, which may carry a multiplier and a shift.
  QKChar token[kTokenChars];
  int tokenlen = interval->tokenlen;
  if (tokenlen < 0) tokenlen = 0;
  if (tokenlen > kTokenChars) tokenlen = kTokenChars;
  const int wlen = to_wide(interval->token, tokenlen, token, kTokenChars);
  if (wlen < 0) return kCintcCacheFailed;
  DSMapRoom room;
  CINTCIntDSMap& dsmap = room.map;
  dsmap.interval_l = -1;
  int multiplier = 0;
  int shift = 0;
  const int byToken = mgr->exth->getDSMapByToken(mgr->objh, token, wlen, interval->intper, interval->shiftper, &dsmap,
                                                 &multiplier, &shift);
  if (dsmap.interval_l == 0) return 0;
  if (byToken != 0 || dsmap.interval_l < 0) return kCintcCacheFailed;

  // Already in memory?
  CINTCInfo* info = nullptr;
  if (mgr->exth->getInfoByIntName(mgr->objh, dsmap.interval, dsmap.interval_l, &info) != 0) {
    return kCintcCacheFailed;
  }
  if (info != nullptr) {
    *oinfo = info;
    return 0;
  }

  // Open the table.
  XOPNSTR opn = input_table_request();
  if (dsmap.lib_l > 0 &&
      from_wide(dsmap.lib, dsmap.lib_l, opn.name.lib.libref, static_cast<int>(sizeof opn.name.lib.libref)) < 0) {
    return kCintcCacheFailed;
  }
  const int meml =
      from_wide(dsmap.member, dsmap.member_l, opn.name.mem.name, static_cast<int>(sizeof opn.name.mem.name));
  if (meml < 0) return kCintcCacheFailed;
  opn.name.mem.name_l = static_cast<short>(meml);

  LOADARG larg;
  std::memset(&larg, 0, sizeof larg);
  const int opened = xoopen(&larg.xoparms, &opn);
  if (opened < 0) return opened;
  XOFILE* pfo = larg.xoparms.fileid;

  rctype status = 0;
  bool begun = false;
  do {
    long nobs = 0;
    xoinfo(pfo, 3, &nobs);
    if (nobs < 1) xoinfo(pfo, 2, &nobs);
    if (nobs < 1) {
      status = kCintcNoRows;
      break;
    }

    status = xvgeti(pfo, 3, &larg.xvp);
    if (status != 0) break;
    begun = true;
    int varnum = 0;
    NAMESTR* begin_ns = nullptr;
    status = xvfind(larg.xvp, "BEGIN", 5, &varnum);
    if (status == 0) status = xvname(larg.xvp, varnum, &begin_ns);
    if (status == 0) status = xvgetd(larg.xvp, varnum, 0, &larg.beginBuffer, 8, 8, 0, 0);
    if (status != 0) break;
    int flags = 0;
    const struct {
      const char* name;
      int len;
      double* buffer;
      int bit;
    } optional[] = {{"END", 3, &larg.endBuffer, 1}, {"SEASON", 6, &larg.seasBuffer, 2}};
    for (const auto& v : optional) {
      NAMESTR* ns = nullptr;
      if (xvfind(larg.xvp, v.name, v.len, &varnum) == 0 && xvname(larg.xvp, varnum, &ns) == 0 &&
          xvgetd(larg.xvp, varnum, 0, v.buffer, 8, 8, 0, 0) == 0) {
        flags |= v.bit;
      }
    }
    status = xvsele(larg.xvp);
    if (status == 0) status = xvgete(larg.xvp);
    if (status != 0) break;

    CINTCParms parms{};
    parms.flags = flags;
    parms.n = static_cast<int>(nobs);
    parms.lib = dsmap.lib;
    parms.lib_l = dsmap.lib_l;
    parms.member = dsmap.member;
    parms.member_l = dsmap.member_l;
    QKChar fmt[kNameChars];
    if (begin_ns != nullptr && begin_ns->nformlongl > 0) {
      const int fl = to_wide(begin_ns->nformlong, begin_ns->nformlongl, fmt, kNameChars);
      if (fl > 0) {
        parms.fmt = fmt;
        parms.fmt_l = fl;
        parms.fmt_w = parms.fmt_d = begin_ns->nfl != 0 ? begin_ns->nfl : -1;
      }
    }

    larg.xrc = 0;
    if (mgr->exth->loadIntervalInfo(mgr->objh, &parms, loadCustom, &larg, mgr->wrjnlh) != 0) {
      status = GetJnlStatus(mgr);
      if (larg.xrc < 0) status = larg.xrc;
      if (status < 0) break;
    }

    status = 0;
    if (mgr->exth->getInfoByIntName(mgr->objh, dsmap.interval, dsmap.interval_l, &info) != 0 || info == nullptr) {
      status = kCintcCacheFailed;
      break;
    }
    *oinfo = info;
  } while (false);

  // Every failure is reported by the caller, once; a refused row with the
  // file, line and field noted against its status.
  if (begun) xvgett(larg.xvp);
  xoclose(pfo, 0);
  return status < 0 ? status : 0;
}

}  // extern "C"
