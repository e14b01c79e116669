/* The exported surface of the module image libqorfmsm.so, for C.
 *
 * Every routine and record the image exports (tests/module_exports.txt lists
 * them) is declared here with C linkage, so that a program written in C can
 * link the image and call it:
 *
 *   #include "module/qorfmsm.h"
 *
 *   struct INTERVAL iv;
 *   zintstr("MONTH3.2", -1, &iv);   // 0: intcode 45, intper 3, shiftper 1
 *   zintck2(&iv, 0.0, 14610.0);     // 160 boundaries from 1960 to 2000
 *
 * Records a caller fills or reads are defined in full; the records of the
 * host interface (lists, tables, the control block, the model record of the
 * methods) are named only, since a C caller passes pointers to them that its
 * host gave it.  An INTERVALX begins with an INTERVAL: in C its head is the
 * member `interval`, and a pointer to it converts to a pointer to that.
 * The revision record is in module/version_info.h beside this header, which
 * the host interface includes as well.
 *
 * Compiled as C++, the header takes the records from the module's own
 * headers, and its declarations then redeclare the module's: a routine whose
 * C signature here differs from its definition is an error, and the C
 * records below are checked field by field against the module's.  The
 * module's entry includes it for that reason.
 */
#pragma once

/* The revision record (qkvercn1), one declaration for C and C++. */
#include "module/version_info.h"

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "custom/custom.h"
#include "intervals/interval.h"
#include "module/host_api.h"
#include "module/method_args.h"
#include "module/win_model.h"
#include "numeric/numeric.h"
#include "primitives/primitives.h"
#include "regression/regression.h"
#include "smoothing/es1fit.h"
#include "smoothing/es1subs.h"
#include "smoothing/es2fit.h"
#include "smoothing/es2subs.h"
#include "smoothing/es3fit.h"
#include "smoothing/es3subs.h"
#include "smoothing/esdfit.h"
#include "smoothing/esdsubs.h"
#include "smoothing/essfit.h"
#include "smoothing/esssubs.h"
#include "smoothing/frame_trace.h"
#include "smoothing/winfit.h"
#include "smoothing/winsubs.h"

// The C view of the records, kept apart so that it can be compared with the
// module's.
namespace esf::c_header {
#else
#include <stdint.h>
#endif

/* ---- Types ------------------------------------------------------------------------------------ */

typedef char tchar; /* signed 8-bit text character */
typedef unsigned char tuchar;
typedef int wrcode; /* status of a text routine */
typedef int rctype; /* a host status: 0, a negative error or a positive warning */
typedef void* ptr;
typedef long SLIndex;       /* a 1-based index into a list */
typedef long QORNOBS;       /* a row number of a table */
typedef int32_t QKChar;     /* wide character */
typedef int64_t QKStrSize;  /* count of wide characters */
typedef uint64_t QKMemSize; /* count of bytes */
typedef int32_t QKStatus;
typedef uint8_t QKBoolean;
typedef void* QKMemPtr;
typedef const void* QKConstMemPtr;
typedef long rebslotid;

/* A memory pool: memAlloc(pool, size, flags) gives memory or null, memFree
 * gives a block back. */
struct QKPool {
  QKMemPtr (*memAlloc)(struct QKPool* pool, QKMemSize size, int32_t flags);
  void (*memFree)(struct QKPool* pool, QKMemPtr ptr);
};
typedef struct QKPool* QKPoolh;

/* The 28 missing values "._", ".", ".A" .. ".Z" after one aligning 0. */
typedef struct SKMISSV_STRUCT {
  double Double_Align;
  double MissTable[28];
} SKMISSV_STRUCT;

/* Counted names and labels, blank-padded, never terminated. */
typedef struct u_sname {
  short name_l;
  tchar name[32];
} u_sname;
typedef struct u_slabel {
  short label_l;
  tchar label[256];
} u_slabel;

/* A parsed time interval ("MONTH3.2": intcode 45, intper 3, shiftper 1). */
struct INTERVAL {
  char units;      /* 'd' date, 's' datetime, 'o' observation, 'u' NONE; 0 cleared */
  char intcode;    /* interval code; 0 is NONE */
  int intper;      /* multiplier, >= 1 */
  int shiftper;    /* shift in sub-periods, counted from 0 */
  char nweekday;   /* WEEKDAY: working days in a week */
  char weekend[7]; /* WEEKDAY: 1 for a weekend day; [0] Sunday .. [6] Saturday */
  tchar token[22]; /* the parsed text, rest 0 */
  short tokenlen;
  void* holidays; /* unread */
};

/* An INTERVAL followed by what the seasonal and custom routines need. */
struct INTERVALX {
  struct INTERVAL interval;
  struct CINTC_INFO* cinfo; /* custom interval table, one reference; else null */
  QKMemPtr ccache;
  short formatw;               /* default format width */
  short formatl;               /* length of the text in format */
  tchar format[9];             /* name of the default format */
  int nseasons;                /* length of the seasonal cycle, 0 while unknown */
  struct INTERVALX* sinterval; /* seasonal cycle interval or null */
};

/* What interval fitting hands back. */
struct INTINFO {
  struct INTERVAL sinterval; /* the seasonal cycle interval */
  int nseasons;
  short formatw;
  short formatl;
  tchar format[9];
};

/* One mapping of the option INTERVALDS: interval name, library, member. */
struct CUSTOMINTERVAL {
  u_sname interval;
  u_sname lib;
  u_sname member;
};

/* A series of time IDs to be placed in a custom interval's table. */
struct ZTS_OBSSTART {
  double startDate;
  struct INTERVALX interval;
  double fmt;
};
struct ZTS_OBSDATEVAR {
  double* dateList;
};
struct ZTS_OBSDATES {
  struct ZTS_OBSSTART start;
  struct ZTS_OBSDATEVAR dateVar;
  QORNOBS nobs;
  QKPoolh pool;
};

/* A finite mixture of normal distributions (zmxnorm). */
struct NORMAL_MIX_ARG {
  int State;
  int Purpose; /* 2: quantile of Probability, 4: of targetSDF, 0: values at Quantile */
  int Shooting;
  double InitialGuess;
  double Quantile;
  double QTarget;
  double Probability;
  double targetSDF;
  double LogRatio;
  long n; /* number of components */
  double Right, Left, LeftSupport, RightSupport;
  double* Proportions;
  double* Mu;
  double* Sigma;
  double LogLeftPr;
  double LogRightPr;
  double LogDensity;
};

/* How a fit ended (esf_fit_ended). */
typedef struct FITEND {
  int how;
  int rc; /* the driver's result: 0, 90 or negative */
  int iterations;
  double r;
  int nparms;
  int position[3];
} FITEND;

/* Records of the host interface and of the methods, reached by pointer. */
typedef struct SLIST SLIST;
typedef SLIST* List;
typedef struct PSCPLIST PSCPLIST;
typedef struct FMCOM FMCOM;
typedef struct GCB GCB;
typedef struct VIMODCON VIMODCON;
typedef struct WIPGMCON WIPGMCON;
typedef struct VI_PIDB VI_PIDB;
typedef struct QKHANDLE QKHANDLE;
typedef struct XO_PARMS XO_PARMS;
typedef struct REB* rebid;
typedef struct CINTC_INFO CINTCInfo;
typedef struct CINTCParms CINTCParms;
typedef struct _ZQKECINTC ZQKECINTC;
struct CUSTOMINTERVALDSINFO;
struct WINMODEL;
struct DATASET;
struct TSERIES;
struct TIMERANGE;
struct WGTBNDS;
struct SMOOTHVALS;

#ifdef __cplusplus
}  // namespace esf::c_header

// The C records have the module's layout, field by field.
namespace esf::c_header::check {
// ESF_C_SAME_RECORD(rec, field...): the offset and size of every field named,
// and the record's size and alignment.
#define ESF_C_SAME_SIZE(rec)                                                                                  \
  static_assert(sizeof(esf::c_header::rec) == sizeof(::rec) && alignof(esf::c_header::rec) == alignof(::rec), \
                #rec " differs in size")
#define ESF_C_SAME_FIELD(rec, field)                                             \
  static_assert(offsetof(esf::c_header::rec, field) == offsetof(::rec, field) && \
                    sizeof(esf::c_header::rec::field) == sizeof(::rec::field),   \
                #rec "." #field " differs");
#define ESF_C_PARENS ()
#define ESF_C_EXPAND(...) ESF_C_EXPAND3(ESF_C_EXPAND3(ESF_C_EXPAND3(__VA_ARGS__)))
#define ESF_C_EXPAND3(...) ESF_C_EXPAND2(ESF_C_EXPAND2(ESF_C_EXPAND2(__VA_ARGS__)))
#define ESF_C_EXPAND2(...) ESF_C_EXPAND1(ESF_C_EXPAND1(ESF_C_EXPAND1(__VA_ARGS__)))
#define ESF_C_EXPAND1(...) __VA_ARGS__
#define ESF_C_FIELDS(rec, field, ...) \
  ESF_C_SAME_FIELD(rec, field) __VA_OPT__(ESF_C_FIELDS_AGAIN ESF_C_PARENS(rec, __VA_ARGS__))
#define ESF_C_FIELDS_AGAIN() ESF_C_FIELDS
#define ESF_C_SAME_RECORD(rec, ...) __VA_OPT__(ESF_C_EXPAND(ESF_C_FIELDS(rec, __VA_ARGS__))) ESF_C_SAME_SIZE(rec)
#define ESF_C_SAME_TYPE(name) static_assert(std::is_same_v<esf::c_header::name, ::name>, #name " differs")
ESF_C_SAME_TYPE(tchar);
ESF_C_SAME_TYPE(tuchar);
ESF_C_SAME_TYPE(wrcode);
ESF_C_SAME_TYPE(rctype);
ESF_C_SAME_TYPE(ptr);
ESF_C_SAME_TYPE(SLIndex);
ESF_C_SAME_TYPE(QORNOBS);
ESF_C_SAME_TYPE(QKChar);
ESF_C_SAME_TYPE(QKStrSize);
ESF_C_SAME_TYPE(QKMemSize);
ESF_C_SAME_TYPE(QKStatus);
ESF_C_SAME_TYPE(QKBoolean);
ESF_C_SAME_TYPE(QKMemPtr);
ESF_C_SAME_TYPE(QKConstMemPtr);
ESF_C_SAME_TYPE(rebslotid);
static_assert(std::is_same_v<::List, ::SLIST*> && std::is_same_v<::rebid, ::REB*> &&
              std::is_same_v<::CINTCInfo, ::CINTC_INFO> && std::is_same_v<::ZQKECINTC, ::_ZQKECINTC>);
ESF_C_SAME_RECORD(QKPool, memAlloc, memFree);
ESF_C_SAME_RECORD(SKMISSV_STRUCT, MissTable);
ESF_C_SAME_RECORD(u_sname, name);
ESF_C_SAME_RECORD(u_slabel, label);
ESF_C_SAME_RECORD(INTERVAL, units, intcode, intper, shiftper, nweekday, weekend, token, tokenlen, holidays);
// INTERVALX derives from INTERVAL, so it is not standard-layout; both
// compilers lay it out as the C record all the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(esf::c_header::INTERVALX, interval) == 0);
ESF_C_SAME_RECORD(INTERVALX, cinfo, ccache, formatw, formatl, format, nseasons, sinterval);
ESF_C_SAME_RECORD(ZTS_OBSSTART, startDate, interval, fmt);
ESF_C_SAME_RECORD(ZTS_OBSDATES, start, dateVar, nobs, pool);
#pragma GCC diagnostic pop
ESF_C_SAME_RECORD(ZTS_OBSDATEVAR);
ESF_C_SAME_RECORD(INTINFO, sinterval, nseasons, formatw, formatl, format);
ESF_C_SAME_RECORD(CUSTOMINTERVAL, interval, lib, member);
ESF_C_SAME_RECORD(NORMAL_MIX_ARG, State, Purpose, Shooting, InitialGuess, Quantile, QTarget, Probability, targetSDF,
                  LogRatio, n, Right, Left, LeftSupport, RightSupport, Proportions, Mu, Sigma, LogLeftPr, LogRightPr,
                  LogDensity);
ESF_C_SAME_RECORD(FITEND, how, rc, iterations, r, nparms, position);
#undef ESF_C_SAME_SIZE
#undef ESF_C_SAME_RECORD
#undef ESF_C_FIELDS
#undef ESF_C_FIELDS_AGAIN
#undef ESF_C_EXPAND
#undef ESF_C_EXPAND1
#undef ESF_C_EXPAND2
#undef ESF_C_EXPAND3
#undef ESF_C_PARENS
#undef ESF_C_SAME_FIELD
#undef ESF_C_SAME_TYPE
}  // namespace esf::c_header::check

extern "C" {
#endif

/* ---- Missing values, padded text, memory --------------------------------------------------- */

extern const SKMISSV_STRUCT skmissv_struct;
extern double* qkmissv_table;
int wzmis(double d);
double skMissVal(QKChar mVal);
QKBoolean skMissArray(const double* dp, QKMemSize len);
void vzmp(const tchar* from, int flen, tchar* to, int tlen);
int wzstmov(const tchar* from, int flen, tchar* to, int tlen);
int wzstcom(const tchar* s1, int l1, const tchar* s2, int l2);
int wzbcup(const char* string1, const char* string2, int n);
int wzstlen(const tchar* str);
int wzstrip(const tchar* str, int len);
int wzstpos(const tchar* str, int len, tuchar c);
int wzstndx(const tchar* str, int slen, const tchar* tok, int tlen);
int wzcichr(int num, tchar* str);
wrcode wztxxlt(int function, const tchar* source_string, tchar* dest_string, int len);
void vzfdl(double val, double* to, long len);
long qor_memchr(const tchar* str, int c, long len);
QKStatus skUnsup(void);
QKMemSize skStrLen(const char* s);
QKStrSize skStrTLen(const QKChar* s);
void skStrCpy(const int8_t* src, int8_t* dst);
void skStrTCpy(const QKChar* src, QKChar* dst);
void skStrUp(int8_t* src, QKMemSize len);
void skStrLow(int8_t* src, QKMemSize len);
QKBoolean skMemNot(int8_t c, const void* buff, QKMemSize len);
QKBoolean skMemTNot(QKChar c, const QKChar* buff, QKStrSize len);
void skMemSet(void* buff, int32_t c, QKMemSize len);
void skMemTSet(QKChar* buff, QKChar c, QKStrSize len);
int32_t skMemCmp(const void* src, const void* dst, QKMemSize len);
int32_t skWMemCmp(const QKChar* src, const QKChar* dst, QKMemSize len);
void skMemCpy(const void* src, void* dst, QKMemSize len);
void skMemSCpy(const void* src, void* dst, QKMemSize len);
QKMemPtr skMemDup(QKConstMemPtr src, QKMemSize len, QKPoolh pool);
QKMemSize skMemScan(const void* src, QKMemSize len, int8_t ch);
QKMemSize skMemNScan(const void* src, QKMemSize len, int8_t ch);
QKMemSize skMemTNScan(const QKChar* src, QKStrSize len, QKChar ch);

/* ---- Numerical routines -------------------------------------------------------------------- */

void calerf(double x, double* result, int jint);
double zferf(double x);
double zferfc(double x);
double zprbnrm(double x);
double zprobit(double p);
double szprobit(double p);
int zlognrm(double x, double* lpl, double* lpr, double* ldens);
double zprbigs(double x, double d);
double zln1px(double z);
double zlnSumOfExp(double x1, double x2);
int zmillsr(double x, double* ratio);
int zcnfmill(double x, double* ratio);
long zisub(int i, int j);
int zscp(const double* data, int nv, double weight, double* sscp);
void zvaxpy(double* z, const double* x, const double* y, int n, double alpha);
int zmissr(double x, double maxval, long* count);
int zmissrn(const double* x, int n, double maxval, long* count);
int min(int a, int b);
long lmin(long a, long b);
int zmxnorm(struct NORMAL_MIX_ARG* q);
int VerifyQ(struct NORMAL_MIX_ARG* q);
void SortAccordingToTheMeans(struct NORMAL_MIX_ARG* q);
int ComputeTheProbOrTheDens(struct NORMAL_MIX_ARG* q);
int ComputeTheQuantile(struct NORMAL_MIX_ARG* q);
int ComputeF(struct NORMAL_MIX_ARG* q, int i, double* x, double* r, double* Dens, double* LogLeftPr,
             double* LogRightPr);
int SolveApproxF(struct NORMAL_MIX_ARG* q, double* x, double* r, double* Dens, double* iGamma);
void ResetBracket(struct NORMAL_MIX_ARG* q, double* x, double* r, double* LogLeftPr, double* LogRightPr, double* Dens);
int SolveWithOutShooting(struct NORMAL_MIX_ARG* q, double* x, double* r, double* Dens, double* LogLeftPr,
                         double* LogRightPr);
double LogSumOfExpProb(double x1, double x2, int flag);
double DiffNormal(double a, double b, double PreciseDelta);

/* ---- Calendar intervals: parsing, printing, counting, advancing, seasons, formats ---------- */

int zintic(int intcode, struct INTERVAL* istr);
int zinticms(int intcode, int m, int s, struct INTERVAL* istr);
int zintstr(tchar* specin, int len, struct INTERVAL* istr);
int zinti2s(char* str, int* len, struct INTERVAL* istr);
int zintbase(char* name, int* l, struct INTERVAL* istr);
int zidywdd(double date, tchar* fmt, int fmtl, double* year, double* week, double* day);
int zidywdds(double date, int leap_index, double* year, double* week, double* day);
double ziddywd(int year, int week, int day);
double ziddywds(int year, int week, int day);
int zidmdydf(int* m, int* d, int* y, double qordate, int format);
int zdatdif(double sdate, double edate, int convent, long* pDays, double* pYears);
int iso_week_days(int yday, int wday);
long diff_30_360(int m1, int d1, int y1, int m2, int d2, int y2);
void diff_actact(int m1, int d1, int y1, int m2, int d2, int y2, long* pDays, double* pYears);
long diff_actual(int m1, int d1, int y1, int m2, int d2, int y2);
int isLeapYear(int year);
int lastDay(int year, int month);
long dateOffset(int mm, int dd, int yy);
double zintck2(struct INTERVAL* istr, double x1, double x2);
double zintnx2(struct INTERVAL* istr, double x, double n);
double zintnx3(struct INTERVAL* istr, double inptDate, double n, tchar* align, struct INTERVAL* sub_intrvl);
int zintshft(struct INTERVAL* istr, struct INTERVAL* sistr);
int zintsea(struct INTERVAL* interval, double date, struct INTERVAL* sinterval, int* nseasons);
int zintsea2(struct INTERVAL* interval, double date, struct INTERVAL* sinterval, int* nseasons);
double zintc(struct INTERVAL* a, struct INTERVAL* b);
int zintfit(double d1, double d2, char* units, struct INTERVAL* interval, struct INTINFO* info);
int fitInterval(struct INTERVAL* interval, struct INTERVAL* shift_interval, double d1, double d2);
int shift2(struct INTERVAL* interval, struct INTERVAL* shift_interval, double d1, double d2);
void zintfmt(struct INTERVAL* istr, char* fmtname, short* namelen, short* width1, short* width2);
void zintfmm(struct INTERVAL* istr, double idval, char* fmtname, short* namelen, short* width1, short* width2);
void zintfmp(struct INTERVAL* istr, double minval, double maxval, char* fmtname, short* namelen, short* width1,
             short* width2);
void zintfmd(struct INTERVAL* istr, char* fmtname, short* namelen, short* width1, short* width2);
double zintyrse(double date0, int* year, double* ds1);
double zintck3(struct INTERVALX* intervalx, double date0, double date1);
double zintnx_seas(struct INTERVALX* intervalx, double date0, double n, struct INTERVALX* align_int);
double zintck_seas(struct INTERVALX* intervalx, double date0, double daten, struct INTERVALX* align_int);
int zintscd(struct INTERVAL* intv, double stdate, int scode, long n, int* scodes, int* nseasons);
int zintscd2(struct INTERVALX* intv, double stdate, int scode, long n, int* scodes, int* nseasons);
void zintscy(struct INTERVAL* intv, int scode, double date, int nseasons, int noint, double* sdummy, double* partial);
int zintsea_set(struct INTERVALX* interval, double date, struct INTERVALX* sinterval, int* nseasons);
int zintsea_calc_nseasons(struct INTERVALX* interval, double date, struct INTERVALX* sinterval, int* nseasons);
int zintmult(struct INTERVALX* interval, int nseasons, struct INTERVALX* sinterval, int act_flag);
int zintrsimp(struct INTERVALX* interval);
int getcustomname(tchar* name, int len);
int zcustLoad(struct INTERVAL* interval, CINTCInfo** oinfo);
void zcintcReleaseRef(CINTCInfo* cinfo);
double customINTCK(struct INTERVALX* intervalx, double x1, double x2);
double customINTNX(struct INTERVALX* intervalx, double x, double n);
double customINTNXE(struct INTERVALX* intervalx, double x, double n);
double customINTINDEX(struct INTERVALX* intervalx, double x, double n);
double customINTSEAS(struct INTERVALX* intervalx, double x);
int customINTFMT(struct INTERVALX* intervalx, char* fmtname, short* namelen, short* width1, short* width2);
char zfmtunits(char* format, int fmtlen);

/* ---- Custom intervals: the tables named by the option INTERVALDS --------------------------- */

rctype zcintcInit(ZQKECINTC** omgr);
int parseIntervalDS(tchar* intervalDS, struct CUSTOMINTERVAL* custInt, tchar** ctx);
rctype loadDSOPTS(ZQKECINTC* mgr);
int loadCustom(QKMemPtr loadArg, CINTCParms* pb, CINTCInfo* cinfo);
rctype GetJnlStatus(ZQKECINTC* mgr);
void CleanMGR(rebid reb, rebslotid slotid);
void zcintcTerm(void);
rctype StorePtr(void* resPtr);
void* GetPtr(void);
void customINTNXBES(struct INTERVALX* intervalx, double x, double n, double* b, double* e, double* s);
int findIndexC(struct INTERVALX* intervalx, double x, double* n, double* b, double* e, double* s);
int getIndexC(struct INTERVALX* intervalx, double n, double* b, double* e, double* s);
int customGetObsC(struct INTERVALX* intervalx, double n, double* b, double* e, double* s,
                  struct CUSTOMINTERVALDSINFO* dsinfo);
double customFindRawIndexC(struct INTERVALX* intervalx, double date, double* index, double* b, double* e,
                           struct CUSTOMINTERVALDSINFO* dsinfo);
int customRange(struct INTERVALX* intervalx, int LR, double* left, double* right, struct CUSTOMINTERVALDSINFO* dsinfo);
int customRangeD(struct INTERVALX* intervalx, int LR, double* left, QORNOBS* lindex, QKChar* lpos, double* right,
                 QORNOBS* rindex, QKChar* rpos, struct CUSTOMINTERVALDSINFO* dsinfo);
int findIndex(struct INTERVAL* interval, double x, double* n, double* b, double* e, double* s,
              struct CUSTOMINTERVALDSINFO* dsinfo);
int getIndex(struct INTERVAL* interval, double n, double* b, double* e, double* s, struct CUSTOMINTERVALDSINFO* dsinfo);
int customGetObs(struct INTERVAL* interval, double n, double* b, double* e, double* s,
                 struct CUSTOMINTERVALDSINFO* dsinfo);
struct CUSTOMINTERVAL getCustomIntervalDSRef(struct INTERVAL* interval, int* multiplier, int* shift);
void parseIntervalOptions(struct CUSTOMINTERVAL* custInt, int* n);
char customTableUnits(ptr xvp);
int checkCustomRow(XO_PARMS* xo, ptr xvp, char units, double begin, const double* end, const double* season);
int openDS(struct CUSTOMINTERVAL* DSRef, double* beginBuffer, double* endBuffer, double* seasBuffer,
           struct XO_PARMS* xoparm, ptr* xvp, int* endVar, int* seasVar);
int unequal(double a, double b);
int zintctid(struct ZTS_OBSDATES* dateinfo, tchar* align, QORNOBS MaxFail, QORNOBS* CDSIndex, QORNOBS* TSIndex,
             int* Order, int* Infinity, int* InfinityByObs, QORNOBS* MaxLead, QORNOBS* MaxBack, double* first,
             double* last);
int zintctidL(struct ZTS_OBSDATES* dateinfo, tchar* align, long MaxFail, long* CDSIndex, long* TSIndex, int* Order,
              int* Infinity, int* InfinityByObs, long* MaxLead, long* MaxBack, double* first, double* last);
int zfmttype(char* format, int fmtlen);

/* ---- Seasonal regression ------------------------------------------------------------------- */

int ztsrdmy(double* y, char* misflg, long n, int ns, double* ccoef, double* tcoef, double* qcoef, double* sdcoef,
            double* res);
int ztsrsdm(double* y, char* misflg, long n, int ns, double* ccoef, double* tcoef, double* sdcoef, double* res);

/* ---- Simple exponential smoothing: the pass kernel ----------------------------------------- */

int zes1pnt(double x, double xscale, double wlevel, double* level, double* xhat, double* e);
int zes1dpd(double x, double wlevel, double llevel, double clevel, double* derlev, double* dervec);
int zes1smo(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* mse, double* smoothed,
            double* strptr);
int zes1svi(double* x, char* misflg, long n, int stflg, double* level);
int zes1prd(double* x, char* misflg, double xscale, long n, double wlevel, double* level, long start, long end,
            long lead, double se2, double siglev, int startflg, double* mse, double* strptr);
double zes1cla(double wlevel, double se2, long lead, double siglev, double* limit);
int zes1psi(double wlevel, long npsi, double* psi);
int zes1npd(double* x, char* misflg, double xscale, long n, double wlevel, double level, double deltas, int wkflag,
            double* pder);
int zes1std(double* xpxdiag, double mse, long nobs, double* parms, double* std_err, double* tvals);

/* ---- Double (Brown) exponential smoothing: the pass kernel --------------------------------- */

int zes2pnt(double x, double xscale, double wlevel, double wtrend, double* level, double* trend, double* xhat,
            double* e);
int zes2dpd(double x, double wlevel, double wtrend, double llevel, double clevel, double ltrend, double ctrend,
            double* derlev, double* dertre, double* dervec);
int zes2smo(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double* level, double* trend,
            double* mse, double* smoothed, double* strptr);
int zes2svi(double* x, char* misflg, long n, int stflg, double* level, double* trend);
int zes2prd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double* level, double* trend,
            long start, long end, long lead, double se2, double siglev, int startflg, double* mse, double* strptr);
double zes2cla(double wlevel, double wtrend, double se2, long lead, double siglev, double* limit);
int zes2psi(double wlevel, double wtrend, long npsi, double* psi);
int zes2npd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double level, double trend,
            double* deltas, int wkflag, double* pder);
int zes2std(double* xpxdiag, double mse, long nobs, double* parms, double* std_err, double* tvals);
int zes2stb(double wlevel, double wtrend);

/* ---- Linear (Holt) exponential smoothing: the pass kernel ---------------------------------- */

int zesdpnt(double x, double xscale, double wlevel, double* level, double* trend, double* xhat, double* e);
int zesddpd(double x, double wlevel, double llevel, double clevel, double ltrend, double ctrend, double* derlev,
            double* dertre, double* dervec);
int zesdsmo(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* trend, double* mse,
            double* smoothed, double* strptr);
int zesdsvi(double* x, char* misflg, long n, int stflg, double* level, double* trend);
int zesdprd(double* x, char* misflg, double xscale, long n, double wlevel, double* level, double* trend, long start,
            long end, long lead, double se2, double siglev, int startflg, double* mse, double* strptr);
double zesdcla(double wlevel, double se2, long lead, double siglev, double* limit);
int zesdpsi(double wlevel, long npsi, double* psi);
int zesdnpd(double* x, char* misflg, double xscale, long n, double wlevel, double level, double trend, double deltas,
            int wkflag, double* pder);
int zesdstd(double* xpxdiag, double mse, long nobs, double* parms, double* std_err, double* tvals);

/* ---- Damped-trend exponential smoothing: the pass kernel ----------------------------------- */

int zes3pnt(double x, double xscale, double wlevel, double wtrend, double wdamp, double* level, double* trend,
            double* xhat, double* e);
int zes3dpd(double x, double wlevel, double wtrend, double wdamp, double llevel, double clevel, double ltrend,
            double ctrend, double* derlev, double* dertre, double* dervec);
int zes3smo(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp, double* level,
            double* trend, double* mse, double* smoothed, double* strptr);
int zes3svi(double* x, char* misflg, long n, int stflg, double* level, double* trend);
int zes3stb(double wlevel, double wtrend, double wdamp);
int zes3prd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp, double* level,
            double* trend, long start, long end, long lead, double se2, double siglev, int startflg, double* mse,
            double* strptr);
int zes3psi(double wlevel, double wtrend, double wdamp, long npsi, double* psi);
int zes3npd(double* x, char* misflg, double xscale, long n, double wlevel, double wtrend, double wdamp, double level,
            double trend, double* deltas, int wkflag, double* pder);
int zes3std(double* xpxdiag, double mse, long nobs, double* parms, double* std_err, double* tvals);

/* ---- Seasonal exponential smoothing: the pass kernel --------------------------------------- */

int zesspnt(double x, double xscale, double wlevel, double wseason, double* level, double* sfactor, int scode,
            double* xhat, double* e);
int zessdpd(double x, double wlevel, double wseason, double llevel, double clevel, double lseason, double cseason,
            double* derlev, double* dersea, double* dervec);
int zesssmo(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason, double* level,
            double* sfactor, int* scodes, double* mse, double* smoothed, double* strptr);
int zesssvi(double* x, char* misflg, long n, int nseasons, int nstart, int stflg, double* level, double* sfactor);
int zessnmd(int nseasons, double* level, double* sfactor, double* derlev, double* dersealev, double* derseasea);
int zessnrm(int nseasons, double* level, double* sfactor);
int zessstb(int nseasons, double wlevel, double wseason);
int zessprd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason, double* level,
            double* sfactor, int* scodes, long start, long end, long lead, double se2, double siglev, int startflg,
            double* mse, double* strptr);
int zesspsi(double wlevel, double wseason, int nseasons, long npsi, double* psi);
int zessnpd(double* x, char* misflg, double xscale, long n, int nseasons, double wlevel, double wseason, double level,
            double* sfactor, int* scodes, double* deltas, int wkflag, double* pder);
int zessstd(double* xpxdiag, double mse, long nobs, double* parms, double* std_err, double* tvals);

/* ---- Winters smoothing: the pass kernel ---------------------------------------------------- */

int zwinpnt(double x, double xscale, int additive, double wlevel, double wtrend, double wseason, double* level,
            double* trend, double* sfactor, int scode, double* xhat, double* e);
int zwindpd(double x, double wlevel, double wtrend, double wseason, double llevel, double clevel, double ltrend,
            double ctrend, double lseason, double cseason, int additive, double* derlev, double* dertre, double* dersea,
            double* dervec);
int zwinsmo(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel, double wtrend,
            double wseason, double* level, double* trend, double* sfactor, int* scodes, double* mse, double* smoothed,
            double* strptr);
int zwinsvi(double* x, char* misflg, long n, int nseasons, int nstart, int additive, int stflg, double* level,
            double* trend, double* sfactor);
int zwinnmd(int nseasons, int additive, double* level, double* trend, double* sfactor, double* derlev, double* dertre,
            double* dersealev, double* derseatre, double* derseasea);
int zwinnrm(int nseasons, int additive, double* level, double* trend, double* sfactor);
int zwinstb(int nseasons, int additive, double wlevel, double wtrend, double wseason);
int zwinprd(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel, double wtrend,
            double wseason, double* level, double* trend, double* sfactor, int* scodes, long start, long end, long lead,
            double se2, double siglev, int startflg, double* mse, double* strptr);
int zwinpsi(double wlevel, double wtrend, double wseason, int nseasons, long npsi, double* psi);
int zwinnpd(double* x, char* misflg, double xscale, long n, int nseasons, int additive, double wlevel, double wtrend,
            double wseason, double level, double trend, double* sfactor, int* scodes, double* deltas, int wkflag,
            double* pder);
int zwinstd(double* xpxdiag, double mse, long nobs, double* parms, double* std_err, double* tvals);

/* ---- Fit and forecast drivers of each family, and their output tables ---------------------- */

int nes1fit(struct WINMODEL* model);
int nes1for(struct WINMODEL* model, int startflg);
int es1out(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl);
int nes2fit(struct WINMODEL* model);
int nes2for(struct WINMODEL* model, int startflg);
int es2out(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl);
int nesdfit(struct WINMODEL* model);
int nesdfor(struct WINMODEL* model, int startflg);
int esdout(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl);
int nes3fit(struct WINMODEL* model);
int nes3for(struct WINMODEL* model, int startflg);
int es3out(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl);
int nessfit(struct WINMODEL* model);
void nessfitfree(double* dwlevel, double* dwseason);
int nessfor(struct WINMODEL* model, int startflg);
int nwinfit(struct WINMODEL* model);
void nwinfitfree(double* dwlevel, double* dwtrend, double* dwseason);
int nwinfor(struct WINMODEL* model, int startflg);
int winout(struct DATASET* out, struct INTERVAL* intv, u_sname* varname, u_slabel* label, u_sname* timeid,
           double stdate, char* align, long nobs, double cl);

/* ---- Method arguments: reading and writing the host's lists -------------------------------- */

long getseries(List tsList, struct TIMERANGE* datarange, struct TSERIES* ts);
int gettimes(List dataRangeList, List fitRangeList, List evalRangeList, long nobs, struct INTERVAL* interval,
             struct TIMERANGE* datarange, struct TIMERANGE* fitrange, struct TIMERANGE* evalrange);
void getwgtbnd(List wgtbndList, struct WGTBNDS* wbnds);
int getstartvals(List modSpecList, struct FMCOM* fmcomp, int type, int sviflg, struct WINMODEL* model);
int getweights(struct FMCOM* fmcomp, List modSpecList, List modelList, double* wlevel, double* wtrend, double* wdamp,
               double* wseason);
int setsmoothstate(struct FMCOM* fmcomp, struct SMOOTHVALS* smooth, int nseasons, int trend, List pestList);
int putstvlab(struct INTERVAL* intv, int nseasons, List stvnmList);
void mfree(double* x, char* misflg, int* scodes, double* sfactor, double* parms, long* df);
int getreturn(struct PSCPLIST* plist, int rc, int rtype);
long zgetnum(List inList, long nList, double* array);
int zslsetd(List outList, SLIndex nstart, double* array, long narray);
int zslseti(List outList, SLIndex nstart, long* array, long narray);
int zslgeti(List iList, SLIndex nstart, long* array, long narray);
SLIndex slcmplc(struct FMCOM* fmcomp, List a, List b, List* anotb);
int zslsrch(struct FMCOM* fmcomp, List names, List target);
int zqvlint(List intvList, struct INTERVAL* intv, struct INTINFO* info);
int zintqvl(struct INTERVAL* intv, struct INTINFO* info, List intvList);
int esf_fit_ended(int slot, PSCPLIST* plist, List self, FITEND* end);

/* ---- The image: records the host reads, the start routine, the entry, the methods ---------- */

extern VIMODCON vi_mcn;
extern WIPGMCON pcn_QORFMSM;
extern WIPGMCON* mcn_pcns[2];
extern GCB** v_global_gcb_anchor;
extern VI_PIDB* v_global_pidb_anchor;
extern QKHANDLE* Exported_QKHandle;
VIMODCON* mcn_main(ptr* gcbanchor, ptr pidb);
void himodcn(void);
int qorfmsm(int argc, char** argv);
void qkvercn1(QKS_Version_Info* verinfo);
int mwinfit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mwinfor(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mes1fit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mes1for(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mes2fit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mes2for(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mesdfit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mesdfor(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mes3fit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int mes3for(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int messfit(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);
int messfor(PSCPLIST* plist, List self, unsigned char* methodName, int methodLength);

#ifdef __cplusplus
}  // extern "C"
#endif
