#include "odbc/ConnectTurn.h"

#include <chrono>
#include <clocale>
#include <condition_variable>
#include <mutex>

#include "odbc/OdbcError.h"

namespace zaroruntime {

namespace {

struct Turn {
  std::mutex mutex;
  std::condition_variable isFree;
  bool taken = false;
};

Turn& turn() {
  static Turn* const one = new Turn;  // outlives whatever still connects while the process ends
  return *one;
}

}  // namespace

ConnectTurn::ConnectTurn(int timeOut) {
  std::unique_lock<std::mutex> lock(turn().mutex);
  const auto isFree = [] { return !turn().taken; };
  if (timeOut <= 0) {
    turn().isFree.wait(lock, isFree);
  } else if (!turn().isFree.wait_for(lock, std::chrono::seconds(timeOut), isFree)) {
    throw OdbcError("HYT00", 0, "SQLDriverConnect: another thread was still connecting when the time-out expired", false);
  }
  m_ctype = std::setlocale(LC_CTYPE, nullptr);
  turn().taken = true;
}

ConnectTurn::~ConnectTurn() {
  if (m_ctype != std::setlocale(LC_CTYPE, nullptr)) {
    std::setlocale(LC_CTYPE, m_ctype.c_str());
  }
  {
    const std::lock_guard<std::mutex> lock(turn().mutex);
    turn().taken = false;
  }
  turn().isFree.notify_one();
}

}  // namespace zaroruntime
