// What the two start-value regressions share: the size below which a
// denominator counts as zero, their status codes, and their work arrays.
#pragma once

#include <cstddef>

#include "module/host_api.h"

namespace regression {

// Denominators and pivots below this count as zero.
inline constexpr double kTiny = 1.491668147e-154;

// Status codes (regression.h).
inline constexpr int kReduced = 1;
inline constexpr int kOk = 0;
inline constexpr int kNoMemory = -1;
inline constexpr int kTooFew = -2;

// Pool flag word of arrays of numbers.
inline constexpr int kNumberFlags = 0x2004;

// Work arrays from the host's current pool. Everything is asked for first
// and tested once with xmemdef; whatever was obtained goes back on every
// return.
class WorkArrays {
 public:
  WorkArrays() = default;
  WorkArrays(const WorkArrays&) = delete;
  WorkArrays& operator=(const WorkArrays&) = delete;
  ~WorkArrays() {
    for (int i = 0; i < count_; ++i) host_free(blocks_[i]);
  }

  template <class T>
  T* get(long items, int flags) {
    void* p = host_alloc(static_cast<long>(static_cast<std::size_t>(items) * sizeof(T)), flags);
    if (p != nullptr) blocks_[count_++] = p;
    return static_cast<T*>(p);
  }

  // True when every request was served.
  bool ok() const { return xmemdef() == 0; }

 private:
  void* blocks_[8] = {};
  int count_ = 0;
};

}  // namespace regression
