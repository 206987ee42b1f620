#include "odbc/ConnectTurn.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <clocale>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "odbc/OdbcError.h"

namespace zaroruntime {

namespace {

struct Turn {
  const pid_t process = ::getpid();
  const Turn* parents = nullptr;  // the parent process's; kept, since a thread of its own may have it
  std::mutex mutex;
  std::condition_variable isFree;
  bool taken = false;
};

// This process's; it outlives whatever still connects while the process ends. A child that was forked while a thread
// connected needs one of its own: it does not have the thread that would give the turn back.
Turn& turn() {
  static std::atomic<Turn*> current{nullptr};
  Turn* known = current;
  while (known == nullptr || known->process != ::getpid()) {
    auto own = std::make_unique<Turn>();
    own->parents = known;
    if (current.compare_exchange_strong(known, own.get())) {
      known = own.release();
    }
  }
  return *known;
}

}  // namespace

ConnectTurn::ConnectTurn(int timeOut) {
  Turn& ours = turn();
  std::unique_lock<std::mutex> lock(ours.mutex);
  const auto isFree = [&] { return !ours.taken; };
  if (timeOut <= 0) {
    ours.isFree.wait(lock, isFree);
  } else if (!ours.isFree.wait_for(lock, std::chrono::seconds(timeOut), isFree)) {
    throw OdbcError("HYT00", 0, "SQLDriverConnect: another thread was still connecting when the time-out expired", false);
  }
  m_ctype = std::setlocale(LC_CTYPE, nullptr);
  ours.taken = true;
}

ConnectTurn::~ConnectTurn() {
  if (m_ctype != std::setlocale(LC_CTYPE, nullptr)) {
    std::setlocale(LC_CTYPE, m_ctype.c_str());
  }
  Turn& ours = turn();
  {
    const std::lock_guard<std::mutex> lock(ours.mutex);
    ours.taken = false;
  }
  ours.isFree.notify_one();
}

}  // namespace zaroruntime
