// That failures in a child process are failures of the test.
#include "ProcessTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

using testing::HasSubstr;

int processWide = 0;

PROCESS_TEST(ProcessTest, leavesTheParentAlone) {
  EXPECT_EQ(processWide, 0);
  processWide = 1;
}

PROCESS_TEST(ProcessTest, startsFromTheParentsState) {
  EXPECT_EQ(processWide, 0);
}

class ProcessTestFixture : public testing::Test {
 protected:
  void SetUp() override { m_process = ::getpid(); }
  pid_t m_process = 0;
};

PROCESS_TEST_F(ProcessTestFixture, isMadeInTheChild) {
  EXPECT_EQ(m_process, ::getpid());
}

struct FailingCase {
  const char* label;
  void (*body)();
  const char* wantText;
};

void failFatally() {
  ASSERT_EQ(1, 2) << "as planned";
}

const FailingCase kFailingCases[] = {
    {"expectation", [] { EXPECT_EQ(1, 2) << "as planned"; }, "as planned"},
    {"fatal assertion", failFatally, "as planned"},
    {"exception", [] { throw std::runtime_error("as planned"); }, "exception left the test: as planned"},
    {"text", [] { throw "as planned"; }, "text thrown out of the test: as planned"},
    {"other exception", [] { throw 1; }, "exception of unknown type left the test"},
    {"exit status", [] { ::_exit(3); }, "the child process ended with status 3"},
    {"abort", [] { std::abort(); }, "the child process died: Aborted"},
    {"signal", [] { std::raise(SIGKILL); }, "the child process died: Killed"},
    {"what it wrote",
     [] {
       std::fputs("on the way", stderr);
       ::_exit(4);
     },
     "on the way"},
    {"too long", [] { ::pause(); }, "did not end within 1 seconds"},
};

TEST(ProcessTestFailure, isDescribed) {
  for (const FailingCase& c : kFailingCases) {
    EXPECT_THAT(failureInOwnProcess(c.body, 1), HasSubstr(c.wantText)) << c.label;
  }
}

TEST(ProcessTestFailure, isEmptyWhenAllWentWell) {
  EXPECT_EQ(failureInOwnProcess([] { std::fputs("on the way", stderr); }, 20), "");
}

TEST(ProcessTestFailure, failsTheTest) {
  EXPECT_NONFATAL_FAILURE(runInOwnProcess([] { ::_exit(3); }), "the child process ended with status 3");
}

#if defined(__SANITIZE_ADDRESS__)
TEST(ProcessTestFailure, leakIsOne) {
  const auto leak = [] {
    char* volatile lost = new char[100];
    lost[0] = 'x';
    lost = nullptr;
  };
  EXPECT_THAT(failureInOwnProcess(leak, 20), HasSubstr("LeakSanitizer"));
}
#endif

}  // namespace
