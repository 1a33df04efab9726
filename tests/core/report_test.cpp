#include <gtest/gtest.h>

#include "core/oru_dispatch.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "core/oru_types.h"

namespace {

TEST(Report, PrintsTheOneFormat) {
  testing::internal::CaptureStdout();
  oru::report("boom", "src/x.cpp", 12);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error occurred: boom \nError position:\nFile:src/x.cpp:12\n");
}

TEST(Report, MapsStatusCodesToMessages) {
  const uint32_t codes[] = {0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 257, 258};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(oru::message_index(codes[i]), i);
  EXPECT_EQ(oru::message_index(3), -1);
  testing::internal::CaptureStdout();
  ORU_REPORT_STATUS(ORU_RET_ERR_DATA_LENGTH);
  ORU_REPORT_STATUS(3u);  // unknown: nothing
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Error occurred: Data length is not enough! \n", 0), 0u);
  EXPECT_NE(out.find("report_test.cpp:"), std::string::npos) << out;
  EXPECT_STREQ(oru_error_string[2], "Allocating memory failure! ");
  EXPECT_STREQ(oru_error_string[12], "Faled to lock thread");
}

TEST(ElementTypes, ByteTableAnswersTheThreeQuestions) {
  for (uint32_t code = 0; code < 32; ++code) {
    const uint32_t channels = code / 8 + 1;
    const uint32_t base_bytes = oru::visit_base(code, [](auto tag) { return uint32_t(sizeof(typename decltype(tag)::type)); });
    EXPECT_EQ(oru::element_bytes(code), base_bytes * channels) << code;
    EXPECT_EQ(oru::channel_count(code), channels);
    EXPECT_EQ(oru::channel_bytes(code), base_bytes);
  }
}

TEST(Scratch, FreesOnScopeExitAndGuardsRecords) {
  oru::Scratch<float> s(100);
  ASSERT_TRUE(s);
  s[99] = 1.0f;
  oru::Scratch<int> zero(10, true);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(zero[i], 0);
  oru::Scratch<int> none(0);
  EXPECT_FALSE(none);
}

TEST(Dispatch, PicksAFormThatRunsHere) {
  EXPECT_TRUE(oru::isa_runs_here(oru::Isa::plain));
  EXPECT_TRUE(oru::isa_runs_here(oru::best_isa()));
#if defined(__aarch64__)
  EXPECT_EQ(oru::best_isa(), oru::Isa::neon);
#elif defined(__x86_64__)
  EXPECT_EQ(oru::isa_runs_here(oru::Isa::avx2), __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"));
  EXPECT_FALSE(oru::isa_runs_here(oru::Isa::neon));
#endif
  using Fn = int (*)();
  const oru::KernelForms<Fn> only_plain{[] { return 0; }, nullptr, nullptr, nullptr};
  EXPECT_EQ(oru::pick(only_plain)(), 0);
  int visited = 0;
  oru::for_each_runnable_form(only_plain, [&](oru::Isa isa, Fn) {
    EXPECT_EQ(isa, oru::Isa::plain);
    ++visited;
  });
  EXPECT_EQ(visited, 1);
}

}  // namespace
