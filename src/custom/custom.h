// Custom intervals: intervals whose periods are the rows of a table of dates.
//
// The host option INTERVALDS maps interval names to tables:
//
//   INTERVALDS=(MYCAL=WORK.CAL MYWK=WEEKS)
//
// A table has the numeric variable BEGIN (the first date of each period)
// and optionally END (its last date) and SEASON (its season number). Each
// host task keeps one manager record (ZQKECINTC) in a named slot of its
// resource block; the manager holds the cache extension "qkecintc", which
// keeps the mappings and every table read so far, shared by reference.
//
// The calendar routines reach this subsystem through the routines declared
// in intervals/interval.h (getcustomname, zcustLoad, customINTNX, ...); the
// rest is declared here.
#pragma once

#include <cstring>

#include "intervals/interval.h"
#include "module/export.h"
#include "module/host_api.h"
#include "module/win_model.h"  // u_sname
#include "primitives/primitives.h"

// A row number of a table.
typedef long QORNOBS;

// One mapping as the option gives it: interval name, library, member.
struct CUSTOMINTERVAL {
  u_sname interval;
  u_sname lib;
  u_sname member;
};

// The manager of one host task.
typedef struct _ZQKECINTC {
  WRJnlh wrjnlh;   // journal collecting the cache extension's statuses
  CINTCexth exth;  // the loaded cache extension
  CINTCobjh objh;  // the cache object
  rebid xrebid;    // the task's resource block and its name
  tchar* xname;
  int xname_l;
  rebid srebid;  // the session's resource block and its name
  tchar* sname;
  int sname_l;
} ZQKECINTC;

// Argument of the loader the cache calls back: the open table, its variable
// handle, the current row and the outcome.
struct LOADARG {
  XO_PARMS xoparms;
  ptr xvp;
  double beginBuffer;
  double endBuffer;
  double seasBuffer;
  long nobs;
  int xrc;
};

// A table held open between calls by a caller that reads it directly.
struct CUSTOMINTERVALDSINFO {
  struct INTERVAL* interval;
  int multiplier;
  int shift;
  struct CUSTOMINTERVAL* DSRef;
  double* beginBuffer;
  double* endBuffer;
  double* seasBuffer;
  struct XO_PARMS* xoparm;
  ptr xvp;
  int endVar;   // 1 when the table has END
  int seasVar;  // 1 when the table has SEASON
};

// A series of time IDs to be placed in a custom interval's table.
struct ZTS_OBSSTART {
  double startDate;           // date that relative indexes count from
  struct INTERVALX interval;  // a custom interval
  double fmt;                 // kept for the host; not read here
};
struct ZTS_OBSDATEVAR {
  double* dateList;  // the time IDs; aligned in place when asked
};
struct ZTS_OBSDATES {
  struct ZTS_OBSSTART start;
  struct ZTS_OBSDATEVAR dateVar;
  QORNOBS nobs;  // number of time IDs
  QKPoolh pool;  // pool for a work array, or null
};

// Codes of a placed time ID, ORed together: the begin of its period is
// minus infinity (1) or otherwise missing (2), its end plus infinity (4)
// or otherwise missing (8). 10 marks a time ID that couldn't be placed.
inline constexpr int kTidBeginInfinite = 1;
inline constexpr int kTidBeginMissing = 2;
inline constexpr int kTidEndInfinite = 4;
inline constexpr int kTidEndMissing = 8;
inline constexpr int kTidUnplaced = 10;

// Statuses of the time-ID check.
inline constexpr int kTidSomeMissing = 0x80;
inline constexpr int kTidNoObs = 0x8000;
inline constexpr int kTidFailed = -1;
inline constexpr int kTidIndexTooLarge = -3;
inline constexpr int kTidIndexInexact = -4;

// Statuses of the registry and loader.
inline constexpr rctype kCintcNoMemory = static_cast<rctype>(0x80000803u);
inline constexpr rctype kCintcBadJournal = static_cast<rctype>(0x80000805u);
inline constexpr rctype kCintcNoRows = static_cast<rctype>(0x8000080Bu);
inline constexpr rctype kCintcCacheFailed = static_cast<rctype>(0x8001C80Bu);
inline constexpr int kCintcReadFailed = static_cast<int>(0x803FC009u);
// A row whose BEGIN or END is not a time value within the calendar, or whose
// SEASON is not a whole number from 1 to kCustomMaxSeason.
inline constexpr rctype kCintcBadDate = static_cast<rctype>(0x8000080Cu);
inline constexpr rctype kCintcBadSeason = static_cast<rctype>(0x8000080Du);
// Seasons of a custom cycle: a seasonal model keeps several numbers for each.
inline constexpr double kCustomMaxSeason = 1.0e6;

// A request to open a table for reading, its library and member blank until
// the caller names them.
inline XOPNSTR input_table_request() {
  XOPNSTR opn;
  std::memset(&opn, 0, sizeof opn);
  opn.opnmode = XO_INPUT;
  opn.obs = -1;
  opn.maxrc = 1;
  std::memset(opn.name.lib.libref, ' ', sizeof opn.name.lib.libref);
  std::memset(opn.name.mem.name, ' ', sizeof opn.name.mem.name);
  std::memset(opn.name.memtype, ' ', sizeof opn.name.memtype);
  return opn;
}

extern "C" {

// ---- Registry and loader -------------------------------------------------------

// The manager of the current task, created at the first call: 0, or a
// negative status.
ESF_EXPORT rctype zcintcInit(ZQKECINTC** omgr);
// Next mapping of the (upper-cased, NUL-terminated) option text: 0 with the
// mapping in custInt, 1 at the end with *ctx null. *ctx null starts over.
ESF_EXPORT int parseIntervalDS(tchar* intervalDS, struct CUSTOMINTERVAL* custInt, tchar** ctx);
// Enters every mapping of the option INTERVALDS into the cache.
ESF_EXPORT rctype loadDSOPTS(ZQKECINTC* mgr);
// The loader the cache calls back once to fill cinfo from the open table.
ESF_EXPORT int loadCustom(QKMemPtr loadArg, CINTCParms* pb, CINTCInfo* cinfo);
// The status the journal holds, 0x8001C80B when it holds none.
ESF_EXPORT rctype GetJnlStatus(ZQKECINTC* mgr);
// Destructor of the task's slot: destroys the cache and frees the manager.
ESF_EXPORT void CleanMGR(rebid reb, rebslotid slotid);
// Deletes the task's slot, and with it the manager.
ESF_EXPORT void zcintcTerm(void);
// Stores and fetches the pointer of the task's slot.
ESF_EXPORT rctype StorePtr(void* resPtr);
ESF_EXPORT void* GetPtr(void);

// ---- Arithmetic on a table ------------------------------------------------------

ESF_EXPORT void customINTNXBES(struct INTERVALX* intervalx, double x, double n, double* b, double* e, double* s);
ESF_EXPORT int findIndexC(struct INTERVALX* intervalx, double x, double* n, double* b, double* e, double* s);
ESF_EXPORT int getIndexC(struct INTERVALX* intervalx, double n, double* b, double* e, double* s);
ESF_EXPORT int customGetObsC(struct INTERVALX* intervalx, double n, double* b, double* e, double* s,
                             struct CUSTOMINTERVALDSINFO* dsinfo);
ESF_EXPORT double customFindRawIndexC(struct INTERVALX* intervalx, double date, double* index, double* b, double* e,
                                      struct CUSTOMINTERVALDSINFO* dsinfo);
ESF_EXPORT int customRange(struct INTERVALX* intervalx, int LR, double* left, double* right,
                           struct CUSTOMINTERVALDSINFO* dsinfo);
ESF_EXPORT int customRangeD(struct INTERVALX* intervalx, int LR, double* left, QORNOBS* lindex, QKChar* lpos,
                            double* right, QORNOBS* rindex, QKChar* rpos, struct CUSTOMINTERVALDSINFO* dsinfo);

// The same questions asked of a table read directly (no cache entry).
ESF_EXPORT int findIndex(struct INTERVAL* interval, double x, double* n, double* b, double* e, double* s,
                         struct CUSTOMINTERVALDSINFO* dsinfo);
ESF_EXPORT int getIndex(struct INTERVAL* interval, double n, double* b, double* e, double* s,
                        struct CUSTOMINTERVALDSINFO* dsinfo);
ESF_EXPORT int customGetObs(struct INTERVAL* interval, double n, double* b, double* e, double* s,
                            struct CUSTOMINTERVALDSINFO* dsinfo);

// The mapping of an interval read from the option, without the cache;
// *multiplier and *shift -1 (and a blank mapping) when there is none.
struct CUSTOMINTERVAL getCustomIntervalDSRef(struct INTERVAL* interval, int* multiplier, int* shift);
// Fills at most *n mappings from the option; *n becomes their number.
ESF_EXPORT void parseIntervalOptions(struct CUSTOMINTERVAL* custInt, int* n);
// The units of a table's BEGIN values, from its format: 'd' (also without a
// format), 's', 'o' or 'u'.
ESF_EXPORT char customTableUnits(ptr xvp);
// Checks the row just read: begin, and end and season unless null. 0, or
// the status of the first value out of range, noted with the table's file,
// line and field for the caller's report.
ESF_EXPORT int checkCustomRow(XO_PARMS* xo, ptr xvp, char units, double begin, const double* end, const double* season);
// Opens a table and binds BEGIN (required), END and SEASON: 0 or -1.
ESF_EXPORT int openDS(struct CUSTOMINTERVAL* DSRef, double* beginBuffer, double* endBuffer, double* seasBuffer,
                      struct XO_PARMS* xoparm, ptr* xvp, int* endVar, int* seasVar);
// True when a isn't missing and b is missing or differs.
ESF_EXPORT int unequal(double a, double b);

// ---- Time IDs against a custom interval ------------------------------------------

// Places each time ID of dateinfo in the custom interval's table: its period
// index (CDSIndex), the index relative to the start date (TSIndex), whether
// the IDs are in order, which touch the infinite ends, how far the data can
// be led or moved back, the first and last dates; align "B", "E" or "M"
// replaces each ID by the begin, end or middle of its period. Every pointer
// but dateinfo may be null. 0, 0x80 (some IDs missing), 0x8000 (no IDs),
// -1 (failure), -3 (an index beyond 64 bits).
ESF_EXPORT int zintctid(struct ZTS_OBSDATES* dateinfo, tchar* align, QORNOBS MaxFail, QORNOBS* CDSIndex,
                        QORNOBS* TSIndex, int* Order, int* Infinity, int* InfinityByObs, QORNOBS* MaxLead,
                        QORNOBS* MaxBack, double* first, double* last);
// The same with long indexes; -4 when an index lies beyond 2^53.
ESF_EXPORT int zintctidL(struct ZTS_OBSDATES* dateinfo, tchar* align, long MaxFail, long* CDSIndex, long* TSIndex,
                         int* Order, int* Infinity, int* InfinityByObs, long* MaxLead, long* MaxBack, double* first,
                         double* last);

// ---- Format catalogue ---------------------------------------------------------------

// Date type of a format name: 4 num, 8 date, 9 time, 10 datetime, 0 other,
// -1 unknown. Case counts; trailing blanks don't.
ESF_EXPORT int zfmttype(char* format, int fmtlen);

}  // extern "C"
