// Q values that operators derive at prepare in a fixed-point graph, and the weights they
// convert, checked against the rules by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "ops_graph_support.h"
#include "oru_fixed.h"

namespace {

using ops_test::Net;

// A fixed-point graph with a Q list of its own: q[i] for node i.
struct FixedNet : Net {
  explicit FixedNet(std::vector<int32_t> q) : Net(16, ORU_CG_BACKEND_FIXED) {
    auto *list = static_cast<int32_t *>(oru_calloc(16, 4));
    for (size_t i = 0; i < q.size(); ++i) list[i] = q[i];
    EXPECT_EQ(oru_cg_set_ptr_q_list(h, list), 0u);
  }
  oru_tensor *fixed_tensor(const std::vector<int32_t> &dims) {
    oru_tensor *t = oru_create_tensor(int32_t(dims.size()), dims.data(), ai16s);
    tensors.push_back(t);
    return t;
  }
};

TEST(FixedPointQ, BiasTakesTheSmallerQMinusOneAndConvertsItsWeights) {
  FixedNet net({10, 0, 0});
  net.edge(0, 2);
  net.edge(1, 2);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.fixed_tensor({2, 2, 3})), 0u);
  // Largest magnitude 7.9: Q 12 holds up to 8 - 2^-12.
  ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_WEIGHT, net.tensor({3}, {7.9f, -1.25f, 0.5f})), 0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_BIAS), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  EXPECT_EQ(oru_cg_get_q_from_list(net.h, 2), 9);
  auto *c = static_cast<oru_cg_binary_context *>(net.h->contexts[2]);
  EXPECT_EQ(c->q_a, 10);
  EXPECT_EQ(c->q_b, 12);
  ASSERT_NE(c->input_b, nullptr);
  ASSERT_EQ(c->input_b->type, uint32_t(ai16s));
  const auto *b = static_cast<const int16_t *>(c->input_b->data);
  EXPECT_EQ(b[0], int16_t(std::lrint(7.9f * 4096.0f)));
  EXPECT_EQ(b[1], -5120);
  EXPECT_EQ(b[2], 2048);
}

TEST(FixedPointQ, Bn1dQuartersEachGetTheirOwnQ) {
  FixedNet net({11});
  oru_cg_bn_params p{0, 1e-5f};
  net.edge(0, 2);
  net.edge(1, 2);
  ASSERT_EQ(net.sort(), 0u);
  ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.fixed_tensor({2})), 0u);
  // gamma up to 3 (Q 13), beta 0.5 (Q 15), mean 20 (Q 10), var 100 (Q 8).
  ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_WEIGHT, net.tensor({8}, {3.0f, 1.0f, 0.5f, 0.25f, 20.0f, 1.0f, 100.0f, 2.0f})),
            0u);
  ASSERT_EQ(net.bind_op(2, ORU_CG_OP_BN1D, &p), 0u);
  ASSERT_EQ(net.prepare(), 0u);
  auto *c = static_cast<oru_cg_bn_context *>(net.h->contexts[2]);
  EXPECT_EQ(c->q_gamma, 13);
  EXPECT_EQ(c->q_beta, 15);
  EXPECT_EQ(c->q_mean, 10);
  EXPECT_EQ(c->q_var, 8);
  EXPECT_EQ(c->q_in, 11);
  // max(min(13, 8), 8)
  EXPECT_EQ(oru_cg_get_q_from_list(net.h, 2), 8);
  const auto *w = static_cast<const int16_t *>(c->weights->data);
  EXPECT_EQ(w[0], 3 << 13);
  EXPECT_EQ(w[2], 1 << 14);
  EXPECT_EQ(w[6], 100 << 8);
}

TEST(FixedPointQ, ConcatTakesTheSmallestAndReshapeCarriesItsInput) {
  for (const auto &qs : {std::vector<int32_t>{12, 9}, std::vector<int32_t>{20, 20}}) {
    FixedNet net({qs[0], qs[1], 0, 0});
    const int32_t ids[2] = {0, 1};
    oru_cg_concat_params cp{2, 2, ids};
    oru_cg_reshape_params rp{1, {-1, 0, 0, 0, 0}};
    net.edge(0, 2);
    net.edge(1, 2);
    net.edge(2, 3);
    ASSERT_EQ(net.sort(), 0u);
    ASSERT_EQ(net.bind_tensor(0, ORU_CG_OP_INPUT, net.fixed_tensor({2, 2, 1})), 0u);
    ASSERT_EQ(net.bind_tensor(1, ORU_CG_OP_INPUT, net.fixed_tensor({2, 2, 2})), 0u);
    ASSERT_EQ(net.bind_op(2, ORU_CG_OP_CONCAT, &cp), 0u);
    ASSERT_EQ(net.bind_op(3, ORU_CG_OP_RESHAPE, &rp), 0u);
    ASSERT_EQ(net.prepare(), 0u);
    const int32_t want = std::min(15, std::min(qs[0], qs[1]));
    EXPECT_EQ(oru_cg_get_q_from_list(net.h, 2), want);
    EXPECT_EQ(oru_cg_get_q_from_list(net.h, 3), want);
    EXPECT_EQ(net.out(3)->total_elements, 12);
  }
}

}  // namespace
