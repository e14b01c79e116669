// Helpers shared by the units of the host stand-in.  Not for host programs
// (they use host.h) and not for the module (it uses module/host_api.h).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>

namespace esf::host::internal {

// Character classes of names, by ASCII alone: names read and compare the same
// whatever locale the host program runs under.
inline char ascii_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
inline char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
inline bool ascii_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
inline bool ascii_digit(char c) { return c >= '0' && c <= '9'; }

// Whether the host keeps memory given back for its next requests: not under
// AddressSanitizer, which must see every block freed to find a use after
// the free.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kReuseFreedMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kReuseFreedMemory = false;
#else
inline constexpr bool kReuseFreedMemory = true;
#endif
#else
inline constexpr bool kReuseFreedMemory = true;
#endif

// Blocks of `Bytes` bytes that the calling thread gave back, up to `Count`
// of them, for its next requests: a method call makes and frees dozens of
// list items and lists, more than the C library keeps at hand per thread.
// Each instantiation is one cache per thread; a thread that is ending
// allocates and frees directly.
template <std::size_t Bytes, std::size_t Count>
class BlockCache {
 public:
  static void* take() {
    if constexpr (kReuseFreedMemory) {
      Blocks& b = t_blocks;
      if (b.count > 0 && !b.closed) return b.blocks[--b.count];
    }
    return ::operator new(Bytes);
  }

  static void give(void* p) {
    if constexpr (kReuseFreedMemory) {
      Blocks& b = t_blocks;
      if (b.count < Count && !b.closed) {
        // The first block kept makes sure the thread gives them back as
        // it ends.
        if (b.count == 0 && !b.guarded) guard();
        b.blocks[b.count++] = p;
        return;
      }
    }
    ::operator delete(p);
  }

 private:
  // Plain data, so that reaching it costs one look-up of the thread's
  // storage and it stays readable while the thread ends.
  struct Blocks {
    void* blocks[Count];
    std::size_t count;
    bool guarded;
    bool closed;
  };
  struct Guard {
    Guard() { t_blocks.guarded = true; }
    ~Guard() {
      Blocks& b = t_blocks;
      b.closed = true;
      while (b.count > 0) ::operator delete(b.blocks[--b.count]);
    }
  };
  [[gnu::noinline]] static void guard() { thread_local Guard g; }
  static inline thread_local Blocks t_blocks{};
};

// Missing values: the two top bytes 0xFF, the kind in the third byte from the
// top ("._" 0xFF, "." 0xFE, ".A" 0xFD down to ".Z" 0xE4), the rest 0.
inline bool is_missing(double v) { return (std::bit_cast<std::uint64_t>(v) >> 48) == 0xFFFFu; }
inline double ordinary_missing() { return std::bit_cast<double>(std::uint64_t{0xFFFFFE0000000000}); }

// Name of the kind of a missing value: "._", "." or ".A" to ".Z".
inline std::string missing_kind_name(double v) {
  const auto third = static_cast<unsigned>((std::bit_cast<std::uint64_t>(v) >> 40) & 0xFFu);
  if (third == 0xFF) return "._";
  if (third >= 0xE4 && third <= 0xFD) return std::string(".") + static_cast<char>('A' + (0xFD - third));
  return ".";
}

// The missing value of a name as missing_kind_name gives it (case-insensitive
// letter); false for any other text.
inline bool missing_from_name(std::string_view name, double* out) {
  unsigned third = 0;
  if (name == ".") {
    third = 0xFE;
  } else if (name == "._") {
    third = 0xFF;
  } else if (name.size() == 2 && name[0] == '.' &&
             ((name[1] >= 'A' && name[1] <= 'Z') || (name[1] >= 'a' && name[1] <= 'z'))) {
    const char letter = static_cast<char>(name[1] & ~0x20);
    third = 0xFDu - static_cast<unsigned>(letter - 'A');
  } else {
    return false;
  }
  *out = std::bit_cast<double>((std::uint64_t{0xFFFF} << 48) | (std::uint64_t{third} << 40));
  return true;
}

// Output channels of the print service: print lines to stdout, reports and
// debug lines to stderr, or both into memory while capture is on.
void emit_print_line(std::string_view line);
void emit_log_line(std::string_view line);

// The task descriptor's resource blocks are cleared by end_task().
void clear_task_slots();

// Records that an allocation failed, for xmemdef.
void note_allocation_failure();

// Statuses of the table service (negative: errors).
inline constexpr int kTableBadName = static_cast<int>(0x80010001u);       // not a valid table name
inline constexpr int kTableNoLibrary = static_cast<int>(0x80010002u);     // libref not assigned
inline constexpr int kTableCannotCreate = static_cast<int>(0x80010003u);  // file cannot be written
inline constexpr int kTableNotFound = static_cast<int>(0x80010004u);      // file cannot be read
inline constexpr int kTableBadData = static_cast<int>(0x80010005u);       // a field is not a number
inline constexpr int kTableState = static_cast<int>(0x80010006u);         // call out of order
inline constexpr int kTableWrite = static_cast<int>(0x80010007u);         // writing failed
inline constexpr int kTableNoVariable = static_cast<int>(0x80010008u);    // no such variable
inline constexpr int kTableBadVariable = static_cast<int>(0x80010009u);   // bad variable definition

// Attaches a readable explanation to the next report of status `rc` on this
// thread (file, line and field where it applies); xprrlog prints it.
void note_status_detail(int rc, std::string text);
// The explanation noted for `rc`, taken away; empty when none.
std::string take_status_detail(int rc);

}  // namespace esf::host::internal
