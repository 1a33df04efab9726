// Linear sum assignment: optimal totals against SciPy on seeded matrices, brute force on
// small ones, the tie rules, refusals, and every scan form against the plain one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/oru_dispatch.h"
#include "oru_form_tester.h"
#include "oru_test_util.h"
#include "oru_tracking.h"
#include "tracking/oru_tracking_internal.h"

namespace {

const float kInf = std::numeric_limits<float>::infinity();

// A dense aif32 matrix the test owns, seen through an oru_matrix record.
struct Costs {
  int rows, cols;
  std::vector<float> v;
  oru_matrix m{};
  Costs(int r, int c, std::vector<float> values) : rows(r), cols(c), v(std::move(values)) { bind(); }
  void bind() {
    m = oru_matrix{};
    m.kind = 4;
    m.type = aif32;
    m.data = v.data();
    m.rows = rows;
    m.cols = cols;
    m.depth = 1;
    m.stride = int64_t(cols) * 4;
    m.owns_data = 0;
    m.reserved_one = 1;
    m.channel_bytes = 4;
    m.channels = 1;
    m.format = 15;
  }
  float at(int r, int c) const { return v[size_t(r) * cols + c]; }
};

using Pairs = std::vector<std::pair<int, int>>;

// Runs the assignment and checks the shape of its result: min(rows, cols) pairs, each
// row and column at most once, ordered as the caller's shorter side.
bool solve(const Costs &c, int maximize, Pairs *out, oru::LsaRelaxFn relax = nullptr) {
  oru_linear_sum_assignment *a = relax ? oru::linear_sum_assignment_with(&c.m, maximize, relax)
                                      : oru_create_linear_sum_assignment(&c.m, maximize);
  if (!a) return false;
  out->clear();
  for (int k = 0; k < a->count; ++k) out->emplace_back(a->pairs[2 * k], a->pairs[2 * k + 1]);
  EXPECT_EQ(a->count, std::min(c.rows, c.cols));
  std::vector<int> row_used(c.rows), col_used(c.cols);
  for (size_t k = 0; k < out->size(); ++k) {
    const auto [r, col] = (*out)[k];
    EXPECT_TRUE(r >= 0 && r < c.rows && col >= 0 && col < c.cols) << r << "," << col;
    if (r < 0 || r >= c.rows || col < 0 || col >= c.cols) break;
    EXPECT_EQ(row_used[r]++, 0);
    EXPECT_EQ(col_used[col]++, 0);
    if (k > 0) {
      EXPECT_LT(c.rows <= c.cols ? (*out)[k - 1].first : (*out)[k - 1].second, c.rows <= c.cols ? r : col);
    }
  }
  EXPECT_EQ(oru_release_linear_sum_assignment(&a), ORU_RET_OK);
  EXPECT_EQ(a, nullptr);
  return true;
}

double total(const Costs &c, const Pairs &p) {
  double s = 0;
  for (auto [r, col] : p) s += double(c.at(r, col));
  return s;
}

// Exhaustive optimum over all injections of the shorter side into the longer one.
double brute_force(const Costs &c, bool maximize) {
  const bool t = c.rows > c.cols;
  const int nr = t ? c.cols : c.rows, nc = t ? c.rows : c.cols;
  std::vector<int> cols(nc);
  std::iota(cols.begin(), cols.end(), 0);
  double best = maximize ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
  do {
    double s = 0;
    for (int r = 0; r < nr; ++r) s += t ? c.at(cols[r], r) : c.at(r, cols[r]);
    best = maximize ? std::max(best, s) : std::min(best, s);
  } while (std::next_permutation(cols.begin(), cols.end()));
  return best;
}

// The generator of tests/oracles/lsa_scipy.py, step for step.
struct SplitMix {
  uint64_t state;
  uint64_t next() {
    state += 0x9E3779B97F4A7C15ull;
    uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  double unit() { return double(next() >> 40) / double(1 << 24); }
};

Costs make(int number, int *maximize) {
  SplitMix g{uint64_t(number) * 1000003u + 12345u};
  const int rows = 1 + int(g.next() % 60);
  int cols = 1 + int(g.next() % 80);
  if (g.next() % 4 == 0) cols = std::min(rows, 80);
  const int kind = int(g.next() % 10);
  *maximize = int(g.next() % 2);
  std::vector<float> v(size_t(rows) * cols);
  std::vector<double> base;
  if (kind == 3)
    for (int k = 0; k < 3 * cols; ++k) base.push_back(g.unit());
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      double x;
      switch (kind) {
        case 0: x = g.unit(); break;
        case 1: x = double(g.next() % 4); break;
        case 2: x = double(g.next() % 100) - 50.0; break;
        case 3: x = base[size_t(r % 3) * cols + c]; break;
        case 4: x = g.unit() * std::ldexp(1.0, 100); break;
        case 5: x = g.unit() * std::ldexp(1.0, -100); break;
        case 6: x = 7.0; break;
        case 7: x = g.unit() * std::ldexp(1.0, int(g.next() % 60) - 30); break;
        default: {
          const double u = g.unit();
          const double limit = kind == 8 ? 0.1 : 0.6;
          x = u < limit ? double(kInf) : g.unit() - 0.5;
        }
      }
      v[size_t(r) * cols + c] = float(x);
    }
  return Costs(rows, cols, std::move(v));
}

TEST(LinearSumAssignment, MatchesScipyTotalsOnSeededMatrices) {
  std::ifstream in(oru_test::data_path("tracking/lsa_scipy.txt"));
  ASSERT_TRUE(in) << "missing oracle file";
  std::string line;
  int checked = 0, refused = 0, brute = 0;
  testing::internal::CaptureStdout();
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    int number, rows, cols, maximize_file;
    std::string expect;
    ls >> number >> rows >> cols >> maximize_file >> expect;
    int maximize;
    const Costs c = make(number, &maximize);
    ASSERT_EQ(c.rows, rows) << number;
    ASSERT_EQ(c.cols, cols) << number;
    ASSERT_EQ(maximize, maximize_file) << number;
    Pairs p;
    const bool ok = solve(c, maximize, &p);
    if (expect == "refused") {
      EXPECT_FALSE(ok) << number;
      ++refused;
      continue;
    }
    ASSERT_TRUE(ok) << number;
    const double want = std::strtod(expect.c_str(), nullptr);
    double scale = 0;
    for (auto [r, col] : p) scale += std::fabs(double(c.at(r, col)));
    EXPECT_NEAR(total(c, p), want, 1e-12 * scale) << "matrix " << number;
    if (rows <= 7 && cols <= 7) {
      EXPECT_NEAR(total(c, p), brute_force(c, maximize), 1e-12 * scale) << "matrix " << number;
      ++brute;
    }
    ++checked;
  }
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(checked + refused, 3000);
  EXPECT_GT(refused, 0);
  EXPECT_GT(brute, 0);
  // Each refusal printed the one line, and nothing else was printed.
  size_t lines = 0;
  for (size_t at = out.find("infeasible cost matrix\n"); at != std::string::npos;
       at = out.find("infeasible cost matrix\n", at + 1))
    ++lines;
  EXPECT_EQ(lines, size_t(refused));
  EXPECT_EQ(out.size(), lines * std::string("infeasible cost matrix\n").size());
}

TEST(LinearSumAssignment, BruteForceOnSmallRandomMatrices) {
  std::mt19937 gen(7);
  for (int trial = 0; trial < 600; ++trial) {
    const int rows = 1 + int(gen() % 7), cols = 1 + int(gen() % 7);
    const bool integers = trial % 2 == 0;
    std::vector<float> v(size_t(rows) * cols);
    for (auto &x : v) x = integers ? float(int(gen() % 5) - 2) : std::uniform_real_distribution<float>(-3, 3)(gen);
    const Costs c(rows, cols, v);
    for (int maximize = 0; maximize < 2; ++maximize) {
      Pairs p;
      ASSERT_TRUE(solve(c, maximize, &p));
      EXPECT_NEAR(total(c, p), brute_force(c, maximize), 1e-9) << rows << "x" << cols << " trial " << trial;
    }
  }
}

TEST(LinearSumAssignment, TieRulesAndSmallCases) {
  Pairs p;
  const Costs two(2, 2, {1, 2, 2, 1});
  ASSERT_TRUE(solve(two, 0, &p));
  EXPECT_EQ(p, (Pairs{{0, 0}, {1, 1}}));
  ASSERT_TRUE(solve(two, 1, &p));
  EXPECT_EQ(p, (Pairs{{0, 1}, {1, 0}}));

  const Costs one(1, 1, {-4});
  ASSERT_TRUE(solve(one, 0, &p));
  EXPECT_EQ(p, (Pairs{{0, 0}}));

  // Equal costs everywhere: the scan runs down the columns and a later free column wins,
  // so row k ends on column k, in the transposed case too.
  for (int n : {1, 3, 6}) {
    const Costs flat(n, n + 2, std::vector<float>(size_t(n) * (n + 2), 5.0f));
    ASSERT_TRUE(solve(flat, 0, &p));
    for (int k = 0; k < n; ++k) EXPECT_EQ(p[k], std::make_pair(k, k));
    const Costs tall(n + 2, n, std::vector<float>(size_t(n) * (n + 2), 5.0f));
    ASSERT_TRUE(solve(tall, 1, &p));
    for (int k = 0; k < n; ++k) EXPECT_EQ(p[k], std::make_pair(k, k));
  }

  // 3 x 2: the row numbers are the caller's, ordered by column.
  const Costs tall(3, 2, {9, 9, 9, 0, 0, 9});
  ASSERT_TRUE(solve(tall, 0, &p));
  EXPECT_EQ(p, (Pairs{{2, 0}, {1, 1}}));

  // Negative costs are served as well as positive ones.
  const Costs neg(2, 3, {-10, -1, -1, -1, -1, -10});
  ASSERT_TRUE(solve(neg, 0, &p));
  EXPECT_EQ(p, (Pairs{{0, 0}, {1, 2}}));
}

TEST(LinearSumAssignment, RefusalsAndForbiddenPairs) {
  Pairs p;
  // A row with nowhere to go prints the line and gives null.
  testing::internal::CaptureStdout();
  const Costs blocked(2, 3, {1, 2, 3, kInf, kInf, kInf});
  EXPECT_FALSE(solve(blocked, 0, &p));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "infeasible cost matrix\n");

  // NaN is never chosen: it behaves as a forbidden pair.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Costs holes(3, 3, {nan, 1, 1, 1, nan, 1, 1, 1, nan});
  ASSERT_TRUE(solve(holes, 0, &p));
  for (auto [r, c] : p) EXPECT_NE(r, c);
  testing::internal::CaptureStdout();
  const Costs all_nan(2, 2, {nan, nan, nan, nan});
  EXPECT_FALSE(solve(all_nan, 0, &p));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "infeasible cost matrix\n");

  // Forbidden pairs steer the minimum around them.
  const Costs forbid(2, 2, {0, kInf, 0, 100});
  ASSERT_TRUE(solve(forbid, 0, &p));
  EXPECT_EQ(p, (Pairs{{0, 0}, {1, 1}}));
  const Costs around(2, 2, {kInf, 5, 1, 100});
  ASSERT_TRUE(solve(around, 0, &p));
  EXPECT_EQ(p, (Pairs{{0, 1}, {1, 0}}));

  // Null and malformed cost matrices.
  EXPECT_EQ(oru_create_linear_sum_assignment(nullptr, 0), nullptr);
  Costs wrong(2, 2, {1, 2, 3, 4});
  wrong.m.type = aif64;
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_linear_sum_assignment(&wrong.m, 0), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);
  oru_linear_sum_assignment *none = nullptr;
  EXPECT_EQ(oru_release_linear_sum_assignment(&none), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_linear_sum_assignment(nullptr), ORU_RET_ERR_PARA);
}

TEST(LinearSumAssignment, PaddedRowsAreReadThroughTheStride) {
  // The same 3 x 4 problem, once packed and once with rows of 7 floats.
  std::mt19937 gen(3);
  std::vector<float> packed(12), padded(21, std::numeric_limits<float>::quiet_NaN());
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 4; ++c) packed[r * 4 + c] = padded[r * 7 + c] = float(gen() % 10);
  Costs a(3, 4, packed), b(3, 4, padded);
  b.m.stride = 7 * 4;
  Pairs pa, pb;
  ASSERT_TRUE(solve(a, 0, &pa));
  ASSERT_TRUE(solve(b, 0, &pb));
  EXPECT_EQ(pa, pb);
}

// The search as its description reads, walking the list of remaining columns with the
// last entry moved into each freed place; written here from the description alone, so
// the library's column-order walk with ranks is held to the same choices among ties.
Pairs literal_assignment(const Costs &cost, bool maximize) {
  const bool t = cost.rows > cost.cols;
  const int nr = t ? cost.cols : cost.rows, nc = t ? cost.rows : cost.cols;
  std::vector<double> c(size_t(nr) * nc);
  for (int r = 0; r < nr; ++r)
    for (int k = 0; k < nc; ++k) c[size_t(r) * nc + k] = (maximize ? -1.0 : 1.0) * double(t ? cost.at(k, r) : cost.at(r, k));
  double m = std::numeric_limits<float>::max();
  for (double x : c) m = std::min(m, x);
  for (double &x : c) x -= m;
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> u(nr, 0), v(nc, 0), shortest(nc);
  std::vector<int> col4row(nr, -1), row4col(nc, -1), path(nc, -1);
  for (int cur = 0; cur < nr; ++cur) {
    std::vector<int> remaining;
    for (int j = nc - 1; j >= 0; --j) remaining.push_back(j);
    std::fill(shortest.begin(), shortest.end(), inf);
    std::vector<bool> sr(nr, false), sc(nc, false);
    double min_val = 0;
    int i = cur, sink = -1;
    while (sink == -1) {
      sr[i] = true;
      double lowest = inf;
      int index = -1;
      for (size_t it = 0; it < remaining.size(); ++it) {
        const int j = remaining[it];
        const double r = min_val + c[size_t(i) * nc + j] - u[i] - v[j];
        if (r < shortest[j]) {
          path[j] = i;
          shortest[j] = r;
        }
        if (shortest[j] < lowest || (shortest[j] == lowest && row4col[j] == -1)) {
          lowest = shortest[j];
          index = int(it);
        }
      }
      min_val = lowest;
      if (min_val == inf) return {};
      const int j = remaining[index];
      if (row4col[j] == -1)
        sink = j;
      else
        i = row4col[j];
      sc[j] = true;
      remaining[index] = remaining.back();
      remaining.pop_back();
    }
    u[cur] += min_val;
    for (int r = 0; r < nr; ++r)
      if (sr[r] && r != cur) u[r] += min_val - shortest[col4row[r]];
    for (int j = 0; j < nc; ++j)
      if (sc[j]) v[j] -= min_val - shortest[j];
    int j = sink, r;
    do {
      r = path[j];
      row4col[j] = r;
      std::swap(col4row[r], j);
    } while (r != cur);
  }
  Pairs p;
  for (int k = 0; k < nr; ++k) p.emplace_back(t ? col4row[k] : k, t ? k : col4row[k]);
  return p;
}

// Every form, the plain one too, against the literal search.
class LsaRelaxForms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE_WITH_PLAIN(LsaRelaxForms);

TEST_P(LsaRelaxForms, EveryRelaxFormChoosesAsTheDescribedSearch) {
  ORU_SKIP_UNLESS_FORM(ORU_KERNEL_FORMS(oru::lsa_relax), "lsa_relax");
  const auto forms = ORU_KERNEL_FORMS(oru::lsa_relax);
  int compared = 0;
  std::mt19937 gen(11);
  for (int trial = 0; trial < 400; ++trial) {
    // Sizes around every vector width and tail; small integer ranges make many ties, so
    // the choice among equal columns is checked as well as the optimum.
    const int rows = 1 + int(gen() % 40), cols = 1 + int(gen() % 40);
    std::vector<float> v(size_t(rows) * cols);
    const int span = trial % 4 == 0 ? 2 : trial % 4 == 1 ? 5 : 1000;
    for (auto &x : v) x = trial % 4 == 3 ? std::uniform_real_distribution<float>(-1, 1)(gen) : float(int(gen() % span));
    const Costs c(rows, cols, v);
    const int maximize = (trial / 4) % 2;
    const Pairs want = literal_assignment(c, maximize);
    ASSERT_FALSE(want.empty());
    oru_test::run_form(forms, GetParam(), [&](oru::Isa isa, oru::LsaRelaxFn fn) {
      Pairs got;
      ASSERT_TRUE(solve(c, maximize, &got, fn));
      EXPECT_EQ(got, want) << oru::isa_name(isa) << " " << rows << "x" << cols << " trial " << trial;
      ++compared;
    });
  }
  EXPECT_GE(compared, 400);
}

}  // namespace
