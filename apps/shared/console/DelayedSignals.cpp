#include "console/DelayedSignals.h"

#include <cerrno>

namespace {

constexpr int kSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

bool isIgnored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

DelayedSignals::DelayedSignals() : m_delayed(), m_before() {
  sigemptyset(&m_delayed);
  for (const int number : kSignals) {
    // A blocked signal is kept even if it is ignored, and would then look like one to obey.
    if (!isIgnored(number)) {
      sigaddset(&m_delayed, number);
    }
  }
  sigprocmask(SIG_BLOCK, &m_delayed, &m_before);
}

DelayedSignals::~DelayedSignals() {
  sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

void DelayedSignals::throwIfInterrupted() const {
  if (const int number = _take(); number != 0) {
    throw Interrupted("interrupted; nothing was made", number);
  }
}

void DelayedSignals::forget() const {
  _take();
}

int DelayedSignals::_take() const {
  constexpr timespec kNoWait = {0, 0};
  int taken = 0;
  for (;;) {
    const int number = sigtimedwait(&m_delayed, nullptr, &kNoWait);
    if (number > 0) {
      taken = number;
    } else if (errno != EINTR) {
      return taken;
    }
  }
}
