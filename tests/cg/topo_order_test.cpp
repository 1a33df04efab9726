#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "oru_cg.h"

namespace {

using Edges = std::vector<std::pair<int32_t, int32_t>>;

// The reference order, written from the rule alone: a FIFO queue seeded with the
// sources in rising id order; a node's targets are visited in the order their edges
// were added; a target joins the queue when its last in-edge is consumed.
std::vector<int32_t> reference_order(int32_t n, const Edges &edges, bool *complete) {
  std::vector<std::vector<int32_t>> out(static_cast<size_t>(n));
  std::vector<int32_t> indegree(static_cast<size_t>(n), 0);
  for (const auto &e : edges) {
    out[size_t(e.first)].push_back(e.second);
    ++indegree[size_t(e.second)];
  }
  std::deque<int32_t> queue;
  for (int32_t i = 0; i < n; ++i)
    if (indegree[size_t(i)] == 0) queue.push_back(i);
  std::vector<int32_t> order;
  while (!queue.empty()) {
    const int32_t v = queue.front();
    queue.pop_front();
    order.push_back(v);
    for (int32_t t : out[size_t(v)])
      if (--indegree[size_t(t)] == 0) queue.push_back(t);
  }
  *complete = int32_t(order.size()) == n;
  return order;
}

// A random DAG on ids 0..n-1 (ranked by a random permutation), edges added in random
// order, a few of them twice; every id appears in some edge.
Edges random_dag(int32_t n, std::mt19937 &gen) {
  std::vector<int32_t> rank(static_cast<size_t>(n));
  std::iota(rank.begin(), rank.end(), 0);
  std::shuffle(rank.begin(), rank.end(), gen);
  Edges edges;
  for (int32_t i = 1; i < n; ++i) {  // a spanning chain of random parents keeps every id present
    const int32_t parent = rank[gen() % uint32_t(i)];
    edges.push_back({parent, rank[size_t(i)]});
  }
  const int32_t extra = int32_t(gen() % uint32_t(2 * n + 1));
  for (int32_t k = 0; k < extra; ++k) {
    int32_t a = int32_t(gen() % uint32_t(n)), b = int32_t(gen() % uint32_t(n));
    if (a == b) continue;
    if (a > b) std::swap(a, b);
    edges.push_back({rank[size_t(a)], rank[size_t(b)]});
    if (gen() % 8 == 0) edges.push_back(edges.back());
  }
  std::shuffle(edges.begin(), edges.end(), gen);
  return edges;
}

oru_cg_handle *graph_of(const Edges &edges) {
  testing::internal::CaptureStdout();
  oru_cg_handle *h = oru_create_computation_graph_handle(nullptr);
  testing::internal::GetCapturedStdout();
  for (const auto &e : edges)
    if (oru_add_one_edge_into_computation_graph(h, e.first, e.second) != ORU_RET_OK) ADD_FAILURE();
  return h;
}

TEST(TopoOrder, MatchesTheReferenceOnRandomDags) {
  std::mt19937 gen(2024);
  for (int round = 0; round < 300; ++round) {
    const int32_t n = int32_t(gen() % 60) + 2;
    const Edges edges = random_dag(n, gen);
    oru_cg_handle *h = graph_of(edges);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(h->nodes->size, n);
    ASSERT_EQ(oru_computation_graph_topo_sort(h), ORU_RET_OK) << "round " << round;
    bool complete = false;
    const auto want = reference_order(n, edges, &complete);
    ASSERT_TRUE(complete);
    const std::vector<int32_t> got(h->topo_order, h->topo_order + n);
    EXPECT_EQ(got, want) << "round " << round;
    // And it is a topological order at all: every edge goes forward.
    std::vector<int32_t> position(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i) position[size_t(got[size_t(i)])] = i;
    for (const auto &e : edges) ASSERT_LT(position[size_t(e.first)], position[size_t(e.second)]);
    oru_release_computation_graph_handle(&h);
  }
}

TEST(TopoOrder, CyclesAreFoundAndThePartialOrderKept) {
  std::mt19937 gen(77);
  for (int round = 0; round < 100; ++round) {
    const int32_t n = int32_t(gen() % 30) + 2;
    Edges edges = random_dag(n, gen);
    // Close a cycle: an edge back from a node to one of its ancestors on the chain.
    const auto e = edges[gen() % edges.size()];
    edges.push_back({e.second, e.first});
    oru_cg_handle *h = graph_of(edges);
    testing::internal::CaptureStdout();
    EXPECT_EQ(oru_computation_graph_topo_sort(h), ORU_RET_ERR_UNKNOWN);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("There exists a cycle in the graph"), std::string::npos);
    bool complete = true;
    const auto want = reference_order(n, edges, &complete);
    EXPECT_FALSE(complete);
    const std::vector<int32_t> got(h->topo_order, h->topo_order + want.size());
    EXPECT_EQ(got, want);
    oru_release_computation_graph_handle(&h);
  }
}

TEST(TopoOrder, SortingTwiceGivesTheSameOrderAndNewNodesAreRefusedAfterIt) {
  const Edges edges = {{3, 1}, {0, 1}, {1, 2}, {0, 2}};
  oru_cg_handle *h = graph_of(edges);
  ASSERT_EQ(oru_computation_graph_topo_sort(h), ORU_RET_OK);
  const std::vector<int32_t> first(h->topo_order, h->topo_order + 4);
  EXPECT_EQ(first, (std::vector<int32_t>{0, 3, 1, 2}));
  ASSERT_EQ(oru_computation_graph_topo_sort(h), ORU_RET_OK);
  EXPECT_EQ(std::vector<int32_t>(h->topo_order, h->topo_order + 4), first);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_add_one_edge_into_computation_graph(h, 2, 4), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(h->nodes->size, 4);
  oru_release_computation_graph_handle(&h);
}

}  // namespace
