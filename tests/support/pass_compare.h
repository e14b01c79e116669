// The derivative passes of a family that runs them in its kernel's own loops
// (backward_pass, forward_pass of its trait) against the frame's loop, one
// fitobs per observation: the same results to the bit.
#pragma once

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "module/win_model.h"
#include "smoothing/frame.h"

namespace pass_test {

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

}  // namespace pass_test
