// AVX2 forms of the image row kernels.
#define ORU_FORM(name) name##_avx2
#include "image/oru_image_kernels_x86.inl"
