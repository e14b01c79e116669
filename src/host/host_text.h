// Text routines and tables of the host: upper- and lower-casing of whole
// strings, the host's two translations, conversion of program strings to the
// host's text encoding, the upper-casing table and the five translation tables
// that the module's wztxxlt consults.
//
// Texts are a char pointer and an int length, blank-padded, unterminated,
// as in the module.  The stand-in host works in single-byte ASCII.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Number and size of the translation tables held in wzxltab.
#define WZ_XLT_TABLES 5
#define WZ_XLT_SIZE 256

// Translation numbers, the index into wzxltab.
#define WZ_XLT_ONE 0    // host translation one
#define WZ_XLT_TWO 1    // host translation two
#define WZ_XLT_UPPER 2  // to upper case
#define WZ_XLT_LOWER 3  // to lower case
#define WZ_XLT_TABLE 4  // table only, never through the multi-byte routines

// The host's upper-casing table: wzuptab[b] is byte b upper-cased.
extern const unsigned char wzuptab[WZ_XLT_SIZE];

// The host's five translation tables, indexed by translation number.
extern const unsigned char wzxltab[WZ_XLT_TABLES][WZ_XLT_SIZE];

// The host's record on text handling.  mbflag above 0 says that text goes
// through the host's multi-byte routines.  wzmbinfo may be null: then the
// record is absent and text is single-byte.
typedef struct WZMBINFO {
  signed char mbflag;
  unsigned char reserved[7];
} WZMBINFO;
extern WZMBINFO* wzmbinfo;

// Upper- and lower-case len bytes in place.  Return 0.
int wzstrup(char* str, int len);
int wzstrlo(char* str, int len);

// Host translations one and two: translate min(slen, dlen) bytes of src into
// dst through table 0 (wzsxcch) or 1 (wzsxrch).  With pad non-zero the rest
// of dst up to dlen is filled with blanks.  src and dst may be the same
// buffer.  Return the number of bytes translated.
int wzsxcch(const char* src, int slen, char* dst, int dlen, int pad);
int wzsxrch(const char* src, int slen, char* dst, int dlen, int pad);

// Convert a program string to the host's text encoding: slen bytes of src,
// or up to its terminator when slen is below 0, cut at dlen and blank-padded
// to dlen in dst.  Return the number of characters stored.
int wztxcm2s(const char* src, int slen, char* dst, int dlen);

#ifdef __cplusplus
}  // extern "C"
#endif
