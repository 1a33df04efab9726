// AVX-512 forms of the image row kernels: the 3-byte pixel shuffles stay 128 bits
// wide (no byte permutes across lanes without VBMI); the vertical blend takes 32 bytes.
#include "kernels/simd/oru_simd_avx512.h"
#define ORU_FORM(name) name##_avx512
#define ORU_X86_WIDE_VERTICAL
#include "image/oru_image_kernels_x86.inl"

namespace oru {

void bilinear_vertical_row_avx512(uint8_t *dst, const uint8_t *a, const uint8_t *b, int32_t wy, int32_t n) {
  const __m512i w = _mm512_set1_epi32(int32_t(uint32_t(uint16_t(2048 - wy)) | (uint32_t(wy) << 16))), half = _mm512_set1_epi32(1024);
  int32_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m512i va = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + i)));
    const __m512i vb = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i)));
    const __m512i lo = _mm512_srai_epi32(_mm512_add_epi32(_mm512_madd_epi16(_mm512_unpacklo_epi16(va, vb), w), half), 11);
    const __m512i hi = _mm512_srai_epi32(_mm512_add_epi32(_mm512_madd_epi16(_mm512_unpackhi_epi16(va, vb), w), half), 11);
    // packs restores element order inside each 128-bit lane; values are already 0..255.
    const __m512i words = _mm512_packs_epi32(lo, hi);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i), _mm512_cvtepi16_epi8(words));
  }
  bilinear_vertical_row_plain(dst + i, a + i, b + i, wy, n - i);
}

}  // namespace oru
