// Misuse of the interface never crashes: every exported function of the public headers
// (the table is generated from them at build time) is called the way a new user might get
// it wrong, once with null pointers and zero numbers, once with pointers to zero-filled
// records, each call in a child process of its own. A signal, a sanitizer report or a call
// that doesn't come back fails the test and names the function.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

#include "orucore.h"

// A sanitizer report in a child ends it with this status, told apart from a clean return.
#define ORU_SANITIZER_EXIT "86"

extern "C" const char *__asan_default_options() { return "halt_on_error=1:exitcode=" ORU_SANITIZER_EXIT; }
extern "C" const char *__ubsan_default_options() {
  return "halt_on_error=1:print_stacktrace=1:exitcode=" ORU_SANITIZER_EXIT;
}

namespace {

const int kSanitizerExit = std::atoi(ORU_SANITIZER_EXIT);
const unsigned kTimeoutSeconds = 10;

enum class Misuse { kNullPointers, kZeroRecords };

// Zero-filled memory behind every pointer argument. A record of a type that the headers
// define gets exactly its size, so that a sanitizer sees a read past it; arrays, opaque
// handles and void get a page. The block starts 64 zero bytes in, where an allocator
// looks for its header.
template <typename T, typename = void>
struct IsComplete : std::false_type {};
template <typename T>
struct IsComplete<T, std::void_t<decltype(sizeof(T))>> : std::true_type {};

template <typename T>
constexpr size_t record_size() {
  if constexpr (std::is_class_v<T>) {
    if constexpr (IsComplete<T>::value) return sizeof(T);
  }
  return 4096;
}

const size_t kRecordLead = 64;

void *zero_record(size_t size) {
  void *block = nullptr;
  if (posix_memalign(&block, 64, kRecordLead + size) != 0) std::abort();
  std::memset(block, 0, kRecordLead + size);
  return static_cast<char *>(block) + kRecordLead;  // a child ends without freeing it
}

void free_record(const void *record) {
  std::free(const_cast<char *>(static_cast<const char *>(record)) - kRecordLead);
}

template <typename T>
T misuse_argument(Misuse misuse) {
  if constexpr (std::is_pointer_v<T>) {
    using Pointee = std::remove_cv_t<std::remove_pointer_t<T>>;
    if constexpr (std::is_function_v<Pointee>) {
      return nullptr;  // a callback can't be zero-filled
    } else {
      if (misuse == Misuse::kNullPointers) return nullptr;
      return static_cast<T>(zero_record(record_size<Pointee>()));
    }
  } else {
    return T{};  // zero integers, floats and enumerations
  }
}

template <typename R, typename... A>
void call_misused(R (*function)(A...), [[maybe_unused]] Misuse misuse) {
  (void)function(misuse_argument<A>(misuse)...);
}

struct MisuseTarget {
  const char *name;
  void (*call)(Misuse);
};
struct MisuseExclusion {
  const char *name;
  const char *reason;
};

}  // namespace

// The table includes every public header itself, so a header that the umbrella misses is
// swept too.
#define ORU_MISUSE_TARGET(function) \
  { #function, [](Misuse misuse) { call_misused(&function, misuse); } }
#include "misuse_sweep_table.inc"
#undef ORU_MISUSE_TARGET

namespace {

// How a child ended: empty if it came back from the call, else what went wrong followed by
// whatever it printed.
template <typename Call, typename Argument>
std::string run_in_child(Call call, Argument argument, unsigned timeout_seconds) {
  int out[2];
  if (pipe(out) != 0) return std::string("pipe failed: ") + std::strerror(errno);
  std::fflush(nullptr);  // nothing buffered may be printed twice
  const pid_t pid = fork();
  if (pid < 0) return std::string("fork failed: ") + std::strerror(errno);
  if (pid == 0) {
    dup2(out[1], 1);
    dup2(out[1], 2);
    close(out[0]);
    close(out[1]);
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // what was printed before a crash comes back too
    alarm(timeout_seconds);
    call(argument);
    std::fflush(nullptr);
    _exit(0);  // no exit handlers: what a call created on purpose is not a leak
  }
  close(out[1]);
  std::string printed;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) != 0;) {
    if (n > 0)
      printed.append(buffer, size_t(n));
    else if (errno != EINTR)
      break;
  }
  close(out[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  std::string what;
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
    what = "no return within " + std::to_string(timeout_seconds) + " s";
  else if (WIFSIGNALED(status))
    what = "killed by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
  else if (WIFEXITED(status) && WEXITSTATUS(status) == kSanitizerExit)
    what = "stopped by a sanitizer report";
  else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    what = "ended with exit status " + std::to_string(WEXITSTATUS(status));
  if (what.empty()) return what;
  const size_t keep = 6000;  // the end of the output holds the report
  if (printed.size() > keep) printed = "...\n" + printed.substr(printed.size() - keep);
  return what + "\n" + printed;
}

const char *describe(Misuse misuse) {
  return misuse == Misuse::kNullPointers ? "null pointers and zero numbers"
                                         : "pointers to zero-filled records and zero numbers";
}

class MisuseSweep : public ::testing::TestWithParam<Misuse> {};

TEST_P(MisuseSweep, EveryExportedFunctionReturns) {
  size_t called = 0;
  for (const MisuseTarget &target : kMisuseTargets) {
    const std::string failure = run_in_child(target.call, GetParam(), kTimeoutSeconds);
    ++called;
    if (!failure.empty()) ADD_FAILURE() << target.name << " with " << describe(GetParam()) << ": " << failure;
  }
  std::printf("misuse sweep with %s: called %zu, excluded %zu\n", describe(GetParam()), called,
              kMisuseExclusionCount);
}

INSTANTIATE_TEST_SUITE_P(Api, MisuseSweep, ::testing::Values(Misuse::kNullPointers, Misuse::kZeroRecords),
                         [](const ::testing::TestParamInfo<Misuse> &info) {
                           return info.param == Misuse::kNullPointers ? "NullPointers" : "ZeroRecords";
                         });

// The harness itself tells each way of failing from a clean return.
TEST(MisuseSweepHarness, TellsCleanReturnsFromFaults) {
  EXPECT_EQ(run_in_child([](int) { std::printf("quiet\n"); }, 0, kTimeoutSeconds), "");
  // A sanitizer catches the segmentation fault itself where there is one.
  const std::string segv = run_in_child([](int) { raise(SIGSEGV); }, 0, kTimeoutSeconds);
  EXPECT_TRUE(segv.find("signal 11") != std::string::npos || segv.find("sanitizer") != std::string::npos) << segv;
  EXPECT_NE(run_in_child([](int) { std::abort(); }, 0, kTimeoutSeconds).find("signal 6"), std::string::npos);
  EXPECT_NE(run_in_child([](int) { _exit(3); }, 0, kTimeoutSeconds).find("exit status 3"), std::string::npos);
  EXPECT_NE(run_in_child([](int) { pause(); }, 0, 1).find("no return within 1 s"), std::string::npos);
  // The child's output comes back with the failure, the report being at its end.
  EXPECT_NE(run_in_child([](int) { std::printf("the report\n"); raise(SIGSEGV); }, 0, kTimeoutSeconds)
                .find("the report"),
            std::string::npos);
}

// Every pointer argument gets its own zero-filled record of the pointee's size, a null
// callback, and zeros for everything else.
TEST(MisuseSweepHarness, ArgumentsAreZeroFilledRecords) {
  const auto matrix = misuse_argument<const oru_matrix *>(Misuse::kZeroRecords);
  const auto other = misuse_argument<const oru_matrix *>(Misuse::kZeroRecords);
  const auto address = misuse_argument<oru_matrix **>(Misuse::kZeroRecords);
  const oru_matrix zero{};
  ASSERT_NE(matrix, nullptr);
  EXPECT_EQ(std::memcmp(matrix, &zero, sizeof zero), 0);
  EXPECT_NE(matrix, other);
  EXPECT_EQ(*address, nullptr);
  for (const void *record : {static_cast<const void *>(matrix), static_cast<const void *>(other),
                             static_cast<const void *>(address)})
    free_record(record);
  EXPECT_EQ(misuse_argument<oru_matrix *>(Misuse::kNullPointers), nullptr);
  EXPECT_EQ(misuse_argument<oru_mat_mul_tile_kernel_real32>(Misuse::kZeroRecords), nullptr);
  EXPECT_EQ(misuse_argument<int32_t>(Misuse::kZeroRecords), 0);
  EXPECT_EQ(misuse_argument<float>(Misuse::kZeroRecords), 0.0f);
  EXPECT_EQ(record_size<oru_matrix>(), sizeof(oru_matrix));
  struct Opaque;
  EXPECT_EQ(record_size<Opaque>(), 4096u);
  EXPECT_EQ(record_size<float>(), 4096u);
}

#if defined(__SANITIZE_ADDRESS__)
#define ORU_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORU_TEST_ASAN 1
#endif
#endif

#ifdef ORU_TEST_ASAN
// A read just past a zero-filled record is caught even though it doesn't crash.
TEST(MisuseSweepHarness, SanitizerReportIsAFailure) {
  const std::string failure = run_in_child(
      [](int) {
        const auto record = misuse_argument<const oru_matrix *>(Misuse::kZeroRecords);
        volatile const char *past = reinterpret_cast<const char *>(record + 1);
        (void)*past;
      },
      0, kTimeoutSeconds);
  EXPECT_NE(failure.find("stopped by a sanitizer report"), std::string::npos) << failure;
}
#endif

}  // namespace
