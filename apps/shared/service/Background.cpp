#include "service/Background.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "console/ExitCode.h"

using zaroruntime::RuntimeError;

void setServiceUmask() {
  constexpr mode_t kOwnerOnly = 0077;
  umask(kOwnerOnly);
}

Background::Background() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw RuntimeError(std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  const pid_t child = fork();
  if (child < 0) {
    throw RuntimeError(std::string("cannot go to the background: ") + std::strerror(errno));
  }
  if (child > 0) {
    close(ends[1]);
    _exit(_statusOf(child, ends[0]));
  }
  close(ends[0]);
  m_parent = ends[1];
  setsid();
}

void Background::tellReady() const {
  const char ready = 'r';
  static_cast<void>(!::write(m_parent, &ready, 1));
  close(m_parent);
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    dup2(null, descriptor);
  }
  close(null);
}

int Background::_statusOf(int child, int pipe) {
  char byte = 0;
  if (read(pipe, &byte, 1) == 1) {
    return static_cast<int>(ExitCode::Found);
  }
  int status = 0;
  waitpid(child, &status, 0);
  // Even one that was told to end is not ready.
  return WIFEXITED(status) && WEXITSTATUS(status) != 0 ? WEXITSTATUS(status) : static_cast<int>(ExitCode::Unavailable);
}
