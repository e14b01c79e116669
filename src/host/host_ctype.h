// The host's character-class table.
//
// One byte per character value (indexed by the byte read as unsigned). The
// interval parser asks two questions of it: a byte with any bit of
// kCtypeLetterMask set is a letter, one with kCtypeDigitMask set is a digit.
// This stand-in classifies ASCII only: A-Z and a-z are letters, 0-9 digits.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Character classes of the 256 byte values.
extern const unsigned char zchrcls[256];

#ifdef __cplusplus
}  // extern "C"

inline constexpr unsigned char kCtypeUpper = 0x01;
inline constexpr unsigned char kCtypeLower = 0x02;
inline constexpr unsigned char kCtypeLetterMask = kCtypeUpper | kCtypeLower;  // 3
inline constexpr unsigned char kCtypeDigitMask = 0x04;                        // 4

inline bool host_is_letter(char c) { return (zchrcls[static_cast<unsigned char>(c)] & kCtypeLetterMask) != 0; }
inline bool host_is_digit(char c) { return (zchrcls[static_cast<unsigned char>(c)] & kCtypeDigitMask) != 0; }
#endif
