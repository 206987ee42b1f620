#include "PasswordInput.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZaroRuntime/RuntimeError.h"

namespace {

// Well above what can be stored, so that a wrong file on standard input is noticed and not swallowed whole.
constexpr std::size_t kLongestLine = 4096;

volatile sig_atomic_t signalSeen = 0;

void noteSignal(int number) {
  signalSeen = number;
}

// A terminal that shows nothing of what is typed; everything is as before when this goes, also after a signal.
class NoEcho {
 public:
  NoEcho() : m_before() {
    signalSeen = 0;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      struct sigaction action = {};
      action.sa_handler = noteSignal;  // without SA_RESTART, so that the read ends
      sigaction(kSignals[i], &action, &m_actions[i]);
    }
    if (tcgetattr(STDIN_FILENO, &m_before) != 0) {
      _restoreSignals();
      throw zaroruntime::RuntimeError(std::string("cannot read from the terminal: ") + std::strerror(errno));
    }
    termios silent = m_before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
  }
  ~NoEcho() {
    tcsetattr(STDIN_FILENO, TCSADRAIN, &m_before);
    std::fputc('\n', stderr);
    _restoreSignals();
    if (signalSeen != 0) {
      raise(signalSeen);
    }
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

 private:
  static constexpr std::array<int, 5> kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

  void _restoreSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], &m_actions[i], nullptr);
    }
  }

  termios m_before;
  std::array<struct sigaction, kSignals.size()> m_actions;
};

// Byte by byte: what follows the line on standard input is not ours.
std::string readLine() {
  std::string line;
  for (;;) {
    char byte = 0;
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count < 0) {
      throw zaroruntime::RuntimeError(std::string("cannot read the password: ") + std::strerror(errno));
    }
    if (count == 0 && line.empty()) {
      throw zaroruntime::RuntimeError("no password on standard input");
    }
    if (count == 0 || byte == '\n') {
      return line;
    }
    line += byte;
    if (line.size() > kLongestLine) {
      throw zaroruntime::RuntimeError("the first line of standard input is too long for a password");
    }
  }
}

}  // namespace

std::string readPassword(const std::string& prompt) {
  if (isatty(STDIN_FILENO) == 0) {
    return readLine();
  }
  const NoEcho silence;  // before the prompt: what is typed after it must neither show nor be thrown away
  std::fputs(prompt.c_str(), stderr);
  return readLine();
}
