// Operator 30: nearest or bilinear scaling of every channel plane of a float tensor. The
// bilinear forms follow the library's own arithmetic: half-pixel centres that extrapolate at
// the top and left border, and corner-aligned steps accumulated in float.
#include <cmath>
#include <cstring>
#include <utility>

#include "cg/ops/oru_cg_ops_common.h"
#include "core/oru_types.h"
#include "kernels/sampling/oru_sample_kernels.h"

namespace oru {

namespace {

constexpr int32_t kNearest = 0, kBilinear = 1;

struct Planes {
  const float *in;
  float *out;
  int64_t wi, hi, wo, ho, channels;
};

uint32_t sample_nearest(const Planes &p) {
  Scratch<int32_t> xs(p.wo), ys(p.ho);
  if (!xs || !ys) ORU_FAIL(ORU_RET_ERR_MEMORY);
  const float rx = float(p.wi) / float(p.wo), ry = float(p.hi) / float(p.ho);
  for (int64_t x = 0; x < p.wo; ++x) {
    const int64_t s = int64_t(std::floor(rx * float(x)));
    xs[x] = int32_t(s < p.wi - 1 ? s : p.wi - 1);
  }
  for (int64_t y = 0; y < p.ho; ++y) {
    const int64_t s = int64_t(std::floor(ry * float(y)));
    ys[y] = int32_t(s < p.hi - 1 ? s : p.hi - 1);
  }
  using PickFn = decltype(&sample_pick_row_plain);
  static const PickFn pick_row = pick(ORU_KERNEL_FORMS(sample_pick_row));
  for (int64_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.wi * p.hi;
    float *out = p.out + c * p.wo * p.ho;
    for (int64_t y = 0; y < p.ho; ++y) pick_row(out + y * p.wo, in + ys[y] * p.wi, xs.get(), p.wo);
  }
  return ORU_RET_OK;
}

// Half-pixel centres: the source coordinate of output position i, truncated toward zero.
struct Coord {
  int32_t index;
  float frac;
};

Coord half_pixel(int64_t i, double inv_scale) {
  const float s = float(inv_scale * double(float(i) + 0.5f) - 0.5);
  const int32_t t = int32_t(s);
  return {t, s - float(t)};
}

uint32_t sample_bilinear_half_pixel(const Planes &p) {
  using HrowFn = decltype(&sample_hrow_plain);
  using VrowFn = decltype(&sample_vrow_plain);
  static const HrowFn hrow = pick(ORU_KERNEL_FORMS(sample_hrow));
  static const VrowFn vrow = pick(ORU_KERNEL_FORMS(sample_vrow));
  // Per position an offset and two weights (12 bytes), for every column and row.
  Scratch<uint8_t> tables((p.wo + p.ho) * 12);
  const int64_t row_len = (p.wo + 31) / 32 * 32;
  Scratch<float> rows(2 * row_len);
  if (!tables || !rows) ORU_FAIL(ORU_RET_ERR_MEMORY);
  int32_t *xofs = reinterpret_cast<int32_t *>(tables.get());
  int32_t *yofs = xofs + p.wo;
  float *xa = reinterpret_cast<float *>(yofs + p.ho), *xb = xa + p.wo;
  float *ya = xb + p.wo, *yb = ya + p.ho;
  const double ifx = 1.0 / (double(p.wo) / double(p.wi)), ify = 1.0 / (double(p.ho) / double(p.hi));
  int64_t xmax = p.wo;
  for (int64_t x = 0; x < p.wo; ++x) {
    Coord k = half_pixel(x, ifx);
    const int32_t ix = k.index < 0 ? 0 : k.index;
    if (ix + 1 < p.wi) {
      xofs[x] = ix;
      xa[x] = 1.0f - k.frac;
      xb[x] = k.frac;
    } else {
      xofs[x] = int32_t(p.wi - 1);
      xa[x] = 1.0f;
      xb[x] = 0.0f;
      if (xmax == p.wo) xmax = x;
    }
  }
  for (int64_t y = 0; y < p.ho; ++y) {
    Coord k = half_pixel(y, ify);
    yofs[y] = k.index;
    ya[y] = 1.0f - k.frac;
    yb[y] = k.frac;
  }
  auto clamp_row = [&](int64_t r) { return r < 0 ? 0 : r > p.hi - 1 ? p.hi - 1 : r; };
  for (int64_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.wi * p.hi;
    float *out = p.out + c * p.wo * p.ho;
    // Two filtered rows kept with their row numbers; when upscaling most output rows reuse them.
    float *buf[2] = {rows.get(), rows.get() + row_len};
    int64_t held[2] = {-1, -1};
    for (int64_t y = 0; y < p.ho; ++y) {
      const int64_t y0 = clamp_row(yofs[y]), y1 = clamp_row(int64_t(yofs[y]) + 1);
      if (held[0] != y0) {
        if (held[1] == y0) {
          std::swap(buf[0], buf[1]);
          std::swap(held[0], held[1]);
        } else {
          hrow(buf[0], in + y0 * p.wi, xofs, xa, xb, xmax, p.wo);
          held[0] = y0;
        }
      }
      if (held[1] != y1) {
        hrow(buf[1], in + y1 * p.wi, xofs, xa, xb, xmax, p.wo);
        held[1] = y1;
      }
      vrow(out + y * p.wo, buf[0], buf[1], ya[y], yb[y], p.wo);
    }
  }
  return ORU_RET_OK;
}

// Corner-aligned: source position = accumulated float step times (size - 1).
struct Corner {
  int64_t i0;
  float frac;
};

Corner corner(float u, int64_t size) {
  const float g = u * float(size - 1);
  const float fl = std::floor(g);
  int64_t i = int64_t(fl);
  float f = fl >= 0.0f ? g - fl : 0.0f;
  if (i < 0) i = 0;
  if (i >= size - 1) f = 0.0f;
  return {i < size - 1 ? i : size - 1, f};
}

uint32_t sample_bilinear_corners(const Planes &p) {
  const float step_y = 1.0f / float(p.ho - 1), step_x = 1.0f / float(p.wo - 1);
  for (int64_t c = 0; c < p.channels; ++c) {
    const float *in = p.in + c * p.wi * p.hi;
    float *out = p.out + c * p.wo * p.ho;
    float v = 0.0f;
    for (int64_t y = 0; y < p.ho; ++y, v += step_y) {
      const Corner ry = corner(v, p.hi);
      const float *up = in + ry.i0 * p.wi;
      const float *lo = ry.frac != 0.0f ? up + p.wi : nullptr;
      float u = 0.0f;
      for (int64_t x = 0; x < p.wo; ++x, u += step_x) {
        const Corner rx = corner(u, p.wi);
        const float f = rx.frac, g = ry.frac;
        const float p00 = up[rx.i0], p01 = f != 0.0f ? up[rx.i0 + 1] : 0.0f;
        const float p10 = lo ? lo[rx.i0] : 0.0f, p11 = lo && f != 0.0f ? lo[rx.i0 + 1] : 0.0f;
        out[y * p.wo + x] = ((f * p11 + (1.0f - f) * p10) * g) + ((f * p01 + (1.0f - f) * p00) * (1.0f - g));
      }
    }
  }
  return ORU_RET_OK;
}

int64_t dim_of(const oru_tensor *t, int k) { return t->ndims > k ? t->dims[k] : 1; }

uint32_t sample_forward(void *context) {
  auto *c = static_cast<oru_cg_sample_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (c->dev_type == 2 || c->dev_type == 3) return ORU_RET_OK;
  const oru_tensor *in = c->input;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(out) || in->ndims < 2 || out->ndims < 2) return ORU_RET_ERR_PARA;
  if (base_of_code(in->type) != aif32 || out->type != in->type) return ORU_RET_ERR_PARA;
  Planes p{static_cast<const float *>(in->data), static_cast<float *>(out->data), dim_of(in, 0), dim_of(in, 1),
           dim_of(out, 0), dim_of(out, 1), dim_of(out, 2) > 1 ? dim_of(out, 2) : 1};
  if (p.wi < 1 || p.hi < 1 || p.wo < 1 || p.ho < 1) return ORU_RET_ERR_PARA;
  // Both tensors must hold every plane the walk touches.
  if (in->total_elements < p.wi * p.hi * p.channels || out->total_elements < p.wo * p.ho * p.channels)
    return ORU_RET_ERR_PARA;
  switch (c->params.mode) {
    case kNearest: return sample_nearest(p);
    case kBilinear:
      return c->params.align_corners == 1 ? sample_bilinear_corners(p) : sample_bilinear_half_pixel(p);
    default: ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  }
}

}  // namespace

}  // namespace oru

using namespace oru;

extern "C" {

uint32_t oru_cg_sample(void *context) { return oru::sample_forward(context); }

ORU_API uint32_t oru_init_sample_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!params) return ORU_RET_ERR_PARA;
  const auto *sp = static_cast<const oru_cg_sample_params *>(params);
  if (sp->mode < 0 || sp->mode > 2) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  oru_cg_sample_context *c = nullptr;
  if (uint32_t st = install_context(handle, node, ORU_CG_OP_SAMPLE, oru_cg_sample, &c)) return st;
  c->params = *sp;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_sample_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_sample_context>(handle, node, {ORU_CG_OP_SAMPLE});
  if (!c || cg_in_edge_count(handle, node) != 1) return ORU_RET_ERR_PARA;
  oru_tensor *in = cg_source_tensor(handle, cg_in_edge(handle, node, 0));
  if (!in) {
    if (c->output) return ORU_RET_OK;
    ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  }
  c->input = in;
  int32_t dims[5] = {in->dims[0], in->dims[1], in->dims[2], in->dims[3], in->dims[4]};
  dims[0] = int32_t(c->params.scale_w * float(in->dims[0]));
  dims[1] = int32_t(c->params.scale_h * float(in->dims[1]));
  if (c->output) oru_release_tensor(&c->output);
  c->output = oru_create_tensor(in->ndims, dims, in->type);  // always with storage
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_uninit_sample_context(void **context) {
  return cg_release_context<oru_cg_sample_context>(context);
}

ORU_API oru_tensor *oru_get_sample_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_sample_context>(handle, node, {ORU_CG_OP_SAMPLE});
}

}  // extern "C"
