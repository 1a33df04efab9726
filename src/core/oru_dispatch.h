// Run-time choice of a hot kernel's form. Every kernel has a plain C++ form, the
// reference, and may have AVX2 and AVX-512 forms (x86-64) and a NEON form (arm64),
// all with one signature. The best form the CPU runs is picked once per kernel.
//
// Naming: a kernel `k` is the set k_plain, k_avx2, k_avx512, k_neon; ORU_KERNEL_FORMS(k)
// gathers the ones this architecture builds. Vector forms live in files named
// *_avx2.cpp, *_avx512.cpp and *_neon.cpp, which the build compiles with their flags.
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

// All forms of kernel k that this architecture builds.
#define ORU_KERNEL_FORMS(k)                                                               \
  (::oru::KernelForms<decltype(&k##_plain)>{&k##_plain, ORU_AVX2_FORM(&k##_avx2),         \
                                            ORU_AVX512_FORM(&k##_avx512), ORU_NEON_FORM(&k##_neon)})

// A kernel without some vector forms names the missing ones with ORU_NO_FORM.
#define ORU_NO_FORM nullptr

#endif
