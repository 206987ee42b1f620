#include "console/RunProgram.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <exception>
#include <new>

#include "ZaroRuntime/LastFailure.h"
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

}  // namespace

int runProgram(const std::function<ExitCode()>& work) {
  prepareProcess();
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
    diagnose("out of memory");
  } catch (const zaroruntime::RuntimeError& failure) {
    diagnose(failure.what());
    code = exitCodeOf(failure.kind());
  } catch (const std::exception& failure) {
    diagnose(failure.what());
  } catch (const char* thrown) {
    diagnose(thrown);  // by the platform, past the library
    code = exitCodeOf(zaroruntime::lastFailureKind());
  }
  return static_cast<int>(code);
}
