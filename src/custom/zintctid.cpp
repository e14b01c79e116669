// The time-ID check: where each time ID of a series falls in a custom
// interval's table. For rows at 100, 200 and 300 without END, the IDs 100,
// 150, 200 get the period indexes 1, 1, 2 (Order 1: two IDs share a
// period), an ID of 50 gets index 0 with code 1 (before the table), and
// 1000 gets index 3 with code 4 (the open last period).

#include <cmath>
#include <cstdint>

#include "custom/custom.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// Indexes beyond these magnitudes are not stored as whole numbers.
constexpr double kInt64Limit = 9.223372036854776e+18;
constexpr double kExactLimit = 9007199254740992.0;  // 2^53
constexpr std::int32_t kPoolFlags = static_cast<std::int32_t>(0x80000000u);

bool is_kind(double v, char letter) {
  return esf::is_missing(v) && esf::missing_kind(v) == esf::missing_kind(esf::missing_letter(letter));
}

bool is_infinite_end(double v) { return is_kind(v, 'M') || is_kind(v, 'I'); }

// The code of a period from its begin and end.
int period_code(double b, double e) {
  int code = 0;
  if (is_kind(b, 'M')) {
    code |= kTidBeginInfinite;
  } else if (esf::is_missing(b)) {
    code |= kTidBeginMissing;
  }
  if (is_kind(e, 'I')) {
    code |= kTidEndInfinite;
  } else if (esf::is_missing(e)) {
    code |= kTidEndMissing;
  }
  return code;
}

// The date that `align` asks for, of a period with begin b and end e.
double aligned(char align, double b, double e) {
  if (align == 'E') return e;
  if (align == 'M') return esf::is_missing(b) || esf::is_missing(e) ? esf::kMissing : (b + e) * 0.5;
  return b;
}

// The counts a check keeps while it walks the time IDs.
struct Tally {
  long missID = 0;    // time IDs that are missing values
  long failIDs = 0;   // time IDs the table can't place
  long missObs = 0;   // failures of any kind, for MaxFail
  long largeObs = 0;  // indexes beyond 64 bits
  long bigObs = 0;    // indexes beyond 2^53 (the long form only)
};

// Stores an index as a whole number when it fits; -1 otherwise.
bool store_index(double obs, bool exact, long* out, Tally* t) {
  if (std::fabs(obs) > kInt64Limit) {
    *out = -1;
    ++t->largeObs;
    return false;
  }
  if (exact && std::fabs(obs) > kExactLimit) {
    *out = -1;
    ++t->bigObs;
    return false;
  }
  *out = static_cast<long>(obs);
  return true;
}

// A failure counted against MaxFail; true when the walk must stop.
bool count_failure(long max_fail, Tally* t) {
  ++t->missObs;
  return max_fail != 0 && t->missObs >= max_fail;
}

int check(ZTS_OBSDATES* dateinfo, tchar* align, long MaxFail, long* CDSIndex, long* TSIndex, int* Order, int* Infinity,
          int* InfinityByObs, long* MaxLead, long* MaxBack, double* first, double* last, bool exact) {
  if (Order != nullptr) *Order = -1;
  if (Infinity != nullptr) *Infinity = -1;
  if (MaxLead != nullptr) *MaxLead = -1;
  if (MaxBack != nullptr) *MaxBack = -1;
  if (dateinfo == nullptr) return kTidFailed;
  const long nobs = dateinfo->nobs;
  if (nobs < 1) return kTidNoObs;
  double* ids = dateinfo->dateVar.dateList;
  if (ids == nullptr || dateinfo->start.interval.intcode != kIntCustom) return kTidFailed;

  INTERVALX iv = dateinfo->start.interval;
  const bool own_reference = iv.cinfo == nullptr;  // a table picked up here is given back here
  const char how = align != nullptr ? align[0] : 0;

  long* abs_index = CDSIndex != nullptr ? CDSIndex : TSIndex;
  if (abs_index != nullptr) {
    for (long i = 0; i < nobs; ++i) abs_index[i] = -1;
  }
  QKPoolh pool = dateinfo->pool;
  double* dobs = nullptr;
  if (pool != nullptr && TSIndex != nullptr) {
    dobs = static_cast<double*>(pool->memAlloc(pool, static_cast<QKMemSize>(nobs) * sizeof(double), kPoolFlags));
    if (dobs != nullptr) {
      for (long i = 0; i < nobs; ++i) dobs[i] = esf::kMissing;
    }
  }
  if (Order != nullptr) *Order = 0;
  if (Infinity != nullptr) *Infinity = 0;

  Tally tally;
  int rc = 0;
  bool stopped = false;
  double obs = esf::kMissing;
  double minobs = esf::kMissing;
  double maxobs = esf::kMissing;
  const auto unplaced = [&](long i) {
    if (InfinityByObs != nullptr) InfinityByObs[i] = kTidUnplaced;
    if (Infinity != nullptr) *Infinity |= kTidUnplaced;
  };

  for (long i = 0; i < nobs && !stopped; ++i) {
    const double x = ids[i];
    if (esf::is_missing(x) && !is_infinite_end(x)) {
      ++tally.missID;
      unplaced(i);
      stopped = count_failure(MaxFail, &tally);
      continue;
    }
    const double lastobs = obs;
    double b = esf::kMissing, e = esf::kMissing, s = esf::kMissing;
    rc = findIndexC(&iv, x, &obs, &b, &e, &s);
    if (rc != 0 || esf::is_missing(obs)) {
      obs = esf::kMissing;
      ++tally.failIDs;
      unplaced(i);
      stopped = count_failure(MaxFail, &tally);
      continue;
    }
    if (dobs != nullptr) dobs[i] = obs;
    if (abs_index != nullptr) store_index(obs, exact, &abs_index[i], &tally);
    if (Order != nullptr && !esf::is_missing(lastobs)) {
      if (obs == lastobs) *Order |= 1;
      if (obs < lastobs) *Order |= 2;
    }
    if (esf::is_missing(minobs) || obs < minobs) minobs = obs;
    if (esf::is_missing(maxobs) || obs > maxobs) maxobs = obs;
    const int code = period_code(b, e);
    if (InfinityByObs != nullptr) InfinityByObs[i] = code;
    if (Infinity != nullptr) *Infinity |= code;
    if (how == 'B' || how == 'E') ids[i] = aligned(how, b, e);
    if (how == 'M') ids[i] = code == 0 ? (b + e) * 0.5 : esf::kMissing;
  }

  // Indexes relative to the start date.
  if (!stopped && TSIndex != nullptr) {
    double start = dateinfo->start.startDate;
    bool have_start = true;
    if (esf::is_missing(start) && !is_infinite_end(start)) {
      have_start = false;
      for (long i = 0; i < nobs && !have_start; ++i) {
        // The IDs may have been aligned above; a placed ID's period is the same.
        if (!esf::is_missing(ids[i]) || is_infinite_end(ids[i])) {
          start = ids[i];
          have_start = true;
        }
      }
      if (!have_start) ++tally.missID;
    }
    double start_obs = esf::kMissing;
    if (have_start) {
      double b = esf::kMissing, e = esf::kMissing, s = esf::kMissing;
      rc = findIndexC(&iv, start, &start_obs, &b, &e, &s);
      if (rc != 0 || esf::is_missing(start_obs)) {
        ++tally.failIDs;
        have_start = false;
      }
    }
    if (have_start) {
      const bool all_fit = tally.largeObs == 0 && tally.bigObs == 0 && std::fabs(start_obs) <= kInt64Limit &&
                           (!exact || std::fabs(start_obs) <= kExactLimit);
      for (long i = 0; i < nobs && !stopped; ++i) {
        if (dobs != nullptr) {
          if (esf::is_missing(dobs[i])) continue;
          Tally t;
          if (!store_index(dobs[i] - start_obs, exact, &TSIndex[i], &t)) {
            tally.largeObs += t.largeObs;
            tally.bigObs += t.bigObs;
            stopped = count_failure(MaxFail, &tally);
          }
        } else if (all_fit) {
          if (abs_index[i] != -1 || CDSIndex != TSIndex) TSIndex[i] = abs_index[i] - static_cast<long>(start_obs);
        } else {
          double i1 = esf::kMissing, i2 = esf::kMissing, b = esf::kMissing, e = esf::kMissing, s = esf::kMissing;
          if (findIndexC(&iv, start, &i1, &b, &e, &s) != 0 || esf::is_missing(i1) ||
              findIndexC(&iv, ids[i], &i2, &b, &e, &s) != 0 || esf::is_missing(i2)) {
            continue;
          }
          Tally t;
          if (!store_index(std::trunc(i2) - std::trunc(i1), exact, &TSIndex[i], &t)) {
            tally.largeObs += t.largeObs;
            tally.bigObs += t.bigObs;
            stopped = count_failure(MaxFail, &tally);
          }
        }
      }
    }
  }

  if (!stopped && !esf::is_missing(minobs)) {
    // How far the data can move back: to the first period of the table.
    double b = esf::kMissing, e = esf::kMissing, s = esf::kMissing, first_obs = esf::kMissing;
    const int got = getIndexC(&iv, static_cast<double>(iv.shiftper) + 1.0, &b, &e, &s);
    rc = got == 0 && !esf::is_missing(b) ? findIndexC(&iv, b, &first_obs, &e, &e, &s) : -1;
    if (MaxBack != nullptr) {
      *MaxBack = rc == 0 && !esf::is_missing(first_obs) ? static_cast<long>(first_obs - minobs) : -1;
    }
  }
  if (!stopped && !esf::is_missing(maxobs)) {
    // How far it can lead: to the last period before the open one.
    double b = esf::kMissing, e = esf::kMissing, s = esf::kMissing, last_obs = esf::kMissing;
    customINTNXBES(&iv, esf::missing_letter('I'), -1.0, &b, &e, &s);
    rc = !esf::is_missing(b) ? findIndexC(&iv, b, &last_obs, &e, &e, &s) : -1;
    if (MaxLead != nullptr) {
      *MaxLead = rc == 0 && !esf::is_missing(last_obs) ? static_cast<long>(last_obs - maxobs) : -1;
    }
  }
  if (!stopped && !esf::is_missing(minobs) && !esf::is_missing(maxobs)) {
    const auto date_of = [&](double index, double* out) {
      double b = esf::kMissing, e = esf::kMissing, s = esf::kMissing;
      rc = getIndexC(&iv, index, &b, &e, &s);
      const double d = rc == 0 ? aligned(how == 'E' || how == 'M' ? how : 'B', b, e) : esf::kMissing;
      if (out != nullptr) *out = d;
    };
    date_of(minobs, first);
    date_of(maxobs, last);
  }

  if (dobs != nullptr) pool->memFree(pool, dobs);
  if (own_reference && iv.cinfo != nullptr) zcintcReleaseRef(iv.cinfo);

  if (rc != 0) return rc;
  if (tally.failIDs > 0) return kTidFailed;
  if (tally.missID > 0) return kTidSomeMissing;
  if (tally.largeObs > 0) return kTidIndexTooLarge;
  if (tally.bigObs > 0) return kTidIndexInexact;
  if (tally.missObs > 0) return kTidFailed;
  return 0;
}

}  // namespace

extern "C" int zintctid(struct ZTS_OBSDATES* dateinfo, tchar* align, QORNOBS MaxFail, QORNOBS* CDSIndex,
                        QORNOBS* TSIndex, int* Order, int* Infinity, int* InfinityByObs, QORNOBS* MaxLead,
                        QORNOBS* MaxBack, double* first, double* last) {
  return check(dateinfo, align, MaxFail, CDSIndex, TSIndex, Order, Infinity, InfinityByObs, MaxLead, MaxBack, first,
               last, /*exact=*/false);
}

extern "C" int zintctidL(struct ZTS_OBSDATES* dateinfo, tchar* align, long MaxFail, long* CDSIndex, long* TSIndex,
                         int* Order, int* Infinity, int* InfinityByObs, long* MaxLead, long* MaxBack, double* first,
                         double* last) {
  return check(dateinfo, align, MaxFail, CDSIndex, TSIndex, Order, Infinity, InfinityByObs, MaxLead, MaxBack, first,
               last, /*exact=*/true);
}
