// Memory primitives of the kernel.  Sources come first and targets second,
// the reverse of the standard library's order.
#include <cstring>

#include "primitives/primitives.h"

namespace {

// Answer of a scan that finds nothing.
constexpr QKMemSize kNoHit = static_cast<QKMemSize>(-1);

}  // namespace

extern "C" {

QKBoolean skMemNot(int8_t c, const void* buff, QKMemSize len) {
  const auto* p = static_cast<const int8_t*>(buff);
  for (QKMemSize i = 0; i < len; ++i) {
    if (p[i] != c) return 0;
  }
  return 1;
}

QKBoolean skMemTNot(QKChar c, const QKChar* buff, QKStrSize len) {
  for (QKStrSize i = 0; i < len; ++i) {
    if (buff[i] != c) return 0;
  }
  return 1;
}

void skMemSet(void* buff, int32_t c, QKMemSize len) {
  if (len > 0) std::memset(buff, static_cast<unsigned char>(c & 0xFF), len);
}

void skMemTSet(QKChar* buff, QKChar c, QKStrSize len) {
  for (QKStrSize i = 0; i < len; ++i) buff[i] = c;
}

int32_t skMemCmp(const void* src, const void* dst, QKMemSize len) {
  const auto* a = static_cast<const unsigned char*>(src);
  const auto* b = static_cast<const unsigned char*>(dst);
  for (QKMemSize i = 0; i < len; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  return 0;
}

int32_t skWMemCmp(const QKChar* src, const QKChar* dst, QKMemSize len) {
  for (QKMemSize i = 0; i < len; ++i) {
    if (src[i] != dst[i]) return src[i] < dst[i] ? -1 : 1;
  }
  return 0;
}

void skMemCpy(const void* src, void* dst, QKMemSize len) {
  // One byte at a time, forward: with a target above an overlapping source
  // the first bytes repeat, as the plain loop gives.
  const auto* from = static_cast<const volatile unsigned char*>(src);
  auto* to = static_cast<volatile unsigned char*>(dst);
  for (QKMemSize i = 0; i < len; ++i) to[i] = from[i];
}

void skMemSCpy(const void* src, void* dst, QKMemSize len) {
  const auto* s = static_cast<const unsigned char*>(src);
  auto* d = static_cast<unsigned char*>(dst);
  if (len == 0) return;
  // Unless the target starts inside the source, a forward copy is safe.
  if (!(s < d && d < s + len)) {
    for (QKMemSize i = 0; i < len; ++i) d[i] = s[i];
    return;
  }
  const QKMemSize offset = static_cast<QKMemSize>(d - s);         // (0, len)
  const QKMemSize overlap = static_cast<QKMemSize>(s + len - d);  // len - offset, (0, len)
  if (offset >= overlap) {
    // The overlapped part of the source, now at d, goes beyond it; then the
    // untouched head of the source fills d.
    std::memcpy(d + offset, d, overlap);
    std::memcpy(d, s, offset);
    return;
  }
  // The last offset bytes of the source go to the end of the target.
  std::memcpy(d + len - offset, d + overlap - offset, offset);
  // The rest of the overlapped range moves up by offset, highest byte first.
  for (QKMemSize i = overlap - offset; i-- > 0;) d[i + offset] = d[i];
  std::memcpy(d, s, offset);
}

QKMemPtr skMemDup(QKConstMemPtr src, QKMemSize len, QKPoolh pool) {
  if (src == nullptr || pool == nullptr) return nullptr;
  QKMemPtr copy = pool->memAlloc(pool, len, 0);
  if (copy == nullptr) return nullptr;
  if (len > 0) std::memcpy(copy, src, len);
  return copy;
}

QKMemSize skMemScan(const void* src, QKMemSize len, int8_t ch) {
  if (src == nullptr) return kNoHit;
  const auto* p = static_cast<const int8_t*>(src);
  for (QKMemSize i = 0; i < len; ++i) {
    if (p[i] == ch) return i;
  }
  return kNoHit;
}

QKMemSize skMemNScan(const void* src, QKMemSize len, int8_t ch) {
  if (src == nullptr) return kNoHit;
  const auto* p = static_cast<const int8_t*>(src);
  for (QKMemSize i = 0; i < len; ++i) {
    if (p[i] != ch) return i;
  }
  return kNoHit;
}

QKMemSize skMemTNScan(const QKChar* src, QKStrSize len, QKChar ch) {
  if (src == nullptr) return kNoHit;
  for (QKStrSize i = 0; i < len; ++i) {
    if (src[i] != ch) return static_cast<QKMemSize>(i);
  }
  return kNoHit;
}

}  // extern "C"
