// Run-time choice of a hot kernel's form. Every kernel has a plain C++ form, the
// reference, and may have AVX2 and AVX-512 forms (x86-64) and a NEON form (arm64),
// all with one signature. The best form the CPU runs is picked once per kernel.
//
// Naming: a kernel `k` is the set k_plain, k_avx2, k_avx512, k_neon, declared together with
// ORU_DECLARE_FORMS(k, params...); ORU_KERNEL_FORMS(k) gathers the ones this architecture
// builds. Vector forms live in files named *_avx2.cpp, *_avx512.cpp and
// *_neon.cpp, which the build compiles with their flags.
//
// The recipe for a vector twin:
// - One traits struct per instruction set and element type, in one header per ISA
//   (src/kernels/simd/oru_simd_{avx2,avx512,neon}.h): load, store, set1, zero, add, sub,
//   mul, div, fma, min, max, reductions, and what the exponential (oru_simd_expf.h) needs.
//   Everything in those headers has internal linkage, so no vector instruction can leak
//   into another object through a shared inline function.
// - One template body per kernel over those traits, in the family's *_simd.h header; each
//   vector file instantiates it with its own traits and nothing else.
// - One tail rule (oru_simd_map.h): the vector body takes whole vectors; what is left goes
//   to a masked step where the ISA has masks (AVX-512) and to the plain form elsewhere.
//   Reductions whose order of summation is part of the result finish in the plain order.
// - The plain form is the reference: every vector form matches it bit for bit unless its
//   header says otherwise (the exponentials), and the form tester holds them to it.
#ifndef ORU_CORE_DISPATCH_H
#define ORU_CORE_DISPATCH_H

#include <cstddef>
#include <initializer_list>

namespace oru {

enum class Isa { plain = 0, avx2 = 1, avx512 = 2, neon = 3 };

// The widest instruction set this process may use, from the CPU feature table.
Isa best_isa();
bool isa_runs_here(Isa isa);
const char *isa_name(Isa isa);

template <typename Fn>
struct KernelForms {
  Fn plain;
  Fn avx2;
  Fn avx512;
  Fn neon;

  Fn form(Isa isa) const {
    switch (isa) {
      case Isa::avx2: return avx2;
      case Isa::avx512: return avx512;
      case Isa::neon: return neon;
      default: return plain;
    }
  }
};

// The best form that exists and runs here; the plain form when nothing wider fits.
template <typename Fn>
Fn pick(const KernelForms<Fn> &k) {
  switch (best_isa()) {
    case Isa::avx512:
      if (k.avx512) return k.avx512;
      [[fallthrough]];
    case Isa::avx2:
      if (k.avx2) return k.avx2;
      return k.plain;
    case Isa::neon:
      return k.neon ? k.neon : k.plain;
    default:
      return k.plain;
  }
}

// Calls fn(isa, form) for each form that exists and runs here, plain first. For the
// differential tests that hold every vector form to its plain twin.
template <typename Fn, typename Visit>
void for_each_runnable_form(const KernelForms<Fn> &k, Visit &&fn) {
  for (Isa isa : {Isa::plain, Isa::avx2, Isa::avx512, Isa::neon}) {
    Fn f = k.form(isa);
    if (f && isa_runs_here(isa)) fn(isa, f);
  }
}

}  // namespace oru

#if defined(__x86_64__)
#define ORU_AVX2_FORM(f) (f)
#define ORU_AVX512_FORM(f) (f)
#define ORU_NEON_FORM(f) nullptr
#elif defined(__aarch64__)
#define ORU_AVX2_FORM(f) nullptr
#define ORU_AVX512_FORM(f) nullptr
#define ORU_NEON_FORM(f) (f)
#else
#define ORU_AVX2_FORM(f) nullptr
#define ORU_AVX512_FORM(f) nullptr
#define ORU_NEON_FORM(f) nullptr
#endif

// Declares the four forms of kernel `name`: ORU_DECLARE_FORMS(relu_f32, float *y, const float *x, int64_t n).
#define ORU_DECLARE_FORMS(name, ...)  \
  void name##_plain(__VA_ARGS__);     \
  void name##_avx2(__VA_ARGS__);      \
  void name##_avx512(__VA_ARGS__);    \
  void name##_neon(__VA_ARGS__);

// All forms of kernel k that this architecture builds.
#define ORU_KERNEL_FORMS(k)                                                               \
  (::oru::KernelForms<decltype(&k##_plain)>{&k##_plain, ORU_AVX2_FORM(&k##_avx2),         \
                                            ORU_AVX512_FORM(&k##_avx512), ORU_NEON_FORM(&k##_neon)})

// A kernel without some vector forms names the missing ones with ORU_NO_FORM.
#define ORU_NO_FORM nullptr

#endif
