// Narrow and wide strings of the kernel primitives.
#include <cstddef>

#include "primitives/primitives.h"

namespace {

// Characters before the terminating zero; 0 for a null string.
template <class Size, class Char>
Size terminated_length(const Char* s) {
  if (s == nullptr) return 0;
  Size n = 0;
  while (s[n] != 0) ++n;
  return n;
}

// Copies a string with its terminating zero; a null string copies as empty.
template <class Char>
void copy_terminated(const Char* src, Char* dst) {
  if (dst == nullptr) return;
  if (src == nullptr) {
    dst[0] = 0;
    return;
  }
  std::size_t i = 0;
  do {
    dst[i] = src[i];
  } while (src[i++] != 0);
}

}  // namespace

extern "C" {

QKStatus skUnsup(void) { return QK_STATUS_UNSUPPORTED; }

QKMemSize skStrLen(const char* s) { return terminated_length<QKMemSize>(s); }

QKStrSize skStrTLen(const QKChar* s) { return terminated_length<QKStrSize>(s); }

void skStrCpy(const int8_t* src, int8_t* dst) { copy_terminated(src, dst); }

void skStrTCpy(const QKChar* src, QKChar* dst) { copy_terminated(src, dst); }

void skStrUp(int8_t* src, QKMemSize len) {
  for (QKMemSize i = 0; i < len; ++i) {
    if (src[i] >= 'a' && src[i] <= 'z') src[i] = static_cast<int8_t>(src[i] - 'a' + 'A');
  }
}

void skStrLow(int8_t* src, QKMemSize len) {
  for (QKMemSize i = 0; i < len; ++i) {
    if (src[i] >= 'A' && src[i] <= 'Z') src[i] = static_cast<int8_t>(src[i] - 'A' + 'a');
  }
}

}  // extern "C"
