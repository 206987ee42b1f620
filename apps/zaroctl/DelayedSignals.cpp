#include "DelayedSignals.h"

#include "ZaroRuntime/RuntimeError.h"

namespace {

constexpr int kSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

}  // namespace

DelayedSignals::DelayedSignals() : m_before() {
  sigset_t delayed;
  sigemptyset(&delayed);
  for (const int number : kSignals) {
    sigaddset(&delayed, number);
  }
  sigprocmask(SIG_BLOCK, &delayed, &m_before);
}

DelayedSignals::~DelayedSignals() {
  sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

void DelayedSignals::throwIfInterrupted() {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  for (const int number : kSignals) {
    if (sigismember(&pending, number) == 1) {
      throw zaroruntime::RuntimeError("interrupted; nothing was made");
    }
  }
}
