// The derivative passes of a family that runs them in its kernel's own loops
// (backward_pass, forward_pass of its trait) against the frame's loop, one
// fitobs per observation: the same results to the bit.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "module/win_model.h"
#include "smoothing/frame.h"

namespace pass_test {

// One candidate of a side-by-side pass against its own single pass: the same
// return code and, where the pass ended well, the same bits of its mean
// squared error.  Counts the passes that failed (count[0]) and ended well
// (count[1]).
inline void expect_same_outcome(int rc, double mse, int want_rc, double want_mse, int* count) {
  EXPECT_EQ(rc, want_rc);
  ++count[want_rc == 0];
  EXPECT_TRUE(want_rc != 0 || std::bit_cast<std::uint64_t>(mse) == std::bit_cast<std::uint64_t>(want_mse)) << mse;
}

// Family F with the frame's own loops.
template <class F>
struct FrameStepByStep : F {
  static void backward_pass() = delete;
  static void forward_pass() = delete;
};

// Everything an evaluation leaves: the point, the states, their derivatives.
template <class F>
std::vector<unsigned char> evaluate(WINMODEL* m, FITCON* fc, const double* w, int* rc) {
  using namespace smoothing::frame;
  POINT p;
  std::memset(&p, 0, sizeof p);
  for (int i = 0; i < F::kNumWeights; ++i) weight_of(p, F::kSlots[i]) = w[i];
  *rc = nextstep<F>(m, fc, &p, nullptr);
  std::vector<unsigned char> bits;
  auto add = [&](const void* from, std::size_t bytes) {
    if (from == nullptr || bytes == 0) return;
    const std::size_t at = bits.size();
    bits.resize(at + bytes);
    std::memcpy(bits.data() + at, from, bytes);
  };
  const std::size_t factors = static_cast<std::size_t>(m->ts.nseasons > 0 ? m->ts.nseasons : 0) * sizeof(double);
  add(&p, sizeof p);
  for (const SMOOTHVALS* s : {&m->smooth, &m->startvals}) {
    add(&s->level, sizeof s->level);
    add(&s->trend, sizeof s->trend);
    add(s->sfactor, factors);
  }
  add(&m->smooth.xhat, sizeof m->smooth.xhat);
  add(fc->derwork.level, sizeof fc->derwork.level);
  add(fc->derwork.trend, sizeof fc->derwork.trend);
  for (const double* d : {fc->derwork.season.wlevel, fc->derwork.season.wtrend, fc->derwork.season.wseason}) {
    add(d, factors);
  }
  return bits;
}

// Evaluates each weight set (F::kNumWeights values each) both ways, from
// fresh fit controls, and expects the same code and the same bits.  Returns
// how many evaluations stopped with a negative code.
template <class F>
int expect_same_passes(WINMODEL* m, const double* x, const char* misflg, long n, const int* scodes,
                       const std::vector<double>& weights) {
  using namespace smoothing::frame;
  FITCON fc[2];
  for (FITCON& f : fc) {
    std::memset(&f, 0, sizeof f);
    f.x = const_cast<double*>(x);
    f.misflg = const_cast<char*>(misflg);
    f.n = n;
    f.scodes = const_cast<int*>(scodes);
    f.min_nmiss = kUnevaluatedNmiss;
    EXPECT_EQ(F::fit_setup(m, &f), 0);
  }
  int stopped = 0;
  for (std::size_t k = 0; k + F::kNumWeights <= weights.size(); k += F::kNumWeights) {
    SCOPED_TRACE(testing::Message() << "x[0] " << x[0] << ", weights " << weights[k] << " ...");
    int rc[2];
    const std::vector<unsigned char> own = evaluate<F>(m, &fc[0], &weights[k], &rc[0]);
    const std::vector<unsigned char> frame = evaluate<FrameStepByStep<F>>(m, &fc[1], &weights[k], &rc[1]);
    EXPECT_EQ(rc[0], rc[1]);
    EXPECT_TRUE(own == frame);
    stopped += rc[0] < 0;
  }
  for (FITCON& f : fc) F::fit_cleanup(m, &f);
  return stopped;
}

// The unchecked derivative passes of the weights w on the lanes of
// instruction set `isa` (U::unchecked, P weights) against the checked scalar
// pass, each pass from the start values of m and the state `start`: the same
// bits wherever the lanes report no guard tripped (the forward pass: and its
// sums are small enough to be exact).  Counts the passes that tripped
// (count[0]) and those compared (count[1]).
template <class U, int P>
void expect_lanes_give_scalar_bits(const WINMODEL* m, int ns, const typename U::State& start, const double* w, int isa,
                                   int* count) {
  using S = pass::FactorStep<P, U>;
  constexpr int nx = (P + 1) * (P + 2) / 2;
  struct Run {
    std::vector<double> arrays;  // the factors and their P derivative arrays
    typename S::State st;
    double sums[nx] = {};
    long nmiss = 0;
    bool tripped = false;
    int rc = 0;
  } lanes, scalar;
  const pass::DerivativeSeries in{m->ts.x, m->ts.misflg, m->ts.nobs, 1e300};
  auto step = [&](Run& r) {
    r.arrays.assign(m->svi.sfactor, m->svi.sfactor + ns);
    r.arrays.resize((P + 1) * ns, 0.0);
    r.st = start;
    S s{m->ts.scodes, ns, m->ts.descstats.norm, {}, r.arrays.data(), {}};
    for (int i = 0; i < P; ++i) {
      s.w[i] = w[i];
      s.dersea[i] = r.arrays.data() + (i + 1) * ns;
    }
    return s;
  };
  for (const bool forward : {false, true}) {
    lanes.rc = U::unchecked(step(lanes), forward, in, lanes.st, lanes.sums, &lanes.nmiss, &lanes.tripped, isa);
    scalar.rc =
        forward ? pass::derivative_run<S, true, true>(step(scalar), in, scalar.st, scalar.sums, &scalar.nmiss,
                                                      &scalar.tripped)
                : pass::derivative_run<S, false, true>(step(scalar), in, scalar.st, nullptr, nullptr, &scalar.tripped);
    if (lanes.tripped || (forward && !pass::unchecked_sums_are_exact<nx>(lanes.sums))) {
      ++count[0];
      continue;
    }
    ++count[1];
    EXPECT_EQ(lanes.rc, scalar.rc) << isa;
    EXPECT_EQ(std::memcmp(&lanes.st, &scalar.st, sizeof lanes.st), 0) << isa << " " << forward;
    EXPECT_EQ(std::memcmp(lanes.arrays.data(), scalar.arrays.data(), (P + 1) * ns * sizeof(double)), 0) << isa;
    EXPECT_EQ(std::memcmp(lanes.sums, scalar.sums, sizeof lanes.sums), 0) << isa;
  }
}

}  // namespace pass_test
