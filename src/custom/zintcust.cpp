// Arithmetic of custom intervals: the rows of a table of dates are the
// periods. Row r runs from BEGIN[r] to END[r], or, without END, to the day
// (or second) before the next row's BEGIN; the last row is then open. An
// interval written with a multiplier m groups m rows, and a shift s leaves
// the first s rows in group 0. Beyond the ends of the table the answers are
// special missing values: .M (minus infinity) begins the period before the
// table, .I (plus infinity) ends the period after it.
//
// The table comes from the cache (INTERVALX::cinfo, loaded on first use);
// an interval without a cache entry reads its table directly, row by row,
// into memory of the current pool for the length of one call.
#include <cmath>
#include <cstring>

#include "custom/custom.h"
#include "module/export.h"

namespace {

// ---- Missing values ------------------------------------------------------------------

bool missing(double v) { return esf::is_missing(v); }
double kind(char letter) { return esf::missing_letter(letter); }
bool is_kind(double v, char letter) { return missing(v) && esf::missing_kind(v) == esf::missing_kind(kind(letter)); }
const double kDot = esf::kMissing;

// A date less or more one; a missing date stays as it is.
double less_one(double v) { return missing(v) ? v : v - 1.0; }
double plus_one(double v) { return missing(v) ? v : v + 1.0; }

void clear3(double* b, double* e, double* s) {
  if (b != nullptr) *b = kDot;
  if (e != nullptr) *e = kDot;
  if (s != nullptr) *s = kDot;
}

// ---- The table -----------------------------------------------------------------------

// Rows 1..n of a table; end and season are null when absent.
struct Table {
  long n = 0;
  const double* begin = nullptr;
  const double* end = nullptr;
  const double* season = nullptr;

  double B(long r) const { return begin[r - 1]; }
  double E(long r) const { return end[r - 1]; }
  double S(long r) const { return season[r - 1]; }
  bool has_end() const { return end != nullptr; }
  bool has_season() const { return season != nullptr; }
};

// Multiplier and shift of an interval: m is intper (1 below 1).
struct Groups {
  long m = 1;
  long shift = 0;
};

Groups groups_of(const INTERVAL* iv) {
  Groups g;
  g.m = iv->intper < 1 ? 1 : iv->intper;
  g.shift = iv->shiftper;
  return g;
}

// The end of row r as customGetObsC gives it.
double row_end(const Table& t, long r) {
  if (t.has_end()) return t.E(r);
  if (r == t.n) return kind('I');
  return less_one(t.B(r + 1));
}

int get_obs(const Table& t, double n, double* b, double* e, double* s) {
  clear3(b, e, s);
  long r = 0;
  if (missing(n)) {
    if (!is_kind(n, 'L')) return -1;
    r = t.n;
  } else {
    if (std::fabs(n) > 2147483647.0) return -1;
    r = static_cast<long>(n);
  }
  if (r < 1 || r > t.n) return -1;
  *b = t.B(r);
  if (t.has_season()) *s = t.S(r);
  *e = row_end(t, r);
  return 0;
}

int get_index(const Table& t, Groups g, double n, double* b, double* e, double* s) {
  clear3(b, e, s);
  if (missing(n) && !is_kind(n, 'L')) return -1;
  if (g.m <= g.shift) return -1;
  const long N = t.n;
  if (N < 1) return -1;
  double index_d = 0;
  if (missing(n)) {
    index_d =
        g.m == 1 ? static_cast<double>(N) : std::ceil(static_cast<double>(N - g.shift) / static_cast<double>(g.m));
  } else {
    index_d = std::trunc(n);
  }
  if (std::fabs(index_d) > 1e15 / static_cast<double>(g.m)) return -1;
  const long index = static_cast<long>(index_d);
  const long b0obs = g.shift + 1 + (index - 1) * g.m;
  const long e0obs = index * g.m + g.shift;

  if (index < 0 || g.shift > N) return -1;
  if (index == 0) {
    *b = kind('M');
    if (g.shift == 0) {
      *e = less_one(t.B(1));
    } else if (!t.has_end()) {
      *e = g.shift == N ? kind('I') : less_one(t.B(g.shift + 1));
    } else {
      *e = t.E(g.shift);
    }
    return 0;
  }

  const long infobs = t.has_end() ? N + 1 : N;
  const long bfobs = infobs - ((infobs - g.shift - 1) % g.m);
  if (b0obs >= bfobs) {
    if (b0obs > bfobs + g.m - 1) return -1;
    *e = kind('I');
    if (b0obs <= N) {
      *b = t.B(b0obs);
    } else {
      *b = t.has_end() ? plus_one(t.E(N)) : t.B(N);
    }
    if (g.m == 1 && t.has_season() && b0obs == N) *s = t.S(N);
    return 0;
  }
  if (b0obs < 1 || e0obs > N) return -1;
  *b = t.B(b0obs);
  *e = t.has_end() ? t.E(e0obs) : less_one(t.B(e0obs + 1));
  if (g.m == 1 && t.has_season()) *s = t.S(b0obs);
  return 0;
}

int find_index(const Table& t, Groups g, double x, double* n, double* b, double* e, double* s) {
  *n = kDot;
  clear3(b, e, s);
  if (missing(x)) {
    if (is_kind(x, 'F')) {
      const int rc = get_index(t, g, 1.0, b, e, s);
      if (rc == 0) *n = 1.0;
      return rc;
    }
    if (is_kind(x, 'M')) {
      const int rc = get_index(t, g, 0.0, b, e, s);
      if (rc == 0) *n = 0.0;
      return rc;
    }
    if (!is_kind(x, 'L')) return -1;
    if (get_obs(t, x, b, e, s) != 0) return -1;
    x = *b;
    if (missing(x)) return -1;
  }
  if (g.m <= g.shift) return -1;

  const long N = t.n;
  const long last_row = t.has_end() ? N : N - 1;
  double first = kDot;
  long firstnm = 0;
  double last = kDot;
  long lastnm = 0;
  double end = kDot;
  long row = -1;
  double rb = kDot;
  double re = kDot;
  for (long r = 1; r <= last_row; ++r) {
    const double begin = t.B(r);
    if (t.has_end()) {
      end = t.E(r);
    } else if (!missing(t.B(r + 1))) {
      end = t.B(r + 1) - 1.0;
    }  // else the previous end stays in force
    if (!missing(begin) && missing(first)) {
      first = begin;
      firstnm = r;
    }
    if (!missing(end)) {
      last = end;
      lastnm = r;
    }
    if (!missing(begin) && !missing(end) && begin <= x && x <= end) {
      row = r;
      rb = begin;
      re = end;
      break;
    }
  }

  double rs = kDot;
  if (row >= 0) {
    if (t.has_season()) rs = t.S(row);
  } else if (!missing(last) && x > last) {
    row = lastnm + 1;
    rb = last + 1.0;
    re = kind('I');
    if (t.has_season() && !t.has_end() && row <= N) rs = t.S(row);
  } else {
    if (missing(first) || !(first > x)) return -1;
    row = firstnm - 1;
    rb = kind('M');
    re = first - 1.0;
    if (t.has_season() && row >= 1) rs = t.S(row);
  }

  if (g.m == 1) {
    *n = static_cast<double>(row);
    *b = rb;
    *e = re;
    *s = rs;
    return 0;
  }
  *n = std::ceil(static_cast<double>(row - g.shift) / static_cast<double>(g.m));
  return get_index(t, g, *n, b, e, s);
}

// The row nearest one end of the table that has a BEGIN or an END, and the
// date it gives: the left end prefers BEGIN, the right end END.
bool table_end(const Table& t, bool from_right, double* date, QORNOBS* index, QKChar* pos) {
  for (long k = 0; k < t.n; ++k) {
    const long r = from_right ? t.n - k : k + 1;
    const double preferred = from_right ? row_end(t, r) : t.B(r);
    const double other = from_right ? t.B(r) : row_end(t, r);
    if (missing(preferred) && missing(other)) continue;
    const bool use_preferred = !missing(preferred);
    if (date != nullptr) *date = use_preferred ? preferred : other;
    if (index != nullptr) *index = r;
    if (pos != nullptr) *pos = use_preferred == from_right ? 'E' : 'B';
    return true;
  }
  return false;
}

// The answer for an end of a table not found: a missing date, row -1 and
// no variable.
void no_end(double* date, QORNOBS* index, QKChar* pos) {
  if (date != nullptr) *date = kDot;
  if (index != nullptr) *index = -1;
  if (pos != nullptr) *pos = ' ';
}

// First and last date of the table, with the row and variable ('B' or 'E')
// that gave each; LR below 0 asks for the left end only, above 0 the right.
int range(const Table& t, int LR, double* left, QORNOBS* lindex, QKChar* lpos, double* right, QORNOBS* rindex,
          QKChar* rpos) {
  no_end(left, lindex, lpos);
  no_end(right, rindex, rpos);
  bool ok = true;
  if (LR < 1) ok = table_end(t, false, left, lindex, lpos) && ok;
  if (LR > -1) ok = table_end(t, true, right, rindex, rpos) && ok;
  return ok ? 0 : -1;
}

double find_raw_index(const Table& t, double date, double* index, double* b, double* e) {
  double bb = kDot;
  double ee = kDot;
  *index = kDot;
  if (t.n < 1) return kDot;
  double left = kDot;
  double right = kDot;
  QORNOBS r1 = -1;
  QORNOBS r2 = -1;
  QKChar lpos = ' ';
  QKChar rpos = ' ';
  if (range(t, 0, &left, &r1, &lpos, &right, &r2, &rpos) != 0) return kDot;

  double result = kDot;
  bool decided = true;
  const bool minus_inf = is_kind(date, 'M');
  const bool plus_inf = is_kind(date, 'I');
  const bool value = !missing(date);
  if (lpos == 'B' && (minus_inf || (value && date < left))) {
    *index = static_cast<double>(r1 - 1);
    bb = kind('M');
    ee = left - 1.0;
    result = kind('B');
  } else if (lpos == 'E' && (minus_inf || (value && date <= left))) {
    *index = static_cast<double>(r1);
    bb = kind('M');
    ee = left;
    result = static_cast<double>(r1);
  } else if (lpos == 'B' && t.has_end() && value && date == left) {
    *index = static_cast<double>(r1);
    bb = t.B(r1);
    ee = t.E(r1);
    result = static_cast<double>(r1);
  } else if (rpos == 'E' && (plus_inf || (value && date > right))) {
    *index = static_cast<double>(r2 + 1);
    bb = right + 1.0;
    ee = kind('I');
    result = kind('A');
  } else if (rpos == 'B' && (plus_inf || (value && date >= right))) {
    *index = static_cast<double>(r2);
    bb = right;
    ee = kind('I');
    result = static_cast<double>(r2);
  } else if (rpos == 'E' && t.has_end() && value && date == right) {
    *index = static_cast<double>(r2);
    bb = t.B(r2);
    ee = t.E(r2);
    result = static_cast<double>(r2);
  } else {
    decided = false;
  }
  if (!decided && value) {
    if (t.has_end()) {
      double prev = kDot;
      for (long r = r1; r <= r2; ++r) {
        const double begin = t.B(r);
        if (missing(begin)) {
          prev = t.E(r);
          continue;
        }
        if (!missing(prev) && date > prev && date < begin) {
          *index = static_cast<double>(r - 1);
          bb = prev + 1.0;
          ee = begin - 1.0;
          result = kind('H');
          break;
        }
        prev = t.E(r);
        if (!missing(prev) && begin <= date && date <= prev) {
          *index = static_cast<double>(r);
          bb = begin;
          ee = prev;
          result = static_cast<double>(r);
          break;
        }
      }
    } else {
      double end = kDot;
      for (long r = r1; r < r2; ++r) {
        const double begin = t.B(r);
        if (!missing(t.B(r + 1))) end = t.B(r + 1) - 1.0;
        if (!missing(begin) && !missing(end) && begin <= date && date <= end) {
          *index = static_cast<double>(r);
          bb = begin;
          ee = end;
          result = static_cast<double>(r);
          break;
        }
      }
    }
  }
  if (b != nullptr) *b = bb;
  if (e != nullptr) *e = ee;
  return result;
}

// ---- Reaching the table ------------------------------------------------------------------

// The table of the cache entry, after loading it when the record has none.
bool cached_table(INTERVALX* ix, Table* t) {
  if (ix->cinfo == nullptr) {
    const int status = zcustLoad(ix, &ix->cinfo);
    if (status < 0) {
      xprrlog(0, status);
      ix->cinfo = nullptr;
    }
  }
  const CINTCInfo* info = ix->cinfo;
  if (info == nullptr) return false;
  t->n = info->nused;
  t->begin = info->beginBuffer;
  t->end = info->endBuffer;
  t->season = info->seasBuffer;
  return true;
}

// A table read directly: its rows in pool memory for the life of the record.
class DirectTable {
 public:
  DirectTable() = default;
  DirectTable(const DirectTable&) = delete;
  DirectTable& operator=(const DirectTable&) = delete;
  ~DirectTable() { host_free(rows_); }

  // Reads the table the caller holds open in dsinfo, or else the table the
  // option maps the interval to. False when it can't be had.
  bool read(INTERVAL* iv, CUSTOMINTERVALDSINFO* dsinfo) {
    if (dsinfo != nullptr && dsinfo->xoparm != nullptr && dsinfo->xoparm->fileid != nullptr &&
        dsinfo->beginBuffer != nullptr) {
      return read_open(dsinfo->xoparm, dsinfo->xvp, dsinfo->beginBuffer,
                       dsinfo->endVar != 0 ? dsinfo->endBuffer : nullptr,
                       dsinfo->seasVar != 0 ? dsinfo->seasBuffer : nullptr);
    }
    CUSTOMINTERVAL ref;
    if (dsinfo != nullptr && dsinfo->DSRef != nullptr) {
      ref = *dsinfo->DSRef;
    } else {
      if (iv == nullptr) return false;
      int multiplier = 0;
      int shift = 0;
      ref = getCustomIntervalDSRef(iv, &multiplier, &shift);
    }
    double begin = kDot;
    double end = kDot;
    double season = kDot;
    XO_PARMS xo;
    ptr xvp = nullptr;
    int endVar = 0;
    int seasVar = 0;
    if (openDS(&ref, &begin, &end, &season, &xo, &xvp, &endVar, &seasVar) != 0) return false;
    const bool ok = read_open(&xo, xvp, &begin, endVar != 0 ? &end : nullptr, seasVar != 0 ? &season : nullptr);
    xvgett(xvp);
    xoclose(xo.fileid, 0);
    return ok;
  }

  const Table& table() const { return table_; }

 private:
  bool read_open(XO_PARMS* xo, ptr xvp, double* begin, double* end, double* season) {
    long nobs = 0;
    xoinfo(xo->fileid, 3, &nobs);
    if (nobs < 1) xoinfo(xo->fileid, 2, &nobs);
    if (nobs < 1) return false;
    host_free(rows_);
    rows_ = static_cast<double*>(host_alloc(static_cast<long>(3 * nobs * sizeof(double)), VM_NUMBERS));
    if (rows_ == nullptr) return false;
    double* b = rows_;
    double* e = rows_ + nobs;
    double* s = rows_ + 2 * nobs;
    xo->opcode = XO_PNTOBS;
    xo->obsnum = 1;
    if (xopnt(xo) != 0) return false;
    const char units = customTableUnits(xvp);
    long i = 0;
    while (i < nobs) {
      xo->opcode = XO_READNEXT;
      xo->flags |= XO_READFLAG;
      const int rc = xo->fileid->vector->read(xo);
      if (rc != 0) {
        if (rc < 0) return false;
        break;
      }
      *begin = kDot;
      if (end != nullptr) *end = kDot;
      if (season != nullptr) *season = kDot;
      if (xyvget(xvp, 0) != 0) break;
      if (const int bad = checkCustomRow(xo, xvp, units, *begin, end, season); bad != 0) {
        xprrlog(0, bad);
        return false;
      }
      b[i] = *begin;
      e[i] = end != nullptr ? *end : kDot;
      s[i] = season != nullptr ? *season : kDot;
      ++i;
    }
    table_.n = i;
    table_.begin = b;
    table_.end = end != nullptr ? e : nullptr;
    table_.season = season != nullptr ? s : nullptr;
    return true;
  }

  double* rows_ = nullptr;
  Table table_;
};

// The table of an interval: the cache's, or one read directly.
struct TableOf {
  DirectTable direct;
  Table table;
  bool ok = false;
  bool cached = false;

  TableOf(INTERVALX* ix, CUSTOMINTERVALDSINFO* dsinfo) {
    if (ix == nullptr) return;
    if (cached_table(ix, &table)) {
      ok = cached = true;
      return;
    }
    ok = direct.read(ix, dsinfo);
    if (ok) table = direct.table();
  }
  TableOf(INTERVAL* iv, CUSTOMINTERVALDSINFO* dsinfo) {
    ok = direct.read(iv, dsinfo);
    if (ok) table = direct.table();
  }
};

// The questions asked of the table of an interval: through the task's
// cache for an INTERVALX that holds a reference, read directly otherwise
// (the routines ending in C take an INTERVALX, the others an INTERVAL).
template <class Interval>
int find_index_in(Interval* iv, CUSTOMINTERVALDSINFO* dsinfo, double x, double* n, double* b, double* e, double* s) {
  *n = kDot;
  clear3(b, e, s);
  if (iv == nullptr) return -1;
  TableOf t(iv, dsinfo);
  if (!t.ok) return -1;
  return find_index(t.table, groups_of(iv), x, n, b, e, s);
}

template <class Interval>
int get_index_in(Interval* iv, CUSTOMINTERVALDSINFO* dsinfo, double n, double* b, double* e, double* s) {
  clear3(b, e, s);
  if (iv == nullptr) return -1;
  TableOf t(iv, dsinfo);
  if (!t.ok) return -1;
  return get_index(t.table, groups_of(iv), n, b, e, s);
}

template <class Interval>
int get_obs_in(Interval* iv, CUSTOMINTERVALDSINFO* dsinfo, double n, double* b, double* e, double* s) {
  clear3(b, e, s);
  TableOf t(iv, dsinfo);  // a row needs no interval when dsinfo holds its table open
  if (!t.ok) return -1;
  return get_obs(t.table, n, b, e, s);
}

// A value inside a day (a second, in a table of datetimes) lies in the
// period of that day: rows begin and end on whole units, so the value is
// first taken down to its unit, as the calendar routines do before they
// advance (floor(x + 1e-12)) or count (floor). Missing values stay.
double advancing_day(double x) { return missing(x) ? x : std::floor(x + 1e-12); }
double counting_day(double x) { return missing(x) ? x : std::floor(x); }

void nxbes(const Table& t, Groups g, double x, double n, double* b, double* e, double* s) {
  clear3(b, e, s);
  double index = kDot;
  double obs = kDot;
  x = advancing_day(x);
  if (!missing(x) || is_kind(x, 'L')) {
    if (find_index(t, g, x, &index, b, e, s) != 0) {
      clear3(b, e, s);
      return;
    }
    if (missing(n) || n == 0.0) return;
    if (missing(index)) {
      clear3(b, e, s);
      return;
    }
    obs = index + n;
  } else if (is_kind(x, 'F')) {
    if (missing(n)) return;
    obs = n + 1.0;
  } else if (is_kind(x, 'M')) {
    if (missing(n)) return;
    obs = n;
  } else if (is_kind(x, 'I')) {
    if (get_obs(t, kind('L'), b, e, s) != 0) {
      clear3(b, e, s);
      return;
    }
    if (!is_kind(*e, 'I')) *b = plus_one(*e);
    find_index(t, g, *b, &index, b, e, s);
    if (missing(n) || n == 0.0) return;
    if (n > 0.0 || missing(index)) {
      clear3(b, e, s);
      return;
    }
    obs = index + n;
  } else {
    return;
  }
  if (get_index(t, g, obs, b, e, s) != 0) clear3(b, e, s);
}

}  // namespace

extern "C" {

int unequal(double a, double b) { return !missing(a) && (missing(b) || a != b) ? 1 : 0; }

void parseIntervalOptions(CUSTOMINTERVAL* custInt, int* n) {
  if (n == nullptr) return;
  const int room = *n;
  *n = 0;
  if (custInt == nullptr || room <= 0) return;
  int len = 0;
  tchar* text = xoptcgt("INTERVALDS", &len);
  if (text == nullptr || len <= 0) return;
  wzstrup(text, len);
  tchar* ctx = nullptr;
  while (*n < room && parseIntervalDS(text, &custInt[*n], &ctx) == 0) ++*n;
}

ESF_EXPORT CUSTOMINTERVAL getCustomIntervalDSRef(INTERVAL* interval, int* multiplier, int* shift) {
  if (multiplier != nullptr) *multiplier = -1;
  if (shift != nullptr) *shift = -1;
  CUSTOMINTERVAL none;
  std::memset(&none, 0, sizeof none);
  std::memset(none.interval.name, ' ', sizeof none.interval.name);
  std::memset(none.lib.name, ' ', sizeof none.lib.name);
  std::memset(none.member.name, ' ', sizeof none.member.name);
  if (interval == nullptr) return none;

  constexpr int kMaxMappings = 20;
  CUSTOMINTERVAL maps[kMaxMappings];
  int count = kMaxMappings;
  parseIntervalOptions(maps, &count);

  // The token in upper case (a copy: the caller's token keeps its case).
  tchar token[sizeof interval->token];
  int tlen = interval->tokenlen;
  if (tlen < 0) tlen = 0;
  if (tlen > static_cast<int>(sizeof token)) tlen = static_cast<int>(sizeof token);
  std::memcpy(token, interval->token, static_cast<size_t>(tlen));
  wzstrup(token, tlen);

  for (int i = 0; i < count; ++i) {
    if (wzstcom(maps[i].interval.name, maps[i].interval.name_l, token, tlen) == 0) {
      if (multiplier != nullptr) *multiplier = 1;
      if (shift != nullptr) *shift = 0;
      return maps[i];
    }
  }
  if (interval->intper > 0) {
    char digits[16];
    const int dlen = xpsstr(digits, static_cast<int>(sizeof digits), "%i", interval->intper);
    char multstr[40];
    const int mlen =
        xpsstr(multstr, static_cast<int>(sizeof multstr), "%i.%i", interval->intper, interval->shiftper + 1);
    for (int i = 0; i < count; ++i) {
      const int nl = maps[i].interval.name_l;
      if (nl <= 0 || nl > tlen || std::memcmp(maps[i].interval.name, token, static_cast<size_t>(nl)) != 0) continue;
      const tchar* rest = token + nl;
      const int rlen = tlen - nl;
      int m = -1;
      int s = -1;
      if (rlen == dlen && std::memcmp(rest, digits, static_cast<size_t>(dlen)) == 0) {
        m = interval->intper;
        s = 0;
      } else if (rlen == mlen && std::memcmp(rest, multstr, static_cast<size_t>(mlen)) == 0) {
        m = interval->intper;
        s = interval->shiftper;
      } else if (rlen == 2 && rest[0] == '.' && rest[1] == '1' && interval->intper == 1 && interval->shiftper == 0) {
        m = 1;
        s = 0;
      } else {
        continue;
      }
      if (multiplier != nullptr) *multiplier = m;
      if (shift != nullptr) *shift = s;
      return maps[i];
    }
  }
  return none;
}

char customTableUnits(ptr xvp) {
  int varnum = 0;
  NAMESTR* ns = nullptr;
  if (xvp == nullptr || xvfind(xvp, "BEGIN", 5, &varnum) != 0 || xvname(xvp, varnum, &ns) != 0 || ns == nullptr ||
      ns->nformlongl <= 0) {
    return kUnitsDate;
  }
  char format[32];
  std::memcpy(format, ns->nformlong, sizeof format);
  const char units = zfmtunits(format, ns->nformlongl < 32 ? ns->nformlongl : 32);
  return units != 0 ? units : kUnitsDate;
}

int checkCustomRow(XO_PARMS* xo, ptr xvp, char units, double begin, const double* end, const double* season) {
  // Dates and datetimes within the calendar; observation numbers within
  // what counting takes.
  double lo = -kMaxTimeValue;
  double hi = kMaxTimeValue;
  if (units == kUnitsDate) {
    lo = static_cast<double>(kMinDate);
    hi = static_cast<double>(kMaxDate);
  } else if (units == kUnitsDatetime) {
    lo = static_cast<double>(kMinDate) * 86400.0;
    hi = (static_cast<double>(kMaxDate) + 1.0) * 86400.0 - 1.0;
  }
  auto time_ok = [&](double v) { return missing(v) || (v >= lo && v <= hi); };  // false for NaN
  const char* bad = nullptr;
  int len = 0;
  rctype status = 0;
  if (!time_ok(begin)) {
    bad = "BEGIN", len = 5, status = kCintcBadDate;
  } else if (end != nullptr && !time_ok(*end)) {
    bad = "END", len = 3, status = kCintcBadDate;
  } else if (season != nullptr && !missing(*season) &&
             !(*season >= 1.0 && *season <= kCustomMaxSeason && *season == std::floor(*season))) {
    bad = "SEASON", len = 6, status = kCintcBadSeason;
  }
  if (bad == nullptr) return 0;
  int varnum = 0;
  if (xvfind(xvp, bad, len, &varnum) != 0) varnum = 0;
  return xofprc(xo, status, varnum);
}

int openDS(CUSTOMINTERVAL* DSRef, double* beginBuffer, double* endBuffer, double* seasBuffer, XO_PARMS* xoparm,
           ptr* xvp, int* endVar, int* seasVar) {
  if (endVar != nullptr) *endVar = 0;
  if (seasVar != nullptr) *seasVar = 0;
  if (xvp != nullptr) *xvp = nullptr;
  if (DSRef == nullptr || beginBuffer == nullptr || xoparm == nullptr || xvp == nullptr) return -1;
  if (DSRef->member.name_l <= 0) return -1;
  XOPNSTR opn = input_table_request();
  const int libl = DSRef->lib.name_l < 8 ? DSRef->lib.name_l : 8;
  if (libl > 0) std::memcpy(opn.name.lib.libref, DSRef->lib.name, static_cast<size_t>(libl));
  vzmp(DSRef->member.name, DSRef->member.name_l, opn.name.mem.name, 32);
  opn.name.mem.name_l = DSRef->member.name_l;
  XO_PARMS xo;
  std::memset(&xo, 0, sizeof xo);
  if (xoopen(&xo, &opn) < 0 || xo.fileid == nullptr) return -1;
  int varnum = 0;
  NAMESTR* ns = nullptr;
  bool ok = xvgeti(xo.fileid, 3, xvp) == 0 && xvfind(*xvp, "BEGIN", 5, &varnum) == 0 &&
            xvname(*xvp, varnum, &ns) == 0 && xvgetd(*xvp, varnum, 0, beginBuffer, 8, 8, 0, 0) == 0;
  if (ok) {
    if (endBuffer != nullptr && xvfind(*xvp, "END", 3, &varnum) == 0 && xvname(*xvp, varnum, &ns) == 0 &&
        xvgetd(*xvp, varnum, 0, endBuffer, 8, 8, 0, 0) == 0 && endVar != nullptr) {
      *endVar = 1;
    }
    if (seasBuffer != nullptr && xvfind(*xvp, "SEASON", 6, &varnum) == 0 && xvname(*xvp, varnum, &ns) == 0 &&
        xvgetd(*xvp, varnum, 0, seasBuffer, 8, 8, 0, 0) == 0 && seasVar != nullptr) {
      *seasVar = 1;
    }
    ok = xvsele(*xvp) == 0 && xvgete(*xvp) == 0;
  }
  if (!ok) {
    if (*xvp != nullptr) xvgett(*xvp);
    *xvp = nullptr;
    xoclose(xo.fileid, 0);
    return -1;
  }
  std::memset(xoparm, 0, sizeof *xoparm);
  xoparm->fileid = xo.fileid;
  return 0;
}

int findIndexC(INTERVALX* intervalx, double x, double* n, double* b, double* e, double* s) {
  return find_index_in(intervalx, nullptr, x, n, b, e, s);
}

int getIndexC(INTERVALX* intervalx, double n, double* b, double* e, double* s) {
  return get_index_in(intervalx, nullptr, n, b, e, s);
}

int customGetObsC(INTERVALX* intervalx, double n, double* b, double* e, double* s, CUSTOMINTERVALDSINFO* dsinfo) {
  return get_obs_in(intervalx, dsinfo, n, b, e, s);
}

int findIndex(INTERVAL* interval, double x, double* n, double* b, double* e, double* s, CUSTOMINTERVALDSINFO* dsinfo) {
  return find_index_in(interval, dsinfo, x, n, b, e, s);
}

int getIndex(INTERVAL* interval, double n, double* b, double* e, double* s, CUSTOMINTERVALDSINFO* dsinfo) {
  return get_index_in(interval, dsinfo, n, b, e, s);
}

int customGetObs(INTERVAL* interval, double n, double* b, double* e, double* s, CUSTOMINTERVALDSINFO* dsinfo) {
  return get_obs_in(interval, dsinfo, n, b, e, s);
}

int customRange(INTERVALX* intervalx, int LR, double* left, double* right, CUSTOMINTERVALDSINFO* dsinfo) {
  return customRangeD(intervalx, LR, left, nullptr, nullptr, right, nullptr, nullptr, dsinfo);
}

int customRangeD(INTERVALX* intervalx, int LR, double* left, QORNOBS* lindex, QKChar* lpos, double* right,
                 QORNOBS* rindex, QKChar* rpos, CUSTOMINTERVALDSINFO* dsinfo) {
  no_end(left, lindex, lpos);
  no_end(right, rindex, rpos);
  if (intervalx == nullptr) return -1;
  TableOf t(intervalx, dsinfo);
  if (!t.ok) return -1;
  return range(t.table, LR, left, lindex, lpos, right, rindex, rpos);
}

double customFindRawIndexC(INTERVALX* intervalx, double date, double* index, double* b, double* e,
                           CUSTOMINTERVALDSINFO* dsinfo) {
  if (index != nullptr) *index = kDot;
  if (b != nullptr) *b = kDot;
  if (e != nullptr) *e = kDot;
  if (intervalx == nullptr) return kDot;
  TableOf t(intervalx, dsinfo);
  if (!t.ok) return kDot;
  double idx = kDot;
  const double result = find_raw_index(t.table, date, &idx, b, e);
  if (index != nullptr) *index = idx;
  return result;
}

void customINTNXBES(INTERVALX* intervalx, double x, double n, double* b, double* e, double* s) {
  clear3(b, e, s);
  if (intervalx == nullptr) return;
  TableOf t(intervalx, nullptr);
  if (!t.ok) return;
  nxbes(t.table, groups_of(intervalx), x, n, b, e, s);
}

double customINTNX(INTERVALX* intervalx, double x, double n) {
  double b = kDot, e = kDot, s = kDot;
  customINTNXBES(intervalx, x, n, &b, &e, &s);
  return b;
}

double customINTNXE(INTERVALX* intervalx, double x, double n) {
  double b = kDot, e = kDot, s = kDot;
  customINTNXBES(intervalx, x, n, &b, &e, &s);
  return e;
}

double customINTINDEX(INTERVALX* intervalx, double x, double n) {
  double b = kDot, e = kDot, s = kDot;
  customINTNXBES(intervalx, x, n, &b, &e, &s);
  return s;
}

double customINTCK(INTERVALX* intervalx, double x1, double x2) {
  if (intervalx == nullptr) return kDot;
  TableOf t(intervalx, nullptr);
  if (!t.ok) return kDot;
  const Groups g = groups_of(intervalx);
  double i1 = kDot, i2 = kDot, b = kDot, e = kDot, s = kDot;
  if (find_index(t.table, g, counting_day(x1), &i1, &b, &e, &s) != 0 || missing(i1)) return kDot;
  if (find_index(t.table, g, counting_day(x2), &i2, &b, &e, &s) != 0 || missing(i2)) return kDot;
  return std::trunc(i2) - std::trunc(i1);
}

double customINTSEAS(INTERVALX* intervalx, double /*x*/) {
  if (intervalx == nullptr) return kDot;
  TableOf t(intervalx, nullptr);
  if (!t.ok) return kDot;
  if (t.cached) {
    const Groups g = groups_of(intervalx);
    if (g.m != 1 || g.shift != 0) return kDot;
  }
  const Table& tab = t.table;
  if (!tab.has_season() || tab.n < 1) return kDot;
  double largest = kDot;
  for (long r = 1; r <= tab.n; ++r) {
    const double v = tab.S(r);
    if (!missing(v) && (missing(largest) || v > largest)) largest = v;
  }
  return largest;
}

int customINTFMT(INTERVALX* intervalx, char* fmtname, short* namelen, short* width1, short* width2) {
  *namelen = 0;
  *width1 = 0;
  *width2 = 0;
  if (intervalx == nullptr) return -1;
  int multiplier = 0;
  int shift = 0;
  CUSTOMINTERVAL ref = getCustomIntervalDSRef(intervalx, &multiplier, &shift);
  double begin = kDot, end = kDot, season = kDot;
  XO_PARMS xo;
  ptr xvp = nullptr;
  CUSTOMINTERVALDSINFO dsinfo;
  std::memset(&dsinfo, 0, sizeof dsinfo);
  const int opened = openDS(&ref, &begin, &end, &season, &xo, &xvp, &dsinfo.endVar, &dsinfo.seasVar);
  if (opened != 0) return opened;
  dsinfo.interval = intervalx;
  dsinfo.multiplier = multiplier;
  dsinfo.shift = shift;
  dsinfo.DSRef = &ref;
  dsinfo.beginBuffer = &begin;
  dsinfo.endBuffer = &end;
  dsinfo.seasBuffer = &season;
  dsinfo.xoparm = &xo;
  dsinfo.xvp = xvp;

  int status = 0;
  int varnum = 0;
  NAMESTR* ns = nullptr;
  if (xvfind(xvp, "BEGIN", 5, &varnum) != 0 || xvname(xvp, varnum, &ns) != 0 || ns == nullptr) {
    status = -1;
  } else if (ns->nformlongl <= 0) {
    double b = kDot, e = kDot;
    DirectTable direct;
    if (!direct.read(intervalx, &dsinfo) || range(direct.table(), 0, &b, nullptr, nullptr, &e, nullptr, nullptr) != 0 ||
        missing(b)) {
      status = -1;
    } else if (std::fabs(b) < 86400.0 && missing(e)) {
      status = -1;
    } else if (std::fabs(b) < 86400.0 && std::fabs(e) < 86400.0) {
      std::memcpy(fmtname, "DATE", 4);
      *namelen = 4;
      *width1 = 9;
      *width2 = 7;
    } else {
      std::memcpy(fmtname, "DATETIME", 8);
      *namelen = 8;
      *width1 = 16;
      *width2 = 16;
    }
  } else {
    const short len = ns->nformlongl < 32 ? ns->nformlongl : 32;
    vzmp(ns->nformlong, len, fmtname, len);
    *namelen = len;
    if (ns->nfl > 0) {
      *width1 = *width2 = ns->nfl;
    } else {
      FATTRSTR attr;
      std::memset(&attr, 0, sizeof attr);
      int fcode = 0;
      GCB* gcb = host_gcb();
      const long task = gcb != nullptr && gcb->task != nullptr ? gcb->task->tkword : 0;
      if (xfrname(task, fmtname, len, 'F', &attr, &fcode) == 0) {
        *width1 = attr.fwmax;
        *width2 = attr.fwdef;
      }
    }
  }
  xvgett(xvp);
  xoclose(xo.fileid, 0);
  return status;
}

}  // extern "C"
