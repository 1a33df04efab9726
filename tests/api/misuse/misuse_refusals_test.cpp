// What the calls that misuse used to crash give now: the result, and how many reports they
// print (one for a refusal, none for a function that returns nothing and ignores null, or
// for a status that is returned silently), with the valid call beside them unchanged.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "orucore.h"

namespace {

struct Refusal {
  const char *name;
  std::function<int64_t()> call;
  int64_t result;
  int reports;
};

int count_reports(const std::string &printed) {
  int n = 0;
  for (size_t at = printed.find("Error occurred: "); at != std::string::npos;
       at = printed.find("Error occurred: ", at + 1))
    ++n;
  return n;
}

const double kSeven = 7.0;
const float kBox[4] = {0, 0, 10, 20};
const oru_lm_criteria kCriteria = {3, 10, 1e-9};

// A record of each kind as a caller might fill it in by hand: all zero, without storage.
oru_lm_optimizer zero_optimizer{};
oru_kalman_box_tracker zero_tracker{};

// Runs one of the optimiser's updates on an optimiser made with nparams and nerrs; the
// out-arguments start non-null, so a refusal is seen to clear them.
int64_t update_with(int32_t nerrs, bool alt) {
  oru_lm_optimizer *o = oru_create_lm_optimizer(6, nerrs, &kCriteria, 0);
  oru_matrix dummy{};
  oru_matrix *param = &dummy, *a = &dummy, *b = &dummy;
  double *norm = nullptr;
  const uint32_t r = alt ? oru_lm_optimizer_update_alt(&param, &a, &b, &norm, o)
                         : oru_lm_optimizer_update(&param, &a, &b, o);
  const bool handed_out = param != &dummy && a != &dummy && b != &dummy;
  oru_release_lm_optimizer(&o);
  return handed_out ? int64_t(r) : -1;
}

int64_t tracker_call(int which, oru_kalman_box_tracker *t) {
  float box[4] = {kBox[0], kBox[1], kBox[2], kBox[3]};
  switch (which) {
    case 0: return oru_kalman_box_tracker_predict(box, t);
    case 1: return oru_kalman_box_tracker_update(box, t);
    default: return oru_kalman_box_tracker_get_state(box, t);
  }
}

int64_t with_tracker(int which) {
  oru_kalman_box_tracker *t = oru_create_kalman_box_tracker(kBox, 1);
  const int64_t r = tracker_call(which, t);
  oru_release_kalman_box_tracker(&t);
  return r;
}

const Refusal kRefusals[] = {
    {"str_free of a null slot", [] { oru_darray_element_str_free(nullptr); return int64_t(0); }, 0, 0},
    {"str_cpy to or from nowhere",
     [] {
       char *slot = nullptr;
       oru_darray_element_str_cpy(nullptr, &slot, 8);
       oru_darray_element_str_cpy(&slot, nullptr, 8);
       return int64_t(slot != nullptr);
     },
     0, 0},
    {"solve_p2 without x", [] { return int64_t(oru_solve_p2(nullptr, -3, 2)); }, 0, 1},
    {"solve_p3 without x", [] { return int64_t(oru_solve_p3(nullptr, -6, 11, -6)); }, 0, 1},
    {"solve_p4 without x", [] { return int64_t(oru_solve_p4(nullptr, 0, -5, 0, 4)); }, 0, 1},
    {"solve_p3 still solves", [] { double x[3]; return int64_t(oru_solve_p3(x, -6, 11, -6)); }, 3, 0},
    {"solve_quartic without roots",
     [] {
       const double f[5] = {1, -10, 35, -50, 24};
       double roots[4] = {kSeven, kSeven, kSeven, kSeven};
       oru_solve_quartic(nullptr, roots);
       oru_solve_quartic(f, nullptr);
       return int64_t(roots[0] == kSeven && roots[3] == kSeven);
     },
     1, 0},
    {"compute_poses without arrays", [] { return int64_t(compute_poses(nullptr, nullptr, nullptr, nullptr)); }, 0, 1},
    {"lm step of null", [] { return int64_t(oru_lm_optimizer_step(nullptr)); }, ORU_RET_ERR_PARA, 1},
    {"lm step of a zero record", [] { return int64_t(oru_lm_optimizer_step(&zero_optimizer)); }, ORU_RET_ERR_PARA, 1},
    {"lm update of null",
     [] {
       oru_matrix *p = nullptr, *j = nullptr, *e = nullptr;
       return int64_t(oru_lm_optimizer_update(&p, &j, &e, nullptr));
     },
     0, 1},
    {"lm update without addresses", [] { return int64_t(oru_lm_optimizer_update(nullptr, nullptr, nullptr, nullptr)); },
     0, 1},
    {"lm update of an optimiser without J", [] { return update_with(0, false); }, 0, 1},
    {"lm update starts a run", [] { return update_with(12, false); }, 1, 0},
    {"lm update_alt of null",
     [] { return int64_t(oru_lm_optimizer_update_alt(nullptr, nullptr, nullptr, nullptr, nullptr)); }, 0, 1},
    {"lm update_alt of a zero record", [] {
       oru_matrix *p = nullptr, *a = nullptr, *b = nullptr;
       double *n = nullptr;
       return int64_t(oru_lm_optimizer_update_alt(&p, &a, &b, &n, &zero_optimizer));
     }, 0, 1},
    {"lm update_alt starts a run", [] { return update_with(0, true); }, 1, 0},
    {"transpose_mul_mat of null", [] { return int64_t(oru_small_mat_transpose_mul_mat(nullptr, nullptr)); },
     ORU_RET_ERR_PARA, 1},
    {"transpose_mul_mat of unlike sizes stays silent",
     [] {
       oru_matrix *d = oru_create_matrix(2, 2, 1, aif64), *s = oru_create_matrix(3, 3, 1, aif64);
       const uint32_t r = oru_small_mat_transpose_mul_mat(d, s);
       oru_release_matrix(&d);
       oru_release_matrix(&s);
       return int64_t(r);
     },
     ORU_RET_ERR_PARA, 0},
    {"box predict of a zero record", [] { return tracker_call(0, &zero_tracker); }, ORU_RET_ERR_PARA, 1},
    {"box update of a zero record", [] { return tracker_call(1, &zero_tracker); }, ORU_RET_ERR_PARA, 1},
    {"box get_state of a zero record", [] { return tracker_call(2, &zero_tracker); }, ORU_RET_ERR_PARA, 1},
    {"box update of null, silently", [] { return tracker_call(1, nullptr); }, ORU_RET_ERR_PARA, 0},
    {"box predict of a track", [] { return with_tracker(0); }, ORU_RET_OK, 0},
    {"box update of a track", [] { return with_tracker(1); }, ORU_RET_OK, 0},
    {"box get_state of a track", [] { return with_tracker(2); }, ORU_RET_OK, 0},
};

class MisuseRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(MisuseRefusal, GivesItsResultAndReports) {
  const Refusal &r = GetParam();
  ::testing::internal::CaptureStdout();
  const int64_t result = r.call();
  std::fflush(stdout);
  const std::string printed = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, r.result) << r.name;
  EXPECT_EQ(count_reports(printed), r.reports) << r.name << " printed:\n" << printed;
  if (r.reports > 0) {
    EXPECT_NE(printed.find("Your input params are wrong!"), std::string::npos) << printed;
  }
}

INSTANTIATE_TEST_SUITE_P(Api, MisuseRefusal, ::testing::ValuesIn(kRefusals),
                         [](const ::testing::TestParamInfo<Refusal> &info) {
                           std::string name = info.param.name;
                           for (char &c : name)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

}  // namespace
