// Narrow and wide strings of the kernel primitives.
#include "primitives/primitives.h"

extern "C" {

QKStatus skUnsup(void) { return QK_STATUS_UNSUPPORTED; }

QKMemSize skStrLen(const char* s) {
  if (s == nullptr) return 0;
  QKMemSize n = 0;
  while (s[n] != '\0') ++n;
  return n;
}

QKStrSize skStrTLen(const QKChar* s) {
  if (s == nullptr) return 0;
  QKStrSize n = 0;
  while (s[n] != 0) ++n;
  return n;
}

void skStrCpy(const int8_t* src, int8_t* dst) {
  if (dst == nullptr) return;
  if (src == nullptr) {
    dst[0] = 0;
    return;
  }
  QKMemSize i = 0;
  do {
    dst[i] = src[i];
  } while (src[i++] != 0);
}

void skStrTCpy(const QKChar* src, QKChar* dst) {
  if (dst == nullptr) return;
  if (src == nullptr) {
    dst[0] = 0;
    return;
  }
  QKStrSize i = 0;
  do {
    dst[i] = src[i];
  } while (src[i++] != 0);
}

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
