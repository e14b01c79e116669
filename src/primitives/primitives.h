// Text, memory and missing-value primitives of the module.
//
// Text values are not terminated strings but a pointer and an int length,
// blank-padded (0x20) inside fixed-width fields:
//
//   wzstcom("AB", 2, "AB  ", 4)      // 0: trailing blanks do not count
//   wzstrip("X   ", 4)               // 1: significant length
//   vzmp("ABC", 3, field, 8)         // field holds "ABC     "
//
// A missing value is a double whose two most significant bytes are 0xFF; the
// third byte from the top names the kind ("._" 0xFF, "." 0xFE, ".A" 0xFD down
// to ".Z" 0xE4) and the low five bytes are 0.  Missing values are tested by
// bits (wzmis, esf::is_missing), never compared as numbers.
//
// Every routine declared here is exported by name with C linkage.
#pragma once

#include <stdint.h>

#include "module/export.h"

#ifdef __cplusplus
#include <bit>
#include <cstdint>
#include <type_traits>
#endif

// ---------------------------------------------------------------------------
// Basic types
// ---------------------------------------------------------------------------

typedef char tchar;            // signed 8-bit text character (plain char is signed here)
typedef unsigned char tuchar;  // its unsigned twin; comparisons look at bytes as tuchar
typedef int wrcode;            // status of a text routine

typedef int32_t QKChar;      // wide character
typedef int64_t QKStrSize;   // count of wide characters
typedef uint64_t QKMemSize;  // count of bytes
typedef int32_t QKStatus;    // kernel status
typedef uint8_t QKBoolean;   // 0 or 1
typedef void* QKMemPtr;
typedef const void* QKConstMemPtr;

// A memory pool: a record of function pointers.  memAlloc(pool, size, flags)
// gives memory or null; memFree(pool, ptr) gives a block back.
struct QKPool {
  QKMemPtr (*memAlloc)(struct QKPool* pool, QKMemSize size, int32_t flags);
  void (*memFree)(struct QKPool* pool, QKMemPtr ptr);
};
typedef struct QKPool* QKPoolh;

// A status constant of the given type written by its bits, in C and in C++.
#ifdef __cplusplus
#define ESF_STATUS_BITS(type, bits) (static_cast<type>(bits))
#else
#define ESF_STATUS_BITS(type, bits) ((type)(bits))
#endif

// Status of an operation that is not supported (skUnsup).
#define QK_STATUS_UNSUPPORTED ESF_STATUS_BITS(QKStatus, 0x803FC004)
// Status of wztxxlt for a translation number it does not know.
#define WZ_STATUS_BADFUNC ESF_STATUS_BITS(wrcode, 0x8000200A)

// ---------------------------------------------------------------------------
// Missing values
// ---------------------------------------------------------------------------

// The 28 missing values in table order: "._", ".", ".A" .. ".Z".
// Double_Align forces 8-byte alignment and holds 0; MissTable is 224 bytes.
typedef struct SKMISSV_STRUCT {
  double Double_Align;
  double MissTable[28];
} SKMISSV_STRUCT;

#ifdef __cplusplus
extern "C" {
#endif

ESF_EXPORT extern const SKMISSV_STRUCT skmissv_struct;
// Points at skmissv_struct.MissTable; set at load time.  Read only.
ESF_EXPORT extern double* qkmissv_table;

ESF_EXPORT int wzmis(double d);
ESF_EXPORT double skMissVal(QKChar mVal);
ESF_EXPORT QKBoolean skMissArray(const double* dp, QKMemSize len);

// ---------------------------------------------------------------------------
// Text primitives (padded strings)
// ---------------------------------------------------------------------------

ESF_EXPORT void vzmp(const tchar* from, int flen, tchar* to, int tlen);
ESF_EXPORT int wzstmov(const tchar* from, int flen, tchar* to, int tlen);
ESF_EXPORT int wzstcom(const tchar* s1, int l1, const tchar* s2, int l2);
ESF_EXPORT int wzbcup(const char* string1, const char* string2, int n);
ESF_EXPORT int wzstlen(const tchar* str);
ESF_EXPORT int wzstrip(const tchar* str, int len);
ESF_EXPORT int wzstpos(const tchar* str, int len, tuchar c);
ESF_EXPORT int wzstndx(const tchar* str, int slen, const tchar* tok, int tlen);
ESF_EXPORT int wzcichr(int num, tchar* str);
ESF_EXPORT wrcode wztxxlt(int function, const tchar* source_string, tchar* dest_string, int len);
ESF_EXPORT void vzfdl(double val, double* to, long len);
ESF_EXPORT long qor_memchr(const tchar* str, int c, long len);

// ---------------------------------------------------------------------------
// Narrow and wide strings
// ---------------------------------------------------------------------------

ESF_EXPORT QKStatus skUnsup(void);
ESF_EXPORT QKMemSize skStrLen(const char* s);
ESF_EXPORT QKStrSize skStrTLen(const QKChar* s);
ESF_EXPORT void skStrCpy(const int8_t* src, int8_t* dst);
ESF_EXPORT void skStrTCpy(const QKChar* src, QKChar* dst);
ESF_EXPORT void skStrUp(int8_t* src, QKMemSize len);
ESF_EXPORT void skStrLow(int8_t* src, QKMemSize len);

// ---------------------------------------------------------------------------
// Memory (sources first, targets second)
// ---------------------------------------------------------------------------

ESF_EXPORT QKBoolean skMemNot(int8_t c, const void* buff, QKMemSize len);
ESF_EXPORT QKBoolean skMemTNot(QKChar c, const QKChar* buff, QKStrSize len);
ESF_EXPORT void skMemSet(void* buff, int32_t c, QKMemSize len);
ESF_EXPORT void skMemTSet(QKChar* buff, QKChar c, QKStrSize len);
ESF_EXPORT int32_t skMemCmp(const void* src, const void* dst, QKMemSize len);
ESF_EXPORT int32_t skWMemCmp(const QKChar* src, const QKChar* dst, QKMemSize len);
ESF_EXPORT void skMemCpy(const void* src, void* dst, QKMemSize len);
ESF_EXPORT void skMemSCpy(const void* src, void* dst, QKMemSize len);
ESF_EXPORT QKMemPtr skMemDup(QKConstMemPtr src, QKMemSize len, QKPoolh pool);
ESF_EXPORT QKMemSize skMemScan(const void* src, QKMemSize len, int8_t ch);
ESF_EXPORT QKMemSize skMemNScan(const void* src, QKMemSize len, int8_t ch);
ESF_EXPORT QKMemSize skMemTNScan(const QKChar* src, QKStrSize len, QKChar ch);

#ifdef __cplusplus
}  // extern "C"

static_assert(std::is_signed_v<tchar>, "tchar must be a signed 8-bit character");
static_assert(sizeof(SKMISSV_STRUCT) == 8 + 224, "missing-value table is 28 doubles after one");

// ---------------------------------------------------------------------------
// Inline helpers for hot loops of module code: the same tests and values as
// the exported routines, without a call.
// ---------------------------------------------------------------------------
namespace esf {

// The two top bytes that mark a missing value.
inline constexpr std::uint64_t kMissMask = 0xFFFF000000000000ULL;
// Bits of "._", the first entry; each later entry is one lower in byte 5.
inline constexpr std::uint64_t kMissFirstBits = 0xFFFFFF0000000000ULL;
inline constexpr std::uint64_t kMissStep = 0x0000010000000000ULL;
inline constexpr int kMissKinds = 28;

// Missing value of table entry `entry` (0 "._", 1 ".", 2..27 ".A".."Z").
constexpr double missing_entry(int entry) noexcept {
  return std::bit_cast<double>(kMissFirstBits - static_cast<std::uint64_t>(entry) * kMissStep);
}

// The ordinary missing value "." that results store for "no value".
inline constexpr double kMissing = missing_entry(1);

// Same test as wzmis: the 16 most significant bits are all ones.
constexpr bool is_missing(double d) noexcept { return (std::bit_cast<std::uint64_t>(d) & kMissMask) == kMissMask; }

// Missing value of a special kind by letter, 'A'..'Z' (".A" .. ".Z").
constexpr double missing_letter(char letter) noexcept { return missing_entry(2 + (letter - 'A')); }

// Table entry of a missing value read from its third byte from the top:
// 0 for "._", 1 for ".", 2..27 for ".A".."Z"; -1 when d isn't one of the 28.
constexpr int missing_kind(double d) noexcept {
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(d);
  if ((bits & kMissMask) != kMissMask) return -1;
  const int byte = static_cast<int>((bits >> 40) & 0xFF);  // [0, 255]
  const int entry = 0xFF - byte;                           // [0, 255]
  return entry < kMissKinds ? entry : -1;
}

}  // namespace esf
#endif  // __cplusplus
