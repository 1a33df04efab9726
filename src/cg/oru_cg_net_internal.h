// The network file as parsed, before anything is bound: the header values and one record
// per node line. The parser checks each line on its own and the references between lines;
// the loader turns the records into bind calls.
#ifndef ORU_CG_NET_INTERNAL_H
#define ORU_CG_NET_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "oru_cg_net.h"

namespace oru {

constexpr int32_t kNetNameMax = 64;      // bytes of a node name, with its terminator
constexpr int32_t kNetMaxNodes = 1 << 16;

// One node line: id op name inputs params weights.
struct NetNode {
  int32_t op;                 // operator code, ORU_CG_OP_INPUT for an input
  int32_t line;               // line number in the file, for reports
  char name[kNetNameMax];
  int32_t input_count;
  int32_t *inputs;            // node ids, in the order of the line
  int32_t param_count;
  double *params;             // numbers as written; integers are checked to be whole
  int64_t weight_offset;      // in words; -1 without weights
  int64_t weight_count;
};

struct NetFile {
  int32_t backend;
  int32_t conv_method;        // 0 to 2, or ORU_CG_NET_METHOD_PER_LAYER
  int64_t weight_words;
  int32_t node_count;
  NetNode *nodes;             // node_count records, index = id
};

// Frees what parse_network left in the record and zeroes it.
void free_network(NetFile *net);

// Parses and checks a whole network file held in memory. On failure prints one report
// "<origin>:<line>: <why>" and gives its status; the record is then empty.
uint32_t parse_network(NetFile *net, const char *text, size_t size, const char *origin);

// The one report of a refused network, "<origin>:<line>: <why>", then the status.
uint32_t net_refuse(uint32_t status, const char *origin, int32_t line, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));

// Name of an operator code in the file, or null.
const char *net_operator_name(int32_t op);

}  // namespace oru

#endif
