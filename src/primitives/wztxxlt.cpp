// Translation of text through the host's tables or, when the host handles
// text with its multi-byte routines, through those routines.
#include <cstring>

#include "host/host_text.h"
#include "primitives/primitives.h"

extern "C" {

wrcode wztxxlt(int function, const tchar* source_string, tchar* dest_string, int len) {
  if (function < 0 || function >= WZ_XLT_TABLES) return WZ_STATUS_BADFUNC;

  const bool multibyte = wzmbinfo != nullptr && wzmbinfo->mbflag > 0;
  if (multibyte && function != WZ_XLT_TABLE) {
    switch (function) {
      case WZ_XLT_ONE:
        wzsxcch(source_string, len, dest_string, len, 1);
        return 0;
      case WZ_XLT_TWO:
        wzsxrch(source_string, len, dest_string, len, 1);
        return 0;
      case WZ_XLT_UPPER:
        if (len > 0) std::memmove(dest_string, source_string, static_cast<std::size_t>(len));
        wzstrup(dest_string, len);
        return 0;
      case WZ_XLT_LOWER:
        if (len > 0) std::memmove(dest_string, source_string, static_cast<std::size_t>(len));
        wzstrlo(dest_string, len);
        return 0;
      default:
        return WZ_STATUS_BADFUNC;
    }
  }

  // Byte by byte through table `function`; in place is allowed.
  const unsigned char* table = wzxltab[function];
  for (int i = 0; i < len; ++i) {
    dest_string[i] = static_cast<tchar>(table[static_cast<tuchar>(source_string[i])]);
  }
  return 0;
}

}  // extern "C"
