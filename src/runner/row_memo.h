// Answers kept by row for the last series on a thread.  The series of a
// batch mostly share their time IDs, so what row i of one series needed (a
// calendar answer, a date's text) is most often what row i of the next
// needs; a row whose key differs is answered anew and remembered in place.
//
//   thread_local RowMemo<std::array<std::uint64_t, 1>, double> memo;
//   double begins = memo.at(row, {std::bit_cast<std::uint64_t>(t)}, [&] { return period_start(t); });
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace esf::runner {

// The bits of a double, so that keys compare exactly (a NaN equals itself).
inline std::uint64_t key_bits(double v) { return std::bit_cast<std::uint64_t>(v); }

template <class Key, class Answer>
class RowMemo {
 public:
  // The answer at `row` for `key`: the one remembered when the row last
  // held the same key, else make()'s, remembered for the row.
  template <class Make>
  const Answer& at(std::size_t row, const Key& key, Make make) {
    if (row >= rows_.size()) rows_.resize(row + 1);
    Row& r = rows_[row];
    if (!r.known || r.key != key) {
      r.answer = make();
      r.key = key;
      r.known = true;
    }
    return r.answer;
  }
  void clear() { rows_.clear(); }

 private:
  struct Row {
    Key key{};
    Answer answer{};
    bool known = false;
  };
  std::vector<Row> rows_;
};

}  // namespace esf::runner
