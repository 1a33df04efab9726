// The x86-64 intrinsics, included through the traits headers of the vector recipe.
#ifndef ORU_KERNELS_SIMD_X86_H
#define ORU_KERNELS_SIMD_X86_H

// GCC seeds several intrinsics with a deliberately undefined pass-through vector and then
// flags that vector inside its own headers; the one place the warning is silenced.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#endif
