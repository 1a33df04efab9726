#include "core/oru_dispatch.h"

#include "oru_core.h"

namespace oru {

namespace {

Isa detect() {
#if defined(__x86_64__)
  // AVX-512 forms use F, BW, DQ and VL; AVX2 forms also use FMA3 for their vector math.
  if (oru_check_cpu_hardware_support(ORU_CPU_AVX512F) && oru_check_cpu_hardware_support(ORU_CPU_AVX512_G1) &&
      oru_check_cpu_hardware_support(ORU_CPU_AVX2) && oru_check_cpu_hardware_support(ORU_CPU_FMA3))
    return Isa::avx512;
  if (oru_check_cpu_hardware_support(ORU_CPU_AVX2) && oru_check_cpu_hardware_support(ORU_CPU_FMA3))
    return Isa::avx2;
  return Isa::plain;
#elif defined(__aarch64__)
  return Isa::neon;  // NEON is part of the arm64 base architecture
#else
  return Isa::plain;
#endif
}

}  // namespace

Isa best_isa() {
  static const Isa isa = detect();
  return isa;
}

bool isa_runs_here(Isa isa) {
  const Isa best = best_isa();
  switch (isa) {
    case Isa::plain: return true;
    case Isa::avx2: return best == Isa::avx2 || best == Isa::avx512;
    case Isa::avx512: return best == Isa::avx512;
    case Isa::neon: return best == Isa::neon;
  }
  return false;
}

const char *isa_name(Isa isa) {
  switch (isa) {
    case Isa::avx2: return "avx2";
    case Isa::avx512: return "avx512";
    case Isa::neon: return "neon";
    default: return "plain";
  }
}

}  // namespace oru
