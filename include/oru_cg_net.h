/* Network files: a text description of a graph (one line per node) beside a model weight
 * file, loaded into a computation graph with the graph's own bind calls. The format is
 * described in docs/network_file.md; tools/onnx_convert.py writes it. */
#ifndef ORU_CG_NET_H
#define ORU_CG_NET_H

#include "oru_cg.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct oru_cg_net oru_cg_net;

/* Conv methods of oru_cg_load_network besides 0 to 2: the one the file names, and the
 * choice per layer: a convolution whose readers are all convolutions, of a shape the packed
 * HWG kernels serve, takes them (its output stays interleaved for the next one); any other
 * takes im2col + GEMM for full kernels larger than 1x1 at stride 1 and the direct kernels
 * for the rest. A fixed-point network takes the direct kernels throughout. */
#define ORU_CG_NET_METHOD_FROM_FILE (-1)
#define ORU_CG_NET_METHOD_PER_LAYER 255

/* Reads the network file and the weight file (its length and MD5 digest checked), creates
 * the graph, adds the edges, sorts it, makes the input tensors and binds every node: the
 * graph is ready for oru_prepare_inference_computation. conv_method overrides the file's
 * unless it is ORU_CG_NET_METHOD_FROM_FILE. On failure *net stays null, nothing is kept,
 * and one report names the file and line: status 1 for a malformed or inconsistent file,
 * 4 for an unknown operator, 8 for a file that cannot be opened, 256 for a weight file of
 * the wrong length; a refusal of the graph's own passes through with its status. */
ORU_API uint32_t oru_cg_load_network(oru_cg_net **net, const char *net_path, const char *weights_path,
                                     int32_t conv_method);
/* Releases the graph, the input tensors and the weights; clears the pointer. 1 for null. */
ORU_API uint32_t oru_cg_release_network(oru_cg_net **net);

ORU_API oru_cg_handle *oru_cg_network_graph(const oru_cg_net *net);
/* Number of nodes the file describes (weight nodes not counted); their ids are 0 to n - 1. */
ORU_API int32_t oru_cg_network_node_count(const oru_cg_net *net);
/* The id of the node of that name, or -1. */
ORU_API int32_t oru_cg_network_find_node(const oru_cg_net *net, const char *name);
/* The name of node id, or null. */
ORU_API const char *oru_cg_network_node_name(const oru_cg_net *net, int32_t id);
/* The tensor of an input node, to fill before each run; null for another kind of node. */
ORU_API oru_tensor *oru_cg_network_input(const oru_cg_net *net, const char *name);
/* The output of a node after prepare: its own tensor, or for an input node the input. */
ORU_API oru_tensor *oru_cg_network_output(const oru_cg_net *net, const char *name);

#ifdef __cplusplus
}
#endif

#endif /* ORU_CG_NET_H */
