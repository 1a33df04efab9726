// CPU feature tables, filled once on the first query: what the processor has and
// what the operating system lets a program use.
#include <cstdio>
#include <cstring>

#include "oru_core.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define ORU_X86 1
#endif

namespace {

struct CpuFeatures {
  int32_t family;
  uint8_t supported[ORU_CPU_FEATURE_COUNT];
};

const char *oru_hardware_feature_names[ORU_CPU_FEATURE_COUNT];
CpuFeatures oru_cpu_features;
bool tables_ready = false;

void fill_names() {
  static const struct {
    int number;
    const char *name;
  } kNames[] = {
      {1, "MMX"},         {2, "SSE"},          {3, "SSE2"},           {4, "SSE3"},
      {5, "SSSE3"},       {6, "SSE4.1"},       {7, "SSE4.2"},         {8, "POPCNT"},
      {9, "FP16"},        {10, "AVX"},         {11, "AVX2"},          {12, "FMA3"},
      {13, "AVX512F"},    {14, "AVX512BW"},    {15, "AVX512CD"},      {16, "AVX512DQ"},
      {17, "AVX512ER"},   {18, "AVX512IFMA"},  {19, "AVX512PF"},      {20, "AVX512VBMI"},
      {21, "AVX512VL"},   {22, "AVX512VBMI2"}, {23, "AVX512VNNI"},    {24, "AVX512BITALG"},
      {25, "AVX512VPOPCNTDQ"}, {26, "AVX5124VNNIW"}, {27, "AVX5124FMAPS"}, {100, "NEON"},
      {150, "MSA"},       {200, "VSX"},        {201, "VSX3"},         {210, "RVV"},
      {256, "AVX512-G1"}, {257, "AVX512-COMMON"}, {258, "AVX512-G2"}, {259, "AVX512-G3"},
      {260, "AVX512-G4"}, {261, "AVX512-G5"},  {262, "AVX512-G6"},
  };
  for (const auto &entry : kNames) oru_hardware_feature_names[entry.number] = entry.name;
}

#ifdef ORU_X86
uint64_t read_xcr0() {
  uint32_t eax, edx;
  __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
  return (uint64_t(edx) << 32) | eax;
}

void detect_x86() {
  uint8_t *f = oru_cpu_features.supported;
  unsigned a1 = 0, b1 = 0, c1 = 0, d1 = 0, a7 = 0, b7 = 0, c7 = 0, d7 = 0;
  __cpuid_count(1, 0, a1, b1, c1, d1);
  oru_cpu_features.family = int32_t((a1 >> 8) & 0xF);
  if (oru_cpu_features.family < 6) return;
  if (__get_cpuid_max(0, nullptr) >= 7) __cpuid_count(7, 0, a7, b7, c7, d7);

  struct Bit {
    const unsigned *reg;
    int bit;
    int feature;
  };
  const Bit bits[] = {
      {&d1, 23, 1},  {&d1, 25, 2},  {&d1, 26, 3},  {&c1, 0, 4},   {&c1, 9, 5},   {&c1, 19, 6},
      {&c1, 20, 7},  {&c1, 23, 8},  {&c1, 29, 9},  {&c1, 28, 10}, {&b7, 5, 11},  {&c1, 12, 12},
      {&b7, 16, 13}, {&b7, 30, 14}, {&b7, 28, 15}, {&b7, 17, 16}, {&b7, 27, 17}, {&b7, 21, 18},
      {&b7, 26, 19}, {&c7, 1, 20},  {&b7, 31, 21}, {&c7, 6, 22},  {&c7, 11, 23}, {&c7, 12, 24},
      {&c7, 14, 25}, {&d7, 2, 26},  {&d7, 3, 27},
  };
  for (const Bit &b : bits) f[b.feature] = uint8_t((*b.reg >> b.bit) & 1u);

  const bool osxsave = (c1 >> 27) & 1u;
  const uint64_t xcr0 = osxsave ? read_xcr0() : 0;
  if (!osxsave || (xcr0 & 0x6) != 0x6) {
    for (int i = 9; i <= 27; ++i) f[i] = 0;
    return;
  }
  if ((xcr0 & 0xE6) != 0xE6) {
    for (int i = 13; i <= 27; ++i) f[i] = 0;
    return;
  }
  f[257] = f[13] && f[15];
  if (!f[257]) return;
  f[258] = f[17] && f[19];
  f[259] = f[258] && f[25] && f[26] && f[27];
  f[256] = f[21] && f[16] && f[14];
  f[260] = f[256] && f[18] && f[20];
  f[261] = f[256] && f[23];
  f[262] = f[256] && f[18] && f[20] && f[23] && f[22] && f[24] && f[25];
}
#endif

void ensure_tables() {
  if (tables_ready) return;
  std::memset(&oru_cpu_features, 0, sizeof oru_cpu_features);
  std::memset(oru_hardware_feature_names, 0, sizeof oru_hardware_feature_names);
  fill_names();
#ifdef ORU_X86
  detect_x86();
#else
  std::printf("hardware feature check currently only support x86\n");
#endif
  tables_ready = true;
}

}  // namespace

extern "C" {

ORU_API int32_t oru_check_cpu_hardware_support(int32_t feature) {
  ensure_tables();
  if (feature < 0 || feature >= ORU_CPU_FEATURE_COUNT) return 0;
  return oru_cpu_features.supported[feature];
}

ORU_API void oru_print_cpu_hardware_support(void) {
  ensure_tables();
  std::printf("supported cpu features:\n");
  for (int i = 0; i < ORU_CPU_FEATURE_COUNT; ++i)
    if (oru_cpu_features.supported[i] && oru_hardware_feature_names[i])
      std::printf("%s ", oru_hardware_feature_names[i]);
  std::printf("\n");
}

ORU_API const char *oru_get_cpu_hardware_feature_name(int32_t feature) {
  ensure_tables();
  if (feature < 0 || feature >= ORU_CPU_FEATURE_COUNT) return nullptr;
  return oru_hardware_feature_names[feature];
}

}  // extern "C"
