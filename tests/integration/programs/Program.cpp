#include "programs/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace zarotest {

namespace {

class Pipe {
 public:
  Pipe() {
    if (pipe2(m_ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("cannot make a pipe");
    }
  }
  ~Pipe() {
    closeRead();
    closeWrite();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int readEnd() const { return m_ends[0]; }
  int writeEnd() const { return m_ends[1]; }
  void closeRead() { _close(m_ends[0]); }
  void closeWrite() { _close(m_ends[1]); }

 private:
  static void _close(int& fd) {
    if (fd >= 0) {
      close(fd);
      fd = -1;
    }
  }
  int m_ends[2];
};

std::vector<std::string> environmentOf(const ProgramRun& run) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    if (text.compare(0, 4, "ZARO") != 0) {
      variables.push_back(text);
    }
  }
  for (const auto& [name, value] : run.environment) {
    variables.push_back(name + "=" + value);
  }
  return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// What the child needs, made before the fork.
class Launch {
 public:
  Launch(const std::vector<std::string>& arguments, const ProgramRun& run)
      : m_arguments(arguments), m_environment(environmentOf(run)) {
    m_arguments.insert(m_arguments.begin(), ZAROCTL_PATH);
    m_argumentPointers = pointersTo(m_arguments);
    m_environmentPointers = pointersTo(m_environment);
  }
  Launch(const Launch&) = delete;
  Launch& operator=(const Launch&) = delete;

  [[noreturn]] void exec() {
    execve(ZAROCTL_PATH, m_argumentPointers.data(), m_environmentPointers.data());
    _exit(126);
  }

 private:
  std::vector<std::string> m_arguments;
  std::vector<std::string> m_environment;
  std::vector<char*> m_argumentPointers;
  std::vector<char*> m_environmentPointers;
};

int statusOf(int pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::runtime_error("cannot wait for the program");
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// False at the end.
bool readSome(int fd, std::string& text) {
  char piece[4096];
  const ssize_t count = read(fd, piece, sizeof piece);
  if (count > 0) {
    text.append(piece, static_cast<std::size_t>(count));
  }
  return count > 0;
}

void writeInput(int fd, const std::string& text) {
  // Short enough for the pipe's buffer; a program that does not read it is no failure.
  static_cast<void>(!write(fd, text.data(), text.size()));
}

void readBoth(int outFd, int errFd, ProgramResult& result) {
  pollfd open[] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
  std::string* texts[] = {&result.out, &result.err};
  while (open[0].fd >= 0 || open[1].fd >= 0) {
    poll(open, 2, -1);
    for (int i = 0; i < 2; ++i) {
      if (open[i].fd >= 0 && open[i].revents != 0 && !readSome(open[i].fd, *texts[i])) {
        open[i].fd = -1;
      }
    }
  }
}

}  // namespace

ProgramResult zaroctl(const std::vector<std::string>& arguments, const ProgramRun& run) {
  signal(SIGPIPE, SIG_IGN);
  Launch launch(arguments, run);
  Pipe in;
  Pipe out;
  Pipe err;
  const pid_t pid = fork();
  if (pid == 0) {
    signal(SIGPIPE, SIG_DFL);
    const int output = run.outputFile.empty() ? out.writeEnd() : open(run.outputFile.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(in.readEnd(), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(err.writeEnd(), STDERR_FILENO);
    launch.exec();
  }
  in.closeRead();
  out.closeWrite();
  err.closeWrite();
  writeInput(in.writeEnd(), run.input);
  in.closeWrite();
  if (run.whileRunning) {
    run.whileRunning(pid);
  }
  ProgramResult result;
  readBoth(out.readEnd(), err.readEnd(), result);
  result.status = statusOf(pid);
  return result;
}

ProgramResult zaroctlOnTerminal(const std::vector<std::string>& arguments, const std::string& typed,
                                const ProgramRun& run) {
  Launch launch(arguments, run);
  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid == 0) {
    launch.exec();
  }
  ProgramResult result;
  bool fed = typed.empty();
  while (readSome(terminal, result.out)) {
    if (!fed) {
      writeInput(terminal, typed);
      fed = true;
    }
  }
  result.status = statusOf(pid);
  close(terminal);
  result.out.erase(std::remove(result.out.begin(), result.out.end(), '\r'), result.out.end());
  return result;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace zarotest
