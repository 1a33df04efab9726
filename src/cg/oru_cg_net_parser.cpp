// Reads the text of a network file into NetFile records and checks it as a whole: every
// line on its own, then the references between lines (dangling inputs, cycles, lone
// nodes, weight ranges). Each refusal is one report naming the line.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cg/oru_cg_net_internal.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"

namespace oru {
namespace {

enum class Weights { kNone, kConv, kConvBn, kLinear, kQuarters, kAny };

// What a line of each operator must hold. max_inputs -1: any number from min_inputs.
struct OpSpec {
  const char *name;
  int32_t op;
  int32_t min_inputs, max_inputs;
  int32_t min_params, max_params;
  Weights weights;
};

constexpr int32_t kMaxList = 4096;                       // inputs or parameters on one line
constexpr int64_t kMaxInputElements = int64_t(1) << 26;  // 256 MiB of floats

const OpSpec kOps[] = {
    {"input", ORU_CG_OP_INPUT, 0, 0, 1, 5, Weights::kNone},
    {"std_conv2d", ORU_CG_OP_STD_CONV2D, 1, 1, 14, 14, Weights::kConv},
    {"depthwise_conv2d", ORU_CG_OP_DEPTHWISE_CONV2D, 1, 1, 14, 14, Weights::kConv},
    {"pointwise_conv2d", ORU_CG_OP_POINTWISE_CONV2D, 1, 1, 14, 14, Weights::kConv},
    {"dilated_conv2d", ORU_CG_OP_DILATED_CONV2D, 1, 1, 14, 14, Weights::kConv},
    {"transposed_conv2d", ORU_CG_OP_TRANSPOSED_CONV2D, 1, 1, 14, 14, Weights::kConv},
    {"bias", ORU_CG_OP_BIAS, 1, 1, 0, 0, Weights::kAny},
    {"bn1d", ORU_CG_OP_BN1D, 1, 1, 1, 1, Weights::kQuarters},
    {"bn2d", ORU_CG_OP_BN2D, 1, 1, 1, 1, Weights::kQuarters},
    {"conv2d_act", ORU_CG_OP_CONV2D_ACT, 1, 1, 15, 15, Weights::kConv},
    {"conv2d_bn2d_act", ORU_CG_OP_CONV2D_BN2D_ACT, 1, 1, 16, 16, Weights::kConvBn},
    {"sigmoid", ORU_CG_OP_SIGMOID, 1, 1, 0, 0, Weights::kNone},
    {"relu", ORU_CG_OP_RELU, 1, 1, 0, 0, Weights::kNone},
    {"relu6", ORU_CG_OP_RELU6, 1, 1, 0, 0, Weights::kNone},
    {"hswish", ORU_CG_OP_HSWISH, 1, 1, 0, 0, Weights::kNone},
    {"max_pool2d", ORU_CG_OP_MAX_POOL2D, 1, 1, 4, 4, Weights::kNone},
    {"avg_pool2d", ORU_CG_OP_AVG_POOL2D, 1, 1, 4, 4, Weights::kNone},
    {"softmax", ORU_CG_OP_SOFTMAX, 1, 1, 0, 0, Weights::kNone},
    {"linear", ORU_CG_OP_LINEAR, 1, 1, 3, 3, Weights::kLinear},
    {"add", ORU_CG_OP_ADD, 2, 2, 0, 0, Weights::kNone},
    {"mul", ORU_CG_OP_MUL, 2, 2, 0, 0, Weights::kNone},
    {"sample", ORU_CG_OP_SAMPLE, 1, 1, 4, 4, Weights::kNone},
    {"reshape", ORU_CG_OP_RESHAPE, 1, 1, 1, 5, Weights::kNone},
    {"concat", ORU_CG_OP_CONCAT, 1, -1, 1, 1, Weights::kNone},
    {"split", ORU_CG_OP_SPLIT, 1, 1, 3, 3, Weights::kNone},
    {"shuffle", ORU_CG_OP_SHUFFLE, 1, 1, 1, kMaxList, Weights::kNone},
};

const OpSpec *find_op(const char *name) {
  for (const OpSpec &s : kOps)
    if (std::strcmp(s.name, name) == 0) return &s;
  return nullptr;
}

const OpSpec *find_op(int32_t op) {
  for (const OpSpec &s : kOps)
    if (s.op == op) return &s;
  return nullptr;
}

bool parse_int64(const char *s, int64_t *out) {
  if (!*s) return false;
  errno = 0;
  char *end = nullptr;
  const long long v = std::strtoll(s, &end, 10);
  if (errno || *end) return false;
  *out = v;
  return true;
}

bool parse_number(const char *s, double *out) {
  if (!*s) return false;
  errno = 0;
  char *end = nullptr;
  const double v = std::strtod(s, &end);
  if (errno || *end || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool whole(double v) { return v == std::floor(v) && std::fabs(v) <= 2147483647.0; }

// Splits a comma list ("-" for none) in place; false for more than max items or an empty item.
int32_t split_list(char *s, char **items, int32_t max) {
  if (std::strcmp(s, "-") == 0) return 0;
  int32_t n = 0;
  for (char *p = s;;) {
    char *comma = std::strchr(p, ',');
    if (comma) *comma = '\0';
    if (!*p || n == max) return -1;
    items[n++] = p;
    if (!comma) return n;
    p = comma + 1;
  }
}

// Up to max whitespace-separated tokens of a line, in place; the count found (max + 1 for more).
int32_t tokenize(char *line, char **tokens, int32_t max) {
  int32_t n = 0;
  for (char *p = line; *p;) {
    while (*p == ' ' || *p == '\t') ++p;
    if (!*p) break;
    if (n == max) return max + 1;
    tokens[n++] = p;
    while (*p && *p != ' ' && *p != '\t') ++p;
    if (*p) *p++ = '\0';
  }
  return n;
}

// The operator-specific checks of a parsed line: parameter values and the weight count.
const char *check_node(const NetNode &n, const OpSpec &s) {
  const double *p = n.params;
  for (int32_t i = 0; i < n.param_count; ++i) {
    const bool is_float = (n.op == ORU_CG_OP_CONV2D_BN2D_ACT && i == 14) ||
                          (n.op == ORU_CG_OP_BN1D || n.op == ORU_CG_OP_BN2D) ||
                          (n.op == ORU_CG_OP_SAMPLE && (i == 1 || i == 2));
    if (!is_float && !whole(p[i])) return "a parameter that must be an integer is not";
  }
  int64_t expected = -1;
  switch (s.weights) {
    case Weights::kConv:
    case Weights::kConvBn: {
      const int64_t in = int64_t(p[0]), out = int64_t(p[1]), kw = int64_t(p[2]), kh = int64_t(p[3]);
      const int64_t groups = int64_t(p[12]), bias = int64_t(p[13]);
      for (int k : {0, 1, 2, 3, 4, 5, 10, 11, 12})
        if (p[k] < 1 || p[k] > 65536) return "convolution sizes, strides, dilations and groups must be 1 to 65536";
      if (p[6] < 0 || p[7] < 0 || p[6] > 1024 || p[7] > 1024 || p[9] < 0 || p[9] > 1024)
        return "padding must be 0 to 1024";
      if (bias != 0 && bias != 1) return "has_bias must be 0 or 1";
      if (in % groups || out % groups) return "channels are not a multiple of groups";
      if ((n.op == ORU_CG_OP_DILATED_CONV2D || n.op == ORU_CG_OP_TRANSPOSED_CONV2D) && bias)
        return "this convolution runs no bias step; give the bias its own node";
      if (n.op == ORU_CG_OP_CONV2D_ACT && (p[14] < 0 || p[14] > 6)) return "activation code above 6";
      if (n.op == ORU_CG_OP_CONV2D_BN2D_ACT && (p[15] < 0 || p[15] > 6)) return "activation code above 6";
      expected = out * (in / groups) * kw * kh + bias * out + (s.weights == Weights::kConvBn ? 4 * out : 0);
      break;
    }
    case Weights::kLinear:
      if (p[0] < 1 || p[1] < 1 || (p[2] != 0 && p[2] != 1)) return "linear needs in, out >= 1 and has_bias 0 or 1";
      expected = int64_t(p[0]) * int64_t(p[1]) + int64_t(p[2]) * int64_t(p[1]);
      break;
    case Weights::kQuarters:
      if (n.weight_count % 4) return "batch-norm weights are not four equal quarters";
      break;
    default:
      break;
  }
  switch (n.op) {
    case ORU_CG_OP_INPUT:
    case ORU_CG_OP_RESHAPE: {
      double elements = 1;
      for (int32_t i = 0; i < n.param_count; ++i) {
        if (p[i] < (n.op == ORU_CG_OP_RESHAPE ? -1 : 1) || p[i] == 0 || p[i] > 1 << 24) return "bad dimension";
        elements *= std::fabs(p[i]);
      }
      if (n.op == ORU_CG_OP_INPUT && elements > double(kMaxInputElements)) return "input of more than 2^26 elements";
      break;
    }
    case ORU_CG_OP_MAX_POOL2D:
    case ORU_CG_OP_AVG_POOL2D:
      for (int32_t i = 0; i < 4; ++i)
        if (p[i] < 1 || p[i] > 65536) return "pool windows and strides must be 1 to 65536";
      break;
    case ORU_CG_OP_CONCAT:
      if (p[0] < 0 || p[0] > 2) return "concat axis must be 0, 1 or 2";
      break;
    case ORU_CG_OP_SPLIT:
      if (p[0] < 1 || p[1] < 0 || p[2] < 1) return "split needs groups >= 1, start >= 0, step >= 1";
      break;
    case ORU_CG_OP_SHUFFLE:
      for (int32_t i = 0; i < n.param_count; ++i)
        if (p[i] < 0) return "negative channel in a shuffle order";
      break;
    case ORU_CG_OP_SAMPLE:
      if ((p[0] != 0 && p[0] != 1) || !(p[1] > 0) || !(p[2] > 0) || p[1] > 64 || p[2] > 64)
        return "sample needs mode 0 or 1 and scales above 0 up to 64";
      break;
    default:
      break;
  }
  const bool needs = s.weights != Weights::kNone;
  if (needs != (n.weight_offset >= 0)) return needs ? "this operator needs weights" : "this operator takes no weights";
  if (expected >= 0 && expected != n.weight_count) return "the weight count does not match the parameters";
  if (needs && n.weight_count < 1) return "empty weight range";
  return nullptr;
}

// One node line, already split into its six fields.
uint32_t parse_node(NetNode *n, char **f, int32_t expected_id, const char *origin) {
  int64_t id = 0;
  if (!parse_int64(f[0], &id) || id != expected_id)
    return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "node id '%s' where %d was due (ids count up from 0)", f[0],
                      int(expected_id));
  const OpSpec *s = find_op(f[1]);
  if (!s) return net_refuse(ORU_RET_ERR_NOT_SUPPORT, origin, n->line, "unknown operator '%s'", f[1]);
  n->op = s->op;
  if (std::strlen(f[2]) >= size_t(kNetNameMax))
    return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "node name longer than %d bytes", int(kNetNameMax - 1));
  std::strcpy(n->name, f[2]);

  Scratch<char *> items(kMaxList);
  if (!items) ORU_FAIL(ORU_RET_ERR_MEMORY);
  const int32_t ni = split_list(f[3], items.get(), kMaxList);
  if (ni < 0) return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "malformed input list '%s'", f[3]);
  if (ni < s->min_inputs || (s->max_inputs >= 0 && ni > s->max_inputs))
    return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "%s takes %d to %d inputs, not %d", s->name,
                      int(s->min_inputs), int(s->max_inputs < 0 ? kMaxList : s->max_inputs), int(ni));
  n->inputs = static_cast<int32_t *>(oru_malloc(int64_t(ni + 1) * 4));
  if (!n->inputs) ORU_FAIL(ORU_RET_ERR_MEMORY);
  for (int32_t i = 0; i < ni; ++i) {
    int64_t v = 0;
    if (!parse_int64(items[i], &v) || v < 0 || v >= kNetMaxNodes)
      return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "input '%s' is not a node id", items[i]);
    n->inputs[i] = int32_t(v);
  }
  n->input_count = ni;

  const int32_t np = split_list(f[4], items.get(), kMaxList);
  if (np < 0) return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "malformed parameter list");
  if (np < s->min_params || np > s->max_params)
    return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "%s takes %d to %d parameters, not %d", s->name,
                      int(s->min_params), int(s->max_params), int(np));
  n->params = static_cast<double *>(oru_malloc(int64_t(np + 1) * 8));
  if (!n->params) ORU_FAIL(ORU_RET_ERR_MEMORY);
  for (int32_t i = 0; i < np; ++i)
    if (!parse_number(items[i], &n->params[i]))
      return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "parameter '%s' is not a number", items[i]);
  n->param_count = np;

  n->weight_offset = -1;
  n->weight_count = 0;
  if (std::strcmp(f[5], "-") != 0) {
    char *colon = std::strchr(f[5], ':');
    if (!colon) return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "weights must be OFFSET:COUNT, not '%s'", f[5]);
    *colon = '\0';
    if (!parse_int64(f[5], &n->weight_offset) || !parse_int64(colon + 1, &n->weight_count) || n->weight_offset < 0 ||
        n->weight_count < 0)
      return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "malformed weight range");
  }
  if (const char *why = check_node(*n, *s)) return net_refuse(ORU_RET_ERR_PARA, origin, n->line, "%s", why);
  return ORU_RET_OK;
}

// The checks across lines: references, names, weight ranges, cycles and lone nodes.
uint32_t check_graph(const NetFile &net, const char *origin) {
  const int32_t count = net.node_count;
  if (count < 2) return net_refuse(ORU_RET_ERR_PARA, origin, 0, "a network needs at least two nodes");
  Scratch<int32_t> indegree(count, true), first(int64_t(count) + 1, true), order(count), queue(count);
  if (!indegree || !first || !order || !queue) ORU_FAIL(ORU_RET_ERR_MEMORY);
  bool has_input = false;
  int64_t edges = 0;
  for (int32_t i = 0; i < count; ++i) {
    const NetNode &n = net.nodes[i];
    has_input |= n.op == ORU_CG_OP_INPUT;
    for (int32_t k = 0; k < n.input_count; ++k) {
      const int32_t src = n.inputs[k];
      if (src >= count) return net_refuse(ORU_RET_ERR_PARA, origin, n.line, "input %d names no node", int(src));
      if (src == i) return net_refuse(ORU_RET_ERR_PARA, origin, n.line, "node takes its own output");
      for (int32_t m = 0; m < k; ++m)
        if (n.inputs[m] == src) return net_refuse(ORU_RET_ERR_PARA, origin, n.line, "input %d given twice", int(src));
      ++indegree[i];
      ++first[src + 1];
      ++edges;
    }
    if (n.weight_offset >= 0 && n.weight_offset + n.weight_count > net.weight_words)
      return net_refuse(ORU_RET_ERR_PARA, origin, n.line, "weights %lld:%lld lie beyond the %lld words of the file",
                        (long long)n.weight_offset, (long long)n.weight_count, (long long)net.weight_words);
  }
  // Names sorted, so that a repeated one is next to its twin; the later line is reported.
  for (int32_t i = 0; i < count; ++i) order[i] = i;
  std::sort(order.get(), order.get() + count, [&](int32_t a, int32_t b) {
    const int c = std::strcmp(net.nodes[a].name, net.nodes[b].name);
    return c != 0 ? c < 0 : a < b;
  });
  int32_t repeated = count;
  for (int32_t k = 1; k < count; ++k)
    if (std::strcmp(net.nodes[order[k - 1]].name, net.nodes[order[k]].name) == 0 && order[k] < repeated)
      repeated = order[k];
  if (repeated < count) {
    const NetNode &n = net.nodes[repeated];
    return net_refuse(ORU_RET_ERR_PARA, origin, n.line, "name '%s' is used twice", n.name);
  }
  if (!has_input) return net_refuse(ORU_RET_ERR_PARA, origin, 0, "the network has no input node");
  for (int32_t i = 0; i < count; ++i)
    if (net.nodes[i].input_count == 0 && first[i + 1] == 0)
      return net_refuse(ORU_RET_ERR_PARA, origin, net.nodes[i].line, "node '%s' is connected to nothing",
                        net.nodes[i].name);
  // Readers of each node in one block (first[i] .. first[i + 1]), then Kahn's sort on the
  // lines: whatever is left unsorted lies on or behind a cycle.
  for (int32_t i = 0; i < count; ++i) first[i + 1] += first[i];
  Scratch<int32_t> readers(edges > 0 ? edges : 1), fill(count, true);
  if (!readers || !fill) ORU_FAIL(ORU_RET_ERR_MEMORY);
  for (int32_t i = 0; i < count; ++i)
    for (int32_t k = 0; k < net.nodes[i].input_count; ++k) {
      const int32_t src = net.nodes[i].inputs[k];
      readers[first[src] + fill[src]++] = i;
    }
  int32_t head = 0, tail = 0;
  for (int32_t i = 0; i < count; ++i)
    if (indegree[i] == 0) queue[tail++] = i;
  while (head < tail) {
    const int32_t src = queue[head++];
    for (int32_t e = first[src]; e < first[src + 1]; ++e)
      if (--indegree[readers[e]] == 0) queue[tail++] = readers[e];
  }
  if (tail < count)
    for (int32_t i = 0; i < count; ++i)
      if (indegree[i] > 0)
        return net_refuse(ORU_RET_ERR_PARA, origin, net.nodes[i].line, "node '%s' lies on a cycle", net.nodes[i].name);
  return ORU_RET_OK;
}

// Header lines: "orunet 1" first, then "backend", "conv_method", "weights" once each.
uint32_t parse_header(NetFile *net, char **f, int32_t nf, int32_t line, uint32_t *seen, const char *origin) {
  const char *keys[] = {"backend", "conv_method", "weights"};
  for (uint32_t k = 0; k < 3; ++k) {
    if (std::strcmp(f[0], keys[k]) != 0) continue;
    if (nf != 2) return net_refuse(ORU_RET_ERR_PARA, origin, line, "'%s' takes one value", keys[k]);
    if (*seen & (1u << k)) return net_refuse(ORU_RET_ERR_PARA, origin, line, "'%s' given twice", keys[k]);
    *seen |= 1u << k;
    int64_t v = 0;
    if (k == 1 && std::strcmp(f[1], "auto") == 0) {
      net->conv_method = ORU_CG_NET_METHOD_PER_LAYER;
    } else if (!parse_int64(f[1], &v) || v < 0 || (k == 0 && v > 1) || (k == 1 && v > 2) ||
               (k == 2 && v > (int64_t(1) << 31) - 1)) {
      return net_refuse(ORU_RET_ERR_PARA, origin, line, "bad value '%s' for '%s'", f[1], keys[k]);
    } else if (k == 0) {
      net->backend = int32_t(v);
    } else if (k == 1) {
      net->conv_method = int32_t(v);
    } else {
      net->weight_words = v;
    }
    return ORU_RET_OK;
  }
  return net_refuse(ORU_RET_ERR_PARA, origin, line, "unknown header key '%s'", f[0]);
}

uint32_t parse_lines(NetFile *net, char *text, const char *origin) {
  // Node lines are counted first so that the records can be one block.
  int32_t capacity = 0;
  for (const char *p = text; *p; ++p) capacity += *p == '\n';
  ++capacity;
  if (capacity > kNetMaxNodes) capacity = kNetMaxNodes;
  net->nodes = static_cast<NetNode *>(oru_calloc(capacity, sizeof(NetNode)));
  if (!net->nodes) ORU_FAIL(ORU_RET_ERR_MEMORY);

  bool magic = false;
  uint32_t seen = 0;
  int32_t line = 0;
  for (char *p = text; p && *p;) {
    char *next = std::strchr(p, '\n');
    if (next) *next++ = '\0';
    ++line;
    const size_t len = std::strlen(p);
    if (len && p[len - 1] == '\r') p[len - 1] = '\0';
    char *f[7];
    const int32_t nf = tokenize(p, f, 6);
    p = next;
    if (nf == 0 || f[0][0] == '#') continue;
    if (!magic) {
      if (nf != 2 || std::strcmp(f[0], "orunet") != 0 || std::strcmp(f[1], "1") != 0)
        return net_refuse(ORU_RET_ERR_PARA, origin, line, "not a network file (it starts with \"orunet 1\")");
      magic = true;
      continue;
    }
    if (f[0][0] < '0' || f[0][0] > '9') {
      if (net->node_count > 0) return net_refuse(ORU_RET_ERR_PARA, origin, line, "header line after the first node");
      const uint32_t st = parse_header(net, f, nf, line, &seen, origin);
      if (st) return st;
      continue;
    }
    if (seen != 7u)
      return net_refuse(ORU_RET_ERR_PARA, origin, line, "backend, conv_method and weights must come first");
    if (nf != 6)
      return net_refuse(ORU_RET_ERR_PARA, origin, line, "a node line has 6 fields (id op name inputs params weights)");
    if (net->node_count == capacity) return net_refuse(ORU_RET_ERR_PARA, origin, line, "too many nodes");
    NetNode *n = &net->nodes[net->node_count];
    n->line = line;
    const uint32_t st = parse_node(n, f, net->node_count, origin);
    ++net->node_count;  // counted even on failure, so that free_network frees its lists
    if (st) return st;
  }
  if (!magic) return net_refuse(ORU_RET_ERR_PARA, origin, line, "empty network file");
  return check_graph(*net, origin);
}

}  // namespace

uint32_t net_refuse(uint32_t status, const char *origin, int32_t line, const char *fmt, ...) {
  char why[256];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(why, sizeof why, fmt, ap);
  va_end(ap);
  char message[512];
  std::snprintf(message, sizeof message, "%s:%d: %s", origin, int(line), why);
  ORU_REPORT(message);
  return status;
}

const char *net_operator_name(int32_t op) {
  const OpSpec *s = find_op(op);
  return s ? s->name : nullptr;
}

void free_network(NetFile *net) {
  if (!net) return;
  for (int32_t i = 0; net->nodes && i < net->node_count; ++i) {
    oru_free(net->nodes[i].inputs);
    oru_free(net->nodes[i].params);
  }
  oru_free(net->nodes);
  std::memset(net, 0, sizeof *net);
}

uint32_t parse_network(NetFile *net, const char *text, size_t size, const char *origin) {
  if (!net || (!text && size)) return ORU_RET_ERR_PARA;
  std::memset(net, 0, sizeof *net);
  net->conv_method = int32_t(ORU_CG_CONV_IM2COL_GEMM);
  if (size && std::memchr(text, '\0', size))
    return net_refuse(ORU_RET_ERR_PARA, origin, 0, "a network file holds no zero bytes");
  Scratch<char> copy(int64_t(size) + 1);
  if (!copy) ORU_FAIL(ORU_RET_ERR_MEMORY);
  if (size) std::memcpy(copy.get(), text, size);
  copy[int64_t(size)] = '\0';
  const uint32_t st = parse_lines(net, copy.get(), origin);
  if (st) free_network(net);
  return st;
}

}  // namespace oru
