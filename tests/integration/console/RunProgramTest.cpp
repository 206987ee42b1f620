#include "console/RunProgram.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sysexits.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <stdexcept>
#include <thread>

#include "console/UsageError.h"

namespace {

using testing::ExitedWithCode;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

[[noreturn]] void runAndExit(const std::function<ExitCode()>& work) {
  _exit(runProgram(work));
}

TEST(RunProgram, exitStatusIsThatOfTheWork) {
  EXPECT_EXIT(runAndExit([] { return ExitCode::Found; }), ExitedWithCode(0), "^$");
  EXPECT_EXIT(runAndExit([] { return ExitCode::NotFound; }), ExitedWithCode(1), "^$");
}

TEST(RunProgram, whatIsThrownIsTold) {
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw UsageError("no such option"); }), ExitedWithCode(64), "no such option");
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw std::runtime_error("no reason"); }), ExitedWithCode(69), "no reason");
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw std::bad_alloc(); }), ExitedWithCode(69), "out of memory");
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw RuntimeError("not allowed", FailureKind::Refused); }),
              ExitedWithCode(77), "not allowed");
  EXPECT_EXIT(runAndExit([]() -> ExitCode { throw "a text of the platform"; }), ExitedWithCode(65),
              "a text of the platform");
  const auto copy = [](std::errc error) -> ExitCode {
    throw std::filesystem::filesystem_error("cannot copy", std::make_error_code(error));
  };
  EXPECT_EXIT(runAndExit([&] { return copy(std::errc::no_space_on_device); }), ExitedWithCode(74),
              "cannot copy: No space");
  EXPECT_EXIT(runAndExit([&] { return copy(std::errc::permission_denied); }), ExitedWithCode(77),
              "cannot copy: Permission");
}

void takeMemory() {
  throw std::bad_alloc();
}

// As destructors of other libraries do that take memory.
void takeMemoryWhereNothingMayBeThrown() noexcept {
  takeMemory();
}

const char* twoWords() {
  return "half done";
}

TEST(RunProgram, memoryThatRunsOutIsToldAlsoWhereNothingMayBeThrown) {
  const auto work = [] {
    takeMemoryWhereNothingMayBeThrown();
    return ExitCode::Found;
  };
  EXPECT_EXIT(runAndExit(work), ExitedWithCode(69), "^console_tests: out of memory\n$");
  EXPECT_EXIT(_exit(runProgram(work, twoWords)), ExitedWithCode(69), "^console_tests: half done\n$");
  EXPECT_EXIT(_exit(runProgram([]() -> ExitCode { throw std::bad_alloc(); }, twoWords)), ExitedWithCode(69), "half done");
}

TEST(RunProgram, threadThatWaitsForMemoryIsGivenTimeForIt) {
  const auto work = [] {
    waitForMemory();
    int trials = 0;
    try {
      for (;; ++trials) {
        std::get_new_handler()();  // as `new` does until there is memory
      }
    } catch (const std::bad_alloc&) {
    }
    bool isPatient = true;
    std::thread([&] {
      try {
        std::get_new_handler()();
      } catch (const std::bad_alloc&) {
        isPatient = false;
      }
    }).join();
    return trials == 100 && !isPatient ? ExitCode::Found : ExitCode::NotFound;
  };
  EXPECT_EXIT(runAndExit(work), ExitedWithCode(0), "^$");
}

TEST(RunProgram, kindOfAFailureGivesTheStatus) {
  const struct {
    FailureKind kind;
    ExitCode code;
  } kRows[] = {
      {FailureKind::None, ExitCode::Data},
      {FailureKind::Contention, ExitCode::TryAgain},
      {FailureKind::Constraint, ExitCode::Data},
      {FailureKind::ConnectionLost, ExitCode::TryAgain},
      {FailureKind::CommitInDoubt, ExitCode::Unavailable},
      {FailureKind::Other, ExitCode::Unavailable},
      {FailureKind::Configuration, ExitCode::Configuration},
      {FailureKind::Data, ExitCode::Data},
      {FailureKind::File, ExitCode::InputOutput},
      {FailureKind::Creation, ExitCode::CannotCreate},
      {FailureKind::Refused, ExitCode::Refused},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(exitCodeOf(row.kind), row.code) << static_cast<int>(row.kind);
  }
}

TEST(RunProgram, statusesAreThoseOfSysexits) {
  EXPECT_EQ(static_cast<int>(ExitCode::Usage), EX_USAGE);
  EXPECT_EQ(static_cast<int>(ExitCode::Data), EX_DATAERR);
  EXPECT_EQ(static_cast<int>(ExitCode::Unavailable), EX_UNAVAILABLE);
  EXPECT_EQ(static_cast<int>(ExitCode::CannotCreate), EX_CANTCREAT);
  EXPECT_EQ(static_cast<int>(ExitCode::InputOutput), EX_IOERR);
  EXPECT_EQ(static_cast<int>(ExitCode::TryAgain), EX_TEMPFAIL);
  EXPECT_EQ(static_cast<int>(ExitCode::Refused), EX_NOPERM);
  EXPECT_EQ(static_cast<int>(ExitCode::Configuration), EX_CONFIG);
}

TEST(RunProgram, memoryIsKeptOutOfCoreDumps) {
  EXPECT_EXIT(runAndExit([] {
                rlimit core = {1, 1};
                const bool isKept = getrlimit(RLIMIT_CORE, &core) == 0 && core.rlim_cur == 0 && core.rlim_max == 0 &&
                                    prctl(PR_GET_DUMPABLE) == 0;
                return isKept ? ExitCode::Found : ExitCode::NotFound;
              }),
              ExitedWithCode(0), "");
}

}  // namespace
