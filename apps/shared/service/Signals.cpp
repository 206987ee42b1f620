#include "service/Signals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "ZaroRuntime/RuntimeError.h"

namespace {

constexpr int kSignals[] = {SIGHUP, SIGTERM, SIGINT};

std::atomic<int> signalPipe{-1};

void put(int pipe, Event event) {
  const int before = errno;
  const char byte = static_cast<char>(event);
  static_cast<void>(!::write(pipe, &byte, 1));  // a full pipe holds enough events
  errno = before;
}

void onSignal(int number) {
  put(signalPipe, number == SIGHUP ? Event::Reload : Event::Stop);
}

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kSignals) {
    sigaddset(&set, number);
  }
  return set;
}

}  // namespace

Signals::Signals() : m_readEnd(-1), m_writeEnd(-1) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw zaroruntime::RuntimeError(std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  m_readEnd = ends[0];
  m_writeEnd = ends[1];
  signalPipe = m_writeEnd;
  _block();
  struct sigaction action = {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (const int number : kSignals) {
    sigaction(number, &action, nullptr);
  }
  signal(SIGPIPE, SIG_IGN);
}

Signals::~Signals() {
  _block();
  signalPipe = -1;
  close(m_readEnd);
  close(m_writeEnd);
}

void Signals::receive() {
  const sigset_t set = handledSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

bool Signals::waitUntilBegun(std::chrono::milliseconds longest) {
  using Clock = std::chrono::steady_clock;
  receive();
  const Clock::time_point deadline = Clock::now() + longest;
  Event event = Event::None;
  bool reloads = false;
  for (Clock::duration left = longest; left.count() > 0 && event != Event::Begun && event != Event::Stop;) {
    // A signal ends the wait before its event is there.
    event = wait(std::chrono::ceil<std::chrono::milliseconds>(left));
    reloads = reloads || event == Event::Reload;
    left = deadline - Clock::now();
  }
  _block();
  if (reloads) {
    raise(Event::Reload);
  }
  return event != Event::Stop;
}

Event Signals::wait(std::chrono::milliseconds longest) const {
  pollfd waiting = {m_readEnd, POLLIN, 0};
  if (poll(&waiting, 1, static_cast<int>(longest.count())) <= 0) {
    return Event::None;
  }
  char byte = 0;
  return read(m_readEnd, &byte, 1) == 1 ? static_cast<Event>(byte) : Event::None;
}

void Signals::raise(Event event) const {
  put(m_writeEnd, event);
}

void Signals::_block() {
  const sigset_t set = handledSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}
