#include "console/PasswordInput.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZaroRuntime/PrintableText.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/UsageError.h"

namespace {

// Well above what can be stored, so that a wrong file on standard input is noticed and not swallowed whole.
constexpr std::size_t kLongestLine = 4096;

// The terminal as it was, as it is at the prompt, and the prompt: what the handler of a signal needs.
struct Prompt {
  termios before;
  termios silent;
  const char* text;
  std::size_t length;
};
Prompt shown;

void showPrompt() {
  static_cast<void>(!write(STDERR_FILENO, shown.text, shown.length));  // it is read without a prompt too
}

// Does by itself all that a signal asks for: a note for the reader would come too late if the read began just after it.
void restoreTerminalAndRaise(int number) {
  const int error = errno;
  tcsetattr(STDIN_FILENO, TCSANOW, &shown.before);
  struct sigaction byDefault = {};
  byDefault.sa_handler = SIG_DFL;
  struct sigaction ours = {};
  sigaction(number, &byDefault, &ours);
  sigset_t raised;
  sigemptyset(&raised);
  sigaddset(&raised, number);
  raise(number);
  sigprocmask(SIG_UNBLOCK, &raised, nullptr);  // the program ends here, or stops until it is continued
  sigaction(number, &ours, nullptr);
  tcsetattr(STDIN_FILENO, TCSANOW, &shown.silent);
  showPrompt();
  errno = error;
}

// A terminal that shows nothing of what is typed; everything is as before when this goes, and when a signal comes.
class NoEcho {
 public:
  explicit NoEcho(const std::string& prompt) {
    if (tcgetattr(STDIN_FILENO, &shown.before) != 0) {
      throw zaroruntime::RuntimeError(std::string("cannot read from the terminal: ") + std::strerror(errno),
                                      zaroruntime::FailureKind::File);
    }
    shown.silent = shown.before;
    shown.silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    shown.text = prompt.data();
    shown.length = prompt.size();
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      _handle(kSignals[i], m_actions[i]);
    }
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown.silent);
  }
  ~NoEcho() {
    tcsetattr(STDIN_FILENO, TCSADRAIN, &shown.before);
    std::fputc('\n', stderr);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], &m_actions[i], nullptr);
    }
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

 private:
  static constexpr std::array<int, 5> kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

  static void _handle(int number, struct sigaction& before) {
    sigaction(number, nullptr, &before);
    if (before.sa_handler == SIG_IGN) {
      return;  // the process that started the program wants it so
    }
    struct sigaction action = {};
    action.sa_handler = restoreTerminalAndRaise;
    action.sa_flags = SA_RESTART;
    for (const int other : kSignals) {
      sigaddset(&action.sa_mask, other);
    }
    sigaction(number, &action, nullptr);
  }

  std::array<struct sigaction, kSignals.size()> m_actions = {};
};

// Byte by byte: what follows the line on standard input is not ours.
std::string readLine() {
  std::string line;
  for (;;) {
    char byte = 0;
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count < 0) {
      throw zaroruntime::RuntimeError(std::string("cannot read the password: ") + std::strerror(errno),
                                      zaroruntime::FailureKind::File);
    }
    if (count == 0 && line.empty()) {
      throw zaroruntime::RuntimeError("no password on standard input", zaroruntime::FailureKind::Data);
    }
    if (count == 0 || byte == '\n') {
      return line;
    }
    line += byte;
    if (line.size() > kLongestLine) {
      throw zaroruntime::RuntimeError("the first line of standard input is too long for a password",
                                      zaroruntime::FailureKind::Data);
    }
  }
}

}  // namespace

std::string readPassword(const std::string& prompt) {
  if (isatty(STDIN_FILENO) == 0) {
    return readLine();
  }
  const NoEcho silence(prompt);  // before the prompt: what is typed after it must neither show nor be thrown away
  showPrompt();
  return readLine();
}

std::string readNewPassword(const std::string& whose, const std::string& otherwise) {
  std::string password = readPassword("Password of " + zaroruntime::printableText(whose) + ": ");
  if (password.empty()) {
    throw UsageError("the password is empty; " + otherwise);
  }
  if (password.find('\0') != std::string::npos) {
    throw UsageError("a password cannot hold NUL");
  }
  return password;
}
