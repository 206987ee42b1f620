#include "programs/Program.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace zarotest {

namespace {

using Clock = std::chrono::steady_clock;

// Far above what a run takes on a busy machine, and well below the time that ctest gives a test.
constexpr std::chrono::seconds kLongestRun{100};
constexpr std::chrono::milliseconds kPause{1};

class Descriptor {
 public:
  Descriptor() = default;
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return m_fd; }
  void reset(int fd = -1) {
    if (m_fd >= 0) {
      close(m_fd);
    }
    m_fd = fd;
  }

 private:
  int m_fd = -1;
};

class Pipe {
 public:
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("cannot make a pipe");
    }
    m_read.reset(ends[0]);
    m_write.reset(ends[1]);
  }
  int readEnd() const { return m_read.get(); }
  int writeEnd() const { return m_write.get(); }
  void closeRead() { m_read.reset(); }
  void closeWrite() { m_write.reset(); }

 private:
  Descriptor m_read;
  Descriptor m_write;
};

std::vector<std::string> environmentOf(const ProgramRun& run) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    const bool isOfTheTerminal = text.compare(0, 5, "TERM=") == 0 || text.compare(0, 9, "NO_COLOR=") == 0;
    if (text.compare(0, 4, "ZARO") != 0 && !isOfTheTerminal) {
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
      : m_arguments(arguments),
        m_environment(environmentOf(run)),
        m_largestFile(run.largestFile),
        m_obeysPermissions(run.obeysPermissions) {
    m_arguments.insert(m_arguments.begin(), ZAROCTL_PATH);
    m_argumentPointers = pointersTo(m_arguments);
    m_environmentPointers = pointersTo(m_environment);
  }
  Launch(const Launch&) = delete;
  Launch& operator=(const Launch&) = delete;

  [[noreturn]] void exec() {
    if (m_obeysPermissions) {
      // What root loses here it does not get back from the exec; others have nothing to lose.
      prctl(PR_CAPBSET_DROP, CAP_CHOWN, 0, 0, 0);
      prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
      prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
    }
    if (m_largestFile != 0) {
      const rlimit limit = {m_largestFile, m_largestFile};
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    execve(ZAROCTL_PATH, m_argumentPointers.data(), m_environmentPointers.data());
    _exit(126);
  }

 private:
  std::vector<std::string> m_arguments;
  std::vector<std::string> m_environment;
  std::vector<char*> m_argumentPointers;
  std::vector<char*> m_environmentPointers;
  unsigned long m_largestFile;
  bool m_obeysPermissions;
};

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

// The program once it runs. It does not outlive the longest run.
class Child {
 public:
  explicit Child(pid_t pid) : m_pid(pid), m_end(Clock::now() + kLongestRun) {
    if (pid < 0) {
      throw std::runtime_error("cannot start the program");
    }
  }

  pid_t pid() const { return m_pid; }
  bool isLate() const { return Clock::now() >= m_end; }

  // Waits for input or the end of it; false when the time is up.
  bool awaitInput(pollfd* files, nfds_t count) const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_end - Clock::now()).count();
    return left > 0 && poll(files, count, static_cast<int>(left)) != 0;
  }

  // Takes leave of the program: its status goes to `result`.
  void finish(ProgramResult& result) const {
    int status = 0;
    while (!_hasEnded(status)) {
      if (isLate()) {
        result.err += "\nended by the test, because it hung\n";
        kill(m_pid, SIGKILL);
        waitpid(m_pid, &status, 0);
        break;
      }
      std::this_thread::sleep_for(kPause);
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  bool _hasEnded(int& status) const {
    const pid_t ended = waitpid(m_pid, &status, WNOHANG);
    if (ended < 0 && errno != EINTR) {
      throw std::runtime_error("cannot wait for the program");
    }
    return ended == m_pid;
  }

  pid_t m_pid;
  Clock::time_point m_end;
};

void readBoth(const Child& child, int outFd, int errFd, ProgramResult& result) {
  pollfd open[] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
  std::string* texts[] = {&result.out, &result.err};
  while ((open[0].fd >= 0 || open[1].fd >= 0) && child.awaitInput(open, 2)) {
    for (int i = 0; i < 2; ++i) {
      if (open[i].fd >= 0 && open[i].revents != 0 && !readSome(open[i].fd, *texts[i])) {
        open[i].fd = -1;
      }
    }
  }
}

// A terminal: our end, and until the program runs the one that it gets. It is as wide as COLUMNS says, as for the
// programs of a shell.
struct Terminal {
  explicit Terminal(const ProgramRun& run) {
    int ends[2];
    const auto columns = run.environment.find("COLUMNS");
    winsize size = {};
    size.ws_col = columns != run.environment.end() ? static_cast<unsigned short>(std::stoi(columns->second)) : 0;
    if (openpty(&ends[0], &ends[1], nullptr, nullptr, &size) != 0) {
      throw std::runtime_error("cannot make a terminal");
    }
    ours.reset(ends[0]);
    theirs.reset(ends[1]);
    fcntl(ours.get(), F_SETFD, FD_CLOEXEC);
    fcntl(theirs.get(), F_SETFD, FD_CLOEXEC);
  }

  bool echoes() const {
    termios state = {};
    return tcgetattr(theirs.get(), &state) == 0 && (state.c_lflag & ECHO) != 0;
  }

  Descriptor ours;
  Descriptor theirs;
};

void typeBeforeThePrompt(const Child& child, const Terminal& terminal, const std::string& typed) {
  while (terminal.echoes() && !child.isLate()) {
    std::this_thread::sleep_for(kPause);
  }
  writeInput(terminal.ours.get(), typed);
  tcflow(terminal.theirs.get(), TCOON);
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
  const Child child(pid);
  in.closeRead();
  out.closeWrite();
  err.closeWrite();
  writeInput(in.writeEnd(), run.input);
  in.closeWrite();
  if (run.whileRunning) {
    run.whileRunning(pid);
  }
  ProgramResult result;
  readBoth(child, out.readEnd(), err.readEnd(), result);
  child.finish(result);
  return result;
}

ProgramResult zaroctlOnTerminal(const std::vector<std::string>& arguments, const std::string& typed,
                                const ProgramRun& run) {
  Launch launch(arguments, run);
  Terminal terminal(run);
  if (run.typedBeforeThePrompt) {
    tcflow(terminal.theirs.get(), TCOOFF);
  }
  const pid_t pid = fork();
  if (pid == 0) {
    login_tty(terminal.theirs.get());
    launch.exec();
  }
  const Child child(pid);
  bool fed = typed.empty();
  if (run.typedBeforeThePrompt) {
    typeBeforeThePrompt(child, terminal, typed);
    fed = true;
  }
  terminal.theirs.reset();  // reading then ends with the program
  ProgramResult result;
  pollfd output = {terminal.ours.get(), POLLIN, 0};
  while (child.awaitInput(&output, 1) && readSome(output.fd, result.out)) {
    if (!fed) {
      writeInput(output.fd, typed);
      fed = true;
    }
  }
  child.finish(result);
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
