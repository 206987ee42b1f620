#include "console/RunProgram.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <new>
#include <thread>

#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/DelayedSignals.h"
#include "console/Text.h"
#include "console/UsageError.h"

namespace {

void prepareProcess() {
  // The limit keeps dumps out of files. The kernel ignores it where it pipes them to a program, which the other stops.
  const rlimit none = {0, 0};
  static_cast<void>(setrlimit(RLIMIT_CORE, &none));
  static_cast<void>(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0));
  signal(SIGXFSZ, SIG_IGN);
}

const char* (*outOfMemoryText)() = nullptr;

void write(const char* text) {
  static_cast<void>(!::write(STDERR_FILENO, text, std::strlen(text)));
}

// As a diagnostic, without memory.
void tellOutOfMemory() {
  write(program_invocation_short_name);
  write(": ");
  write(outOfMemoryText());
  write("\n");
}

thread_local bool hasRunOut = false;  // of memory

// The waits of a thread for memory, which others may give back meanwhile.
class MemoryWait {
 public:
  void permit() { m_isPermitted = true; }

  // False when it has been waited for long enough.
  bool wait() {
    constexpr std::chrono::milliseconds kPause(10);
    constexpr int kMostPauses = 100;
    if (!m_isPermitted) {
      return false;
    }
    m_pauses = Clock::now() - m_last < 10 * kPause ? m_pauses + 1 : 1;
    if (m_pauses <= kMostPauses) {
      std::this_thread::sleep_for(kPause);
    }
    m_last = Clock::now();
    return m_pauses <= kMostPauses;
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool m_isPermitted = false;
  int m_pauses = 0;          // without a break between them
  Clock::time_point m_last;  // when the last ended
};

thread_local MemoryWait memoryWait;

void noteOutOfMemory() {
  if (memoryWait.wait()) {
    return;  // and `new` tries again
  }
  hasRunOut = true;
  throw std::bad_alloc();
}

// Whether the process ends since memory ran out. Compilers may end it before they tell of the exception.
bool endsWithoutMemory() {
  const std::exception_ptr thrown = std::current_exception();
  if (thrown == nullptr) {
    return hasRunOut && std::uncaught_exceptions() != 0;
  }
  try {
    std::rethrow_exception(thrown);
  } catch (const std::bad_alloc&) {
    return true;
  } catch (...) {
    return false;
  }
}

// A destructor that takes memory, as those of JSON do, and what else lets no exception pass, comes to this.
[[noreturn]] void endAtOnce() {
  if (endsWithoutMemory()) {
    tellOutOfMemory();
    _exit(static_cast<int>(ExitCode::Unavailable));
  }
  std::abort();
}

}  // namespace

void waitForMemory() {
  memoryWait.permit();
}

int runProgram(const std::function<ExitCode()>& work, const char* (*outOfMemory)()) {
  prepareProcess();
  outOfMemoryText = outOfMemory;
  std::set_new_handler(noteOutOfMemory);
  std::set_terminate(endAtOnce);
  ExitCode code = ExitCode::Unavailable;
  try {
    code = work();
  } catch (const UsageError& failure) {
    diagnose(failure.what());
    code = ExitCode::Usage;
  } catch (const Interrupted& interruption) {
    diagnose(interruption.what());
    raise(interruption.signal());
  } catch (const std::bad_alloc&) {
    tellOutOfMemory();
  } catch (const zaroruntime::RuntimeError& failure) {
    diagnose(failure.what());
    code = exitCodeOf(failure.kind());
  } catch (const std::filesystem::filesystem_error& failure) {
    diagnose(failure.what());
    code = exitCodeOf(zaroruntime::kindOfFileError(failure.code().value()));
  } catch (const std::exception& failure) {
    diagnose(failure.what());
  } catch (const char* thrown) {
    diagnose(thrown);  // by the platform, past the library
    code = exitCodeOf(zaroruntime::lastFailureKind());
  }
  return static_cast<int>(code);
}
