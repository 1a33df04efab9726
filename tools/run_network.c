/* run_network MODEL INPUT.tensor OUTDIR [--all] [--method auto|0|1|2]
 * Loads MODEL.net and MODEL.weights, fills the network's input node with the tensor file
 * (the same number of elements), runs the graph once and writes, as tensor files in
 * OUTDIR, every output node (nodes that feed no other), or with --all every node. Each
 * file is named after its node (a node whose tensor an in-place reader overwrote is left
 * out), with characters other than letters, digits, '.', '-'
 * and '_' written as '_'; OUTDIR/nodes.txt lists "id name file" for each one written,
 * so tools/compare_layers.py --net can pair them with the ONNX graph. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orucore.h"

static int usage(void) {
  fprintf(stderr, "usage: run_network MODEL INPUT.tensor OUTDIR [--all] [--method auto|0|1|2]\n");
  return 2;
}

static void file_name(char *out, size_t size, const char *name) {
  size_t i = 0;
  for (; name[i] && i + 8 < size; ++i) {
    char c = name[i];
    int keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_';
    out[i] = keep ? c : '_';
  }
  snprintf(out + i, size - i, ".tensor");
}

int main(int argc, char **argv) {
  const char *positional[3] = {NULL, NULL, NULL};
  int all = 0, n_pos = 0;
  int32_t method = ORU_CG_NET_METHOD_FROM_FILE;
  for (int i = 1; i < argc; ++i) {
    if (!strcmp(argv[i], "--all")) {
      all = 1;
    } else if (!strcmp(argv[i], "--method") && i + 1 < argc) {
      const char *m = argv[++i];
      method = !strcmp(m, "auto") ? ORU_CG_NET_METHOD_PER_LAYER
               : (m[0] >= '0' && m[0] <= '2' && !m[1]) ? m[0] - '0'
                                                       : -2;
      if (method == -2) return usage();
    } else if (argv[i][0] != '-' && n_pos < 3) {
      positional[n_pos++] = argv[i];
    } else {
      return usage();
    }
  }
  if (n_pos != 3) return usage();
  const char *prefix = positional[0], *input_path = positional[1], *dir = positional[2];
  size_t len = strlen(prefix) + 16;
  char *net_path = (char *)malloc(len), *weights_path = (char *)malloc(len);
  if (!net_path || !weights_path) return 1;
  snprintf(net_path, len, "%s.net", prefix);
  snprintf(weights_path, len, "%s.weights", prefix);
  oru_cg_net *net = NULL;
  uint32_t st = oru_cg_load_network(&net, net_path, weights_path, method);
  free(net_path);
  free(weights_path);
  if (st != 0) {
    fprintf(stderr, "run_network: %s: cannot load the model (status %u)\n", prefix, st);
    return 1;
  }
  oru_cg_handle *g = oru_cg_network_graph(net);
  oru_tensor *given = oru_create_tensor_from_disk(input_path);
  oru_tensor *input = NULL;
  const int32_t count = oru_cg_network_node_count(net);
  for (int32_t i = 0; i < count && !input; ++i) input = oru_cg_network_input(net, oru_cg_network_node_name(net, i));
  int status = 0;
  if (!given) {
    fprintf(stderr, "run_network: %s: not a readable tensor file\n", input_path);
    status = 1;
  } else if (!input || given->total_bytes != input->total_bytes) {
    fprintf(stderr, "run_network: %s: %lld bytes where the network's input takes %lld\n", input_path,
            (long long)given->total_bytes, input ? (long long)input->total_bytes : 0LL);
    status = 1;
  } else if ((st = oru_prepare_inference_computation(g)) != 0) {
    fprintf(stderr, "run_network: %s: the graph could not be prepared (status %u)\n", prefix, st);
    status = 1;
  } else {
    memcpy(input->data, given->data, (size_t)given->total_bytes);
    if ((st = oru_computation_graph_inference(g)) != 0) {
      fprintf(stderr, "run_network: %s: the run failed (status %u)\n", prefix, st);
      status = 1;
    }
  }
  FILE *index = NULL;
  if (status == 0) {
    char path[4096];
    snprintf(path, sizeof path, "%s/nodes.txt", dir);
    index = fopen(path, "w");
    if (!index) {
      fprintf(stderr, "run_network: cannot write %s\n", path);
      status = 1;
    }
  }
  for (int32_t i = 0; status == 0 && i < count; ++i) {
    if (!all && g->out_edges[i] && g->out_edges[i]->size > 0) continue;
    const char *name = oru_cg_network_node_name(net, i);
    char file[160], path[4096];
    file_name(file, sizeof file, name);
    snprintf(path, sizeof path, "%s/%s", dir, file);
    const oru_tensor *t = oru_cg_network_output(net, name);
    /* an operator that works in place has overwritten this node's tensor: its reader stands for it */
    int overwritten = 0;
    for (int64_t k = 0; t && g->out_edges[i] && k < g->out_edges[i]->size; ++k) {
      const int32_t reader = ((const int32_t *)g->out_edges[i]->data)[k];
      overwritten |= reader < count && oru_cg_network_output(net, oru_cg_network_node_name(net, reader)) == t;
    }
    if (overwritten) continue;
    /* a packed HWG node's output is written as planes, as every other node's */
    oru_tensor *planes = NULL;
    if (t && t->channel_layout == ORU_LAYOUT_HWG) {
      planes = oru_create_tensor(t->ndims, t->dims, t->type);
      if (!planes || oru_tensor_pack_data_hwg_to_chw(planes, t) != 0) {
        fprintf(stderr, "run_network: cannot unpack %s\n", name);
        oru_release_tensor(&planes);
        status = 1;
        break;
      }
      t = planes;
    }
    const int written = t && oru_write_tensor_to_disk(path, t) == 0;
    oru_release_tensor(&planes);
    if (!written) {
      fprintf(stderr, "run_network: cannot write %s\n", path);
      status = 1;
    }
    fprintf(index, "%d %s %s\n", (int)i, name, file);
  }
  if (index && fclose(index) != 0) status = 1;
  if (given) oru_release_tensor(&given);
  oru_cg_release_network(&net);
  return status;
}
