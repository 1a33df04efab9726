// Closed-form roots of polynomials of degree 2 to 4, in doubles.
#include <algorithm>
#include <cmath>
#include <complex>

#include "core/oru_report.h"
#include "oru_matrix.h"

extern "C" {
// Below this a coefficient or an imaginary part counts as zero.
const double eps = 1e-14;
}

namespace {

constexpr double kPi = 3.141592653589793;

// Principal square root of u + i v, written out so the branch at v = 0 is explicit.
void complex_sqrt(double u, double v, double &re, double &im) {
  if (v == 0.0) {
    if (u >= 0.0) {
      re = std::sqrt(u);
      im = 0.0;
    } else {
      re = 0.0;
      im = std::sqrt(-u);
    }
    return;
  }
  double r = std::sqrt(u * u + v * v);
  re = std::sqrt((u + r) / 2.0);
  im = v / (2.0 * re);
}

}  // namespace

extern "C" {

// The result of the solvers counts real roots, it isn't a status: without an array they
// refuse with a report and the count 0, which claims no root.
ORU_API int32_t oru_solve_p2(double *x, double a, double b) {
  if (!x) ORU_FAIL_MSG(0, oru_error_string[1]);
  double d = a * a - 4.0 * b;
  if (d >= 0.0) {
    double sd = std::sqrt(d);
    double q = a >= 0.0 ? sd - a : -sd - a;
    x[0] = q / 2.0;
    // q is 0 only when b is 0; the product form is then 0 / 0, the sum of the roots is not.
    x[1] = q != 0.0 ? 2.0 * b / q : -a - x[0];
    return 2;
  }
  x[0] = -a / 2.0;
  x[1] = std::sqrt(-d) / 2.0;
  return 0;
}

ORU_API int32_t oru_solve_p3(double *x, double a, double b, double c) {
  if (!x) ORU_FAIL_MSG(0, oru_error_string[1]);
  double a2 = a * a;
  double q = (a2 - 3.0 * b) / 9.0;
  double r = ((2.0 * a2 - 9.0 * b) * a + 27.0 * c) / 54.0;
  double r2 = r * r;
  double q3 = q * q * q;
  double a3 = a / 3.0;
  if (r2 < q3) {
    double t = std::clamp(r / std::sqrt(q3), -1.0, 1.0);
    t = std::acos(t);
    double qq = -2.0 * std::sqrt(q);
    x[0] = qq * std::cos(t / 3.0) - a3;
    x[1] = qq * std::cos((t + 2.0 * kPi) / 3.0) - a3;
    x[2] = qq * std::cos((t - 2.0 * kPi) / 3.0) - a3;
    return 3;
  }
  double A = std::pow(std::fabs(r) + std::sqrt(r2 - q3), 0.3333333333333333);
  if (r >= 0.0) A = -A;
  double B = A == 0.0 ? 0.0 : q / A;
  x[0] = (A + B) - a3;
  x[1] = -(A + B) / 2.0 - a3;
  x[2] = 0.8660254037844386 * (A - B);
  if (std::fabs(x[2]) < eps) {
    x[2] = x[1];
    return 2;
  }
  return 1;
}

ORU_API int32_t oru_solve_p4(double *x, double a, double b, double c, double d) {
  if (!x) ORU_FAIL_MSG(0, oru_error_string[1]);
  const double a4 = a / 4.0;
  const double b1 = b - 0.375 * a * a;
  const double c1 = c + (a / 2.0) * (a * a / 4.0 - b);
  const double d1 = d + (a / 4.0) * (b * a / 4.0 - 0.046875 * a * a * a - c);
  const double D = b1 * b1 - 4.0 * d1;
  int32_t real = 0;

  if (std::fabs(c1) < eps * (std::fabs(b1) + std::fabs(d1))) {
    // Biquadratic: a quadratic in t^2.
    if (D >= 0.0) {
      double s = std::sqrt(D);
      double z1 = (-b1 + s) / 2.0, z2 = (-b1 - s) / 2.0;
      if (z2 >= 0.0) {
        x[0] = -std::sqrt(z1);
        x[1] = std::sqrt(z1);
        x[2] = -std::sqrt(z2);
        x[3] = std::sqrt(z2);
        real = 4;
      } else if (z1 < 0.0) {
        x[0] = 0.0;
        x[1] = std::sqrt(-z1);
        x[2] = 0.0;
        x[3] = std::sqrt(-z2);
        real = 0;
      } else {
        x[0] = -std::sqrt(z1);
        x[1] = std::sqrt(z1);
        x[2] = 0.0;
        x[3] = std::sqrt(-z2);
        real = 2;
      }
    } else {
      double re, im;
      complex_sqrt(-b1 / 2.0, std::sqrt(-D) / 2.0, re, im);
      x[0] = re;
      x[1] = im;
      x[2] = re;
      x[3] = -im;
      real = 0;
    }
  } else {
    int32_t n = oru_solve_p3(x, 2.0 * b1, D, -c1 * c1);
    if (n >= 2) {
      double z0 = x[0], z1 = x[1], z2 = x[2];
      if (z0 > z1) std::swap(z0, z1);
      if (z0 > z2) std::swap(z0, z2);
      if (z1 > z2) std::swap(z1, z2);
      if (z0 > 0.0) {
        double s1 = std::sqrt(z0), s2 = std::sqrt(z1), s3 = std::sqrt(z2);
        if (c1 > 0.0) {
          x[0] = (-s1 - s2 - s3) / 2.0;
          x[1] = (-s1 + s2 + s3) / 2.0;
          x[2] = (s1 - s2 + s3) / 2.0;
          x[3] = (s1 + s2 - s3) / 2.0;
        } else {
          x[0] = (-s1 - s2 + s3) / 2.0;
          x[1] = (-s1 + s2 - s3) / 2.0;
          x[2] = (s1 - s2 - s3) / 2.0;
          x[3] = (s1 + s2 + s3) / 2.0;
        }
        real = 4;
      } else {
        double s1 = std::sqrt(-z0), s2 = std::sqrt(-z1), s3 = std::sqrt(z2);
        if (c1 > 0.0) {
          x[0] = -s3 / 2.0;
          x[1] = (s1 - s2) / 2.0;
          x[2] = s3 / 2.0;
          x[3] = (-s1 - s2) / 2.0;
        } else {
          x[0] = s3 / 2.0;
          x[1] = (-s1 + s2) / 2.0;
          x[2] = -s3 / 2.0;
          x[3] = (s1 + s2) / 2.0;
        }
        real = 0;
      }
    } else {
      double s1 = std::sqrt(std::max(x[0], 0.0));
      double sr, si;
      complex_sqrt(x[1], x[2], sr, si);
      if (c1 > 0.0) {
        x[0] = -s1 / 2.0 - sr;
        x[1] = -s1 / 2.0 + sr;
        x[2] = s1 / 2.0;
      } else {
        x[0] = s1 / 2.0 - sr;
        x[1] = s1 / 2.0 + sr;
        x[2] = -s1 / 2.0;
      }
      x[3] = si;
      real = 2;
    }
  }

  if (real == 4) {
    for (int i = 0; i < 4; ++i) x[i] -= a4;
  } else if (real == 2) {
    for (int i = 0; i < 3; ++i) x[i] -= a4;
  } else {
    x[0] -= a4;
    x[2] -= a4;
  }

  // One Newton step on the original polynomial tidies the closed-form rounding.
  for (int i = 0; i < real; ++i) {
    double t = x[i];
    double fd = ((4.0 * t + 3.0 * a) * t + 2.0 * b) * t + c;
    if (fd == 0.0) {
      x[i] = 1e99;
      continue;
    }
    double f = (((t + a) * t + b) * t + c) * t + d;
    x[i] = t - f / fd;
  }
  return real;
}

// Returns nothing, so missing arrays are ignored.
ORU_API void oru_solve_quartic(const double *factors, double *roots) {
  if (!factors || !roots) return;
  using cd = std::complex<double>;
  const double a4 = factors[0], a3 = factors[1], a2 = factors[2], a1 = factors[3], a0 = factors[4];
  const double a4_2 = a4 * a4, a4_3 = a4_2 * a4, a3_2 = a3 * a3;
  const double p4 = (8.0 * a2 * a4 - 3.0 * a3_2) / (8.0 * a4_2);
  const double q4 = (a3_2 * a3 - 4.0 * a2 * a4 * a3 + 8.0 * a1 * a4_2) / (8.0 * a4_3);
  const double r4 = (256.0 * a0 * a4_3 - 3.0 * a3_2 * a3_2 - 64.0 * a1 * a3 * a4_2 + 16.0 * a2 * a4 * a3_2) /
                    (256.0 * a4_3 * a4);
  const double p3 = (p4 * p4 / 12.0 + r4) / 3.0;
  const double q3 = (72.0 * r4 * p4 - 2.0 * p4 * p4 * p4 - 27.0 * q4 * q4) / 432.0;

  cd e(q3 * q3 - p3 * p3 * p3, 0.0);
  cd w = q3 >= 0.0 ? -std::sqrt(e) - q3 : std::sqrt(e) - q3;
  double t;
  if (w.imag() == 0.0) {
    double c = std::cbrt(w.real());
    t = 2.0 * (c + p3 / c);
  } else {
    w = std::pow(w, 1.0 / 3.0);
    t = 4.0 * w.real();
  }
  cd m = std::sqrt(cd(-2.0 * p4 / 3.0 + t, 0.0));
  const double B = -a3 / (4.0 * a4);
  const double c1 = 4.0 * p4 / 3.0 + t;
  cd c2 = 2.0 * q4 / m;
  const double h = m.real() / 2.0;
  const double s1 = std::sqrt(-(c1 + c2)).real() / 2.0;
  roots[0] = B + h + s1;
  roots[1] = B + h - s1;
  const double s2 = std::sqrt(-(c1 - c2)).real() / 2.0;
  roots[2] = B - h + s2;
  roots[3] = B - h - s2;
}

}  // extern "C"
