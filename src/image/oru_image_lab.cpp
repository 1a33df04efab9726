// Lab tables and the two Lab conversions. The tables turn the sRGB curve and the cube
// root into look-ups with a fixed-point index; they are built on first use.
#include <cmath>
#include <cstring>

#include "image/oru_image_color_internal.h"
#include "image/oru_image_internal.h"
#include "image/oru_image_kernels.h"

LabTables init_lab_tabs_state = {};

namespace oru {

float lab_cbrt(float x) {
  uint32_t ix;
  std::memcpy(&ix, &x, 4);
  const uint32_t sign = ix & 0x80000000u;
  ix &= 0x7FFFFFFFu;
  if (ix == 0) return 0.0f;
  const int32_t e = int32_t((ix >> 23) & 255u) - 127;
  int32_t m = e % 3;
  if (m < 0) m += 3;
  const int32_t s = m - 3;
  const uint32_t fr_bits = (ix & 0x7FFFFFu) | (uint32_t(s + 127) << 23);
  float frf;
  std::memcpy(&frf, &fr_bits, 4);
  const double fr = frf;
  const double num = (((45.2548339756803 * fr + 192.2798368355061) * fr + 119.16548242855816) * fr +
                      13.432501390862399) * fr + 0.16361612265857542;
  const double den = (((14.808840932191346 * fr + 151.97140510444356) * fr + 168.52544141015682) * fr +
                       33.99059413502156) * fr + 1.0;
  float r = float(num / den);
  uint32_t rb;
  std::memcpy(&rb, &r, 4);
  rb = uint32_t(int32_t(rb) + ((e - s) / 3) * (1 << 23)) | sign;
  std::memcpy(&r, &rb, 4);
  return r;
}

namespace {

float lab_f(float x) { return x < 0.008856f ? 7.787f * x + 0.13793103f : lab_cbrt(x); }

double srgb_gamma(double x) { return x <= 0.04045 ? x * 0.07739938 : std::pow((x + 0.055) * 0.9478672985781991, 2.4); }

double srgb_inv_gamma(double x) { return x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 0.4166666666666667) - 0.055; }

// Natural cubic spline of n + 1 samples at unit spacing, four floats an interval.
void build_spline(float *tab, const float *f, int n) {
  float l[1025], z[1025];
  l[0] = z[0] = 0.0f;
  for (int i = 1; i < n - 1; ++i) {
    const float t = 3.0f * (f[i + 1] - 2.0f * f[i] + f[i - 1]);
    const float li = 1.0f / (4.0f - l[i - 1]);
    l[i] = li;
    z[i] = (t - z[i - 1]) * li;
  }
  l[n - 1] = z[n - 1] = 0.0f;
  float c_next = 0.0f;
  for (int i = n - 1; i >= 0; --i) {
    const float c = z[i] - l[i] * c_next;
    const float b = f[i + 1] - f[i] - (c_next + 2.0f * c) * 0.33333334f;
    const float d = (c_next - c) * 0.33333334f;
    tab[4 * i] = f[i];
    tab[4 * i + 1] = b;
    tab[4 * i + 2] = c;
    tab[4 * i + 3] = d;
    c_next = c;
  }
}

float spline_at(const float *tab, float x) {
  int i = int(x);
  i = i < 0 ? 0 : i > 1023 ? 1023 : i;
  const float t = x - float(i);
  const float *p = tab + 4 * i;
  return ((p[3] * t + p[2]) * t + p[1]) * t + p[0];
}

}  // namespace
}  // namespace oru

void init_lab_tabs() {
  LabTables &t = init_lab_tabs_state;
  if (t.initialized) return;
  for (int i = 0; i < 3072; ++i)
    t.LabCbrtTab_b[i] = uint16_t(std::rint(oru::lab_f(float(i) * 0.0004901961f) * 32768.0f));
  for (int i = 0; i < 256; ++i)
    t.sRGBGammaTab_b[i] = uint16_t(std::rint(oru::srgb_gamma(float(i) * 0.003921569f) * 2040.0));
  float f[1025];
  for (int i = 0; i <= 1024; ++i) f[i] = float(oru::srgb_inv_gamma(i * 0.0009765625));
  oru::build_spline(t.sRGBInvGammaTab, f, 1024);
  t.initialized = true;
}

namespace oru {

void bgr_to_lab(const oru_image *src, oru_image *dst) {
  init_lab_tabs();
  const LabTables &t = init_lab_tabs_state;
  for (int32_t y = 0; y < src->rows; ++y) {
    const uint8_t *s = static_cast<const uint8_t *>(src->data) + y * src->stride;
    uint8_t *d = static_cast<uint8_t *>(dst->data) + y * src->stride;
    for (int32_t x = 0; x < src->cols; ++x, s += 3, d += 3) {
      const int32_t b = t.sRGBGammaTab_b[s[0]], g = t.sRGBGammaTab_b[s[1]], r = t.sRGBGammaTab_b[s[2]];
      const int32_t fX = t.LabCbrtTab_b[(778 * b + 1541 * g + 1777 * r + 2048) >> 12];
      const int32_t fY = t.LabCbrtTab_b[(296 * b + 2929 * g + 871 * r + 2048) >> 12];
      const int32_t fZ = t.LabCbrtTab_b[(3575 * b + 448 * g + 73 * r + 2048) >> 12];
      d[0] = clamp_u8((296 * fY - 1320550) >> 15);
      d[1] = clamp_u8((500 * (fX - fY) + 0x404000) >> 15);
      d[2] = clamp_u8((200 * (fY - fZ) + 0x404000) >> 15);
    }
  }
}

void lab_to_bgr(const oru_image *src, oru_image *dst) {
  init_lab_tabs();
  const float *tab = init_lab_tabs_state.sRGBInvGammaTab;
  auto inv = [](float f) { return f <= 0.20689271f ? (f - 0.13793103f) * 0.12841916f : f * f * f; };
  auto out = [tab](float c) {
    c = c < 0.0f ? 0.0f : c > 1.0f ? 1.0f : c;
    float v = spline_at(tab, c * 1024.0f) * 255.0f;
    v = v < 0.0f ? 0.0f : v > 255.0f ? 255.0f : v;
    return uint8_t(v);
  };
  for (int32_t y = 0; y < src->rows; ++y) {
    const uint8_t *s = static_cast<const uint8_t *>(src->data) + y * src->stride;
    uint8_t *d = static_cast<uint8_t *>(dst->data) + y * src->stride;
    for (int32_t x = 0; x < src->cols; ++x, s += 3, d += 3) {
      const float lv = float(s[0]) * 0.39215687f, a = float(s[1] - 128), b = float(s[2] - 128);
      float Y, fy;
      if (lv <= 7.999625f) {
        Y = lv * 0.001107052f;
        fy = Y * 7.787f + 0.13793103f;
      } else {
        fy = (lv + 16.0f) * 0.00862069f;
        Y = fy * fy * fy;
      }
      const float X = inv(fy + 0.002f * a), Z = inv(fy - 0.005f * b);
      const float bl = 0.052890975f * X - 0.204043f * Y + 1.1511517f * Z;
      const float gl = -0.9212352f * X + 1.875991f * Y + 0.045244265f * Z;
      const float rl = 3.0799327f * X - 1.53715f * Y - 0.542782f * Z;
      d[0] = out(bl);
      d[1] = out(gl);
      d[2] = out(rl);
    }
  }
}

}  // namespace oru
