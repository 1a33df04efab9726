// Loads a network file and its weight file into a computation graph through the graph's
// own calls: create, edges, sort, bind. Weight nodes get the ids after the file's nodes,
// one per node with weights, each a header over its range of the weight words.
#include <cstdio>
#include <cstring>

#include "cg/oru_cg_net_internal.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"

struct oru_cg_net {
  oru_cg_handle *graph;
  oru::NetFile file;
  float *words;          // the weight file's words, read whole
  oru_tensor **tensors;  // per id (file nodes, then weight nodes): inputs and weight headers
  int32_t tensor_count;
};

namespace oru {
namespace {

constexpr int64_t kMaxNetFileBytes = int64_t(64) << 20;

struct File {
  explicit File(const char *path) : f(std::fopen(path, "rb")) {}
  ~File() {
    if (f) std::fclose(f);
  }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  // Length in bytes, or -1.
  int64_t size() const {
    if (!f || std::fseek(f, 0, SEEK_END) != 0) return -1;
    const long n = std::ftell(f);
    if (n < 0 || std::fseek(f, 0, SEEK_SET) != 0) return -1;
    return n;
  }
  FILE *f;
};

uint32_t read_text(Scratch<char> *text, int64_t *size, const char *path) {
  File file(path);
  if (!file.f) return net_refuse(ORU_RET_ERR_OPEN_FILE, path, 0, "cannot open the network file");
  *size = file.size();
  if (*size < 0 || *size > kMaxNetFileBytes)
    return net_refuse(ORU_RET_ERR_PARA, path, 0, "the network file is unreadable or larger than 64 MiB");
  if (!text->reset(*size + 1)) ORU_FAIL(ORU_RET_ERR_MEMORY);
  if (int64_t(std::fread(text->get(), 1, size_t(*size), file.f)) != *size)
    return net_refuse(ORU_RET_ERR_PARA, path, 0, "cannot read the network file");
  return ORU_RET_OK;
}

// The weight file must hold exactly the words the network file announces, then the digest.
uint32_t read_weights(oru_cg_net *net, const char *path, const char *origin) {
  const int64_t words = net->file.weight_words;
  {
    File file(path);
    if (!file.f) return net_refuse(ORU_RET_ERR_OPEN_FILE, path, 0, "cannot open the weight file");
    const int64_t size = file.size();
    if (size != words * 4 + 16)
      return net_refuse(ORU_RET_ERR_DATA_LENGTH, path, 0,
                        "the weight file holds %lld bytes where %s announces %lld words and a 16-byte digest",
                        (long long)size, origin, (long long)words);
  }
  net->words = static_cast<float *>(oru_malloc((words > 0 ? words : 1) * 4));
  if (!net->words) ORU_FAIL(ORU_RET_ERR_MEMORY);
  if (oru_cg_load_model(net->words, int32_t(words), path) != 0)
    return net_refuse(ORU_RET_ERR_PARA, path, 0, "the weight file does not match its MD5 digest");
  return ORU_RET_OK;
}

int32_t as_int(double v) { return int32_t(v); }

oru_conv2d_params conv_params(const double *p) {
  const oru_conv2d_params c = {as_int(p[0]),  as_int(p[1]),  as_int(p[2]),  as_int(p[3]), as_int(p[4]),
                               as_int(p[5]),  as_int(p[6]),  as_int(p[7]),  as_int(p[8]), as_int(p[9]),
                               as_int(p[10]), as_int(p[11]), as_int(p[12]), as_int(p[13])};
  return c;
}

// The sampling operator's record: mode, horizontal and vertical factor, a word not read,
// corner alignment.
struct SampleParams {
  int32_t mode;
  float scale_w;
  float scale_h;
  int32_t unused;
  int32_t align_corners;
};

uint32_t bind(oru_cg_handle *g, int32_t id, int32_t op, oru_tensor *tensor, const void *params) {
  oru_cg_node_desc desc;
  std::memset(&desc, 0, sizeof desc);
  desc.op_type = op;
  desc.tensor = tensor;
  return oru_bind_operator_onto_computation_graph(g, id, &desc, params);
}

bool is_method_bound(int32_t op) {
  return op == ORU_CG_OP_STD_CONV2D || op == ORU_CG_OP_DEPTHWISE_CONV2D || op == ORU_CG_OP_POINTWISE_CONV2D ||
         op == ORU_CG_OP_CONV2D_ACT || op == ORU_CG_OP_CONV2D_BN2D_ACT;
}

// The faster kernel family for a convolution's shape: im2col + GEMM for full kernels larger
// than 1x1 at stride 1, the direct kernels (register-tiled pointwise, stride-2 and
// depthwise loops) for everything else.
uint32_t per_layer_method(const oru_conv2d_params &c) {
  const bool full_stride1 = c.groups == 1 && (c.kernel_w > 1 || c.kernel_h > 1) && c.stride_w == 1 && c.stride_h == 1;
  return full_stride1 ? ORU_CG_CONV_IM2COL_GEMM : ORU_CG_CONV_DIRECT_CHW;
}

// The shapes the packed HWG kernels serve: 3x3 at stride 1 or 2 with padding 1, and 1x1 at
// stride 1 without padding; full or depthwise, no dilation.
bool packed_serves(const oru_conv2d_params &c) {
  const bool full_or_depthwise = c.groups == 1 || (c.groups == c.in_channels && c.groups == c.out_channels);
  const bool no_dilation = c.dilation_w <= 1 && c.dilation_h <= 1;
  const bool k3 = c.kernel_w == 3 && c.kernel_h == 3 && c.pad_w == 1 && c.pad_h == 1 && c.stride_w == c.stride_h &&
                  (c.stride_w == 1 || c.stride_w == 2);
  const bool k1 = c.kernel_w == 1 && c.kernel_h == 1 && c.pad_w == 0 && c.pad_h == 0 && c.stride_w == 1 &&
                  c.stride_h == 1 && c.groups == 1;
  return full_or_depthwise && no_dilation && (k3 || k1);
}

// Whether every node that reads node id is a convolution: then its output may stay in the
// packed layout, which the next convolution reads without a conversion pass.
bool feeds_only_convolutions(const NetFile &f, int32_t id) {
  bool any = false;
  for (int32_t j = 0; j < f.node_count; ++j)
    for (int32_t k = 0; k < f.nodes[j].input_count; ++k)
      if (f.nodes[j].inputs[k] == id) {
        if (!is_method_bound(f.nodes[j].op)) return false;
        any = true;
      }
  return any;
}

// The per-layer choice for a float network: chains of convolutions in the packed HWG layout,
// and a convolution whose output leaves the chain in the faster of the planar families.
uint32_t layer_method(const NetFile &f, int32_t id) {
  const oru_conv2d_params c = conv_params(f.nodes[id].params);
  if (f.backend == int32_t(ORU_CG_BACKEND_FIXED)) return ORU_CG_CONV_DIRECT_CHW;
  if (packed_serves(c) && feeds_only_convolutions(f, id)) return ORU_CG_CONV_PACKED_HWG;
  return per_layer_method(c);
}

// One operator node: its parameter record, built from the line, then the bind call.
uint32_t bind_operator(oru_cg_net *net, int32_t id, int32_t method) {
  const NetNode &n = net->file.nodes[id];
  const double *p = n.params;
  oru_cg_handle *g = net->graph;
  if (is_method_bound(n.op)) {
    const uint32_t m = method == ORU_CG_NET_METHOD_PER_LAYER ? layer_method(net->file, id) : uint32_t(method);
    const uint32_t st = oru_cg_set_conv_method(g, m);
    if (st) return st;
  }
  switch (n.op) {
    case ORU_CG_OP_STD_CONV2D:
    case ORU_CG_OP_DEPTHWISE_CONV2D:
    case ORU_CG_OP_POINTWISE_CONV2D:
    case ORU_CG_OP_DILATED_CONV2D:
    case ORU_CG_OP_TRANSPOSED_CONV2D: {
      const oru_conv2d_params c = conv_params(p);
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_CONV2D_ACT: {
      oru_conv2d_act_params c;
      c.conv = conv_params(p);
      c.act = as_int(p[14]);
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_CONV2D_BN2D_ACT: {
      oru_conv2d_bn2d_act_params c;
      c.conv = conv_params(p);
      c.bn_eps = float(p[14]);
      c.act = as_int(p[15]);
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_BN1D:
    case ORU_CG_OP_BN2D: {
      const oru_cg_bn_params c = {0, float(p[0])};
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_MAX_POOL2D:
    case ORU_CG_OP_AVG_POOL2D: {
      const oru_cg_pool_params c = {as_int(p[0]), as_int(p[1]), as_int(p[2]), as_int(p[3]), {0, 0}};
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_LINEAR: {
      const oru_cg_linear_params c = {as_int(p[0]), as_int(p[1]), as_int(p[2])};
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_SAMPLE: {
      const SampleParams c = {as_int(p[0]), float(p[1]), float(p[2]), 0, as_int(p[3])};
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_RESHAPE: {
      oru_cg_reshape_params c;
      std::memset(&c, 0, sizeof c);
      c.ndims = n.param_count;
      for (int32_t k = 0; k < n.param_count; ++k) c.dims[k] = as_int(p[k]);
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_CONCAT: {
      const oru_cg_concat_params c = {uint32_t(p[0]), n.input_count, n.inputs};
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_SPLIT: {
      const oru_cg_split_params c = {0, as_int(p[0]), as_int(p[1]), as_int(p[2]), 0};
      return bind(g, id, n.op, nullptr, &c);
    }
    case ORU_CG_OP_SHUFFLE: {
      Scratch<int32_t> order(n.param_count);
      if (!order) ORU_FAIL(ORU_RET_ERR_MEMORY);
      for (int32_t k = 0; k < n.param_count; ++k) order[k] = as_int(p[k]);
      const oru_cg_shuffle_params c = {0, n.param_count, order.get()};
      return bind(g, id, n.op, nullptr, &c);  // the list is copied at bind
    }
    default:  // the operators without parameters
      return bind(g, id, n.op, nullptr, nullptr);
  }
}

uint32_t build(oru_cg_net *net, int32_t method, const char *origin) {
  const NetFile &f = net->file;
  int32_t weight_nodes = 0;
  for (int32_t i = 0; i < f.node_count; ++i) weight_nodes += f.nodes[i].weight_offset >= 0;
  net->tensor_count = f.node_count + weight_nodes;
  net->tensors = static_cast<oru_tensor **>(oru_calloc(net->tensor_count, sizeof(oru_tensor *)));
  if (!net->tensors) ORU_FAIL(ORU_RET_ERR_MEMORY);

  const oru_cg_params params = {uint32_t(net->tensor_count), 1u, 0u, 0u, uint32_t(f.backend)};
  net->graph = oru_create_computation_graph_handle(&params);
  if (!net->graph) return ORU_RET_ERR_MEMORY;  // the handle has reported it

  // Edges in line order, data inputs first and the weights last, as the operators expect.
  uint32_t st = ORU_RET_OK;
  for (int32_t i = 0, w = f.node_count; i < f.node_count && !st; ++i) {
    const NetNode &n = f.nodes[i];
    for (int32_t k = 0; k < n.input_count && !st; ++k)
      st = oru_add_one_edge_into_computation_graph(net->graph, n.inputs[k], i);
    if (!st && n.weight_offset >= 0) st = oru_add_one_edge_into_computation_graph(net->graph, w++, i);
  }
  if (!st) st = oru_computation_graph_topo_sort(net->graph);
  if (st) return net_refuse(st, origin, 0, "the graph refused the edges (status %u)", unsigned(st));

  const uint32_t element = f.backend == 1 ? 3u : 6u;  // ai16s or aif32
  for (int32_t i = 0, w = f.node_count; i < f.node_count; ++i) {
    const NetNode &n = f.nodes[i];
    if (n.op == ORU_CG_OP_INPUT) {
      int32_t dims[5] = {1, 1, 1, 1, 1};
      for (int32_t k = 0; k < n.param_count; ++k) dims[k] = as_int(n.params[k]);
      net->tensors[i] = oru_create_tensor(n.param_count, dims, element);
      if (!net->tensors[i]) return net_refuse(ORU_RET_ERR_MEMORY, origin, n.line, "no memory for input '%s'", n.name);
      st = bind(net->graph, i, ORU_CG_OP_INPUT, net->tensors[i], nullptr);
    } else {
      if (n.weight_offset >= 0) {
        const int32_t dims[1] = {int32_t(n.weight_count)};
        oru_tensor *t = net->tensors[w] = oru_create_tensor_header(1, dims, 6u);
        if (!t || oru_set_tensor_data(t, net->words + n.weight_offset, n.weight_count * 4) != 0)
          return net_refuse(ORU_RET_ERR_MEMORY, origin, n.line, "no memory for the weights of '%s'", n.name);
        st = bind(net->graph, w++, ORU_CG_OP_WEIGHT, t, nullptr);
      }
      // An empty slot would bind without complaint and fail only at prepare.
      if (!st && !net->graph->operators[n.op].init_context)
        return net_refuse(ORU_RET_ERR_NOT_SUPPORT, origin, n.line, "this build has no operator for '%s'",
                          net_operator_name(n.op));
      if (!st) st = bind_operator(net, i, method);
    }
    if (st) return net_refuse(st, origin, n.line, "the graph refused node '%s' (status %u)", n.name, unsigned(st));
  }
  return ORU_RET_OK;
}

void release(oru_cg_net *net) {
  if (net->graph) oru_release_computation_graph_handle(&net->graph);
  for (int32_t i = 0; net->tensors && i < net->tensor_count; ++i)
    if (net->tensors[i]) oru_release_tensor(&net->tensors[i]);
  oru_free(net->tensors);
  oru_free(net->words);
  free_network(&net->file);
  oru_free(net);
}

}  // namespace
}  // namespace oru

extern "C" {

ORU_API uint32_t oru_cg_load_network(oru_cg_net **net, const char *net_path, const char *weights_path,
                                     int32_t conv_method) {
  if (!net || !net_path || !weights_path) ORU_FAIL(ORU_RET_ERR_PARA);
  *net = nullptr;
  if (conv_method != ORU_CG_NET_METHOD_FROM_FILE && conv_method != ORU_CG_NET_METHOD_PER_LAYER &&
      (conv_method < 0 || conv_method > 2))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "unknown conv method for the network");
  oru::Scratch<char> text;
  int64_t size = 0;
  uint32_t st = oru::read_text(&text, &size, net_path);
  if (st) return st;
  auto *n = static_cast<oru_cg_net *>(oru_calloc(1, sizeof(oru_cg_net)));
  if (!n) ORU_FAIL(ORU_RET_ERR_MEMORY);
  st = oru::parse_network(&n->file, text.get(), size_t(size), net_path);
  if (!st) st = oru::read_weights(n, weights_path, net_path);
  if (!st) st = oru::build(n, conv_method == ORU_CG_NET_METHOD_FROM_FILE ? n->file.conv_method : conv_method, net_path);
  if (st) {
    oru::release(n);
    return st;
  }
  *net = n;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_cg_release_network(oru_cg_net **net) {
  if (!net || !*net) return ORU_RET_ERR_PARA;
  oru_cg_net *n = *net;
  *net = nullptr;
  oru::release(n);
  return ORU_RET_OK;
}

ORU_API oru_cg_handle *oru_cg_network_graph(const oru_cg_net *net) { return net ? net->graph : nullptr; }

ORU_API int32_t oru_cg_network_node_count(const oru_cg_net *net) { return net ? net->file.node_count : 0; }

ORU_API int32_t oru_cg_network_find_node(const oru_cg_net *net, const char *name) {
  if (!net || !name) return -1;
  for (int32_t i = 0; i < net->file.node_count; ++i)
    if (std::strcmp(net->file.nodes[i].name, name) == 0) return i;
  return -1;
}

ORU_API const char *oru_cg_network_node_name(const oru_cg_net *net, int32_t id) {
  return net && id >= 0 && id < net->file.node_count ? net->file.nodes[id].name : nullptr;
}

ORU_API oru_tensor *oru_cg_network_input(const oru_cg_net *net, const char *name) {
  const int32_t id = oru_cg_network_find_node(net, name);
  return id >= 0 && net->file.nodes[id].op == ORU_CG_OP_INPUT ? net->tensors[id] : nullptr;
}

ORU_API oru_tensor *oru_cg_network_output(const oru_cg_net *net, const char *name) {
  const int32_t id = oru_cg_network_find_node(net, name);
  if (id < 0) return nullptr;
  if (net->file.nodes[id].op == ORU_CG_OP_INPUT) return net->tensors[id];
  return oru_get_computation_node_inference_data(net->graph, id);
}

}  // extern "C"
