// Everything the module reaches in its host: named lists and method
// arguments, the global control block with the current memory pool, the print
// service and its message catalogue, output and input tables, the option
// store, task resource slots, the custom interval cache extension, the sweep
// operator, and the image records the host reads when it loads the module.
//
// The host is a separate shared object (libesfhost.so).  The module links it
// and calls these routines by name; the host program loads the module with
// dlopen() and reads the image records declared at the end of this file.
//
// Conventions shared by all routines here:
//   * a status of 0 is success; negative is an error, positive a warning;
//   * texts are a tchar pointer and an int length, unterminated unless said;
//   * list indexes start at 1, and an index of -1 means "append";
//   * names of list items compare without regard to case.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "host/host_ctype.h"
#include "host/host_dates.h"
#include "host/host_text.h"
#include "module/export.h"
#include "module/version_info.h"
#include "primitives/primitives.h"  // tchar, QKChar, QKStatus, QKPoolh

#ifdef __cplusplus
extern "C" {
#endif

typedef void* ptr;
typedef int rctype;    // a host status: 0, a negative error or a positive warning
typedef long ListId;   // the host's number of a list; 0 is no list
typedef long SLIndex;  // a 1-based index into a list

// Counted name of at most 32 characters; the module's u_sname (declared in
// module/win_model.h) has this layout, and znamdiv fills records of it.
struct u_sname;

// ===========================================================================
// Named lists (the object language's method data)
// ===========================================================================

// Kinds of list items, the `type` of an SLIST_ITEM.
#define SL_NUMBER 'N'   // data.d, a double (possibly a missing value)
#define SL_INTEGER 'I'  // data.i, a long
#define SL_SHORT 'S'    // data.s, a short
#define SL_BOOLEAN 'B'  // data.b, 0 or 1
#define SL_COUNT '#'    // data.i, a count kept by the host
#define SL_CHAR 'C'     // data.c, characters (owned by the item)
#define SL_LIST 'L'     // data.id, the ListId of a sublist
#define SL_EMPTY 'E'    // a placeholder made by storing past the end

// One item.  Numeric kinds are N, #, I, S and B; slgetnv reads any of them.
typedef struct SLIST_ITEM {
  struct SLIST_ITEM* next;  // next item, null at the end
  char type;                // one of the SL_... kinds above
  union {
    double d;
    long i;
    short s;
    unsigned char b;
    ListId id;
    struct {
      tchar* p;
      int len;
    } c;
  } data;
  tchar* name;  // item name, null when the item has none
  int name_l;
} SLIST_ITEM;

// A list.  `lastUsed` and `lastIndex` are the position of a walk: a walker
// resets them (to null and 0) and moves them with each item it visits.
typedef struct SLIST {
  long length;           // number of items
  SLIST_ITEM* head;      // first item, null when empty
  SLIST_ITEM* tail;      // last item
  SLIST_ITEM* lastUsed;  // item at `lastIndex`, or null
  long lastIndex;        // 1-based index of `lastUsed`, 0 when unset
  ListId id;             // the list's own number
  struct FMCOM* fmcomp;  // the component that owns it
} SLIST;
typedef SLIST* List;

// The host's component handle: the owner of a family of lists.  Lists made
// with one FMCOM are found again by their ListId through the same FMCOM.
typedef struct FMCOM {
  uint32_t magic;  // kFmcomMagic for a live component
  void* registry;  // the host's list registry
} FMCOM;

// New empty list; `*list` receives it.  Returns its id, 0 on failure.
ListId slnewl(List* list, FMCOM* fmcomp, int flags);
// The list of an id, null if there is none.
List slistp(ListId id, FMCOM* fmcomp);
// Frees a list; with `deep` non-zero also the sublists its items hold.
int slfree(ListId id, int deep, FMCOM* fmcomp);
// A deep copy of a list; returns the id of the copy, 0 on failure.
ListId slcopy(List list, int from, int flags, FMCOM* fmcomp);

// Get by name: `occurrence` 1 and `from` 1 ask for the first item so named.
// Non-zero when the item is absent or of the wrong kind.  With `dflt` not
// null, the output becomes *dflt when the item is absent (still non-zero).
int slgnl(List list, const tchar* name, int len, int occurrence, int from, ListId* id, const ListId* dflt);
int slgnd(List list, const tchar* name, int len, int occurrence, int from, double* out, const double* dflt);
int slgni(List list, const tchar* name, int len, int occurrence, int from, long* out, const long* dflt);
int slgns(List list, const tchar* name, int len, int occurrence, int from, short* out, const short* dflt);
// Named characters, not terminated, pointing into the item.  An absent item
// with a default gives the default and 0; without a default, non-zero.
int slgnc(List list, const tchar* name, int len, int occurrence, int from, tchar** out, int* outlen, const tchar* dflt,
          int dfltlen);

// Insert a named sublist or double at `index` (-1 appends).
int slinsl(List list, ListId id, SLIndex index, const tchar* name, int len);
int slinsd(List list, double value, SLIndex index, const tchar* name, int len);

// Store at `index`, replacing what is there; an index past the end extends
// the list with empty items.  `flags` is 1 in every call.
int slsetc(List list, SLIndex index, const tchar* s, int len, int flags);
int slsetd(List list, SLIndex index, double value, int flags);
int slseti(List list, SLIndex index, long value, int flags);

// Set the named item, adding it at the end if absent.
int slsnc(List list, const tchar* s, int slen, const tchar* name, int len, int occurrence, int from);
int slsnd(List list, double value, const tchar* name, int len, int occurrence, int from);
int slsni(List list, long value, const tchar* name, int len, int occurrence, int from);
int slsns(List list, short value, const tchar* name, int len, int occurrence, int from);

// The item at `index`: its characters (pointing into the item), its integer
// value, or the id of its sublist.  Non-zero when absent or of another kind.
int slitmc(List list, SLIndex index, tchar** s, int* len);
int slitmi(List list, SLIndex index, long* out);
int slitml(List list, SLIndex index, ListId* out);
// Gives the item at `index` the name `name`.
int slni(List list, SLIndex index, const tchar* name, int len);
// Index of the first character item equal to `s` (trailing blanks ignored),
// 0 if none.
SLIndex slsrchc(List list, const tchar* s, int n, int occurrence, int caseless, int from, int flags);
// Index of the first item named `name` at or after `from`, 0 if none.
SLIndex slsrchn(List list, const tchar* name, int len, int occurrence, SLIndex from);
// Removes the item at `index`; later indexes close up.
int slditm(List list, SLIndex index);
// The numeric value of an item of any numeric kind; the ordinary missing
// value for other kinds.
double slgetnv(const SLIST_ITEM* item, int flags);

// ===========================================================================
// Method arguments
// ===========================================================================

// posargs type codes.
#define POS_CHAR 1    // tchar** text, int* length
#define POS_DOUBLE 2  // double* value, char* missing
#define POS_INT 4     // int* value, char* missing
#define POS_LIST 9    // List* list

#define PSCP_MAXARGS 16

// One argument of a method call as the object language passed it.
typedef struct PSCPARG {
  int type;      // POS_LIST, POS_CHAR or POS_DOUBLE (numbers travel as doubles)
  char missing;  // non-zero for a missing argument
  List list;     // POS_LIST
  tchar* text;   // POS_CHAR, owned by the caller
  int text_l;
  double d;      // POS_DOUBLE, and where posretd writes back
  char written;  // set when posretd wrote into this argument
} PSCPARG;

typedef struct PSCPU {
  FMCOM* fmcomp;  // the component whose lists the call works on
} PSCPU;

// The parameter record of one method call.  `args` beyond `nargs` exist so
// that a return code written to a slot the caller did not pass still lands.
typedef struct PSCPLIST {
  PSCPU* u;
  int nargs;
  PSCPARG args[PSCP_MAXARGS];
} PSCPLIST;

// Reads the arguments: after `nargs`, one group per expected argument, in
// order: a type code, then pointers as the POS_... codes say.  Returns 0
// when the argument count lies in [min, max] and every passed argument has
// the kind asked for; non-zero otherwise.  Outputs of absent or missing
// arguments are set to null (lists, texts) or flagged missing (numbers).
int posargs(PSCPLIST* plist, List self, int min, int max, int* nargs, ...);
// Writes `value` into the argument at `slot`: slot s is argument s - 1,
// counted from 1 (so a method with n arguments and its return code last
// writes to slot n + 1).
int posretd(PSCPLIST* plist, int slot, double value, int flags);

// ===========================================================================
// Global control block, memory pools, task resources
// ===========================================================================

// Pool allocation flags used by the module.
#define VM_NUMBERS 0x2004  // arrays of numbers and pointers
#define VM_FLAGS 0x2006    // arrays of flag bytes (misflg)
#define VM_CLEAR 0x0002    // the block is cleared

// The host's current pool: a record of two entries.
typedef struct VMPOOL {
  void* (*alloc)(struct VMPOOL* pool, long bytes, int flags);      // memory or null
  int (*free)(struct VMPOOL* pool, void* p, long len, int flags);  // gives a block back
  void* impl;                                                      // the host's own
} VMPOOL;

// Exported covers of the two entries: allocate cleared, allocate, free.
void* vmalcp_handler(VMPOOL* pool, long len, int flags);
void* vmalloc_handler(VMPOOL* pool, long len, int flags);
int vmfree_handler(VMPOOL* pool, void* addr, long len, int flags);

// Non-zero when an allocation failed since the previous call; the call
// clears the indication.
int xmemdef(void);

// A resource block of a task and a slot in it.
typedef struct REB* rebid;
typedef long rebslotid;
// The destructor of a slot, run when the slot is deleted.
typedef void (*REBDTOR)(rebid reb, rebslotid slotid);

// The host's task descriptor.
typedef struct TASKDESC {
  long tkword;  // the word virv2g is given
  rebid xreb;   // the task's resource block
  tchar* xname;
  int xname_l;
  rebid sreb;  // the session's resource block
  tchar* sname;
  int sname_l;
} TASKDESC;

struct QKHANDLE;

// The global control block.  The module reaches it through the anchor that
// mcn_main stores: (*v_global_gcb_anchor)->curpool and so on.
typedef struct GCB {
  VMPOOL* curpool;            // the current pool of method calls
  QKPoolh modpool;            // the module pool (records that outlive a call)
  struct QKHANDLE* qkhandle;  // the kernel handle
  TASKDESC* task;             // the current task
  double posovfl;             // the host's positive overflow value
  double negovfl;             // the host's negative overflow value
} GCB;

// Status of xytngl when the name has no slot.
#define XYT_NOTFOUND ESF_STATUS_BITS(rctype, 0x80008026)
#define XYT_LOOKUP 2  // op of xytngl
#define XYT_ENTER 1   // op of xytnsl

// Looks up the slot named `name` in `reb`: 0 with `*slotid` (and the block
// it was found in, `*found`, when not null), or XYT_NOTFOUND.
rctype xytngl(rebid reb, int op, const tchar* name, int len, rebslotid* slotid, rebid* found);
// Enters `name` for an existing slot.
rctype xytnsl(rebid reb, int op, const tchar* name, int len, rebslotid slotid);
// Creates a slot holding `value`, with a destructor (may be null).
rctype wtrscrt(rebid reb, REBDTOR dtor, ptr value, rebslotid* slotid);
// Sets and gets the pointer a slot holds.
rctype wtrsset(rebid reb, rebslotid slotid, ptr value);
rctype wtrsget(rebid reb, rebslotid slotid, ptr* value);
// Deletes a slot and its name; runs its destructor first.
rctype wtrsdel(rebid reb, rebslotid slotid);

// Turns an image-local function address into one the host may call.
ptr vir2g(ptr local, ptr pidb);
// The same for `n` addresses from `local` into `global`; 0 on success.
int virv2g(ptr* local, ptr* global, int n, long task, ptr pidb);

// ===========================================================================
// Options
// ===========================================================================

// The value of a host option, as a writable copy that stays valid until the
// next call on this thread, and its length in `*len`; an option never set
// gives an empty text (length 0), never null.
tchar* xoptcgt(const char* name, int* len);

// ===========================================================================
// Printing, messages, debug output
// ===========================================================================

// Format strings: %i (int), %li (long), %f and %E (double), %g (double,
// shortest), %s (terminated text), %*s (int length, then text of exactly that
// many characters), %% and %n (a new line).  Width and precision as in C; a
// precision of 90 or more means precision - 90.
int xps(const char* fmt, ...);                         // appends to the current print line
int xpsout(const char* fmt, ...);                      // appends and ends the line
int xpsstr(char* buf, int max, const char* fmt, ...);  // formats into buf; returns the length
// Catalogue message `msg` of `module` with its arguments, into buf; returns
// the length (0 for an unknown message, buf then empty).
int xpmstr(char* buf, int max, int module, int msg, ...);

typedef struct XPPRNL {
  int left;      // lines left on the page
  int pagesize;  // lines per page
  int linesize;  // characters per line
} XPPRNL;
XPPRNL* xpprnl(int unit);
int xppage(int unit);   // starts a new page
int xpoflsh(int unit);  // flushes the print output
// Reports the host status `rc` as a message to the log.
void xprrlog(int unit, rctype rc);
// Debug output, printf-like, one line.
void xebug(const char* fmt, ...);

// ===========================================================================
// Tables
// ===========================================================================

typedef struct XOFILE XOFILE;

// The parameter record of an open table.
typedef struct XO_PARMS {
  XOFILE* fileid;  // the open table
  long irid;
  long orid;
  void* recptr;
  long obsnum;  // row number for xopnt (1-based)
  int lockwait;
  int flags;
  int opcode;  // operation for the read entry and xopnt
  long count;
  long growth;
} XO_PARMS;

// Entries of an open table.  `add` appends the record built by xyvput and
// keeps its status in fileid->status; `read` with opcode XO_READNEXT moves
// the next row into the record for xyvget, and answers XO_EOF at the end.
typedef struct XOVECTOR {
  int (*add)(XO_PARMS* xoparm);
  int (*read)(XO_PARMS* xoparm);
} XOVECTOR;

struct XOFILE {
  XOVECTOR* vector;
  int status;  // status of the last add
  void* impl;  // the host's own
};

#define XO_OUTPUT 2          // opnmode: create a table
#define XO_INPUT 0x04000001  // opnmode: read a table
#define XO_ABORT 65536       // xoclose: discard the table
#define XO_READNEXT 0x0B     // read opcode: the next row
#define XO_READFLAG 0x40     // flag set with XO_READNEXT
#define XO_PNTLAST 3         // xopnt: before the last row
#define XO_PNTOBS 4          // xopnt: before row obsnum
#define XO_EOF 0x801         // no further row

// A counted name of 32 characters inside XOPNSTR.
typedef struct XSNAME {
  short name_l;
  tchar name[32];
} XSNAME;

typedef struct XOPNSTR {
  struct {
    struct {
      tchar libref[8];  // blank-padded; blank means WORK
    } lib;
    XSNAME mem;        // member name
    tchar memtype[8];  // blank-padded
  } name;
  int opnmode;  // XO_OUTPUT or XO_INPUT
  long obs;     // -1
  int maxrc;
} XOPNSTR;

// Description of one variable.
typedef struct NAMESTR {
  short ntype;  // 1 numeric, 2 character
  long nlng;    // length in bytes
  long nvar0;   // variable number, from 1
  short namelen;
  tchar* name_p;
  short nlablen;
  tchar* label_p;
  short nfl;            // format width
  short nfd;            // format decimals
  short nformlongl;     // length of the format name, 0 without a format
  tchar nformlong[32];  // format name
} NAMESTR;

// Splits a table name "lib.mem.type" into its parts (`n` of them asked
// for; the parts absent from the name are blank with length 0).  Non-zero
// for a name that is empty, has more parts than asked, or parts too long.
int znamdiv(int flags, const tchar* name, int len, int* count, int n, struct u_sname* lib, struct u_sname* mem,
            struct u_sname* type);

// Opens a table: sets xoparm->fileid.  Negative on error, positive warning.
int xoopen(XO_PARMS* xoparm, XOPNSTR* xopnstr);
// Closes a table: `how` 0 keeps an output table, XO_ABORT discards it.
int xoclose(XOFILE* fileid, int how);
// Handles a non-zero status of an entry: reports it, or with `flags` a
// variable number (from 1) of an input table, notes it against that
// variable's value in the current row (file, line and field) for the report
// that follows.
int xofprc(XO_PARMS* xoparm, int status, int flags);
// Facts of an open table: `what` 2 or 3 gives the number of rows.
int xoinfo(XOFILE* fileid, int what, long* value);
// Positions an input table so that the next read gives row xoparm->obsnum
// (opcode XO_PNTOBS) or the last row (XO_PNTLAST).
int xopnt(XO_PARMS* xoparm);

// Writing variables.
void xvnamei(NAMESTR* namestr);
int xvputi(XOFILE* fileid, int nvars, int flags, ptr* xvp);
int xvputd(ptr xvp, NAMESTR* namestr, int flags, double* slot, int len, int a, int b);
int xvpute(ptr xvp);
int xvputt(ptr xvp);
int xyvput(ptr xvp, int flags);
// Writes `nrows` records at once, as many calls of xyvput and the add entry
// would, a non-zero status of a record going to xofprc(xoparm, status, 4):
// the value of variable j (in the order of definition) in record i is
// first[j][i * stride[j]].  Returns the last such status, or 0.
int xyvputn(ptr xvp, XO_PARMS* xoparm, long nrows, const double* const* first, const long* stride);

// Reading variables.
int xvgeti(XOFILE* fileid, int flags, ptr* xvp);
int xvfind(ptr xvp, const tchar* name, int len, int* varnum);
int xvname(ptr xvp, int varnum, NAMESTR** namestr);
int xvgetd(ptr xvp, int varnum, int flags, double* buffer, int len, int a, int b, int c);
int xvsele(ptr xvp);
int xvgete(ptr xvp);
int xvgett(ptr xvp);
int xyvget(ptr xvp, int flags);

// Attributes of a format or informat name.
typedef struct FATTRSTR {
  short fwmin;  // smallest width
  short fwmax;  // largest width
  short fwdef;  // default width
  short fdmin;
  short fdmax;
  short fddef;
  char ftype;  // 'N' numeric, 'C' character
} FATTRSTR;
// `kind` 'F' for a format, 'I' for an informat.  0, or non-zero for an
// unknown name.
int xfrname(long task, const tchar* name, int len, char kind, FATTRSTR* attr, int* fcode);

// ===========================================================================
// Sweep operator
// ===========================================================================

// Sweeps pivot `k` of the packed symmetric `n`-by-`n` matrix `a` (lower
// triangle by rows).  `cc[k]` '0' marks an unswept pivot: when a(k,k) > tol
// the pivot is swept and cc[k] becomes '1'; otherwise nothing changes.  A
// pivot already marked '1' is swept back and marked '0'.  After the sweep
// a(k,j) = a(k,j)/d, a(i,j) -= a(i,k)a(k,j)/d and a(k,k) = -1/d, d the pivot;
// sweeping every pivot leaves minus the inverse.  `work` holds n doubles.
void zsweep(double* a, int k, int n, char* cc, double* work, double tol);

// ===========================================================================
// Journal, kernel handle and the custom interval cache extension "qkecintc"
// ===========================================================================

#define WRJNL_SIG 0x66666666u

// A journal: collects the statuses of the cache extension.
typedef struct WRJNL {
  uint32_t sig;                                        // WRJNL_SIG
  QKStatus status;                                     // worst status recorded, 0 if none
  int (*dumpToList)(struct WRJNL* jnl, QKStatus* rc);  // *rc = status; 0
  void (*destroy)(struct WRJNL* jnl);
} WRJNL;
typedef WRJNL* WRJnlh;
WRJnlh wrjnlc(int a, int b);

typedef struct CINTCEXT* CINTCexth;
typedef struct CINTCOBJ* CINTCobjh;

// A mapping of an interval name to a table, in wide characters.
typedef struct CINTCIntDSMap {
  QKChar* interval;
  int interval_l;
  QKChar* lib;
  int lib_l;
  QKChar* member;
  int member_l;
} CINTCIntDSMap;

// What a table to be cached looks like.
typedef struct CINTCParms {
  int flags;  // 1: END, 2: SEASON
  int n;      // rows foreseen
  QKChar* lib;
  int lib_l;
  QKChar* member;
  int member_l;
  QKChar* fmt;
  int fmt_l;
  int fmt_w;
  int fmt_d;
} CINTCParms;

// A table in memory.  The cache owns it; callers hold references and end
// each with releaseRef.
typedef struct CINTC_INFO CINTCInfo;
struct CINTC_INFO {
  QKMemPtr private_;  // the cache's own
  void (*releaseRef)(CINTCInfo* info);
  CINTCobjh cacheObj;
  int n;      // rows foreseen
  int nused;  // rows read
  double* beginBuffer;
  double* endBuffer;   // null without END
  double* seasBuffer;  // null without SEASON
  QKChar* fmt;
  int fmt_l;
  int fmt_w;
  int fmt_d;
};

// The loader the cache calls back once to fill a new CINTCInfo.
typedef int (*CINTCLoader)(QKMemPtr loadArg, CINTCParms* pb, CINTCInfo* cinfo);

// Operations of the extension; the cache object `objh` comes from
// createCache.  Statuses are 0 for success.
struct CINTCEXT {
  CINTCobjh (*createCache)(CINTCexth exth, WRJnlh jnl);
  CINTCobjh (*getGlobalCache)(CINTCexth exth, WRJnlh jnl);
  void (*destroyCache)(CINTCobjh objh);
  int (*addIntervalMapDef)(CINTCobjh objh, CINTCIntDSMap* dsMap);
  // 0 when `name` is mapped; the mapping is copied into dsmap's buffers.
  int (*getDSMapByIntName)(CINTCobjh objh, const QKChar* name, int name_l, CINTCIntDSMap* dsmap);
  // Resolves a token that may carry a multiplier and a shift (NAME, NAMEm,
  // NAMEm.s) to its mapping; dsmap->interval_l comes back 0 when unmapped.
  int (*getDSMapByToken)(CINTCobjh objh, const QKChar* token, int token_l, int intper, int shiftper,
                         CINTCIntDSMap* dsmap, int* multiplier, int* shift);
  // 0 with a new reference in *info, or with *info null when not loaded.
  int (*getInfoByIntName)(CINTCobjh objh, const QKChar* interval, int interval_l, CINTCInfo** info);
  int (*getInfoByDSName)(CINTCobjh objh, const QKChar* lib, int lib_l, const QKChar* member, int member_l,
                         CINTCInfo** info);
  // Creates a CINTCInfo with the buffers parms->flags asks for, calls the
  // loader once and keeps the result under the mapped names of the table.
  int (*loadIntervalInfo)(CINTCobjh objh, CINTCParms* parms, CINTCLoader loader, QKMemPtr loadArg, WRJnlh jnl);
  int (*loadFromQKTS)(CINTCobjh objh, QKMemPtr source, WRJnlh jnl);
};

// The kernel handle (Exported_QKHandle): extensions and the two transcoding
// pipelines between the host's text encoding and wide characters.  Lengths
// are in bytes both ways (a wide character counts 4); the status is 0, or
// non-zero for text that cannot be converted or does not fit.
typedef struct QKHANDLE {
  CINTCexth (*loadExtension)(struct QKHANDLE* h, const QKChar* name, int name_l, WRJnlh jnl);
  void (*unloadExtension)(struct QKHANDLE* h, CINTCexth exth);
  QKStatus (*toWide)(const tchar* src, QKMemSize srcbytes, QKChar* dst, QKMemSize dstbytes, QKMemSize* outbytes);
  QKStatus (*fromWide)(const QKChar* src, QKMemSize srcbytes, tchar* dst, QKMemSize dstbytes, QKMemSize* outbytes);
} QKHANDLE;

// ===========================================================================
// The image: records the host reads and the module's entry points
// ===========================================================================

typedef int (*WIPGMEP)(int argc, char** argv);

typedef struct WIPGMCON {
  long stacksize;  // -65536
  long isa;        // 1024
  long osa;        // 1024
  char name[8];    // "qorfmsm "
  long flags;      // 0
  WIPGMEP ep;      // qorfmsm
  long imgtype;    // 4
  long support;
  long prodid;
  long cntlc;  // 15
} WIPGMCON;

typedef struct VIMODCON {
  char tag[24];                // "QOR_Image_Information=", zero padded
  unsigned long modconmagic;   // 0xB0BDEBED
  unsigned long compat_flags;  // 8
  char portver[6];
  char portverl[20];
  char builddate[24];
  WIPGMCON** pgmcons;  // mcn_pcns
  char* copyright;
  char releasenum[4];  // "001"
} VIMODCON;

// The image's descriptor, made by the host when it loads the image.
typedef struct VI_PIDB {
  char name[8];
  void* handle;  // the loader's handle of the image
  long flags;
} VI_PIDB;

typedef int (*METHODFN)(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);

// The answer of the entry: the method table.
typedef struct CMETHS {
  int nmethods;
  METHODFN* entpnts;
} CMETHS;

// Exported by the module image (libqorfmsm.so).
ESF_EXPORT extern VIMODCON vi_mcn;
ESF_EXPORT extern WIPGMCON pcn_QORFMSM;
ESF_EXPORT extern WIPGMCON* mcn_pcns[2];
ESF_EXPORT extern GCB** v_global_gcb_anchor;
ESF_EXPORT extern VI_PIDB* v_global_pidb_anchor;
ESF_EXPORT extern QKHANDLE* Exported_QKHandle;

ESF_EXPORT VIMODCON* mcn_main(ptr* gcbanchor, ptr pidb);
ESF_EXPORT void himodcn(void);
ESF_EXPORT int qorfmsm(int argc, char** argv);
ESF_EXPORT void qkvercn1(QKS_Version_Info* verinfo);

// The twelve methods, in the order of the method table.
ESF_EXPORT int mwinfit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mwinfor(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mes1fit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mes1for(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mes2fit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mes2for(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mesdfit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mesdfor(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mes3fit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int mes3for(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int messfit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
ESF_EXPORT int messfor(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);

#ifdef __cplusplus
}  // extern "C"

// Convenience for module code: the control block, the current pool and the
// overflow values.  Valid once mcn_main has run.
inline GCB* host_gcb() { return v_global_gcb_anchor ? *v_global_gcb_anchor : nullptr; }
inline VMPOOL* host_curpool() {
  GCB* gcb = host_gcb();
  return gcb ? gcb->curpool : nullptr;
}
// Allocation from the current pool; null without a pool or memory.
inline void* host_alloc(long bytes, int flags) {
  VMPOOL* pool = host_curpool();
  return pool ? pool->alloc(pool, bytes, flags) : nullptr;
}
inline void host_free(void* p) {
  VMPOOL* pool = host_curpool();
  if (pool && p) pool->free(pool, p, 0, 4);
}
#endif
