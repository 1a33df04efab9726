// Kahn's sort of the graph with a circular queue: the order depends only on the ids
// and on the order in which the edges were added.
#include "cg/oru_cg_internal.h"
#include "core/oru_report.h"

namespace {

struct IdQueue {
  int32_t *storage;
  int32_t front;
  int32_t rear;
  int32_t size;
  int32_t capacity;
};

void enqueue(IdQueue *q, int32_t id) {
  if (q->size == q->capacity) {
    ORU_REPORT_STATUS(ORU_RET_ERR_WAITING);
    return;
  }
  q->rear = (q->rear + 1) % q->capacity;
  q->storage[q->rear] = id;
  ++q->size;
}

int32_t dequeue(IdQueue *q) {
  q->front = (q->front + 1) % q->capacity;
  --q->size;
  return q->storage[q->front];
}

const int32_t *targets(const oru_darray *list) { return static_cast<const int32_t *>(list->data); }

uint32_t release_queue(IdQueue **q) {
  oru_free((*q)->storage);
  oru_free(*q);
  *q = nullptr;
  return ORU_RET_OK;
}

}  // namespace

extern "C" ORU_API uint32_t oru_computation_graph_topo_sort(oru_cg_handle *handle) {
  if (!handle) ORU_FAIL(ORU_RET_ERR_PARA);
  const int32_t n = oru::cg_node_count(handle);
  if (n == 0) return ORU_RET_OK;
  // Every table is indexed by id and sized by N, so the ids must be exactly 0 to N - 1.
  const int32_t *node_ids = static_cast<const int32_t *>(handle->nodes->data);
  for (int32_t i = 0; i < n; ++i)
    if (node_ids[i] >= n) ORU_FAIL(ORU_RET_ERR_PARA);

  oru::Scratch<int32_t> in_degree(n, true);
  if (!in_degree) ORU_FAIL(ORU_RET_ERR_MEMORY);
  for (int32_t i = 0; i < n; ++i) {
    const oru_darray *out = handle->out_edges[i];
    for (int64_t e = 0; out && e < out->size; ++e) ++in_degree[targets(out)[e]];
  }

  oru::Guard<IdQueue, release_queue> queue(oru::alloc_zeroed<IdQueue>());
  if (!queue.get()) ORU_FAIL(ORU_RET_ERR_MEMORY);
  queue->front = queue->rear = -1;
  queue->capacity = 8 * n;
  queue->storage = static_cast<int32_t *>(oru_malloc(int64_t(queue->capacity) * int64_t(sizeof(int32_t))));
  if (!queue->storage) ORU_FAIL(ORU_RET_ERR_MEMORY);

  if (!handle->topo_order) handle->topo_order = static_cast<int32_t *>(oru_calloc(n, sizeof(int32_t)));
  if (!handle->bound) handle->bound = static_cast<uint32_t *>(oru_calloc(n, sizeof(uint32_t)));
  if (!handle->topo_order || !handle->bound) ORU_FAIL(ORU_RET_ERR_MEMORY);

  for (int32_t i = 0; i < n; ++i)
    if (in_degree[i] == 0) enqueue(queue.get(), i);
  int32_t visited = 0;
  while (queue->size > 0) {
    const int32_t node = dequeue(queue.get());
    handle->topo_order[visited++] = node;
    const oru_darray *out = handle->out_edges[node];
    for (int64_t e = 0; out && e < out->size; ++e) {
      const int32_t t = targets(out)[e];
      if (--in_degree[t] == 0) enqueue(queue.get(), t);
    }
  }
  if (visited != n) ORU_FAIL_MSG(ORU_RET_ERR_UNKNOWN, "There exists a cycle in the graph");
  return ORU_RET_OK;
}
