// Fuzzes the network file loader: the input is a network file, then a 0xFF byte, then a
// weight file (or none: the weights then are an empty file). Every outcome must be a
// status; a loaded network is prepared, run once on zeros and released.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzz_file.h"
#include "oru_cg_net.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const uint8_t *split = static_cast<const uint8_t *>(std::memchr(data, 0xFF, size));
  const size_t net_size = split ? size_t(split - data) : size;
  const char *path = fuzz_input_file(data, net_size);
  if (!path) return 0;
  const std::string net_path = std::string(path) + ".net", weights_path = std::string(path) + ".weights";
  if (std::rename(path, net_path.c_str()) != 0) return 0;
  const uint8_t *weights = split ? split + 1 : data + size;
  FILE *f = std::fopen(weights_path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(weights, 1, size_t(data + size - weights), f);
  std::fclose(f);
  oru_cg_net *net = nullptr;
  const uint32_t st = oru_cg_load_network(&net, net_path.c_str(), weights_path.c_str(), ORU_CG_NET_METHOD_FROM_FILE);
  if ((st == 0) != (net != nullptr)) __builtin_trap();
  if (net) {
    oru_cg_handle *g = oru_cg_network_graph(net);
    if (oru_prepare_inference_computation(g) == 0) oru_computation_graph_inference(g);
    oru_cg_release_network(&net);
  }
  return 0;
}
