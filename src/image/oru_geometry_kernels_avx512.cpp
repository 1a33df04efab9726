// AVX-512 forms of the geometry inner loops: the x86 bodies, built with the AVX-512 flags;
// the warp takes sixteen lanes.
// GCC 12's AVX-512 headers fill unused operands with undefined vectors and then warn about them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#define ORU_FORM(name) name##_avx512
#define ORU_GEOMETRY_WIDE
#include "image/oru_geometry_kernels_x86.inl"
