#include "console/RunProgram.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>

#include "console/UsageError.h"

namespace {

using testing::ExitedWithCode;

[[noreturn]] void runAndExit(const std::function<ExitCode()>& work) {
  _exit(runProgram(work));
}

TEST(RunProgram, exitStatusIsThatOfTheWork) {
  EXPECT_EXIT(runAndExit([] { return ExitCode::Found; }), ExitedWithCode(0), "^$");
  EXPECT_EXIT(runAndExit([] { return ExitCode::NotFound; }), ExitedWithCode(1), "^$");
}

TEST(RunProgram, whatIsThrownIsTold) {
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw UsageError("no such option"); }), ExitedWithCode(2), "no such option");
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw std::runtime_error("no database"); }), ExitedWithCode(75),
              "no database");
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw "a text of the platform"; }), ExitedWithCode(75),
              "a text of the platform");
}

TEST(RunProgram, memoryIsKeptOutOfCoreDumps) {
  EXPECT_EXIT(runAndExit([] {
                rlimit core = {1, 1};
                const bool isKept = getrlimit(RLIMIT_CORE, &core) == 0 && core.rlim_cur == 0 && core.rlim_max == 0 &&
                                    prctl(PR_GET_DUMPABLE) == 0;
                return isKept ? ExitCode::Found : ExitCode::Failure;
              }),
              ExitedWithCode(0), "");
}

}  // namespace
