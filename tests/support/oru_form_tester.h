// The form tester: holds every vector form of a kernel to its plain twin. A suite is
// parameterised by instruction set (ORU_FORM_SUITE); a form that is not built for this
// architecture, or that this host cannot run, shows as a skipped test naming the form.
#ifndef ORU_FORM_TESTER_H
#define ORU_FORM_TESTER_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "core/oru_dispatch.h"

namespace oru_test {

// The vector instruction sets as test parameters: Suite.Test/avx2 and so on. A suite that
// holds every form, the plain one too, to an independent oracle adds plain.
#define ORU_FORM_SUITE(suite)                                                                               \
  INSTANTIATE_TEST_SUITE_P(Forms, suite, ::testing::Values(oru::Isa::avx2, oru::Isa::avx512, oru::Isa::neon), \
                           ::oru_test::isa_param_name)
#define ORU_FORM_SUITE_WITH_PLAIN(suite)                                                                 \
  INSTANTIATE_TEST_SUITE_P(Forms, suite,                                                                 \
                           ::testing::Values(oru::Isa::plain, oru::Isa::avx2, oru::Isa::avx512, oru::Isa::neon), \
                           ::oru_test::isa_param_name)

inline std::string isa_param_name(const ::testing::TestParamInfo<oru::Isa> &info) { return oru::isa_name(info.param); }

// Skips the test, naming the form, unless `forms` has a form for the test's instruction set
// that this host runs.
#define ORU_SKIP_UNLESS_FORM(forms, name)                                                          \
  if (!(forms).form(GetParam())) {                                                                 \
    GTEST_SKIP() << name << "_" << oru::isa_name(GetParam()) << " is not built for this architecture"; \
  }                                                                                                \
  if (!oru::isa_runs_here(GetParam())) {                                                           \
    GTEST_SKIP() << name << "_" << oru::isa_name(GetParam()) << " cannot run on this host";        \
  }                                                                                                \
  static_assert(true, "")

// `var` = the form of `forms` for the test's instruction set, or the test is skipped saying why.
#define ORU_FORM_UNDER_TEST(var, forms, name) \
  ORU_SKIP_UNLESS_FORM(forms, name);          \
  const auto var = (forms).form(GetParam())

// Calls visit(isa, form) with the form of `forms` for `isa`, when it exists and runs here.
template <typename Fn, typename Visit>
void run_form(const oru::KernelForms<Fn> &forms, oru::Isa isa, Visit &&visit) {
  const Fn f = forms.form(isa);
  if (f && oru::isa_runs_here(isa)) visit(isa, f);
}

// Lengths 0 to three widest vectors and a tail, and a few long ones: every whole-vector
// count and every tail of every instruction set.
inline std::vector<int64_t> swept_lengths() {
  std::vector<int64_t> n;
  for (int64_t i = 0; i <= 49; ++i) n.push_back(i);
  for (int64_t i : {63, 64, 65, 127, 128, 129, 1000, 1031}) n.push_back(i);
  return n;
}

// Random values in [lo, hi], a quarter of them replaced by ±0, NaN of both signs, ±inf,
// denormals and the largest finite values when `specials`, and by the kernel's own edge
// values `extra`.
template <typename T>
std::vector<T> hostile_values(size_t n, double lo, double hi, bool specials, uint32_t seed,
                              const std::vector<double> &extra = {}) {
  using L = std::numeric_limits<T>;
  std::vector<T> special;
  if constexpr (std::is_floating_point<T>::value) {
    if (specials)
      special = {T(0), -T(0), L::quiet_NaN(), -L::quiet_NaN(), L::infinity(), -L::infinity(),
                 L::denorm_min(), -L::denorm_min(), L::min() / T(3), L::max(), -L::max()};
  } else if (specials) {
    special = {L::min(), L::max()};
  }
  for (double e : extra) special.push_back(T(e));
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(lo, hi);
  std::vector<T> v(n);
  for (auto &x : v) x = !special.empty() && gen() % 4 == 0 ? special[gen() % special.size()] : T(dist(gen));
  return v;
}

template <typename T>
bool same_bits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Distance in units in the last place (0 for equal bits; any NaN matches any NaN here).
template <typename T>
double ulps(T a, T b) {
  if (same_bits(a, b) || (std::isnan(a) && std::isnan(b)) || a == b) return 0;
  if (std::isnan(a) || std::isnan(b) || std::isinf(a) || std::isinf(b)) return 1e300;
  return std::fabs(double(a) - double(b)) / (std::nextafter(std::fabs(b), std::numeric_limits<T>::infinity()) - std::fabs(b));
}

struct ElementwiseCheck {
  int inputs = 1;             // operand arrays
  double lo = -100, hi = 100; // range of the random values
  bool specials = true;       // mix in the special values (extra always)
  double max_ulps = 0;        // 0: bit for bit
  double abs_tol = 0;         // with max_ulps: also close enough within this (denormal results)
  std::vector<double> extra;  // the kernel's own edge values, mixed in with the specials
  // Two NaN operands: which one an add returns depends on operand order, which the compiler
  // may swap in the plain form; then any NaN matches any NaN.
  bool any_nan = false;
  // Each operand has in_scale * n + in_extra readable elements (a row kernel reads past n);
  // in_place: also run with y == x[0].
  int64_t in_scale = 1, in_extra = 0;
  bool in_place = true;
};

// Runs plain and form through call(fn, y, x, n) (x: the operand arrays of element type In,
// y of T) on every swept length, at start offsets 0, 1 and 3, out of place and in place
// (y == x[0], when In is T), with guard elements before and after y that must stay
// untouched; compares element by element. y starts as a sentinel value, so a kernel that
// accumulates into y is checked as well.
template <typename T, typename In = T, typename Fn, typename Call>
void check_elementwise(Fn plain, Fn form, const ElementwiseCheck &c, Call call) {
  constexpr int64_t kGuard = 16;
  const T sentinel = std::is_floating_point<T>::value ? T(-1234.5) : T(0x5A);
  uint32_t seed = 1;
  for (int64_t n : swept_lengths())
    for (int64_t off : {0, 1, 3}) {
      std::vector<std::vector<In>> in;
      std::vector<const In *> x;
      const int64_t len = c.in_scale * n + c.in_extra;
      for (int k = 0; k < c.inputs; ++k) in.push_back(hostile_values<In>(size_t(off + len), c.lo, c.hi, c.specials, seed++, c.extra));
      for (auto &v : in) x.push_back(v.data() + off);
      std::vector<T> want(size_t(off + n + kGuard), sentinel), got = want;
      call(plain, want.data() + off, x.data(), n);
      call(form, got.data() + off, x.data(), n);
      std::vector<T> inplace = got;
      if constexpr (std::is_same<T, In>::value) {
        if (c.in_place) {
          inplace = in[0];
          inplace.resize(size_t(off + n + kGuard), sentinel);
          x[0] = inplace.data() + off;
          call(form, inplace.data() + off, x.data(), n);
        }
      }
      for (int64_t i = 0; i < off + n + kGuard; ++i) {
        const bool inside = i >= off && i < off + n;
        for (const std::vector<T> *out : {&got, &inplace}) {
          const T g = (*out)[size_t(i)];
          if (!inside) {
            if (out == &got) {
              ASSERT_TRUE(same_bits(g, sentinel)) << "wrote outside y: n=" << n << " off=" << off << " i=" << i;
            }
            continue;
          }
          const T w = want[size_t(i)];
          if (c.max_ulps == 0) {
            ASSERT_TRUE(same_bits(g, w) || (c.any_nan && std::isnan(g) && std::isnan(w))) << (out == &got ? "" : "in place ") << "n=" << n << " off=" << off
                                         << " i=" << i << ": " << double(g) << " vs plain " << double(w);
          } else {
            ASSERT_TRUE(ulps(g, w) <= c.max_ulps || std::fabs(double(g) - double(w)) <= c.abs_tol) << (out == &got ? "" : "in place ") << "n=" << n << " i=" << i << ": "
                                              << double(g) << " vs plain " << double(w);
          }
        }
      }
      for (int64_t i = off + n; i < off + n + kGuard; ++i)
        ASSERT_TRUE(same_bits(inplace[size_t(i)], sentinel)) << "in place wrote past the end: n=" << n;
    }
}

}  // namespace oru_test

#endif
