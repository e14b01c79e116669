// Missing values: the table of the 28 kinds, the one bit test, and the value
// of a kind by its letter.
#include <bit>
#include <cstdint>

#include "primitives/primitives.h"

namespace {

// Table entry of a kind letter: "." and every unknown character give 1 (the
// ordinary missing value), "_" and "-" give 0, letters of either case give
// 2 for "A" up to 27 for "Z".
constexpr int entry_of_kind(QKChar c) noexcept {
  if (c >= 'A' && c <= 'Z') return 2 + (c - 'A');  // [2, 27]
  if (c >= 'a' && c <= 'z') return 2 + (c - 'a');  // [2, 27]
  if (c == '_' || c == '-') return 0;
  return 1;
}

// Missing values are NaNs, so these checks compare bits only.
static_assert(std::bit_cast<std::uint64_t>(esf::missing_entry(0)) == 0xFFFFFF0000000000ULL);
static_assert(std::bit_cast<std::uint64_t>(esf::missing_entry(1)) == 0xFFFFFE0000000000ULL);
static_assert(std::bit_cast<std::uint64_t>(esf::missing_entry(2)) == 0xFFFFFD0000000000ULL);
static_assert(std::bit_cast<std::uint64_t>(esf::missing_entry(27)) == 0xFFFFE40000000000ULL);
static_assert(esf::is_missing(esf::missing_entry(27)));
static_assert(!esf::is_missing(std::bit_cast<double>(0xFFF8000000000000ULL)));
static_assert(!esf::is_missing(-0.0));

}  // namespace

extern "C" {

// 28 entries: "._", ".", ".A" .. ".Z", each one lower in the third byte.
const SKMISSV_STRUCT skmissv_struct = {
    0.0, {esf::missing_entry(0),  esf::missing_entry(1),  esf::missing_entry(2),  esf::missing_entry(3),
          esf::missing_entry(4),  esf::missing_entry(5),  esf::missing_entry(6),  esf::missing_entry(7),
          esf::missing_entry(8),  esf::missing_entry(9),  esf::missing_entry(10), esf::missing_entry(11),
          esf::missing_entry(12), esf::missing_entry(13), esf::missing_entry(14), esf::missing_entry(15),
          esf::missing_entry(16), esf::missing_entry(17), esf::missing_entry(18), esf::missing_entry(19),
          esf::missing_entry(20), esf::missing_entry(21), esf::missing_entry(22), esf::missing_entry(23),
          esf::missing_entry(24), esf::missing_entry(25), esf::missing_entry(26), esf::missing_entry(27)}};

// The table itself is read-only data; the pointer has the host's type.
double* qkmissv_table = const_cast<double*>(skmissv_struct.MissTable);

int wzmis(double d) { return esf::is_missing(d) ? 1 : 0; }

double skMissVal(QKChar mVal) { return skmissv_struct.MissTable[entry_of_kind(mVal)]; }

QKBoolean skMissArray(const double* dp, QKMemSize len) {
  for (QKMemSize i = 0; i < len; ++i) {
    if (esf::is_missing(dp[i])) return 1;
  }
  return 0;
}

}  // extern "C"
