// AVX2 forms of the geometry inner loops.
#define ORU_FORM(name) name##_avx2
#include "image/oru_geometry_kernels_x86.inl"
